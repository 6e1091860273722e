// packet.cpp - the frame codec.
//
//     command   head | nn nn | data           | LRC of data           | end
//     reply     head | LL LL | status | body  | LRC of status + body  | end
//
// Everything between the markers is half-byte characters (0x30 to 0x3F); nn and LL are big-endian byte counts, of the
// data and of status word + body.

#include "frame_limits.h"
#include "log.h"
#include "qvreader/protocol.h"

#include <algorithm>
#include <array>
#include <span>

using qv::kLogComm;

namespace {

// Decoded reply: L (2 bytes), status word (2), body (L - 2), LRC (1).
constexpr size_t nStatusAt = 2;
constexpr size_t nBodyAt = 4;
constexpr size_t nMinReply = 4; // the least that holds L and a status word (whose low byte is then the LRC too)
constexpr size_t nStatusSize = 2;

// Appends half-byte characters.
uint8_t *addHalves(uint8_t *pOut, const uint8_t *pData, size_t nLen) noexcept
{
    Str_RdzModeSplitData(pData, static_cast<int32_t>(nLen), pOut);
    return pOut + 2 * nLen;
}

// The characters between the markers; empty when a marker is missing or nothing stands between them.
std::span<const uint8_t> findBody(uint8_t cHead, uint8_t cEnd, std::span<const uint8_t> packet) noexcept
{
    const auto head = std::find(packet.begin(), packet.end(), cHead);
    // The body must start before the packet's last byte.
    if (packet.end() - head <= 2)
        return {};
    const auto end = std::find(head + 1, packet.end(), cEnd);
    return end == packet.end() ? std::span<const uint8_t>() : std::span(head + 1, end);
}

uint16_t bigEndian(const uint8_t *p) noexcept
{
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

} // namespace

int32_t Str_RDZ_MakePacket(uint8_t cHead, uint8_t cEnd, const uint8_t *data, uint32_t len, uint8_t *out) noexcept
{
    if (out == nullptr || (data == nullptr && len > 0))
        return RET_PUB_FAIL;
    const std::array<uint8_t, 2> length{static_cast<uint8_t>(len >> 8), static_cast<uint8_t>(len)};
    const uint8_t ucLrc = Str_CalcLrc(data, static_cast<int32_t>(len));
    uint8_t *pAt = out;
    *pAt++ = cHead;
    pAt = addHalves(pAt, length.data(), length.size());
    pAt = addHalves(pAt, data, len);
    pAt = addHalves(pAt, &ucLrc, 1);
    *pAt++ = cEnd;
    return static_cast<int32_t>(pAt - out);
}

int32_t Str_GetPacketBody(uint8_t cHead, uint8_t cEnd, const uint8_t *packet, int32_t len, uint8_t *body) noexcept
{
    if (packet == nullptr || body == nullptr || len < 0)
        return RET_PUB_FAIL;
    const auto found = findBody(cHead, cEnd, std::span(packet, static_cast<size_t>(len)));
    if (found.empty())
        return RET_PUB_FAIL;
    std::copy(found.begin(), found.end(), body);
    return static_cast<int32_t>(found.size());
}

int32_t Str_RDZ_ParsePacket(uint8_t cHead, uint8_t cEnd, const uint8_t *packet, uint32_t nPacketLen, uint8_t *out,
                            uint32_t *outLen) noexcept
{
    QV_LOG(kLogComm, "[%s] Start nPacketLen = %d ", __func__, static_cast<int>(nPacketLen));
    if (nPacketLen == 0 || packet == nullptr || out == nullptr || outLen == nullptr)
        return RET_PUB_PACKET_ERR;
    QV_LOG(kLogComm, " cHead = %02x cEnd = %02x  ", cHead, cEnd);
    const auto text = findBody(cHead, cEnd, std::span(packet, nPacketLen));
    const int nBodyLen = text.empty() ? RET_PUB_FAIL : static_cast<int>(text.size());
    QV_LOG(kLogComm, "nBodyLen = %d ", nBodyLen);
    if (nBodyLen <= 1 || nBodyLen % 2 != 0 || text.size() > qv::nReplyTextMax) {
        QV_LOG(kLogComm, "no frame between %02x and %02x", cHead, cEnd);
        return RET_PUB_PACKET_ERR;
    }

    std::array<uint8_t, qv::nReplyBytesMax> decoded;
    Str_RdzModeMergeData(text.data(), nBodyLen, decoded.data());
    const auto reply = std::span<const uint8_t>(decoded).first(text.size() / 2);
    DPrintDataHexToFile("ucBody", reply.data(), static_cast<int32_t>(reply.size()));
    if (reply.size() < nMinReply) {
        QV_LOG(kLogComm, "reply too short");
        return RET_PUB_PACKET_ERR;
    }
    // The LRC is found by the frame's end, not by its declared length.
    const auto covered = reply.subspan(nStatusAt, reply.size() - nStatusAt - 1);
    if (Str_CalcLrc(covered.data(), static_cast<int32_t>(covered.size())) != reply.back()) {
        QV_LOG(kLogComm, "wrong LRC");
        return RET_PUB_PACKET_ERR;
    }
    // The declared length is trusted as far as the reply reaches.
    const size_t nDeclared = bigEndian(reply.data());
    if (nDeclared < nStatusSize || nDeclared > reply.size() - nStatusAt) {
        QV_LOG(kLogComm, "declared length %d does not fit", static_cast<int>(nDeclared));
        return RET_PUB_PACKET_ERR;
    }
    const size_t nOut = nDeclared - nStatusSize;
    std::copy_n(reply.begin() + nBodyAt, nOut, out);
    *outLen = static_cast<uint32_t>(nOut);
    COMM_Rdz_SetRecStatus(bigEndian(&reply[nStatusAt]));
    return 0;
}
