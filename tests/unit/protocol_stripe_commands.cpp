// The command bytes of the stripe side: one table, and the texts that the write commands carry.

#include "harness.h"

#include "qvreader/protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

using Build = std::function<int32_t(uint8_t *, uint32_t *)>;

struct Row {
    const char *pszName;
    Build build;
    const char *pszBytes;
};

constexpr size_t nRoom = 1024; // a command's longest
constexpr uint8_t ucFree = 0xC5;
constexpr uint32_t nFree = 0xC5C5;

Build write1(const char *psz)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack1(psz, p, n); };
}
Build write2(const char *psz)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack2(psz, p, n); };
}
Build write3(const char *psz)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack3(psz, p, n); };
}
Build write12(const char *psz1, const char *psz2)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack12(psz1, psz2, p, n); };
}
Build write23(const char *psz2, const char *psz3)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack23(psz2, psz3, p, n); };
}
Build write123(const char *psz1, const char *psz2, const char *psz3)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_GetNtWriteTrack123(psz1, psz2, psz3, p, n); };
}
Build separator(const char *psz)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_SetSeparator(psz, p, n); };
}
Build timeOut(uint8_t uc)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_SetTimeOut(uc, p, n); };
}
Build channel(uint8_t uc)
{
    return [=](uint8_t *p, uint32_t *n) { return Instr_Msg_BP(uc, p, n); };
}

// Every builder, with texts where it takes some.
const std::vector<Row> s_commands = {
    {"read 1", Instr_Msg_GetNtReadTrack1, "1B 72"},
    {"read 2", Instr_Msg_GetNtReadTrack2, "1B 5D"},
    {"read 3", Instr_Msg_GetNtReadTrack3, "1B 54 5D"},
    {"read 1 and 2", Instr_Msg_GetNtReadTrack12, "1B 44 5D"},
    {"read 2 and 3", Instr_Msg_GetNtReadTrack23, "1B 42 5D"},
    {"write 1", write1("AB"), "1B 77 41 42 1D 1B 5C"},
    {"write 2", write2("12"), "1B 74 31 32 1D 1B 5C"},
    {"write 3", write3("34"), "1B 74 41 33 34 1D 1B 5C"},
    {"write 1 and 2", write12("ABC", "123"), "1B 77 31 32 33 41 41 42 43 1D 1B 5C"},
    {"write 2 and 3", write23("12", "345"), "1B 74 31 32 41 33 34 35 1D 1B 5C"},
    {"status", Instr_Msg_GetStatus, "1B 6A"},
    {"reset", Instr_Msg_Reset, "1B 30"},
    {"ISO", Instr_Msg_SetModeIso, "1B 3D"},
    {"IBM", Instr_Msg_SetModeIBM, "1B 27"},
    {"ISO-DK", Instr_Msg_SetModeIsoDK, "1B 4F"},
    {"IBM-DK", Instr_Msg_SetModeIBMDK, "1B 41"},
    {"channel A", channel(65), "1B 25 41"},
    {"separator", separator("|"), "20 01 7C"},
    {"read all", Instr_Msg_GetReadTrack123, "20 02"},
    {"write all", write123("A", "1", "2"), "20 03 41 7C 31 7C 32"},
    {"read time", timeOut(30), "20 04 1E"},
    {"write all, bare", Instr_Msg_GetWriteTrack123, "20 03"},
};

