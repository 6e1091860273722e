// The tool's words about a card's applications: BER-TLV trees, amounts, character sets, purse codes and records.
#include "amounts.h"
#include "card_command_names.h"
#include "charset.h"
#include "purse_codes.h"
#include "purse_log.h"
#include "tlv_names.h"
#include "tlv_text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using qvtool::Bytes;

Bytes bytes(std::string_view sHex)
{
    return qvtool::parseHex(sHex).value();
}

template <size_t nSize> std::array<uint8_t, nSize> block(std::string_view sHex)
{
    std::array<uint8_t, nSize> out{};
    std::ranges::copy(bytes(sHex), out.begin());
    return out;
}

// The lines and, behind them, the fault.
std::string treeOf(std::string_view sHex)
{
    const qvtool::TlvTree tree = qvtool::parseTlv(bytes(sHex));
    return qvtool::tlvLines(tree) + (tree.nFault ? qvtool::tlvFaultText(tree) : "");
}

TEST(TlvTree, TemplatesAreIndentedAndTagsAreNamed)
{
    EXPECT_EQ(treeOf("6F1E 840E315041592E5359532E4444463031 A50C 880101 5F2D027A68 9F110101"),
              "6F [30] File Control Information (FCI) Template\n"
              "  84 [14] Dedicated File (DF) Name: 315041592E5359532E4444463031 \"1PAY.SYS.DDF01\"\n"
              "  A5 [12] FCI Proprietary Template\n"
              "    88 [1] Short File Identifier (SFI): 01\n"
              "    5F2D [2] Language Preference: 7A68 \"zh\"\n"
              "    9F11 [1] Issuer Code Table Index: 01\n");
}

TEST(TlvTree, EveryFormOfLengthIsRead)
{
    for (const char *pszLength : {"03", "8103", "820003", "83000003", "8400000003"})
        EXPECT_EQ(treeOf(std::string("5A") + pszLength + "622500"),
                  "5A [3] Application Primary Account Number (PAN): 622500\n")
            << pszLength;
    const qvtool::TlvTree tree = qvtool::parseTlv(bytes("90 8180" + std::string(256, 'A')));
    ASSERT_EQ(tree.items.size(), 1U);
    EXPECT_EQ(tree.items[0].value, Bytes(128, 0xAA));
    EXPECT_FALSE(tree.nFault);
}

TEST(TlvTree, TagsOfThreeBytesAndUnknownOnesAreShown)
{
    EXPECT_EQ(treeOf("DF8129020102 C100"), "DF8129 [2] unknown tag: 0102\nC1 [0] unknown tag\n");
}

TEST(TlvTree, TagsWithinFileControlParametersHaveTheirOwnNames)
{
    EXPECT_EQ(treeOf("62 03 8A0105 8A023030"), "62 [3] File Control Parameters (FCP) Template\n"
                                               "  8A [1] Life Cycle Status: 05\n"
                                               "8A [2] Authorisation Response Code: 3030 \"00\"\n");
}

TEST(TlvTree, FillerIsToldAndDoesNotCount)
{
    EXPECT_EQ(treeOf("0000 880101 00 880102 FFFFFF"), "(2 bytes of filler)\n"
                                                      "88 [1] Short File Identifier (SFI): 01\n"
                                                      "(1 byte of filler)\n"
                                                      "88 [1] Short File Identifier (SFI): 02\n"
                                                      "(3 bytes of filler)\n");
    EXPECT_EQ(treeOf("FF0103880101"), "FF01 [3] unknown tag\n  88 [1] Short File Identifier (SFI): 01\n")
        << "a tag may begin with FF where other bytes follow";
}

TEST(TlvTree, WhatStandsBeforeAFaultIsShown)
{
    struct Row {
        const char *pszHex;
        const char *pszTold;
    };
    const Row rows[] = {
        {"", ""},
        {"880101 5F", "88 [1] Short File Identifier (SFI): 01\nmalformed at offset 3: the tag is cut off"},
        {"880101 9F02", "88 [1] Short File Identifier (SFI): 01\nmalformed at offset 5: the length is missing"},
        {"5A 80 0000", "malformed at offset 1: a length cannot begin with 80"},
        {"5A 85 0000000001 AA", "malformed at offset 1: a length cannot begin with 85"},
        {"5A 82 01", "malformed at offset 1: the length is cut off"},
        {"5A 03 6225", "malformed at offset 1: the length of 5A is 3, but 2 bytes are left"},
        {"5A 02 62", "malformed at offset 1: the length of 5A is 2, but 1 byte is left"},
        {"5A 84 FFFFFFFF 62", "malformed at offset 1: the length of 5A is 4294967295, but 1 byte is left"},
        {"DF81818101 01 AA", "malformed at offset 0: a tag of more than three bytes"},
        {"70 10 880101 5A0462", "70 [16] READ RECORD Response Template\n  88 [1] Short File Identifier (SFI): 01\n"
                                "malformed at offset 1: the length of 70 is 16, but 6 bytes are left"},
        {"70 05 880101 5A04 62250000", "70 [5] READ RECORD Response Template\n"
                                       "  88 [1] Short File Identifier (SFI): 01\n"
                                       "malformed at offset 6: the length of 5A is 4, but 0 bytes are left"},
    };
    for (const Row &row : rows)
        EXPECT_EQ(treeOf(row.pszHex), row.pszTold) << row.pszHex;
}

