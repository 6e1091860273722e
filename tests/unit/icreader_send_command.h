// icreader_send_command.h - what the tests of the send calls share: a reader, a card in it, the four calls.
#pragma once

#include "failing_writes.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>

namespace qvtest {

class SendCommand : public ClosedReader, public FailingWrites {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        stCardReader.nCardSlot = 7;
        m_out.assign(1100, 0xC5);
        m_nOut = 0xC5C5;
    }
    void TearDown() override
    {
        s_bWritesFail = false;
        ClosedReader::TearDown();
    }
    void open()
    {
        ClosedReader::open();
        stCardReader.nCardSlot = 7;
    }
    void card(std::string_view sSlot, std::string_view sCommand, std::string_view sResponse, uint32_t nStatus = 0)
    {
        m_peer->expect(commandFrame("32 26 " + std::string(sSlot) + " " + std::string(sCommand)))
            .reply(replyFrame(nStatus, sResponse));
    }
    // The command stands in memory of exactly its size.
    int32_t send(const char *pszCardType, std::string_view sCommand, const char *pszPort = nullptr)
    {
        Bytes command = bytes(sCommand);
        auto exact = std::make_unique<uint8_t[]>(command.size());
        std::copy(command.begin(), command.end(), exact.get());
        return Dev_Rdz_Ic_SendCommand(pszPort == nullptr ? path() : pszPort, 1, nullptr, 9600, pszCardType,
                                      static_cast<uint32_t>(command.size()), exact.get(), &m_nOut, m_out.data());
    }
    int32_t sendOnly(const char *pszCardType, std::string_view sCommand)
    {
        Bytes command = bytes(sCommand);
        auto exact = std::make_unique<uint8_t[]>(command.size());
        std::copy(command.begin(), command.end(), exact.get());
        return Dev_Rdz_Ic_SendCommandOnly(pszCardType, static_cast<uint32_t>(command.size()), exact.get(), &m_nOut,
                                          m_out.data());
    }
    int32_t direct(std::string_view sCommand, uint32_t nAwait)
    {
        Bytes command = bytes(sCommand);
        m_nOut = nAwait;
        return Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, static_cast<uint32_t>(command.size()),
                                            command.data(), &m_nOut, m_out.data());
    }
    int32_t onlyDirect(std::string_view sCommand, uint32_t nAwait)
    {
        Bytes command = bytes(sCommand);
        m_nOut = nAwait;
        return Dev_Rdz_Ic_SendCommandOnlyDirect(static_cast<uint32_t>(command.size()), command.data(), &m_nOut,
                                                m_out.data());
    }
    std::string out() const { return hex(std::span(m_out).first(m_nOut)); }

    Bytes m_out;
    uint32_t m_nOut = 0;
};

} // namespace qvtest
