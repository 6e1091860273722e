// The INI reader: one plain pass over the lines of the file, with its own idea of sections, keys and comments.

#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace qvtest;
using namespace std::string_literals;

namespace {

constexpr char szDefault[] = "the default";

class Ini : public testing::Test {
  protected:
    void SetUp() override { m_nDescriptors = openDescriptors(); }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        fs::remove_all(m_sPath);
    }

    // The value of the key in a file of this text; the default's text where it is not found.
    std::string lookUp(const std::string &sText, const char *pszSection = "S", const char *pszKey = "Key")
    {
        writeFile(m_sPath, sText);
        char *psz = GetIniKeyString(pszSection, pszKey, szDefault, m_sPath.c_str());
        m_bFound = psz != szDefault;
        return psz;
    }

    const std::string m_sPath = libraryDirectory() + "/test.ini";
    bool m_bFound = false;
    int m_nDescriptors = 0;
};

struct Row {
    const char *pszWhat;
    std::string sText;
    std::string sValue; // szDefault: not found
};

TEST_F(Ini, EveryOddityOfTheLineRulesHolds)
{
    const Row aRows[] = {
        {"plain", "[S]\nKey=v\n", "v"},
        {"empty file", "", szDefault},
        {"only a line end", "\n", szDefault},
        {"header alone", "[S]\n", szDefault},
        {"section missing", "Key=v\n", szDefault},
        {"key before its section", "Key=v\n[S]\n", szDefault},
        {"key missing", "[S]\nOther=v\n", szDefault},
        {"other section", "[T]\nKey=v\n", szDefault},
        {"empty value", "[S]\nKey=\n", ""},
        {"blanks of the value stay", "[S]\nKey= v \t\n", " v \t"},
        {"blanks before the equals sign are no part of the value", "[S]\nKey  =v\n", "v"},
        {"value runs from the first equals sign", "[S]\nKey=a=b=c\n", "a=b=c"},
        {"first matching line wins", "[S]\nKey=first\nKey=second\n", "first"},

        {"last line without a line feed is not seen", "[S]\nKey=v", szDefault},
        {"last line without a line feed, but with a carriage return", "[S]\nKey=v\r", szDefault},
        {"header without a line feed", "[S]", szDefault},
        {"an earlier line is found although the last lacks its line feed", "[S]\nKey=v\nKey=w", "v"},

        {"carriage return stays part of the value", "[S]\r\nKey=v\r\n", "v\r"},
        {"carriage return alone ends no line", "[S]\rKey=v\r", szDefault},
        {"carriage return alone ends no line, before the line feed", "[S]\rx\nKey=v\rKey=w\n", "v\rKey=w"},

        {"key as the end of a longer key", "[S]\nMyKey=v\n", "v"},
        {"key as the start of a longer key", "[S]\nKeyName=v\n", "v"},
        {"key inside a longer key", "[S]\nMyKeyName=v\n", "v"},
        {"key inside the value", "[S]\nOther=the Key here\n", "the Key here"},
        {"key across the equals sign does not occur", "[S]\nKe=y\n", szDefault},
        {"key in another case does not occur", "[S]\nKEY=v\nkey=w\n", szDefault},
        {"a line without an equals sign is no key", "[S]\nKey\nKey=v\n", "v"},

        {"hash comment", "[S]\n#Key=v\n", szDefault},
        {"double slash comment", "[S]\n//Key=v\n", szDefault},
        {"comments are passed over", "[S]\n#Key=a\n//Key=b\nKey=c\n", "c"},
        {"single slash is no comment", "[S]\n/Key=v\n", "v"},
        {"blank before the hash is no comment", "[S]\n #Key=v\n", "v"},
        {"blank before the slashes is no comment", "[S]\n //Key=v\n", "v"},
        {"hash behind the key is part of the value", "[S]\nKey=v #no comment\n", "v #no comment"},
        {"semicolon is no comment", "[S]\n;Key=v\n", "v"},

        {"header is not cleared by a later header", "[S]\n[T]\nKey=v\n", "v"},
        {"first match counts whichever section it stands in", "[S]\nA=1\n[T]\nKey=t\n[S]\nKey=s\n", "t"},
        {"text behind the header", "[S] comment\nKey=v\n", "v"},
        {"header must stand at the start of the line", " [S]\nKey=v\n", szDefault},
        {"header without its bracket", "[S\nKey=v\n", szDefault},
        {"header of a longer name", "[SS]\nKey=v\n", szDefault},
        {"header behind a byte order mark", "\xEF\xBB\xBF[S]\nKey=v\n", szDefault},
        {"header in another case", "[s]\nKey=v\n", szDefault},
        {"commented header", "#[S]\nKey=v\n", szDefault},

        {"header line with an equals sign, before the section was seen", "[S]=x\nKey=v\n", "v"},
        {"header line that holds the key, before the section was seen", "[S]Key=a\nKey=b\n", "b"},
        {"header line that holds the key, after the section was seen", "[S]\n[S]Key=a\nKey=b\n", "a"},
        {"other header line that holds the key, after the section was seen", "[S]\n[T]Key=a\nKey=b\n", "a"},
        {"header again without an equals sign", "[S]\n[S]\nKey=v\n", "v"},

        {"NUL ends the value", "[S]\nKey=v\0w\n"s, "v"},
        {"NUL hides the rest of the line", "[S]\nx\0Key=v\nKey=w\n"s, "w"},
        {"NUL at the start of the line", "[S]\n\0Key=v\nKey=w\n"s, "w"},
        {"NUL behind the header", "[S]\0junk\nKey=v\n"s, "v"},
        {"NUL inside the header", "[\0S]\nKey=v\n"s, szDefault},
        {"NUL before the line end does not join lines", "[S]\nOther=1\0\nKey=v\n"s, "v"},

        {"bytes above 0x7F", "[S]\nKey=\xFF\xFE\x80\n", "\xFF\xFE\x80"},
        {"byte 0xFF does not end the file", "\xFF\n[S]\n\xFF\nKey=v\n", "v"},
        {"byte 0x1A does not end the file", "[S]\n\x1A\nKey=v\n", "v"},
        {"empty lines", "\n\n[S]\n\n\nKey=v\n", "v"},
    };
    for (const Row &row : aRows) {
        EXPECT_EQ(lookUp(row.sText), row.sValue) << row.pszWhat;
        EXPECT_EQ(m_bFound, row.sValue != szDefault) << row.pszWhat;
    }
}

