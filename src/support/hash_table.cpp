// hash_table.cpp - a table of short keys (1 to 3 bytes), open addressing.
//
// Collision number n moves the probe on by n slots: h, h+1, h+3, h+6 ... A table that meets too many of them grows to
// the next size, up to three times.
//
// How many slots are probed is process-wide (nHashLenth), as the table that was made or has grown last has it. So every
// table owns as many slots as the largest has, and a probe stays inside it whatever table came last.

#include "log.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

uint32_t nHashLenth = 0;

namespace {

constexpr std::array<uint32_t, 4> hashsize{127, 179, 229, 277};
constexpr int32_t nReplace = 0x31;
constexpr size_t nKeyMax = 3;
constexpr uint32_t nSlotsMax = hashsize.back();

static_assert(sizeof(HashSlot) == 12);

// An element as it is handed over: the first 8 bytes of a slot.
struct Element {
    uint8_t ucKey[nKeyMax];
    uint8_t ucKeyLen;
    uint32_t nData;
};
static_assert(sizeof(Element) == sizeof(uint64_t));

uint32_t probedSlots() noexcept
{
    return std::min(nHashLenth, nSlotsMax);
}

// True while the table can be searched: a size index, slots, a hash.
bool isUsable(const HashTable *pTable) noexcept
{
    return pTable != nullptr && pTable->pSlot != nullptr && pTable->pfnHash != nullptr && pTable->nSizeIndex >= 0 &&
           pTable->nSizeIndex < static_cast<int32_t>(hashsize.size());
}

uint32_t sizeOf(const HashTable &table) noexcept
{
    return hashsize[static_cast<size_t>(table.nSizeIndex)];
}

bool isFree(const HashSlot &slot) noexcept
{
    return slot.ucKeyLen == 0;
}

bool holds(const HashSlot &slot, const char *pszKey, size_t nKeyLen) noexcept
{
    return slot.ucKeyLen == nKeyLen && nKeyLen <= nKeyMax && std::memcmp(slot.ucKey, pszKey, nKeyLen) == 0;
}

// Fills a slot, except for the key's length, which stands already when an element is replaced. Counts every time.
void store(HashTable &table, HashSlot &slot, const Element &element, uint32_t nValue) noexcept
{
    std::copy_n(element.ucKey, nKeyMax, slot.ucKey);
    slot.nData = element.nData;
    slot.nValue = nValue;
    ++table.nCount;
}

struct FreeMemory {
    void operator()(void *p) const noexcept { std::free(p); }
};
using Slots = std::unique_ptr<HashSlot[], FreeMemory>;

Slots allocate(size_t nSlots) noexcept
{
    return Slots(static_cast<HashSlot *>(std::calloc(nSlots, sizeof(HashSlot))));
}

} // namespace

int32_t InitHashTable(HashTable *pTable, HashFn pfnHash, int32_t nSizeIndex) noexcept
{
    if (pTable == nullptr || pfnHash == nullptr)
        return RET_PUB_FAIL;
    pTable->nCount = 0;
    if (nSizeIndex < 0 || nSizeIndex >= static_cast<int32_t>(hashsize.size()))
        return RET_PUB_FAIL;
    pTable->nSizeIndex = nSizeIndex;
    pTable->pfnHash = pfnHash;
    nHashLenth = sizeOf(*pTable);
    pTable->pSlot = allocate(nSlotsMax).release();
    return pTable->pSlot == nullptr ? static_cast<int32_t>(RET_PUB_FAIL) : 0;
}

void collision(int32_t *pnSlot, int32_t nCount) noexcept
{
    if (pnSlot == nullptr || nHashLenth == 0)
        return;
    *pnSlot = static_cast<int32_t>((static_cast<uint32_t>(*pnSlot) + static_cast<uint32_t>(nCount)) % nHashLenth);
}

int32_t SearchHash(HashTable *pTable, const char *pszKey, int32_t *pnSlot, int32_t *pnCollisions) noexcept
{
    if (!isUsable(pTable) || pszKey == nullptr || pnSlot == nullptr || pnCollisions == nullptr || probedSlots() == 0)
        return RET_PUB_FAIL;
    const size_t nKeyLen = std::strlen(pszKey);
    *pnSlot = static_cast<int32_t>(pTable->pfnHash(pszKey) % sizeOf(*pTable));
    for (;;) {
        const HashSlot &slot = pTable->pSlot[*pnSlot];
        if (isFree(slot))
            return RET_PUB_FAIL;
        if (holds(slot, pszKey, nKeyLen))
            return 0;
        const int32_t nLast = static_cast<int32_t>(probedSlots()) - 1;
        if (*pnCollisions >= nLast) {
            *pnCollisions = std::max(*pnCollisions, nLast + 1);
            return RET_PUB_FAIL;
        }
        collision(pnSlot, ++*pnCollisions);
        // A host may have written the number of slots, and a start below 0.
        *pnSlot = static_cast<int32_t>(static_cast<uint32_t>(*pnSlot) % nSlotsMax);
    }
}

