// fuzz_stripe_body.cpp - framed replies of the stripe head: the body with all three tracks, and the answers to settings
// and to a write.
//
// input: mode (low 2 bits: read all, separator, read time, write all; bit 2: the bytes are the body of a well-made
// frame, with the status word of bits 3 and 4), size of the pieces, room for the output, bytes

#include "fuzz_stripe_line.h"
#include "qvreader/msr.h"

#include <array>

using qvfuzz::Area;
using qvfuzz::beforeNul;
using qvfuzz::Bytes;

namespace {

constexpr size_t nBytesMax = 4500;
constexpr size_t nBodyMax = 506;
constexpr uint8_t ucHead = 0x01, ucEnd = 0x04;
constexpr std::array<uint16_t, 4> statusWords{0, 0x4001, 0x4002, 0x1234};

struct Reply {
    int32_t nResult; // bytes of the body, or a negative code
    uint32_t nStatus;
    std::string sBody;
};

// What a stream means, by the codec of the library, which has a target of its own.
Reply replyIn(qvfuzz::StripeLine &line)
{
    const auto got = line.expect([](std::string_view s) { return s.ends_with(static_cast<char>(ucEnd)); });
    if (!got)
        return {RET_PUB_READ_FAIL, 0, ""};
    std::array<uint8_t, 1024> body{};
    uint32_t nLen = 0;
    COMM_Rdz_ReSetStatus();
    if (Str_RDZ_ParsePacket(ucHead, ucEnd, reinterpret_cast<const uint8_t *>(got->data()),
                            static_cast<uint32_t>(got->size()), body.data(), &nLen) != 0)
        return {RET_PUB_PACKET_ERR, 0, ""};
    return {static_cast<int32_t>(nLen), COMM_Rdz_GetRecStatus(), std::string(body.begin(), body.begin() + nLen)};
}

// The three tracks of a body as a host splits it: each one ends at a separator.
void checkSplit(const std::string &sBody)
{
    std::string sRoom = sBody + std::string(3, '\0');
    const char *pAt = sRoom.c_str();
    for (int i = 0; i < 3; ++i) {
        const std::string sText(pAt);
        Area track(sText.size() + 1);
        const char *pFound = SplitMsgData(pAt, track.text(), "|");
        const size_t nAt = sText.find('|');
        QV_HOLDS(pFound == (nAt == sText.npos ? pAt : pAt + nAt));
        const size_t nCopied = nAt == sText.npos ? 0 : nAt;
        QV_HOLDS(track.intactBehind(nCopied));
        const auto copied = track.first(nCopied);
        QV_HOLDS(std::string(copied.begin(), copied.end()) == sText.substr(0, nCopied));
        pAt = pFound + 1;
    }
}

void checkReadAll(qvfuzz::StripeLine &line, size_t nRoom)
{
    Area out(nRoom);
    const int32_t nRet = ReadTrack123(out.text(), static_cast<uint32_t>(nRoom));
    const Reply reply = replyIn(line);
    int32_t nExpected = reply.nResult;
    if (reply.nResult >= 0 && reply.nStatus == 0)
        nExpected = 0;
    else if (reply.nResult >= 0 && reply.nStatus == 0x4001)
        nExpected = -9;
    else if (reply.nResult >= 0 && reply.nStatus == 0x4002)
        nExpected = -5;
    QV_HOLDS(nRet == nExpected);
    if (nRet != 0 || reply.nStatus != 0) {
        // Another status word without a body gives 0 as well, and an empty text.
        QV_HOLDS(out.intactBehind(nRet == 0 ? nRoom : 0));
        return;
    }
    const std::string sShown = nRoom == 0 ? "" : reply.sBody.substr(0, nRoom - 1);
    QV_HOLDS(out.intactBehind(nRoom));
    const auto got = out.first(nRoom);
    for (size_t i = 0; i < nRoom; ++i)
        QV_HOLDS(got[i] == (i < sShown.size() ? static_cast<uint8_t>(sShown[i]) : 0));
    checkSplit(beforeNul(reply.sBody));
}

void checkSetting(qvfuzz::StripeLine &line, bool bSeparator)
{
    const int32_t nRet = bSeparator ? COMM_Msg_RDZSetSeparator("|") : COMM_Msg_RDZSetTimeout(7);
    const Reply reply = replyIn(line);
    if (bSeparator)
        QV_HOLDS(nRet == (reply.nResult >= 0 && reply.nStatus == 0 ? 0 : -55));
    else
        QV_HOLDS(nRet == (reply.nResult < 0 || (reply.nResult == 0 && reply.nStatus == 0) ? 0 : -1));
    QV_HOLDS(bSeparator || g_bIsLinuxHidClearZero == 0);
}

void checkWriteAll(qvfuzz::StripeLine &line)
{
    const int32_t nRet = WriteTrack123("B1", "2", nullptr, 1);
    const Reply reply = replyIn(line);
    int32_t nExpected = reply.nResult;
    if (reply.nResult >= 0)
        nExpected = reply.nStatus == 0 ? 0 : reply.nStatus == 0x4001 ? -6 : -100;
    QV_HOLDS(nRet == nExpected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    const size_t nPiece = size_t{input.byte()} + 1;
    const size_t nRoom = size_t{input.byte()} * 3;
    const bool bFrame = (ucMode & 4) != 0;
    const auto bytes = input.take(bFrame ? nBodyMax : nBytesMax);
    Bytes stream = bFrame ? qvfuzz::replyFrame(ucHead, ucEnd, statusWords[ucMode >> 3 & 3], bytes)
                          : Bytes(bytes.begin(), bytes.end());
    qvfuzz::StripeLine line(std::move(stream), nPiece);
    switch (ucMode & 3) {
    case 0: checkReadAll(line, nRoom); break;
    case 1: checkSetting(line, true); break;
    case 2: checkSetting(line, false); break;
    default: checkWriteAll(line); break;
    }
    return 0;
}
