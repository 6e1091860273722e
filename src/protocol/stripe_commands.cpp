// stripe_commands.cpp - the command bytes of the magnetic-stripe head.
//
//     bare (escape commands)
//       read track     1B 72 (1) | 1B 5D (2) | 1B 54 5D (3) | 1B 44 5D (1 and 2) | 1B 42 5D (2 and 3)
//       write track    1B 77 text 1D 1B 5C (1) | 1B 74 text 1D 1B 5C (2) | 1B 74 41 text 1D 1B 5C (3)
//       write two      1B 77 track 2 41 track 1 1D 1B 5C | 1B 74 track 2 41 track 3 1D 1B 5C
//       status         1B 6A
//       reset          1B 30
//       format         1B 3D (ISO) | 1B 27 (IBM) | 1B 4F (ISO-DK) | 1B 41 (IBM-DK)
//       channel        1B 25 n
//     in the stripe frame 01 ... 04 (group 20)
//       separator      20 01 text
//       read all       20 02
//       write all      20 03 track 1 7C track 2 7C track 3
//       read time      20 04 seconds
//
// In commands for two tracks the reader wants track 2 first, whatever the other one is. A builder only fills the
// caller's buffer; it writes no terminator behind the command.

#include "qvreader/protocol.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr size_t nCommandMax = 1024;   // what a caller's buffer for a write holds
constexpr auto sTail = "\x1D\x1B\\"sv; // ends every escape command that carries a text
constexpr auto sSecondTrack = "A"sv;   // between the tracks of an escape command
constexpr auto sFrameSeparator = "|"sv;

std::string_view textOf(const char *pszText) noexcept
{
    return pszText == nullptr ? std::string_view{} : std::string_view(pszText, strnlen(pszText, nCommandMax + 1));
}

// 0, or -2 when there is nowhere to put the command or it does not fit (nothing is written then).
int32_t put(std::initializer_list<std::string_view> parts, uint8_t *pOut, uint32_t *pnLen) noexcept
{
    if (pOut == nullptr || pnLen == nullptr)
        return RET_PUB_INVAL_PARAM;
    size_t nLen = 0;
    for (std::string_view part : parts)
        nLen += part.size();
    if (nLen > nCommandMax)
        return RET_PUB_INVAL_PARAM;
    for (std::string_view part : parts)
        pOut = std::copy(part.begin(), part.end(), pOut);
    *pnLen = static_cast<uint32_t>(nLen);
    return 0;
}

} // namespace

int32_t Instr_Msg_GetNtReadTrack1(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1Br"sv}, out, outLen);
}

int32_t Instr_Msg_GetNtReadTrack2(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B]"sv}, out, outLen);
}

int32_t Instr_Msg_GetNtReadTrack3(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1BT]"sv}, out, outLen);
}

int32_t Instr_Msg_GetNtReadTrack12(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B"
                "D]"sv},
               out, outLen);
}

int32_t Instr_Msg_GetNtReadTrack23(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B"
                "B]"sv},
               out, outLen);
}

int32_t Instr_Msg_GetNtWriteTrack1(const char *track1, uint8_t *out, uint32_t *outLen) noexcept
{
    return track1 == nullptr ? static_cast<int32_t>(RET_PUB_INVAL_PARAM)
                             : put({"\x1Bw"sv, textOf(track1), sTail}, out, outLen);
}

int32_t Instr_Msg_GetNtWriteTrack2(const char *track2, uint8_t *out, uint32_t *outLen) noexcept
{
    return track2 == nullptr ? static_cast<int32_t>(RET_PUB_INVAL_PARAM)
                             : put({"\x1Bt"sv, textOf(track2), sTail}, out, outLen);
}

int32_t Instr_Msg_GetNtWriteTrack3(const char *track3, uint8_t *out, uint32_t *outLen) noexcept
{
    return track3 == nullptr ? static_cast<int32_t>(RET_PUB_INVAL_PARAM)
                             : put({"\x1BtA"sv, textOf(track3), sTail}, out, outLen);
}

int32_t Instr_Msg_GetNtWriteTrack12(const char *track1, const char *track2, uint8_t *out, uint32_t *outLen) noexcept
{
    if (track1 == nullptr || track2 == nullptr)
        return RET_PUB_INVAL_PARAM;
    const int32_t nRet = put({"\x1Bw"sv, textOf(track2), sSecondTrack, textOf(track1), sTail}, out, outLen);
    // This one takes its length from the destination: what stands there behind the command counts up to the first NUL.
    if (nRet == 0)
        *outLen = static_cast<uint32_t>(strnlen(reinterpret_cast<const char *>(out), nCommandMax));
    return nRet;
}

int32_t Instr_Msg_GetNtWriteTrack23(const char *track2, const char *track3, uint8_t *out, uint32_t *outLen) noexcept
{
    if (track2 == nullptr || track3 == nullptr)
        return RET_PUB_INVAL_PARAM;
    return put({"\x1Bt"sv, textOf(track2), sSecondTrack, textOf(track3), sTail}, out, outLen);
}

int32_t Instr_Msg_GetStatus(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1Bj"sv}, out, outLen);
}

int32_t Instr_Msg_Reset(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B"
                "0"sv},
               out, outLen);
}

int32_t Instr_Msg_SetModeIso(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B="sv}, out, outLen);
}

int32_t Instr_Msg_SetModeIBM(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B'"sv}, out, outLen);
}

int32_t Instr_Msg_SetModeIsoDK(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1BO"sv}, out, outLen);
}

int32_t Instr_Msg_SetModeIBMDK(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x1B"
                "A"sv},
               out, outLen);
}

int32_t Instr_Msg_BP(uint8_t n, uint8_t *out, uint32_t *outLen) noexcept
{
    const std::array<char, 3> select{0x1B, 0x25, static_cast<char>(n)};
    return put({std::string_view(select.data(), select.size())}, out, outLen);
}

int32_t Instr_Msg_SetSeparator(const char *separator, uint8_t *out, uint32_t *outLen) noexcept
{
    if (separator == nullptr || *separator == '\0')
        return RET_PUB_INVAL_PARAM;
    return put({"\x20\x01"sv, textOf(separator)}, out, outLen);
}

int32_t Instr_Msg_GetReadTrack123(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x20\x02"sv}, out, outLen);
}

int32_t Instr_Msg_GetNtWriteTrack123(const char *track1, const char *track2, const char *track3, uint8_t *out,
                                     uint32_t *outLen) noexcept
{
    return put({"\x20\x03"sv, textOf(track1), sFrameSeparator, textOf(track2), sFrameSeparator, textOf(track3)}, out,
               outLen);
}

int32_t Instr_Msg_SetTimeOut(uint8_t seconds, uint8_t *out, uint32_t *outLen) noexcept
{
    // Commands end at their first NUL, so that a read time of 0 goes out as the bare sub-code.
    const std::array<char, 1> text{static_cast<char>(seconds)};
    return put({"\x20\x04"sv, std::string_view(text.data(), seconds == 0 ? 0 : 1)}, out, outLen);
}

int32_t Instr_Msg_GetWriteTrack123(uint8_t *out, uint32_t *outLen) noexcept
{
    return put({"\x20\x03"sv}, out, outLen);
}
