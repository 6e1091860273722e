// purse: balance, load, buy, log. What the codes are made of:
//
//   session key of a load       load key over random number 4, online counter 2, 80 00
//   MAC1 of a load              balance 4, amount 4, type 1, terminal number 6
//   MAC2 of a load              amount 4, type 1, terminal number 6, date 4, time 3
//   TAC of a load               new balance 4, online counter 2, then as MAC2
//   TAC of a purchase           amount 4, type 1, terminal number 6, terminal's serial number 4, date 4, time 3
// The type is 01 or 02 for a load, 05 or 06 for a purchase: deposit, purse. A purchase's MACs are the PSAM's affair.
#include "amounts.h"
#include "card_application.h"
#include "purse_card.h"
#include "purse_codes.h"
#include "purse_log.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace qvtool {

namespace {

constexpr uint8_t ucPurchaseTypes = 4; // and the kind

template <size_t nSize> std::array<uint8_t, nSize> arrayOf(const Bytes &data)
{
    std::array<uint8_t, nSize> out{};
    std::copy_n(data.begin(), nSize, out.begin());
    return out;
}

Bytes bytesOf(const Mac &mac)
{
    return {mac.begin(), mac.end()};
}

// YYYYMMDD hhmmss in BCD, by the clock on the wall.
Bytes dateTimeNow()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 16> szText{};
    const size_t nLength = std::strftime(szText.data(), szText.size(), "%Y%m%d%H%M%S", &local);
    return parseHex({szText.data(), nLength}).value_or(Bytes(7));
}

class Purse {
  public:
    Purse(const Options &options, Session &session, Outcome &outcome)
        : m_options(options.purse), m_outcome(outcome), m_card(options, session, outcome)
    {
    }

    void run();

  private:
    void balance();
    void load();
    void buy();
    void log();
    bool begin();
    void tellBalance(const char *pszLine, const char *pszJson, uint32_t nCents);
    void tell(const std::string &sLine, const std::string &sText);
    // Behind a second half that failed: what may have happened to the money.
    void tellDoubt(const char *pszDone, const char *pszUndone);
    // True, or the failure says so: the money has moved, but the receipt is another one.
    bool checkTac(const Bytes &tac, BytesView data, const char *pszDone);
    void newBalance();
    cJSON *json() const { return m_outcome.json.get(); }
    std::string accountName() const { return m_options.bDeposit ? "deposit" : "purse"; }

    const PurseOptions &m_options;
    Outcome &m_outcome;
    PurseCard m_card;
    Bytes m_dateTime = dateTimeNow();
};

void Purse::tell(const std::string &sLine, const std::string &sText)
{
    constexpr size_t nColumn = 16;
    std::string sHead = sLine;
    sHead.resize(std::max(nColumn, sHead.size() + 1), ' ');
    m_outcome.sLines += sHead + sText + "\n";
}

void Purse::tellBalance(const char *pszLine, const char *pszJson, uint32_t nCents)
{
    tell(pszLine, amountText(nCents));
    addText(json(), pszJson, amountText(nCents));
}

void Purse::tellDoubt(const char *pszDone, const char *pszUndone)
{
    std::string &sText = m_outcome.failure->sText;
    if (m_card.wasRefused()) {
        sText += std::string("; ") + pszUndone;
        return;
    }
    if (m_outcome.failure->nCode != Exit::cardError)
        sText += "; interrupted between its halves";
    sText += std::string("; the card may have ") + pszDone + " or not: \"purse balance\" and \"purse log\" tell";
}

bool Purse::checkTac(const Bytes &tac, BytesView data, const char *pszDone)
{
    const bool bChecked = !m_options.tacKey.empty();
    const bool bGood = bChecked && bytesOf(macOf(tacKey(arrayOf<16>(m_options.tacKey)), data)) == tac;
    const char *pszCheck = bGood ? "correct" : bChecked ? "wrong" : "not checked";
    tell("TAC", hexText(tac) + "  (" + pszCheck + ")");
    addText(json(), "tac", hexText(tac));
    addText(json(), "tacCheck", pszCheck);
    if (!bChecked || bGood)
        return true;
    m_outcome.failure = Failure{Exit::checkFailed,
                                std::string(pszDone) + ", but the card's receipt (TAC) is not what --tac-key makes of "
                                                       "it",
                                std::nullopt};
    return false;
}

bool Purse::begin()
{
    return m_card.powerUp() && m_card.select() && m_card.verify();
}

void Purse::balance()
{
    uint32_t nCents = 0;
    if (begin() && m_card.balance(nCents))
        tellBalance((accountName() + " balance").c_str(), "balance", nCents);
}

// What the card says once all is done; a failure here leaves the money where it is.
void Purse::newBalance()
{
    uint32_t nCents = 0;
    if (m_card.balance(nCents))
        tellBalance("new balance", "newBalance", nCents);
}

