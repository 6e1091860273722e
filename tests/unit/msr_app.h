// msr_app.h - what the tests of the stripe application functions share: buffers that show what was written, and the
// conversations of the single modes.
#pragma once

#include "fake_clock.h"
#include "msr_reader.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

// A track buffer: room behind it, filled, so that everything that was written can be told.
class TrackBuffer {
  public:
    static constexpr char cFree = '#';

    explicit TrackBuffer(size_t nLen = 64) : m_nLen(nLen), m_data(nLen + nBehind, cFree) {}
    char *data() { return m_data.data(); }
    uint32_t length() const { return static_cast<uint32_t>(m_nLen); }
    bool untouched() const { return m_data.find_first_not_of(cFree) == std::string::npos; }
    // The text when it has NULs up to the buffer's length behind it and nothing was written further on.
    std::string text() const
    {
        const std::string sText = m_data.c_str();
        if (sText.size() > m_nLen ||
            m_data != sText + std::string(m_nLen - sText.size(), '\0') + std::string(nBehind, cFree))
            return "not a text with NULs behind it: " + hex(m_data.data(), m_data.size());
        return sText;
    }
    bool cleared() const { return text().empty(); }

  private:
    static constexpr size_t nBehind = 300;

    size_t m_nLen;
    std::string m_data;
};

// A host's call for the tracks of its buffers; a null one is not asked for.
struct TrackBuffers {
    TrackBuffer *p1, *p2, *p3;
};
inline char *dataOf(TrackBuffer *p)
{
    return p == nullptr ? nullptr : p->data();
}
inline uint32_t lengthOf(TrackBuffer *p)
{
    return p == nullptr ? 0 : p->length();
}

// The combinations of tracks: what is asked for (the bits 1, 2 and 4), and its mode; 0: refused.
struct Combination {
    unsigned nTracks;
    int32_t nMode;
};
inline constexpr std::array<Combination, 8> s_combinations{
    {{0, 0}, {1, 1}, {2, 2}, {3, 12}, {4, 3}, {5, 0}, {6, 23}, {7, 123}}};

constexpr const char *pszText1 = "B1^X";
constexpr const char *pszText2 = "22=2";
constexpr const char *pszText3 = "333";

// A line of the stripe application as the log file shows it.
inline std::string appLine(const std::string &sText)
{
    return "  T  INFO:    AppMsg   " + sText + "\r\n";
}

// The clock stands, so that no wait for the scripted reader ends before its answer comes.
class StripeApp : public StripePort {
  protected:
    // The reader answers a read in this mode with the three texts; every mode begins with an open and ends with a close.
    void isRead(int32_t nMode, uint8_t ucSeconds = 5, std::string_view sFormat = "1B 3D")
    {
        const std::string s1 = pszText1, s2 = pszText2, s3 = pszText3;
        isPrepared(ucSeconds, sFormat);
        switch (nMode) {
        case 1: hasRead("1B 72", s1); break;
        case 2: hasRead("1B 5D", s2); break;
        case 3: hasRead("1B 54 5D", "+" + s3); break;
        case 12: hasRead("1B 44 5D", s2 + "A" + s1); break;
        case 23: hasRead("1B 42 5D", s2 + "A" + s3); break;
        default: answers("20 01 7C", 0); answers("20 02", 0, textHex(s1 + "|" + s2 + "|" + s3 + "|"));
        }
        isResetTwice();
    }
    // The reader writes the three texts.
    void isWritten(int32_t nMode, uint8_t ucSeconds = 5, std::string_view sFormat = "1B 3D")
    {
        const std::string s1 = textHex(pszText1), s2 = textHex(pszText2), s3 = textHex(pszText3);
        isPrepared(ucSeconds, sFormat);
        switch (nMode) {
        case 1: says("1B 77" + s1 + "1D 1B 5C 1B 6A", "70"); break;
        case 2: says("1B 74" + s2 + "1D 1B 5C 1B 6A", "70"); break;
        case 3: says("1B 74 41" + s3 + "1D 1B 5C 1B 6A", "70"); break;
        case 12: says("1B 77" + s2 + "41" + s1 + "1D 1B 5C 1B 6A", "70"); break;
        case 23: says("1B 74" + s2 + "41" + s3 + "1D 1B 5C 1B 6A", "70"); break;
        default: answers("20 03" + s1 + "7C" + s2 + "7C" + s3, 0);
        }
        isReset();
    }
    void expectClosed() const { EXPECT_EQ(g_AuxFd, -2); }
    // What the library was asked to open last, and how.
    static void expectRecord(const char *pszTty, uint32_t nBaud, int32_t nTimeOut)
    {
        EXPECT_EQ(g_MsgParam.nType, 1U);
        EXPECT_EQ(g_MsgParam.nTermType, 0U);
        EXPECT_STREQ(g_MsgParam.szTermPath, pszTty);
        EXPECT_EQ(g_MsgParam.nBaud, nBaud);
        EXPECT_EQ(g_MsgParam.nTimeOut, nTimeOut);
    }

    FakeClock m_clock{localSeconds(2026, 7, 14)};
};

} // namespace qvtest
