// device_info.cpp - the JSON call: opens the reader, asks for its device record, answers in JSON.
//
//     out  01 30 30 30 32 31 31 30 31 31 30 04     command 11 01 in a peripheral frame, as it stands
//     in   a frame up to 0x04, taken apart here (device_record)

#include "bounded_text.h"
#include "device_record.h"
#include "json_text.h"
#include "log.h"
#include "qvreader/devcall.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

using qv::kLogCommDev;

namespace {

constexpr int32_t nBadArgument = -100;
constexpr size_t nValueSize = 256;  // of a value of the request
constexpr size_t nReplySize = 1024; // of the reader's reply
constexpr size_t nAnswerSize = 512; // of the JSON text, least size of the caller's buffer
constexpr uint32_t nTermType = 1;
constexpr uint8_t ucFrameEnd = 0x04, ucCardFrameEnd = 0x03;
constexpr std::string_view sFunction = "0001";
constexpr const char *pszDllVersion = "1.0.0.4";
constexpr std::array<uint8_t, 12> s_question{0x01, 0x30, 0x30, 0x30, 0x32, 0x31, 0x31, 0x30, 0x31, 0x31, 0x30, 0x04};

using Value = std::array<char, nValueSize>;

struct Request {
    Value szFunction, szPort, szAddress, szBaud, szTimeOut;
};

// What cannot be read counts as absent, and absent as empty.
Request readRequest(const char *pszJson) noexcept
{
    Request request{};
    qv::jsonText(pszJson, "FunctionCode", request.szFunction);
    qv::jsonText(pszJson, "RequestPort", request.szPort);
    qv::jsonText(pszJson, "RequestIP", request.szAddress);
    qv::jsonText(pszJson, "RequestBaudRate", request.szBaud);
    qv::jsonText(pszJson, "RequestTimeOut", request.szTimeOut);
    return request;
}

bool endsWith(const uint8_t *pBuf, int32_t nLen, uint8_t ucEnd) noexcept
{
    return pBuf != nullptr && nLen > 0 && pBuf[nLen - 1] == ucEnd;
}

// Only the text "0" is USB; "00" is a serial port.
void writePortName(const Value &szPort, std::span<char> out) noexcept
{
    if (std::strcmp(szPort.data(), "0") == 0) {
        qv::copyText(out, "HID");
        return;
    }
    qv::copyText(out, "/dev/COM");
    qv::appendText(out, szPort.data());
}

using Answer = std::array<char, nAnswerSize>;

void writeFailure(Answer &answer, int32_t nRet) noexcept
{
    // The typographic quote in front of ErrorMessage is part of the answer; hosts look for it.
    std::snprintf(answer.data(), answer.size(), R"({"ErrorCode":"%d", "“ErrorMessage":"%s"})", nRet,
                  "GetDeviceInfo Failed");
}

void logMac(const qv::DeviceRecord &record) noexcept
{
    std::array<char, 13> szMac{"FFFFFFFFFFFF"};
    if (qv::hasMac(record)) {
        QV_LOG(kLogCommDev, "tl900");
        Str_HexToAsc(record.mac.data(), static_cast<int32_t>(2 * record.mac.size()), szMac.data());
    }
    QV_LOG(kLogCommDev, "szMac=%s", szMac.data());
}

void writeIdentity(Answer &answer, qv::DeviceRecord &record) noexcept
{
    logMac(record);
    const auto &v2 = record.version2;
    QV_LOG(kLogCommDev, "version2=%x.%02x.%02x.%02x", v2[3], v2[2], v2[1], v2[0]);
    const auto &v = record.version;
    const auto &d = record.date;
    std::snprintf(answer.data(), answer.size(),
                  R"({"ErrorCode":"%d", "ErrorMessage":"%s", "DeviceBrand":"QORV", "DllVersion":"%s",)"
                  R"("DeviceVersion":"%x.%02x.%02x.%02x","ProductionDate":"%2x%02x.%x.%x",)"
                  R"("DeviceSN":"%s","DeviceModel":"%s"})",
                  0, "success", pszDllVersion, v[3], v[2], v[1], v[0], d[3], d[2], d[1], d[0],
                  strim(record.szSerial.data()), qv::modelName(record));
}

// The conversation on the open port. False: nothing was written, so that there is no answer.
bool askReader(Answer &answer, int32_t &nRet) noexcept
{
    if (COMM_Dev_Linux_WriteDataToTransPort(s_question.data(), s_question.size()) <= 0)
        return false;
    COMM_Dev_Linux_ChangeEndCondition(VEREndCondition);
    std::array<uint8_t, nReplySize> reply{};
    const int32_t nRetVal = COMM_Dev_Linux_ReadDataFromTransPort(reply.data(), reply.size());
    if (nRetVal < 1) {
        nRet = RET_PUB_FAIL;
        QV_LOG(kLogCommDev, "GetDeviceInfo Failed, nRetVal = %d\n", nRetVal);
        writeFailure(answer, nRet);
    } else {
        qv::DeviceRecord record =
            qv::decodeDeviceRecord(std::span<const uint8_t>(reply).first(static_cast<size_t>(nRetVal)));
        writeIdentity(answer, record);
    }
    COMM_Dev_Linux_ChangeEndCondition(DefaultEndCondition);
    return true;
}

} // namespace

