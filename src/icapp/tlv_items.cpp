// tlv_items.cpp - BER-TLV items of one level (ISO 7816-4): a template is one item; its inner items are looked up in its
// value.
//
//     tag       two bytes where the low five bits of the first are all set, else one
//     length    below 80 itself; 81, 82, 83 and one, two, three bytes; any other form fails
//     filler    00 and FF where a tag is expected
//
// Items point into the caller's buffer. Nothing is read behind its end.

#include "qvreader/icapp.h"

#include "log.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

constexpr uint8_t ucLongTag = 0x1F;
constexpr uint8_t ucLongLength = 0x80;
constexpr uint8_t ucLengthBytesMax = 3;
constexpr uint32_t nLengthMax = 0xFFFFFF;

int32_t tagLength(uint8_t ucFirst) noexcept
{
    return (ucFirst & ucLongTag) == ucLongTag ? 2 : 1;
}

bool isFiller(uint8_t uc) noexcept
{
    return uc == 0x00 || uc == 0xFF;
}

// Bytes of a length field, by its first byte; nothing for a form that is not known.
std::optional<int32_t> lengthFieldSize(uint8_t ucFirst) noexcept
{
    if (ucFirst < ucLongLength)
        return 1;
    const uint8_t ucMore = ucFirst & 0x7F;
    if (ucMore == 0 || ucMore > ucLengthBytesMax)
        return std::nullopt;
    return 1 + ucMore;
}

// The value behind a length field that is all there.
TlvValue valueBehind(const uint8_t *pLength, int32_t nField) noexcept
{
    if (*pLength == 0)
        return {0, nullptr};
    uint32_t nLen = nField == 1 ? *pLength : 0;
    for (int32_t i = 1; i < nField; ++i)
        nLen = nLen << 8 | pLength[i];
    return {nLen, pLength + nField};
}

// Parses one item of at most nAvail bytes. Its size in bytes; -1: cut off, or a length form that is not known.
inline int64_t parse(TlvItem &item, const uint8_t *pTlv, int64_t nAvail) noexcept
{
    if (nAvail < 1)
        return -1;
    const int32_t nTag = tagLength(*pTlv);
    if (nAvail <= nTag)
        return -1;
    const auto nField = lengthFieldSize(pTlv[nTag]);
    if (!nField || nAvail < nTag + *nField)
        return -1;
    const TlvValue value = valueBehind(pTlv + nTag, *nField);
    const int64_t nSize = int64_t{nTag} + *nField + value.nValueLen;
    if (nSize > nAvail)
        return -1;
    item = {nTag, pTlv, value.nValueLen, value.pValue};
    return nSize;
}

enum class Step { GoOn, Stop };

// Hands the items of one level to visit(item, size, remaining), which says whether to stop. 0: stopped; 1: all were
// seen;
// -1: an item is malformed.
template <typename Visit> int32_t walk(const uint8_t *pBuf, int64_t nLeft, Visit visit) noexcept
{
    while (nLeft >= 1) {
        if (isFiller(*pBuf)) {
            ++pBuf;
            --nLeft;
            continue;
        }
        TlvItem item;
        const int64_t nSize = parse(item, pBuf, nLeft);
        if (nSize < 0)
            return -1;
        if (visit(item, nSize, nLeft) == Step::Stop)
            return 0;
        pBuf += nSize;
        nLeft -= nSize;
    }
    return 1;
}

// Byte by byte: tags have one or two, and a call of a library function for each item would be the dearest part of a
// search.
bool isTag(const TlvItem &item, const char *pszTag) noexcept
{
    const auto nTag = static_cast<size_t>(item.nTagLen);
    for (size_t i = 0; i < nTag; ++i)
        if (pszTag[i] == '\0' || static_cast<uint8_t>(pszTag[i]) != item.pTag[i])
            return false;
    return pszTag[nTag] == '\0';
}

int32_t copyValue(const TlvItem &item, uint8_t *pOut, uint32_t *pnOutLen) noexcept
{
    if (item.nValueLen > 0)
        std::copy_n(item.pValue, item.nValueLen, pOut);
    *pnOutLen = item.nValueLen;
    return 0;
}

// The first item of that tag. True: found.
bool find(const char *pszTag, const uint8_t *pBuf, int64_t nLen, TlvItem &found) noexcept
{
    if (pszTag == nullptr || pBuf == nullptr)
        return false;
    return walk(pBuf, nLen, [&](const TlvItem &item, int64_t, int64_t) {
               if (!isTag(item, pszTag))
                   return Step::GoOn;
               found = item;
               return Step::Stop;
           }) == 0;
}

} // namespace

