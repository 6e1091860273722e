// card_data.cpp - the steps that read from a card: application list, selection, records, card data, logs.
//
//                       record     list of candidates   started with            after a success
//     card data         cleared    the stored one       1 with PPSE, else type  power-off flag
//     application list  cleared    none                 1                       power-off flag
//     select            cleared    the host's           the kind                card stays powered
//     GPO, records      kept       kept                 the kind                power-off flag
//     log               cleared    the stored one       0                       powered down
//
// A step that fails powers the card down. The power-down's own result does not count.

#include "device_table.h"
#include "host_pointers.h"
#include "kernel.h"
#include "options.h"
#include "process_record.h"
#include "steps.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

using qv::Address;
using qv::isMissing;
using qv::kLogAppIc;
using qv::standardCode;
using qv::stepResult;

namespace {

constexpr size_t nAidListSize = 1024;
constexpr int32_t nNoKernel = RET_PUB_FAIL;
constexpr uint8_t ucTransactionLog = 0x0A, ucLoadLog = 0x0B;

int32_t start(int32_t nKind) noexcept
{
    return qv::callKernel(QV_KERNEL_FN(Emv_QV_Start), g_stProc, nKind);
}

// Makes these the candidate applications. False: no kernel takes them.
bool useAidList(const char *pszList) noexcept
{
    return qv::tellKernel(QV_KERNEL_FN(TY_DealAidList), pszList, static_cast<int32_t>(std::strlen(pszList)));
}

// The applications that the kernel has stored become the candidates.
bool useStoredAidList() noexcept
{
    std::array<char, nAidListSize> szList{};
    if (!qv::tellKernel(QV_KERNEL_FN(PackAidList), szList.data()))
        return false;
    szList.back() = '\0';
    return useAidList(szList.data());
}

// Reading may stop at the card number when that is all that is wanted, and the host wants it so.
bool allowShortRead(const char *pszTags) noexcept
{
    return std::strcmp(pszTags, "A") != 0 || !qv::isFastRead() || qv::tellKernel(QV_KERNEL_FN(SetRead5AFlag), 1);
}

void useIcType(char cCardType) noexcept
{
    tfunc_SetIcType(static_cast<uint8_t>(cCardType));
}

// Powers the card down after a step: always when it failed, else when the host wants that.
void endStep(int32_t nStarted) noexcept
{
    if (nStarted != 0 || qv::isInfoPowerOff())
        qv::powerDownDevice(0);
}

// The first lines of a call. False: the host did not say which card.
bool isBegun(const char *pszCall, const char *pszIcFlag) noexcept
{
    QV_LOG(kLogAppIc, "[%s] Start ", pszCall);
    if (isMissing(pszCall, {pszIcFlag}))
        return false;
    QV_LOG(kLogAppIc, "[icFlag = %c]", *pszIcFlag);
    return true;
}

// Opens the reader; what then follows up to the close.
template <typename Work> int32_t withReader(const Address &address, Work work) noexcept
{
    int32_t nRet = address.open();
    if (nRet != 0)
        return stepResult(nRet);
    nRet = work();
    qv::closeDevice();
    return stepResult(nRet);
}

int32_t readCardData(char cCardType, const char *pszTags, uint32_t *pnOut, char *pszOut) noexcept
{
    useIcType(cCardType);
    const bool bReady = useStoredAidList() && allowShortRead(pszTags);
    const bool bPpse = QV_APP_GetPpseSelect() == 1;
    qv::beginRecord(EMV_KIND_INFO, cCardType);
    qv::setField(EMV_PROC_MODE, qv::ucAllSteps);
    if (bPpse)
        qv::setField<int32_t>(EMV_PROC_PPSE, 1);
    const int32_t nStarted = bReady ? start(bPpse ? 1 : static_cast<uint8_t>(cCardType)) : nNoKernel;
    int32_t nRet = nStarted;
    if (nStarted == 0)
        nRet = qv::callKernel(QV_KERNEL_FN(TY_SaveInfoTag), pszTags, pnOut, pszOut);
    endStep(nStarted);
    return nRet;
}

int32_t listApplications(char cCardType, uint32_t *pnOut, char *pszOut) noexcept
{
    useIcType(cCardType);
    const bool bReady = qv::tellKernel(QV_KERNEL_FN(TY_DealAidList), nullptr, 0);
    qv::beginRecord(EMV_KIND_AID_LIST, cCardType);
    qv::setField(EMV_PROC_MODE, qv::ucAllSteps);
    const int32_t nStarted = bReady ? start(1) : nNoKernel;
    int32_t nRet = nStarted;
    if (nStarted == 0)
        nRet = qv::callKernel(QV_KERNEL_FN(TY_SaveAidListInfo), pszOut, pnOut);
    endStep(nStarted);
    return nRet;
}

int32_t selectApplication(const char *pszCall, int32_t nKind, const Address &address, const char *pszIcFlag,
                          const char *pszAid) noexcept
{
    if (!isBegun(pszCall, pszIcFlag) || isMissing(pszCall, {address.pszPort, pszAid}))
        return stepResult(RET_PUB_INVAL_PARAM);
    if (*pszAid == '\0') {
        QV_LOG(kLogAppIc, "[%s] an empty AID", pszCall);
        return stepResult(RET_PUB_INVAL_PARAM);
    }
    return withReader(address, [&] {
        useIcType(*pszIcFlag);
        const bool bReady = useAidList(pszAid);
        qv::beginRecord(nKind, *pszIcFlag);
        const int32_t nRet = bReady ? start(nKind) : nNoKernel;
        QV_LOG(kLogAppIc, "[Emv_QV_Start  nRet = %d]", nRet);
        if (nRet != 0)
            qv::powerDownDevice(0);
        return nRet;
    });
}

int32_t readRecords(char cCardType, const char *pszTags, uint32_t *pnOut, char *pszOut) noexcept
{
    useIcType(cCardType);
    qv::continueRecord(EMV_KIND_READ_RECORD);
    int32_t nRet = start(EMV_KIND_READ_RECORD);
    QV_LOG(kLogAppIc, "Emv_QV_Start nRet = %d ", nRet);
    const bool bPowerOff = qv::isInfoPowerOff();
    if (nRet != 0 && bPowerOff)
        QV_LOG(kLogAppIc, "PowerOff ");
    else // what was read before a failure is still worth saving
        nRet = qv::callKernel(QV_KERNEL_FN(TY_SaveInfoTag), pszTags, pnOut, pszOut);
    if (bPowerOff)
        qv::powerDownDevice(0);
    return nRet;
}

int32_t readLog(char cCardType, int32_t nDetailKind, uint32_t *pnOut, char *pszOut) noexcept
{
    useIcType(cCardType);
    const bool bReady = useStoredAidList();
    qv::beginRecord(EMV_KIND_INFO, cCardType);
    qv::setField(EMV_PROC_MODE, qv::ucAllSteps);
    if (nDetailKind == 1)
        qv::setField(EMV_PROC_DETAIL, ucTransactionLog);
    else if (nDetailKind == 2)
        qv::setField(EMV_PROC_DETAIL, ucLoadLog);
    const int32_t nRet = bReady ? start(0) : nNoKernel;
    return nRet != 0 ? nRet : qv::callKernel(QV_KERNEL_FN(EMV_GetPbocDetail), nDetailKind, pszOut, pnOut, 1);
}

struct FreeMemory {
    void operator()(char *p) const noexcept { std::free(p); }
};

// Walks a list of tags whose items end at a separator, the last one at the list's end character. What the last item's
// search for a separator came to.
int32_t walkTags(const char *pszList, const char (&szSeparator)[2], const char (&szEnd)[2]) noexcept
{
    const size_t nLen = std::strlen(pszList);
    const std::unique_ptr<char, FreeMemory> pItem(static_cast<char *>(std::calloc(nLen + 1, 1)));
    if (pItem == nullptr)
        return RET_PUB_FAIL;
    int32_t nCut = 0;
    for (const char *pAt = pszList; *pAt != '\0';) {
        nCut = Str_GetSplitData(pAt, szSeparator, pItem.get());
        if (nCut != 0)
            Str_GetSplitData(pAt, szEnd, pItem.get());
        const char *pItemEnd = std::strstr(pAt, nCut == 0 ? szSeparator : szEnd);
        pAt = pItemEnd + 1;
    }
    return nCut;
}

} // namespace

