// card_exchange.h - a card behind the exchange slot of stICOp: it keeps what comes, and answers.
#pragma once

#include "app_log.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace qvtest {

// Places in stICOp.
enum Slot : size_t {
    nReserved,
    nOpenSlot,
    nCloseSlot,
    nPowerOnSlot,
    nPowerOnOfSlot,
    nPowerOffSlot,
    nPowerOffOfSlot,
    nExchangeSlot,
    nExchangeOfSlot
};

inline void clearTable()
{
    std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
}

template <typename Function> void *slot(Function *pfn)
{
    return reinterpret_cast<void *>(pfn);
}

class CardExchange : public testing::Test {
  protected:
    void SetUp() override
    {
        clearTable();
        stICOp[nExchangeSlot] = slot(exchange);
        s_sCommand.clear();
        s_nCalls = 0;
        s_nRoom = 0;
        s_nResult = 0;
        s_answer = bytes("11 22 90 00");
        stCardCmdParam.nErrorCode = 0x1234;
        clearOutputs();
    }
    void TearDown() override
    {
        logOff();
        clearTable();
    }
    void clearOutputs()
    {
        m_response.assign(1100, 0xC5);
        m_nLen = 0xC5C5;
    }
    // What the call handed out; a complaint where bytes behind it changed.
    std::string response() const
    {
        if (m_nLen > m_response.size())
            return "length " + std::to_string(m_nLen);
        auto behind = std::span(m_response).subspan(m_nLen);
        if (!std::all_of(behind.begin(), behind.end(), [](uint8_t uc) { return uc == 0xC5; }))
            return "bytes behind the answer changed";
        return hex(std::span(m_response).first(m_nLen));
    }
    bool untouched() const { return m_nLen == 0xC5C5 && m_response == Bytes(1100, 0xC5); }
    // The command since the last look; "none": none came.
    static std::string command() { return std::exchange(s_nCalls, 0) == 0 ? "none" : s_sCommand; }

    static int32_t exchange(const uint8_t *pCommand, uint32_t nLen, uint8_t *pResponse, uint32_t *pnResponse)
    {
        ++s_nCalls;
        s_sCommand = hex(pCommand, nLen);
        s_nRoom = *pnResponse;
        std::copy(s_answer.begin(), s_answer.end(), pResponse);
        *pnResponse = static_cast<uint32_t>(s_answer.size());
        return s_nResult;
    }

    static inline std::string s_sCommand;
    static inline int s_nCalls = 0;
    static inline uint32_t s_nRoom = 0; // what the caller says of its buffer
    static inline int32_t s_nResult = 0;
    static inline Bytes s_answer;
    Bytes m_response;
    uint32_t m_nLen = 0;
};

} // namespace qvtest
