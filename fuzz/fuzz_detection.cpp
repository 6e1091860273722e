// fuzz_detection.cpp - the texts of COMM_Icc_detectMulCard and COMM_Icc_detectMulComCard.
//
// input: mode (bit 0: the bytes are the whole stream, else the body of a well-made frame; bit 1: the second function;
// bits 2 and 3: no track 2, no track 3), size of the pieces, bytes

#include "fuzz_support.h"
#include "qvreader/icreader.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr size_t nTrackSize = 512;
constexpr uint32_t nMark = 0xDEADBEEF;
constexpr uint8_t ucMagnetic = 3;

// The track is a text that ends within its area, or as it was.
void checkTrack(const Area &track, bool bWritten, std::string_view sExpected)
{
    if (!bWritten) {
        QV_HOLDS(track.intactBehind(0));
        return;
    }
    QV_HOLDS(track.intactBehind(sExpected.size() + 1));
    const auto got = track.first(sExpected.size() + 1);
    QV_HOLDS(std::equal(sExpected.begin(), sExpected.end(), got.begin(),
                        [](char c, uint8_t uc) { return static_cast<uint8_t>(c) == uc; }));
    QV_HOLDS(got.back() == 0);
}

// What a body means, read anew.
void checkBody(std::span<const uint8_t> body, int32_t nRet, uint32_t nKind, const Area &track2, bool bTrack2,
               const Area &track3, bool bTrack3)
{
    const uint8_t ucKind = body.empty() ? uint8_t{0} : body[0];
    QV_HOLDS(nRet == (ucKind >= 1 && ucKind <= 4 ? 0 : RET_PUB_PACKET_ERR));
    QV_HOLDS(nKind == ucKind);
    std::string sText;
    if (ucKind == ucMagnetic)
        sText.assign(body.begin() + 1, body.end());
    const size_t nAt = sText.find('|');
    const std::string sAfter = nAt == sText.npos ? "" : sText.substr(nAt + 1);
    checkTrack(track2, bTrack2 && nAt != sText.npos, std::string_view(sText).substr(0, nAt));
    checkTrack(track3, bTrack3 && sAfter.size() > 2,
               std::string_view(sAfter).substr(0, sAfter.size() > 2 ? sAfter.size() - 2 : 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    const size_t nPiece = input.byte();
    const bool bStream = (ucMode & 1) != 0, bTrack2 = (ucMode & 4) == 0, bTrack3 = (ucMode & 8) == 0;
    const auto body = input.take(bStream ? 4096 : 506);
    const Bytes stream = bStream ? Bytes(body.begin(), body.end()) : qvfuzz::replyFrame(0x02, 0x03, 0x9000, body);

    qvfuzz::ReaderLine line(stream, nPiece, 0x03);
    Area track2(nTrackSize), track3(nTrackSize);
    char *const pTrack2 = bTrack2 ? track2.text() : nullptr;
    char *const pTrack3 = bTrack3 ? track3.text() : nullptr;
    uint32_t nKind = nMark;
    const int32_t nRet = (ucMode & 2) != 0 ? COMM_Icc_detectMulComCard(7, 3, pTrack2, pTrack3, &nKind)
                                           : COMM_Icc_detectMulCard(3, pTrack2, pTrack3, &nKind);
    QV_HOLDS(nRet == 0 || nRet == RET_PUB_PACKET_ERR);
    QV_HOLDS(nRet != 0 || (nKind >= 1 && nKind <= 4));
    QV_HOLDS(track2.intactBehind(nTrackSize) && track3.intactBehind(nTrackSize));
    if (!bStream)
        checkBody(body, nRet, nKind, track2, bTrack2, track3, bTrack3);
    else if (nKind != ucMagnetic)
        QV_HOLDS(track2.intactBehind(0) && track3.intactBehind(0));
    return 0;
}
