// conversation.h - the steps of a host's conversation, checked.
#pragma once

#include "sim_bench.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

namespace qvtest {

// An open reader; closed at the end.
class OpenReader {
  public:
    explicit OpenReader(const SimBench &sim, int nBaud = 9600, const char *pszBox = nullptr)
        : m_nResult(Dev_Rdz_Ic_OpenPort(sim.path().c_str(), reinterpret_cast<const uint8_t *>(pszBox), 1, 0, nBaud))
    {
    }
    ~OpenReader() { Dev_Rdz_Ic_ClosePort(); }
    OpenReader(const OpenReader &) = delete;
    OpenReader &operator=(const OpenReader &) = delete;

    int32_t result() const { return m_nResult; }

  private:
    int32_t m_nResult;
};

struct Answer {
    int32_t nResult;
    std::string sHex; // "3B 00"; empty when nothing was copied
};

inline Answer powerOn(int nSlot, uint32_t nWaitMs = 0, uint32_t nTimeOut = 5)
{
    std::array<uint8_t, 1024> buf{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(nTimeOut);
    int32_t nResult = COMM_Icc_CardReaderPowerOn(nSlot, buf.data(), &nLen, nWaitMs);
    return {nResult, hex(buf.data(), std::min<size_t>(nLen, buf.size()))};
}

// In the current slot, with follow-up.
inline Answer send(std::string_view sHex, uint32_t nTimeOut = 5)
{
    Bytes command = bytes(sHex);
    std::array<uint8_t, 2048> buf{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(nTimeOut);
    int32_t nResult = ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), buf.data(), &nLen);
    return {nResult, hex(buf.data(), std::min<size_t>(nLen, buf.size()))};
}

constexpr char szDebitCreditAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 44 43";
constexpr char szFollowUpAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 46 55";
constexpr char szPurseAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 45 50";

} // namespace qvtest
