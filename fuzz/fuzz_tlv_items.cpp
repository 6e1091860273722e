// fuzz_tlv_items.cpp - items of one level: parser, searches, arrays, nested look-ups and packing, against a plain reader
// of the same rules.
//
// input: length of the tag (0 to 3), tag, length of the path (0 to 3), path, buffer; tag and path end at a NUL

#include "fuzz_support.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr uint32_t nMark = 0xDEADBEEF;
constexpr int32_t nMarkSigned = -77;

struct Item {
    size_t nAt;
    size_t nTag;
    size_t nSize;
    size_t nValue;
    bool bNull; // no place of the value
    size_t valueAt() const { return nAt + nSize - nValue; }
};

struct Level {
    std::vector<Item> items; // up to the first malformed one
    bool bGood = true;
};

// The item at the front of n bytes; nSize 0: malformed.
Item itemAt(const Bytes &buf, size_t nAt, size_t n)
{
    Item item{nAt, n > 0 && (buf[nAt] & 0x1F) == 0x1F ? size_t{2} : size_t{1}, 0, 0, false};
    if (n <= item.nTag)
        return item;
    const uint8_t uc = buf[nAt + item.nTag];
    size_t nMore = 0;
    if (uc < 0x80) {
        item.nValue = uc;
        item.bNull = uc == 0;
    } else if (uc >= 0x81 && uc <= 0x83) {
        nMore = uc - size_t{0x80};
    } else {
        return item;
    }
    if (n < item.nTag + 1 + nMore)
        return item;
    for (size_t i = 1; i <= nMore; ++i)
        item.nValue = item.nValue * 256 + buf[nAt + item.nTag + i];
    if (n - item.nTag - 1 - nMore >= item.nValue)
        item.nSize = item.nTag + 1 + nMore + item.nValue;
    return item;
}

Level readPlainly(const Bytes &buf, size_t nAt, size_t nEnd)
{
    Level level;
    while (nAt < nEnd) {
        if (buf[nAt] == 0x00 || buf[nAt] == 0xFF) {
            ++nAt;
            continue;
        }
        const Item item = itemAt(buf, nAt, nEnd - nAt);
        if (item.nSize == 0) {
            level.bGood = false;
            break;
        }
        level.items.push_back(item);
        nAt += item.nSize;
    }
    return level;
}

bool isTag(const Bytes &buf, const Item &item, const std::string &sTag)
{
    return std::equal(sTag.begin(), sTag.end(), buf.begin() + static_cast<std::ptrdiff_t>(item.nAt),
                      buf.begin() + static_cast<std::ptrdiff_t>(item.nAt + item.nTag),
                      [](char c, uint8_t uc) { return static_cast<uint8_t>(c) == uc; });
}

const Item *first(const Bytes &buf, const Level &level, const std::string &sTag)
{
    const auto found = std::ranges::find_if(level.items, [&](const Item &item) { return isTag(buf, item, sTag); });
    return found == level.items.end() ? nullptr : &*found;
}

void checkCopy(const Bytes &buf, const Item *pItem, int32_t nRet, const Area &out, uint32_t nLen)
{
    QV_HOLDS(nRet == (pItem == nullptr ? -1 : 0));
    QV_HOLDS(nLen == (pItem == nullptr ? nMark : pItem->nValue));
    QV_HOLDS(out.intactBehind(pItem == nullptr ? 0 : pItem->nValue));
    if (pItem != nullptr)
        QV_HOLDS(std::ranges::equal(out.first(pItem->nValue), std::span(buf).subspan(pItem->valueAt(), pItem->nValue)));
}

void checkSame(const Bytes &buf, const Item &item, const TlvItem &parsed)
{
    QV_HOLDS(parsed.nTagLen == static_cast<int32_t>(item.nTag));
    QV_HOLDS(parsed.pTag == buf.data() + item.nAt);
    QV_HOLDS(parsed.nValueLen == item.nValue);
    QV_HOLDS(parsed.pValue == (item.bNull ? nullptr : buf.data() + item.valueAt()));
}

