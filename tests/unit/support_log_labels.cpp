// The labels of typed log lines, and the switches that hide one type of them.

#include "support_log.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// ---- labels --------------------------------------------------------------------------------------------------------

struct TypeRow {
    int32_t nType;
    const char *pszLabel;       // as the table has it
    const char *pszInformation; // as an information line shows it
    const char *pszError;       // as an error line shows it
};

constexpr TypeRow aTypes[] = {
    {1, "Public:", "Public:", "Public::   "},   {2, "Comm:", "Comm:  ", "Comm:OR:   "},
    {3, "CommDev:", "CommDev:", "CommDev:   "}, {4, "Instr:", "Instr: ", "Instr:R:   "},
    {5, "Loginc", "Loginc ", "LogincR:   "},    {6, "BusiId:", "BusiId:", "BusiId::   "},
    {7, "BusiIc:", "BusiIc:", "BusiIc::   "},   {8, "BusiMsg:", "BusiMsg:", "BusiMsg:   "},
    {9, "AppId:", "AppId: ", "AppId:R:   "},    {10, "AppIc", "AppIc  ", "AppIcOR:   "},
    {11, "AppMsg", "AppMsg ", "AppMsgR:   "},
};

TEST_F(Log, EveryTypeLabelOverlaysTheKindLabel)
{
    const uint8_t data[] = {0x01};
    for (const TypeRow &row : aTypes) {
        SCOPED_TRACE(row.nType);
        logOn();
        DPrintLogToFileAddType(0, row.nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  INFO:    " + row.pszInformation + "  t\r\n");
        logOn();
        DPrintLogToFileAddType(1, row.nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  !!ERROR:     " + row.pszError + "  t\r\n");
        logOn();
        DPrintDataHexToFileAddType(1, row.nType, "t", data, 1);
        EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  !!ERROR:     " + row.pszError + "  t  LEN=1   HEX: 01\r\n");
    }
}

TEST_F(Log, UnknownKindHasAnEmptyLabel)
{
    const uint8_t data[] = {0x01};
    for (int32_t nKind : {2, 7, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(nKind);
        logOn();
        DPrintLogToFileAddType(nKind, 2, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "    Comm:  t\r\n");
        logOn();
        DPrintDataHexToFileAddType(nKind, 2, "t", data, 1);
        EXPECT_EQ(rawLog(), std::string(" ") + szTime + "    Comm:  t  LEN=1   HEX: 01\r\n");
    }
}

TEST_F(Log, UnknownTypeRepeatsTheKindLabel)
{
    for (int32_t nType : {12, 100, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(nType);
        logOn();
        DPrintLogToFileAddType(0, nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  INFO:    INFO:    t\r\n");
        logOn();
        DPrintLogToFileAddType(1, nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  !!ERROR:     !!ERROR:     t\r\n");
    }
}

TEST_F(Log, UnknownKindAndTypeLeaveBothLabelsEmpty)
{
    DPrintLogToFileAddType(9, 12, "t");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "      t\r\n");
}

TEST_F(Log, TypedLineOfType0IsNeverWritten)
{
    DPrintLogToFileAddType(0, 0, "t");
    DPrintLogToFileAddType(1, 0, "t");
    g_DbgSetFlag = 1;
    DPrintLogToFileAddType(0, 0, "t");
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, TypedHexDumpOfKind0IsNeverWritten)
{
    const uint8_t data[] = {0x01};
    for (int32_t nType = -1; nType <= 12; ++nType)
        DPrintDataHexToFileAddType(0, nType, "t", data, 1);
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, TypedHexDumpOfType0IsWrittenWhenItsKindIsNot0)
{
    const uint8_t data[] = {0x01};
    DPrintDataHexToFileAddType(1, 0, "t", data, 1);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  !!ERROR:     !!ERROR:     t  LEN=1   HEX: 01\r\n");
}

TEST_F(Log, InfoLabelIsWrittenWithTwoBlanksAndANul)
{
    char szBuf[24];
    std::memset(szBuf, 'x', sizeof szBuf);
    MapDebugInfoType(0, szBuf);
    EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string("INFO:  ") + '\0' + std::string(16, 'x'));
    std::memset(szBuf, 'x', sizeof szBuf);
    MapDebugInfoType(1, szBuf);
    EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string("!!ERROR:   ") + '\0' + std::string(12, 'x'));
}

TEST_F(Log, InfoLabelOfAnotherKindLeavesTheBuffer)
{
    for (int32_t nKind : {2, 3, -1, 11, INT_MAX, INT_MIN}) {
        char szBuf[16];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugInfoType(nKind, szBuf);
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string(16, 'x')) << nKind;
    }
}

TEST_F(Log, LevelLabelIsWrittenWithoutANul)
{
    for (const TypeRow &row : aTypes) {
        char szBuf[40];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugLevelType(row.nType, szBuf);
        std::string sExpected = row.pszLabel;
        sExpected.resize(sizeof szBuf, 'x');
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), sExpected) << row.nType;
    }
}