int32_t QV_APP_getIcInfo(const char *port, const char *parameter, int32_t baud, const char *icFlag, const char *tagList,
                         uint32_t *outLen, char *out) noexcept
{
    if (!isBegun(__func__, icFlag) || isMissing(__func__, {port, outLen, out}))
        return stepResult(RET_PUB_INVAL_PARAM);
    if (tagList == nullptr || *tagList == '\0') {
        QV_LOG(kLogAppIc, "[pszTaglist NULL ]");
        return stepResult(RET_PUB_INVAL_PARAM);
    }
    return withReader({port, parameter, baud}, [&] { return readCardData(*icFlag, tagList, outLen, out); });
}

int32_t QV_APP_GetIccInfo(const char *port, const char *parameter, int32_t baud, const char *icFlag, const char *,
                          const char *, const char *tagList, const char *, uint32_t *outLen, char *out) noexcept
{
    return QV_APP_getIcInfo(port, parameter, baud, icFlag, tagList, outLen, out);
}

int32_t QV_APP_GetIcAidList(const char *port, const char *parameter, int32_t baud, const char *icFlag, uint32_t *outLen,
                            char *out) noexcept
{
    if (!isBegun(__func__, icFlag) || isMissing(__func__, {port, outLen, out}))
        return stepResult(RET_PUB_INVAL_PARAM);
    return withReader({port, parameter, baud}, [&] { return listApplications(*icFlag, outLen, out); });
}

