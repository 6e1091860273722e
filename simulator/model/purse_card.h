// An electronic deposit and electronic purse card (JR/T 0025.1-2005, JR/T 0025.2-2005; ISO 7816-4) with real
// cryptography: balances move, counters count, every transaction leaves a log record. cards/README.md has the commands
// and what goes into each code.
//
// A transaction has two halves. The first one is remembered until any command but the second half comes. A power-off
// forgets it and the verified PIN; balances, counters, PIN tries and log stay as long as the card object lives.
#pragma once

#include "model/card.h"
#include "model/chip_files.h"
#include "model/purse_data.h"
#include "model/purse_log.h"

#include <functional>

namespace qvsim {

using RandomSource = std::function<void(std::span<std::uint8_t>)>;

class PurseCard final : public Card {
  public:
    PurseCard(PurseData data, std::string label, RandomSource random);

    CardAnswer powerOn() override;
    CardAnswer transmit(BytesView command) override;
    CardAnswer answer() override { return {}; } // everything was answered at once
    void giveUp() override {}
    void powerOff() override { forget(); }
    // With the balances.
    std::string label() const override;

  private:
    enum class Transaction { load, unload, purchase };

    // The first half of a transaction.
    struct Begun {
        Transaction transaction;
        PurseAccount *account;
        std::uint8_t type;
        std::uint32_t amount;
        Bytes terminal;
        CardKey key;
        Bytes random;
    };

    static bool isSecondHalf(Transaction transaction, BytesView command);
    static std::span<const ChipCommandRow<PurseCard>> commands();

    Bytes select(const ChipCommand &command);
    Bytes readBinary(const ChipCommand &command);
    Bytes updateBinary(const ChipCommand &command);
    Bytes readRecord(const ChipCommand &command);
    Bytes verify(const ChipCommand &command);
    Bytes getChallenge(const ChipCommand &command);
    Bytes getBalance(const ChipCommand &command);
    Bytes initializeForLoad(const ChipCommand &command);
    Bytes initializeForUnload(const ChipCommand &command);
    Bytes initializeForPurchase(const ChipCommand &command);
    Bytes creditForLoad(const ChipCommand &command);
    Bytes debitForUnload(const ChipCommand &command);
    Bytes debitForPurchase(const ChipCommand &command);

    const TransactionKey *findKey(Transaction transaction, std::uint8_t index) const;
    PurseAccount *findAccount(const ChipCommand &command);
    // Remembers the first half; the key that it named, or null and the reason in `status`.
    const TransactionKey *begin(Transaction transaction, const ChipCommand &command, std::uint16_t &status);
    Bytes beginOnline(Transaction transaction, const ChipCommand &command);
    // Forgets the first half. Nothing, and the reason in `status`, when the second half does not belong to one.
    std::optional<Begun> takeBegun(const ChipCommand &command, std::uint16_t &status);
    Bytes finishOnline(const ChipCommand &command);
    void log(const Begun &begun, std::uint16_t counter, BytesView dateTime);
    void fillRandom(std::span<std::uint8_t> bytes);
    void forget();

    PurseData data_;
    std::string label_;
    RandomSource random_;
    std::vector<ShortFile> files_;
    PurseLog log_;
    unsigned triesLeft_;
    bool pinVerified_ = false;
    std::optional<Begun> begun_;
};

} // namespace qvsim
