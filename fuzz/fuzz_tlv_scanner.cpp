// fuzz_tlv_scanner.cpp - the search that enters templates, the values that it gives, the table of types and the pruned
// list, against a plain reader of the same rules.
//
// input: flags (1: without a length), length of the tag (1 to 4), tag, buffer (also the table, and the list)

#include "fuzz_support.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <optional>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr int32_t nMark = 0x5EADBEEF;
constexpr size_t nValueMax = 0xFFFF;
constexpr size_t nInputMax = 4096;

// A buffer without a length ends by itself: zeros behind it, more of them than a value can step over.
constexpr size_t nZeros = nValueMax + 16;

bool isLong(uint8_t uc)
{
    return uc % 32 == 31;
}

// The tag at nAt; empty: cut off, broken, or none.
Bytes tagAt(const Bytes &buf, size_t nAt, bool bBounded)
{
    Bytes tag;
    if (nAt >= buf.size() || buf[nAt] == 0xFF || (!bBounded && buf[nAt] == 0))
        return tag;
    tag.push_back(buf[nAt]);
    if (!isLong(buf[nAt]))
        return tag;
    do {
        ++nAt;
        if (nAt >= buf.size() || (bBounded && buf[nAt] == 0xFF))
            return {};
        tag.push_back(buf[nAt]);
    } while (bBounded && buf[nAt] >= 0x80);
    return tag;
}

struct Length {
    size_t nField;
    size_t nValue;
};

std::optional<Length> lengthAt(const Bytes &buf, size_t nAt)
{
    const size_t nHave = nAt < buf.size() ? buf.size() - nAt : 0;
    if (nHave >= 1 && buf[nAt] != 0x81 && buf[nAt] != 0x82)
        return Length{1, buf[nAt]};
    if (nHave >= 2 && buf[nAt] == 0x81)
        return Length{2, buf[nAt + 1]};
    if (nHave >= 3 && buf[nAt] == 0x82)
        return Length{3, buf[nAt + 1] * size_t{256} + buf[nAt + 2]};
    return std::nullopt;
}

std::optional<size_t> findPlainly(const Bytes &wanted, const Bytes &buf, bool bBounded)
{
    for (size_t nAt = 0;;) {
        const Bytes tag = tagAt(buf, nAt, bBounded);
        if (tag.empty())
            return std::nullopt;
        if (tag == wanted)
            return nAt;
        const auto length = lengthAt(buf, nAt + tag.size());
        if (!length)
            return std::nullopt;
        nAt += tag.size() + length->nField + ((tag[0] & 0x20) != 0 ? 0 : length->nValue);
    }
}

std::optional<Bytes> valuePlainly(const Bytes &wanted, const Bytes &buf, bool bBounded)
{
    const auto nAt = findPlainly(wanted, buf, bBounded);
    if (!nAt)
        return std::nullopt;
    const size_t nLengthAt = *nAt + wanted.size();
    const auto length = lengthAt(buf, nLengthAt);
    if (!length)
        return std::nullopt;
    const size_t nValue = buf[nLengthAt] == 0x81 ? buf[1] : length->nValue;
    const size_t nValueAt = nLengthAt + length->nField;
    if (nValueAt > buf.size() || buf.size() - nValueAt < nValue)
        return std::nullopt;
    const auto at = buf.begin() + static_cast<std::ptrdiff_t>(nValueAt);
    return Bytes(at, at + static_cast<std::ptrdiff_t>(nValue));
}

int32_t typePlainly(const Bytes &wanted, const Bytes &table)
{
    for (size_t nAt = 0;;) {
        const Bytes tag = tagAt(table, nAt, true);
        nAt += tag.size();
        if (tag.empty() || nAt >= table.size())
            return 0;
        if (tag == wanted)
            return table[nAt];
        ++nAt;
    }
}

