// Trimming, searching, splitting and the tag-in-text lookup, with the log lines that they promise.

#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cctype>
#include <climits>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

using namespace qvtest;
using namespace std::string_literals;

namespace {

constexpr char cFree = '\x15'; // what an output byte holds that was not written

using Texts = std::vector<std::string>;

class Text : public testing::Test {
  protected:
    void SetUp() override { m_nDescriptors = openDescriptors(); }
    void TearDown() override
    {
        logOff();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }

    int m_nDescriptors = 0;
};

std::string untouched(size_t nLen)
{
    return std::string(nLen, cFree);
}

// ---- searching and cutting -------------------------------------------------------------------------------------------

TEST_F(Text, FindSignGivesTheFirstPosition)
{
    const Bytes data = bytes("02 30 03 30 03 00 FF");
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0x02), data.data());
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0x30), data.data() + 1);
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0x03), data.data() + 2);
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0x00), data.data() + 5);
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0xFF), data.data() + 6);
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 6, 0xFF), nullptr) << "behind the length";
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 7, 0x55), nullptr);
    EXPECT_EQ(Str_localFindMsgSign(data.data(), 0, 0x02), nullptr);
    EXPECT_EQ(Str_localFindMsgSign(nullptr, 7, 0x02), nullptr);
    EXPECT_EQ(Str_localFindMsgSign(nullptr, 0, 0x02), nullptr);
}

TEST_F(Text, DeleteCharCutsTheRunAtTheEndAlone)
{
    struct {
        std::string sText;
        char c;
        int32_t nExpected;
    } const aRows[] = {
        {"AB  ", ' ', 2}, {"AB", ' ', 2},      {"A B ", ' ', 3},   {" A", ' ', 2},           {"    ", ' ', 0},
        {" ", ' ', 0},    {"A\0\0"s, '\0', 1}, {"\0\0"s, '\0', 0}, {"A\xFF\xFF", '\xFF', 1}, {"AAB", 'A', 3},
    };
    for (const auto &row : aRows) {
        const Bytes data = textBytes(row.sText);
        EXPECT_EQ(Str_GetDataDeleteChar(data.data(), int32_t(data.size()), static_cast<uint8_t>(row.c)), row.nExpected)
            << row.sText;
    }
    const uint8_t uc = 'A';
    EXPECT_EQ(Str_GetDataDeleteChar(&uc, 0, 'A'), 0);
    EXPECT_EQ(Str_GetDataDeleteChar(&uc, -1, 'A'), 0);
    EXPECT_EQ(Str_GetDataDeleteChar(&uc, INT_MIN, 'A'), 0);
    EXPECT_EQ(Str_GetDataDeleteChar(nullptr, 4, ' '), -1);
}

TEST_F(Text, StrsTrimRemovesBlankTabLineFeedAndCarriageReturnEverywhere)
{
    struct {
        const char *pszIn;
        const char *pszOut;
    } const aRows[] = {{"", ""},         {"abc", "abc"},         {" a b\tc\r\nd ", "abcd"},        {" \t\r\n", ""},
                       {"a    b", "ab"}, {"a\vb\fc", "a\vb\fc"}, {"\xA0\x85 \xFF", "\xA0\x85\xFF"}};
    for (const auto &row : aRows) {
        std::string sText = row.pszIn;
        EXPECT_EQ(Str_strsTrim(sText.data()), sText.data());
        EXPECT_STREQ(sText.c_str(), row.pszOut);
    }
    for (int c = 1; c < 256; ++c) {
        char szText[] = {'x', static_cast<char>(c), 'y', '\0'};
        Str_strsTrim(szText);
        const bool bGone = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        EXPECT_EQ(std::strlen(szText), bGone ? 2U : 3U) << c;
    }
    EXPECT_EQ(Str_strsTrim(nullptr), nullptr);
}

