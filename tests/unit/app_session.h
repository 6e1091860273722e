// app_session.h - session calls on a device table that keeps what is called, in order, with a reader behind it.
//
// The clock stands still, so that no read ends by time.
#pragma once

#include "app_log.h"
#include "card_exchange.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icapp.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qvtest {

using Order = std::vector<std::string>;

class Session : public ClosedReader {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        m_clock.emplace(1000000);
        clearTable();
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        stCardReader.nCardSlot = 7;
        s_order.clear();
        s_nOpenResult = s_nCloseResult = 0;
        s_bReader = false;
        s_powerDowns.clear();
        s_statusAfterClosing.reset();
        s_bLogsCalls = false;
    }
    void TearDown() override
    {
        clearTable();
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        m_clock.reset();
        ClosedReader::TearDown();
    }
    // The host's or the kernel's table stands in stICOp.
    static void fillTable()
    {
        stICOp[nOpenSlot] = slot(openDevice);
        stICOp[nCloseSlot] = slot(closeDevice);
        stICOp[nPowerOnSlot] = slot(unused);
        stICOp[nPowerOnOfSlot] = slot(unused);
        stICOp[nPowerOffSlot] = slot(powerDown);
        stICOp[nPowerOffOfSlot] = slot(unused);
        stICOp[nExchangeSlot] = slot(unused);
        stICOp[nExchangeOfSlot] = slot(unused);
    }
    // What was called since the last look.
    static Order order() { return std::exchange(s_order, {}); }
    static std::string opened(const std::string &sPort, const std::string &sParameter = "", int nBaud = 9600)
    {
        return "open " + sPort + "|" + sParameter + "|1|0|" + std::to_string(nBaud);
    }
    static bool portOpen() { return g_AuxFd >= 0; }
    // The line of a close while s_bLogsCalls is set.
    static std::string closeLine() { return "  T  call close\r\n"; }

    static int32_t openDevice(const char *pszPort, const char *pszParameter, uint32_t nType, uint32_t nReserved,
                              int32_t nBaud)
    {
        s_bParameter = pszParameter != nullptr;
        s_order.push_back("open " + std::string(pszPort) + "|" + (pszParameter == nullptr ? "" : pszParameter) + "|" +
                          std::to_string(nType) + "|" + std::to_string(nReserved) + "|" + std::to_string(nBaud));
        if (s_bReader) {
            EXPECT_EQ(Dev_Rdz_Ic_OpenPort(pszPort, nullptr, nType, nReserved, nBaud), 0);
        }
        return s_nOpenResult;
    }
    static int32_t closeDevice()
    {
        s_order.push_back("close");
        if (s_bLogsCalls)
            DPrintLogToFile("call close");
        stRDZ73xx.gStatus = s_statusAfterClosing.value_or(stRDZ73xx.gStatus);
        if (s_bReader)
            Dev_Rdz_Ic_ClosePort();
        return s_nCloseResult;
    }
    // Powers down with the next result, after which the reader's status word stands as given.
    static int32_t powerDown()
    {
        s_order.push_back("off " + std::to_string(stCardReader.nCardSlot));
        if (s_powerDowns.empty())
            return 0;
        auto [nResult, nStatus] = s_powerDowns.front();
        s_powerDowns.erase(s_powerDowns.begin());
        stRDZ73xx.gStatus = nStatus;
        return nResult;
    }
    static int32_t unused()
    {
        s_order.push_back("a slot that no session call uses");
        return -99;
    }

    static inline Order s_order;
    static inline int32_t s_nOpenResult = 0, s_nCloseResult = 0;
    static inline bool s_bParameter = false; // the last opening had one
    static inline bool s_bReader = false;    // opening and closing reach the scripted reader
    static inline std::vector<std::pair<int32_t, uint32_t>> s_powerDowns;
    static inline std::optional<uint32_t> s_statusAfterClosing; // nothing: closing leaves it
    static inline bool s_bLogsCalls = false;                    // closing writes a line of its own into the log
    std::optional<FakeClock> m_clock;
};

} // namespace qvtest