TEST(TlvTree, DeepNestingEndsInAFaultAndNotInACrash)
{
    Bytes data;
    for (int n = 0; n < 40; ++n)
        data.insert(data.begin(), {0x70, static_cast<uint8_t>(data.size())});
    const qvtool::TlvTree tree = qvtool::parseTlv(data);
    EXPECT_EQ(tree.nFault, 64U);
    EXPECT_EQ(tree.sFault, "templates inside each other more than 32 times");
}

TEST(TlvTree, TextIsShownWhereItIsPrintable)
{
    EXPECT_EQ(treeOf("5F2004D6D0B9FA"), "5F20 [4] Cardholder Name: D6D0B9FA \"中国\"\n");
    EXPECT_EQ(treeOf("5003411B5B"), "50 [3] Application Label: 411B5B\n") << "control characters stay in hexadecimal";
    EXPECT_EQ(treeOf("500241FF"), "50 [2] Application Label: 41FF\n") << "no GBK";
    EXPECT_EQ(treeOf("8408A000000333010101"), "84 [8] Dedicated File (DF) Name: A000000333010101\n");
}

TEST(TagNames, TheCommonTagsOfPaymentCardsAreKnown)
{
    for (const char *pszTag :
         {"4F",   "50",   "57",   "5A",   "5F20", "5F24", "5F25", "5F28", "5F2D", "5F30", "5F34", "61",
          "6F",   "70",   "71",   "72",   "73",   "77",   "80",   "81",   "82",   "83",   "84",   "87",
          "88",   "8A",   "8C",   "8D",   "8E",   "8F",   "90",   "91",   "92",   "93",   "94",   "95",
          "97",   "98",   "99",   "9A",   "9B",   "9C",   "9D",   "9F01", "9F02", "9F03", "9F06", "9F07",
          "9F08", "9F0D", "9F10", "9F1A", "9F26", "9F27", "9F33", "9F34", "9F36", "9F37", "9F38", "9F46",
          "9F4B", "9F4D", "9F66", "9F79", "A5",   "BF0C", "DF31"})
        EXPECT_NE(qvtool::tagName(bytes(pszTag), {}).pszName, nullptr) << pszTag;
    EXPECT_EQ(qvtool::tagName(bytes("9FFF01"), {}).pszName, nullptr);
}

TEST(Amounts, AreReadInUnitsWithUpToTwoDecimals)
{
    struct Row {
        const char *pszText;
        uint32_t nCents;
    };
    const Row rows[] = {{"12.50", 1250}, {"12.5", 1250},       {"12", 1200}, {"0.01", 1},
                        {"007", 700},    {"42949672.95", ~0U}, {"0", 0},     {"0.10", 10}};
    for (const Row &row : rows)
        EXPECT_EQ(qvtool::parseAmount(row.pszText), row.nCents) << row.pszText;
    for (const char *pszText : {"", ".", "12.", ".50", "12.505", "12,50", "-1", "+1", " 1", "1 ", "1.5x", "0x10",
                                "42949672.96", "42949673", "99999999999999999999", "1.2.3"})
        EXPECT_EQ(qvtool::parseAmount(pszText), std::nullopt) << pszText;
}

TEST(Amounts, AreShownWithTwoDecimals)
{
    EXPECT_EQ(qvtool::amountText(0), "0.00");
    EXPECT_EQ(qvtool::amountText(5), "0.05");
    EXPECT_EQ(qvtool::amountText(1250), "12.50");
    EXPECT_EQ(qvtool::amountText(~0U), "42949672.95");
}

