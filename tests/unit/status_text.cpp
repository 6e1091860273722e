// What a card's status words mean: the texts, in GBK, and the words that are told by another row's text.

#include "card_messages.h"
#include "gbk.h"
#include "harness.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace qvtest;

namespace {

const uint32_t s_nRegisterAtLoad = ICC_CardCmdGetErrCode();

std::string shown(uint32_t nCode)
{
    return fromGbk(ICC_CardCmdShowErrMsg(nCode));
}

TEST(StatusText, EveryWordOfTheTableHasItsText)
{
    EXPECT_EQ(cardMeanings().size(), 46U); // and the three of which only others' words are told
    for (const auto &[nCode, sText] : cardMeanings())
        EXPECT_EQ(shown(nCode), "ErrCode: " + hexDigits(nCode) + ": " + sText);
}

TEST(StatusText, TheWordsWithACountTakeTheTextOfSuccess)
{
    EXPECT_EQ(shown(0x63C2), "ErrCode: 0x63C2: 成功执行 还允许重试2");
    EXPECT_EQ(shown(0x63C0), "ErrCode: 0x63C0: 成功执行 还允许重试0");
    EXPECT_EQ(shown(0x63CF), "ErrCode: 0x63CF: 成功执行 还允许重试15");
    EXPECT_EQ(shown(0x6C1D), "ErrCode: 6C1D: 成功执行 29");
    EXPECT_EQ(shown(0x6C00), "ErrCode: 6C00: 成功执行 0");
    EXPECT_EQ(shown(0x6CFF), "ErrCode: 6CFF: 成功执行 255");
    EXPECT_EQ(shown(0x6100), "ErrCode: 6100: 成功执行 ");
    EXPECT_EQ(shown(0x61FF), "ErrCode: 61FF: 成功执行 ");
}

TEST(StatusText, TheirNeighboursDoNot)
{
    EXPECT_EQ(shown(0x63BF), "ErrCode: 63BF: 未知错误码！ ");
    EXPECT_EQ(shown(0x63D0), "ErrCode: 63D0: 未知错误码！ ");
    EXPECT_EQ(shown(0x6BFF), "ErrCode: 6BFF: 未知错误码！ ");
    EXPECT_EQ(shown(0x6D01), "ErrCode: 6D01: 未知错误码！ ");
    EXPECT_EQ(shown(0x60FF), "ErrCode: 60FF: 未知错误码！ ");
    EXPECT_EQ(shown(0x6201), "ErrCode: 6201: 未知错误码！ ");
}

TEST(StatusText, AnUnknownWordEndsInABlank)
{
    EXPECT_EQ(shown(0x1234), "ErrCode: 1234: 未知错误码！ ");
    EXPECT_EQ(shown(0), "ErrCode: 0: 未知错误码！ ");
    EXPECT_EQ(shown(0x19000), "ErrCode: 19000: 未知错误码！ ");
    EXPECT_EQ(shown(0x163C2), "ErrCode: 163C2: 未知错误码！ ");
    EXPECT_EQ(shown(0x16C1D), "ErrCode: 16C1D: 未知错误码！ ");
    EXPECT_EQ(shown(0x80006105), "ErrCode: 80006105: 未知错误码！ ");
    EXPECT_EQ(shown(0xFFFFFFFF), "ErrCode: FFFFFFFF: 未知错误码！ ");
}

TEST(StatusText, EveryWordHasOneOfTheseTexts)
{
    // Every word of the families in which rows stand, and every 13th of the others.
    for (uint32_t nCode = 0; nCode <= 0xFFFF;) {
        ASSERT_EQ(shown(nCode), cardMessage(nCode));
        const uint32_t nFamily = nCode >> 8;
        nCode += (nFamily >= 0x5F && nFamily <= 0x70) || (nFamily >= 0x8F && nFamily <= 0x94) || nFamily == 0xA9 ||
                         nFamily == 0xAA
                     ? 1
                     : 13;
    }
}

TEST(StatusText, TheTextIsGbk)
{
    EXPECT_EQ(hex(textBytes(ICC_CardCmdShowErrMsg(0x9000))),
              "45 72 72 43 6F 64 65 3A 20 39 30 30 30 3A 20 B3 C9 B9 A6 D6 B4 D0 D0");
}

TEST(StatusText, TheBufferIsOneAndClearedByEachCall)
{
    const char *pszBuffer = ICC_CardCmdShowErrMsg(0x6986);
    const size_t nLong = std::strlen(pszBuffer);
    EXPECT_EQ(ICC_CardCmdShowErrMsg(0x9301), pszBuffer);
    const size_t nShort = std::strlen(pszBuffer);
    ASSERT_LT(nShort, nLong);
    EXPECT_EQ(Bytes(pszBuffer + nShort, pszBuffer + 1024), Bytes(1024 - nShort));

    // What the host wrote behind the text goes as well.
    std::memset(const_cast<char *>(pszBuffer), 0x5A, 1024);
    EXPECT_EQ(ICC_CardCmdShowErrMsg(0x9301), pszBuffer);
    EXPECT_EQ(Bytes(pszBuffer + nShort, pszBuffer + 1024), Bytes(1024 - nShort));
    EXPECT_EQ(ICC_CardCmdShowLastErrMsg(), pszBuffer);
}

TEST(StatusText, TheLastStatusWordIsShown)
{
    EXPECT_EQ(s_nRegisterAtLoad, 0U);
    ICC_CardCmdSetErrCode(0x6A82);
    EXPECT_EQ(fromGbk(ICC_CardCmdShowLastErrMsg()), "ErrCode: 6A82: 该文件未找到");
    ICC_CardCmdSetErrCode(0xAAAA);
    EXPECT_EQ(fromGbk(ICC_CardCmdShowLastErrMsg()), "ErrCode: AAAA: 读IC卡失败");
    shown(0x9000);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    EXPECT_EQ(fromGbk(ICC_CardCmdShowLastErrMsg()), "ErrCode: AAAA: 读IC卡失败");
    ICC_CardCmdSetErrCode(0);
    EXPECT_EQ(fromGbk(ICC_CardCmdShowLastErrMsg()), "ErrCode: 0: 未知错误码！ ");
}

} // namespace
