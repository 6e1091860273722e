// api.cpp - what a host calls: three families over one engine.
//
//     APP_Msg_    the tracks whose buffers or texts are given, the engine's codes
//     Linux_QV_   the same without a channel, TY codes
//     MS_         tracks 2 and 3, port names of its own, standard codes

#include "tracks.h"

#include "log.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using qv::kLogAppMsg;

namespace {

constexpr int32_t nNoTexts = -6;
constexpr uint32_t nMsTrackSize = 256; // least size of the MS_ functions' buffers
constexpr int nLoggedText = 255;

// Which tracks a host asks for, from the pointers that it gives; 0: a combination that the engine has no mode for.
int32_t modeOf(const void *p1, const void *p2, const void *p3) noexcept
{
    constexpr std::array<int32_t, 8> modes{0, 1, 2, 12, 3, 0, 23, 123};
    const size_t nWanted = (p1 != nullptr ? 1U : 0U) | (p2 != nullptr ? 2U : 0U) | (p3 != nullptr ? 4U : 0U);
    return modes[nWanted];
}

// One call with its first and its last line in the log, whichever way it ends.
template <typename Call> int32_t logged(const char *pszCall, Call call) noexcept
{
    QV_LOG(kLogAppMsg, "[%s] Start ", pszCall);
    const int32_t nRet = call();
    QV_LOG(kLogAppMsg, "[%s] End nRet = %d  ", pszCall, nRet);
    return nRet;
}

void clear(char *pOut, uint32_t nLen) noexcept
{
    if (pOut != nullptr)
        std::fill_n(pOut, nLen, '\0');
}

const char *shown(const char *pszText) noexcept
{
    return pszText == nullptr ? "" : pszText;
}

// "/dev/COM" and any number.
using PortName = std::array<char, 32>;

// A port name of the MS_ functions as the engine knows it. Names are mapped in a field of 16 bytes; one that does not
// fit passes as it is.
const char *mapPortName(const char *pszName, PortName &field) noexcept
{
    constexpr size_t nNameMax = 15;
    constexpr size_t nNumberAt = 3; // behind "COM"
    if (pszName == nullptr || strnlen(pszName, nNameMax + 1) > nNameMax)
        return pszName;
    if (std::strcmp(pszName, "0") == 0)
        return "1001";
    if (std::strncmp(pszName, "COM", nNumberAt) != 0)
        return pszName;
    std::snprintf(field.data(), field.size(), "/dev/COM%d", std::atoi(pszName + nNumberAt));
    return field.data();
}

// Modes of the MS_ functions: track 2, track 3, or both; any other does nothing.
bool isMsMode(int32_t nMode) noexcept
{
    return nMode == 2 || nMode == 3 || nMode == 23;
}

void logStart(const char *pszPort, const char *pszChannel, uint32_t nBaud, uint32_t nTimeOut, int32_t nMode,
              int32_t nCharSet) noexcept
{
    // Reading and writing both log under the name of the read.
    QV_LOG(kLogAppMsg, "func:MS_ReadCard,nPortNo=%.*s,extendPort=%.*s,nBaudRate=%d,nTimeout=%d\n", nLoggedText,
           shown(pszPort), nLoggedText, shown(pszChannel), static_cast<int>(nBaud), static_cast<int>(nTimeOut));
    QV_LOG(kLogAppMsg, "nMode=%d,nCharSet=%d\n", nMode, nCharSet);
}

bool isHexWord(const char *pszText) noexcept
{
    constexpr size_t nChars = 4;
    if (pszText == nullptr || strnlen(pszText, nChars + 1) != nChars)
        return false;
    return std::all_of(pszText, pszText + nChars, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

uint64_t hexWord(const char *pszText) noexcept
{
    std::array<uint8_t, 2> aBytes{};
    Str_AscToHex(pszText, 4, aBytes.data());
    return (uint64_t{aBytes[0]} << 8) | aBytes[1];
}

} // namespace

int32_t APP_Msg_ReadMsgCard(const char *portName, const char *channel, uint32_t baud, int32_t format, uint32_t timeout,
                            char *track1, uint32_t len1, char *track2, uint32_t len2, char *track3,
                            uint32_t len3) noexcept
{
    return logged(__func__, [=]() noexcept -> int32_t {
        const int32_t nMode = modeOf(track1, track2, track3);
        if (portName == nullptr || nMode == 0) {
            QV_LOG(kLogAppMsg, "%s", portName == nullptr ? "no port name" : "no buffers, or tracks 1 and 3 without 2");
            return RET_PUB_INVAL_PARAM;
        }
        clear(track1, len1);
        clear(track2, len2);
        clear(track3, len3);
        return MSG_QV_ReadData(portName, baud, channel, format, 0, nMode, timeout, track1, len1, track2, len2, track3,
                               len3);
    });
}

int32_t APP_Msg_WriteMsgCard(const char *portName, const char *channel, uint32_t baud, int32_t format, uint32_t timeout,
                             char *track1, char *track2, char *track3) noexcept
{
    return logged(__func__, [=]() noexcept {
        const int32_t nMode = modeOf(track1, track2, track3);
        if (nMode == 0) {
            QV_LOG(kLogAppMsg, "no texts, or tracks 1 and 3 without 2");
            return nNoTexts;
        }
        return MSG_QV_WriteData(portName, baud, channel, format, 0, nMode, timeout, track1, track2, track3);
    });
}

int32_t APP_Msg_CancelReadMsgCard(void) noexcept
{
    return MSG_QV_CancelRead();
}

int32_t APP_Msg_RaiseBaundFlag(uint32_t flag) noexcept
{
    return Dev_Rdz_Msg_RaiseBaundFlag(flag);
}

int32_t APP_MSG_AddHID(int32_t index, uint64_t pid, uint64_t vid) noexcept
{
    return Dev_Rdz_Msg_AddHid(index, pid, vid);
}

int32_t Linux_QV_ReadMsgCard(const char *portName, uint32_t baud, int32_t format, uint32_t timeout, char *track1,
                             uint32_t len1, char *track2, uint32_t len2, char *track3, uint32_t len3) noexcept
{
    return TY_Msg_ConvertErr(
        APP_Msg_ReadMsgCard(portName, "", baud, format, timeout, track1, len1, track2, len2, track3, len3));
}

int32_t Linux_QV_WriteMsgCard(const char *portName, uint32_t baud, int32_t format, uint32_t timeout, char *track1,
                              char *track2, char *track3) noexcept
{
    return TY_Msg_ConvertErr(APP_Msg_WriteMsgCard(portName, "", baud, format, timeout, track1, track2, track3));
}

int32_t Linux_QV_CancelReadMsgCard(void) noexcept
{
    APP_Msg_RaiseBaundFlag(1);
    return MSG_QV_CancelRead();
}

int32_t Linux_QV_MSG_AddHID(int32_t index, const char *pid, const char *vid) noexcept
{
    constexpr int32_t nLast = 9;
    if (index < 0 || index > nLast || !isHexWord(pid) || !isHexWord(vid)) {
        QV_LOG(kLogAppMsg, "[%s] no index from 0 to %d, or not four hexadecimal characters", __func__, nLast);
        return RET_PUB_INVAL_PARAM;
    }
    return APP_MSG_AddHID(index, hexWord(pid), hexWord(vid));
}

int32_t MS_ReadCard(const char *portName, const char *channel, uint32_t baud, uint32_t timeout, int32_t mode,
                    int32_t charSet, char *track2, char *track3) noexcept
{
    initDriver();
    logStart(portName, channel, baud, timeout, mode, charSet);
    PortName field;
    int32_t nRet = 0;
    if (isMsMode(mode))
        nRet = APP_Msg_ReadMsgCard(mapPortName(portName, field), channel, baud, charSet, timeout, nullptr, 0,
                                   qv::isInMode(mode, 2) ? track2 : nullptr, nMsTrackSize,
                                   qv::isInMode(mode, 3) ? track3 : nullptr, nMsTrackSize);
    QV_LOG(kLogAppMsg, "MS_ReadCard End,nRet=%d,szTrack2data=%.*s,szTrack3data=%.*s\n", nRet, nLoggedText,
           shown(track2), nLoggedText, shown(track3));
    return GetStandardErrorCode_MAG(nRet);
}

int32_t MS_WriteCard(const char *portName, const char *channel, uint32_t baud, uint32_t timeout, int32_t mode,
                     int32_t charSet, char *track2, char *track3) noexcept
{
    initDriver();
    logStart(portName, channel, baud, timeout, mode, charSet);
    QV_LOG(kLogAppMsg, "szTrack2data=%.*s,szTrack3data=%.*s\n", nLoggedText, shown(track2), nLoggedText, shown(track3));
    PortName field;
    int32_t nRet = 0;
    if (isMsMode(mode))
        nRet = APP_Msg_WriteMsgCard(mapPortName(portName, field), channel, baud, charSet, timeout, nullptr,
                                    qv::isInMode(mode, 2) ? track2 : nullptr, qv::isInMode(mode, 3) ? track3 : nullptr);
    QV_LOG(kLogAppMsg, "MS_ReadCard End,nRet=%d\n", nRet);
    return GetStandardErrorCode_MAG(nRet);
}