int32_t QV_APP_SelectAid(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                         const char *aid) noexcept
{
    return selectApplication(__func__, EMV_KIND_SELECT, {port, parameter, baud}, icFlag, aid);
}

int32_t QV_APP_SelectAidNoGpo(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                              const char *aid) noexcept
{
    return selectApplication(__func__, EMV_KIND_SELECT_NO_GPO, {port, parameter, baud}, icFlag, aid);
}

int32_t QV_APP_SelectGpo(const char *port, const char *parameter, int32_t baud, const char *icFlag) noexcept
{
    if (!isBegun(__func__, icFlag) || isMissing(__func__, {port}))
        return stepResult(RET_PUB_INVAL_PARAM);
    return withReader({port, parameter, baud}, [icFlag] {
        useIcType(*icFlag);
        qv::continueRecord(EMV_KIND_GPO);
        qv::setField(EMV_PROC_CARD_TYPE, *icFlag);
        const int32_t nRet = start(EMV_KIND_GPO);
        endStep(nRet);
        return nRet;
    });
}

int32_t QV_APP_ReadRecord(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                          const char *tagList, uint32_t *outLen, char *out) noexcept
{
    if (!isBegun(__func__, icFlag) || isMissing(__func__, {port, tagList, outLen, out}))
        return stepResult(RET_PUB_INVAL_PARAM);
    QV_LOG(kLogAppIc, "pszTaglist = %s ", tagList);
    int32_t nRet = Address{port, parameter, baud}.open();
    QV_LOG(kLogAppIc, "OpenDevice nRet = %d ", nRet);
    if (nRet != 0)
        QV_LOG(kLogAppIc, " Goto FuncEnd");
    else
        nRet = readRecords(*icFlag, tagList, outLen, out);
    QV_LOG(kLogAppIc, "FuncReadRecordPort");
    qv::closeDevice();
    return stepResult(nRet);
}

int32_t QV_APP_GetTranDetail(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                             int32_t detailKind, uint32_t *outLen, char *out) noexcept
{
    if (!isBegun(__func__, icFlag) || isMissing(__func__, {port, outLen, out}))
        return stepResult(RET_PUB_INVAL_PARAM);
    int32_t nRet = Address{port, parameter, baud}.open();
    if (nRet == 0)
        nRet = readLog(*icFlag, detailKind, outLen, out);
    qv::callKernel(QV_KERNEL_FN(Emv_QV_End), nRet);
    qv::powerDownDevice(0);
    qv::closeDevice();
    return stepResult(nRet);
}

int32_t QV_APP_SaveTlvTag(const char *tagList, char separator, char end) noexcept
{
    if (isMissing(__func__, {tagList}))
        return standardCode(RET_PUB_INVAL_PARAM);
    const size_t nLen = std::strlen(tagList);
    if (nLen == 0 || tagList[nLen - 1] != end) {
        QV_LOG(kLogAppIc, "[%s] the list does not end with its end character", __func__);
        return standardCode(RET_PUB_INVAL_PARAM);
    }
    QV_APP_SetTlvTagFlag(1);
    return standardCode(walkTags(tagList, {separator, '\0'}, {end, '\0'}));
}
