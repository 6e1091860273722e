// fuzz_hash_table.cpp - two hash tables under any operations, beside a plain map of what they hold.
//
// input: how the keys spread, whether the host disturbs the tables, then per operation: which one, key, value

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <cstring>
#include <map>
#include <string>

namespace {

constexpr int32_t nReplace = 0x31;
constexpr uint32_t nSlotsMax = 277;
uint8_t s_ucSpread = 0; // bits of a key that its hash has

uint32_t weakHash(const char *psz)
{
    return (static_cast<uint8_t>(psz[0]) & s_ucSpread) * 31U;
}

// What is in a table, by key.
using Contents = std::map<std::string, uint32_t>;

class Table {
  public:
    explicit Table(uint8_t ucIndex) { QV_HOLDS(InitHashTable(&m_table, weakHash, ucIndex % 4) == 0); }
    ~Table()
    {
        DestroyHashTable(&m_table);
        QV_HOLDS(m_table.pSlot == nullptr && m_table.pfnHash == nullptr);
    }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    // One insertion, with what may come of it.
    void insert(const std::string &sKey, uint32_t nValue, int32_t nMode)
    {
        HashSlot slot{};
        std::memcpy(slot.ucKey, sKey.data(), sKey.size());
        slot.ucKeyLen = static_cast<uint8_t>(sKey.size());
        uint64_t ullElement = 0;
        std::memcpy(&ullElement, &slot, sizeof ullElement);
        const HashTable before = m_table;
        const bool bKnown = m_contents.contains(sKey);
        if (InsertHash(&m_table, ullElement, nValue, nMode) == 0) {
            QV_HOLDS(!bKnown || nMode == nReplace);
            QV_HOLDS(m_table.nCount == before.nCount + 1 && m_table.nSizeIndex == before.nSizeIndex);
            m_contents[sKey] = nValue;
        } else if (m_table.nSizeIndex == before.nSizeIndex) {
            QV_HOLDS(m_table.nCount == before.nCount);
            QV_HOLDS(bKnown ? nMode != nReplace : m_table.nSizeIndex == 3);
        } else {
            QV_HOLDS(!bKnown);
            takeOverAfterGrowth();
        }
        check();
    }
    void grow()
    {
        const int32_t nBefore = m_table.nSizeIndex;
        RecreateHashTable(&m_table);
        QV_HOLDS(m_table.nSizeIndex > nBefore || nBefore == 3);
        if (m_table.nSizeIndex > nBefore)
            takeOverAfterGrowth();
        check();
    }

  private:
    // Growth invents nothing and drops what has the value 0.
    void takeOverAfterGrowth()
    {
        Contents now;
        for (uint32_t i = 0; i < nSlotsMax; ++i) {
            const HashSlot &slot = m_table.pSlot[i];
            if (slot.ucKeyLen == 0)
                continue;
            const std::string sKey(reinterpret_cast<const char *>(slot.ucKey), slot.ucKeyLen);
            QV_HOLDS(slot.nValue != 0 && m_contents.contains(sKey) && m_contents[sKey] == slot.nValue);
            now[sKey] = slot.nValue;
        }
        QV_HOLDS(m_table.nCount == static_cast<int32_t>(now.size()));
        m_contents = now;
    }
    void check()
    {
        for (const auto &[sKey, nValue] : m_contents) {
            int32_t nSlot = -1;
            QV_HOLDS(FindHash(&m_table, sKey.c_str(), &nSlot) == 0);
            QV_HOLDS(nSlot >= 0 && nSlot < static_cast<int32_t>(nHashLenth));
            QV_HOLDS(m_table.pSlot[nSlot].nValue == nValue);
        }
    }

    HashTable m_table{};
    Contents m_contents;
};

// A key of 1 to 3 bytes, none of them 0.
std::string readKey(qvfuzz::Input &input)
{
    const size_t nLen = 1 + input.byte() % 3;
    std::string sKey;
    for (size_t i = 0; i < nLen; ++i)
        sKey += static_cast<char>(input.byte() | 1);
    return sKey;
}

// One table, used as it should be.
void useOne(qvfuzz::Input &input)
{
    Table table(input.byte());
    for (auto op = input.take(2); op.size() == 2; op = input.take(2)) {
        if (op[0] == 0xFF)
            table.grow();
        else
            table.insert(readKey(input), op[1] % 4, op[0] % 2 == 0 ? nReplace : 0);
    }
}

// Two tables whose host writes what is the library's: nothing is read or written outside the slots.
void disturbTwo(qvfuzz::Input &input)
{
    HashTable tables[2]{};
    for (HashTable &table : tables)
        InitHashTable(&table, weakHash, input.byte() % 4);
    for (auto op = input.take(8); op.size() == 8; op = input.take(8)) {
        HashTable &table = tables[op[0] % 2];
        uint64_t ullElement = 0;
        std::memcpy(&ullElement, op.data() + 1, 5);
        int32_t nSlot = 0, nCollisions = static_cast<int8_t>(op[6]);
        const char szKey[] = {static_cast<char>(op[1]), static_cast<char>(op[2]), '\0'};
        switch (op[7] % 8) {
        case 0: nHashLenth = op[5] == 0xFF ? UINT32_MAX : op[5] * 7U; break;
        case 1: table.nSizeIndex = static_cast<int8_t>(op[5]); break;
        case 2: RecreateHashTable(&table); break;
        case 3:
            if (SearchHash(&table, szKey, &nSlot, &nCollisions) == 0)
                QV_HOLDS(nSlot >= 0 && static_cast<uint32_t>(nSlot) < nSlotsMax);
            break;
        case 4: TraverseHash(&table, [](int32_t n, uint64_t, uint32_t) { QV_HOLDS(n >= 0 && n < 277); }); break;
        default: InsertHash(&table, ullElement, op[6], op[7] & 1 ? nReplace : 0); break;
        }
    }
    for (HashTable &table : tables)
        DestroyHashTable(&table);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    s_ucSpread = input.byte();
    if (input.byte() % 2 == 0)
        useOne(input);
    else
        disturbTwo(input);
    return 0;
}