TEST_F(Text, StrsTrimDoesNotWriteToATextWithNothingToRemove)
{
    // The text stands in a page that must not be written to.
    const size_t nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void *pPage = mmap(nullptr, nPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pPage, MAP_FAILED);
    char *pszText = static_cast<char *>(pPage);
    std::memcpy(pszText, "/dev/ttyS0", sizeof "/dev/ttyS0");
    ASSERT_EQ(mprotect(pPage, nPage, PROT_READ), 0);
    EXPECT_EQ(Str_strsTrim(pszText), pszText);
    EXPECT_STREQ(pszText, "/dev/ttyS0");
    munmap(pPage, nPage);
}

TEST_F(Text, StrimTrimsWhiteSpaceAtBothEnds)
{
    struct {
        const char *pszIn;
        size_t nStart;
        const char *pszOut;
    } const aRows[] = {
        {"abc", 0, "abc"},   {" abc", 1, "abc"}, {"abc ", 0, "abc"}, {" \t\n\v\f\rabc\r\f\v\n\t ", 6, "abc"},
        {" a b ", 1, "a b"}, {"x", 0, "x"},      {" x", 1, "x"},     {"x ", 0, "x"}};
    for (const auto &row : aRows) {
        std::string sText = row.pszIn;
        char *psz = strim(sText.data());
        EXPECT_EQ(psz, sText.data() + row.nStart) << row.pszIn;
        EXPECT_STREQ(psz, row.pszOut);
    }
    EXPECT_EQ(strim(nullptr), nullptr);
}

TEST_F(Text, StrimOfWhiteSpaceOrNothingBecomesEmptyAndStaysInsideTheText)
{
    for (const char *pszIn : {" ", "   ", "\t\r\n", ""}) {
        // a blank on each side of the text must stay
        std::string sText = " "s + pszIn + '\0' + " ";
        const size_t nLen = std::strlen(pszIn);
        char *psz = strim(sText.data() + 1);
        ASSERT_GE(psz, sText.data() + 1);
        ASSERT_LE(psz, sText.data() + 1 + nLen);
        EXPECT_STREQ(psz, "");
        EXPECT_EQ(sText.front(), ' ');
        EXPECT_EQ(sText.back(), ' ');
    }
}

TEST_F(Text, StrimKeepsBytesAbove0x7F)
{
    for (int c = 0x80; c < 0x100; ++c) {
        char szText[] = {static_cast<char>(c), 'x', static_cast<char>(c), '\0'};
        EXPECT_EQ(strim(szText), szText) << c;
        EXPECT_EQ(std::strlen(szText), 3U) << c;
    }
}

// ---- splitting at a separator --------------------------------------------------------------------------------------------

struct SplitRow {
    const char *pszText;
    const char *pszSplit;
    int32_t nResult;
    const char *pszOut;
};

TEST_F(Text, SplitDataIsThePartBeforeTheFirstSeparator)
{
    const SplitRow aRows[] = {
        {"abc|def", "|", 0, "abc"}, {"abc|def|g", "|", 0, "abc"}, {"|abc", "|", 0, ""},
        {"abc|", "|", 0, "abc"},    {"abc", "|", -2, ""},         {"", "|", -2, ""},
        {"a--b", "--", 0, "a"},     {"a-b--c", "--", 0, "a-b"},   {"a-b", "--", -2, ""},
        {"abc", "abc", 0, ""},      {"abc", "abcd", -2, ""},      {"abc", "", 0, ""},
    };
    for (const SplitRow &row : aRows) {
        std::string sOut = untouched(16);
        EXPECT_EQ(Str_GetSplitData(row.pszText, row.pszSplit, sOut.data()), row.nResult) << row.pszText;
        EXPECT_EQ(sOut, row.pszOut + untouched(16 - std::strlen(row.pszOut))) << row.pszText;
    }
}

TEST_F(Text, SplitDataRefusesNull)
{
    std::string sOut = untouched(8);
    logOn();
    EXPECT_EQ(Str_GetSplitData(nullptr, "|", sOut.data()), -2);
    EXPECT_EQ(Str_GetSplitData("a|b", nullptr, sOut.data()), -2);
    EXPECT_EQ(Str_GetSplitData("a|b", "|", nullptr), -2);
    EXPECT_EQ(sOut, untouched(8));
}