TEST_F(Ini, NotFoundReturnsTheDefaultPointerItself)
{
    lookUp("[S]\nOther=1\n");
    char szOwn[] = "own";
    EXPECT_EQ(GetIniKeyString("S", "Key", szOwn, m_sPath.c_str()), szOwn);
    EXPECT_EQ(GetIniKeyString("S", "Key", nullptr, m_sPath.c_str()), nullptr);
    EXPECT_EQ(GetIniKeyString("S", "Key", szOwn, "/no/such/file.ini"), szOwn);
    EXPECT_EQ(GetIniKeyString("S", "Key", szOwn, ""), szOwn);
    EXPECT_EQ(GetIniKeyString("S", "Key", szOwn, libraryDirectory().c_str()), szOwn) << "a directory";
    EXPECT_STREQ(szOwn, "own");
}

TEST_F(Ini, FoundReturnsOneBufferThatTheNextCallOverwrites)
{
    writeFile(m_sPath, "[S]\nA=first\nB=2nd\n");
    char *pszFirst = GetIniKeyString("S", "A", szDefault, m_sPath.c_str());
    EXPECT_STREQ(pszFirst, "first");
    EXPECT_EQ(GetIniKeyString("S", "B", szDefault, m_sPath.c_str()), pszFirst);
    EXPECT_STREQ(pszFirst, "2nd");
}

