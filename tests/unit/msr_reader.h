// msr_reader.h - what the tests of the stripe side share: a scripted reader behind every tty name, what the library does
// to its port, and every process-wide value as a fresh process has it.
#pragma once

#include "device_log.h"
#include "pty_peer.h"

#include "qvreader/msr.h"
#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <termios.h>
#include <vector>

namespace qvtest {

// The port of the library. /dev/ttyS..., /dev/COM... and /dev/stripe... (in any letter case) lead to the pseudo-terminal
// of the test and never to a real tty.
struct StripeCalls {
    static inline PtyPeer *s_pPeer = nullptr;
    static inline bool s_bUnplugged = false;         // nothing stands behind the names
    static inline std::vector<std::string> s_opened; // those that were opened
    static inline std::vector<std::string> s_sent;   // the writes, in hexadecimal
    static inline std::vector<int> s_errors;         // errno of the i-th write, 0: it works
    static inline size_t s_nOnTheLine = 0;
    static inline std::function<void(size_t)> s_afterWrite; // called with the number of the write
    static inline std::function<void()> s_beforeClose;
    static inline std::atomic<int> s_nReads{0}; // begun so far
};

// Frames of the stripe side.
inline std::string stripeFrame(std::string_view sDataHex)
{
    return commandFrame(sDataHex, 0x01, 0x04);
}
inline std::string stripeAnswer(uint32_t nStatus, std::string_view sBodyHex = "")
{
    return replyFrame(nStatus, sBodyHex, 0x01, 0x04);
}

// A text in hexadecimal.
inline std::string textHex(std::string_view sText)
{
    return hex(sText.data(), sText.size());
}

// Success when the log since logOn() begins and ends with the lines of that call and its result. pfnLine: a text as a
// line of the call's layer.
inline testing::AssertionResult loggedWhole(std::string (*pfnLine)(const std::string &), const std::string &sCall,
                                            int32_t nRet)
{
    const std::string sLog = logWithoutTime();
    if (sLog.starts_with(pfnLine("[" + sCall + "] Start ")) &&
        sLog.ends_with(pfnLine("[" + sCall + "] End nRet = " + std::to_string(nRet) + "  ")))
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << sCall << " " << nRet << " in\n" << sLog;
}

// A reader that nobody has opened yet.
class StripePort : public testing::Test, public StripeCalls {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        s_pPeer = &*m_peer;
        s_bUnplugged = false;
        s_opened.clear();
        s_sent.clear();
        s_errors.clear();
        s_nOnTheLine = 0;
        s_afterWrite = nullptr;
        s_beforeClose = nullptr;
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        g_MsgParam = {};
        std::fill(std::begin(g_MsgHid), std::end(g_MsgHid), IcHidId{});
        g_nMsgHidNum = g_bMsgSetHidFlag = g_bOnlyUseSetHid = g_bMsgBaundFlag = 0;
        g_bIsLinuxHidClearZero = 0;
    }
    void TearDown() override
    {
        if (m_bScripted)
            m_peer->finish();
        logOff();
        s_afterWrite = nullptr;
        s_beforeClose = nullptr;
        COMM_Com_CloseLinux();
        s_pPeer = nullptr;
        m_peer.reset();
        g_bMsgBaundFlag = 0;
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    static int32_t open(const char *pszName, uint32_t nBaud = 9600, const char *pszChannel = "", uint32_t nTermType = 0,
                        int32_t nTimeOut = 7)
    {
        return Dev_Rdz_MsgOpenPort(pszName, pszChannel, nBaud, nTermType, nTimeOut);
    }
    static speed_t speed()
    {
        termios now{};
        EXPECT_EQ(tcgetattr(g_AuxFd, &now), 0);
        return cfgetospeed(&now);
    }
    static std::ptrdiff_t countLogged(const std::string &sText)
    {
        auto texts = logTexts();
        return std::count(texts.begin(), texts.end(), sText);
    }

    // ---- the script ----
    // Bytes that the reader takes in silence.
    PtyPeer &takes(std::string_view sHex)
    {
        m_bScripted = true;
        return m_peer->expect(sHex);
    }
    // A bare command and what the reader says to it.
    void says(std::string_view sCommand, std::string_view sReply) { takes(sCommand).reply(sReply); }
    // A framed command and the status word and body that come back.
    void answers(std::string_view sCommand, uint32_t nStatus, std::string_view sBody = "")
    {
        takes(stripeFrame(sCommand)).reply(stripeAnswer(nStatus, sBody));
    }
    // What a reader is told before the card: how the stripe is recorded, and how long it waits.
    void isPrepared(uint8_t ucSeconds, std::string_view sFormat = "1B 3D")
    {
        takes("1B 30 " + std::string(sFormat));
        answers("20 04 " + hex(&ucSeconds, 1), 0);
    }
    // The reader has read these bytes, and says that it succeeded.
    void hasRead(std::string_view sCommand, std::string_view sText)
    {
        says(sCommand, "1B 73 " + textHex(sText) + " 3F 1C");
        says("1B 6A", "70");
    }
    // The head is put back / the head is put back once more.
    void isReset() { takes("1B 30 1B 25 41"); }
    void isResetTwice() { takes("1B 30 1B 25 41 1B 30"); }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    bool m_bScripted = false;
};

// The same, open.
class OpenStripePort : public StripePort {
  protected:
    void SetUp() override
    {
        StripePort::SetUp();
        ASSERT_EQ(open(path()), 0);
        COMM_Rdz_ChageReadTimeOut(60);
    }
};

} // namespace qvtest
