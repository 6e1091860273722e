// stripe_reader.h - the bytes of the stripe conversations, and a fixture for calls of the track engine.
//
//     every call    [channel] | reset | recording format | read time -> status
//     read 1, 2, 3, 12, 23    command -> track | status? -> "p" | reset | channel A | reset
//     read 123      separator -> status | command -> tracks | reset | channel A | reset
//     write 1, 2, 3, 12, 23   command with the texts | status? -> "p" | reset | channel A
//     write 123     command with the texts -> status | reset | channel A
#pragma once

#include "pty_peer.h"
#include "stripe_line.h"

#include "qvreader/msr.h"
#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace qvtest {

constexpr char szReset[] = "1B 30";
constexpr char szChannelA[] = "1B 25 41";
constexpr char szIso[] = "1B 3D";
constexpr char szStatus[] = "1B 6A";
constexpr char szSucceeded[] = "70";
constexpr char szFailed[] = "71";
constexpr char szReadTime30[] = "01 30 30 30 33 32 30 30 34 31 3E 33 3A 04"; // 20 04 1E
constexpr char szSeparator[] = "01 30 30 30 33 32 30 30 31 37 3C 35 3D 04";  // 20 01 7C
constexpr char szReadAll[] = "01 30 30 30 32 32 30 30 32 32 32 04";          // 20 02
constexpr char szDone[] = "01 30 30 30 32 30 30 30 30 30 30 04";             // status 0000, no body

// The commands that read the tracks.
constexpr char szRead1[] = "1B 72";
constexpr char szRead2[] = "1B 5D";
constexpr char szRead3[] = "1B 54 5D";
constexpr char szRead12[] = "1B 44 5D";
constexpr char szRead23[] = "1B 42 5D";

inline std::string hexOf(std::string_view sText)
{
    return hex(sText.data(), sText.size());
}
inline std::string stripeCommand(std::string_view sHex)
{
    return commandFrame(sHex, 0x01, 0x04);
}
// A reply frame: a status word and a body (a text).
inline std::string stripeReply(uint32_t nStatus, std::string_view sText = "")
{
    return replyFrame(nStatus, hexOf(sText), 0x01, 0x04);
}
// A bare reply: ESC "s", the text, "?" FS.
inline std::string bareReply(std::string_view sText)
{
    return "1B 73 " + hexOf(sText) + " 3F 1C";
}
inline std::string readTime(uint32_t nSeconds)
{
    return stripeCommand("20 04 " + hex(Bytes{static_cast<uint8_t>(nSeconds)}));
}

// Behind the open, for nSeconds and without a channel.
inline StripeScript prepared(uint32_t nSeconds = 30)
{
    return {{szReset}, {szIso}, {readTime(nSeconds), szDone}};
}
inline StripeScript readTail()
{
    return {{szReset}, {szChannelA}, {szReset}};
}
inline StripeScript writeTail()
{
    return {{szReset}, {szChannelA}};
}
// A whole read / write whose middle is this.
inline StripeScript reading(const StripeScript &middle, uint32_t nSeconds = 30)
{
    return prepared(nSeconds) + middle + readTail();
}
inline StripeScript writing(const StripeScript &middle, uint32_t nSeconds = 30)
{
    return prepared(nSeconds) + middle + writeTail();
}

// A host's buffer for a track, filled beforehand.
class TrackRoom {
  public:
    static constexpr char cFill = static_cast<char>(0xC5);

    TrackRoom() { m_room.fill(cFill); }
    char *data() { return m_room.data(); }
    // Success when the first nLen bytes are the text with NULs behind it and the others are as before.
    testing::AssertionResult holds(std::string_view sText, size_t nLen = 513) const
    {
        std::array<char, 700> expected;
        expected.fill(cFill);
        std::fill_n(expected.begin(), nLen, '\0');
        std::copy_n(sText.begin(), std::min(sText.size(), nLen), expected.begin());
        return compare(expected);
    }
    testing::AssertionResult isUntouched() const
    {
        std::array<char, 700> expected;
        expected.fill(cFill);
        return compare(expected);
    }

  private:
    testing::AssertionResult compare(const std::array<char, 700> &expected) const
    {
        for (size_t i = 0; i < m_room.size(); ++i) {
            if (m_room[i] != expected[i])
                return testing::AssertionFailure()
                       << "at " << i << ": " << hex(&m_room[i], 1) << " instead of " << hex(&expected[i], 1)
                       << "; the room begins " << hex(m_room.data(), 40);
        }
        return testing::AssertionSuccess();
    }

    std::array<char, 700> m_room;
};

class StripeReader : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_line.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        g_MsgParam = {};
        g_nMsgHidNum = g_bMsgSetHidFlag = g_bOnlyUseSetHid = g_bMsgBaundFlag = 0;
        g_bIsLinuxHidClearZero = 1;
        g_stStartTime = g_stEndTime = 0;
    }
    void TearDown() override
    {
        logOff();
        finish();
        COMM_Com_CloseLinux();
        m_line.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    void play(const StripeScript &script) { m_line->play(script); }
    // The script was used up, and the port is closed.
    void finish()
    {
        m_line->finish();
        EXPECT_EQ(g_AuxFd, -2) << "the port is open";
    }
    // Opens the port for a call that expects it open, and closes it.
    void open() { ASSERT_EQ(Dev_Rdz_MsgOpenPort(m_line->path(), nullptr, 9600, 0, 30), 0); }

    // MSG_QV_ReadData into fresh rooms of 513 bytes.
    int32_t read(int32_t nMode, uint32_t nSeconds = 30)
    {
        m_rooms = {};
        return MSG_QV_ReadData(m_line->path(), 9600, nullptr, 0, 0, nMode, nSeconds, m_rooms[0].data(), 513,
                               m_rooms[1].data(), 513, m_rooms[2].data(), 513);
    }
    // A conversation of a read, with its result.
    int32_t read(int32_t nMode, const StripeScript &script, uint32_t nSeconds = 30)
    {
        play(script);
        const int32_t nResult = read(nMode, nSeconds);
        finish();
        return nResult;
    }
    // MSG_QV_WriteData of copies of these texts, which are then what became of them; empty optional: null.
    int32_t write(int32_t nMode, const StripeScript &script, uint32_t nSeconds = 30)
    {
        play(script);
        auto text = [](std::optional<std::string> &s) { return s ? s->data() : nullptr; };
        const int32_t nResult = MSG_QV_WriteData(m_line->path(), 9600, nullptr, 0, 0, nMode, nSeconds, text(m_texts[0]),
                                                 text(m_texts[1]), text(m_texts[2]));
        finish();
        return nResult;
    }
    // What the host sees of the text.
    std::string text(size_t nTrack) const { return m_texts[nTrack - 1]->c_str(); }
    const TrackRoom &room(size_t nTrack) const { return m_rooms[nTrack - 1]; }
    bool allUntouched() const { return room(1).isUntouched() && room(2).isUntouched() && room(3).isUntouched(); }

    int m_nDescriptors = 0;
    std::optional<StripeLine> m_line;
    std::array<TrackRoom, 3> m_rooms;
    std::array<std::optional<std::string>, 3> m_texts;
};

} // namespace qvtest
