// devcall.h - what the tests of the JSON call share: every /dev/COM name leads to the pseudo-terminal of the test.
#pragma once

#include "open_reader.h"

#include "qvreader/devcall.h"

#include <string>
#include <vector>

namespace qvtest {

// What the call asks the reader, as a frame.
inline constexpr const char *pszQuestion = "01 30 30 30 32 31 31 30 31 31 30 04";

// The /dev/COM names.
struct ComNames {
    static inline std::string s_sDevice;             // what stands behind every one of them; empty: nothing
    static inline std::vector<std::string> s_opened; // those that were opened
};

class DeviceCall : public ClosedReader, public ComNames {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        s_sDevice = m_peer->path();
        s_opened.clear();
        gEndChar = 0x55;
    }
    void TearDown() override
    {
        EXPECT_EQ(g_AuxFd, -2);
        ClosedReader::TearDown();
    }
    int32_t callWith(const char *pszRequest, const void *pReserved)
    {
        m_out.assign(600, '#');
        m_nOut = 0xC5C5;
        return DEV_CommCall(pszRequest, pReserved, m_out.data(), &m_nOut);
    }
    bool untouched() const { return m_nOut == 0xC5C5 && m_out.find_first_not_of('#') == std::string::npos; }

    std::string m_out = std::string(600, '#');
    uint32_t m_nOut = 0xC5C5;
};

} // namespace qvtest
