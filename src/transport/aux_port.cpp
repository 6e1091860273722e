// aux_port.cpp - a reader that is plugged into the aux port of the thin-client terminal.
//
// The library stands on the host behind the terminal's connection; the terminal device of standard output leads to it.
// An escape sequence switches the terminal's aux port on, another one off. Two families want every write between a
// prefix and a suffix, so that the terminal can tell the reader's bytes from its screen's. Replies come in as they are,
// by the serial port's read on the same descriptor; so does a cancel.
//
//     family   open                                          prefix      suffix      close
//     Star     ESC !b;0;0;0c ESC [/54l ESC [/53h ESC [/50h   ESC [/51h   ESC [/51l   ESC [/51l ESC [/50l
//     GW       ESC [p>                                       -           -           ESC [<
//     GG       ESC [/p;1;g;3;1;0M                            ESC [/|     |           ESC [/M
//     WYSE     ESC !w;1m ESC !b                              -           -           ESC !P

#include "log.h"
#include "qvreader/support.h"
#include "qvreader/transport.h"
#include "serial_port.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>
#include <unistd.h>

using qv::kLogCommDev;
using qv::portFd;

AuxOp g_AuxOp = {};

namespace {

constexpr size_t nCommandSize = 64; // of every sequence, with its NUL

constexpr std::string_view sKeepScreen = "\x1B[2h";    // in front of the open sequence where the flag asks for it
constexpr std::string_view sReleaseScreen = "\x1B[2l"; // behind the close sequence

enum TermType : uint32_t { kStar = 1, kGw = 2, kGg = 3, kWyse = 5 };

// ---- tables ----

template <typename Value> struct Row {
    uint32_t nKey;
    Value value;
};

template <typename Value, size_t nRows>
constexpr Value find(const std::array<Row<Value>, nRows> &rows, uint32_t nKey, Value other) noexcept
{
    for (const Row<Value> &row : rows)
        if (row.nKey == nKey)
            return row.value;
    return other;
}

constexpr std::array<Row<int>, 10> s_starSpeeds{{
    {9600, 0},
    {4800, 1},
    {2400, 2},
    {1200, 3},
    {600, 5},
    {300, 6},
    {19200, 10},
    {38400, 11},
    {115200, 12},
    {230400, 8},
}};
constexpr int nStarSpeedOther = 0;

constexpr std::array<Row<char>, 4> s_starPorts{{{1, 'Y'}, {2, 'Z'}, {3, 'X'}, {4, 'V'}}};
constexpr char cStarPortOther = 'Y';

constexpr std::array<Row<int>, 9> s_ggSpeeds{{
    {9600, 8},
    {4800, 7},
    {2400, 6},
    {1200, 5},
    {600, 4},
    {300, 3},
    {19200, 9},
    {38400, 8},
    {115200, 8},
}};
constexpr int nGgSpeedOther = 8;

constexpr std::array<Row<int>, 4> s_wysePorts{{{1, 45}, {2, 54}, {3, 60}, {4, 45}}};
constexpr int nWysePortOther = 45;

// Terminals have ports 1 to 4; any other number means the first.
constexpr uint32_t knownPort(uint32_t nPort) noexcept
{
    return nPort >= 1 && nPort <= 4 ? nPort : 1;
}

struct Family {
    uint32_t nTermType;
    int32_t (*getOpen)(uint32_t nPort, uint32_t nBaud, char *pszOut) noexcept;
    int32_t (*getClose)(char *pszOut) noexcept;
    std::string_view sPrefix;
    std::string_view sSuffix;
};

constexpr std::array<Family, 4> s_families{{
    {kStar, Star_GetOpenAuxCmd, Star_GetClosAuxCmd, "\x1B[/51h", "\x1B[/51l"},
    {kGw, [](uint32_t nPort, uint32_t, char *pszOut) noexcept { return GW_GetOpenAuxCmd(nPort, pszOut); },
     GW_GetCloseAuxCmd, "", ""},
    {kGg, GG_GetOpenAuxCmd, GG_GetCloseAuxCmd, "\x1B[/|", "|"},
    {kWyse, [](uint32_t nPort, uint32_t, char *pszOut) noexcept { return WYSE_GetOpenAuxCmd(nPort, pszOut); },
     WYSE_GetCloseAuxCmd, "", ""},
}};

// A terminal of an unknown type is taken for a Star.
const Family &familyOf(uint32_t nTermType) noexcept
{
    for (const Family &family : s_families)
        if (family.nTermType == nTermType)
            return family;
    return s_families[0];
}

// ---- helpers ----

// Writes a sequence and its NUL into the caller's buffer.
QV_PRINTF(2, 3) int32_t give(char *pszOut, const char *pszFormat, ...) noexcept
{
    if (pszOut == nullptr)
        return RET_PUB_INVAL_PARAM;
    va_list args;
    va_start(args, pszFormat);
    std::vsnprintf(pszOut, nCommandSize, pszFormat, args);
    va_end(args);
    return 0;
}

// Nobody looks at how the sending of a sequence ends: a write of data that follows shows it.
void send(std::string_view sSequence) noexcept
{
    QV_SendDataToTransPort(sSequence.data(), static_cast<int32_t>(sSequence.size()));
}

void sendLogged(const char *pszTitle, std::string_view sSequence) noexcept
{
    DPrintDataHexToFile(pszTitle, reinterpret_cast<const uint8_t *>(sSequence.data()),
                        static_cast<int32_t>(sSequence.size()));
    send(sSequence);
}

void keep(std::string_view sText, std::span<char> buffer, int32_t &nLen) noexcept
{
    std::fill(buffer.begin(), buffer.end(), '\0');
    nLen = static_cast<int32_t>(sText.copy(buffer.data(), buffer.size() - 1));
}

// A host can write g_AuxOp; what it says about a length holds within the buffer only.
std::string_view kept(std::span<const char> buffer, int32_t nLen) noexcept
{
    return {buffer.data(), std::min(static_cast<size_t>(std::max(nLen, 0)), buffer.size())};
}

} // namespace