TEST_F(Text, SplitDataLogsInputAndOutput)
{
    logOn();
    std::string sOut(16, 'z'); // the output has no NUL of its own
    EXPECT_EQ(Str_GetSplitData("abc|def", "|", sOut.data()), 0);
    EXPECT_EQ(logTexts(), (Texts{"[Str_GetSplitData] Start szInPut = abc|def sPlit = | ", "OutBuf = abc nLen = 3"}));
    EXPECT_NE(rawLog().find("INFO:    Public:  [Str_GetSplitData] Start"), std::string::npos);
    EXPECT_NE(rawLog().find("INFO:    Public:  OutBuf = abc nLen = 3\r\n"), std::string::npos);

    logOn();
    EXPECT_EQ(Str_GetSplitData("abc", "|", sOut.data()), -2);
    EXPECT_EQ(logTexts().at(0), "[Str_GetSplitData] Start szInPut = abc sPlit = | ");
    EXPECT_EQ(rawLog().find("OutBuf"), std::string::npos);
}

TEST_F(Text, SplitDataOfAHugeTextIsCopiedWholeWhileTheLogIsCut)
{
    logOn();
    const std::string sPart(20000, 'p');
    std::string sOut = untouched(20010);
    EXPECT_EQ(Str_GetSplitData((sPart + "|rest").c_str(), "|", sOut.data()), 0);
    EXPECT_EQ(sOut, sPart + untouched(10));
    for (const std::string &sText : logTexts())
        EXPECT_LE(sText.size(), 4095U);
}

// ---- tag in tagged text ----------------------------------------------------------------------------------------------------

struct FindRow {
    const char *pszTag;
    std::string sText;
    long nAt; // -1: not found
};

TEST_F(Text, FindTagWalksItemByItem)
{
    const std::string s128(128, 'v');
    const std::string s129(129, 'v');
    const FindRow aRows[] = {
        {"A", "A003abc", 0},
        {"B", "A003abcB002xy", 7},
        {"C", "A003abcB002xy", -1},
        {"A", "", -1},
        {"B", "A003BBBB001x", 7},    // not inside a value
        {"B", "A005B001xB002yz", 9}, // not even a whole item inside a value
        {"B", "12 A001xB001y", 8},   // characters that are no letter are stepped over
        {"B", "123", -1},            //
        {"1", "A001x1", 5},          // a tag need not be a letter
        {"1", "A0011", -1},          // that 1 is the value
        {"0", "A0011", -1},          // and that 0 the length
        {"b", "b001x", 0},           // lower case
        {"b", "z001xb", 5},          //
        {"a", "A001xa001y", 5},      // case counts
        {"B", "B", 0},               // a tag at the end is found without its length
        {"B", "A001xB", 5},          //
        {"AB", "AB01x", 0},          // more than one character
        {"B001", "A001xB001y", 5},   //
        {"B002", "A001xB001y", -1},  //
        {"ABCDEFGHIJ", "ABC", -1},   // longer than the text
        {"B", "A000B001x", 4},       // an empty value
        {"B", "A000", -1},           // fewer than 4 characters behind the letter
        {"B", "A00", -1},            //
        {"B", "A", -1},              //
        {"B", "A001B", -1},          // the value of the last item
        {"B", "A001xB", 5},          //
        {"B", "A002B", -1},          // longer than what is left
        {"B", "A002BB", -1},         // exactly what is left, counted from behind the digits
        {"B", "A005xB001", -1},      // the B is inside the value
        {"B", "A006xB001y", -1},     //
        {"B", "A128" + s128 + "B001x", 132},
        {"B", "A129" + s129 + "B001x", -1},
        {"B", "A127" + s128.substr(1) + "B001x", 131},
        {"A", "A129" + s129, 0}, // it is found before it is skipped
        {"A", "A999", 0},        //
    };
    for (const FindRow &row : aRows) {
        const Bytes text = textBytes(row.sText + '\0'); // exactly that long on the heap
        const char *pszText = reinterpret_cast<const char *>(text.data());
        const char *pszFound = Str_FindTagApp(row.pszTag, int32_t(std::strlen(row.pszTag)), pszText, 0);
        EXPECT_EQ(pszFound == nullptr ? -1 : pszFound - pszText, row.nAt) << row.pszTag << " in " << row.sText;
    }
}