int32_t InsertHash(HashTable *pTable, uint64_t ullElement, uint32_t nValue, int32_t nMode) noexcept
{
    Element element;
    std::memcpy(&element, &ullElement, sizeof element);
    if (!isUsable(pTable) || element.ucKeyLen == 0 || element.ucKeyLen > nKeyMax)
        return RET_PUB_FAIL;
    std::array<char, nKeyMax + 1> szKey{};
    std::memcpy(szKey.data(), element.ucKey, element.ucKeyLen);
    int32_t nSlot = -1;
    int32_t nCollisions = 0;
    if (SearchHash(pTable, szKey.data(), &nSlot, &nCollisions) == 0) {
        if (nMode != nReplace)
            return RET_PUB_FAIL;
        store(*pTable, pTable->pSlot[nSlot], element, nValue);
        return 0;
    }
    if (nSlot < 0)
        return RET_PUB_FAIL; // not searched
    HashSlot &slot = pTable->pSlot[nSlot];
    if (static_cast<uint32_t>(nCollisions) >= sizeOf(*pTable) / 2 || !isFree(slot)) {
        RecreateHashTable(pTable);
        return RET_PUB_FAIL; // the caller inserts it again
    }
    slot.ucKeyLen = element.ucKeyLen;
    store(*pTable, slot, element, nValue);
    return 0;
}

void RecreateHashTable(HashTable *pTable) noexcept
{
    if (!isUsable(pTable) || pTable->nSizeIndex + 1 >= static_cast<int32_t>(hashsize.size()))
        return;
    const Slots kept = allocate(nSlotsMax);
    if (kept == nullptr)
        return;
    HashSlot *pEnd = std::copy_if(pTable->pSlot, pTable->pSlot + nSlotsMax, kept.get(),
                                  [](const HashSlot &slot) { return slot.nValue != 0; });
    pTable->nCount = 0;
    ++pTable->nSizeIndex;
    nHashLenth = sizeOf(*pTable);
    std::fill_n(pTable->pSlot, nSlotsMax, HashSlot{});
    for (const HashSlot *pSlot = kept.get(); pSlot != pEnd; ++pSlot) {
        uint64_t ullElement = 0;
        std::memcpy(&ullElement, pSlot, sizeof ullElement);
        InsertHash(pTable, ullElement, pSlot->nValue, nReplace);
    }
}

int32_t FindHash(HashTable *pTable, const char *pszKey, int32_t *pnSlot) noexcept
{
    int32_t nSlot = 0;
    int32_t nCollisions = 0;
    if (pnSlot == nullptr || SearchHash(pTable, pszKey, &nSlot, &nCollisions) != 0)
        return RET_PUB_FAIL;
    *pnSlot = nSlot;
    return 0;
}

int32_t TraverseHash(HashTable *pTable, HashVisitor pfnVisit) noexcept
{
    // The line is GBK: 哈希地址0～
    QV_LOG(qv::kLogPublic,
           "\xB9\xFE\xCF\xA3\xB5\xD8\xD6\xB7"
           "0"
           "\xA1\xAB"
           "%d\n",
           static_cast<int32_t>(nHashLenth - 1));
    if (pTable == nullptr || pTable->pSlot == nullptr || pfnVisit == nullptr)
        return 0;
    for (uint32_t i = 0; i < probedSlots(); ++i) {
        const HashSlot &slot = pTable->pSlot[i];
        if (isFree(slot))
            continue;
        uint64_t ullElement = 0;
        std::memcpy(&ullElement, &slot, sizeof ullElement);
        pfnVisit(static_cast<int32_t>(i), ullElement, slot.nValue);
    }
    return static_cast<int32_t>(nHashLenth);
}

void DestroyHashTable(HashTable *pTable) noexcept
{
    if (pTable == nullptr)
        return;
    std::free(pTable->pSlot);
    *pTable = {};
}