// The same, with texts and values at their ends.
const std::vector<Row> s_texts = {
    {"write 1, empty", write1(""), "1B 77 1D 1B 5C"},
    {"write 2, empty", write2(""), "1B 74 1D 1B 5C"},
    {"write 3, empty", write3(""), "1B 74 41 1D 1B 5C"},
    {"write 1 and 2, empty", write12("", ""), "1B 77 41 1D 1B 5C"},
    {"write 1 and 2, no track 1", write12("", "12"), "1B 77 31 32 41 1D 1B 5C"},
    {"write 1 and 2, no track 2", write12("AB", ""), "1B 77 41 41 42 1D 1B 5C"},
    {"write 2 and 3, empty", write23("", ""), "1B 74 41 1D 1B 5C"},
    {"write 2 and 3, no track 2", write23("", "34"), "1B 74 41 33 34 1D 1B 5C"},
    {"write 2 and 3, no track 3", write23("12", ""), "1B 74 31 32 41 1D 1B 5C"},
    {"a text with percent signs", write1("%s%n%d"), "1B 77 25 73 25 6E 25 64 1D 1B 5C"},
    {"a text with bytes above 7F", write2("\x80\xFF"), "1B 74 80 FF 1D 1B 5C"},
    {"write all, only track 1", write123("AB", nullptr, nullptr), "20 03 41 42 7C 7C"},
    {"write all, only track 2", write123(nullptr, "55", nullptr), "20 03 7C 35 35 7C"},
    {"write all, only track 3", write123(nullptr, nullptr, "77"), "20 03 7C 7C 37 37"},
    {"write all, 1 and 2", write123("A", "1", nullptr), "20 03 41 7C 31 7C"},
    {"write all, 1 and 3", write123("A", nullptr, "2"), "20 03 41 7C 7C 32"},
    {"write all, 2 and 3", write123(nullptr, "1", "2"), "20 03 7C 31 7C 32"},
    {"write all, nothing", write123(nullptr, nullptr, nullptr), "20 03 7C 7C"},
    {"write all, empty", write123("", "", ""), "20 03 7C 7C"},
    {"separator, a whole text", separator("|;-"), "20 01 7C 3B 2D"},
    {"read time, one", timeOut(1), "20 04 01"},
    {"read time, longest", timeOut(255), "20 04 FF"},
    {"read time, none", timeOut(0), "20 04"},
    {"channel K", channel('K'), "1B 25 4B"},
    {"channel FF", channel(0xFF), "1B 25 FF"},
    {"channel 00", channel(0), "1B 25 00"},
};

void expectRows(const std::vector<Row> &rows, uint8_t ucFill)
{
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszName);
        Bytes out(nRoom, ucFill);
        uint32_t nLen = nFree;
        EXPECT_EQ(row.build(out.data(), &nLen), 0);
        Bytes expected = bytes(row.pszBytes);
        EXPECT_EQ(nLen, expected.size());
        expected.resize(nRoom, ucFill);
        EXPECT_EQ(hex(out), hex(expected));
    }
}

TEST(StripeCommands, EveryCommandHasItsBytesAndItsLengthAndNothingIsWrittenBehind)
{
    expectRows(s_commands, 0);
    expectRows(s_texts, 0);
}

TEST(StripeCommands, OnlyTheWriteOfTracks1And2CountsWhatStoodInTheBuffer)
{
    for (const std::vector<Row> *pRows : {&s_commands, &s_texts}) {
        std::vector<Row> rows;
        for (const Row &row : *pRows)
            if (std::string(row.pszName).find("write 1 and 2") == std::string::npos)
                rows.push_back(row);
        expectRows(rows, ucFree);
    }

    const std::string sCommand = "1B 77 31 32 33 41 41 42 43 1D 1B 5C";
    Bytes out(nRoom, ucFree);
    uint32_t nLen = 0;
    EXPECT_EQ(Instr_Msg_GetNtWriteTrack12("ABC", "123", out.data(), &nLen), 0);
    EXPECT_EQ(nLen, nRoom);
    EXPECT_EQ(hex(out.data(), 13), sCommand + " C5");

    out[14] = 0;
    EXPECT_EQ(Instr_Msg_GetNtWriteTrack12("ABC", "123", out.data(), &nLen), 0);
    EXPECT_EQ(nLen, 14U);
    EXPECT_EQ(hex(out.data(), 15), sCommand + " C5 C5 00");
    EXPECT_EQ(out[15], ucFree);
}

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST(StripeCommands, AMissingOrEmptySeparatorIsRefusedAndNothingWritten)
{
    for (const char *psz : {static_cast<const char *>(nullptr), ""}) {
        Bytes out(16, ucFree);
        uint32_t nLen = nFree;
        EXPECT_EQ(Instr_Msg_SetSeparator(psz, out.data(), &nLen), -2);
        EXPECT_EQ(nLen, nFree);
        EXPECT_EQ(out, Bytes(16, ucFree));
    }
}

