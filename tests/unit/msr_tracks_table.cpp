// The characters of the tracks and their recording codes; texts judged and cut by them.

#include "harness.h"

#include "qvreader/msr.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <optional>
#include <string>

using namespace qvtest;

namespace {

// The codes of 0x20 to 0x5C, then those of "^" and "_" (there is none for "]"), then the pair that ends the table.
constexpr char szCodes1[] = "40 01 02 43 04 45 46 07 08 49 4A 0B 4C 0D 0E 4F 10 51 52 13 54 15 16 57 58 19 1A 5B 1C 5D "
                            "5E 1F 20 61 62 23 64 25 26 67 68 29 2A 6B 2C 6D 6E 2F 70 31 32 73 34 75 76 37 38 79 7A 3B "
                            "7C 3E 7F 00";
constexpr char szCharacters1[] = " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\^_";
constexpr char szCodes23[] = "10 01 02 13 04 15 16 07 08 19 1A 0B 1C 0D 0E 1F";
constexpr char szCharacters23[] = "0123456789:;<=>?";

constexpr uint8_t ucUntouched = 0xA5;

std::optional<uint8_t> lookedUp(int32_t nDirection, int32_t nTrack, uint8_t ucValue)
{
    uint8_t uc = ucUntouched;
    const int32_t nRet = LookupTrackTable(nDirection, nTrack, ucValue, &uc);
    if (nRet == 0)
        return uc;
    EXPECT_EQ(nRet, -1);
    EXPECT_EQ(uc, ucUntouched);
    return std::nullopt;
}

template <size_t n> std::string tableHex(const uint8_t (&table)[n])
{
    return hex(table, n);
}

std::string pairs(const char *pszCharacters, const char *pszCodes, bool bEndPair)
{
    const Bytes codes = bytes(pszCodes);
    Bytes out;
    for (size_t i = 0; i < codes.size(); ++i) {
        out.push_back(bEndPair && i + 1 == codes.size() ? uint8_t{0} : static_cast<uint8_t>(pszCharacters[i]));
        out.push_back(codes[i]);
    }
    return hex(out);
}

TEST(TrackTables, ArePairsOfACharacterAndItsCode)
{
    EXPECT_EQ(tableHex(ucTableTrack1), pairs(szCharacters1, szCodes1, true));
    EXPECT_EQ(tableHex(ucTableTrack23), pairs(szCharacters23, szCodes23, false));
}

TEST(TrackTables, EveryCodeThatACharacterHasHasOddParity)
{
    for (size_t i = 0; i + 1 < bytes(szCodes1).size(); ++i)
        EXPECT_EQ(__builtin_popcount(ucTableTrack1[2 * i + 1]) % 2, 1) << i;
    for (size_t i = 0; i < 16; ++i)
        EXPECT_EQ(__builtin_popcount(ucTableTrack23[2 * i + 1]) % 2, 1) << i;
}

TEST(LookupTrackTable, OnTrack1ACharacterHasTheCodeOfItsPlace)
{
    const Bytes codes = bytes(szCodes1);
    for (int32_t nDirection : {0, 2, -1})
        for (unsigned uc = 0; uc < 256; ++uc) {
            SCOPED_TRACE(uc);
            std::optional<uint8_t> expected;
            if (uc >= 0x20 && uc < 0x60)
                expected = codes[uc - 0x20];
            EXPECT_EQ(lookedUp(nDirection, 1, static_cast<uint8_t>(uc)), expected);
        }
}

TEST(LookupTrackTable, OnTrack1TheLastThreeCharactersHaveTheCodeOfTheirSuccessor)
{
    EXPECT_EQ(lookedUp(0, 1, ']'), 0x3E);
    EXPECT_EQ(lookedUp(0, 1, '^'), 0x7F);
    EXPECT_EQ(lookedUp(0, 1, '_'), 0x00);
}

TEST(LookupTrackTable, OnTracks2And3ACharacterHasTheCodeOfItsPlace)
{
    const Bytes codes = bytes(szCodes23);
    for (int32_t nTrack : {2, 3, 0, -1, 12})
        for (unsigned uc = 0; uc < 256; ++uc) {
            SCOPED_TRACE(uc);
            std::optional<uint8_t> expected;
            if (uc >= 0x30 && uc < 0x40)
                expected = codes[uc - 0x30];
            EXPECT_EQ(lookedUp(0, nTrack, static_cast<uint8_t>(uc)), expected);
        }
}

TEST(LookupTrackTable, ACodeGivesItsCharacterWhereItStandsAtThePlaceThatItsLowBitsName)
{
    std::map<uint8_t, uint8_t> track1, track23;
    const Bytes codes1 = bytes(szCodes1), codes23 = bytes(szCodes23);
    for (uint8_t i = 0; i < codes1.size(); ++i)
        if ((codes1[i] & 0x3F) == i)
            track1[codes1[i]] = static_cast<uint8_t>(szCharacters1[i]);
    for (uint8_t i = 0; i < codes23.size(); ++i)
        if ((codes23[i] & 0x0F) == i)
            track23[codes23[i]] = static_cast<uint8_t>(szCharacters23[i]);
    ASSERT_EQ(track1.size(), 61U); // without "^" and "_", which stand one place early
    ASSERT_EQ(track23.size(), 16U);
    for (unsigned uc = 0; uc < 256; ++uc) {
        SCOPED_TRACE(uc);
        const auto ucCode = static_cast<uint8_t>(uc);
        auto expected = [ucCode](const std::map<uint8_t, uint8_t> &table) {
            const auto found = table.find(ucCode);
            return found == table.end() ? std::nullopt : std::optional(found->second);
        };
        EXPECT_EQ(lookedUp(1, 1, ucCode), expected(track1));
        EXPECT_EQ(lookedUp(1, 2, ucCode), expected(track23));
        EXPECT_EQ(lookedUp(1, 3, ucCode), expected(track23));
    }
}

TEST(LookupTrackTable, WithoutAPlaceForTheResultNothingIsFound)
{
    EXPECT_EQ(LookupTrackTable(0, 1, 'A', nullptr), -1);
    EXPECT_EQ(LookupTrackTable(1, 2, 0x10, nullptr), -1);
}

// ---- texts ----------------------------------------------------------------------------------------------------------

struct Judged {
    int32_t nResult;
    std::string sText;
    bool operator==(const Judged &) const = default;
};
void PrintTo(const Judged &judged, std::ostream *pOut)
{
    *pOut << "{" << judged.nResult << ", " << judged.sText << "}";
}

Judged judged(int32_t nTrack, std::string sText)
{
    const int32_t nRet = JudgeTrack(nTrack, sText.data());
    return {nRet, sText.c_str()};
}

TEST(JudgeTrack, ATextOfTheTracksCharactersStays)
{
    std::string sAll1, sAll23;
    for (char c = 0x20; c < 0x60; ++c)
        sAll1 += c;
    for (char c = '0'; c <= '?'; ++c)
        sAll23 += c;
    EXPECT_EQ(judged(1, sAll1), (Judged{0, sAll1}));
    EXPECT_EQ(judged(2, sAll23), (Judged{0, sAll23}));
    EXPECT_EQ(judged(3, sAll23), (Judged{0, sAll23}));
    EXPECT_EQ(judged(1, "]"), (Judged{0, "]"}));
    EXPECT_EQ(judged(1, ""), (Judged{0, ""}));
    EXPECT_EQ(judged(2, ""), (Judged{0, ""}));
}

TEST(JudgeTrack, ATextIsCutAtItsFirstOtherCharacterAndABadFirstOneIsRefused)
{
    for (int32_t nTrack : {1, 2, 3, 0})
        for (unsigned uc = 1; uc < 256; ++uc) {
            SCOPED_TRACE(std::to_string(uc) + " on track " + std::to_string(nTrack));
            const bool bGood = nTrack == 1 ? uc >= 0x20 && uc < 0x60 : uc >= 0x30 && uc < 0x40;
            const std::string s(1, static_cast<char>(uc));
            EXPECT_EQ(judged(nTrack, s + "1"), (bGood ? Judged{0, s + "1"} : Judged{-2, s + "1"}));
            EXPECT_EQ(judged(nTrack, "12" + s + "3"), (Judged{0, bGood ? "12" + s + "3" : "12"}));
        }
}

TEST(JudgeTrack, ACutTextKeepsWhatStoodBehindTheCut)
{
    std::string sText = "1234A567";
    EXPECT_EQ(JudgeTrack(2, sText.data()), 0);
    EXPECT_EQ(sText, std::string("1234\000567", 8));
}

TEST(JudgeTrack, NoTextIsRefused)
{
    EXPECT_EQ(JudgeTrack(1, nullptr), -2);
    EXPECT_EQ(JudgeTrack(2, nullptr), -2);
}

TEST(CheckTrackData, EachTextIsJudgedByTheCharactersOfItsTrack)
{
    std::string s1 = "AB^c", s2 = "12=A", s3 = "34?B";
    EXPECT_EQ(CheckTrackData(s1.data(), s2.data(), s3.data()), 0);
    EXPECT_STREQ(s1.c_str(), "AB^");
    EXPECT_STREQ(s2.c_str(), "12=");
    EXPECT_STREQ(s3.c_str(), "34?");
}

TEST(CheckTrackData, AnyTextWithABadFirstCharacterIsRefused)
{
    std::string sGood = "12", sBad = "x12", sTrack1 = "A12";
    EXPECT_EQ(CheckTrackData(sBad.data(), sGood.data(), sGood.data()), -2);
    EXPECT_EQ(CheckTrackData(sGood.data(), sBad.data(), sGood.data()), -2);
    EXPECT_EQ(CheckTrackData(sGood.data(), sGood.data(), sBad.data()), -2);
    EXPECT_EQ(CheckTrackData(sTrack1.data(), nullptr, nullptr), 0);
    EXPECT_EQ(CheckTrackData(nullptr, sTrack1.data(), nullptr), -2);
    EXPECT_EQ(CheckTrackData(nullptr, nullptr, sTrack1.data()), -2);
}

TEST(CheckTrackData, TextsThatAreNotThereAreNotJudged)
{
    std::string sGood = "12";
    EXPECT_EQ(CheckTrackData(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(CheckTrackData(sGood.data(), nullptr, nullptr), 0);
    EXPECT_EQ(CheckTrackData(nullptr, sGood.data(), nullptr), 0);
    EXPECT_EQ(CheckTrackData(nullptr, nullptr, sGood.data()), 0);
}

} // namespace