void Ex_TLV_Parse_Tag(TlvItem *pItem, const uint8_t *pTag) noexcept
{
    if (pItem == nullptr || pTag == nullptr)
        return;
    pItem->nTagLen = tagLength(*pTag);
    pItem->pTag = pTag;
}

int32_t Ex_TLV_Parse_Length(TlvValue *pPair, const uint8_t *pLength) noexcept
{
    if (pPair == nullptr || pLength == nullptr)
        return RET_PUB_FAIL;
    const auto nField = lengthFieldSize(*pLength);
    if (!nField)
        return RET_PUB_FAIL;
    *pPair = valueBehind(pLength, *nField);
    return 0;
}

int32_t TLV_Parser(TlvItem *pItem, const uint8_t *pTlv, int32_t nAvail) noexcept
{
    if (pItem == nullptr || pTlv == nullptr)
        return RET_PUB_FAIL;
    return parse(*pItem, pTlv, nAvail) < 0 ? static_cast<int32_t>(RET_PUB_FAIL) : 0;
}

int32_t TLV_GetData(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, uint8_t **ppValue,
                    uint32_t *pnValueLen) noexcept
{
    TlvItem item;
    if (ppValue == nullptr || pnValueLen == nullptr || !find(pszTag, pBuf, nBufLen, item))
        return RET_PUB_FAIL;
    *ppValue = const_cast<uint8_t *>(item.pValue);
    *pnValueLen = item.nValueLen;
    return 0;
}

int32_t TLV_GetTagOff(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, int32_t *pnOff, int32_t *pnLen) noexcept
{
    if (pszTag == nullptr || pBuf == nullptr || pnOff == nullptr || pnLen == nullptr)
        return RET_PUB_FAIL;
    int64_t nOff = 0; // filler does not count
    const int32_t nWalked = walk(pBuf, nBufLen, [&](const TlvItem &item, int64_t nSize, int64_t nLeft) {
        if (!isTag(item, pszTag)) {
            nOff += nSize;
            return Step::GoOn;
        }
        *pnOff = static_cast<int32_t>(nOff);
        *pnLen = static_cast<int32_t>(nSize);
        std::fprintf(stderr, "nSrcLen:%d,*nOff:%d,*nLen:%d\n", static_cast<int>(nLeft), *pnOff, *pnLen);
        return Step::Stop;
    });
    return nWalked == 0 ? 0 : static_cast<int32_t>(RET_PUB_FAIL);
}

int32_t Ex_TLV_GetDataByTag(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, uint8_t *pOut,
                            uint32_t *pnOutLen) noexcept
{
    TlvItem item;
    if (pOut == nullptr || pnOutLen == nullptr || !find(pszTag, pBuf, nBufLen, item))
        return RET_PUB_FAIL;
    return copyValue(item, pOut, pnOutLen);
}

int32_t Ex_TLV_GetDataByTagandTmplt(const char *pszTag, const char *pszTemplates, const uint8_t *pBuf, int32_t nBufLen,
                                    uint8_t *pOut, uint32_t *pnOutLen) noexcept
{
    if (pOut == nullptr || pnOutLen == nullptr)
        return RET_PUB_FAIL;
    int64_t nLen = nBufLen;
    for (const char *pTemplate = pszTemplates; pTemplate != nullptr && *pTemplate != '\0'; ++pTemplate) {
        const char szTemplate[] = {*pTemplate, '\0'};
        TlvItem item;
        if (!find(szTemplate, pBuf, nLen, item))
            return RET_PUB_FAIL;
        pBuf = item.pValue;
        nLen = item.nValueLen;
    }
    TlvItem item;
    return find(pszTag, pBuf, nLen, item) ? copyValue(item, pOut, pnOutLen) : static_cast<int32_t>(RET_PUB_FAIL);
}

int32_t Ex_TLV_Count(const uint8_t *pBuf, int32_t nBufLen, int32_t *pnCount) noexcept
{
    if (pBuf == nullptr || pnCount == nullptr)
        return RET_PUB_FAIL;
    int32_t nCount = 0;
    const int32_t nWalked = walk(pBuf, nBufLen, [&](const TlvItem &, int64_t, int64_t) {
        ++nCount;
        return Step::GoOn;
    });
    if (nWalked < 0)
        return RET_PUB_FAIL;
    *pnCount = nCount;
    return 0;
}

