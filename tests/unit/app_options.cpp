// The options that a host sets and a kernel reads.

#include "harness.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>

using namespace qvtest;

namespace {

struct Flag {
    const char *pszName;
    int32_t (*set)(uint32_t);
    uint32_t (*get)(); // null: only the library reads it
    uint32_t nAtLoad;
    uint32_t nFound;
};

uint32_t algorithm()
{
    return g_nIcAlgorithm;
}

const Flag s_flags[] = {
    {"ARQC executed", QV_APP_SetArqcExeFlag, QV_APP_GetArqcExeFlag, 0, QV_APP_GetArqcExeFlag()},
    {"PPSE", QV_APP_SetPpseSelect, QV_APP_GetPpseSelect, 1, QV_APP_GetPpseSelect()},
    {"no second cryptogram", QV_APP_SetNoGac2Flag, QV_APP_GetNoGac2Flag, 0, QV_APP_GetNoGac2Flag()},
    {"tags", QV_APP_SetTlvTagFlag, QV_APP_GetTlvTagFlag, 0, QV_APP_GetTlvTagFlag()},
    {"algorithm", QV_APP_SetIcAlgorithm, algorithm, 0, g_nIcAlgorithm},
    {"fast reading", QV_APP_SetFastReadFlag, nullptr, 0, 0},
    {"power-off", QV_APP_SetInfoPowerOffFlag, nullptr, 0, 0},
};

uint8_t typeAtLoad()
{
    uint8_t uc = 0xC5;
    tfunc_GetIcType(&uc);
    return uc;
}
const uint8_t s_ucTypeAtLoad = typeAtLoad();

TEST(AppOptions, OnlyPpseIsOnAtLoad)
{
    for (const Flag &flag : s_flags)
        EXPECT_EQ(flag.nFound, flag.nAtLoad) << flag.pszName;
    EXPECT_EQ(s_ucTypeAtLoad, 0);
}

TEST(AppOptions, AFlagIsReadAsItWasSet)
{
    for (const Flag &flag : s_flags) {
        SCOPED_TRACE(flag.pszName);
        for (uint32_t n : {1U, 0U, 2U, 0x80000000U, 0xFFFFFFFFU, 0U}) {
            EXPECT_EQ(flag.set(n), 0);
            if (flag.get != nullptr) {
                EXPECT_EQ(flag.get(), n);
                EXPECT_EQ(flag.get(), n);
            }
        }
    }
}

TEST(AppOptions, AFlagLeavesTheOthersAlone)
{
    uint32_t nValue = 100;
    for (const Flag &flag : s_flags)
        flag.set(nValue++);
    nValue = 100;
    for (const Flag &flag : s_flags) {
        if (flag.get != nullptr) {
            EXPECT_EQ(flag.get(), nValue) << flag.pszName;
        }
        ++nValue;
    }
    for (const Flag &flag : s_flags)
        flag.set(flag.nAtLoad);
}

TEST(AppOptions, TheCardTypeIsOneByte)
{
    for (int n : {0x31, 0x32, 0xFF, 0}) {
        Bytes buf(8, 0xC5);
        EXPECT_EQ(tfunc_SetIcType(static_cast<uint8_t>(n)), 0);
        EXPECT_EQ(tfunc_GetIcType(&buf[3]), 0);
        Bytes wanted(8, 0xC5);
        wanted[3] = static_cast<uint8_t>(n);
        EXPECT_EQ(buf, wanted);
    }
    EXPECT_EQ(tfunc_GetIcType(nullptr), -2);
}

TEST(AppOptions, ThePowerUpTimeOutIsAtMost120Seconds)
{
    g_nPowerOnTimeout = 77;
    for (int32_t n : {-1, 121, INT_MIN, INT_MAX, 376}) {
        EXPECT_EQ(QV_APP_SetPowerOnTimeout(n), -2) << n;
        EXPECT_EQ(g_nPowerOnTimeout, 77U) << n;
    }
    for (int32_t n : {0, 1, 119, 120}) {
        EXPECT_EQ(QV_APP_SetPowerOnTimeout(n), 0) << n;
        EXPECT_EQ(g_nPowerOnTimeout, static_cast<uint32_t>(n));
    }
}

TEST(AppOptions, TheCallbacksTimeOutIsSetWhilePoweringUpIsOn)
{
    g_stCallBackFunc = {0, 0, 1, 0, 0};
    for (uint32_t n : {0U, 5U, 121U, 100000U}) {
        EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(n), 0);
        EXPECT_EQ(g_nPowerOnTimeout, n);
    }
    g_stCallBackFunc = {1, 1, 0, 1, 1};
    EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(9), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 100000U);
    g_stCallBackFunc = {1, 1, 1, 1, 1};
}

} // namespace