int32_t VEREndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return endsWith(buf, len, ucFrameEnd) ? 0 : -1;
}

int32_t DefaultEndCondition(const uint8_t *buf, int32_t len) noexcept
{
    return endsWith(buf, len, ucCardFrameEnd) ? 0 : -1;
}

int32_t DataFormat(char *text, int32_t length, const char *label, const char *value) noexcept
{
    if (text == nullptr || length < 0 || label == nullptr || value == nullptr)
        return RET_PUB_INVAL_PARAM;
    const size_t nAppended = std::strlen(label) + std::strlen(value) + std::strlen(":        \r\n\r\n");
    return length + std::snprintf(text + length, nAppended + 1, "%s:        %s\r\n\r\n", label, value);
}

int32_t DEV_CommCall(const char *requestJson, const void *reserved, char *outJson, uint32_t *outLen) noexcept
{
    initDriver();
    QV_LOG(kLogCommDev, "%s Start", __func__);
    const Request request = readRequest(requestJson);
    if (!std::string_view(request.szFunction.data()).starts_with(sFunction)) {
        QV_LOG(kLogCommDev, "no request for function %s", sFunction.data());
        return RET_PUB_FAIL;
    }
    const int nTimeOut = std::atoi(request.szTimeOut.data());
    if (outLen == nullptr || reserved == nullptr || outJson == nullptr || nTimeOut < 0 ||
        std::atoi(request.szPort.data()) < 0) {
        QV_LOG(kLogCommDev, "bad argument");
        return nBadArgument;
    }

    std::array<char, nValueSize + 16> szPortName{};
    writePortName(request.szPort, szPortName);
    QV_APP_SetDevPowerOnTimeout(static_cast<uint32_t>(nTimeOut));
    Dev_Rdz_Ic_RaiseBaundFlag(0);
    constexpr uint8_t ucNoBox = 0;
    if (Dev_Rdz_Ic_OpenPort(szPortName.data(), &ucNoBox, nTermType, 0, std::atoi(request.szBaud.data())) != 0)
        return RET_PUB_FAIL;

    Answer answer{};
    int32_t nRet = 0;
    const bool bAnswered = askReader(answer, nRet);
    const size_t nLen = std::strlen(answer.data());
    if (bAnswered) {
        *outLen = static_cast<uint32_t>(nLen);
        std::copy_n(answer.begin(), nLen + 1, outJson);
    }
    Dev_Rdz_Ic_ClosePort();
    QV_LOG(kLogCommDev, "outJson = %s, *outlen = %d, nRet = %d", answer.data(), static_cast<int>(nLen), nRet);
    return nRet;
}
