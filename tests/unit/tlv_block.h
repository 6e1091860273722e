// tlv_block.h - bytes that end where the program's memory ends, so that a read behind them stops it at once.
#pragma once

#include "harness.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace qvtest {

class Block {
  public:
    explicit Block(const Bytes &data) : m_nData(data.size())
    {
        const auto nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t nRoom = (m_nData + nPage - 1) / nPage * nPage;
        m_nMapped = nRoom + nPage;
        void *p = mmap(nullptr, m_nMapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED)
            throw std::runtime_error("no memory for a block");
        m_pMapped = static_cast<uint8_t *>(p);
        if (mprotect(m_pMapped + nRoom, nPage, PROT_NONE) != 0)
            throw std::runtime_error("the end of a block is not protected");
        m_pData = m_pMapped + nRoom - m_nData;
        std::copy(data.begin(), data.end(), m_pData);
    }
    explicit Block(std::string_view sHex) : Block(bytes(sHex)) {}
    ~Block() { munmap(m_pMapped, m_nMapped); }
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;

    uint8_t *data() const { return m_pData; }
    int32_t size() const { return static_cast<int32_t>(m_nData); }
    const char *text() const { return reinterpret_cast<const char *>(m_pData); }
    // Where p stands; -1 for null, -2 outside.
    long offsetOf(const void *p) const
    {
        const auto *pAt = static_cast<const uint8_t *>(p);
        if (pAt == nullptr)
            return -1;
        return pAt >= m_pData && pAt <= m_pData + m_nData ? pAt - m_pData : -2;
    }
    std::string hex() const { return qvtest::hex(m_pData, m_nData); }

  private:
    size_t m_nData;
    size_t m_nMapped = 0;
    uint8_t *m_pMapped = nullptr;
    uint8_t *m_pData = nullptr;
};

// The text with its NUL; nothing behind that can be read.
inline Bytes ended(std::string_view sText)
{
    Bytes data = textBytes(sText);
    data.push_back(0);
    return data;
}

// Head, n bytes that count up from 1, tail.
inline Bytes withBody(std::string_view sHead, size_t n, std::string_view sTail = "")
{
    Bytes data = bytes(sHead);
    for (size_t i = 1; i <= n; ++i)
        data.push_back(static_cast<uint8_t>(i));
    const Bytes tail = bytes(sTail);
    data.insert(data.end(), tail.begin(), tail.end());
    return data;
}

// The bytes that withBody() puts in the middle, in hexadecimal.
inline std::string bodyHex(size_t n)
{
    return hex(withBody("", n));
}

} // namespace qvtest
