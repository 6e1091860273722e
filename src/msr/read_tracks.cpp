// read_tracks.cpp - reading a swiped card.
//
//     open, channel | reset, format | read time | (all tracks: separator) | read command ... card ... reply
//     | (bare: status) | reset, channel A | reset, close
//
// The read command waits for the card as long as the read time; settings and the status get 2 seconds.

#include "tracks.h"

#include "bounded_text.h"
#include "log.h"

#include <array>
#include <string_view>

using qv::kLogBusiMsg;

namespace {

constexpr const char *pszSeparator = "|";

// Bytes of a bare reply around its text; the text of track 3 alone stands one byte later.
constexpr size_t nReplyHead = 2;
constexpr size_t nReplyHeadTrack3 = 3;
constexpr size_t nReplyTail = 2;

// Room for bare replies.
constexpr size_t nReplySizeTrack1 = 516;
constexpr size_t nReplySizeTrack23 = 512;
constexpr size_t nReplySizeTwoTracks = 1028;

using BuildFn = int32_t (*)(uint8_t *, uint32_t *) noexcept;

int32_t judgeFramed(int32_t nExchanged) noexcept
{
    switch (COMM_Msg_CardReaderGetRecStatus()) {
    case 0: return 0;
    case qv::nStatusNoData: QV_LOG(kLogBusiMsg, "MAG_ERR_NO_DATA"); return qv::nNoData;
    case qv::nStatusReadFault: QV_LOG(kLogBusiMsg, "MAG_ERR_OTHER"); return qv::nReadFault;
    default: return nExchanged;
    }
}

int32_t judgeBare(const uint8_t *pReply, int32_t nLen) noexcept
{
    const int32_t nFormat = tFuncCheckTrackFormat(pReply, nLen);
    if (nFormat != 0)
        return nFormat;
    COMM_Rdz_SetEndCondition(MsgStatusEndCondition);
    COMM_Rdz_ChageReadTimeOut(qv::nSettingSeconds);
    uint8_t aStatus[qv::nStatusSize] = {};
    return tFuncCheckTrackStatusFormat(aStatus, qv::exchangeStatus(aStatus));
}

// Sends one read command; the reply stands in the buffer, which is zero behind it.
template <size_t nSize> int32_t readInto(std::array<uint8_t, nSize> &reply, uint32_t bFramed, BuildFn pfnBuild) noexcept
{
    std::array<uint8_t, qv::nCommandSize> command{};
    uint32_t nLen = 0;
    pfnBuild(command.data(), &nLen);
    return ReadTrack(bFramed, command.data(), nLen, reply.data(), nSize - 1);
}

template <size_t nSize> const char *textOf(const std::array<uint8_t, nSize> &reply) noexcept
{
    return reinterpret_cast<const char *>(reply.data());
}

// The text of a reply for one track, whose head has that many bytes.
std::string_view textInside(std::string_view sReply, size_t nHead) noexcept
{
    const size_t nAround = nHead + nReplyTail;
    return sReply.size() > nAround ? sReply.substr(nHead, sReply.size() - nAround) : std::string_view{};
}

template <size_t nReplySize> int32_t readOneTrack(BuildFn pfnBuild, size_t nHead, char *pOut, uint32_t nSize) noexcept
{
    if (pOut == nullptr)
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, nReplySize + 1> reply{};
    const int32_t nRet = readInto(reply, 0, pfnBuild);
    if (nRet == 0)
        qv::copyText({pOut, nSize}, textInside(textOf(reply), nHead));
    return nRet;
}

// Track 2 always comes first.
int32_t readTwoTracks(BuildFn pfnBuild, char *pTrack2, uint32_t nSize2, char *pOther, uint32_t nSizeOther) noexcept
{
    if (pTrack2 == nullptr || pOther == nullptr)
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, nReplySizeTwoTracks + 1> reply{};
    const int32_t nRet = readInto(reply, 0, pfnBuild);
    return nRet == 0 ? SeperateByTrays(textOf(reply), pTrack2, nSize2, pOther, nSizeOther) : nRet;
}

struct Tracks {
    std::array<char, qv::nTrackSize> a1{}, a2{}, a3{};
};

// Every track ends at a separator, the last one too: text behind the last separator belongs to no track.
void splitAll(const std::array<char, qv::nTrackSize + 2> &body, Tracks &tracks) noexcept
{
    const char *pAt = body.data();
    for (auto *pTrack : {&tracks.a1, &tracks.a2, &tracks.a3})
        pAt = SplitMsgData(pAt, pTrack->data(), pszSeparator) + 1;
}

int32_t readAll(uint32_t nSeconds, Tracks &tracks) noexcept
{
    const int32_t nSet = Dev_Rdz_MsgSetSeparator(pszSeparator);
    if (nSet != 0)
        return nSet;
    COMM_Rdz_ChageReadTimeOut(nSeconds);
    std::array<char, qv::nTrackSize + 2> body{}; // splitting may look one byte behind two of its texts
    const int32_t nRet = ReadTrack123(body.data(), qv::nTrackSize);
    if (nRet == 0)
        splitAll(body, tracks);
    return nRet;
}

int32_t readMode(int32_t nMode, uint32_t nSeconds, Tracks &tracks) noexcept
{
    constexpr uint32_t nSize = qv::nTrackSize;
    switch (nMode) {
    case 1: return ReadTrack1(tracks.a1.data(), nSize);
    case 2: return ReadTrack2(tracks.a2.data(), nSize);
    case 3: return ReadTrack3(tracks.a3.data(), nSize);
    case 12: return ReadTrack12(tracks.a1.data(), nSize, tracks.a2.data(), nSize);
    case 23: return ReadTrack23(tracks.a2.data(), nSize, tracks.a3.data(), nSize);
    case 123: return readAll(nSeconds, tracks);
    default: QV_LOG(kLogBusiMsg, "no such tracks: %d", nMode); return 0;
    }
}

int32_t readCard(const qv::StripePort &port, int32_t nMode, uint32_t nSeconds, Tracks &tracks) noexcept
{
    if (!qv::isCardTime(nSeconds))
        return RET_PUB_INVAL_PARAM;
    int32_t nRet = qv::openForCard(port, nSeconds);
    if (nRet == 0) {
        nRet = readMode(nMode, nSeconds, tracks);
        qv::leaveHeadIdle();
    }
    Dev_Rdz_MsgReset();
    Dev_Rdz_MsgClosePort();
    return nRet;
}

void handOut(const std::array<char, qv::nTrackSize> &track, char *pOut, uint32_t nSize) noexcept
{
    if (pOut != nullptr)
        qv::copyText({pOut, nSize}, track.data());
}

} // namespace

