// Magnetic cards read and written through the library's calls, over a real pseudo-terminal.
#include "sim_bench.h"

#include "qvreader/msr.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

using namespace qvtest;

namespace {

// As the shipped card has them.
constexpr char szTrack1[] = "B6225000011112222^DEMO/CARD^29120000";
constexpr char szTrack2[] = "6225000011112222=29120000";
constexpr char szTrack3[] = "996225000011112222=156";

constexpr int32_t nModes[] = {1, 2, 3, 12, 23, 123};

std::string stripeFile()
{
    return QV_CARDS "/demo.stripe";
}

struct Tracks {
    int32_t nResult = 0;
    std::array<std::string, 3> texts; // "untouched"
    bool operator==(const Tracks &) const = default;
};
void PrintTo(const Tracks &tracks, std::ostream *pOut)
{
    *pOut << tracks.nResult << " {" << tracks.texts[0] << ", " << tracks.texts[1] << ", " << tracks.texts[2] << "}";
}

class LibraryStripe : public testing::Test {
  protected:
    void start(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.begin(), {"--stripe", stripeFile(), "--stripe-final"});
        m_sim.emplace(std::move(arguments));
    }
    Tracks read(int32_t nMode, uint32_t nSeconds = 20, const char *pszChannel = nullptr, int32_t nFormat = 0)
    {
        std::array<std::array<char, 513>, 3> rooms;
        for (auto &room : rooms)
            room.fill('#');
        Tracks tracks;
        tracks.nResult = MSG_QV_ReadData(m_sim->path().c_str(), 9600, pszChannel, nFormat, 0, nMode, nSeconds,
                                         rooms[0].data(), 513, rooms[1].data(), 513, rooms[2].data(), 513);
        for (size_t i = 0; i < 3; ++i)
            tracks.texts[i] = rooms[i][0] == '#' ? "untouched" : rooms[i].data();
        return tracks;
    }
    int32_t write(int32_t nMode, std::string s1, std::string s2, std::string s3, uint32_t nSeconds = 20,
                  int32_t nFormat = 0)
    {
        return MSG_QV_WriteData(m_sim->path().c_str(), 9600, nullptr, nFormat, 0, nMode, nSeconds, s1.data(), s2.data(),
                                s3.data());
    }
    static Tracks expected(int32_t nMode, const char *psz1, const char *psz2, const char *psz3)
    {
        const std::string sMode = std::to_string(nMode);
        auto text = [&](char c, const char *psz) { return sMode.find(c) == sMode.npos ? "untouched" : psz; };
        return {0, {text('1', psz1), text('2', psz2), text('3', psz3)}};
    }
    static Tracks failed(int32_t nResult) { return {nResult, {"untouched", "untouched", "untouched"}}; }

    std::optional<SimBench> m_sim;
};

TEST_F(LibraryStripe, EveryModeReadsItsTracks)
{
    start();
    for (const int32_t nMode : nModes)
        EXPECT_EQ(read(nMode), expected(nMode, szTrack1, szTrack2, szTrack3)) << nMode;
}

TEST_F(LibraryStripe, WithoutAFinalSeparatorTrack3OfAllIsEmpty)
{
    start();
    m_sim->command("stripe final off");
    EXPECT_EQ(read(123), expected(123, szTrack1, szTrack2, ""));
    EXPECT_EQ(read(3), expected(3, "", "", szTrack3));
}

TEST_F(LibraryStripe, EveryModeWritesItsTracksAndNoOther)
{
    for (const int32_t nMode : nModes) {
        SCOPED_TRACE(nMode);
        start();
        EXPECT_EQ(write(nMode, "NEW^1", "22=22", "333?3"), 0);
        const std::string sMode = std::to_string(nMode);
        auto now = [&](char c, const char *pszNew, const char *pszOld) {
            return sMode.find(c) == sMode.npos ? pszOld : pszNew;
        };
        EXPECT_EQ(read(123),
                  expected(123, now('1', "NEW^1", szTrack1), now('2', "22=22", szTrack2), now('3', "333?3", szTrack3)));
    }
}