int32_t Tlv_Unpack_Data(TlvItem **ppItems, const uint8_t *pBuf, int32_t nBufLen, int32_t *pnCount) noexcept
{
    if (ppItems == nullptr)
        return RET_PUB_FAIL;
    *ppItems = nullptr;
    int32_t nCount = 0;
    const int32_t nRet = Ex_TLV_Count(pBuf, nBufLen, &nCount);
    QV_LOG(qv::kLogAppIc, "Tlv_Unpack_Data nCount %d  nRet %d\n ", nCount, nRet);
    if (nRet != 0 || pnCount == nullptr)
        return RET_PUB_FAIL;
    // The host releases it with free().
    auto *pItems = static_cast<TlvItem *>(std::malloc(static_cast<size_t>(nCount) * sizeof(TlvItem)));
    if (pItems == nullptr)
        return RET_PUB_FAIL;
    int32_t nStored = 0;
    walk(pBuf, nBufLen, [&](const TlvItem &item, int64_t, int64_t) {
        if (nStored == nCount)
            return Step::Stop; // the buffer has changed meanwhile
        pItems[nStored++] = item;
        return Step::GoOn;
    });
    *ppItems = pItems;
    *pnCount = nStored;
    return 0;
}

int32_t Tlv_Pack_Data(uint8_t *pOut, const char *pszTag, const uint8_t *pValue, uint32_t nValueLen,
                      uint32_t *pnOutLen) noexcept
{
    if (pOut == nullptr || pszTag == nullptr || pnOutLen == nullptr || (pValue == nullptr && nValueLen > 0))
        return RET_PUB_FAIL;
    const size_t nTag = strnlen(pszTag, 3);
    if (nTag < 1 || nTag != static_cast<size_t>(tagLength(static_cast<uint8_t>(*pszTag))) || nValueLen > nLengthMax)
        return RET_PUB_FAIL;
    uint8_t *pAt = std::copy_n(pszTag, nTag, pOut);
    uint32_t nMore = 0; // bytes behind the first one of the length field
    while (nValueLen >= ucLongLength && nMore < ucLengthBytesMax && nValueLen >> (8 * nMore) != 0)
        ++nMore;
    if (nMore > 0)
        *pAt++ = static_cast<uint8_t>(ucLongLength | nMore);
    else
        *pAt++ = static_cast<uint8_t>(nValueLen);
    for (uint32_t i = nMore; i > 0; --i)
        *pAt++ = static_cast<uint8_t>(nValueLen >> (8 * (i - 1)));
    if (nValueLen > 0)
        pAt = std::copy_n(pValue, nValueLen, pAt);
    *pnOutLen = static_cast<uint32_t>(pAt - pOut);
    return 0;
}

int32_t Ex_TLV_GetDataFromTlv(const TlvItem *pItems, int32_t nCount, const char *pszTag, uint8_t *pOut,
                              uint32_t *pnOutLen, int32_t *pnIndex) noexcept
{
    if (pItems == nullptr || pszTag == nullptr || pOut == nullptr || pnOutLen == nullptr || pnIndex == nullptr)
        return RET_PUB_FAIL;
    for (int32_t i = 0; i < nCount; ++i) {
        if (!isTag(pItems[i], pszTag))
            continue;
        *pnIndex = i;
        return copyValue(pItems[i], pOut, pnOutLen);
    }
    return RET_PUB_FAIL;
}

int32_t Ex_TLV_IsDuplicates(const TlvItem *pItems, int32_t nCount, const char *pszTag) noexcept
{
    if (pItems == nullptr || pszTag == nullptr)
        return RET_PUB_FAIL;
    int32_t nFound = 0;
    for (int32_t i = 0; i < nCount; ++i)
        nFound += isTag(pItems[i], pszTag) ? 1 : 0;
    return nFound;
}

int32_t TLV_GetDataFromTlv(const TlvItem *pItems, int32_t nCount, const char *pszTag, uint8_t *pOut, uint32_t *pnOutLen,
                           int32_t *pnIndex) noexcept
{
    return Ex_TLV_GetDataFromTlv(pItems, nCount, pszTag, pOut, pnOutLen, pnIndex);
}

int32_t TLV_IsDuplicates(const TlvItem *pItems, int32_t nCount, const char *pszTag) noexcept
{
    return Ex_TLV_IsDuplicates(pItems, nCount, pszTag);
}
