// api.cpp - what a host calls: three families over one engine.
//
//     APP_Msg_    any tracks that it reads, the engine's codes
//     Linux_QV_   the same without a channel, TY codes
//     MS_         tracks 2 and 3, port names of its own, standard codes

#include "device.h"

#include "bounded_text.h"
#include "log.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>

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

void clear(char *pOut, uint32_t nLen) noexcept
{
    if (pOut != nullptr)
        std::fill_n(pOut, nLen, '\0');
}

const char *shown(const char *pszText) noexcept
{
    return pszText == nullptr ? "" : pszText;
}

// Port names of the MS_ functions. A name that does not fit the field passes as it is.
class MsPortName {
  public:
    explicit MsPortName(const char *pszName) noexcept : m_pszName(pszName)
    {
        if (pszName == nullptr || strnlen(pszName, nFieldSize) == nFieldSize)
            return;
        if (std::strcmp(pszName, "0") == 0)
            use("1001");
        else if (std::strncmp(pszName, "COM", nNumberAt) == 0)
            std::snprintf(take(), m_aField.size(), "/dev/COM%d", std::atoi(pszName + nNumberAt));
    }
    const char *get() const noexcept { return m_pszName; }

  private:
    static constexpr size_t nNumberAt = 3;
    static constexpr size_t nFieldSize = 16; // of names that are mapped, with their NUL

    void use(const char *pszText) noexcept { qv::copyText({take(), m_aField.size()}, pszText); }
    char *take() noexcept
    {
        m_pszName = m_aField.data();
        return m_aField.data();
    }

    std::array<char, 32> m_aField{}; // "/dev/COM" and any number
    const char *m_pszName;
};

// The tracks of an MS_ mode; both false: nothing to do.
struct MsTracks {
    bool b2, b3;
};
constexpr MsTracks tracksOf(int32_t nMode) noexcept
{
    return {nMode == 2 || nMode == 23, nMode == 3 || nMode == 23};
}

void logStart(const char *pszPort, const char *pszChannel, uint32_t nBaud, uint32_t nTimeOut, int32_t nMode,
              int32_t nCharSet) noexcept
{
    // Reading and writing both log under the name of the read.
    QV_LOG(kLogAppMsg, "func:MS_ReadCard,nPortNo=%s,extendPort=%s,nBaudRate=%d,nTimeout=%d\n", shown(pszPort),
           shown(pszChannel), static_cast<int>(nBaud), static_cast<int>(nTimeOut));
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
    QV_LOG(kLogAppMsg, "[%s] Start ", __func__);
    const int32_t nMode = modeOf(track1, track2, track3);
    if (portName == nullptr || nMode == 0) {
        QV_LOG(kLogAppMsg, portName == nullptr ? "no port name" : "no buffers, or tracks 1 and 3 without 2");
        return RET_PUB_INVAL_PARAM;
    }
    clear(track1, len1);
    clear(track2, len2);
    clear(track3, len3);
    const int32_t nRet =
        MSG_QV_ReadData(portName, baud, channel, format, 0, nMode, timeout, track1, len1, track2, len2, track3, len3);
    QV_LOG(kLogAppMsg, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}

int32_t APP_Msg_WriteMsgCard(const char *portName, const char *channel, uint32_t baud, int32_t format, uint32_t timeout,
                             char *track1, char *track2, char *track3) noexcept
{
    QV_LOG(kLogAppMsg, "[%s] Start ", __func__);
    const int32_t nMode = modeOf(track1, track2, track3);
    if (nMode == 0) {
        QV_LOG(kLogAppMsg, "no texts, or tracks 1 and 3 without 2");
        return nNoTexts;
    }
    const int32_t nRet = MSG_QV_WriteData(portName, baud, channel, format, 0, nMode, timeout, track1, track2, track3);
    QV_LOG(kLogAppMsg, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
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
    const MsPortName port(portName);
    const MsTracks wanted = tracksOf(mode);
    int32_t nRet = 0;
    if (wanted.b2 || wanted.b3)
        nRet =
            APP_Msg_ReadMsgCard(port.get(), channel, baud, charSet, timeout, nullptr, 0, wanted.b2 ? track2 : nullptr,
                                nMsTrackSize, wanted.b3 ? track3 : nullptr, nMsTrackSize);
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
    const MsPortName port(portName);
    const MsTracks wanted = tracksOf(mode);
    int32_t nRet = 0;
    if (wanted.b2 || wanted.b3)
        nRet = APP_Msg_WriteMsgCard(port.get(), channel, baud, charSet, timeout, nullptr, wanted.b2 ? track2 : nullptr,
                                    wanted.b3 ? track3 : nullptr);
    QV_LOG(kLogAppMsg, "MS_ReadCard End,nRet=%d\n", nRet);
    return GetStandardErrorCode_MAG(nRet);
}
