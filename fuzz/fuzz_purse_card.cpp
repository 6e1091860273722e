// fuzz_purse_card.cpp - the card command builders with a hostile card: an exchange in the device table that answers with
// anything, fails, and lies about the length.
//
// input: commands, each: builder, mode (bit 0: no response buffer; bit 1: no length; bit 2: no data; bit 3: the exchange
// fails), four arguments, data length (two bytes), the exchange's result, said length (two bytes), written length (two
// bytes), data, answer

#include "fuzz_support.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <optional>
#include <span>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr size_t nResponseSize = 1024;
constexpr size_t nCommandsMax = 16;
constexpr uint32_t nMark = 0x5EADBEEF, nFailed = 0xFFFFFFFF;
constexpr uint32_t nOldStatus = 0x6A82;
constexpr size_t nExchangeSlot = 7;

// What the card says to the next command, and the command that it got.
struct Card {
    int32_t nResult = 0;
    uint32_t nSaidLen = 0;
    Bytes answer;
    int nAsked = 0;
    Bytes command;
};
Card s_card;

int32_t exchange(const uint8_t *pCommand, uint32_t nLen, uint8_t *pResponse, uint32_t *pnResponse)
{
    QV_HOLDS(*pnResponse == nResponseSize);
    ++s_card.nAsked;
    s_card.command.assign(pCommand, pCommand + nLen);
    std::copy(s_card.answer.begin(), s_card.answer.end(), pResponse);
    *pnResponse = s_card.nSaidLen;
    return s_card.nResult;
}

enum class Out { Passed, OnlyBytes, Dropped };

// A builder's call, and what it means.
struct Call {
    uint8_t a, b, c, d; // arguments that are no data
    const uint8_t *pData;
    uint32_t nData;
    uint8_t *pResponse;
    uint32_t *pnResponse;
};
struct Meaning {
    uint8_t cla, ins, p1, p2;
    std::optional<uint8_t> le; // nothing: no Le byte
    Out out;
    bool bKnown = true; // false: the arguments are refused
};
struct Builder {
    uint32_t nFixedData; // 0: as the input says; the host's array has that many bytes
    bool bHasData;
    uint32_t (*pfnCall)(const Call &);
    Meaning (*pfnMeaning)(const Call &);
};

constexpr uint32_t nNoData = 0;

std::optional<uint8_t> unless0(uint8_t uc)
{
    return uc == 0 ? std::nullopt : std::optional<uint8_t>(uc);
}
uint8_t file(uint8_t ucSfi)
{
    return static_cast<uint8_t>(0x80 + ucSfi % 0x20);
}
bool isKind(uint8_t uc)
{
    return uc == 1 || uc == 2;
}