TEST(Charsets, WhatATerminalCannotShowBecomesAQuestionMark)
{
    EXPECT_EQ(qvtool::inCharset("6A82: 该文件未找到", "GBK"), "6A82: \xB8\xC3\xCE\xC4\xBC\xFE\xCE\xB4\xD5\xD2\xB5\xBD");
    EXPECT_EQ(qvtool::inCharset("é: 该文件 x", "ISO-8859-1"), "\xE9: ??? x");
    EXPECT_EQ(qvtool::inCharset("该文件", "US-ASCII"), "???");
    EXPECT_EQ(qvtool::inCharset("a\xFF\xE8z", "GBK"), "a??z") << "malformed text";
    EXPECT_EQ(qvtool::inCharset("该", "no-such-charset"), "该");
    const std::string sLong(5000, 'x');
    EXPECT_EQ(qvtool::inCharset(sLong + "该", "GBK"), sLong + "\xB8\xC3");
}

TEST(Charsets, TextsOfTheLibraryBecomeUtf8)
{
    EXPECT_EQ(qvtool::utf8OfGbk("MAC\xB2\xBB\xD5\xFD\xC8\xB7"), "MAC不正确");
    EXPECT_EQ(qvtool::utf8OfGbk("\xB2"), std::nullopt) << "half a character";
}

TEST(Charsets, TheLocaleCMeansUtf8)
{
    for (const char *pszLocale : {"C", "POSIX", "C.UTF-8", "xx_YY.no-such-locale"}) {
        setenv("LC_ALL", pszLocale, 1);
        EXPECT_EQ(qvtool::terminalCharset(), "UTF-8") << pszLocale;
    }
    unsetenv("LC_ALL");
}

// Computed with another implementation of the cipher.
TEST(PurseCodes, KnownAnswers)
{
    const auto session =
        qvtool::sessionKey(block<16>("4C4F41442D4B45593A64656D6F2D3031"), block<8>("1122334400078000"));
    EXPECT_EQ(qvtool::hexText(session), "DFABB7300416D0D7");
    EXPECT_EQ(qvtool::hexText(qvtool::macOf(session, bytes("000013880000006402000000000001"))), "E13F6D5D");
    EXPECT_EQ(qvtool::hexText(qvtool::macOf(session, {})), "692B8B6B");
    EXPECT_EQ(qvtool::hexText(qvtool::macOf(session, bytes("00010203040506"))), "36FA72B5");
    EXPECT_EQ(qvtool::hexText(qvtool::macOf(session, bytes("0001020304050607"))), "D59456CA");
    const auto tac = qvtool::tacKey(block<16>("5441432D4B45592E3A64656D6F2D3034"));
    EXPECT_EQ(qvtool::hexText(tac), "6E2526402468691A");
    EXPECT_EQ(qvtool::hexText(qvtool::macOf(tac, bytes("00000064"))), "A6D2A00E");
}

TEST(PurseLog, RecordsMakeATable)
{
    const auto load = qvtool::purseRecord(1, bytes("0003 000000 000004E2 02 000000000001 20261121 215005"));
    const auto other = qvtool::purseRecord(2, bytes("FFFF 0186A0 FFFFFFFF 0A 000000002026 20261121 235959"));
    ASSERT_TRUE(load && other);
    EXPECT_EQ(qvtool::purseTable({*load, *other}),
              "no  counter  transaction              amount  overdraft  terminal      date        time\n"
              " 1        3  purse load                12.50       0.00  000000000001  2026-11-21  21:50:05\n"
              " 2    65535  type 0A             42949672.95    1000.00  000000002026  2026-11-21  23:59:59\n");
}

TEST(PurseLog, WhatIsNoRecordIsNone)
{
    EXPECT_FALSE(qvtool::purseRecord(1, Bytes(22, 0x01)));
    EXPECT_FALSE(qvtool::purseRecord(1, Bytes(23, 0xFF)));
    EXPECT_FALSE(qvtool::purseRecord(1, Bytes(23, 0x00)));
    EXPECT_FALSE(qvtool::purseRecord(1, {}));
}

TEST(CardCommandNames, TellWhatACommandIs)
{
    EXPECT_STREQ(qvtool::cardCommandName(bytes("805000020B")), "INITIALIZE FOR LOAD");
    EXPECT_STREQ(qvtool::cardCommandName(bytes("80500102")), "INITIALIZE FOR PURCHASE");
    EXPECT_STREQ(qvtool::cardCommandName(bytes("8052000000")), "CREDIT FOR LOAD");
    EXPECT_STREQ(qvtool::cardCommandName(bytes("8070000000")), "INIT SAM FOR PURCHASE");
    EXPECT_STREQ(qvtool::cardCommandName(bytes("00A4040000")), "SELECT");
    EXPECT_EQ(qvtool::cardCommandName(bytes("805007020B")), nullptr);
    EXPECT_EQ(qvtool::cardCommandName(bytes("00A404")), nullptr);
}

} // namespace
