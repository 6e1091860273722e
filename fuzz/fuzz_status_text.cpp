// fuzz_status_text.cpp - ICC_CardCmdShowErrMsg and ICC_CardCmdShowLastErrMsg against a second reading of the rules, which
// holds the texts in UTF-8.
//
// input: codes of four bytes each, the highest byte first

#include "../tests/support/card_messages.h"
#include "../tests/support/gbk.h"
#include "fuzz_support.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace {

constexpr size_t nMessageSize = 1024;
constexpr size_t nCodesMax = 32;

// The buffer holds the text, and nothing of an earlier one behind it.
void check(const char *pszMessage, const std::string &sExpected)
{
    static const char *s_pszBuffer = pszMessage;
    QV_HOLDS(pszMessage == s_pszBuffer);
    QV_HOLDS(std::memchr(pszMessage, '\0', nMessageSize) == pszMessage + sExpected.size());
    QV_HOLDS(std::memcmp(pszMessage, sExpected.data(), sExpected.size()) == 0);
    QV_HOLDS(std::all_of(pszMessage + sExpected.size(), pszMessage + nMessageSize, [](char c) { return c == '\0'; }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    for (size_t n = 0; n < nCodesMax; ++n) {
        const auto bytes = input.take(4);
        if (bytes.empty())
            break;
        uint32_t nCode = 0;
        for (uint8_t uc : bytes)
            nCode = nCode << 8 | uc;
        const std::string sExpected = qvtest::toGbk(qvtest::cardMessage(nCode));
        check(ICC_CardCmdShowErrMsg(nCode), sExpected);
        QV_HOLDS(ICC_CardCmdSetErrCode(nCode) == 0);
        check(ICC_CardCmdShowLastErrMsg(), sExpected);
        QV_HOLDS(ICC_CardCmdGetErrCode() == nCode);
    }
    return 0;
}