constexpr Builder builders[] = {
    {nNoData, true,
     [](const Call &x) {
         return Cmd_Ic_PbocSelectFile(x.a, x.b, x.pData, static_cast<uint8_t>(x.nData), x.pResponse, x.pnResponse);
     },
     [](const Call &x) { return Meaning{0x00, 0xA4, x.a, x.b, 0x00, Out::Passed}; }},
    {nNoData, true,
     [](const Call &x) { return Cmd_Ic_PbocSelect_Aid(x.a, x.pData, x.nData, x.pResponse, x.pnResponse); },
     [](const Call &x) {
         return Meaning{0x00, 0xA4, 0x04, static_cast<uint8_t>(x.a == 2 ? 2 : 0), 0x00, Out::Passed};
     }},
    {nNoData, false, [](const Call &x) { return Cmd_Ic_PbocReadRecord(x.a, x.b, x.pResponse, x.pnResponse); },
     [](const Call &x) {
         return Meaning{0x00, 0xB2, x.b, static_cast<uint8_t>(x.a == 0 ? 0 : (x.a * 8) | 4), 0x00, Out::Passed};
     }},
    {nNoData, true,
     [](const Call &x) { return Cmd_Ic_PbocGetProcessOptions(x.pData, x.nData, x.pResponse, x.pnResponse); },
     [](const Call &) { return Meaning{0x80, 0xA8, 0x00, 0x00, 0x00, Out::Passed}; }},
    {nNoData, true, [](const Call &x) { return Cmd_Ic_PbocPinVerify(static_cast<char>(x.a), x.pData, x.nData); },
     [](const Call &x) {
         return Meaning{0x00, 0x20, 0x00, static_cast<uint8_t>(x.a == '0' ? 0x80 : 0x88), 0xFF, Out::Dropped};
     }},
    {nNoData, false, [](const Call &x) { return Cmd_Ic_PbocGetChallenge(x.pResponse, x.a); },
     [](const Call &x) { return Meaning{0x00, 0x84, 0x00, 0x00, x.a, Out::OnlyBytes}; }},
    {nNoData, true, [](const Call &x) { return Cmd_Ic_PbocInternalAuth(x.pData, x.nData, x.pResponse, x.pnResponse); },
     [](const Call &) { return Meaning{0x00, 0x88, 0x00, 0x00, 0x00, Out::Passed}; }},
    {nNoData, true,
     [](const Call &x) { return Cmd_Ic_PbocGenerateAC(x.a, x.pData, x.nData, x.pResponse, x.pnResponse); },
     [](const Call &x) {
         return Meaning{0x80, 0xAE, static_cast<uint8_t>(x.a == 1 ? 0x80 : x.a == 2 ? 0x40 : 0),
                        0x00, 0x00, Out::Passed};
     }},
    {nNoData, true, [](const Call &x) { return Cmd_Ic_PbocExternalAuthenticate(x.pData, x.nData); },
     [](const Call &) { return Meaning{0x00, 0x82, 0x00, 0x00, 0x00, Out::Dropped}; }},
    {nNoData, false, [](const Call &x) { return Cmd_Ic_EpEdGetBalance(x.a, x.pResponse, x.pnResponse); },
     [](const Call &x) { return Meaning{0x80, 0x5C, 0x00, x.a, 0x04, Out::Passed, isKind(x.a)}; }},
    {11, true, [](const Call &x) { return Cmd_Ic_EpEdInitializeForLoad(x.a, x.pData, x.pResponse, x.pnResponse); },
     [](const Call &x) { return Meaning{0x80, 0x50, 0x00, x.a, 0x10, Out::Passed, isKind(x.a)}; }},
    {11, true, [](const Call &x) { return Cmd_Ic_EpEdCreditForLoad(x.pData, x.pResponse, x.pnResponse); },
     [](const Call &) { return Meaning{0x80, 0x52, 0x00, 0x00, 0x04, Out::Passed}; }},
    {11, true, [](const Call &x) { return Cmd_Ic_EpEdInitializeForUnLoad(x.a, x.pData, x.pResponse, x.pnResponse); },
     [](const Call &x) { return Meaning{0x80, 0x50, 0x05, x.a, 0x10, Out::Passed, isKind(x.a)}; }},
    {11, true, [](const Call &x) { return Cmd_Ic_EpEdDebitForUnLoad(x.pData, x.pResponse, x.pnResponse); },
     [](const Call &) { return Meaning{0x80, 0x54, 0x03, 0x00, 0x04, Out::Passed}; }},
    {11, true, [](const Call &x) { return Cmd_Ic_EpEdInitializeForPurchase(x.a, x.pData); },
     [](const Call &x) { return Meaning{0x80, 0x50, 0x01, x.a, 0x0F, Out::Dropped}; }},
    {15, true, [](const Call &x) { return Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(x.pData); },
     [](const Call &) { return Meaning{0x80, 0x54, 0x01, 0x00, 0x08, Out::Dropped}; }},
    {nNoData, false, [](const Call &x) { return Cmd_Ic_EpEdReadBinary(x.a, x.b, x.c, x.pResponse, x.pnResponse); },
     [](const Call &x) { return Meaning{0x00, 0xB0, file(x.a), x.b, unless0(x.c), Out::Passed}; }},
    {nNoData, false, [](const Call &x) { return Cmd_Ic_EpEdRead(x.a, x.b, x.c, x.pResponse, x.pnResponse); },
     [](const Call &x) { return Meaning{0x00, 0xB2, file(x.a), x.b, unless0(x.c), Out::Passed}; }},
    {nNoData, true, [](const Call &x) { return Cmd_Ic_EpEdUpdateBinary(x.a, x.b, x.pData, x.nData); },
     [](const Call &x) { return Meaning{0x00, 0xD6, file(x.a), x.b, 0x00, Out::Dropped}; }},
    {nNoData, true,
     [](const Call &x) {
         return Cmd_Ic_PbocSendAPDU(x.a, x.b, x.c, x.d, static_cast<uint8_t>(x.nData), x.pData, 1, x.d, x.pResponse,
                                    x.pnResponse);
     },
     [](const Call &x) { return Meaning{x.a, x.b, x.c, x.d, x.d, Out::Passed}; }},
    {nNoData, true,
     [](const Call &x) {
         return Cmd_Ic_PbocSendAPDU(x.a, x.b, x.c, x.d, static_cast<uint8_t>(x.nData), x.pData,
                                    static_cast<uint8_t>(x.a == 1 ? 0 : x.a), 5, x.pResponse, x.pnResponse);
     },
     [](const Call &x) { return Meaning{x.a, x.b, x.c, x.d, std::nullopt, Out::Passed}; }},
    // These take their header from the data.
    {2, true, [](const Call &x) { return Cmd_Ic_PbocGetData(x.pData, x.pResponse, x.pnResponse); },
     [](const Call &x) {
         return x.pData == nullptr ? Meaning{0, 0, 0, 0, std::nullopt, Out::Passed, false}
                                   : Meaning{0x80, 0xCA, x.pData[0], x.pData[1], 0x00, Out::Passed};
     }},
    {nNoData, true, [](const Call &x) { return Cmd_Ic_PbocWriteScript(x.pData, x.nData, x.pResponse, x.pnResponse); },
     [](const Call &x) {
         return x.pData == nullptr || x.nData < 4
                    ? Meaning{0, 0, 0, 0, std::nullopt, Out::Passed, false}
                    : Meaning{x.pData[0], x.pData[1], x.pData[2], x.pData[3], 0x00, Out::Passed};
     }},
};
constexpr size_t nGetData = std::size(builders) - 2, nWriteScript = std::size(builders) - 1;

