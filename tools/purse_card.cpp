#include "purse_card.h"

#include "card_message.h"
#include "texts.h"

#include <qvreader/icapp.h>
#include <qvreader/icreader.h>

namespace qvtool {

namespace {

constexpr size_t nAny = SIZE_MAX; // bytes: the answer may have any length
constexpr size_t nMac = 4;
constexpr uint32_t nDone = 0x9000;

uint32_t numberOf(BytesView data)
{
    uint32_t nValue = 0;
    for (const uint8_t uc : data)
        nValue = nValue << 8 | uc;
    return nValue;
}

Bytes part(const Bytes &data, size_t nAt, size_t nLength)
{
    const BytesView view = BytesView(data).subspan(nAt, nLength);
    return {view.begin(), view.end()};
}

} // namespace

Bytes amountBytes(uint32_t nCents)
{
    return {static_cast<uint8_t>(nCents >> 24), static_cast<uint8_t>(nCents >> 16), static_cast<uint8_t>(nCents >> 8),
            static_cast<uint8_t>(nCents)};
}

Bytes joined(std::initializer_list<BytesView> parts)
{
    Bytes whole;
    for (const BytesView piece : parts)
        whole.insert(whole.end(), piece.begin(), piece.end());
    return whole;
}

PurseCard::PurseCard(const Options &options, Session &session, Outcome &outcome)
    : m_options(options), m_session(session), m_outcome(outcome),
      m_pSteps(cJSON_AddArrayToObject(outcome.json.get(), "steps"))
{
}

// ---- the way to the cards

bool PurseCard::run(int nSlot, const std::string &sName, const CardCall &call, Bytes &data, uint32_t &nStatus)
{
    if (nSlot != m_nCurrent)
        m_session.useSlot(nSlot);
    m_nCurrent = nSlot;
    Exchange exchange;
    m_nStatus = 0;
    m_outcome.failure = m_session.exchange(sName, call, exchange);
    if (m_outcome.failure)
        return false;
    nStatus = m_nStatus = exchange.status();
    data.assign(exchange.data().begin(), exchange.data().end());
    cJSON *pStep = appendObject(m_pSteps);
    addText(pStep, "name", sName);
    addNumber(pStep, "slot", nSlot);
    addText(pStep, "sw", hexWord(nStatus));
    addText(pStep, "meaning", cardStatusText(nStatus));
    addText(pStep, "text", cardMessage(nStatus));
    addNumber(pStep, "milliseconds", static_cast<double>(exchange.nMillis));
    return true;
}

// 62xx, 63xx and 65xx leave it open (ISO 7816-4).
bool PurseCard::wasRefused() const
{
    const uint32_t nSw1 = m_nStatus >> 8;
    return nSw1 > 0x63 && nSw1 != 0x65 && m_nStatus != nDone;
}

bool PurseCard::refused(const std::string &sName, uint32_t nStatus)
{
    const std::string sMeaning = cardStatusText(nStatus);
    m_outcome.failure =
        Failure{Exit::cardError, sName + " -> " + hexWord(nStatus) + (sMeaning.empty() ? "" : "  (" + sMeaning + ")"),
                std::nullopt, cardMessage(nStatus)};
    return false;
}

bool PurseCard::send(int nSlot, const std::string &sName, const CardCall &call, size_t nData, Bytes &data)
{
    uint32_t nStatus = 0;
    if (!run(nSlot, sName, call, data, nStatus))
        return false;
    if (nStatus != nDone)
        return refused(sName, nStatus);
    if (nData == nAny || data.size() == nData)
        return true;
    m_outcome.failure = Failure{Exit::cardError,
                                sName + ": the card answered with " + std::to_string(data.size()) +
                                    " bytes instead of " + std::to_string(nData),
                                std::nullopt};
    return false;
}

bool PurseCard::sendToPsam(const std::string &sName, const Bytes &command, size_t nData, Bytes &data)
{
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        const int32_t nResult =
            ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), pResponse, pnLength);
        if (nResult != 0 || *pnLength < 2)
            return static_cast<uint32_t>(nResult);
        return static_cast<uint32_t>(pResponse[*pnLength - 2]) << 8 | pResponse[*pnLength - 1];
    };
    return send(m_options.purse.nPsamSlot, "PSAM: " + sName, call, nData, data);
}

bool PurseCard::powerUp()
{
    Bytes atr;
    m_nCurrent = m_options.nSlot;
    m_outcome.failure = m_session.powerUp(atr);
    return !m_outcome.failure;
}

bool PurseCard::powerUpPsam()
{
    Bytes atr;
    m_nCurrent = m_options.purse.nPsamSlot;
    m_outcome.failure = m_session.powerUp(m_options.purse.nPsamSlot, atr);
    if (m_outcome.failure && m_outcome.failure->nCode == Exit::noCard)
        m_outcome.failure->sText += " (a purchase needs a PSAM; --psam says where it is)";
    return !m_outcome.failure;
}

// ---- the card

bool PurseCard::select()
{
    constexpr int32_t nFirstMode = 1;
    const Bytes &aid = m_options.purse.aid;
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_PbocSelect_Aid(nFirstMode, aid.data(), static_cast<uint32_t>(aid.size()), pResponse, pnLength);
    };
    return send(m_options.nSlot, "SELECT " + hexText(aid), call, nAny, data);
}

