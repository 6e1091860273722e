#include "tlv_text.h"

#include "charset.h"
#include "tlv_names.h"

#include <algorithm>

namespace qvtool {

namespace {

constexpr size_t nStep = 2; // blanks a level

void addLines(std::string &sLines, const std::vector<TlvItem> &items, BytesView parent, size_t nIndent)
{
    for (const TlvItem &item : items) {
        sLines += std::string(nIndent, ' ');
        if (item.isFiller()) {
            sLines += "(" + std::to_string(item.nLength) + (item.nLength == 1 ? " byte" : " bytes") + " of filler)\n";
            continue;
        }
        sLines += hexText(item.tag) + " [" + std::to_string(item.nLength) + "] " + tlvName(item, parent);
        if (!item.value.empty())
            sLines += ": " + hexText(item.value);
        if (const std::optional<std::string> sText = tlvValueText(item, parent))
            sLines += " \"" + *sText + "\"";
        sLines += "\n";
        addLines(sLines, item.items, item.tag, nIndent + nStep);
    }
}

} // namespace

std::optional<std::string> tlvValueText(const TlvItem &item, BytesView parent)
{
    if (item.value.empty() || !tagName(item.tag, parent).bText)
        return std::nullopt;
    const auto isControl = [](uint8_t uc) { return uc < 0x20 || uc == 0x7F; };
    if (std::any_of(item.value.begin(), item.value.end(), isControl))
        return std::nullopt;
    return utf8OfGbk(std::string(item.value.begin(), item.value.end()));
}

std::string tlvName(const TlvItem &item, BytesView parent)
{
    const char *pszName = tagName(item.tag, parent).pszName;
    return pszName != nullptr ? pszName : "unknown tag";
}

std::string tlvLines(const TlvTree &tree, size_t nIndent)
{
    std::string sLines;
    addLines(sLines, tree.items, {}, nIndent);
    return sLines;
}

std::string tlvFaultText(const TlvTree &tree)
{
    return "malformed at offset " + std::to_string(tree.nFault.value_or(0)) + ": " + tree.sFault;
}

} // namespace qvtool