// The command's bytes; nothing: it is refused.
std::optional<Bytes> commandOf(size_t nBuilder, const Call &call, const Meaning &meaning)
{
    std::span<const uint8_t> data;
    if (builders[nBuilder].bHasData && nBuilder != nGetData && call.pData != nullptr)
        data = {call.pData, call.nData};
    if (nBuilder == nWriteScript && meaning.bKnown)
        data = data.subspan(4);
    const bool bMissing = builders[nBuilder].bHasData && call.pData == nullptr && call.nData > 0;
    if (!meaning.bKnown || bMissing || data.size() > 255)
        return std::nullopt;
    Bytes command{meaning.cla, meaning.ins, meaning.p1, meaning.p2};
    if (!data.empty())
        command.push_back(static_cast<uint8_t>(data.size()));
    command.insert(command.end(), data.begin(), data.end());
    if (meaning.le)
        command.push_back(*meaning.le);
    return command;
}

size_t number(qvfuzz::Input &input)
{
    const size_t nHigh = input.byte();
    return nHigh << 8 | input.byte();
}

void runCommand(qvfuzz::Input &input)
{
    const size_t nBuilder = input.byte() % std::size(builders);
    const Builder &builder = builders[nBuilder];
    const uint8_t ucMode = input.byte();
    Area response(nResponseSize);
    uint32_t nResponse = nMark;
    Call call{};
    call.a = input.byte();
    call.b = input.byte();
    call.c = input.byte();
    call.d = input.byte();
    // One byte of length goes out where the builder's own argument has one byte.
    const bool bByte = nBuilder == 0 || (nBuilder >= nGetData - 2 && nBuilder < nGetData);
    const size_t nChosen = number(input) % (bByte ? 256 : 300);
    const size_t nWanted = builder.nFixedData > 0 ? builder.nFixedData : nChosen;
    s_card = {};
    const uint8_t ucResult = input.byte();
    s_card.nResult = (ucMode & 8) != 0 ? static_cast<int8_t>(ucResult) : 0;
    s_card.nSaidLen = static_cast<uint32_t>(number(input));
    const size_t nWritten = number(input) % (nResponseSize + 1);
    Bytes data(builder.bHasData ? nWanted : 0); // of exactly that size, so that reading behind it shows
    const auto given = input.take(data.size());
    std::copy(given.begin(), given.end(), data.begin());
    const auto answer = input.take(nWritten);
    s_card.answer.assign(answer.begin(), answer.end());
    call.pData = (ucMode & 4) != 0 || data.empty() ? nullptr : data.data();
    call.nData = static_cast<uint32_t>(data.size());
    call.pResponse = (ucMode & 1) != 0 ? nullptr : response.data();
    call.pnResponse = (ucMode & 2) != 0 ? nullptr : &nResponse;
    ICC_CardCmdSetErrCode(nOldStatus);

    const Meaning meaning = builder.pfnMeaning(call);
    const uint32_t nRet = builder.pfnCall(call);

    const auto command = commandOf(nBuilder, call, meaning);
    QV_HOLDS(s_card.nAsked == (command ? 1 : 0));
    const bool bFails = command && s_card.nResult != 0;
    QV_HOLDS(ICC_CardCmdGetErrCode() == (bFails ? 0xAAAA : nOldStatus));
    if (!command || bFails) {
        QV_HOLDS(nRet == (command ? static_cast<uint32_t>(s_card.nResult) : nFailed));
        QV_HOLDS(response.intactBehind(0) && nResponse == nMark);
        return;
    }
    QV_HOLDS(s_card.command == *command);
    Bytes whole(s_card.answer); // what was not written reads as zeros
    whole.resize(std::min<size_t>(s_card.nSaidLen, nResponseSize));
    const size_t n = whole.size();
    QV_HOLDS(nRet == (n < 2 ? 0 : uint32_t{whole[n - 2]} << 8 | whole[n - 1]));
    const bool bCopied = call.pResponse != nullptr &&
                         (meaning.out == Out::OnlyBytes || (meaning.out == Out::Passed && call.pnResponse != nullptr));
    QV_HOLDS(response.intactBehind(bCopied ? n : 0));
    QV_HOLDS(!bCopied || std::equal(whole.begin(), whole.end(), response.data()));
    QV_HOLDS(nResponse == (bCopied && meaning.out == Out::Passed ? n : nMark));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    stICOp[nExchangeSlot] = reinterpret_cast<void *>(exchange);
    qvfuzz::Input input(pData, nSize);
    for (size_t n = 0; n < nCommandsMax; ++n) {
        if (qvfuzz::Input(input).rest().empty())
            break;
        runCommand(input);
    }
    return 0;
}
