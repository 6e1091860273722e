// A template that is cut off is gone into all the same: what is whole in it is worth being seen. The fault told is then
// the template's own, which comes first.
#include "tlv.h"

#include <algorithm>

namespace qvtool {

namespace {

constexpr uint8_t ucTemplate = 0x20; // of the first byte of a tag
constexpr uint8_t ucLongTag = 0x1F;  // all five: further bytes follow
constexpr uint8_t ucFollows = 0x80;  // of a further byte: one more
constexpr size_t nMostTag = 3;       // bytes
constexpr size_t nMostLength = 4;    // bytes behind the first
constexpr int nDeepest = 32;         // templates inside each other

class Parser {
  public:
    explicit Parser(BytesView data) : m_data(data) {}

    TlvTree whole()
    {
        level(0, m_data.size(), 0, m_tree.items);
        return std::move(m_tree);
    }

  private:
    // False: a fault, nothing behind it counts.
    bool level(size_t nAt, size_t nEnd, int nDepth, std::vector<TlvItem> &items);
    bool item(size_t &nAt, size_t nEnd, int nDepth, std::vector<TlvItem> &items);
    bool takeTag(size_t &nAt, size_t nEnd, Bytes &tag);
    bool takeLength(size_t &nAt, size_t nEnd, size_t &nLength);
    size_t fillerEnd(size_t nAt, size_t nEnd) const;
    // The first fault counts.
    bool fault(size_t nAt, std::string sText);

    BytesView m_data;
    TlvTree m_tree;
};

bool Parser::fault(size_t nAt, std::string sText)
{
    if (!m_tree.nFault) {
        m_tree.nFault = nAt;
        m_tree.sFault = std::move(sText);
    }
    return false;
}

size_t Parser::fillerEnd(size_t nAt, size_t nEnd) const
{
    const auto begin = m_data.begin() + static_cast<std::ptrdiff_t>(nAt);
    const auto end = m_data.begin() + static_cast<std::ptrdiff_t>(nEnd);
    auto behind = std::find_if(begin, end, [](uint8_t uc) { return uc != 0x00; });
    if (std::all_of(behind, end, [](uint8_t uc) { return uc == 0xFF; }))
        behind = end;
    return nAt + static_cast<size_t>(behind - begin);
}

bool Parser::takeTag(size_t &nAt, size_t nEnd, Bytes &tag)
{
    const size_t nBegin = nAt;
    bool bMore = false;
    do {
        if (nAt == nEnd)
            return fault(nBegin, "the tag is cut off");
        if (nAt - nBegin == nMostTag)
            return fault(nBegin, "a tag of more than three bytes");
        const uint8_t uc = m_data[nAt++];
        bMore = tag.empty() ? (uc & ucLongTag) == ucLongTag : (uc & ucFollows) != 0;
        tag.push_back(uc);
    } while (bMore);
    return true;
}

bool Parser::takeLength(size_t &nAt, size_t nEnd, size_t &nLength)
{
    constexpr uint8_t ucLong = 0x80;
    const size_t nBegin = nAt;
    if (nAt == nEnd)
        return fault(nBegin, "the length is missing");
    const uint8_t ucFirst = m_data[nAt++];
    nLength = ucFirst;
    if (ucFirst < ucLong)
        return true;
    const size_t nBytes = ucFirst & 0x7FU;
    if (nBytes == 0 || nBytes > nMostLength)
        return fault(nBegin, "a length cannot begin with " + hexText(m_data.subspan(nBegin, 1)));
    if (nBytes > nEnd - nAt)
        return fault(nBegin, "the length is cut off");
    nLength = 0;
    for (size_t n = 0; n < nBytes; ++n)
        nLength = nLength << 8 | m_data[nAt++];
    return true;
}

bool Parser::item(size_t &nAt, size_t nEnd, int nDepth, std::vector<TlvItem> &items)
{
    TlvItem item;
    item.nOffset = nAt;
    if (!takeTag(nAt, nEnd, item.tag))
        return false;
    const size_t nLengthAt = nAt;
    if (!takeLength(nAt, nEnd, item.nLength))
        return false;
    const size_t nLeft = nEnd - nAt;
    const bool bWhole = item.nLength <= nLeft;
    if (!bWhole)
        fault(nLengthAt, "the length of " + hexText(item.tag) + " is " + std::to_string(item.nLength) + ", but " +
                             (nLeft == 1 ? "1 byte is" : std::to_string(nLeft) + " bytes are") + " left");
    if (!item.isTemplate()) {
        if (!bWhole)
            return false;
        const BytesView value = m_data.subspan(nAt, item.nLength);
        item.value.assign(value.begin(), value.end());
        nAt += item.nLength;
        items.push_back(std::move(item));
        return true;
    }
    if (nDepth == nDeepest)
        return fault(item.nOffset, "templates inside each other more than " + std::to_string(nDeepest) + " times");
    const size_t nItemEnd = nAt + std::min(item.nLength, nLeft);
    const bool bGood = level(nAt, nItemEnd, nDepth + 1, item.items);
    nAt = nItemEnd;
    items.push_back(std::move(item));
    return bGood && bWhole;
}

bool Parser::level(size_t nAt, size_t nEnd, int nDepth, std::vector<TlvItem> &items)
{
    while (nAt < nEnd) {
        if (const size_t nBehind = fillerEnd(nAt, nEnd); nBehind > nAt) {
            TlvItem filler;
            filler.nOffset = nAt;
            filler.nLength = nBehind - nAt;
            items.push_back(std::move(filler));
            nAt = nBehind;
        } else if (!item(nAt, nEnd, nDepth, items)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool TlvItem::isTemplate() const
{
    return !tag.empty() && (tag[0] & ucTemplate) != 0;
}

TlvTree parseTlv(BytesView data)
{
    return Parser(data).whole();
}

} // namespace qvtool
