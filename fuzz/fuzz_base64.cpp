// fuzz_base64.cpp - both Base64 codecs, both ways, with capacities that fit and that do not.
//
// input: capacity of the decoder, text or data

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <algorithm>
#include <string_view>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

int valueOf(uint8_t uc)
{
    constexpr std::string_view sAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t nAt = sAlphabet.find(static_cast<char>(uc));
    return uc == '=' ? 0 : nAt == sAlphabet.npos ? -1 : static_cast<int>(nAt);
}

// Bytes written and the result.
struct Decoded {
    Bytes data;
    int32_t nRet;
};

Decoded decodeByTheRules(std::span<const uint8_t> text, size_t nCap)
{
    Decoded out{{}, 0};
    for (; text.size() >= 4; text = text.subspan(4)) {
        for (size_t i = 0; i < 3; ++i) {
            if (text[i] == '=' || text[i + 1] == '=') {
                out.nRet = static_cast<int32_t>(out.data.size());
                return out;
            }
            if (out.data.size() > nCap) {
                out.nRet = -1;
                return out;
            }
            const auto nLeft = static_cast<unsigned>(valueOf(text[i])),
                       nRight = static_cast<unsigned>(valueOf(text[i + 1]) >> (4 - 2 * i));
            out.data.push_back(static_cast<uint8_t>(nLeft << (2 + 2 * i) | nRight));
        }
    }
    out.nRet = static_cast<int32_t>(out.data.size());
    return out;
}

void decode(std::span<const uint8_t> text, uint32_t nCap)
{
    const auto *pText = reinterpret_cast<const char *>(text.data());
    const Decoded expected = decodeByTheRules(text, nCap);
    for (auto *pfnDecode : {Base64_DecData, DecryptBase64}) {
        Area out(nCap + 1);
        QV_HOLDS(pfnDecode(pText, static_cast<uint32_t>(text.size()), out.data(), nCap) == expected.nRet);
        QV_HOLDS(out.intactBehind(std::min<size_t>(expected.data.size(), nCap + 1)));
        QV_HOLDS(std::equal(expected.data.begin(), expected.data.end(), out.data()));
    }
}

void encode(std::span<const uint8_t> data)
{
    const size_t nText = (data.size() + 2) / 3 * 4;
    for (auto *pfnEncode : {Base64_EncData, EncryptBase64}) {
        Area text(nText);
        const auto nLen = static_cast<uint32_t>(data.size());
        QV_HOLDS(pfnEncode(data.data(), nLen, text.text(), static_cast<int32_t>(nText) - 1) == -1);
        QV_HOLDS(text.intactBehind(0));
        QV_HOLDS(pfnEncode(data.data(), nLen, text.text(), static_cast<int32_t>(nText)) == static_cast<int32_t>(nText));
        QV_HOLDS(text.intactBehind(nText));
        for (uint8_t uc : text.first(nText))
            QV_HOLDS(valueOf(uc) >= 0);

        Area back(data.size() + 1);
        QV_HOLDS(Base64_DecData(text.text(), static_cast<uint32_t>(nText), back.data(), nLen) ==
                 static_cast<int32_t>(nLen));
        QV_HOLDS(std::equal(data.begin(), data.end(), back.data()));
        QV_HOLDS(back.intactBehind(data.size()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint32_t nCap = input.byte();
    const auto text = input.rest();
    if (text.empty())
        return 0;
    for (uint8_t uc : text)
        QV_HOLDS(GetIndexFromTable(static_cast<char>(uc)) == valueOf(uc) &&
                 GetIndexFromBase64Table(static_cast<char>(uc)) == valueOf(uc));
    decode(text, nCap);
    decode(text, static_cast<uint32_t>(text.size()));
    encode(text);
    return 0;
}
