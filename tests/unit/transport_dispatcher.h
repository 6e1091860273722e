// transport_dispatcher.h - what the tests of the dispatcher share: a scripted serial port, both layers, end conditions.
#pragma once

#include "dispatcher_layers.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cstring>
#include <optional>

namespace qvtest {

inline int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

inline int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

class Dispatcher : public testing::TestWithParam<const Layer *> {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
    }
    void TearDown() override
    {
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const Layer &layer() const { return *GetParam(); }
    TransPortParam record() const
    {
        TransPortParam param{};
        param.nWord1 = 170;
        param.nType = 1;
        param.nTermType = 1;
        param.nBaud = 9600;
        param.nTimeOut = 3;
        param.pfnEndCondition = endsWithEtx;
        std::strncpy(param.szTermPath, m_peer->path().c_str(), sizeof param.szTermPath - 1);
        return param;
    }
    void open()
    {
        TransPortParam param = record();
        ASSERT_EQ(layer().open(&param), 0);
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
};

inline void expectState(const BackUpParam &is, int32_t nTimeOut, EndConditionFn end, uint32_t nType,
                        uint32_t bAuxPrefix, int32_t nAuxMode)
{
    EXPECT_EQ(is.nTimeOut, nTimeOut);
    EXPECT_EQ(is.pfnEndCondition, end);
    EXPECT_EQ(is.nType, nType);
    EXPECT_EQ(is.bAuxPrefix, bAuxPrefix);
    EXPECT_EQ(is.nAuxMode, nAuxMode);
}

} // namespace qvtest
