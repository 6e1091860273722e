// card_commands.cpp - card commands by name: PBOC debit and credit (as EMV Book 3), electronic deposit and purse
// (JR/T 0025.1 and .2), and the one sender behind them.
//
// A command goes through the device table's exchange. The result is the card's status word, or the exchange's failure.

#include "device_table.h"
#include "log.h"

#include <algorithm>
#include <array>

using qv::kLogLoginc;

namespace {

constexpr size_t nResponseSize = 1024;
constexpr uint32_t nFailedStatus = 0xAAAA;
constexpr uint32_t nRefused = static_cast<uint32_t>(-1);
constexpr uint32_t nDataMax = 255;
constexpr uint32_t nPurseData = 11; // of every purse command but the debit for a purchase
constexpr uint32_t nDebitData = 15;

struct Header {
    uint8_t cla, ins, p1, p2;
};

// What follows the data field.
struct Le {
    uint8_t bSent;
    uint8_t uc;
};
constexpr Le expect(uint8_t uc) noexcept
{
    return {1, uc};
}
// No Le byte for 0.
constexpr Le expectUnless0(uint8_t uc) noexcept
{
    return {static_cast<uint8_t>(uc != 0 ? 1 : 0), uc};
}

uint32_t send(Header h, const uint8_t *pData, uint32_t nLen, Le nLe, uint8_t *pResponse, uint32_t *pnResponse) noexcept
{
    if (nLen > nDataMax) {
        QV_LOG(kLogLoginc, "a data field of %u bytes is longer than a command holds", nLen);
        return nRefused;
    }
    return Cmd_Ic_PbocSendAPDU(h.cla, h.ins, h.p1, h.p2, static_cast<uint8_t>(nLen), pData, nLe.bSent, nLe.uc,
                               pResponse, pnResponse);
}

// P1 of a command that addresses a file by its short identifier.
constexpr uint8_t shortFile(uint8_t ucSfi) noexcept
{
    return static_cast<uint8_t>((ucSfi & 0x1F) | 0x80);
}

// 1: deposit, 2: purse.
bool isPurseKind(uint8_t ucKind) noexcept
{
    if (ucKind == 1 || ucKind == 2)
        return true;
    QV_LOG(kLogLoginc, "%d is no kind of balance", ucKind);
    return false;
}

} // namespace

uint32_t Cmd_Ic_PbocSendAPDU(uint8_t cla, uint8_t ins, uint8_t p1, uint8_t p2, uint8_t lc, const uint8_t *data,
                             uint8_t leFlag, uint8_t le, uint8_t *resp, uint32_t *respLen) noexcept
{
    QV_LOG(kLogLoginc, "[%s] Start ", __func__);
    if (lc != 0 && data == nullptr) {
        QV_LOG(kLogLoginc, "a data field of %d bytes without data", lc);
        return nRefused;
    }
    std::array<uint8_t, 4 + 1 + nDataMax + 1> command{cla, ins, p1, p2};
    uint32_t nLen = 4;
    if (lc != 0) {
        command[nLen++] = lc;
        std::copy_n(data, lc, command.begin() + nLen);
        nLen += lc;
    }
    if (leFlag == 1)
        command[nLen++] = le;
    DPrintDataHexToFile("C_APDU", command.data(), static_cast<int32_t>(nLen));
    std::array<uint8_t, nResponseSize> response{};
    uint32_t nResponse = nResponseSize;
    const int32_t nRet = qv::exchangeWithCard(command.data(), nLen, response.data(), &nResponse);
    QV_LOG(kLogLoginc, " CommRW   !!1 nRet = %02x  nRespLen = %02x", static_cast<unsigned>(nRet), nResponse);
    if (nRet != 0) {
        ICC_CardCmdSetErrCode(nFailedStatus);
        return static_cast<uint32_t>(nRet);
    }
    // An operation of the host's own may say more than fits.
    nResponse = std::min<uint32_t>(nResponse, nResponseSize);
    DPrintDataHexToFile("R_APDU", response.data(), static_cast<int32_t>(nResponse));
    if (resp != nullptr && respLen != nullptr) {
        std::copy_n(response.begin(), nResponse, resp);
        *respLen = nResponse;
    }
    return nResponse < 2 ? 0 : uint32_t{response[nResponse - 2]} << 8 | response[nResponse - 1];
}

