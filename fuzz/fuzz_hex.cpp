// fuzz_hex.cpp - the decoders of hexadecimal text and the coders back, each against a plain form of its rule.
//
// input: bytes wanted (2 bytes, high first), text

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr size_t nAreaSize = 4096;

uint8_t join(int nHigh, int nLow)
{
    return static_cast<uint8_t>(static_cast<unsigned>(nHigh) << 4 | static_cast<unsigned>(nLow));
}

// Exactly this was written.
void check(const Area &out, const Bytes &expected)
{
    QV_HOLDS(out.intactBehind(expected.size()));
    const auto got = out.first(expected.size());
    QV_HOLDS(std::equal(got.begin(), got.end(), expected.begin()));
}

Bytes uncheckedBytes(std::span<const uint8_t> text)
{
    constexpr int nNone = 0x55;
    Bytes out;
    int nPending = nNone;
    for (int c : text) {
        const int n = c >= 0x61 ? c - 0x57 : c >= 0x41 ? c - 0x37 : c >= 0x30 ? c - 0x30 : c & 15;
        if (nPending == nNone) {
            nPending = n;
        } else {
            out.push_back(join(nPending, n));
            nPending = nNone;
        }
    }
    if (nPending != nNone)
        out.push_back(join(nPending & 15, 0));
    return out;
}

int upperOrLower(int c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : c - 0x57;
}

int strict(int c)
{
    return std::isxdigit(c) == 0 ? -1 : std::isdigit(c) != 0 ? c - '0' : (c | 0x20) - 'a' + 10;
}

template <typename Value> Bytes pairs(std::span<const uint8_t> text, Value value)
{
    Bytes out;
    for (size_t i = 0; i + 2 <= text.size(); i += 2)
        out.push_back(join(value(text[i]), value(text[i + 1])));
    return out;
}

void decode(std::span<const uint8_t> text)
{
    const auto *pText = reinterpret_cast<const char *>(text.data());
    const auto nLen = static_cast<int32_t>(text.size());
    const bool bOdd = nLen % 2 != 0;

    Area unchecked((text.size() + 1) / 2);
    QV_HOLDS(Str_AscToHex(pText, nLen, unchecked.data()) == 0);
    check(unchecked, uncheckedBytes(text));

    Area merged(text.size() / 2);
    QV_HOLDS(Str_MergeBcdToHex(pText, nLen, merged.data()) == (bOdd ? 0 : nLen / 2));
    check(merged, bOdd ? Bytes{} : pairs(text, upperOrLower));

    Area local(text.size() / 2);
    QV_HOLDS(Str_localMergeBcdToHex(pText, nLen, local.data()) == (bOdd ? -1 : nLen / 2));
    check(local, pairs(text, strict));

    Area halves(text.size() / 2);
    Str_RdzModeMergeData(text.data(), nLen, halves.data());
    Bytes expected;
    for (size_t i = 0; !bOdd && i < text.size(); i += 2)
        expected.push_back(join(text[i], text[i + 1] & 15));
    check(halves, expected);
}

// A number of bytes is wanted, whatever the text has.
void decodeFilled(std::span<const uint8_t> text, uint32_t nWanted)
{
    const auto *pText = reinterpret_cast<const char *>(text.data());
    const size_t nBytes = std::min<size_t>(nWanted, nAreaSize / 2);

    Bytes padded(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(std::min(text.size(), nAreaSize)));
    padded.resize(nAreaSize, 'F');
    padded.resize(2 * nBytes);
    Area cn(nWanted);
    QV_HOLDS(Str_AsciiToCn(pText, static_cast<int32_t>(text.size()), cn.data(), nWanted) ==
             static_cast<int32_t>(nBytes));
    check(cn, uncheckedBytes(padded));

    const auto kept = text.first(std::min(text.size(), 2 * nBytes));
    padded.assign(2 * nBytes - kept.size(), '0');
    padded.insert(padded.end(), kept.begin(), kept.end());
    Area bcd(nWanted);
    QV_HOLDS(Str_AsciiToBcd(pText, static_cast<uint32_t>(text.size()), bcd.data(), nWanted) ==
             static_cast<int32_t>(nBytes));
    check(bcd, uncheckedBytes(padded));
}

// Bytes to text and back are the bytes again.
void encode(std::span<const uint8_t> data)
{
    const auto nLen = static_cast<int32_t>(data.size());
    const Bytes same(data.begin(), data.end());
    Area upper(2 * data.size() + 1), lower(2 * data.size() + 1), split(2 * data.size()), halves(2 * data.size());
    QV_HOLDS(Str_HexToAsc(data.data(), 2 * nLen, upper.text()) == 0);
    QV_HOLDS(Str_localSplitHexToBCD(data.data(), nLen, lower.text()) == 0);
    QV_HOLDS(Str_SplitHexToBCD(data.data(), nLen, split.text()) == nLen);
    Str_RdzModeSplitData(data.data(), nLen, halves.data());
    QV_HOLDS(upper.intactBehind(2 * data.size() + 1) && lower.intactBehind(2 * data.size() + 1));
    QV_HOLDS(split.intactBehind(2 * data.size()) && halves.intactBehind(2 * data.size()));
    QV_HOLDS(std::strlen(upper.text()) == 2 * data.size() && std::strlen(lower.text()) == 2 * data.size());

    for (const char *pText : {upper.text(), lower.text(), split.text()}) {
        Area back(data.size()), backLocal(data.size());
        QV_HOLDS(Str_AscToHex(pText, 2 * nLen, back.data()) == 0);
        QV_HOLDS(Str_localMergeBcdToHex(pText, 2 * nLen, backLocal.data()) == nLen);
        check(back, same);
        check(backLocal, same);
    }
    Area back(data.size());
    Str_RdzModeMergeData(halves.data(), 2 * nLen, back.data());
    check(back, same);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint32_t nHigh = input.byte();
    const uint32_t nWanted = (nHigh << 8 | input.byte()) % 2200;
    const auto text = input.rest();
    if (text.empty())
        return 0;
    decode(text);
    decodeFilled(text, nWanted);
    encode(text);
    return 0;
}
