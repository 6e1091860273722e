// peripherals.cpp - LEDs, buzzer, device record, module reset.
//
// All but the reset travel in peripheral frames (head 0x01, end 0x04). What the bytes mean to LEDs and buzzer is the
// reader firmware's affair; they go through as the host gave them.

#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>
#include <span>

using qv::kLogCommDev;

namespace {

constexpr uint8_t ucHead = 0x01;
constexpr uint8_t ucEnd = 0x04;
constexpr size_t nLedReplySize = 128;

int32_t exchangePeripheral(std::span<const uint8_t> command, std::span<uint8_t> reply) noexcept
{
    return COMM_Rdz_SendAndReciveData(1, ucHead, ucEnd, command.data(), static_cast<uint32_t>(command.size()),
                                      reply.data(), static_cast<uint32_t>(reply.size()));
}

// A failure comes back as 1 here, not as a negative code.
int32_t exchangeLed(std::span<const uint8_t> command) noexcept
{
    std::array<uint8_t, nLedReplySize> reply;
    return exchangePeripheral(command, reply) < 0 ? 1 : 0;
}

} // namespace

int32_t COMM_Icc_SetLEDStatus(uint8_t ucState) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_SetLEDStatus(ucState, command.data(), &nLen);
    return exchangeLed(std::span(command).first(nLen));
}

int32_t COMM_Icc_SetLEDStatusEx(uint8_t a, uint8_t b) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_SetLEDStatusEx(a, b, command.data(), &nLen);
    return exchangeLed(std::span(command).first(nLen));
}

int32_t COMM_Icc_SetBeepStatus(int32_t d, uint8_t n) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_SetBeepStatus(d, n, command.data(), &nLen);
    std::array<uint8_t, qv::nReplySize> reply;
    const int32_t nRecvLen = exchangePeripheral(std::span(command).first(nLen), reply);
    QV_LOG(kLogCommDev, "READ DATA LEN %d", nRecvLen);
    if (qv::logIsOn())
        for (int32_t i = 0; i < nRecvLen; ++i)
            QV_LOG(kLogCommDev, "READ DATA %x", reply[static_cast<size_t>(i)]);
    return nRecvLen < 1 ? static_cast<int32_t>(RET_PUB_FAIL) : 0;
}

int32_t COMM_Icc_GetDeviceInfo(uint8_t *out) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    if (out == nullptr)
        return RET_PUB_FAIL;
    constexpr std::array<uint8_t, 2> command{0x11, 0x01};
    std::array<uint8_t, qv::nReplySize> reply;
    const int32_t nRecvLen = exchangePeripheral(command, reply);
    if (nRecvLen < 1)
        return RET_PUB_FAIL;
    std::copy_n(reply.begin(), nRecvLen, out);
    return 0;
}

int32_t COMM_IC_MulModuleReset(void) noexcept
{
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    Instr_IcMudle_Reset(command.data(), &nLen);
    const int32_t nRet = COMM_Rdz_WriteDataToReader(0, 0, command.data(), nLen);
    if (nRet < 0)
        return nRet;
    COMM_Rdz_Cancel();
    return 0;
}
