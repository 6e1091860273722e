// The result codes of the stripe side: the TY codes and their messages, and the standard codes.

#include "gbk.h"
#include "harness.h"

#include "qvreader/msr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

using namespace qvtest;

namespace {

constexpr size_t nRoom = 128;
constexpr char cFree = '\x05';

const std::map<int32_t, std::string> s_messages = {{0, "操作成功"},
                                                   {-1, "打开设备失败"},
                                                   {-3, "接收数据失败----与设备通讯失败"},
                                                   {-2, "发送指令失败----与设备通讯失败"},
                                                   {-4, "接收到的报文格式错误"},
                                                   {-5, "读卡操作失败"},
                                                   {-6, "写卡操作失败"},
                                                   {-7, "用户取消"},
                                                   {-8, "超时"},
                                                   {-9, "参数异常"},
                                                   {-100, "其他错误"}};
constexpr const char *pszUnknown = "未知错误";

// What a call wrote into a buffer that held something else: the bytes up to the last one that changed.
std::string written(int32_t (*get)(int32_t, char *), int32_t nCode, int32_t nExpected = 0)
{
    std::string sBuf(nRoom + 16, cFree);
    EXPECT_EQ(get(nCode, sBuf.data()), nExpected);
    return sBuf.substr(0, sBuf.find_last_not_of(cFree) + 1);
}

int32_t (*const s_getters[])(int32_t, char *) = {TY_MsgGetErrMessage, QV_MsgGetErrCodeMessage};

TEST(StripeMessages, EveryCodeHasItsMessageWithoutANulBehind)
{
    for (auto get : s_getters)
        for (const auto &[nCode, sMessage] : s_messages) {
            SCOPED_TRACE(nCode);
            const std::string sBytes = written(get, nCode);
            EXPECT_EQ(sBytes.find('\0'), std::string::npos);
            EXPECT_EQ(fromGbk(sBytes), sMessage);
        }
}

TEST(StripeMessages, AnyOtherCodeIsUnknownAndEndsInANul)
{
    for (auto get : s_getters) {
        for (int32_t nCode = -260; nCode <= 260; ++nCode) {
            if (s_messages.contains(nCode))
                continue;
            const std::string sBytes = written(get, nCode);
            ASSERT_FALSE(sBytes.empty());
            EXPECT_EQ(sBytes.find('\0'), sBytes.size() - 1) << nCode;
            EXPECT_EQ(fromGbk(sBytes.substr(0, sBytes.size() - 1)), pszUnknown) << nCode;
        }
        for (int32_t nCode : {INT32_MIN, INT32_MAX, 0x10000, 256, -256, 0x4001})
            EXPECT_EQ(fromGbk(written(get, nCode)).substr(0, std::strlen(pszUnknown)), pszUnknown) << nCode;
    }
}

TEST(StripeMessages, AMessageInAZeroedBufferIsAText)
{
    char szMessage[nRoom] = {};
    EXPECT_EQ(TY_MsgGetErrMessage(-8, szMessage), 0);
    EXPECT_EQ(hex(szMessage, std::strlen(szMessage)), "B3 AC CA B1");
    std::memset(szMessage, 0, sizeof szMessage);
    EXPECT_EQ(QV_MsgGetErrCodeMessage(-10, szMessage), 0);
    EXPECT_EQ(hex(szMessage, std::strlen(szMessage)), "CE B4 D6 AA B4 ED CE F3");
}

TEST(StripeMessages, WithoutABufferThereIsNoMessage)
{
    for (int32_t nCode : {0, -1, -10, -100, 77}) {
        EXPECT_EQ(TY_MsgGetErrMessage(nCode, nullptr), -2);
        EXPECT_EQ(QV_MsgGetErrCodeMessage(nCode, nullptr), -2);
    }
}

// ---- codes ----------------------------------------------------------------------------------------------------------

void expectCodes(int32_t (*convert)(int32_t), const std::map<int32_t, int32_t> &rows, int32_t nOther,
                 bool bPositiveStays)
{
    auto expected = [&](int32_t nCode) {
        if (auto at = rows.find(nCode); at != rows.end())
            return at->second;
        return nCode > 0 && bPositiveStays ? nCode : nOther;
    };
    for (int32_t nCode = -1100; nCode <= 1100; ++nCode)
        EXPECT_EQ(convert(nCode), expected(nCode)) << nCode;
    for (int32_t nCode : {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, 0x4001, 0x10000, -0x10000, -65592})
        EXPECT_EQ(convert(nCode), expected(nCode)) << nCode;
}

TEST(StripeCodes, TheEnginesCodesAsTyCodes)
{
    expectCodes(TY_Msg_ConvertErr,
                {{0, 0},
                 {-50, -1},
                 {-55, -3},
                 {-54, -2},
                 {-4, -4},
                 {-5, -5},
                 {-6, -6},
                 {-57, -7},
                 {-56, -8},
                 {-9, -10},
                 {-2, -9},
                 {-100, -100}},
                -100, true);
}

TEST(StripeCodes, TheEnginesCodesAsStandardCodes)
{
    expectCodes(GetStandardErrorCode_MAG, {{0, 0}, {-1, -3}, {-2, -10}, {-3, -11}, {-4, -6}, {-7, -23}, {-8, -2}}, -99,
                false);
}

} // namespace
