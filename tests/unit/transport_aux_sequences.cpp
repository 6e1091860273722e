// The sequences that switch a terminal's aux port on and off: every family, port and speed, byte by byte.

#include "harness.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

using namespace qvtest;

namespace {

constexpr size_t nRoom = 64; // what the header asks for
constexpr uint8_t ucGuard = 0xC5;

// What a builder writes, its NUL left out. Fails the test when the result is not 0, the NUL is missing, or a byte behind
// it was touched.
template <typename Builder> std::string built(Builder build)
{
    std::array<char, nRoom + 8> out;
    std::memset(out.data(), ucGuard, out.size());
    EXPECT_EQ(build(out.data()), 0);
    const size_t nLen = strnlen(out.data(), nRoom);
    EXPECT_LT(nLen, nRoom);
    for (size_t i = nLen + 1; i < out.size(); ++i)
        EXPECT_EQ(static_cast<uint8_t>(out[i]), ucGuard) << i;
    return hex(out.data(), nLen);
}

struct Row {
    uint32_t nKey;
    const char *pszHex;
};

constexpr Row starSpeeds[] = {
    {9600, "30"},     {4800, "31"},     {2400, "32"},      {1200, "33"},       {600, "35"},   {300, "36"},
    {19200, "31 30"}, {38400, "31 31"}, {115200, "31 32"}, {230400, "38"},     {57600, "30"}, {460800, "30"},
    {110, "30"},      {0, "30"},        {9601, "30"},      {UINT32_MAX, "30"},
};
constexpr Row starPorts[] = {
    {1, "59"}, {2, "5A"}, {3, "58"}, {4, "56"}, {0, "59"}, {5, "59"}, {7, "59"}, {255, "59"}, {UINT32_MAX, "59"},
};
constexpr Row ggSpeeds[] = {
    {9600, "38"},  {4800, "37"},   {2400, "36"},  {1200, "35"},   {600, "34"}, {300, "33"},  {19200, "39"},
    {38400, "38"}, {115200, "38"}, {57600, "38"}, {230400, "38"}, {0, "38"},   {9601, "38"}, {UINT32_MAX, "38"},
};
constexpr Row ggPorts[] = {
    {1, "31"}, {2, "32"}, {3, "33"}, {4, "34"}, {0, "31"}, {5, "31"}, {7, "31"}, {10, "31"}, {UINT32_MAX, "31"},
};
constexpr Row gwPorts[] = {
    {1, "1B 5B 30 3E"}, {2, "1B 5B 31 3E"}, {3, "1B 5B 32 3E"}, {4, "1B 5B 33 3E"},          {0, "1B 5B 30 3E"},
    {5, "1B 5B 30 3E"}, {7, "1B 5B 30 3E"}, {9, "1B 5B 30 3E"}, {UINT32_MAX, "1B 5B 30 3E"},
};
constexpr Row wysePorts[] = {
    {1, "1B 21 34 35 3B 31 6D 1B 21 62"},          {2, "1B 21 35 34 3B 31 6D 1B 21 62"},
    {3, "1B 21 36 30 3B 31 6D 1B 21 62"},          {4, "1B 21 34 35 3B 31 6D 1B 21 62"},
    {0, "1B 21 34 35 3B 31 6D 1B 21 62"},          {5, "1B 21 34 35 3B 31 6D 1B 21 62"},
    {7, "1B 21 34 35 3B 31 6D 1B 21 62"},          {45, "1B 21 34 35 3B 31 6D 1B 21 62"},
    {UINT32_MAX, "1B 21 34 35 3B 31 6D 1B 21 62"},
};

TEST(AuxSequences, AStarOpensWithItsSpeedCodeAndPortLetter)
{
    for (const Row &port : starPorts)
        for (const Row &speed : starSpeeds) {
            SCOPED_TRACE(std::to_string(port.nKey) + " " + std::to_string(speed.nKey));
            EXPECT_EQ(built([&](char *psz) { return Star_GetOpenAuxCmd(port.nKey, speed.nKey, psz); }),
                      std::string("1B 21 ") + speed.pszHex + " 3B 30 3B 30 3B 30 " + port.pszHex +
                          " 1B 5B 2F 35 34 6C 1B 5B 2F 35 33 68 1B 5B 2F 35 30 68");
        }
}

TEST(AuxSequences, AStarsSecondPortAt115200IsOpenedByThisText)
{
    EXPECT_EQ(built([](char *psz) { return Star_GetOpenAuxCmd(2, 115200, psz); }),
              hex(textBytes("\x1B!12;0;0;0Z\x1B[/54l\x1B[/53h\x1B[/50h")));
}

TEST(AuxSequences, AGgOpensWithItsPortAndSpeedCode)
{
    for (const Row &port : ggPorts)
        for (const Row &speed : ggSpeeds) {
            SCOPED_TRACE(std::to_string(port.nKey) + " " + std::to_string(speed.nKey));
            EXPECT_EQ(built([&](char *psz) { return GG_GetOpenAuxCmd(port.nKey, speed.nKey, psz); }),
                      std::string("1B 5B 2F ") + port.pszHex + " 3B 31 3B " + speed.pszHex + " 3B 33 3B 31 3B 30 4D");
        }
}

TEST(AuxSequences, AGgsSeventhPortIsItsFirst)
{
    EXPECT_EQ(built([](char *psz) { return GG_GetOpenAuxCmd(7, 9600, psz); }), hex(textBytes("\x1B[/1;1;8;3;1;0M")));
}

TEST(AuxSequences, AGwOpensWithItsPortLessOne)
{
    for (const Row &row : gwPorts) {
        SCOPED_TRACE(row.nKey);
        EXPECT_EQ(built([&](char *psz) { return GW_GetOpenAuxCmd(row.nKey, psz); }), row.pszHex);
    }
}

TEST(AuxSequences, AWyseOpensWithTheCodeOfItsPort)
{
    for (const Row &row : wysePorts) {
        SCOPED_TRACE(row.nKey);
        EXPECT_EQ(built([&](char *psz) { return WYSE_GetOpenAuxCmd(row.nKey, psz); }), row.pszHex);
    }
    EXPECT_EQ(built([](char *psz) { return WYSE_GetOpenAuxCmd(3, psz); }), hex(textBytes("\x1B!60;1m\x1B!b")));
}

TEST(AuxSequences, EachFamilyClosesInItsOwnWay)
{
    EXPECT_EQ(built(Star_GetClosAuxCmd), "1B 5B 2F 35 31 6C 1B 5B 2F 35 30 6C");
    EXPECT_EQ(built(GW_GetCloseAuxCmd), "1B 5B 3C");
    EXPECT_EQ(built(GG_GetCloseAuxCmd), "1B 5B 2F 4D");
    EXPECT_EQ(built(WYSE_GetCloseAuxCmd), "1B 21 50");
}

TEST(AuxSequences, ANullBufferIsRefused)
{
    EXPECT_EQ(Star_GetOpenAuxCmd(1, 9600, nullptr), -2);
    EXPECT_EQ(GG_GetOpenAuxCmd(1, 9600, nullptr), -2);
    EXPECT_EQ(GW_GetOpenAuxCmd(1, nullptr), -2);
    EXPECT_EQ(WYSE_GetOpenAuxCmd(1, nullptr), -2);
    EXPECT_EQ(Star_GetClosAuxCmd(nullptr), -2);
    EXPECT_EQ(GG_GetCloseAuxCmd(nullptr), -2);
    EXPECT_EQ(GW_GetCloseAuxCmd(nullptr), -2);
    EXPECT_EQ(WYSE_GetCloseAuxCmd(nullptr), -2);
}

TEST(AuxSequences, TheStateIsZeroAtLoadAndNoBuilderChangesIt)
{
    built([](char *psz) { return GG_GetOpenAuxCmd(2, 300, psz); });
    built([](char *psz) { return Star_GetOpenAuxCmd(2, 300, psz); });
    const AuxOp empty{};
    EXPECT_EQ(std::memcmp(&g_AuxOp, &empty, sizeof empty), 0);
    EXPECT_EQ(g_AuxFd, -2);
}

} // namespace