TEST_F(Text, FindTagComparesTheGivenNumberOfCharacters)
{
    const char szText[] = "A001xBC01y";
    EXPECT_EQ(Str_FindTagApp("BX", 1, szText, 0), szText + 5);
    EXPECT_EQ(Str_FindTagApp("BX", 2, szText, 0), nullptr);
    EXPECT_EQ(Str_FindTagApp("BC", 2, szText, 0), szText + 5);
}

TEST_F(Text, FindTagDoesNotMatchATagThatGoesOnBehindTheText)
{
    // On the heap, so that a read behind the text is seen by the sanitizer.
    const std::vector<char> text{'A', '\0'};
    EXPECT_EQ(Str_FindTagApp("A\0\0\0\0\0\0", 8, text.data(), 1), nullptr);
    EXPECT_EQ(Str_FindTagApp("A", 2, text.data(), 1), nullptr);
    char out = cFree;
    uint32_t nOut = 77;
    EXPECT_EQ(Str_GetTagValueApp("A\0\0\0\0\0\0", 8, text.data(), 1, &out, &nOut), -1);
    EXPECT_EQ(out, cFree);
    EXPECT_EQ(nOut, 77U);
}

TEST_F(Text, FindTagIgnoresTheTextLength)
{
    const char szText[] = "A001xB001y";
    for (int32_t nLen : {0, 1, -1, 10, 1000, INT_MAX, INT_MIN})
        EXPECT_EQ(Str_FindTagApp("B", 1, szText, nLen), szText + 5) << nLen;
}

TEST_F(Text, FindTagRefusesNull)
{
    EXPECT_EQ(Str_FindTagApp("A", 1, nullptr, 0), nullptr);
    EXPECT_EQ(Str_FindTagApp(nullptr, 1, "A001x", 5), nullptr);
    EXPECT_EQ(Str_FindTagApp("A", INT_MAX, "A001x", 5), nullptr);
}

TEST_F(Text, FindTagDoesNotStepOverTheEndOfTheText)
{
    // Behind the text lies what a step too far would find.
    for (size_t nBehind = 1; nBehind < 8; ++nBehind) {
        const std::string sText =
            "A00" + std::to_string(nBehind + 1) + "x" + '\0' + std::string(nBehind - 1, '.') + "B001y";
        EXPECT_EQ(Str_FindTagApp("B", 1, sText.c_str(), int32_t(sText.size())), nullptr) << nBehind;
        std::string sOut = untouched(8);
        uint32_t nLen = 77;
        EXPECT_EQ(Str_GetTagValueApp("A", 1, sText.c_str(), int32_t(sText.size()), sOut.data(), &nLen), -1);
        EXPECT_EQ(sOut, untouched(8));
    }
}

TEST_F(Text, FindTagOfALongTextEnds)
{
    std::string sText;
    for (int n = 0; n < 20000; ++n)
        sText += "A001B";
    EXPECT_EQ(Str_FindTagApp("B", 1, sText.c_str(), 0), nullptr);
    sText += "B001x";
    EXPECT_EQ(Str_FindTagApp("B", 1, sText.c_str(), 0), sText.c_str() + 100000);
}

struct ValueRow {
    const char *pszTag;
    std::string sText;
    int32_t nResult;
    std::string sValue;
};

