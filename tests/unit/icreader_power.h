// icreader_power.h - what the tests of card power share: an open reader, a clock that stands, room for an ATR.
//
// The clock stands still, so that the time-out a call sets can be read from the state record after its last read.
#pragma once

#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <optional>

namespace qvtest {

class CardPower : public OpenReader {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
        g_nPowerOnModule = 9;
        m_clock.emplace(1000000);
        m_atr.assign(600, 0xC5);
        m_nAtr = 0xC5C5;
    }
    void TearDown() override
    {
        m_clock.reset();
        OpenReader::TearDown();
    }
    std::string atr() const { return hex(std::span(m_atr).first(m_nAtr)); }
    int32_t byType(char c) { return Dev_Rdz_IccPowerOn(static_cast<uint8_t>(c), m_atr.data(), &m_nAtr); }

    std::optional<FakeClock> m_clock;
    Bytes m_atr;
    uint32_t m_nAtr = 0;
};

} // namespace qvtest
