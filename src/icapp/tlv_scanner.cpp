// tlv_scanner.cpp - BER-TLV search that enters constructed templates (ISO 7816-4), over one buffer.
//
//     tag       low five bits of the first byte all set: it goes on. Bounded: while the high bit is set, and one byte
//               more; unbounded (no length given): one byte more
//     length    one byte, or 81 and one byte, or 82 and two bytes; every other first byte is itself the length
//     end       bounded: the end of the buffer, or FF where a tag should start; unbounded: 00 or FF there
//
// A head or a value that is cut off by the end of a bounded buffer is never read.

#include "qvreader/icapp.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace {

constexpr uint8_t ucFiller = 0xFF;
constexpr uint8_t ucLongTag = 0x1F;     // in a tag's first byte
constexpr uint8_t ucConstructed = 0x20; // likewise
constexpr uint8_t ucGoesOn = 0x80;      // in the following ones
constexpr uint8_t ucOneByte = 0x81;     // length forms
constexpr uint8_t ucTwoBytes = 0x82;

bool isLongTag(uint8_t ucFirst) noexcept
{
    return (ucFirst & ucLongTag) == ucLongTag;
}

// Bytes with an end, or without one (nLen 0) where the caller trusts them.
class Source {
  public:
    Source(const uint8_t *pBytes, int32_t nLen) noexcept : m_pBytes(pBytes), m_nLen(nLen) {}

    bool isBounded() const noexcept { return m_nLen > 0; }
    // True: n bytes from nAt on may be read.
    bool has(int64_t nAt, int64_t n) const noexcept { return !isBounded() || n <= m_nLen - nAt; }
    uint8_t at(int64_t nAt) const noexcept { return m_pBytes[nAt]; }
    const uint8_t *from(int64_t nAt) const noexcept { return m_pBytes + nAt; }

    bool isEnd(int64_t nAt) const noexcept
    {
        if (!has(nAt, 1))
            return true;
        return at(nAt) == ucFiller || (!isBounded() && at(nAt) == 0);
    }

    // Bytes of the tag at nAt; nothing when it is cut off or broken by filler.
    std::optional<int64_t> tagLength(int64_t nAt) const noexcept
    {
        if (!isLongTag(at(nAt)))
            return 1;
        if (!isBounded())
            return 2;
        for (int64_t n = 1; has(nAt, n + 1); ++n) {
            if (at(nAt + n) == ucFiller)
                return std::nullopt;
            if ((at(nAt + n) & ucGoesOn) == 0)
                return n + 1;
        }
        return std::nullopt;
    }

  private:
    const uint8_t *m_pBytes;
    int64_t m_nLen;
};

struct Length {
    int64_t nField; // bytes of the length field
    int64_t nValue;
};

std::optional<Length> lengthAt(const Source &source, int64_t nAt) noexcept
{
    if (!source.has(nAt, 1))
        return std::nullopt;
    const uint8_t ucFirst = source.at(nAt);
    if (ucFirst != ucOneByte && ucFirst != ucTwoBytes)
        return Length{1, ucFirst};
    const int64_t nField = ucFirst == ucOneByte ? 2 : 3;
    if (!source.has(nAt, nField))
        return std::nullopt;
    const int64_t nValue = ucFirst == ucOneByte ? source.at(nAt + 1) : source.at(nAt + 1) << 8 | source.at(nAt + 2);
    return Length{nField, nValue};
}

bool isTag(const Source &source, int64_t nAt, int64_t nLen, const uint8_t *pWanted, int32_t nWanted) noexcept
{
    return nLen == nWanted && std::equal(pWanted, pWanted + nWanted, source.from(nAt));
}

