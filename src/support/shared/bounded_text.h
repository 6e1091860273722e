// bounded_text.h - copies into fixed text buffers: cut where they end, always NUL-terminated.
#pragma once

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

namespace qv {

// Copies the text and clears the rest of the buffer. A buffer of no bytes stays as it is.
inline void copyText(std::span<char> out, std::string_view sText) noexcept
{
    if (out.empty())
        return;
    const size_t nLen = std::min(sText.size(), out.size() - 1);
    std::copy_n(sText.begin(), nLen, out.data());
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(nLen), out.end(), '\0');
}

// The same for a NUL-terminated text, of which no more is read than fits; null counts as empty.
inline void copyText(std::span<char> out, const char *pszText) noexcept
{
    copyText(out, pszText == nullptr ? std::string_view{} : std::string_view(pszText, strnlen(pszText, out.size())));
}

// Appends pszText to the NUL-terminated text in the buffer.
inline void appendText(std::span<char> out, const char *pszText) noexcept
{
    size_t nUsed = strnlen(out.data(), out.size());
    if (nUsed < out.size())
        copyText(out.subspan(nUsed), pszText);
}

} // namespace qv
