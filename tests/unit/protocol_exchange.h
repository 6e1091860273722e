// protocol_exchange.h - what the tests of commands and replies share: an open line below the reader, end conditions.
#pragma once

#include "pty_peer.h"

#include "qvreader/protocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace qvtest {

inline int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

inline int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

inline int32_t endsWithEot(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x04 ? 0 : -1;
}

inline int32_t endsWithZero(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x00 ? 0 : -1;
}

// Bytes counting up, without the end byte 0x03.
inline Bytes counted(size_t nLen)
{
    Bytes data(nLen);
    for (size_t i = 0; i < nLen; ++i)
        data[i] = static_cast<uint8_t>(i % 200 + 5);
    return data;
}

class Exchange : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        TransPortParam param = record();
        ASSERT_EQ(COMM_Rdz_OpenReader(&param), 0);
        m_buf.assign(5200, 0xC5);
    }
    void TearDown() override
    {
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    TransPortParam record() const
    {
        TransPortParam param{};
        param.nType = 1;
        param.nBaud = 9600;
        param.nTimeOut = 30;
        param.pfnEndCondition = endsWithEtx;
        std::strncpy(param.szTermPath, m_peer->path().c_str(), sizeof param.szTermPath - 1);
        return param;
    }
    int32_t exchange(std::string_view sCommand, uint32_t nMax = 1024, uint32_t bParse = 1, uint8_t ucHead = 2,
                     uint8_t ucEnd = 3)
    {
        Bytes command = bytes(sCommand);
        return COMM_Rdz_SendAndReciveData(bParse, ucHead, ucEnd, command.data(), static_cast<uint32_t>(command.size()),
                                          m_buf.data(), nMax);
    }
    int32_t writeTo(uint8_t ucHead, uint8_t ucEnd, const Bytes &data)
    {
        return COMM_Rdz_WriteDataToReader(ucHead, ucEnd, data.data(), static_cast<uint32_t>(data.size()));
    }
    // Sends a reply on its own and reads it.
    int32_t readReply(std::string_view sReply, uint32_t bParse, uint8_t ucHead, uint8_t ucEnd, uint32_t nMax = 1024)
    {
        m_peer->send(sReply);
        return COMM_Rdz_ReadDataFromReader(bParse, ucHead, ucEnd, m_buf.data(), nMax);
    }
    std::string buffer(size_t nLen) const { return hex(m_buf.data(), nLen); }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    Bytes m_buf;
};

} // namespace qvtest