bool PurseCard::verify()
{
    constexpr char cPlain = '0';
    const Bytes &pin = m_options.purse.pin;
    if (pin.empty())
        return true;
    Bytes data;
    const auto call = [&](uint8_t *, uint32_t *) {
        return Cmd_Ic_PbocPinVerify(cPlain, pin.data(), static_cast<uint32_t>(pin.size()));
    };
    return send(m_options.nSlot, "VERIFY", call, nAny, data);
}

bool PurseCard::balance(uint32_t &nCents)
{
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_EpEdGetBalance(kind(), pResponse, pnLength);
    };
    if (!send(m_options.nSlot, "GET BALANCE", call, 4, data))
        return false;
    nCents = numberOf(data);
    return true;
}

// Issuer 8, type 1, version 1, application serial number 10, two dates of 4, issuer's data 2.
bool PurseCard::serial(Bytes &out)
{
    constexpr uint8_t ucPublicFile = 0x15;
    constexpr uint8_t ucSize = 30;
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_EpEdReadBinary(ucPublicFile, 0, ucSize, pResponse, pnLength);
    };
    if (!send(m_options.nSlot, "READ BINARY", call, ucSize, data))
        return false;
    out = part(data, 12, 8);
    return true;
}

Bytes PurseCard::beginData(const Bytes &terminal) const
{
    const Bytes index{m_options.purse.ucKeyIndex};
    return joined({index, amountBytes(m_options.purse.nAmount), terminal});
}

bool PurseCard::beginLoad(const Bytes &terminal, PurseBegin &out)
{
    const Bytes command = beginData(terminal);
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_EpEdInitializeForLoad(kind(), command.data(), pResponse, pnLength);
    };
    if (!send(m_options.nSlot, "INITIALIZE FOR LOAD", call, 16, data))
        return false;
    out = {numberOf(part(data, 0, 4)), part(data, 4, 2), data[6], data[7], part(data, 8, 4), part(data, 12, nMac)};
    return true;
}

bool PurseCard::creditLoad(const Bytes &dateTime, const Bytes &mac2, Bytes &tac)
{
    const Bytes command = joined({dateTime, mac2});
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_EpEdCreditForLoad(command.data(), pResponse, pnLength);
    };
    return send(m_options.nSlot, "CREDIT FOR LOAD", call, nMac, tac);
}

// The library's own command for this drops the answer, and so does that for the debit.
bool PurseCard::beginPurchase(const Bytes &terminal, PurseBegin &out)
{
    const Bytes command = beginData(terminal);
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_PbocSendAPDU(0x80, 0x50, 0x01, kind(), static_cast<uint8_t>(command.size()), command.data(), 1,
                                   0x0F, pResponse, pnLength);
    };
    if (!send(m_options.nSlot, "INITIALIZE FOR PURCHASE", call, 15, data))
        return false;
    out = {numberOf(part(data, 0, 4)), part(data, 4, 2), data[9], data[10], part(data, 11, 4), {}};
    return true;
}

bool PurseCard::debit(const Bytes &command, Bytes &tac, Bytes &mac2)
{
    Bytes data;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_PbocSendAPDU(0x80, 0x54, 0x01, 0x00, static_cast<uint8_t>(command.size()), command.data(), 1,
                                   0x08, pResponse, pnLength);
    };
    if (!send(m_options.nSlot, "DEBIT FOR PURCHASE", call, 2 * nMac, data))
        return false;
    tac = part(data, 0, nMac);
    mac2 = part(data, nMac, nMac);
    return true;
}

bool PurseCard::logRecord(uint8_t ucNumber, Bytes &out, bool &bEnd)
{
    constexpr uint8_t ucLogFile = 0x18;
    constexpr uint8_t ucSize = 23;
    constexpr uint32_t nNoRecord = 0x6A83;
    const std::string sName = "READ RECORD " + std::to_string(ucNumber);
    uint32_t nStatus = 0;
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_EpEdRead(ucLogFile, ucNumber, ucSize, pResponse, pnLength);
    };
    if (!run(m_options.nSlot, sName, call, out, nStatus))
        return false;
    bEnd = nStatus == nNoRecord;
    return bEnd || nStatus == nDone || refused(sName, nStatus);
}

// ---- the PSAM

bool PurseCard::selectPsam()
{
    const Bytes &aid = m_options.purse.psamAid;
    if (aid.empty())
        return true;
    const Bytes head{0x00, 0xA4, 0x04, 0x00, static_cast<uint8_t>(aid.size())};
    Bytes data;
    return sendToPsam("SELECT", joined({head, aid, Bytes{0x00}}), nAny, data);
}

bool PurseCard::psamTerminal(Bytes &number)
{
    constexpr uint8_t ucTerminalFile = 0x80 | 0x16;
    return sendToPsam("READ BINARY", {0x00, 0xB0, ucTerminalFile, 0x00, 0x06}, 6, number);
}

bool PurseCard::psamBegin(const Bytes &data, Bytes &serial, Bytes &mac1)
{
    const Bytes head{0x80, 0x70, 0x00, 0x00, static_cast<uint8_t>(data.size())};
    Bytes answer;
    if (!sendToPsam("INIT SAM FOR PURCHASE", joined({head, data, Bytes{0x08}}), 2 * nMac, answer))
        return false;
    serial = part(answer, 0, 4);
    mac1 = part(answer, 4, nMac);
    return true;
}

bool PurseCard::psamFinish(const Bytes &mac2)
{
    const Bytes head{0x80, 0x72, 0x00, 0x00, static_cast<uint8_t>(mac2.size())};
    Bytes data;
    return sendToPsam("CREDIT SAM FOR PURCHASE", joined({head, mac2}), nAny, data);
}

} // namespace qvtool