void checkParser(const Bytes &buf)
{
    const TlvItem unset{nMarkSigned, nullptr, nMark, nullptr};
    TlvItem parsed = unset;
    const Item item = itemAt(buf, 0, buf.size());
    const int32_t nRet = TLV_Parser(&parsed, buf.data(), static_cast<int32_t>(buf.size()));
    QV_HOLDS(nRet == (item.nSize == 0 ? -1 : 0));
    if (item.nSize != 0)
        checkSame(buf, item, parsed);
    else
        QV_HOLDS(parsed.nTagLen == nMarkSigned && parsed.nValueLen == nMark);
}

// What the search for the offset prints on standard error is part of its result.
void checkOffset(const Bytes &buf, const Level &level, const std::string &sTag)
{
    std::array<char, 128> aLine{};
    FILE *pLine = fmemopen(aLine.data(), aLine.size(), "w");
    QV_HOLDS(pLine != nullptr);
    FILE *pStderr = stderr;
    stderr = pLine;
    int32_t nOff = nMarkSigned, nSize = nMarkSigned;
    const int32_t nRet = TLV_GetTagOff(sTag.c_str(), buf.data(), static_cast<int32_t>(buf.size()), &nOff, &nSize);
    stderr = pStderr;
    std::fclose(pLine);

    const Item *pItem = first(buf, level, sTag);
    QV_HOLDS(nRet == (pItem == nullptr ? -1 : 0));
    size_t nFront = 0; // the items in front; not what is between them
    for (const Item &item : level.items) {
        if (pItem == nullptr || item.nAt >= pItem->nAt)
            break;
        nFront += item.nSize;
    }
    QV_HOLDS(nOff == (pItem == nullptr ? nMarkSigned : static_cast<int32_t>(nFront)));
    QV_HOLDS(nSize == (pItem == nullptr ? nMarkSigned : static_cast<int32_t>(pItem->nSize)));
    const std::string sLine = pItem == nullptr ? ""
                                               : "nSrcLen:" + std::to_string(buf.size() - pItem->nAt) +
                                                     ",*nOff:" + std::to_string(nFront) +
                                                     ",*nLen:" + std::to_string(pItem->nSize) + "\n";
    QV_HOLDS(sLine == aLine.data());
}

void checkArrays(const Bytes &buf, const Level &level, const std::string &sTag)
{
    TlvItem elsewhere{};
    TlvItem *pItems = &elsewhere;
    int32_t nCount = nMarkSigned, nUnpacked = nMarkSigned;
    const auto nBuf = static_cast<int32_t>(buf.size());
    const int32_t nRet = level.bGood ? 0 : -1;
    const int32_t nItems = level.bGood ? static_cast<int32_t>(level.items.size()) : nMarkSigned;
    QV_HOLDS(Ex_TLV_Count(buf.data(), nBuf, &nCount) == nRet && nCount == nItems);
    QV_HOLDS(Tlv_Unpack_Data(&pItems, buf.data(), nBuf, &nUnpacked) == nRet && nUnpacked == nItems);
    if (!level.bGood) {
        QV_HOLDS(pItems == nullptr);
        return;
    }
    QV_HOLDS(pItems != nullptr && pItems != &elsewhere);
    int32_t nTimes = 0, nPlace = nMarkSigned;
    for (size_t i = 0; i < level.items.size(); ++i) {
        checkSame(buf, level.items[i], pItems[i]);
        if (!isTag(buf, level.items[i], sTag))
            continue;
        nPlace = nTimes++ == 0 ? static_cast<int32_t>(i) : nPlace;
    }
    QV_HOLDS(Ex_TLV_IsDuplicates(pItems, nItems, sTag.c_str()) == nTimes);
    QV_HOLDS(TLV_IsDuplicates(pItems, nItems, sTag.c_str()) == nTimes);
    for (auto *pfn : {Ex_TLV_GetDataFromTlv, TLV_GetDataFromTlv}) {
        Area out(buf.size());
        uint32_t nLen = nMark;
        int32_t nIndex = nMarkSigned;
        const int32_t nFound = pfn(pItems, nItems, sTag.c_str(), out.data(), &nLen, &nIndex);
        checkCopy(buf, first(buf, level, sTag), nFound, out, nLen);
        QV_HOLDS(nIndex == nPlace);
    }
    std::free(pItems);
}

