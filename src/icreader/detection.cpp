// detection.cpp - which card is present, and in which slot.

#include "log.h"
#include "reader_state.h"

#include <algorithm>
#include <array>
#include <span>

using qv::kLogComm;
using qv::kLogCommDev;

namespace {

// Card kinds as the reader reports them.
struct KindRow {
    uint8_t ucKind;
    int32_t nResult; // of ICC_RDZ73xxCHECKCARD
    const char *pszText;
};
constexpr std::array<KindRow, 4> s_kinds{{
    {1, 0, "接触IC卡\n"},
    {2, 1, "非接IC卡\n"},
    {3, 2, "磁条卡\n"},
    {4, 0, "身份证\n"},
}};
constexpr KindRow unknownKind{0, -1, "未知异常\n"};

const KindRow &kindOf(uint8_t ucKind) noexcept
{
    const auto row = std::find_if(s_kinds.begin(), s_kinds.end(), [=](const auto &r) { return r.ucKind == ucKind; });
    return row == s_kinds.end() ? unknownKind : *row;
}

// Results of the slot scan.
enum ScanResult : int32_t {
    kContactless = 1,
    kContact = 2,
    kContactOtherState = 3,
    kNoContact = 4,
    kScanFailed = -99,
};

struct ScanRow {
    int32_t nAnswer; // of the slot's status or of the contactless power-up
    int32_t nResult;
};
constexpr std::array<ScanRow, 3> s_contactAnswers{{{0, kContact}, {0x1003, kContact}, {0x1004, kContactOtherState}}};
constexpr std::array<ScanRow, 10> s_contactlessAnswers{{
    {0, kContactless},
    {-0x3006, 6},
    {-0x3001, 7},
    {-0x3004, 7},
    {-0x3007, 7},
    {-0x3008, 7},
    {-0x3009, 7},
    {RET_PUB_SEND_FAIL, RET_PUB_SEND_FAIL},
    {RET_PUB_READ_FAIL, RET_PUB_READ_FAIL},
    {RET_PUB_TIMEOUT, RET_PUB_TIMEOUT},
}};

int32_t resultOf(std::span<const ScanRow> rows, int32_t nAnswer, int32_t nOther) noexcept
{
    const auto row = std::find_if(rows.begin(), rows.end(), [=](const auto &r) { return r.nAnswer == nAnswer; });
    return row == rows.end() ? nOther : row->nResult;
}

// The slot becomes current whatever stands in it.
int32_t scanContact(int32_t nSlot, int32_t &nSlotOut) noexcept
{
    QV_LOG(kLogCommDev, " i = %d ", nSlot);
    const int32_t nStatus = COMM_Icc_CardReaderCheckSloct(nSlot);
    COMM_Icc_CardReaderSetCardSlot(nSlot);
    nSlotOut = nSlot;
    return resultOf(s_contactAnswers, nStatus, kNoContact);
}

int32_t scanContactless(int32_t &nSlotOut) noexcept
{
    QV_LOG(kLogCommDev, "check picc \r\n");
    std::array<uint8_t, qv::nReplySize> atr;
    uint32_t nAtr = 0;
    const int32_t nRet = COMM_Icc_CardReaderPowerOn(qv::nSlotAntenna, atr.data(), &nAtr, 0);
    QV_LOG(kLogCommDev, "check picc Power on nret = %02x", static_cast<unsigned>(nRet));
    nSlotOut = qv::nSlotAntenna;
    const int32_t nResult = resultOf(s_contactlessAnswers, nRet, kScanFailed);
    if (nResult == kContactless)
        COMM_Icc_CardReaderSetCardSlot(qv::nSlotAntenna);
    return nResult;
}

} // namespace

int32_t ICC_RDZ73xxCHECKCARD(uint32_t nTimeOut) noexcept
{
    QV_LOG(kLogComm, "[%s] Start!\n", __func__);
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    INSTR_Ic_MulModuleStatus(static_cast<int32_t>(nTimeOut), command.data(), &nLen);
    std::array<uint8_t, 2048> reply{};
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    int32_t nRet = nRecvLen;
    if (nRecvLen >= 0) {
        const KindRow &kind = nRecvLen > 0 ? kindOf(reply[0]) : unknownKind;
        QV_LOG(kLogComm, "%s", kind.pszText);
        nRet = kind.nResult;
    }
    QV_LOG(kLogComm, "[%s] End!\n", __func__);
    return nRet;
}

int32_t COMM_Icc_RdzCheckCardIsInSlot(int32_t nSlot) noexcept
{
    if (qv::isOtherReader())
        return qv::nUnsupported;
    std::array<uint8_t, 16> command{};
    uint32_t nLen = 0;
    if (INSTR_Ic_CheckCardStatus(nSlot, command.data(), &nLen, 0) != 0)
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, qv::nReplySize> reply;
    const int32_t nRecvLen = qv::exchangeCardFrame(command.data(), nLen, reply.data(), reply.size());
    QV_LOG(kLogCommDev, "RdzCheckCardIsInSlot SendAndReciveData nRecvLen=%d\n ", nRecvLen);
    QV_LOG(kLogCommDev, "status=%02x\n ", stRDZ73xx.gStatus);
    return nRecvLen < 0 ? nRecvLen : static_cast<int32_t>(COMM_Rdz_GetRecStatus());
}

int32_t COMM_Icc_CardReaderCheckSloct(int32_t nSlot) noexcept
{
    // 0 here, where the other calls say "unsupported": a slot of such a reader counts as filled.
    return qv::isOtherReader() ? 0 : COMM_Icc_RdzCheckCardIsInSlot(nSlot);
}

int32_t COMM_Icc_CardReaderGetRecStatus(void) noexcept
{
    return qv::isOtherReader() ? 0 : static_cast<int32_t>(COMM_Rdz_GetRecStatus());
}

int32_t DealCardSlot(uint8_t cMode, int32_t *slotOut) noexcept
{
    int32_t nUnused = 0;
    int32_t &nSlotOut = slotOut == nullptr ? nUnused : *slotOut;
    if (cMode != '2') {
        const int32_t nResult = scanContact(cMode == '!' ? 1 : qv::nSlotUser, nSlotOut);
        if (nResult != kNoContact || cMode == '1')
            return nResult;
    }
    return scanContactless(nSlotOut);
}
