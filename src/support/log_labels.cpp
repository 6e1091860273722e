// log_labels.cpp - kind and type labels.
//
// Both labels pass through one buffer: the kind label is written, then the type label over its start without clearing
// the rest. With kind 0 this pads the type label to 7 characters; on error lines the tail of the error label shows
// behind a short type label ("Comm:OR:   "). Tools that read the files know this look.

#include "log_labels.h"

#include "bounded_text.h"
#include "qvreader/support.h"

#include <array>
#include <string_view>

namespace {

struct DebugLevel {
    int32_t nType;
    char szLabel[32];
};

// The rows without a colon are written so.
constexpr std::array<DebugLevel, 11> s_DebugLevel{{
    {1, "Public:"},
    {2, "Comm:"},
    {3, "CommDev:"},
    {4, "Instr:"},
    {5, "Loginc"},
    {6, "BusiId:"},
    {7, "BusiIc:"},
    {8, "BusiMsg:"},
    {9, "AppId:"},
    {10, "AppIc"},
    {11, "AppMsg"},
}};

struct InfoKind {
    int32_t nKind;
    const char *pszLabel; // with the two blanks that follow every kind label
};

constexpr std::array<InfoKind, 2> s_InfoKind{{{0, "INFO:  "}, {1, "!!ERROR:   "}}};

} // namespace

void MapDebugInfoType(int32_t nKind, char *pszOut) noexcept
{
    if (pszOut == nullptr)
        return;
    for (const InfoKind &row : s_InfoKind)
        if (row.nKind == nKind)
            qv::copyText(std::span(pszOut, std::strlen(row.pszLabel) + 1), row.pszLabel);
}

void MapDebugLevelType(int32_t nType, char *pszOut) noexcept
{
    if (pszOut == nullptr)
        return;
    for (const DebugLevel &row : s_DebugLevel)
        if (row.nType == nType)
            std::copy_n(row.szLabel, std::strlen(row.szLabel), pszOut);
}

namespace qv {

void writeLabels(int32_t nKind, int32_t nType, std::span<char, nLabelSize> out) noexcept
{
    std::array<char, 32> szLabel{};
    MapDebugInfoType(nKind, szLabel.data());
    appendText(out, szLabel.data());
    appendText(out, "  ");
    MapDebugLevelType(nType, szLabel.data());
    appendText(out, szLabel.data());
    appendText(out, "  ");
}

} // namespace qv
