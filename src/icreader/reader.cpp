// reader.cpp - the reader behind an open record: open, close, single commands, switching its speed.
//
// Owns stCardReader. A reader mode other than 0 names a reader that is not driven here; every call that would talk to
// it ends before any traffic.

#include "end_byte.h"
#include "log.h"
#include "reader_state.h"

#include <array>

using qv::kLogCommDev;

IcCardReader stCardReader = {};

namespace {

constexpr uint32_t nFirstWord = 170;
constexpr uint32_t nDefaultBaud = 9600;
constexpr int32_t nDefaultTimeOut = 3; // seconds

// The reader's speed escape for the record's rate, sent raw.
void sendSpeedEscape(const TransPortParam &param, uint32_t nFlag) noexcept
{
    uint32_t nEscape = 0;
    const int32_t nLen = INSTR_Rdz_BpsDeviceCom(nFlag, param.nBaud, &nEscape, nullptr);
    COMM_Icc_CardReaderCmd(reinterpret_cast<const uint8_t *>(&nEscape), static_cast<uint32_t>(nLen));
}

} // namespace

int32_t IcEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return qv::endsIn(buf, len, qv::ucCardEnd);
}

int32_t COMM_Icc_InitCardReaderParam(TransPortParam *param) noexcept
{
    if (param == nullptr)
        return RET_PUB_INVAL_PARAM;
    *param = {};
    param->nWord1 = nFirstWord;
    param->nType = qv::nTypeSerial;
    param->nTermType = 1;
    param->nPort = 1;
    param->nBaud = nDefaultBaud;
    param->nTimeOut = nDefaultTimeOut;
    param->pfnEndCondition = IcEndCondition;
    return 0;
}

int32_t COMM_Icc_OpenCardReader(TransPortParam *param) noexcept
{
    if (param == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (param->pfnEndCondition == nullptr)
        param->pfnEndCondition = IcEndCondition;
    if (param->nWord4 != 0) {
        QV_LOG(kLogCommDev, "reader mode %u is not driven by this library", param->nWord4);
        return qv::nUnsupported;
    }
    const int32_t nRet = COMM_Rdz_OpenReader(param);
    if (nRet == 0) {
        stCardReader.nReaderMode = static_cast<int32_t>(param->nWord4);
        stCardReader.nTimeOut = param->nTimeOut;
    }
    return nRet;
}

int32_t COMM_Icc_CloseCardReader(void) noexcept
{
    return qv::isOtherReader() ? qv::nUnsupported : COMM_Rdz_CloseReader();
}

int32_t COMM_Icc_WriteDataToCardReader(const uint8_t *data, uint32_t len) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    DPrintDataHexToFile(__func__, data, qv::loggedLength(len));
    return COMM_Rdz_WriteDataToReader(qv::ucCardHead, qv::ucCardEnd, data, len);
}

int32_t COMM_Icc_ReadDataFromCardReader(uint8_t *out, uint32_t nMax) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    return COMM_Rdz_ReadDataFromReader(1, qv::ucCardHead, qv::ucCardEnd, out, nMax);
}

int32_t COMM_Icc_CardReaderCmd(const uint8_t *data, uint32_t len) noexcept
{
    return qv::isOtherReader() ? qv::nUnsupported : COMM_Rdz_ReaderCmd(data, len);
}

int32_t COMM_Icc_CardReaderSynBps(TransPortParam *param, uint32_t nFlag) noexcept
{
    if (param == nullptr)
        return RET_PUB_FAIL;
    if (qv::isOtherReader())
        return qv::nUnsupported;
    constexpr std::array<uint8_t, 4> wakeUp{};
    if (COMM_Rdz_WriteDataToReader(0, 0, wakeUp.data(), wakeUp.size()) != 0)
        return 1;
    sendSpeedEscape(*param, nFlag);
    COMM_Icc_CloseCardReader();
    if (COMM_Icc_OpenCardReader(param) != 0) {
        COMM_Icc_CloseCardReader();
        return RET_PUB_FAIL;
    }
    sendSpeedEscape(*param, nFlag);
    return 0;
}

int32_t COMM_Icc_CardReaderByBaund(TransPortParam *param, uint32_t nFlag) noexcept
{
    if (param == nullptr)
        return RET_PUB_INVAL_PARAM;
    if (qv::isOtherReader())
        return qv::nUnsupported;
    sendSpeedEscape(*param, nFlag);
    return 0;
}

int32_t COMM_Icc_CardReaderResetSynBps(uint32_t) noexcept
{
    return 0;
}
