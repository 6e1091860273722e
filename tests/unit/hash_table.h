// hash_table.h - what the tests of the hash table share: a table that goes away, elements, the slots in use.
#pragma once

#include "harness.h"

#include "qvreader/support.h"

#include <cstring>
#include <string>
#include <vector>

namespace qvtest {

constexpr int32_t nReplace = 0x31;
constexpr uint32_t aSlots[] = {127, 179, 229, 277}; // by size index

// The 64-bit value of an element, as its bytes lie in memory.
inline uint64_t element(const Bytes &key, uint8_t ucKeyLen, uint32_t nData = 0)
{
    uint8_t aBytes[8] = {};
    std::memcpy(aBytes, key.data(), key.size() < 3 ? key.size() : 3);
    aBytes[3] = ucKeyLen;
    std::memcpy(aBytes + 4, &nData, 4);
    uint64_t ullElement = 0;
    std::memcpy(&ullElement, aBytes, 8);
    return ullElement;
}
inline uint64_t element(const std::string &sKey, uint32_t nData = 0)
{
    return element(textBytes(sKey), static_cast<uint8_t>(sKey.size()), nData);
}

// Two letters: a key a number.
inline std::string keyOf(int n)
{
    return {static_cast<char>('A' + n / 26), static_cast<char>('a' + n % 26)};
}

// All keys collide.
inline uint32_t always120(const char *)
{
    return 120;
}

class Table {
  public:
    explicit Table(HashFn pfnHash, int32_t nSizeIndex = 0) { m_nMade = InitHashTable(&m_record, pfnHash, nSizeIndex); }
    ~Table() { DestroyHashTable(&m_record); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    HashTable *get() { return &m_record; }
    HashTable *operator->() { return &m_record; }
    int32_t made() const { return m_nMade; }
    int32_t insert(const std::string &sKey, uint32_t nValue = 1, int32_t nMode = 0, uint32_t nData = 0)
    {
        return InsertHash(&m_record, element(sKey, nData), nValue, nMode);
    }
    // The key's slot, -1 when it is not there.
    int32_t find(const std::string &sKey)
    {
        int32_t nSlot = -7;
        const int32_t nRet = FindHash(&m_record, sKey.c_str(), &nSlot);
        return nRet == 0 ? nSlot : nRet == -1 && nSlot == -7 ? -1 : -99;
    }
    // Used slots of the whole table, each as "slot key/length data value".
    std::vector<std::string> used() const
    {
        std::vector<std::string> rows;
        for (uint32_t i = 0; i < aSlots[3]; ++i) {
            const HashSlot &slot = m_record.pSlot[i];
            if (slot.ucKeyLen != 0)
                rows.push_back(std::to_string(i) + " " + hex(slot.ucKey, 3) + "/" + std::to_string(slot.ucKeyLen) +
                               " " + std::to_string(slot.nData) + " " + std::to_string(slot.nValue));
        }
        return rows;
    }

  private:
    HashTable m_record{};
    int32_t m_nMade = 0;
};

} // namespace qvtest