uint32_t Cmd_Ic_PbocSelectFile(uint8_t p1, uint8_t p2, const uint8_t *data, uint8_t lc, uint8_t *resp,
                               uint32_t *respLen) noexcept
{
    return send({0x00, 0xA4, p1, p2}, data, lc, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocSelect_Aid(int32_t mode, const uint8_t *aid, uint32_t aidLen, uint8_t *resp,
                               uint32_t *respLen) noexcept
{
    constexpr uint8_t ucFirst = 0x00, ucNext = 0x02;
    return send({0x00, 0xA4, 0x04, mode == 2 ? ucNext : ucFirst}, aid, aidLen, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocReadRecord(uint8_t sfi, uint8_t record, uint8_t *resp, uint32_t *respLen) noexcept
{
    const auto ucFile = static_cast<uint8_t>(sfi == 0 ? 0 : sfi << 3 | 0x04);
    return send({0x00, 0xB2, record, ucFile}, nullptr, 0, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocWriteScript(const uint8_t *command, uint32_t totalLen, uint8_t *resp, uint32_t *respLen) noexcept
{
    constexpr uint32_t nHeader = 4;
    if (command == nullptr || totalLen < nHeader) {
        QV_LOG(kLogLoginc, "a script command of %u bytes has no header", command == nullptr ? 0U : totalLen);
        return nRefused;
    }
    return send({command[0], command[1], command[2], command[3]}, command + nHeader, totalLen - nHeader, expect(0x00),
                resp, respLen);
}

uint32_t Cmd_Ic_PbocGetProcessOptions(const uint8_t *pdolData, uint32_t len, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x80, 0xA8, 0x00, 0x00}, pdolData, len, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocPinVerify(char kind, const uint8_t *pinBlock, uint32_t len) noexcept
{
    constexpr uint8_t ucPlain = 0x80, ucEnciphered = 0x88;
    return send({0x00, 0x20, 0x00, kind == '0' ? ucPlain : ucEnciphered}, pinBlock, len, expect(0xFF), nullptr,
                nullptr);
}

uint32_t Cmd_Ic_PbocGetChallenge(uint8_t *resp, uint8_t le) noexcept
{
    uint32_t nDropped = 0;
    return send({0x00, 0x84, 0x00, 0x00}, nullptr, 0, expect(le), resp, &nDropped);
}

uint32_t Cmd_Ic_PbocGetData(const uint8_t *tag, uint8_t *resp, uint32_t *respLen) noexcept
{
    if (tag == nullptr) {
        QV_LOG(kLogLoginc, "[%s] no tag", __func__);
        return nRefused;
    }
    return send({0x80, 0xCA, tag[0], tag[1]}, nullptr, 0, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocInternalAuth(const uint8_t *data, uint32_t len, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x00, 0x88, 0x00, 0x00}, data, len, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocGenerateAC(int32_t type, const uint8_t *cdolData, uint32_t len, uint8_t *resp,
                               uint32_t *respLen) noexcept
{
    constexpr uint8_t ucArqc = 0x80, ucTc = 0x40, ucAac = 0x00;
    return send({0x80, 0xAE,
                 type == 1   ? ucArqc
                 : type == 2 ? ucTc
                             : ucAac,
                 0x00},
                cdolData, len, expect(0x00), resp, respLen);
}

uint32_t Cmd_Ic_PbocExternalAuthenticate(const uint8_t *data, uint32_t len) noexcept
{
    return send({0x00, 0x82, 0x00, 0x00}, data, len, expect(0x00), nullptr, nullptr);
}

uint32_t Cmd_Ic_EpEdGetBalance(uint8_t kind, uint8_t *resp, uint32_t *respLen) noexcept
{
    return isPurseKind(kind) ? send({0x80, 0x5C, 0x00, kind}, nullptr, 0, expect(0x04), resp, respLen) : nRefused;
}

uint32_t Cmd_Ic_EpEdInitializeForLoad(uint8_t kind, const uint8_t *data11, uint8_t *resp, uint32_t *respLen) noexcept
{
    return isPurseKind(kind) ? send({0x80, 0x50, 0x00, kind}, data11, nPurseData, expect(0x10), resp, respLen)
                             : nRefused;
}

uint32_t Cmd_Ic_EpEdCreditForLoad(const uint8_t *data11, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x80, 0x52, 0x00, 0x00}, data11, nPurseData, expect(0x04), resp, respLen);
}

uint32_t Cmd_Ic_EpEdInitializeForUnLoad(uint8_t kind, const uint8_t *data11, uint8_t *resp, uint32_t *respLen) noexcept
{
    return isPurseKind(kind) ? send({0x80, 0x50, 0x05, kind}, data11, nPurseData, expect(0x10), resp, respLen)
                             : nRefused;
}

uint32_t Cmd_Ic_EpEdDebitForUnLoad(const uint8_t *data11, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x80, 0x54, 0x03, 0x00}, data11, nPurseData, expect(0x04), resp, respLen);
}

uint32_t Cmd_Ic_EpEdInitializeForPurchase(uint8_t kind, const uint8_t *data11) noexcept
{
    return send({0x80, 0x50, 0x01, kind}, data11, nPurseData, expect(0x0F), nullptr, nullptr);
}

uint32_t Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(const uint8_t *data15) noexcept
{
    return send({0x80, 0x54, 0x01, 0x00}, data15, nDebitData, expect(0x08), nullptr, nullptr);
}

uint32_t Cmd_Ic_EpEdReadBinary(uint8_t sfi, uint8_t offset, uint8_t le, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x00, 0xB0, shortFile(sfi), offset}, nullptr, 0, expectUnless0(le), resp, respLen);
}

uint32_t Cmd_Ic_EpEdRead(uint8_t sfi, uint8_t record, uint8_t le, uint8_t *resp, uint32_t *respLen) noexcept
{
    return send({0x00, 0xB2, shortFile(sfi), record}, nullptr, 0, expectUnless0(le), resp, respLen);
}

uint32_t Cmd_Ic_EpEdUpdateBinary(uint8_t sfi, uint8_t offset, const uint8_t *data, uint32_t len) noexcept
{
    return send({0x00, 0xD6, shortFile(sfi), offset}, data, len, expect(0x00), nullptr, nullptr);
}
