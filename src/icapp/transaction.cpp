// transaction.cpp - the two steps of an online transaction: the ARQC for the issuer, and the completion with the
// issuer's answer. The kernel keeps the transaction between them in the process record and at pszEmvData.

#include "device_table.h"
#include "hex_out.h"
#include "host_pointers.h"
#include "kernel.h"
#include "process_record.h"
#include "steps.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>

using qv::Address;
using qv::isMissing;
using qv::kLogAppIc;
using qv::stepResult;

namespace {

constexpr uint32_t nTvrBit = 0x80; // first byte, bit 8
constexpr int32_t nPackCompletion = 1, nPackArqc = 2;
constexpr int32_t nFromIssuer = 49; // source of the data objects that the issuer's answer brings
constexpr size_t nPackedSize = 8192;
constexpr size_t nIssuerDataSize = EMV_PROC_ISSUER_LEN - EMV_PROC_ISSUER_DATA;
constexpr size_t nScriptResultSize = 400;
constexpr std::array<uint8_t, 2> aTagArc{0x8A, 0};
constexpr std::array<uint8_t, 2> aTagIssuerAuth{0x91, 0};
constexpr std::array<uint8_t, 3> aTagScriptResult{0xDF, 0x31, 0};
constexpr std::array<uint8_t, 2> aApproved{'0', '0'}; // authorisation response code

using Packed = std::array<uint8_t, nPackedSize>;

// What the kernel packs for the issuer. Bytes; 0 or below: it failed.
int32_t pack(Packed &packed, int32_t nKind) noexcept
{
    return std::min(qv::callKernel(QV_KERNEL_FN(Pack_Data_Emv_Trance), packed.data(), nKind),
                    static_cast<int32_t>(packed.size()));
}

// 0; the failure of the transaction or of packing.
int32_t makeArqc(const char *pszTxData, uint32_t *pnArqc, char *pszArqc) noexcept
{
    if (!qv::tellKernel(QV_KERNEL_FN(SetTVR), nTvrBit) || !qv::tellKernel(QV_KERNEL_FN(TY_SaveData), pszTxData))
        return RET_PUB_FAIL;
    const int32_t nRet = qv::callKernel(QV_KERNEL_FN(Emv_QV_Trans), g_stProc);
    if (nRet != 0)
        return nRet;
    Packed packed{};
    const int32_t nPacked = pack(packed, nPackArqc);
    if (nPacked <= 0)
        return nPacked < 0 ? nPacked : static_cast<int32_t>(RET_PUB_FAIL);
    DPrintDataHexToFile("ARQC -", packed.data(), nPacked);
    *pnArqc = qv::writeHexText({packed.data(), static_cast<size_t>(nPacked)}, pszArqc);
    QV_LOG(kLogAppIc, "ASc= %s", pszArqc);
    return 0;
}

// The result of the step once the reader is open, or failed to open. After a failure that of the power-down counts.
int32_t arqcStep(int32_t nOpened, const char *pszTxData, uint32_t *pnArqc, char *pszArqc) noexcept
{
    if (nOpened != 0)
        return qv::powerDownDevice(nOpened);
    if (pszEmvData == nullptr) {
        QV_LOG(kLogAppIc, "the kernel has no transaction data");
        return RET_PUB_FAIL;
    }
    const int32_t nRet = makeArqc(pszTxData, pnArqc, pszArqc);
    return nRet == 0 ? 0 : qv::powerDownDevice(nRet);
}

// The cryptogram is there already.
int32_t storeTransaction(const char *pszTxData) noexcept
{
    QV_LOG(kLogAppIc, "!!!!!!");
    if (pszEmvData == nullptr || pszTxData == nullptr)
        return RET_PUB_INVAL_PARAM;
    return qv::tellKernel(QV_KERNEL_FN(TY_SaveData), pszTxData) ? 0 : static_cast<int32_t>(RET_PUB_FAIL);
}

bool storeObject(std::span<const uint8_t> tag, std::span<const uint8_t> value) noexcept
{
    return qv::tellKernel(QV_KERNEL_FN(Emv_SaveData), tag.data(), value.data(), static_cast<int32_t>(value.size()),
                          nFromIssuer);
}

// The issuer's answer, binary. False: no kernel takes its data.
bool takeIssuerData(std::span<const uint8_t> answer) noexcept
{
    qv::setField(EMV_PROC_ARC, aApproved);
    if (!storeObject(aTagArc, aApproved))
        return false;
    std::array<uint8_t, nIssuerDataSize> value{};
    uint32_t nValue = 0;
    if (Ex_TLV_GetDataByTag(reinterpret_cast<const char *>(aTagIssuerAuth.data()), answer.data(),
                            static_cast<int32_t>(answer.size()), value.data(), &nValue) == 0)
        storeObject(aTagIssuerAuth, {value.data(), nValue});
    std::copy(answer.begin(), answer.end(), g_stProc + EMV_PROC_ISSUER_DATA);
    qv::setField(EMV_PROC_ISSUER_LEN, static_cast<uint32_t>(answer.size()));
    return true;
}

void readScriptResult(std::span<const uint8_t> result, char *pszOut) noexcept
{
    constexpr char szHead[] = "DF3105"; // as it stands, whatever the length
    std::copy_n(szHead, sizeof szHead - 1, pszOut);
    qv::writeHexText(result, pszOut + sizeof szHead - 1);
}

struct Completion {
    uint32_t *pnText;
    char *pszText;
    char *pszScriptResult;
};

int32_t complete(const char *pszArpc, size_t nArpcChars, const Completion &out) noexcept
{
    if (pszEmvData == nullptr) {
        QV_LOG(kLogAppIc, "the kernel has no transaction data");
        return RET_PUB_FAIL;
    }
    if (nArpcChars != 0) {
        std::array<uint8_t, nIssuerDataSize> answer{};
        const size_t nBytes = nArpcChars / 2;
        Str_AscToHex(pszArpc, static_cast<int32_t>(2 * nBytes), answer.data());
        if (!takeIssuerData({answer.data(), nBytes}))
            return RET_PUB_FAIL;
    }
    qv::setField<int32_t>(EMV_PROC_HAS_ONLINE, 1);
    qv::setField<int32_t>(EMV_PROC_ONLINE_RESULT, nArpcChars != 0 ? 0 : -1);
    if (QV_APP_GetNoGac2Flag() == 1)
        qv::setField<int32_t>(EMV_PROC_NO_GAC2, 1);
    int32_t nRet = qv::callKernel(QV_KERNEL_FN(EMV_Final), g_stProc);
    if (nRet != 0)
        return nRet;
    Packed packed{};
    if (const int32_t nPacked = pack(packed, nPackCompletion); nPacked > 0)
        *out.pnText = qv::writeHexText({packed.data(), static_cast<size_t>(nPacked)}, out.pszText);
    std::array<uint8_t, nScriptResultSize> result{};
    uint32_t nResult = 0;
    nRet = qv::callKernel(QV_KERNEL_FN(Emv_GetData), aTagScriptResult.data(), result.data(), &nResult);
    if (nRet == 0)
        readScriptResult({result.data(), std::min<size_t>(nResult, result.size())}, out.pszScriptResult);
    return nRet;
}

const char *orEmpty(const char *pszText) noexcept
{
    return pszText == nullptr ? "" : pszText;
}

} // namespace

