// open_reader.h - a fixture for calls on an open reader: a scripted peer, the port open, every process-wide value as a
// fresh process has it.
#pragma once

#include "pty_peer.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <optional>
#include <string_view>

namespace qvtest {

class OpenReader : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        g_bIcBaundFlag = 0;
        g_nPowerOnTimeout = 0;
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort(m_peer->path().c_str(), nullptr, 1, 0, 9600), 0);
        COMM_Rdz_ChageReadTimeOut(60);
    }
    void TearDown() override
    {
        m_peer->finish();
        logOff();
        stCardReader.nReaderMode = 0;
        Dev_Rdz_Ic_ClosePort();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    // The next command must have these data; the reader answers with a status word and a body.
    void answer(std::string_view sCommand, uint32_t nStatus, std::string_view sBody = "")
    {
        m_peer->expect(commandFrame(sCommand)).reply(replyFrame(nStatus, sBody));
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
};

} // namespace qvtest
