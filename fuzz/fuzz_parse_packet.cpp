// fuzz_parse_packet.cpp - the frame codec: Str_RDZ_ParsePacket, Str_GetPacketBody, Str_RDZ_MakePacket.
//
// input: head, end, packet

#include "fuzz_support.h"
#include "qvreader/protocol.h"

#include <algorithm>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr size_t nBodyMax = 508;
constexpr uint32_t nMark = 0xDEADBEEF; // a status word that no frame holds

// What the packet parses to, and that a refusal changes nothing.
void parse(uint8_t ucHead, uint8_t ucEnd, std::span<const uint8_t> packet)
{
    Area out(nBodyMax);
    uint32_t nOut = nMark;
    COMM_Rdz_SetRecStatus(nMark);
    const int32_t nRet =
        Str_RDZ_ParsePacket(ucHead, ucEnd, packet.data(), static_cast<uint32_t>(packet.size()), out.data(), &nOut);
    QV_HOLDS(nRet == 0 || nRet == RET_PUB_PACKET_ERR);
    if (nRet != 0) {
        QV_HOLDS(COMM_Rdz_GetRecStatus() == nMark);
        QV_HOLDS(nOut == nMark);
        QV_HOLDS(out.intactBehind(0));
        return;
    }
    QV_HOLDS(nOut <= nBodyMax);
    QV_HOLDS(out.intactBehind(nOut));
    QV_HOLDS(COMM_Rdz_GetRecStatus() <= 0xFFFF);

    // A packet that parses has a body between its markers, of even length, that holds all that was handed out.
    Area body(packet.size());
    const int32_t nBody =
        Str_GetPacketBody(ucHead, ucEnd, packet.data(), static_cast<int32_t>(packet.size()), body.data());
    QV_HOLDS(nBody >= 8 && nBody % 2 == 0);
    QV_HOLDS(nOut <= static_cast<uint32_t>(nBody) / 2 - 4);
}

void findBody(uint8_t ucHead, uint8_t ucEnd, std::span<const uint8_t> packet)
{
    Area body(packet.size());
    const int32_t nBody =
        Str_GetPacketBody(ucHead, ucEnd, packet.data(), static_cast<int32_t>(packet.size()), body.data());
    const auto head = std::find(packet.begin(), packet.end(), ucHead);
    const auto end = head == packet.end() ? head : std::find(head + 1, packet.end(), ucEnd);
    const bool bFound = end != packet.end() && end - head > 1 && packet.end() - head > 2;
    QV_HOLDS(nBody == (bFound ? end - head - 1 : -1));
    QV_HOLDS(body.intactBehind(bFound ? static_cast<size_t>(nBody) : 0));
    QV_HOLDS(!bFound || std::equal(head + 1, end, body.first(static_cast<size_t>(nBody)).begin()));
}

bool isHalfByte(uint8_t uc)
{
    return uc >= 0x30 && uc <= 0x3F;
}

// A well-made frame always parses back, whatever stands before and after it.
void parseOwnFrame(uint8_t ucHead, uint8_t ucEnd, std::span<const uint8_t> data)
{
    if (isHalfByte(ucHead) || isHalfByte(ucEnd))
        return;
    const auto body = data.first(std::min<size_t>(data.size(), 506));
    const uint16_t nStatus = static_cast<uint16_t>(data.size() * 257);
    Bytes packet(data.size() % 4, static_cast<uint8_t>(~ucHead));
    const Bytes frame = qvfuzz::replyFrame(ucHead, ucEnd, nStatus, body);
    packet.insert(packet.end(), frame.begin(), frame.end());
    packet.insert(packet.end(), data.begin(), data.end());
    Area out(nBodyMax);
    uint32_t nOut = 0;
    QV_HOLDS(Str_RDZ_ParsePacket(ucHead, ucEnd, packet.data(), static_cast<uint32_t>(packet.size()), out.data(),
                                 &nOut) == 0);
    QV_HOLDS(nOut == body.size());
    QV_HOLDS(std::equal(body.begin(), body.end(), out.data()));
    QV_HOLDS(out.intactBehind(nOut));
    QV_HOLDS(COMM_Rdz_GetRecStatus() == nStatus);
}

// A command frame is a reply frame whose first two data bytes are read as the status word.
void makeFrame(uint8_t ucHead, uint8_t ucEnd, std::span<const uint8_t> data)
{
    const auto kept = data.first(std::min(data.size(), nBodyMax));
    Area frame(2 * kept.size() + 8);
    const int32_t nFrame =
        Str_RDZ_MakePacket(ucHead, ucEnd, kept.data(), static_cast<uint32_t>(kept.size()), frame.data());
    if (kept.data() == nullptr && nFrame == 8)
        return;
    QV_HOLDS(nFrame == static_cast<int32_t>(2 * kept.size() + 8));
    QV_HOLDS(frame.intactBehind(static_cast<size_t>(nFrame)));
    if (kept.size() < 2)
        return;
    const Bytes same =
        qvfuzz::replyFrame(ucHead, ucEnd, static_cast<uint16_t>(kept[0] << 8 | kept[1]), kept.subspan(2));
    QV_HOLDS(std::equal(same.begin(), same.end(), frame.data()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucHead = input.byte();
    const uint8_t ucEnd = input.byte();
    const auto packet = input.rest();
    parse(ucHead, ucEnd, packet);
    findBody(ucHead, ucEnd, packet);
    parseOwnFrame(ucHead, ucEnd, packet);
    makeFrame(ucHead, ucEnd, packet);
    return 0;
}