int32_t QV_APP_genARQC(const char *port, const char *parameter, int32_t baud, const char *, const char *txData,
                       uint32_t *arqcLen, char *arqc) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    if (QV_APP_GetArqcExeFlag() == 1)
        return storeTransaction(txData);
    if (isMissing(__func__, {port, txData, arqcLen, arqc}))
        return stepResult(RET_PUB_INVAL_PARAM);
    QV_LOG(kLogAppIc, "First Arqc");
    const int32_t nRet = arqcStep(Address{port, parameter, baud}.open(), txData, arqcLen, arqc);
    qv::closeDevice();
    return stepResult(nRet);
}

int32_t QV_APP_GenerateARQC(const char *port, const char *parameter, int32_t baud, const char *unused,
                            const char *txData, uint32_t *arqcLen, char *arqc) noexcept
{
    return QV_APP_genARQC(port, parameter, baud, unused, txData, arqcLen, arqc);
}

int32_t QV_APP_CtlScriptData(const char *port, const char *parameter, int32_t baud, const char *, const char *txData,
                             const char *arpc, uint32_t *completionLen, char *completion, char *scriptResult) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", __func__);
    QV_LOG(kLogAppIc, "[%s] Start pszARPC = %s  pszTxData = %s ", __func__, orEmpty(arpc), orEmpty(txData));
    if (isMissing(__func__, {port, completionLen, completion, scriptResult}))
        return stepResult(RET_PUB_INVAL_PARAM);
    const size_t nArpcChars = std::strlen(orEmpty(arpc));
    if (nArpcChars / 2 > nIssuerDataSize) {
        QV_LOG(kLogAppIc, "an ARPC of %zu characters is longer than the kernel takes", nArpcChars);
        return stepResult(RET_PUB_INVAL_PARAM);
    }
    // The card is as the ARQC left it; whether the reader opens is the kernel's affair.
    Address{port, parameter, baud}.open();
    const int32_t nRet = complete(arpc, nArpcChars, {completionLen, completion, scriptResult});
    qv::callKernel(QV_KERNEL_FN(Emv_QV_End), nRet);
    qv::closeDevice();
    QV_LOG(kLogAppIc, "[%s] End nRet = %d  ", __func__, nRet);
    return stepResult(nRet);
}

int32_t QV_APP_CloseTransAction(const char *port, const char *parameter, int32_t baud, const char *unused,
                                const char *txData, const char *arpc, uint32_t *completionLen, char *completion,
                                char *scriptResult) noexcept
{
    return QV_APP_CtlScriptData(port, parameter, baud, unused, txData, arpc, completionLen, completion, scriptResult);
}
