// bounded_text.h - copies into fixed text buffers: cut where they end, always NUL-terminated.
#pragma once

#include <algorithm>
#include <cstring>
#include <span>

namespace qv {

// Copies pszText (null counts as empty) and clears the rest of the buffer.
inline void copyText(std::span<char> out, const char *pszText) noexcept
{
    size_t nLen = pszText == nullptr ? 0 : strnlen(pszText, out.size() - 1);
    std::copy_n(pszText, nLen, out.data());
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(nLen), out.end(), '\0');
}

// Appends pszText to the NUL-terminated text in the buffer.
inline void appendText(std::span<char> out, const char *pszText) noexcept
{
    size_t nUsed = strnlen(out.data(), out.size());
    if (nUsed < out.size())
        copyText(out.subspan(nUsed), pszText);
}

} // namespace qv
