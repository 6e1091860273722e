// fuzz_reply_stream.cpp - COMM_Rdz_ReadDataFromReader on a port whose bytes come from the input.
//
// input: mode (bit 0: parse, bit 1: no head, bits 2 to 4: capacity), size of the pieces, stream

#include "fuzz_support.h"
#include "qvreader/protocol.h"

#include <algorithm>
#include <array>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr uint8_t ucHeadByte = 0x02, ucEnd = 0x03;
constexpr size_t nReplySize = 4096, nBodyMax = 508;
constexpr std::array<uint32_t, 8> capacities{1, 2, 16, 128, 507, 508, 1024, 4096};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    const uint32_t nParse = ucMode & 1U;
    const uint8_t ucHead = (ucMode & 2) != 0 ? uint8_t{0} : ucHeadByte;
    const uint32_t nMax = capacities[ucMode >> 2 & 7];
    const size_t nPiece = input.byte();
    qvfuzz::ReaderLine line(input.rest(), nPiece, ucEnd);
    const Bytes got = line.firstRead(nReplySize);

    Area out(nMax);
    const int32_t nRet = COMM_Rdz_ReadDataFromReader(nParse, ucHead, ucEnd, out.data(), nMax);
    QV_HOLDS(nRet >= 0 || nRet == RET_PUB_PACKET_ERR);
    QV_HOLDS(nRet <= static_cast<int32_t>(nMax));
    QV_HOLDS(out.intactBehind(nRet > 0 ? static_cast<size_t>(nRet) : 0));
    QV_HOLDS(stBackUpParam.pfnEndCondition == ChangeEndCondition && gEndChar == ucEnd);

    if (ucHead == 0 && nParse == 0) {
        // Raw: the bytes as they came.
        QV_HOLDS(static_cast<size_t>(nRet) == std::min<size_t>(nMax, got.size()));
        QV_HOLDS(std::equal(out.data(), out.data() + nRet, got.begin()));
        QV_HOLDS(COMM_Rdz_GetRecStatus() == 0);
        return 0;
    }
    // Framed: what the codec makes of the same bytes.
    const uint32_t nStatus = COMM_Rdz_GetRecStatus();
    Area body(nBodyMax);
    uint32_t nBody = 0;
    COMM_Rdz_ReSetStatus();
    const int32_t nParsed =
        Str_RDZ_ParsePacket(ucHead, ucEnd, got.data(), static_cast<uint32_t>(got.size()), body.data(), &nBody);
    QV_HOLDS(nRet == (nParsed == 0 ? static_cast<int32_t>(std::min(nBody, nMax)) : nParsed));
    QV_HOLDS(nStatus == COMM_Rdz_GetRecStatus());
    QV_HOLDS(nRet <= 0 || std::equal(out.data(), out.data() + nRet, body.data()));
    return 0;
}