Bytes prunePlainly(const Bytes &buf, const Bytes &list, bool bBounded)
{
    Bytes left;
    for (size_t nAt = 0; nAt < list.size();) {
        const size_t nTag = isLong(list[nAt]) ? 2 : 1;
        const auto at = list.begin() + static_cast<std::ptrdiff_t>(nAt);
        const bool bWhole = list.size() - nAt >= nTag;
        const Bytes tag(at, bWhole ? at + static_cast<std::ptrdiff_t>(nTag) : list.end());
        if (!bWhole || !findPlainly(tag, buf, bBounded))
            left.insert(left.end(), tag.begin(), tag.end());
        nAt += nTag;
    }
    return left;
}

void checkSearch(const Bytes &tag, const Bytes &buf, bool bBounded)
{
    const auto nTag = static_cast<int32_t>(tag.size());
    const int32_t nBuf = bBounded ? static_cast<int32_t>(buf.size()) : 0;
    const Bytes before = buf;
    const uint8_t *pFound = quorvan_find_tag(tag.data(), nTag, buf.data(), nBuf);
    const auto nAt = findPlainly(tag, buf, bBounded);
    QV_HOLDS((pFound != nullptr) == nAt.has_value());
    QV_HOLDS(pFound == nullptr || pFound == buf.data() + *nAt);

    Area out(bBounded ? buf.size() : nValueMax);
    int32_t nLen = nMark;
    const int32_t nRet = quorvan_get_tag_value(tag.data(), nTag, buf.data(), nBuf, out.data(), &nLen);
    const auto value = valuePlainly(tag, buf, bBounded);
    QV_HOLDS(nRet == (value ? 0 : -1));
    QV_HOLDS(nLen == (value ? static_cast<int32_t>(value->size()) : nMark));
    QV_HOLDS(out.intactBehind(value ? value->size() : 0));
    QV_HOLDS(!value || std::ranges::equal(out.first(value->size()), *value));
    QV_HOLDS(buf == before);
}

// The value behind the length field at the front, where it is all there.
void checkData(const Bytes &buf)
{
    const auto length = lengthAt(buf, 0);
    if (!length || buf.size() - length->nField < length->nValue % 256)
        return;
    Area out(255);
    uint8_t ucLen = 0;
    QV_HOLDS(quorvan_get_tag_data(0, buf.data(), out.data(), &ucLen) == 0);
    QV_HOLDS(ucLen == length->nValue % 256);
    QV_HOLDS(out.intactBehind(ucLen));
    QV_HOLDS(std::equal(buf.begin() + static_cast<std::ptrdiff_t>(length->nField),
                        buf.begin() + static_cast<std::ptrdiff_t>(length->nField + ucLen), out.data()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, std::min(nSize, nInputMax));
    const bool bBounded = (input.byte() & 1) == 0;
    const size_t nTag = input.byte() % 4 + size_t{1};
    const auto tagBytes = input.take(nTag);
    const auto rest = input.rest();
    if (tagBytes.empty())
        return 0;
    const Bytes tag(tagBytes.begin(), tagBytes.end());
    const Bytes bare(rest.begin(), rest.end());
    Bytes whole = bare;
    if (!bBounded)
        whole.resize(bare.size() + nZeros);
    if (!whole.empty())
        checkSearch(tag, whole, bBounded);
    checkData(bare);
    QV_HOLDS(quorvan_get_tag_type(tag.data(), static_cast<int32_t>(tag.size()), bare.data(),
                                  static_cast<int32_t>(bare.size())) == typePlainly(tag, bare));

    // The list is the front of the buffer, where whole tags stand among others.
    if (whole.empty())
        return 0;
    Bytes request(bare.begin(), bare.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(bare.size(), 64)));
    request.insert(request.end(), tag.begin(), tag.end());
    Bytes list(request); // in a block of exactly its size
    const Bytes left = prunePlainly(whole, list, bBounded);
    const int32_t nLeft = quorvan_findapptag(whole.data(), bBounded ? static_cast<int32_t>(whole.size()) : 0,
                                             list.data(), static_cast<int32_t>(list.size()));
    QV_HOLDS(nLeft == static_cast<int32_t>(left.size()));
    QV_HOLDS(std::equal(left.begin(), left.end(), list.begin()));
    return 0;
}