// ---- sequences ----

int32_t Star_GetOpenAuxCmd(uint32_t port, uint32_t baud, char *out) noexcept
{
    return give(out, "\x1B!%d;0;0;0%c\x1B[/54l\x1B[/53h\x1B[/50h", find(s_starSpeeds, baud, nStarSpeedOther),
                find(s_starPorts, port, cStarPortOther));
}

int32_t Star_GetClosAuxCmd(char *out) noexcept
{
    return give(out, "\x1B[/51l\x1B[/50l");
}

int32_t GG_GetOpenAuxCmd(uint32_t port, uint32_t baud, char *out) noexcept
{
    return give(out, "\x1B[/%u;1;%d;3;1;0M", knownPort(port), find(s_ggSpeeds, baud, nGgSpeedOther));
}

int32_t GG_GetCloseAuxCmd(char *out) noexcept
{
    return give(out, "\x1B[/M");
}

int32_t GW_GetOpenAuxCmd(uint32_t port, char *out) noexcept
{
    return give(out, "\x1B[%u>", knownPort(port) - 1);
}

int32_t GW_GetCloseAuxCmd(char *out) noexcept
{
    return give(out, "\x1B[<");
}

int32_t WYSE_GetOpenAuxCmd(uint32_t port, char *out) noexcept
{
    return give(out, "\x1B!%d;1m\x1B!b", find(s_wysePorts, port, nWysePortOther));
}

int32_t WYSE_GetCloseAuxCmd(char *out) noexcept
{
    return give(out, "\x1B!P");
}

// ---- open, write, read, close ----

int32_t SetAuxFd(int32_t fd) noexcept
{
    qv::setPortFd(fd);
    return 0;
}