int32_t ReadTrack(uint32_t bFramed, const uint8_t *cmd, uint32_t len, uint8_t *reply, uint32_t size) noexcept
{
    COMM_Rdz_SetEndCondition(MsgDataEndCondition);
    const qv::Travel travel = bFramed == 1 ? qv::kInFrame : qv::kBare;
    int32_t nRet = Dev_Rdz_MsgSendAndReciveData(bFramed, travel, cmd, len, reply, size);
    if (nRet >= 0)
        nRet = bFramed == 1 ? judgeFramed(nRet) : judgeBare(reply, nRet);
    if (nRet != 0)
        QV_LOG(kLogBusiMsg, "[%s] not read, nRet = %d", __func__, nRet);
    return nRet;
}

int32_t ReadTrack1(char *out, uint32_t size) noexcept
{
    return readOneTrack<nReplySizeTrack1>(Instr_Msg_GetNtReadTrack1, nReplyHead, out, size);
}

int32_t ReadTrack2(char *out, uint32_t size) noexcept
{
    return readOneTrack<nReplySizeTrack23>(Instr_Msg_GetNtReadTrack2, nReplyHead, out, size);
}

int32_t ReadTrack3(char *out, uint32_t size) noexcept
{
    return readOneTrack<nReplySizeTrack23>(Instr_Msg_GetNtReadTrack3, nReplyHeadTrack3, out, size);
}

int32_t ReadTrack12(char *out1, uint32_t size1, char *out2, uint32_t size2) noexcept
{
    return readTwoTracks(Instr_Msg_GetNtReadTrack12, out2, size2, out1, size1);
}

int32_t ReadTrack23(char *out2, uint32_t size2, char *out3, uint32_t size3) noexcept
{
    return readTwoTracks(Instr_Msg_GetNtReadTrack23, out2, size2, out3, size3);
}

int32_t ReadTrack123(char *out, uint32_t size) noexcept
{
    if (out == nullptr)
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, nReplySizeTwoTracks + 1> reply{};
    const int32_t nRet = readInto(reply, 1, Instr_Msg_GetReadTrack123);
    if (nRet == 0)
        qv::copyText({out, size}, std::string_view(textOf(reply), reply.size())); // whole, NULs too
    return nRet;
}

int32_t MSG_QV_ReadData(const char *device, uint32_t baud, const char *extPort, int32_t format, uint32_t termType,
                        int32_t mode, uint32_t timeout, char *track1, uint32_t len1, char *track2, uint32_t len2,
                        char *track3, uint32_t len3) noexcept
{
    QV_LOG(kLogBusiMsg, "[%s] Start ", __func__);
    GetTickCountStartTime();
    Tracks tracks;
    const int32_t nRet = readCard({device, baud, extPort, format, termType}, mode, timeout, tracks);
    if (nRet == 0 && qv::isInMode(mode, 1))
        handOut(tracks.a1, track1, len1);
    if (nRet == 0 && qv::isInMode(mode, 2))
        handOut(tracks.a2, track2, len2);
    if (nRet == 0 && qv::isInMode(mode, 3))
        handOut(tracks.a3, track3, len3);
    QV_LOG(kLogBusiMsg, "[%s] End nRet = %d  ", __func__, nRet);
    return nRet;
}
