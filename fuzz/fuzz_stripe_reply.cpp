// fuzz_stripe_reply.cpp - bare replies of the stripe head: single tracks, two tracks, status; and the functions that
// take them apart.
//
// input: mode (low 3 bits: which read; bit 3: a well-made reply around the bytes; bit 4: its status is "q"), size of
// the pieces, room for the outputs, bytes

#include "fuzz_stripe_line.h"
#include "qvreader/msr.h"

#include <array>

using qvfuzz::Area;
using qvfuzz::beforeNul;
using qvfuzz::Bytes;

namespace {

constexpr size_t nBytesMax = 4500;

struct ReadRow {
    int nMode;
    std::string_view sCommand;
    size_t nRoom; // for the reply
    size_t nHead; // bytes before the text
};
constexpr std::array<ReadRow, 5> reads{{
    {1, "\x1Br", 516, 2},
    {2, "\x1B]", 512, 2},
    {3, "\x1BT]", 512, 3},
    {12,
     "\x1B"
     "D]",
     1028, 2},
    {23,
     "\x1B"
     "B]",
     1028, 2},
}};

// A track as a buffer of that size shows it: the text and NULs.
void checkOutput(const Area &out, size_t nRoom, const std::string &sTrack)
{
    QV_HOLDS(out.intactBehind(nRoom));
    const std::string sShown = nRoom == 0 ? "" : sTrack.substr(0, nRoom - 1);
    const auto got = out.first(nRoom);
    for (size_t i = 0; i < nRoom; ++i)
        QV_HOLDS(got[i] == (i < sShown.size() ? static_cast<uint8_t>(sShown[i]) : 0));
}

std::string cut(const std::string &s, size_t nFrom, size_t nBehind)
{
    return s.size() > nFrom + nBehind ? s.substr(nFrom, s.size() - nFrom - nBehind) : "";
}

struct TwoTracks {
    std::string sFirst, sSecond;
};

TwoTracks splitPlainly(const std::string &sReply)
{
    TwoTracks tracks;
    const size_t nA = sReply.find('A');
    if (nA == sReply.npos)
        return tracks;
    if (nA > 2 && sReply[2] != 0x7F)
        tracks.sFirst = sReply.substr(2, nA - 2);
    const std::string sRest = sReply.substr(nA + 1);
    if (sRest.size() > 2 && sRest[0] != 0x7F)
        tracks.sSecond = sRest.substr(0, sRest.size() - 2);
    return tracks;
}

void checkParts(const std::string &sText, size_t nRoom1, size_t nRoom2)
{
    const auto *pBytes = reinterpret_cast<const uint8_t *>(sText.data());
    const auto nLen = static_cast<int32_t>(sText.size());
    const std::string s = beforeNul(sText);
    QV_HOLDS(MsgDataEndCondition(pBytes, nLen) == (s.size() >= 2 && s.substr(s.size() - 2) == "?\x1C" ? 0 : -1));
    const char cLast = s.empty() ? ' ' : s.back();
    QV_HOLDS(MsgStatusEndCondition(pBytes, nLen) == (cLast == 'p' || cLast == 'q' ? 0 : -1));
    QV_HOLDS(tFuncCheckTrackStatusFormat(pBytes, nLen) == (cLast == 'p' ? 0 : cLast == 'q' ? -5 : -4));
    QV_HOLDS(tFuncCheckTrackFormat(pBytes, nLen) == (s.substr(0, 2) == "\x1Bs" && s.find("?\x1C") != s.npos ? 0 : -4));

    Area first(nRoom1), second(nRoom2);
    QV_HOLDS(SeperateByTrays(s.c_str(), first.text(), static_cast<uint32_t>(nRoom1), second.text(),
                             static_cast<uint32_t>(nRoom2)) == 0);
    const TwoTracks tracks = splitPlainly(s);
    checkOutput(first, nRoom1, tracks.sFirst);
    checkOutput(second, nRoom2, tracks.sSecond);

    Area before(s.size() + 1);
    const char *pFound = SplitMsgData(s.c_str(), before.text(), "|");
    const size_t nAt = std::min(s.find('|'), s.size());
    QV_HOLDS(pFound == (nAt == s.size() ? s.c_str() : s.c_str() + nAt));
    QV_HOLDS(before.intactBehind(nAt == s.size() ? 0 : nAt));
}

void checkRead(const ReadRow &row, Bytes stream, size_t nPiece, size_t nRoom1, size_t nRoom2)
{
    qvfuzz::StripeLine line(std::move(stream), nPiece);
    Area out1(nRoom1), out2(nRoom2);
    const auto n1 = static_cast<uint32_t>(nRoom1), n2 = static_cast<uint32_t>(nRoom2);
    int32_t nRet = 0;
    switch (row.nMode) {
    case 1: nRet = ReadTrack1(out1.text(), n1); break;
    case 2: nRet = ReadTrack2(out1.text(), n1); break;
    case 3: nRet = ReadTrack3(out1.text(), n1); break;
    case 12: nRet = ReadTrack12(out2.text(), n2, out1.text(), n1); break;
    default: nRet = ReadTrack23(out1.text(), n1, out2.text(), n2); break;
    }

    const auto isData = [](std::string_view s) { return beforeNul(s).ends_with("?\x1C"); };
    const auto isStatus = [](std::string_view s) {
        const std::string sText = beforeNul(s);
        return sText.ends_with('p') || sText.ends_with('q');
    };
    int32_t nExpected = RET_PUB_READ_FAIL;
    std::string sAsked(row.sCommand), sReply;
    if (const auto data = line.expect(isData)) {
        sReply = beforeNul(data->substr(0, row.nRoom));
        nExpected = RET_PUB_PACKET_ERR;
        if (sReply.starts_with("\x1Bs") && sReply.find("?\x1C") != sReply.npos) {
            sAsked += "\x1Bj";
            const auto status = line.expect(isStatus);
            const std::string sStatus = status ? beforeNul(status->substr(0, 128)) : "";
            nExpected = sStatus.ends_with('p') ? 0 : sStatus.ends_with('q') ? -5 : -4;
        }
    }
    QV_HOLDS(nRet == nExpected);
    QV_HOLDS(line.question() == sAsked);
    if (nRet != 0) {
        QV_HOLDS(out1.intactBehind(0) && out2.intactBehind(0));
        return;
    }
    if (row.nMode < 10) {
        checkOutput(out1, nRoom1, cut(sReply, row.nHead, 2));
        return;
    }
    const TwoTracks tracks = splitPlainly(sReply);
    checkOutput(out1, nRoom1, tracks.sFirst);
    checkOutput(out2, nRoom2, tracks.sSecond);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    const size_t nPiece = size_t{input.byte()} + 1;
    const size_t nRoom1 = input.byte(), nRoom2 = nRoom1 * 3;
    const auto bytes = input.take(nBytesMax);
    checkParts(std::string(bytes.begin(), bytes.end()), nRoom1, nRoom2);

    Bytes stream(bytes.begin(), bytes.end());
    if ((ucMode & 8) != 0) {
        stream.insert(stream.begin(), {0x1B, 's'});
        stream.insert(stream.end(), {'?', 0x1C, (ucMode & 16) != 0 ? uint8_t{'q'} : uint8_t{'p'}});
    }
    checkRead(reads[(ucMode & 7) % reads.size()], std::move(stream), nPiece, nRoom1, nRoom2);
    return 0;
}
