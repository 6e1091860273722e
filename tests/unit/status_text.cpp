// What a card's status words mean: the texts, in GBK, and the words that are told by another row's text.

#include "harness.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iconv.h>
#include <map>
#include <stdexcept>
#include <string>

using namespace qvtest;

namespace {

const std::map<uint32_t, std::string> s_texts = {{0x9000, "成功执行"},
                                                 {0x6200, "信息未提供"},
                                                 {0x6281, "回送信息可能出错"},
                                                 {0x6282, "文件长度小于Le"},
                                                 {0x6283, "选中的文件无效"},
                                                 {0x6284, "FCI格式与P2指定的不符"},
                                                 {0x6300, "鉴别失败"},
                                                 {0x6400, "状态标志位没有变"},
                                                 {0x6581, "内存失败"},
                                                 {0x6700, "长度错误"},
                                                 {0x6882, "不支持安全报文"},
                                                 {0x6981, "命令与文件结构不相容，当前文件非所需文件"},
                                                 {0x6982, "操作条件（AC）不满足，没有校验PIN"},
                                                 {0x6983, "认证方法锁定，PIN被锁定"},
                                                 {0x6984, "随机数无效，引用的数据无效"},
                                                 {0x6985, "使用条件不满足"},
                                                 {0x6986, "不满足命令执行条件（不允许的命令，INS有错）"},
                                                 {0x6987, "MAC丢失"},
                                                 {0x6988, "MAC不正确"},
                                                 {0x698D, "保留"},
                                                 {0x6A80, "数据域参数不正确"},
                                                 {0x6A81, "功能不支持；创建不允许；目录无效；应用锁定"},
                                                 {0x6A82, "该文件未找到"},
                                                 {0x6A83, "该记录未找到"},
                                                 {0x6A84, "文件预留空间不足"},
                                                 {0x6A86, "P1或P2不正确"},
                                                 {0x6A88, "引用数据未找到"},
                                                 {0x6B00, "参数错误（偏移地址超出了EF）"},
                                                 {0x6E00, "不支持的类：CLA有错"},
                                                 {0x6F00, "数据无效"},
                                                 {0x6D00, "不支持的指令代码"},
                                                 {0x9301, "资金不足"},
                                                 {0x9302, "MAC无效"},
                                                 {0x9303, "应用被永久锁定"},
                                                 {0x9401, "交易资金不足"},
                                                 {0x9402, "交易计数器达到最大值"},
                                                 {0x9403, "密钥索引不支持"},
                                                 {0x9406, "所需MAC不可用"},
                                                 {0x6900, "不能处理"},
                                                 {0x6901, "命令不接受（无效状态）"},
                                                 {0x6600, "接收通讯超时"},
                                                 {0x6601, "接收字符奇偶错"},
                                                 {0x6602, "校验和不对"},
                                                 {0x6603, "当前DF文件无FCI"},
                                                 {0x6604, "当前DF文件无SF或KF"},
                                                 {0xAAAA, "读IC卡失败"}};
const std::string s_sUnknown = "未知错误码！";
const uint32_t s_nRegisterAtLoad = ICC_CardCmdGetErrCode();

std::string fromGbk(std::string sText)
{
    static const iconv_t s_converter = iconv_open("UTF-8", "GBK");
    if (s_converter == reinterpret_cast<iconv_t>(-1))
        throw std::runtime_error("iconv does not know GBK");
    std::string sOut(4 * sText.size() + 4, '\0');
    char *pIn = sText.data(), *pOut = sOut.data();
    size_t nIn = sText.size(), nOut = sOut.size();
    iconv(s_converter, nullptr, nullptr, nullptr, nullptr);
    if (iconv(s_converter, &pIn, &nIn, &pOut, &nOut) == static_cast<size_t>(-1))
        return "not GBK: " + hex(sText.data(), sText.size());
    sOut.resize(sOut.size() - nOut);
    return sOut;
}

std::string digits(uint32_t nCode)
{
    char sz[16];
    snprintf(sz, sizeof sz, "%X", nCode);
    return sz;
}

std::string shown(uint32_t nCode)
{
    return fromGbk(ICC_CardCmdShowErrMsg(nCode));
}

// The text of every word that a table of cases does not single out.
std::string expected(uint32_t nCode)
{
    const std::string sSuccess = s_texts.at(0x9000);
    if (nCode >= 0x63C0 && nCode <= 0x63CF)
        return "ErrCode: 0x" + digits(nCode) + ": " + sSuccess + " 还允许重试" + std::to_string(nCode & 15);
    if ((nCode & 0xFFFFFF00) == 0x6C00)
        return "ErrCode: " + digits(nCode) + ": " + sSuccess + " " + std::to_string(nCode & 255);
    if ((nCode & 0xFFFFFF00) == 0x6100)
        return "ErrCode: " + digits(nCode) + ": " + sSuccess + " ";
    auto row = s_texts.find(nCode);
    if (row == s_texts.end())
        return "ErrCode: " + digits(nCode) + ": " + s_sUnknown + " ";
    return "ErrCode: " + digits(nCode) + ": " + row->second;
}

TEST(StatusText, EveryWordOfTheTableHasItsText)
{
    EXPECT_EQ(s_texts.size(), 46U); // and the three of which only others' words are told
    for (const auto &[nCode, sText] : s_texts)
        EXPECT_EQ(shown(nCode), "ErrCode: " + digits(nCode) + ": " + sText);
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
    for (uint32_t nCode = 0; nCode <= 0xFFFF; ++nCode)
        ASSERT_EQ(shown(nCode), expected(nCode));
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
