// fuzz_stripe_text.cpp - track texts of a host: which characters a track takes, where a text is cut, and the commands
// made of them.
//
// input: which texts are there (3 bits), then the texts, each up to a NUL

#include "fuzz_support.h"
#include "qvreader/msr.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

using qvfuzz::Area;

namespace {

constexpr size_t nTextMax = 1200;
constexpr size_t nCommandMax = 1024;

bool isOfTrack(int nTrack, unsigned char c)
{
    return nTrack == 1 ? c >= 0x20 && c <= 0x5F : c >= '0' && c <= '?';
}

// The text as it may be written, and whether it may.
struct Checked {
    std::string sText;
    bool bGood;
};
Checked checkPlainly(int nTrack, const std::string &sText)
{
    const auto end = std::find_if_not(sText.begin(), sText.end(),
                                      [=](char c) { return isOfTrack(nTrack, static_cast<unsigned char>(c)); });
    if (end == sText.begin() && !sText.empty())
        return {sText, false};
    return {std::string(sText.begin(), end), true};
}

class Text {
  public:
    Text(const std::string &sText, bool bThere) : m_area(sText.size() + 1), m_sText(sText), m_bThere(bThere)
    {
        std::memcpy(m_area.data(), sText.c_str(), sText.size() + 1);
    }
    char *get() { return m_bThere ? m_area.text() : nullptr; }
    const std::string &original() const { return m_sText; }
    bool isThere() const { return m_bThere; }
    // Cut to that text, by one NUL, and not touched behind it.
    void expect(const std::string &sNow)
    {
        QV_HOLDS(m_area.intactBehind(m_sText.size() + 1));
        QV_HOLDS(std::string(m_area.text()) == sNow);
        for (size_t i = sNow.size() + 1; i < m_sText.size(); ++i)
            QV_HOLDS(m_area.data()[i] == static_cast<uint8_t>(m_sText[i]));
    }

  private:
    Area m_area;
    std::string m_sText;
    bool m_bThere;
};

void checkTable(const std::string &sText)
{
    for (int nTrack : {1, 2, 3})
        for (char c : sText) {
            uint8_t ucCode = 0xEE, ucBack = 0xEE;
            const bool bGood = isOfTrack(nTrack, static_cast<unsigned char>(c));
            QV_HOLDS(LookupTrackTable(0, nTrack, static_cast<uint8_t>(c), &ucCode) == (bGood ? 0 : -1));
            QV_HOLDS(bGood || ucCode == 0xEE);
            // "]" and what follows it have the code of their successor and do not come back.
            if (bGood && (nTrack != 1 || c <= 0x5C)) {
                QV_HOLDS(LookupTrackTable(1, nTrack, ucCode, &ucBack) == 0);
                QV_HOLDS(ucBack == static_cast<uint8_t>(c));
            }
        }
}

// A command holds its texts in the order of the wire, or is refused whole.
void checkCommand(const std::string &s1, const std::string &s2, const std::string &s3)
{
    const std::string sTail = "\x1D\x1B\\";
    struct Row {
        std::string sWire;
        int32_t nRet;
        uint32_t nLen;
        const uint8_t *pOut;
        const Area *pArea;
    };
    std::array<Area, 6> out{Area(nCommandMax), Area(nCommandMax), Area(nCommandMax),
                            Area(nCommandMax), Area(nCommandMax), Area(nCommandMax)};
    std::array<uint32_t, 6> nLen{77, 77, 77, 77, 77, 77};
    std::memset(out[3].data(), 0, nCommandMax); // this one counts its length in the destination
    const std::array<int32_t, 6> nRet{
        Instr_Msg_GetNtWriteTrack1(s1.c_str(), out[0].data(), &nLen[0]),
        Instr_Msg_GetNtWriteTrack2(s2.c_str(), out[1].data(), &nLen[1]),
        Instr_Msg_GetNtWriteTrack3(s3.c_str(), out[2].data(), &nLen[2]),
        Instr_Msg_GetNtWriteTrack12(s1.c_str(), s2.c_str(), out[3].data(), &nLen[3]),
        Instr_Msg_GetNtWriteTrack23(s2.c_str(), s3.c_str(), out[4].data(), &nLen[4]),
        Instr_Msg_GetNtWriteTrack123(s1.c_str(), s2.c_str(), s3.c_str(), out[5].data(), &nLen[5])};
    const std::array<std::string, 6> sWire{"\x1Bw" + s1 + sTail,
                                           "\x1Bt" + s2 + sTail,
                                           "\x1BtA" + s3 + sTail,
                                           "\x1Bw" + s2 + "A" + s1 + sTail,
                                           "\x1Bt" + s2 + "A" + s3 + sTail,
                                           "\x20\x03" + s1 + "|" + s2 + "|" + s3};
    for (size_t i = 0; i < sWire.size(); ++i) {
        const bool bFits = sWire[i].size() <= nCommandMax;
        QV_HOLDS(nRet[i] == (bFits ? 0 : RET_PUB_INVAL_PARAM));
        QV_HOLDS(nLen[i] == (bFits ? sWire[i].size() : 77));
        QV_HOLDS(out[i].intactBehind(i == 3 ? nCommandMax : bFits ? sWire[i].size() : 0));
        if (bFits)
            QV_HOLDS(std::memcmp(out[i].data(), sWire[i].data(), sWire[i].size()) == 0);
    }
}

std::string nextText(qvfuzz::Input &input)
{
    std::string sText;
    while (sText.size() < nTextMax) {
        const uint8_t uc = input.byte(); // behind the input: NUL
        if (uc == 0)
            break;
        sText.push_back(static_cast<char>(uc));
    }
    return sText;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucThere = input.byte();
    std::array<std::string, 3> sTexts;
    for (std::string &sText : sTexts)
        sText = nextText(input);
    checkTable(sTexts[0]);
    checkCommand(sTexts[0], sTexts[1], sTexts[2]);

    std::array<Text, 3> texts{Text(sTexts[0], (ucThere & 1) != 0), Text(sTexts[1], (ucThere & 2) != 0),
                              Text(sTexts[2], (ucThere & 4) != 0)};
    const int32_t nRet = CheckTrackData(texts[0].get(), texts[1].get(), texts[2].get());
    bool bAllGood = true;
    for (int i = 0; i < 3; ++i) {
        Text &text = texts[static_cast<size_t>(i)];
        if (!text.isThere() || !bAllGood) { // behind a refused text nothing is looked at
            text.expect(text.original());
            continue;
        }
        const Checked checked = checkPlainly(i + 1, text.original());
        text.expect(checked.sText);
        bAllGood = checked.bGood;
    }
    QV_HOLDS(nRet == (bAllGood ? 0 : RET_PUB_INVAL_PARAM));
    return 0;
}
