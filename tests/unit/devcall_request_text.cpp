// The small parts of the JSON call: string members, end conditions, label lines, the power-up time-out's switch.

#include "harness.h"

#include "qvreader/devcall.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace qvtest;

namespace {

const StCallBackFunc s_callbacksAtLoad = g_stCallBackFunc;

// ---- string members -----------------------------------------------------------------------------------------------

struct Member {
    int32_t nResult;
    std::string sText; // "(untouched)" when nothing was copied
};

Member member(const char *pszJson, const char *pszKey)
{
    std::string sOut(600, '#');
    Member m{func_GetStringFromJson(pszJson, pszKey, sOut.data()), "(untouched)"};
    if (sOut.find_first_not_of('#') != std::string::npos)
        m.sText = sOut.c_str();
    return m;
}

TEST(StringMember, IsCopied)
{
    const char *pszJson = R"( {"a":"one", "b" : "two words" ,"c":"","d":"0","e":"a\"b\\c\u4e2d","f":"中文"} )";
    const std::pair<const char *, const char *> rows[] = {{"a", "one"}, {"b", "two words"}, {"c", ""},
                                                          {"d", "0"},   {"e", "a\"b\\c中"}, {"f", "中文"}};
    for (auto [pszKey, pszText] : rows) {
        SCOPED_TRACE(pszKey);
        Member m = member(pszJson, pszKey);
        EXPECT_EQ(m.nResult, 0);
        EXPECT_EQ(m.sText, pszText);
    }
}

TEST(StringMember, OfAnyLengthIsCopiedWhole)
{
    std::string sText(3000, 'x');
    std::string sOut(3001, '#');
    EXPECT_EQ(func_GetStringFromJson(("{\"k\":\"" + sText + "\"}").c_str(), "k", sOut.data()), 0);
    EXPECT_EQ(sOut.c_str(), sText);
}

TEST(StringMember, MustBeAString)
{
    for (const char *pszValue :
         {"0", "1", "-5", "1.5", "true", "false", "null", "{}", "[]", R"(["a"])", R"({"k":"a"})"}) {
        SCOPED_TRACE(pszValue);
        Member m = member((std::string("{\"k\":") + pszValue + "}").c_str(), "k");
        EXPECT_EQ(m.nResult, -1);
        EXPECT_EQ(m.sText, "(untouched)");
    }
}

TEST(StringMember, IsFoundWhateverTheCaseOfItsName)
{
    std::string sOut(8, '\x15');
    EXPECT_EQ(func_GetStringFromJson(R"({"KEY":"a"})", "key", sOut.data()), 0);
    EXPECT_STREQ(sOut.c_str(), "a");
}

TEST(StringMember, MustBeThere)
{
    for (const char *pszJson :
         {R"({})", R"({"x":"a"})", R"({"k2":"a"})", R"({"x":{"k":"a"}})", R"([])", R"("k")", "7"}) {
        SCOPED_TRACE(pszJson);
        Member m = member(pszJson, "k");
        EXPECT_EQ(m.nResult, -2);
        EXPECT_EQ(m.sText, "(untouched)");
    }
}

TEST(StringMember, NeedsValidJson)
{
    for (const char *pszJson :
         {"", " ", "k", "{", R"({"k":"a")", R"({"k":"a)", R"({"k" "a"})", R"({k:"a"})", R"({'k':'a'})"}) {
        SCOPED_TRACE(pszJson);
        Member m = member(pszJson, "k");
        EXPECT_EQ(m.nResult, -2);
        EXPECT_EQ(m.sText, "(untouched)");
    }
}

TEST(StringMember, NullArgumentsAreRefused)
{
    char szOut[8] = "#";
    EXPECT_EQ(func_GetStringFromJson(nullptr, "k", szOut), -2);
    EXPECT_EQ(func_GetStringFromJson(R"({"k":"a"})", nullptr, szOut), -2);
    EXPECT_EQ(func_GetStringFromJson(R"({"k":"a"})", "k", nullptr), -2);
    EXPECT_STREQ(szOut, "#");
}

// ---- end conditions -----------------------------------------------------------------------------------------------

TEST(EndCondition, LooksAtTheLastByte)
{
    struct Row {
        const char *pszData;
        int32_t nVer;
        int32_t nDefault;
    };
    const Row rows[] = {{"04", 0, -1},       {"03", -1, 0},          {"00", -1, -1},   {"01 30 04", 0, -1},
                        {"01 30 03", -1, 0}, {"04 03", -1, 0},       {"03 04", 0, -1}, {"04 00", -1, -1},
                        {"03 FF", -1, -1},   {"04 04 04 05", -1, -1}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszData);
        Bytes data = bytes(row.pszData);
        EXPECT_EQ(VEREndCondition(data.data(), static_cast<int32_t>(data.size())), row.nVer);
        EXPECT_EQ(DefaultEndCondition(data.data(), static_cast<int32_t>(data.size())), row.nDefault);
    }
}