// Where the tag stands; negative: nowhere.
int64_t findTag(const Source &source, const uint8_t *pWanted, int32_t nWanted) noexcept
{
    int64_t nAt = 0;
    while (!source.isEnd(nAt)) {
        const auto nTag = source.tagLength(nAt);
        if (!nTag)
            break;
        if (isTag(source, nAt, *nTag, pWanted, nWanted))
            return nAt;
        const auto length = lengthAt(source, nAt + *nTag);
        if (!length)
            break;
        const bool bEnter = (source.at(nAt) & ucConstructed) != 0;
        nAt += *nTag + length->nField + (bEnter ? 0 : length->nValue);
    }
    return -1;
}

} // namespace

uint8_t *quorvan_find_tag(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pBuf, int32_t nBufLen) noexcept
{
    if (pTag == nullptr || pBuf == nullptr || nBufLen < 0)
        return nullptr;
    const int64_t nAt = findTag(Source(pBuf, nBufLen), pTag, nTagLen);
    return nAt < 0 ? nullptr : const_cast<uint8_t *>(pBuf + nAt);
}

int32_t quorvan_get_tag_value(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pBuf, int32_t nBufLen, uint8_t *pOut,
                              int32_t *pnOutLen) noexcept
{
    if (pTag == nullptr || pBuf == nullptr || nBufLen < 0 || pOut == nullptr || pnOutLen == nullptr)
        return RET_PUB_FAIL;
    const Source source(pBuf, nBufLen);
    const int64_t nAt = findTag(source, pTag, nTagLen);
    if (nAt < 0)
        return RET_PUB_FAIL;
    const auto length = lengthAt(source, nAt + nTagLen);
    if (!length)
        return RET_PUB_FAIL;
    // After 81 the length is the second byte of the whole buffer, not the one behind the 81.
    const int64_t nValue = source.at(nAt + nTagLen) == ucOneByte ? source.at(1) : length->nValue;
    const int64_t nValueAt = nAt + nTagLen + length->nField;
    if (!source.has(nValueAt, nValue))
        return RET_PUB_FAIL;
    std::copy_n(source.from(nValueAt), nValue, pOut);
    *pnOutLen = static_cast<int32_t>(nValue);
    return 0;
}

int32_t quorvan_get_tag_data(int32_t nOffset, const uint8_t *pBuf, uint8_t *pOut, uint8_t *pucOutLen) noexcept
{
    if (pBuf == nullptr || pOut == nullptr || pucOutLen == nullptr)
        return RET_PUB_FAIL;
    const uint8_t *pLength = pBuf + nOffset;
    // Of a length of two bytes only the low one counts: the result has one byte.
    const int32_t nField = *pLength == ucTwoBytes ? 3 : *pLength == ucOneByte ? 2 : 1;
    *pucOutLen = pLength[nField - 1];
    std::copy_n(pLength + nField, *pucOutLen, pOut);
    return 0;
}

int32_t quorvan_get_tag_type(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pTable, int32_t nTableLen) noexcept
{
    if (pTag == nullptr || pTable == nullptr || nTableLen <= 0)
        return 0;
    const Source table(pTable, nTableLen);
    for (int64_t nAt = 0; !table.isEnd(nAt);) {
        const auto nTag = table.tagLength(nAt);
        if (!nTag || !table.has(nAt + *nTag, 1))
            return 0;
        if (isTag(table, nAt, *nTag, pTag, nTagLen))
            return table.at(nAt + *nTag);
        nAt += *nTag + 1;
    }
    return 0;
}

int32_t quorvan_findapptag(const uint8_t *pBuf, int32_t nBufLen, uint8_t *pList, int32_t nListLen) noexcept
{
    if (pBuf == nullptr || pList == nullptr || nListLen < 0)
        return RET_PUB_FAIL;
    int32_t nLeft = nListLen;
    for (int32_t nAt = 0; nAt < nLeft;) {
        const int32_t nTag = isLongTag(pList[nAt]) ? 2 : 1;
        if (nTag > nLeft - nAt)
            break;
        if (quorvan_find_tag(pList + nAt, nTag, pBuf, nBufLen) == nullptr) {
            nAt += nTag;
            continue;
        }
        std::copy(pList + nAt + nTag, pList + nLeft, pList + nAt);
        nLeft -= nTag;
    }
    return nLeft;
}
