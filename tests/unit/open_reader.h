// open_reader.h - fixtures for calls on a reader: a scripted peer, every process-wide value as a fresh process has it,
// the port closed or open.
#pragma once

#include "pty_peer.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace qvtest {

// A reader that nobody has opened yet.
class ClosedReader : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        g_sParam = {};
        stCardReader = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = g_bIcBaundFlag = g_useBpBox = 0;
        g_nPowerOnTimeout = 0;
    }
    void TearDown() override
    {
        m_peer->finish();
        logOff();
        g_bIcBaundFlag = g_useBpBox = 0;
        stCardReader.nReaderMode = 0;
        Dev_Rdz_Ic_ClosePort();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    // Opens the port; a read may then last 60 seconds.
    void open()
    {
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(path(), nullptr, 1, 0, 9600), 0);
        COMM_Rdz_ChageReadTimeOut(60);
    }
    // The next command must have these data; the reader answers with a status word and a body.
    void answer(std::string_view sCommand, uint32_t nStatus, std::string_view sBody = "")
    {
        m_peer->expect(commandFrame(sCommand)).reply(replyFrame(nStatus, sBody));
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
};

class OpenReader : public ClosedReader {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        open();
    }
};

} // namespace qvtest