TEST(EndCondition, CopesWithNothing)
{
    const uint8_t before[] = {0x04, 0x03, 0x04, 0x03};
    EXPECT_EQ(VEREndCondition(before + 1, 0), -1);
    EXPECT_EQ(DefaultEndCondition(before + 2, 0), -1);
    EXPECT_EQ(VEREndCondition(before + 2, -1), -1);
    EXPECT_EQ(DefaultEndCondition(before + 2, -1), -1);
    EXPECT_EQ(VEREndCondition(nullptr, 0), -1);
    EXPECT_EQ(DefaultEndCondition(nullptr, 0), -1);
    EXPECT_EQ(VEREndCondition(nullptr, 4), -1);
    EXPECT_EQ(DefaultEndCondition(nullptr, 4), -1);
}

// ---- label lines --------------------------------------------------------------------------------------------------

TEST(LabelLine, IsAppended)
{
    char szText[256];
    std::memset(szText, '#', sizeof szText);
    int32_t nLen = DataFormat(szText, 0, "设备名", "RDZ-7350");
    std::string sExpected = "设备名:        RDZ-7350\r\n\r\n";
    EXPECT_EQ(nLen, static_cast<int32_t>(sExpected.size()));
    EXPECT_EQ(szText, sExpected);
    nLen = DataFormat(szText, nLen, "设备编号", "");
    sExpected += "设备编号:        \r\n\r\n";
    EXPECT_EQ(nLen, static_cast<int32_t>(sExpected.size()));
    EXPECT_EQ(szText, sExpected);
    nLen = DataFormat(szText, nLen, "", "%s%n");
    sExpected += ":        %s%n\r\n\r\n";
    EXPECT_EQ(nLen, static_cast<int32_t>(sExpected.size()));
    EXPECT_EQ(szText, sExpected);
    EXPECT_EQ(szText[nLen + 1], '#');
}

TEST(LabelLine, OverwritesFromTheGivenLength)
{
    char szText[64] = "abcdef";
    EXPECT_EQ(DataFormat(szText, 3, "L", "V"), 3 + 15);
    EXPECT_STREQ(szText, "abcL:        V\r\n\r\n");
}

TEST(LabelLine, BadArgumentsAreRefused)
{
    char szText[32] = "#";
    EXPECT_EQ(DataFormat(nullptr, 0, "L", "V"), -2);
    EXPECT_EQ(DataFormat(szText, 0, nullptr, "V"), -2);
    EXPECT_EQ(DataFormat(szText, 0, "L", nullptr), -2);
    EXPECT_EQ(DataFormat(szText, -1, "L", "V"), -2);
    EXPECT_EQ(DataFormat(szText, INT32_MIN, "L", "V"), -2);
    EXPECT_STREQ(szText, "#");
}

// ---- callbacks' switches ------------------------------------------------------------------------------------------

TEST(CallbackSwitches, AreAllOnAtLoad)
{
    EXPECT_EQ(s_callbacksAtLoad.nOpen, 1);
    EXPECT_EQ(s_callbacksAtLoad.nClose, 1);
    EXPECT_EQ(s_callbacksAtLoad.nPowerUp, 1);
    EXPECT_EQ(s_callbacksAtLoad.nPowerDown, 1);
    EXPECT_EQ(s_callbacksAtLoad.nCommRW, 1);
    EXPECT_EQ(sizeof(StCallBackFunc), 20U);
    EXPECT_EQ(offsetof(StCallBackFunc, nOpen), 0U);
    EXPECT_EQ(offsetof(StCallBackFunc, nClose), 4U);
    EXPECT_EQ(offsetof(StCallBackFunc, nPowerUp), 8U);
    EXPECT_EQ(offsetof(StCallBackFunc, nPowerDown), 12U);
    EXPECT_EQ(offsetof(StCallBackFunc, nCommRW), 16U);
}

TEST(CallbackSwitches, ThePowerUpTimeOutIsSetUnlessPowerUpIsOff)
{
    g_nPowerOnTimeout = 9;
    EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(30), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 30U);
    for (int32_t nOn : {2, -1}) {
        g_stCallBackFunc.nPowerUp = nOn;
        EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(31), 0);
        EXPECT_EQ(g_nPowerOnTimeout, 31U);
        g_nPowerOnTimeout = 9;
    }
    g_stCallBackFunc.nPowerUp = 0;
    EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(45), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 9U);
    // The other switches do not matter.
    g_stCallBackFunc = {0, 0, 1, 0, 0};
    EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(46), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 46U);
    g_stCallBackFunc = {1, 1, 1, 1, 1};
    EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(0), 0);
    EXPECT_EQ(g_nPowerOnTimeout, 0U);
}

} // namespace