TEST(StripeCommands, AMissingTrackIsRefusedAndNothingWritten)
{
    for (const Build &build : {write1(nullptr), write2(nullptr), write3(nullptr), write12(nullptr, "1"),
                               write12("A", nullptr), write23(nullptr, "1"), write23("1", nullptr)}) {
        Bytes out(16, ucFree);
        uint32_t nLen = nFree;
        EXPECT_EQ(build(out.data(), &nLen), -2);
        EXPECT_EQ(nLen, nFree);
        EXPECT_EQ(out, Bytes(16, ucFree));
    }
}

TEST(StripeCommands, NowhereToPutACommandIsRefused)
{
    for (const Row &row : s_commands) {
        SCOPED_TRACE(row.pszName);
        Bytes out(16, ucFree);
        uint32_t nLen = nFree;
        EXPECT_EQ(row.build(nullptr, &nLen), -2);
        EXPECT_EQ(nLen, nFree);
        EXPECT_EQ(row.build(out.data(), nullptr), -2);
        EXPECT_EQ(out, Bytes(16, ucFree));
    }
}

TEST(StripeCommands, ACommandHoldsAtMost1024BytesAndALongerOneIsRefused)
{
    struct Long {
        const char *pszName;
        std::function<int32_t(const char *, uint8_t *, uint32_t *)> build;
        size_t nRest; // bytes of the command beside the text
    };
    const Long rows[] = {
        {"1", Instr_Msg_GetNtWriteTrack1, 5},
        {"2", Instr_Msg_GetNtWriteTrack2, 5},
        {"3", Instr_Msg_GetNtWriteTrack3, 6},
        {"12, first", [](auto psz, auto p, auto n) { return Instr_Msg_GetNtWriteTrack12(psz, "", p, n); }, 6},
        {"12, second", [](auto psz, auto p, auto n) { return Instr_Msg_GetNtWriteTrack12("", psz, p, n); }, 6},
        {"23, first", [](auto psz, auto p, auto n) { return Instr_Msg_GetNtWriteTrack23(psz, "", p, n); }, 6},
        {"23, second", [](auto psz, auto p, auto n) { return Instr_Msg_GetNtWriteTrack23("", psz, p, n); }, 6},
        {"123, first", [](auto t, auto p, auto n) { return Instr_Msg_GetNtWriteTrack123(t, "", "", p, n); }, 4},
        {"123, second", [](auto t, auto p, auto n) { return Instr_Msg_GetNtWriteTrack123("", t, "", p, n); }, 4},
        {"123, third", [](auto t, auto p, auto n) { return Instr_Msg_GetNtWriteTrack123("", "", t, p, n); }, 4},
        {"separator", Instr_Msg_SetSeparator, 2},
    };
    for (const Long &row : rows) {
        SCOPED_TRACE(row.pszName);
        const std::string sLongest(nRoom - row.nRest, '7');
        Bytes out(nRoom + 64);
        uint32_t nLen = nFree;
        EXPECT_EQ(row.build(sLongest.c_str(), out.data(), &nLen), 0);
        EXPECT_EQ(nLen, nRoom);
        EXPECT_EQ(std::count(out.begin(), out.end(), '7'), static_cast<std::ptrdiff_t>(sLongest.size()));
        EXPECT_EQ(Bytes(out.begin() + nRoom, out.end()), Bytes(64));

        for (size_t nMore : {1U, 2U, 5000U}) {
            out.assign(nRoom + 64, ucFree);
            nLen = nFree;
            EXPECT_EQ(row.build((sLongest + std::string(nMore, '7')).c_str(), out.data(), &nLen), -2);
            EXPECT_EQ(nLen, nFree);
            EXPECT_EQ(out, Bytes(nRoom + 64, ucFree));
        }
    }
}

TEST(StripeCommands, TheTracksOfOneCommandShareThe1024Bytes)
{
    const std::string sHalf(510, '7'), sOneMore(511, '7');
    Bytes out(nRoom + 64);
    uint32_t nLen = nFree;
    EXPECT_EQ(Instr_Msg_GetNtWriteTrack123(sHalf.c_str(), sHalf.c_str(), "", out.data(), &nLen), 0);
    EXPECT_EQ(nLen, nRoom);
    nLen = nFree;
    EXPECT_EQ(Instr_Msg_GetNtWriteTrack123(sHalf.c_str(), nullptr, sOneMore.c_str(), out.data(), &nLen), -2);
    EXPECT_EQ(nLen, nFree);
}

} // namespace
