// dispatcher.cpp - the single door to the reader's byte channel.
//
// Routes each call to the transport that is open and keeps what the next read needs: time-out, end condition, type.
// A read takes its own duration off the time-out, so that the reads of one exchange share one budget; whoever starts
// an exchange sets it anew.

#include "clock.h"
#include "log.h"
#include "qvreader/transport.h"

#include <atomic>
#include <cstddef>
#include <cstring>

using qv::kLogCommDev;

BackUpParam stBackUpParam = {};

namespace {

constexpr uint32_t nTypeSerial = 1;
constexpr uint32_t nTypeUsbHid = 7;

// nType is read by a cancel from another thread while an open may write it.
uint32_t openType() noexcept
{
    return std::atomic_ref<uint32_t>(stBackUpParam.nType).load(std::memory_order_relaxed);
}

void setOpenType(uint32_t nType) noexcept
{
    std::atomic_ref<uint32_t>(stBackUpParam.nType).store(nType, std::memory_order_relaxed);
}

void keepParam(const TransPortParam &param) noexcept
{
    stBackUpParam.nTimeOut = param.nTimeOut;
    stBackUpParam.pfnEndCondition = param.pfnEndCondition;
    setOpenType(param.nType);
    stBackUpParam.bAuxPrefix = param.bAuxPrefix;
}

// The open asks the open record, later calls ask what SetBackUpParam was told: an aux open alone wraps no writes.
bool isAuxOpen(const TransPortParam &param) noexcept
{
    return param.nAuxPort >= 1;
}
bool isAuxMode() noexcept
{
    return stBackUpParam.nAuxMode >= 1;
}

int32_t openTransport(const TransPortParam &param) noexcept
{
    switch (param.nType) {
    case nTypeSerial:
        if (isAuxOpen(param))
            return COMM_Com_OpenLinuxAux(param.nTermType, static_cast<uint32_t>(param.nAuxPort), param.nBaud,
                                         param.bAuxPrefix);
        return COMM_Com_OpenLinux(param.szTermPath, param.nBaud);
    case nTypeUsbHid:
        QV_LOG(kLogCommDev, "TYPE_USBLIB_HID\r\n");
        return COMM_Hid_OpenLinuxUsbLibHid(param.nVID, param.nPID);
    default: return RET_PUB_FAIL;
    }
}

int32_t readTransport(uint8_t *buf, uint32_t maxLen) noexcept
{
    const int32_t nTimeOut = stBackUpParam.nTimeOut;
    const EndConditionFn pfnEnd = stBackUpParam.pfnEndCondition;
    int32_t nRet = RET_PUB_FAIL;
    switch (openType()) {
    case nTypeSerial:
        nRet = isAuxMode() ? COMM_Com_ReadLinuxAux(buf, maxLen, nTimeOut, pfnEnd)
                           : COMM_Com_ReadLinux(buf, maxLen, nTimeOut, pfnEnd);
        DPrintDataHexToFile("PACKGET READ", buf, nRet);
        return nRet;
    case nTypeUsbHid:
        QV_LOG(kLogCommDev, "TYPE_USBLIB_HID\n");
        return COMM_Hid_ReadLinuxUsbLibHid(buf, maxLen, nTimeOut, pfnEnd);
    default: return nRet;
    }
}

} // namespace

int32_t COMM_Dev_Linux_OpenTransPort(TransPortParam *pParam) noexcept
{
    QV_LOG(kLogCommDev, "ICC_OpenLinuxTransPort\r\n");
    if (pParam == nullptr)
        return RET_PUB_INVAL_PARAM;
    const int32_t nRet = openTransport(*pParam);
    if (nRet == 0)
        keepParam(*pParam);
    return nRet;
}

int32_t COMM_Dev_OpenTransPort(TransPortParam *pParam) noexcept
{
    QV_LOG(kLogCommDev, "【%s】 Start ", __func__);
    const int32_t nRet = COMM_Dev_Linux_OpenTransPort(pParam);
    QV_LOG(kLogCommDev, "【%s】 End = %d  ", __func__, nRet);
    return nRet;
}

int32_t COMM_Dev_Linux_WriteDataToTransPort(const uint8_t *data, uint32_t len) noexcept
{
    QV_LOG(kLogCommDev, "[ICC_WriteDataToLinuxTransPort] Start ");
    const auto nLen = static_cast<int32_t>(len);
    switch (openType()) {
    case nTypeSerial: return isAuxMode() ? COMM_Com_WriteLinuxAux(data, nLen) : COMM_Com_WriteLinux(data, nLen);
    case nTypeUsbHid: return COMM_Hid_WriteLinuxUsbLibHid(data, len);
    default: return RET_PUB_FAIL;
    }
}

