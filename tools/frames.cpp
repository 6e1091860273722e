// head | length (4 characters) | data | LRC of the data (2 characters) | end
//
// Each byte between head and end travels as two characters 0x30 + half. Replies begin their data with a status word of
// two bytes. Card frames stand between 02 and 03, peripheral frames between 01 and 04.
#include "frames.h"

#include "command_words.h"

#include <array>

namespace qvtool {

namespace {

constexpr std::array<FrameKind, 2> frameKinds{
    {{ucCardHead, 0x03, "card frame"}, {ucPeripheralHead, 0x04, "peripheral frame"}}};

// The characters between the markers, two to a byte.
bool mergeHalves(BytesView characters, Bytes &out)
{
    if (characters.size() % 2 != 0)
        return false;
    for (size_t n = 0; n < characters.size(); n += 2) {
        if (characters[n] < 0x30 || characters[n] > 0x3F || characters[n + 1] < 0x30 || characters[n + 1] > 0x3F)
            return false;
        out.push_back(static_cast<uint8_t>((characters[n] & 15) << 4 | (characters[n + 1] & 15)));
    }
    return true;
}

} // namespace

const FrameKind *kindOfHead(uint8_t ucHead)
{
    for (const FrameKind &kind : frameKinds)
        if (kind.ucHead == ucHead)
            return &kind;
    return nullptr;
}

std::string countText(size_t nCount, const char *pszOne)
{
    return std::to_string(nCount) + " " + pszOne + (nCount == 1 ? "" : "s");
}

Frame openFrame(BytesView whole)
{
    constexpr size_t nOverhead = 3; // length and LRC
    Frame frame;
    frame.pKind = kindOfHead(whole[0]);
    Bytes bytes;
    if (!mergeHalves(whole.subspan(1, whole.size() - 2), bytes)) {
        frame.sFault = "characters that are no half-bytes";
        return frame;
    }
    if (bytes.size() < nOverhead) {
        frame.sFault = "too short";
        return frame;
    }
    frame.data.assign(bytes.begin() + 2, bytes.end() - 1);
    size_t nDeclared = static_cast<size_t>(bytes[0]) << 8 | bytes[1];
    uint8_t ucCheck = 0;
    for (uint8_t uc : frame.data)
        ucCheck = static_cast<uint8_t>(ucCheck ^ uc);
    if (ucCheck != bytes.back())
        frame.sFault = "LRC wrong";
    else if (nDeclared != frame.data.size())
        frame.sFault = "declares " + countText(nDeclared, "byte") + ", holds " + std::to_string(frame.data.size());
    return frame;
}

} // namespace qvtool