int32_t COMM_Com_OpenAuxPort(uint32_t nTermType, uint32_t nAuxPort, uint32_t nBaud, uint32_t bAuxPrefix) noexcept
{
    if (static_cast<int32_t>(nAuxPort) <= 0) {
        QV_LOG(kLogCommDev, "no aux port %d", static_cast<int32_t>(nAuxPort));
        return RET_PUB_INVAL_PARAM;
    }
    QV_LOG(kLogCommDev, " g_AuxFd = %d ", portFd());
    const Family &family = familyOf(nTermType);
    g_AuxOp.nTermType = nTermType;
    keep(family.sPrefix, g_AuxOp.szPrefix, g_AuxOp.nPrefixLen);
    keep(family.sSuffix, g_AuxOp.szSuffix, g_AuxOp.nSuffixLen);
    std::array<char, nCommandSize> szOpen{};
    family.getOpen(nAuxPort, nBaud, szOpen.data());
    if (bAuxPrefix != 0)
        sendLogged("AuxPrefix", sKeepScreen);
    send(szOpen.data());
    return 0;
}

int32_t COMM_Com_OpenLinuxAux(uint32_t nTermType, uint32_t nAuxPort, uint32_t nBaud, uint32_t bAuxPrefix) noexcept
{
    QV_LOG(kLogCommDev, "[%s ] Start ", __func__);
    // The name stands in a buffer of the C library; it is trimmed in a copy.
    const char *pszTerminal = ttyname(STDOUT_FILENO);
    std::array<char, 4096> szName{};
    if (pszTerminal != nullptr)
        std::string_view(pszTerminal).copy(szName.data(), szName.size() - 1);
    ClearInvisibleCharInStr(szName.data());
    QV_LOG(kLogCommDev, "LinuxOpenPort szTtyName =%s\r\n", szName.data());
    const int32_t nOpened = COMM_Com_OpenLinux(pszTerminal == nullptr ? nullptr : szName.data(), nBaud);
    if (nOpened != 0)
        return nOpened;
    if (COMM_Com_OpenAuxPort(nTermType, nAuxPort, nBaud, bAuxPrefix) != 0) {
        ResetAux();
        qv::closePort();
        return RET_PUB_FAIL;
    }
    return 0;
}

int32_t COMM_Com_WriteLinuxAux(const uint8_t *data, int32_t len) noexcept
{
    if (data == nullptr || len <= 0)
        return RET_PUB_INVAL_PARAM;
    if (g_AuxOp.nPrefixLen != 0)
        send(kept(g_AuxOp.szPrefix, g_AuxOp.nPrefixLen));
    const int32_t nWritten = COMM_Com_WriteLinux(data, len);
    if (g_AuxOp.nSuffixLen != 0)
        send(kept(g_AuxOp.szSuffix, g_AuxOp.nSuffixLen));
    return nWritten;
}

int32_t COMM_Com_ReadLinuxAux(uint8_t *buf, uint32_t nMaxLen, int32_t nTimeOut, EndConditionFn end) noexcept
{
    return COMM_Com_ReadLinux(buf, nMaxLen, nTimeOut, end);
}

int32_t COMM_Com_CloseAuxPort(uint32_t bAuxPrefix) noexcept
{
    const Family &family = familyOf(g_AuxOp.nTermType);
    g_AuxOp.nTermType = family.nTermType; // an unknown type is a Star's from here on
    std::array<char, nCommandSize> szClose{};
    family.getClose(szClose.data());
    send(szClose.data());
    if (bAuxPrefix != 0)
        sendLogged("AuxPrefix", sReleaseScreen);
    return 0;
}

int32_t COMM_Com_CloseLinuxAux(uint32_t bAuxPrefix) noexcept
{
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    QV_LOG(kLogCommDev, " g_AuxFd = %d ", portFd());
    if (portFd() == qv::nNoPort)
        return 0;
    COMM_Com_CloseAuxPort(bAuxPrefix);
    return COMM_Com_CloseLinux();
}
