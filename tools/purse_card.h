// purse_card.h - the commands of an electronic deposit or purse card and of a purchase PSAM (JR/T 0025.1 and .2, 2005),
// one function each. The card is in the slot of the options, the PSAM in its own; each function speaks to its own one.
#pragma once

#include "json.h"
#include "options.h"
#include "session.h"

#include <functional>
#include <string>

namespace qvtool {

// What an initialise command answers.
struct PurseBegin {
    uint32_t nBalance = 0; // cents
    Bytes counter;         // 2 bytes, of this transaction
    uint8_t ucKeyVersion = 0;
    uint8_t ucAlgorithm = 0;
    Bytes random; // 4 bytes
    Bytes mac1;   // of a load: 4 bytes
};

// Every function: false, and the outcome's failure says why.
class PurseCard {
  public:
    PurseCard(const Options &options, Session &session, Outcome &outcome);

    bool powerUp();
    bool select();
    bool verify(); // where a PIN was given
    bool balance(uint32_t &nCents);
    // The last eight bytes of the application serial number.
    bool serial(Bytes &out);
    bool beginLoad(const Bytes &terminal, PurseBegin &out);
    bool creditLoad(const Bytes &dateTime, const Bytes &mac2, Bytes &tac);
    bool beginPurchase(const Bytes &terminal, PurseBegin &out);
    bool debit(const Bytes &data, Bytes &tac, Bytes &mac2);
    // bEnd: there is no such record.
    bool logRecord(uint8_t ucNumber, Bytes &out, bool &bEnd);

    bool powerUpPsam();
    bool selectPsam(); // where a name was given
    bool psamTerminal(Bytes &number);
    bool psamBegin(const Bytes &data, Bytes &serial, Bytes &mac1);
    bool psamFinish(const Bytes &mac2);

    // As commands and types of transactions count them.
    uint8_t kind() const { return m_options.purse.bDeposit ? ucDeposit : ucPurse; }
    // The last command was answered, with a status word by which nothing has changed on the card.
    bool wasRefused() const;

  private:
    static constexpr uint8_t ucDeposit = 1;
    static constexpr uint8_t ucPurse = 2;

    bool run(int nSlot, const std::string &sName, const CardCall &call, Bytes &data, uint32_t &nStatus);
    // Any other status word than 9000, and any other length, is a failure.
    bool send(int nSlot, const std::string &sName, const CardCall &call, size_t nData, Bytes &data);
    bool sendToPsam(const std::string &sName, const Bytes &command, size_t nData, Bytes &data);
    bool refused(const std::string &sName, uint32_t nStatus);
    Bytes beginData(const Bytes &terminal) const;

    const Options &m_options;
    Session &m_session;
    Outcome &m_outcome;
    cJSON *m_pSteps;
    int m_nCurrent = -1;    // slot; -1: none yet
    uint32_t m_nStatus = 0; // of the last answer; 0: there was none
};

// The bytes of an amount on the line.
Bytes amountBytes(uint32_t nCents);
Bytes joined(std::initializer_list<BytesView> parts);

} // namespace qvtool
