#include "amounts.h"

#include <limits>

namespace qvtool {

namespace {

constexpr uint32_t nCentsPerUnit = 100;
constexpr size_t nMostDecimals = 2;

} // namespace

std::optional<uint32_t> parseAmount(std::string_view sText)
{
    constexpr uint64_t nMost = std::numeric_limits<uint32_t>::max();
    const size_t nPoint = sText.find('.');
    const std::string_view sWhole = sText.substr(0, nPoint);
    const std::string_view sDecimals = nPoint == sText.npos ? "00" : sText.substr(nPoint + 1);
    if (sWhole.empty() || sDecimals.empty() || sDecimals.size() > nMostDecimals)
        return std::nullopt;
    std::string sCents(sWhole);
    sCents += sDecimals;
    sCents.resize(sWhole.size() + nMostDecimals, '0');
    uint64_t nCents = 0;
    for (const char c : sCents) {
        if (c < '0' || c > '9')
            return std::nullopt;
        nCents = nCents * 10 + static_cast<uint64_t>(c - '0');
        if (nCents > nMost)
            return std::nullopt;
    }
    return static_cast<uint32_t>(nCents);
}

std::string amountText(uint32_t nCents)
{
    const std::string sDecimals = std::to_string(nCents % nCentsPerUnit);
    return std::to_string(nCents / nCentsPerUnit) + "." + std::string(nMostDecimals - sDecimals.size(), '0') +
           sDecimals;
}

} // namespace qvtool
