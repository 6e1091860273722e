// TS T0 [TA1 TB1 TC1 TD1 [TA2 ...]] historical bytes [TCK]
//
// The high half of T0 and of each TDi says which of TAi+1 .. TDi+1 follow (bits 1 to 4 of it in this order), the low
// half of T0 how many historical bytes there are, the low half of TDi the protocol. TCK is there unless T=0 is the
// only protocol; the exclusive-or of T0 to TCK is 0.
#include "atr.h"

#include <algorithm>
#include <cctype>

namespace qvtool {

namespace {

constexpr uint8_t ucDirect = 0x3B;
constexpr uint8_t ucInverse = 0x3F;
constexpr char szKinds[] = "ABCD";

// Hands out the bytes one by one and notes what each was.
class Cutter {
  public:
    explicit Cutter(BytesView atr) : m_rest(atr) {}

    bool has(size_t nCount) const { return m_rest.size() >= nCount; }
    BytesView rest() const { return m_rest; }
    std::vector<AtrPart> &parts() { return m_parts; }

    uint8_t take(std::string sName, std::string sMeaning)
    {
        uint8_t uc = m_rest[0];
        takeMany(std::move(sName), 1, std::move(sMeaning));
        return uc;
    }

    void takeMany(std::string sName, size_t nCount, std::string sMeaning)
    {
        BytesView data = m_rest.first(nCount);
        m_parts.push_back({std::move(sName), Bytes(data.begin(), data.end()), std::move(sMeaning)});
        m_rest = m_rest.subspan(nCount);
    }

  private:
    BytesView m_rest;
    std::vector<AtrPart> m_parts;
};

std::string quoted(BytesView data)
{
    std::string sText = "\"";
    for (uint8_t uc : data)
        sText += uc >= 0x20 && uc < 0x7F ? static_cast<char>(uc) : '.';
    return sText + "\"";
}

std::string meaningOf(char cKind, int nLevel, uint8_t uc)
{
    if (cKind == 'A' && nLevel == 1)
        return "clock and rate factors " + std::to_string(uc >> 4) + " and " + std::to_string(uc & 15);
    if (cKind == 'A' && nLevel == 2)
        return "specific mode, T=" + std::to_string(uc & 15);
    if (cKind == 'C' && nLevel == 1)
        return "extra guard time " + std::to_string(uc);
    if (cKind == 'C' && nLevel == 2)
        return "waiting time " + std::to_string(uc);
    if (cKind == 'D')
        return "T=" + std::to_string(uc & 15);
    return {};
}

// The interface bytes of all levels. bOnlyT0: out. False: the answer ends before they do.
bool takeInterface(Cutter &cutter, uint8_t ucT0, bool &bOnlyT0)
{
    bOnlyT0 = true;
    uint8_t ucFollowing = static_cast<uint8_t>(ucT0 >> 4);
    for (int nLevel = 1; ucFollowing != 0; ++nLevel) {
        uint8_t ucNext = 0;
        for (int nKind = 0; nKind < 4; ++nKind) {
            if ((ucFollowing & 1U << nKind) == 0)
                continue;
            if (!cutter.has(1))
                return false;
            char cKind = szKinds[nKind];
            uint8_t uc = cutter.rest()[0];
            cutter.take(std::string("T") + cKind + std::to_string(nLevel), meaningOf(cKind, nLevel, uc));
            if (cKind == 'D') {
                ucNext = static_cast<uint8_t>(uc >> 4);
                bOnlyT0 = bOnlyT0 && (uc & 15) == 0;
            }
        }
        ucFollowing = ucNext;
    }
    return true;
}

void takeCheck(Cutter &cutter, BytesView atr)
{
    uint8_t ucSum = 0;
    for (uint8_t uc : atr.subspan(1))
        ucSum = static_cast<uint8_t>(ucSum ^ uc);
    cutter.take("TCK", ucSum == 0 ? "check byte right" : "check byte WRONG");
}

void takeAll(Cutter &cutter, BytesView atr)
{
    if (!cutter.has(2) || (atr[0] != ucDirect && atr[0] != ucInverse))
        return;
    cutter.take("TS", atr[0] == ucDirect ? "direct convention" : "inverse convention");
    size_t nHistorical = atr[1] & 15U;
    uint8_t ucT0 = cutter.take("T0", std::to_string(nHistorical) + " historical bytes");
    bool bOnlyT0 = true;
    if (!takeInterface(cutter, ucT0, bOnlyT0) || !cutter.has(nHistorical))
        return;
    if (nHistorical > 0) {
        std::string sText = quoted(cutter.rest().first(nHistorical));
        cutter.takeMany("historical", nHistorical, std::move(sText));
    }
    if (!bOnlyT0 && cutter.rest().size() == 1)
        takeCheck(cutter, atr);
}

} // namespace

std::vector<AtrPart> decodeAtr(BytesView atr)
{
    Cutter cutter(atr);
    takeAll(cutter, atr);
    if (cutter.has(1))
        cutter.takeMany("rest", cutter.rest().size(), "not as an answer to reset is built");
    return cutter.parts();
}

} // namespace qvtool
