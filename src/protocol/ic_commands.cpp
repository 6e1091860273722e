// ic_commands.cpp - the command bytes of the IC side.
//
//     power on         32 22 T T slot | 32 24 T T (antenna)
//     power off        32 23 slot     | 32 25 00 00 (antenna)
//     APDU             32 26 slot C-APDU
//     card status      32 21 slot     | 32 24 V V (antenna)
//     which card       32 30 T T      | 32 32 T T kind
//     LEDs             11 11 state    | 11 14 a b
//     buzzer           80 15 D D n
//     module reset     1B 30 (unframed)
//     reader's speed   1B 25 49 C (unframed)
//
// Two-byte numbers are big-endian. A builder only fills the caller's buffer.

#include "log.h"
#include "qvreader/protocol.h"

#include <algorithm>
#include <array>
#include <initializer_list>

namespace {

constexpr int32_t nSlotMax = 31; // 0 to 15 contact, 16 to 31 PSAM
constexpr int32_t nSlotAntenna = 255;

bool isSlot(int32_t nSlot) noexcept
{
    return nSlot >= 0 && nSlot <= nSlotMax;
}

constexpr uint8_t high(uint32_t n) noexcept
{
    return static_cast<uint8_t>(n >> 8);
}
constexpr uint8_t low(uint32_t n) noexcept
{
    return static_cast<uint8_t>(n);
}
constexpr uint8_t high(int32_t n) noexcept
{
    return high(static_cast<uint32_t>(n));
}
constexpr uint8_t low(int32_t n) noexcept
{
    return low(static_cast<uint32_t>(n));
}

int32_t put(std::initializer_list<uint8_t> command, uint8_t *pOut, uint32_t *pnLen) noexcept
{
    if (pOut == nullptr || pnLen == nullptr)
        return RET_PUB_FAIL;
    std::copy(command.begin(), command.end(), pOut);
    *pnLen = static_cast<uint32_t>(command.size());
    return 0;
}

struct SpeedRow {
    uint32_t nBaud;
    uint8_t ucCode;
};
constexpr std::array<SpeedRow, 3> s_speeds{{{38400, '2'}, {19200, '3'}, {9600, '4'}}};
constexpr uint8_t ucSpeedOther = '1'; // 115200

uint8_t speedCharacter(uint32_t nBaud) noexcept
{
    const auto row = std::find_if(s_speeds.begin(), s_speeds.end(), [=](const auto &r) { return r.nBaud == nBaud; });
    return row == s_speeds.end() ? ucSpeedOther : row->ucCode;
}

} // namespace

int32_t INSTR_Ic_RDZPowerOnCmd(int32_t nSlot, uint32_t nTimeOut, uint8_t *out, uint32_t *outLen) noexcept
{
    QV_LOG(qv::kLogCommDev, "[%s] Start ", __func__);
    if (nSlot == nSlotAntenna)
        return put({0x32, 0x24, high(nTimeOut), low(nTimeOut)}, out, outLen);
    if (isSlot(nSlot))
        return put({0x32, 0x22, high(nTimeOut), low(nTimeOut), low(nSlot)}, out, outLen);
    QV_LOG(qv::kLogInstr, " Card Slot Err");
    return RET_PUB_FAIL;
}

int32_t INSTR_Ic_RDZPowerOffCmd(int32_t nSlot, uint8_t *out, uint32_t *outLen) noexcept
{
    if (nSlot == nSlotAntenna)
        return put({0x32, 0x25, 0x00, 0x00}, out, outLen);
    return isSlot(nSlot) ? put({0x32, 0x23, low(nSlot)}, out, outLen) : static_cast<int32_t>(RET_PUB_FAIL);
}

int32_t INSTR_Ic_RDZAPDUCmd(int32_t nSlot, uint8_t *out, uint32_t *outLen) noexcept
{
    QV_LOG(qv::kLogInstr, "[%s] Start ", __func__);
    if (isSlot(nSlot) || nSlot == nSlotAntenna)
        return put({0x32, 0x26, low(nSlot)}, out, outLen);
    return put({0x32, 0x26}, out, outLen);
}

int32_t INSTR_Ic_CheckCardStatus(int32_t nSlot, uint8_t *out, uint32_t *outLen, int32_t nValue) noexcept
{
    if (out == nullptr || outLen == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (nSlot == nSlotAntenna)
        return put({0x32, 0x24, high(nValue), low(nValue)}, out, outLen);
    return isSlot(nSlot) ? put({0x32, 0x21, low(nSlot)}, out, outLen) : static_cast<int32_t>(RET_PUB_INVAL_PARAM);
}

int32_t INSTR_Ic_MulModuleStatus(int32_t nTimeOut, uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x32, 0x30, high(nTimeOut), low(nTimeOut)}, out, outLen);
}

int32_t INSTR_Ic_MulModuleComStatus(uint8_t ucKind, uint32_t nTimeOut, uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x32, 0x32, high(nTimeOut), low(nTimeOut), ucKind}, out, outLen);
}

int32_t INSTR_Ic_SetLEDStatus(uint8_t ucState, uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x11, 0x11, ucState}, out, outLen);
}

int32_t INSTR_Ic_SetLEDStatusEx(uint8_t a, uint8_t b, uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x11, 0x14, a, b}, out, outLen);
}

int32_t INSTR_Ic_SetBeepStatus(int32_t d, uint8_t n, uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x80, 0x15, high(d), low(d), n}, out, outLen);
}

int32_t Instr_IcMudle_Reset(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({0x1B, 0x30}, out, outLen);
}

int32_t INSTR_Rdz_BpsDeviceCom(uint32_t, uint32_t nBaud, uint32_t *escape, uint8_t *) noexcept
{
    if (escape == nullptr)
        return RET_PUB_FAIL;
    uint32_t nLen = 0;
    put({0x1B, 0x25, 0x49, speedCharacter(nBaud)}, reinterpret_cast<uint8_t *>(escape), &nLen);
    return static_cast<int32_t>(nLen);
}