int32_t COMM_Dev_WriteDataToTransPort(const uint8_t *data, uint32_t len) noexcept
{
    return COMM_Dev_Linux_WriteDataToTransPort(data, len);
}

int32_t COMM_Dev_Linux_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) noexcept
{
    const time_t nStart = qv::wallSeconds();
    QV_LOG(kLogCommDev, "[%s] Start ", __func__);
    const int32_t nRet = readTransport(buf, maxLen);
    // Also after a failure; a budget that is used up becomes the serial port's long wait.
    const auto nElapsed = static_cast<uint32_t>(qv::wallSeconds() - nStart);
    stBackUpParam.nTimeOut = static_cast<int32_t>(static_cast<uint32_t>(stBackUpParam.nTimeOut) - nElapsed);
    return nRet;
}

int32_t COMM_Dev_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) noexcept
{
    return COMM_Dev_Linux_ReadDataFromTransPort(buf, maxLen);
}

int32_t COMM_Dev_Linux_CloseTransPort(void) noexcept
{
    switch (openType()) {
    case nTypeSerial: return isAuxMode() ? COMM_Com_CloseLinuxAux(stBackUpParam.bAuxPrefix) : COMM_Com_CloseLinux();
    case nTypeUsbHid: return COMM_Hid_CloseLinuxUsbLibHid();
    default: return RET_PUB_FAIL;
    }
}

int32_t COMM_Dev_CloseTransPort(void) noexcept
{
    return COMM_Dev_Linux_CloseTransPort();
}

int32_t COMM_Dev_Linux_CancelLinuxRead(void) noexcept
{
    switch (openType()) {
    case nTypeSerial: return COMM_Com_CancelLinuxRead();
    case nTypeUsbHid: return COMM_Hid_CancelLinuxUsbLibHid();
    default: return RET_PUB_FAIL;
    }
}

int32_t COMM_Dev_CancelRead(void) noexcept
{
    return COMM_Dev_Linux_CancelLinuxRead();
}

int32_t COMM_Dev_Linux_ChangeEndCondition(EndConditionFn end) noexcept
{
    stBackUpParam.pfnEndCondition = end;
    return 0;
}

int32_t COMM_Dev_ChangeEndCondition(EndConditionFn end) noexcept
{
    return COMM_Dev_Linux_ChangeEndCondition(end);
}

int32_t COMM_Dev_Linux_ChangeReadTime(uint32_t seconds) noexcept
{
    stBackUpParam.nTimeOut = static_cast<int32_t>(seconds);
    return 0;
}

int32_t COMM_Dev_ChangeReadTimeOut(uint32_t seconds) noexcept
{
    return COMM_Dev_Linux_ChangeReadTime(seconds);
}

int32_t COMM_Dev_Linux_ChangeTermParam(TransPortParam *pParam) noexcept
{
    if (pParam == nullptr)
        return RET_PUB_INVAL_PARAM;
    keepParam(*pParam);
    return 0;
}

int32_t COMM_Dev_ChangeTermParam(TransPortParam *pParam) noexcept
{
    return COMM_Dev_Linux_ChangeTermParam(pParam);
}

int32_t SetBackUpParam(const BackUpParam *pParam) noexcept
{
    if (pParam == nullptr)
        return RET_PUB_INVAL_PARAM;
    // As it lies, padding included: a host may compare the whole.
    constexpr size_t nRest = offsetof(BackUpParam, nType) + sizeof pParam->nType;
    std::memcpy(&stBackUpParam, pParam, offsetof(BackUpParam, nType));
    setOpenType(pParam->nType);
    std::memcpy(&stBackUpParam.nType + 1, &pParam->nType + 1, sizeof stBackUpParam - nRest);
    return 0;
}

int32_t COMM_Dev_Linux_SetLinuxHidClearZero(uint32_t flag) noexcept
{
    return COMM_Hid_SetLinuxHidClearZero(flag);
}

int32_t COMM_Dev_SetHidClearZero(uint32_t flag) noexcept
{
    return COMM_Dev_Linux_SetLinuxHidClearZero(flag);
}

int32_t COMM_Dev_UseComm(uint32_t) noexcept
{
    return 0;
}
