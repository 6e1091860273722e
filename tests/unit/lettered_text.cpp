// Card data as text: fields of a letter, three digits and a value.

#include "codec_buffers.h"
#include "tlv_block.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

using namespace qvtest;

namespace {

constexpr int32_t nUnset = 77;

long find(const std::string &sTag, const std::string &sText, int32_t nTextLen = 0)
{
    const Block tag(textBytes(sTag)), text(ended(sText));
    const char *pszFound = quorvan_find_tag_app(tag.text(), tag.size(), text.text(), nTextLen);
    EXPECT_EQ(text.hex(), hex(ended(sText)));
    return text.offsetOf(pszFound);
}

TEST(LetteredText, FindsAFieldAndStepsOverTheOthers)
{
    struct {
        const char *pszTag;
        const char *pszText;
        long nAt;
    } const aRows[] = {
        {"A", "A003abc", 0},
        {"B", "A003abcB002xy", 7},
        {"B",
         "A019"
         "1234567890123456789"
         "B004TEST",
         23},
        {"C",
         "A019"
         "1234567890123456789"
         "B004TEST",
         -1},
        {"B", "A000B001x", 4},
        {"B", "A003BBBB001x", 7},    // not inside a value
        {"B", "A005B001xB002yz", 9}, // not even a whole field there
        {"B", "A010B001xB001yB002zz", 14},
        {"B", "A001xB001yB001z", 5}, // the first of two
        {"B", " \r\nB001x", 3},      // other characters count one
        {"B", "KB001x", 1},          // K to O and X to Z are no field letters
        {"B", "OXZB001x", 3},
        {"b", "A001xb001y", 5}, // any character may be asked for
        {"B", "a001BB001x", 4}, // small letters are none either
        {"1", "A00111", 5},
        {"0", "x0", 1},
        {"K", "K001x", 0},
        {"B001", "A001xB001y", 5}, // more than one character
        {"B002", "A001xB001y", -1},
        {"AB", "AB002xy", 0},
        {"AB", "A001xAB002xy", 5},
        {"ABCDEFGH", "ABC", -1}, // more than the text
        {"BX", "B", -1},
        {"B", "A001xB", 5}, // without a length
        {"A", "", -1},
        {"B", "A", -1}, // the end of the text inside what is stepped over
        {"B", "A0", -1},
        {"B", "A00", -1},
        {"B", "A001", -1},
        {"B", "A005xB01", -1},
        {"B", "A999B001x", -1},
        {"B", "123", -1},
    };
    for (const auto &row : aRows)
        EXPECT_EQ(find(row.pszTag, row.pszText), row.nAt) << row.pszTag << " in " << row.pszText;
}

TEST(LetteredText, FieldLettersAreAToJAndPToW)
{
    for (int c = 1; c < 256; ++c) {
        if (c == '!')
            continue;
        // A field of this letter hides the "!" in its value; any other character does not.
        const std::string sText = static_cast<char>(c) + std::string("001!");
        const bool bField = std::strchr("ABCDEFGHIJPQRSTUVW", c) != nullptr;
        EXPECT_EQ(find("!", sText), bField ? -1 : 4) << c;
    }
}

TEST(LetteredText, LengthsHaveThreeDecimalDigits)
{
    for (int n : {0, 1, 9, 10, 99, 100, 123, 321, 999}) {
        char szHead[8];
        std::snprintf(szHead, sizeof szHead, "A%03d", n);
        const std::string sValue(static_cast<size_t>(n), 'B');
        EXPECT_EQ(find("B", szHead + sValue + "B001x"), 4 + n);
        EXPECT_EQ(find("B", szHead + sValue), -1);
    }
}

TEST(LetteredText, NothingBehindTheNulIsFound)
{
    // The length reaches to the NUL, or over it, into what would be a field.
    const char szText[] = "A001\0B001x\0B001x";
    EXPECT_EQ(quorvan_find_tag_app("B", 1, szText, static_cast<int32_t>(sizeof szText)), nullptr);
    const char szShort[] = "A00\0B001x\0B001x";
    EXPECT_EQ(quorvan_find_tag_app("B", 1, szShort, static_cast<int32_t>(sizeof szShort)), nullptr);
    const char szLetter[] = "A\0"
                            "00B001x";
    EXPECT_EQ(quorvan_find_tag_app("B", 1, szLetter, static_cast<int32_t>(sizeof szLetter)), nullptr);
    const char szLong[] = "A004xy\0yB001x";
    EXPECT_EQ(quorvan_find_tag_app("B", 1, szLong, static_cast<int32_t>(sizeof szLong)), nullptr);
    const Block withNul(Bytes{'B', 0}), text(ended("AB"));
    EXPECT_EQ(quorvan_find_tag_app(withNul.text(), 2, text.text(), 0), nullptr) << "the NUL is no character";
}

TEST(LetteredText, TheTextLengthIsIgnored)
{
    for (int32_t n : {0, 1, -1, 10, INT_MAX, INT_MIN}) {
        EXPECT_EQ(find("B", "A001xB001y", n), 5) << n;
        Out out(8);
        int32_t nLen = nUnset;
        EXPECT_EQ(quorvan_get_tag_value_app("B", 1, "A001xB001y", n, out.text(), &nLen), 0) << n;
        EXPECT_EQ(out.firstText(1), "y");
        EXPECT_EQ(nLen, 1);
    }
}

TEST(LetteredText, TagCharactersBehindTheirNumberAreNotCompared)
{
    EXPECT_EQ(find("B", "A001xBC01y"), 5);
    const char szText[] = "A001xBC01y";
    EXPECT_EQ(quorvan_find_tag_app("BX", 1, szText, 0), szText + 5);
    EXPECT_EQ(quorvan_find_tag_app("BX", 2, szText, 0), nullptr);
}

TEST(LetteredText, ValueIsCopiedWithoutANul)
{
    const std::string s999(999, 'w');
    struct {
        const char *pszTag;
        std::string sText;
        std::string sValue;
    } const aRows[] = {
        {"A", "A003abc", "abc"},
        {"B",
         "A019"
         "1234567890123456789"
         "B004TEST",
         "TEST"},
        {"A",
         "A019"
         "1234567890123456789"
         "B004TEST",
         "1234567890123456789"},
        {"B", "A003abcB002xyC001z", "xy"},
        {"A", "A000", ""},
        {"A", "A000B001x", ""},
        {"A", "A010123456789012", "1234567890"},
        {"A", "A100" + s999, s999.substr(0, 100)},
        {"A", "A999" + s999, s999},
        {"A",
         "A003\r\n\xFF"
         "B001x",
         "\r\n\xFF"},
        {"AB", "AB002xy", "xy"},
        {"B001", "B001002xy", "xy"},
        {"K", "A001xK002yz", "yz"},
    };
    for (const auto &row : aRows) {
        const Block tag(textBytes(row.pszTag)), text(ended(row.sText));
        Out out(1000);
        int32_t nLen = nUnset;
        EXPECT_EQ(quorvan_get_tag_value_app(tag.text(), tag.size(), text.text(), 0, out.text(), &nLen), 0) << row.sText;
        EXPECT_EQ(nLen, static_cast<int32_t>(row.sValue.size())) << row.sText;
        EXPECT_EQ(out.firstText(row.sValue.size()), row.sValue) << row.sText;
    }
}

TEST(LetteredText, ValueThatIsAbsentOrCutOffLeavesTheOutputs)
{
    const char *const aRows[] = {"",      "A001x", "B",      "B0",         "B00",       "B001",
                                 "B002x", "B999x", "A001xB", "A005xB001y", "A002B001x", "B010123456789"};
    for (const char *pszText : aRows) {
        const Block text(ended(pszText));
        Out out(16);
        int32_t nLen = nUnset;
        EXPECT_EQ(quorvan_get_tag_value_app("B", 1, text.text(), 0, out.text(), &nLen), -1) << pszText;
        EXPECT_TRUE(out.untouched()) << pszText;
        EXPECT_EQ(nLen, nUnset) << pszText;
    }
    const Block text(ended("AB01"));
    Out out(16);
    int32_t nLen = nUnset;
    EXPECT_EQ(quorvan_get_tag_value_app("AB", 2, text.text(), 0, out.text(), &nLen), -1) << "a digit is missing";
    EXPECT_TRUE(out.untouched());
}

TEST(LetteredText, ATagOfNoCharactersStandsAtTheStart)
{
    EXPECT_EQ(find("", "A001xB001y"), 0);
    EXPECT_EQ(find("", "!"), 0);
    EXPECT_EQ(find("", ""), -1);
    const Block text(ended("002xyB001z"));
    Out out(8);
    int32_t nLen = nUnset;
    EXPECT_EQ(quorvan_get_tag_value_app("B", 0, text.text(), 0, out.text(), &nLen), 0);
    EXPECT_EQ(out.firstText(2), "xy");
    EXPECT_EQ(nLen, 2);
}

TEST(LetteredText, ATagOfFewerCharactersIsRefused)
{
    for (int32_t n : {-1, -3, INT_MIN}) {
        Out out(8);
        int32_t nLen = nUnset;
        EXPECT_EQ(quorvan_find_tag_app("A", n, "A001x", 5), nullptr) << n;
        EXPECT_EQ(quorvan_get_tag_value_app("A", n, "001x", 4, out.text(), &nLen), -1) << n;
        EXPECT_TRUE(out.untouched()) << n;
        EXPECT_EQ(nLen, nUnset) << n;
    }
}

TEST(LetteredText, RefusesNull)
{
    Out out(8);
    int32_t nLen = nUnset;
    EXPECT_EQ(quorvan_find_tag_app(nullptr, 1, "A001x", 5), nullptr);
    EXPECT_EQ(quorvan_find_tag_app("A", 1, nullptr, 5), nullptr);
    EXPECT_EQ(quorvan_get_tag_value_app(nullptr, 1, "A001x", 5, out.text(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value_app("A", 1, nullptr, 5, out.text(), &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value_app("A", 1, "A001x", 5, nullptr, &nLen), -1);
    EXPECT_EQ(quorvan_get_tag_value_app("A", 1, "A001x", 5, out.text(), nullptr), -1);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(nLen, nUnset);
}

} // namespace
