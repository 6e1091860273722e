// aux_host.cpp - a host on a thin-client terminal: its standard output is the terminal's line, so everything that it has
// to say goes to standard error.
//
// aux_host TYPE PORT BAUD PREFIX MODE: opens the reader on aux port PORT of a terminal of that type, powers the card in
// slot 0, sends one APDU, powers down and closes. MODE is the nAuxMode that it sets before.

#include "qvreader/qvreader.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr uint32_t nPowerOnSeconds = 2;

void tell(const char *pszWhat, int32_t nResult, const uint8_t *pData = nullptr, uint32_t nLen = 0)
{
    std::fprintf(stderr, "%s %d", pszWhat, nResult);
    for (uint32_t i = 0; i < nLen; ++i)
        std::fprintf(stderr, " %02X", pData[i]);
    std::fputc('\n', stderr);
}

void exchange()
{
    std::array<uint8_t, 512> atr{};
    uint32_t nAtrLen = 0;
    Dev_Rdz_SetPowerOnTime(nPowerOnSeconds);
    const int32_t nPowered = Dev_Rdz_IccPowerOn('1', atr.data(), &nAtrLen);
    tell("power", nPowered, atr.data(), nPowered == 0 ? nAtrLen : 0);
    if (nPowered != 0)
        return;

    constexpr std::array<uint8_t, 5> challenge = {0x00, 0x84, 0x00, 0x00, 0x08};
    std::array<uint8_t, 1024> response{};
    uint32_t nResponseLen = 0;
    COMM_Rdz_ChageReadTimeOut(nPowerOnSeconds);
    const int32_t nAnswered = ICC_CardCmdVisitCOS(challenge.data(), challenge.size(), response.data(), &nResponseLen);
    tell("apdu", nAnswered, response.data(), nAnswered == 0 ? nResponseLen : 0);
    COMM_Rdz_ChageReadTimeOut(nPowerOnSeconds);
    tell("off", Dev_Rdz_Ic_PowerOff());
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    if (nArgs != 6)
        return 2;
    const auto number = [ppArgs](int n) { return static_cast<int32_t>(std::strtol(ppArgs[n], nullptr, 10)); };
    BackUpParam state{};
    state.nAuxMode = number(5);
    tell("mode", SetBackUpParam(&state));

    TransPortParam param{};
    param.nType = 1;
    param.nTermType = static_cast<uint32_t>(number(1));
    param.nAuxPort = number(2);
    param.nBaud = static_cast<uint32_t>(number(3));
    param.bAuxPrefix = static_cast<uint32_t>(number(4));
    param.nTimeOut = static_cast<int32_t>(nPowerOnSeconds);
    const int32_t nOpened = COMM_Icc_OpenCardReader(&param);
    tell("open", nOpened);
    if (nOpened != 0)
        return 1;
    exchange();
    tell("close", COMM_Icc_CloseCardReader());
    return 0;
}