TEST_F(Text, TagValueIsCopiedWithoutANul)
{
    const std::string s999(999, 'w');
    const ValueRow aRows[] = {
        {"A", "A003abc", 0, "abc"},
        {"B", "A003abcB002xy", 0, "xy"},
        {"B", "A003abcB002xyC001z", 0, "xy"},
        {"AB", "AB002xy", 0, "xy"},
        {"A", "A000", 0, ""},
        {"A", "A000B001x", 0, ""},
        {"A", "A010\r\n 3456789", 0, "\r\n 3456789"},
        {"A", "A999" + s999, 0, s999},
        {"C", "A003abc", -1, ""},
        {"A", "", -1, ""},
        {"A", "A", -1, ""},    // nothing behind the tag
        {"A", "A00", -1, ""},  // fewer than four characters
        {"A", "A001", -1, ""}, // the value is not there
        {"A", "A004abc", -1, ""},
        {"AB", "AB00", -1, ""}, // the length itself is cut off
        {"A", "A999" + s999.substr(1), -1, ""},
        {"B", "A004abcB001x", -1, ""},
    };
    for (const ValueRow &row : aRows) {
        const Bytes text = textBytes(row.sText + '\0'); // exactly that long on the heap
        const char *pszText = reinterpret_cast<const char *>(text.data());
        std::string sOut = untouched(1010);
        uint32_t nLen = 77;
        EXPECT_EQ(Str_GetTagValueApp(row.pszTag, int32_t(std::strlen(row.pszTag)), pszText, 0, sOut.data(), &nLen),
                  row.nResult)
            << row.sText;
        EXPECT_EQ(sOut, row.sValue + untouched(1010 - row.sValue.size())) << row.sText;
        EXPECT_EQ(nLen, row.nResult == 0 ? row.sValue.size() : 77U) << row.sText;
    }
}

TEST_F(Text, TagValueIgnoresTheTextLength)
{
    for (int32_t nTextLen : {0, 1, -1, 10, INT_MAX, INT_MIN}) {
        std::string sOut = untouched(8);
        uint32_t nLen = 77;
        EXPECT_EQ(Str_GetTagValueApp("B", 1, "A001xB002yz", nTextLen, sOut.data(), &nLen), 0) << nTextLen;
        EXPECT_EQ(sOut, "yz" + untouched(6));
        EXPECT_EQ(nLen, 2U);
    }
}

TEST_F(Text, TagValueRefusesNull)
{
    std::string sOut = untouched(8);
    uint32_t nLen = 77;
    EXPECT_EQ(Str_GetTagValueApp(nullptr, 1, "A001x", 5, sOut.data(), &nLen), -1);
    EXPECT_EQ(Str_GetTagValueApp("A", 1, nullptr, 5, sOut.data(), &nLen), -1);
    EXPECT_EQ(Str_GetTagValueApp("A", 1, "A001x", 5, nullptr, &nLen), -1);
    EXPECT_EQ(Str_GetTagValueApp("A", 1, "A001x", 5, sOut.data(), nullptr), -1);
    EXPECT_EQ(nLen, 77U);
}

TEST_F(Text, TagValueLogsStartAlwaysAndEndOnSuccess)
{
    std::string sOut = untouched(8);
    uint32_t nLen = 0;
    logOn();
    EXPECT_EQ(Str_GetTagValueApp("A", 1, "A001x", 5, sOut.data(), &nLen), 0);
    EXPECT_EQ(logTexts(), (Texts{"[Str_GetTagValueApp] Start ", "[Str_GetTagValueApp] End   "}));
    EXPECT_NE(rawLog().find("INFO:    Public:  [Str_GetTagValueApp] Start \r\n"), std::string::npos);
    EXPECT_NE(rawLog().find("INFO:    Public:  [Str_GetTagValueApp] End   \r\n"), std::string::npos);

    logOn();
    EXPECT_EQ(Str_GetTagValueApp("B", 1, "A001x", 5, sOut.data(), &nLen), -1);
    EXPECT_EQ(logTexts(), Texts{"[Str_GetTagValueApp] Start "});
}

} // namespace