void checkNested(const Bytes &buf, const std::string &sTag, const std::string &sPath)
{
    size_t nAt = 0, nEnd = buf.size();
    const Item *pItem = nullptr;
    Level level;
    for (size_t i = 0; i <= sPath.size(); ++i) {
        level = readPlainly(buf, nAt, nEnd);
        pItem = first(buf, level, i < sPath.size() ? sPath.substr(i, 1) : sTag);
        if (pItem == nullptr)
            break;
        nAt = pItem->valueAt();
        nEnd = nAt + pItem->nValue;
    }
    Area out(buf.size());
    uint32_t nLen = nMark;
    const int32_t nRet = Ex_TLV_GetDataByTagandTmplt(sTag.c_str(), sPath.c_str(), buf.data(),
                                                     static_cast<int32_t>(buf.size()), out.data(), &nLen);
    checkCopy(buf, pItem, nRet, out, nLen);
}

void checkPack(const Bytes &value, const std::string &sTag)
{
    const bool bWhole = sTag.size() == 1 ? (sTag[0] & 0x1F) != 0x1F : sTag.size() == 2 && (sTag[0] & 0x1F) == 0x1F;
    Area out(value.size() + 6);
    uint32_t nLen = nMark;
    const int32_t nRet =
        Tlv_Pack_Data(out.data(), sTag.c_str(), value.data(), static_cast<uint32_t>(value.size()), &nLen);
    QV_HOLDS(nRet == (bWhole ? 0 : -1));
    if (!bWhole) {
        QV_HOLDS(nLen == nMark && out.intactBehind(0));
        return;
    }
    Bytes wanted(sTag.begin(), sTag.end());
    if (value.size() >= 0x80)
        wanted.push_back(value.size() < 0x100 ? 0x81 : value.size() < 0x10000 ? 0x82 : 0x83);
    if (value.size() >= 0x10000)
        wanted.push_back(static_cast<uint8_t>(value.size() / 0x10000));
    if (value.size() >= 0x100)
        wanted.push_back(static_cast<uint8_t>(value.size() / 0x100 % 0x100));
    wanted.push_back(static_cast<uint8_t>(value.size() % 0x100));
    wanted.insert(wanted.end(), value.begin(), value.end());
    QV_HOLDS(nLen == wanted.size());
    QV_HOLDS(out.intactBehind(nLen) && std::ranges::equal(out.first(nLen), wanted));
}

std::string textOf(std::span<const uint8_t> data)
{
    return {data.begin(), std::ranges::find(data, uint8_t{0})};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const size_t nTag = input.byte() % 4;
    const std::string sTag = textOf(input.take(nTag));
    const size_t nPath = input.byte() % 4;
    const std::string sPath = textOf(input.take(nPath));
    const auto rest = input.rest();
    const Bytes buf(rest.begin(), rest.end());
    checkPack(buf, sTag);
    if (buf.empty())
        return 0;
    const Level level = readPlainly(buf, 0, buf.size());
    const Item *pItem = first(buf, level, sTag);
    uint8_t *pValue = nullptr, *const pNone = pValue;
    uint32_t nLen = nMark;
    const int32_t nRet = TLV_GetData(sTag.c_str(), buf.data(), static_cast<int32_t>(buf.size()), &pValue, &nLen);
    QV_HOLDS(nRet == (pItem == nullptr ? -1 : 0));
    QV_HOLDS(nLen == (pItem == nullptr ? nMark : pItem->nValue));
    QV_HOLDS(pValue == (pItem == nullptr || pItem->bNull ? pNone : buf.data() + pItem->valueAt()));
    Area out(buf.size());
    nLen = nMark;
    const int32_t nCopied =
        Ex_TLV_GetDataByTag(sTag.c_str(), buf.data(), static_cast<int32_t>(buf.size()), out.data(), &nLen);
    checkCopy(buf, pItem, nCopied, out, nLen);
    checkParser(buf);
    checkOffset(buf, level, sTag);
    checkArrays(buf, level, sTag);
    checkNested(buf, sTag, sPath);
    return 0;
}