TEST_F(Ini, ValueEqualToTheDefaultIsStillTheBuffer)
{
    EXPECT_EQ(lookUp("[S]\nKey="s + szDefault + "\n"), szDefault);
    EXPECT_TRUE(m_bFound);
}

TEST_F(Ini, NullArgumentsGiveTheDefault)
{
    writeFile(m_sPath, "[S]\nKey=v\n[]\n");
    EXPECT_EQ(GetIniKeyString(nullptr, "Key", szDefault, m_sPath.c_str()), szDefault);
    EXPECT_EQ(GetIniKeyString("S", nullptr, szDefault, m_sPath.c_str()), szDefault);
    EXPECT_EQ(GetIniKeyString("S", "Key", szDefault, nullptr), szDefault);
    EXPECT_EQ(GetIniKeyString(nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(GetIniKeyInt(nullptr, "Key", "5", m_sPath.c_str()), 5);
    EXPECT_EQ(GetIniKeyInt("S", "None", nullptr, m_sPath.c_str()), 0);
    EXPECT_EQ(GetIniKeyInt("S", "Key", nullptr, nullptr), 0);
}

TEST_F(Ini, FileIsReadAnewAtEveryCall)
{
    EXPECT_EQ(lookUp("[S]\nKey=1\n"), "1");
    EXPECT_EQ(lookUp("[S]\nKey=2\n"), "2");
    fs::remove(m_sPath);
    EXPECT_EQ(GetIniKeyString("S", "Key", szDefault, m_sPath.c_str()), szDefault);
}

TEST_F(Ini, NumberIsTheLeadingNumberOfTheValue)
{
    struct {
        const char *pszValue;
        int32_t nExpected;
    } const aRows[] = {{"1", 1},
                       {"42", 42},
                       {"-7", -7},
                       {"+3", 3},
                       {" 9", 9},
                       {"5\r", 5},
                       {"007", 7},
                       {"12abc", 12},
                       {"abc", 0},
                       {"", 0},
                       {"0x10", 0},
                       {"1 2", 1},
                       {"2147483647", INT_MAX},
                       {"-2147483648", INT_MIN}};
    for (const auto &row : aRows) {
        writeFile(m_sPath, "[S]\nKey="s + row.pszValue + "\n");
        EXPECT_EQ(GetIniKeyInt("S", "Key", "-99", m_sPath.c_str()), row.nExpected) << row.pszValue;
    }
    EXPECT_EQ(GetIniKeyInt("S", "None", "-99", m_sPath.c_str()), -99);
    EXPECT_EQ(GetIniKeyInt("S", "None", "12x", m_sPath.c_str()), 12);
    EXPECT_EQ(GetIniKeyInt("S", "None", "x", m_sPath.c_str()), 0);
}

TEST_F(Ini, OverlongLineIsCutAndItsRestIsNoLineOfItsOwn)
{
    for (size_t nFill : {size_t{1022}, size_t{1023}, size_t{1024}, size_t{2046}, size_t{2047}, size_t{3069}}) {
        SCOPED_TRACE(nFill);
        EXPECT_EQ(lookUp("[S]\n" + std::string(nFill, 'x') + "Key=cut\nKey=v\n"), "v");
        EXPECT_EQ(lookUp(std::string(nFill, 'x') + "[S]\nKey=v\n"), szDefault);
    }
    // The cut falls behind the key's line, into its value.
    for (size_t nLen : {size_t{1018}, size_t{1019}, size_t{1020}, size_t{5000}}) {
        const std::string sValue = std::string(nLen - 1, 'a') + 'z';
        EXPECT_EQ(lookUp("[S]\nKey=" + sValue + "\n"), sValue.substr(0, 1019)) << nLen;
        EXPECT_EQ(lookUp("[S]\nOther=" + sValue + "\nKey=v\n"), "v") << nLen;
    }
}

TEST_F(Ini, LongestValueIsTheLineBehindItsEqualsSign)
{
    const std::string sValue(1022, 'v');
    EXPECT_EQ(lookUp("[S]\n=" + sValue + "\n", "S", "v"), sValue);
    EXPECT_EQ(lookUp("[S]\n=" + sValue + "v\n", "S", "v"), sValue);
}

TEST_F(Ini, LongSectionAndKeyNamesDoNotOverrun)
{
    const std::string sName(900, 'n');
    EXPECT_EQ(lookUp("[" + sName + "]\n" + sName + "=v\n", sName.c_str(), sName.c_str()), "v");
    const std::string sHuge(100000, 'n');
    EXPECT_EQ(lookUp("[" + sHuge + "]\n" + sHuge + "=v\nx=v\n", sHuge.c_str(), "x"), szDefault)
        << "a header that was cut does not begin with the whole name";
    EXPECT_EQ(lookUp("[S]\n" + sHuge + "=v\n", "S", sHuge.c_str()), szDefault);
}

TEST_F(Ini, EmptyNamesMatchAsTexts)
{
    EXPECT_EQ(lookUp("[S]\nA=a\n", "S", ""), "a") << "the empty key occurs in every line";
    EXPECT_EQ(lookUp("[]\nKey=v\n", ""), "v");
    EXPECT_EQ(lookUp("[S]\nKey=v\n", ""), szDefault);
}

TEST_F(Ini, KeyIsFoundWhereverABlockOfTheFileEnds)
{
    for (size_t nBlock : {size_t{512}, size_t{1024}, size_t{4096}, size_t{8192}, size_t{65536}}) {
        for (size_t nOver = 0; nOver < 16; ++nOver) {
            // Comment lines fill the file up so that "Key=value\n" lies across the border.
            std::string sText = "[S]\n";
            const size_t nStart = nBlock - 12 + nOver;
            while (sText.size() + 100 < nStart)
                sText += "#" + std::string(70, 'c') + "\n";
            sText += "#" + std::string(nStart - sText.size() - 2, 'c') + "\n";
            ASSERT_EQ(sText.size(), nStart);
            EXPECT_EQ(lookUp(sText + "Key=value\n"), "value") << nStart;
            EXPECT_EQ(lookUp(sText + "Key=value\nNext=1\n"), "value") << nStart;
            EXPECT_EQ(lookUp(sText + "Key=value"), szDefault) << nStart;
        }
    }
}

TEST_F(Ini, FileSizesAtBlockBordersAreReadToTheEnd)
{
    for (size_t nSize : {size_t{4095}, size_t{4096}, size_t{4097}, size_t{8191}, size_t{8192}, size_t{8193}}) {
        std::string sText = "[S]\n";
        const std::string sLast = "Key=last\n";
        while (sText.size() + sLast.size() < nSize)
            sText += '\n';
        sText += sLast;
        ASSERT_EQ(sText.size(), nSize);
        EXPECT_EQ(lookUp(sText), "last") << nSize;
    }
}

TEST_F(Ini, TenMegabytesWithoutALineFeedAreHarmless)
{
    const std::string sHuge(10U << 20, 'x');
    EXPECT_EQ(lookUp(sHuge), szDefault);
    EXPECT_EQ(lookUp("[S]\nKey=" + sHuge), szDefault);
    EXPECT_EQ(lookUp("[S]\n" + sHuge + "\nKey=v\n"), "v");
    EXPECT_EQ(lookUp("[S]\n" + std::string(10U << 20, '\0') + "\nKey=v\n"), "v");
}

TEST_F(Ini, FileThatCannotBeReadGivesTheDefault)
{
    EXPECT_EQ(GetIniKeyString("S", "Key", szDefault, "/proc/self/mem"), szDefault);
    EXPECT_EQ(GetIniKeyString("S", "Key", szDefault, std::string(5000, 'p').c_str()), szDefault);
    EXPECT_EQ(GetIniKeyString("S", "Key", szDefault, "/dev/null"), szDefault);
}

} // namespace