TEST_F(Log, LevelLabelOfAnUnknownTypeLeavesTheBuffer)
{
    for (int32_t nType : {0, 12, 13, -1, 256 + 1, INT_MAX, INT_MIN}) {
        char szBuf[16];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugLevelType(nType, szBuf);
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string(16, 'x')) << nType;
    }
}

TEST_F(Log, NullPointersToSmallCallsChangeNothing)
{
    MapDebugInfoType(0, nullptr);
    MapDebugInfoType(1, nullptr);
    MapDebugLevelType(1, nullptr);
    getSoLocationPath(nullptr);
    DPrintTlvToFileAddType(1, 1, nullptr, nullptr, 0);
    GetFullPath(nullptr, nullptr, 0);
    DPrintLogToFile("still here");
    EXPECT_EQ(logTexts(), std::vector<std::string>{"still here"});
}

TEST_F(Log, TlvWriterAndFullPathDoNothing)
{
    const uint8_t data[] = {0x5A, 0x01, 0x02};
    char szOut[] = "unchanged";
    DPrintTlvToFileAddType(0, 1, "t", data, 3);
    DPrintTlvToFileAddType(1, 1, "t", data, 3);
    GetFullPath("/tmp", szOut, 9);
    EXPECT_STREQ(szOut, "unchanged");
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

// ---- switches ------------------------------------------------------------------------------------------------------

TEST_F(Log, SwitchOfOneTypeHidesThatTypeAlone)
{
    g_DbgSetFlag = 1;
    for (int32_t &nEnable : g_stDebugTip.nEnable)
        nEnable = 1;
    g_stDebugTip.nEnable[2] = 0;
    for (int32_t nType = 1; nType <= 12; ++nType)
        DPrintLogToFileAddType(0, nType, "type %d", nType);
    std::vector<std::string> texts = logTexts();
    std::vector<std::string> expected;
    for (int nType : {1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12})
        expected.push_back("type " + std::to_string(nType));
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(rawLog().find("CommDev:"), std::string::npos);
}

TEST_F(Log, EachSwitchBelongsToTheTypeAfterItsIndex)
{
    g_DbgSetFlag = 1;
    for (int nAt = 0; nAt < 11; ++nAt) {
        logOn();
        g_stDebugTip = {};
        g_stDebugTip.nEnable[nAt] = nAt % 2 == 0 ? 1 : -5; // anything but 0 is on
        for (int32_t nType = 1; nType <= 11; ++nType)
            DPrintLogToFileAddType(1, nType, "%d", nType);
        const std::string sLog = rawLog();
        EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 1) << nAt;
        EXPECT_TRUE(sLog.ends_with("  " + std::to_string(nAt + 1) + "\r\n")) << sLog;
    }
}

TEST_F(Log, SwitchesCountOnlyWhileTheFlagIsExactly1)
{
    for (int32_t nFlag : {0, 2, -1, INT_MAX}) {
        logOn();
        g_DbgSetFlag = nFlag;
        DPrintLogToFileAddType(0, 3, "t");
        EXPECT_EQ(logTexts(), std::vector<std::string>{"t"}) << nFlag;
    }
}

TEST_F(Log, SwitchesConcernNeitherUntypedLinesNorHexDumps)
{
    const uint8_t data[] = {0x01};
    g_DbgSetFlag = 1;
    DPrintLogToFile("untyped");
    DPrintDataHexToFile("hex", data, 1);
    DPrintDataHexToFileAddType(1, 3, "typed hex", data, 1);
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 3) << sLog;
}

TEST_F(Log, UnknownTypesHaveNoSwitch)
{
    g_DbgSetFlag = 1;
    DPrintLogToFileAddType(0, 12, "twelve");
    DPrintLogToFileAddType(0, -1, "minus one");
    const std::string sLog = rawLog();
    EXPECT_NE(sLog.find("twelve"), std::string::npos);
    EXPECT_NE(sLog.find("minus one"), std::string::npos);
}

TEST_F(Log, SetDebugLevelCopiesAllSwitchesAndLeavesTheFlag)
{
    StDebugTip tip{};
    for (int n = 0; n < 11; ++n)
        tip.nEnable[n] = n * 3 - 5;
    g_DbgSetFlag = 7;
    EXPECT_EQ(Dbg_SetDebugLevel(&tip), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(g_DbgSetFlag, 7);

    EXPECT_EQ(Dbg_SetDebugLevel(nullptr), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(Dbg_SetDebugLevel(&g_stDebugTip), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(g_DbgSetFlag, 7);
}

} // namespace