void Purse::load()
{
    PurseBegin start;
    if (!begin() || !m_card.beginLoad(m_options.terminal, start))
        return;
    tellBalance("old balance", "oldBalance", start.nBalance);
    const CipherKey key = arrayOf<16>(m_options.key);
    const SessionKey session = sessionKey(key, arrayOf<8>(joined({start.random, start.counter, Bytes{0x80, 0x00}})));
    const Bytes amount = amountBytes(m_options.nAmount);
    const Bytes type{m_card.kind()};
    const Mac mac1 = macOf(session, joined({amountBytes(start.nBalance), amount, type, m_options.terminal}));
    if (bytesOf(mac1) != start.mac1) {
        m_outcome.failure =
            Failure{Exit::checkFailed,
                    "INITIALIZE FOR LOAD: the card's code (MAC1) is not what --key makes of it: another "
                    "key, or another --key-index? Nothing was loaded",
                    std::nullopt};
        return;
    }
    const Bytes agreed = joined({amount, type, m_options.terminal, m_dateTime});
    Bytes tac;
    if (!m_card.creditLoad(m_dateTime, bytesOf(macOf(session, agreed)), tac))
        return tellDoubt("been loaded", "nothing was loaded");
    tellBalance("loaded", "amount", m_options.nAmount);
    const Bytes balance = amountBytes(start.nBalance + m_options.nAmount);
    if (checkTac(tac, joined({balance, start.counter, agreed}), "loaded"))
        newBalance();
}

void Purse::buy()
{
    Bytes terminal;
    if (!m_card.powerUpPsam() || !m_card.selectPsam() || !m_card.psamTerminal(terminal))
        return;
    addText(json(), "terminal", hexText(terminal));
    Bytes serial;
    PurseBegin start;
    if (!begin() || !m_card.serial(serial) || !m_card.beginPurchase(terminal, start))
        return;
    tellBalance("old balance", "oldBalance", start.nBalance);
    const Bytes amount = amountBytes(m_options.nAmount);
    const Bytes type{static_cast<uint8_t>(ucPurchaseTypes + m_card.kind())};
    const Bytes keyNames{start.ucKeyVersion, start.ucAlgorithm};
    Bytes transaction;
    Bytes mac1;
    if (!m_card.psamBegin(joined({start.random, start.counter, amount, type, m_dateTime, keyNames, serial}),
                          transaction, mac1)) {
        m_outcome.failure->sText += "; nothing was paid";
        return;
    }
    Bytes tac;
    Bytes mac2;
    if (!m_card.debit(joined({transaction, m_dateTime, mac1}), tac, mac2))
        return tellDoubt("paid", "nothing was paid");
    tellBalance("paid", "amount", m_options.nAmount);
    tell("terminal", hexText(terminal) + ", transaction " + hexText(transaction));
    addText(json(), "transaction", hexText(transaction));
    const bool bGood = checkTac(tac, joined({amount, type, terminal, transaction, m_dateTime}), "paid");
    const std::optional<Failure> wrongTac = m_outcome.failure;
    if (!m_card.psamFinish(mac2)) {
        m_outcome.failure->sText += "; the card has paid, but the PSAM has not accepted it: keep the TAC";
        return;
    }
    tell("MAC2", "accepted by the PSAM");
    if (bGood)
        newBalance();
    else
        m_outcome.failure = wrongTac;
}

void Purse::log()
{
    constexpr uint8_t ucRecords = 10;
    std::vector<PurseRecord> records;
    if (!begin())
        return;
    for (uint8_t uc = 1; uc <= ucRecords; ++uc) {
        Bytes data;
        bool bEnd = false;
        if (!m_card.logRecord(uc, data, bEnd))
            break;
        if (bEnd)
            break;
        if (std::optional<PurseRecord> record = purseRecord(uc, data))
            records.push_back(std::move(*record));
    }
    cJSON *pList = cJSON_AddArrayToObject(json(), "log");
    for (const PurseRecord &record : records) {
        cJSON *pItem = appendObject(pList);
        addNumber(pItem, "number", record.nNumber);
        addNumber(pItem, "counter", record.nCounter);
        addNumber(pItem, "type", record.ucType);
        addText(pItem, "transaction", purseTypeName(record.ucType));
        addText(pItem, "amount", amountText(record.nAmount));
        addText(pItem, "overdraft", amountText(record.nOverdraft));
        addText(pItem, "terminal", hexText(record.terminal));
        addText(pItem, "date", record.sDate);
        addText(pItem, "time", record.sTime);
    }
    if (!records.empty())
        m_outcome.sLines += purseTable(records);
    else if (!m_outcome.failure)
        m_outcome.sLines += "the log is empty\n";
}

void Purse::run()
{
    switch (m_options.action) {
    case PurseAction::balance: return balance();
    case PurseAction::load: return load();
    case PurseAction::buy: return buy();
    case PurseAction::log: return log();
    }
}

const char *actionName(PurseAction action)
{
    constexpr std::array<const char *, 4> names{"balance", "load", "buy", "log"};
    return names[static_cast<size_t>(action)];
}

} // namespace

void drivePurse(const Options &options, Port &port, Session &session, Outcome &outcome)
{
    cJSON *pRoot = outcome.json.get();
    addText(pRoot, "action", actionName(options.purse.action));
    addText(pRoot, "port", options.sPort);
    if (options.channel() != Channel::usb)
        addNumber(pRoot, "baud", options.nBaud);
    addNumber(pRoot, "slot", options.nSlot);
    if (options.purse.action != PurseAction::log)
        addText(pRoot, "kind", options.purse.bDeposit ? "deposit" : "purse");
    if (options.purse.action == PurseAction::buy)
        addNumber(pRoot, "psamSlot", options.purse.nPsamSlot);
    outcome.failure = session.open();
    if (!port.devicePath().empty())
        addText(pRoot, "device", port.devicePath());
    if (!outcome.failure)
        Purse(options, session, outcome).run();
}

} // namespace qvtool