TEST_F(LibraryStripe, ACardIsReadInTheFormatThatItWasWrittenIn)
{
    start();
    for (const int32_t nFormat : {1, 2, 3, 0}) {
        SCOPED_TRACE(nFormat);
        EXPECT_EQ(write(123, "B1", "22", "33", 20, nFormat), 0);
        for (const int32_t nOther : {0, 1, 2, 3}) {
            EXPECT_EQ(read(2, 20, nullptr, nOther), nOther == nFormat ? expected(2, "", "22", "") : failed(-5));
            EXPECT_EQ(read(123, 20, nullptr, nOther), nOther == nFormat ? expected(123, "B1", "22", "33") : failed(-5));
        }
    }
}

TEST_F(LibraryStripe, TheChannelOfTheHeadMustBeSelected)
{
    start({"--stripe-channel", "C"});
    EXPECT_EQ(read(2, 20, "C").nResult, 0);
    EXPECT_EQ(read(2, 1), failed(-56)); // the last read has left channel A selected
}

TEST_F(LibraryStripe, ACardThatComesLateIsWaitedFor)
{
    start({"--stripe-after", "1200"});
    EXPECT_EQ(read(23, 10), expected(23, "", szTrack2, szTrack3));
    EXPECT_EQ(read(123, 10), expected(123, szTrack1, szTrack2, szTrack3));
    EXPECT_EQ(write(2, "", "22", "", 10), 0);
    EXPECT_EQ(write(123, "1", "2", "3", 10), 0);
}

TEST_F(LibraryStripe, WithoutACardTheTimeRunsOut)
{
    start();
    m_sim->command("stripe none");
    EXPECT_EQ(read(2, 1), failed(-56));
    EXPECT_EQ(read(123, 1), failed(-56));
    m_sim->command("stripe " + stripeFile());
    EXPECT_EQ(read(2), expected(2, "", szTrack2, ""));
}

TEST_F(LibraryStripe, WhatGoesWrongInTheReaderIsTold)
{
    struct Row {
        const char *pszFault;
        int32_t nMode, nRead;
    };
    constexpr Row rows[] = {{"read", 2, -5},   {"read", 123, -5},  {"garbled", 2, -56},
                            {"status", 2, -4}, {"silent", 2, -56}, {"nodata", 123, -9}};
    start();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszFault);
        m_sim->command(std::string("stripe fault ") + row.pszFault);
        EXPECT_EQ(read(row.nMode, row.nRead == -56 ? 1 : 20), failed(row.nRead));
        m_sim->command("stripe fault off");
        EXPECT_EQ(read(row.nMode).nResult, 0);
    }
    m_sim->command("stripe fault write");
    EXPECT_EQ(write(2, "", "22", ""), -6);
    EXPECT_EQ(write(123, "1", "2", "3"), -6);
    m_sim->command("stripe fault off");
    EXPECT_EQ(write(2, "", "22", ""), 0);
}

TEST_F(LibraryStripe, AWaitIsCancelledAndTheNextReadIsWhole)
{
    start({"--stripe-after", "600000"});
    std::atomic<bool> bOver{false};
    std::thread other([&] {
        EXPECT_TRUE(waitUntil([&] { return m_sim->state("waits").has_value(); }));
        // The reader waits; the library's read may not have begun, and a cancel before it is forgotten.
        while (!bOver) {
            EXPECT_EQ(MSG_QV_CancelRead(), 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    });
    const Tracks tracks = read(2, 120);
    bOver = true;
    other.join();
    EXPECT_EQ(tracks, failed(-57));
    m_sim->command("stripe after 0");
    EXPECT_EQ(read(2), expected(2, "", szTrack2, ""));
}

} // namespace
