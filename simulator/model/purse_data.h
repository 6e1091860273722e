// What the files of purse cards and PSAMs say. The files are described in cards/README.md.
#pragma once

#include "model/purse_crypto.h"

#include <variant>
#include <vector>

namespace qvsim {

// A key of a card and how a terminal names it.
struct TransactionKey {
    std::uint8_t index; // unique among the keys of its use; a PSAM's keys have none
    std::uint8_t version, algorithm;
    CardKey value;
    bool fromMaster; // until finish(): the value is the master key
};

// The deposit or the purse. Amounts in cents.
struct PurseAccount {
    std::uint32_t balance = 0;
    std::uint32_t limit = 0xFFFF'FFFF; // of the balance
    std::uint32_t overdraft = 0;       // limit, 3 bytes; the balance includes it
    std::uint16_t online = 0;          // counters of the next transaction
    std::uint16_t offline = 0;
};

struct PurseData {
    std::string name;
    Bytes atr;
    Bytes aid; // the application's name
    std::array<std::uint8_t, 8> issuer{};
    std::array<std::uint8_t, 1> type{0x03}; // 01 deposit, 02 purse, 03 both
    std::array<std::uint8_t, 1> version{0x01};
    std::array<std::uint8_t, 10> serial{}; // the last eight bytes make the card's keys
    std::array<std::uint8_t, 4> validFrom{0x20, 0x00, 0x01, 0x01};
    std::array<std::uint8_t, 4> validUntil{0x20, 0x99, 0x12, 0x31};
    std::array<std::uint8_t, 2> issuerData{};
    std::array<std::uint8_t, 55> holder{};
    Bytes pin; // two digits a byte, F behind an odd number of them
    unsigned pinTries = 3;
    PurseAccount deposit, purse;
    std::vector<TransactionKey> loadKeys, unloadKeys, purchaseKeys;
    CardKey tac{};
    Bytes fixedRandom; // instead of random numbers; empty: none

    // Makes card keys from master keys. What is wrong with the whole, or null.
    const char *finish();
};

struct PsamData {
    std::string name;
    Bytes atr;
    Bytes aid;
    std::array<std::uint8_t, 6> terminal{};
    std::array<std::uint8_t, 10> serial{};
    std::array<std::uint8_t, 1> version{0x01};
    std::array<std::uint8_t, 1> kind{};
    std::array<std::uint8_t, 2> issuerData{};
    std::uint32_t transaction = 1; // serial number of the next one
    std::vector<TransactionKey> masters;

    const char *finish() { return masters.empty() ? "the line purchase-master is missing" : nullptr; }
};

// Holds the data, or the sentence "FILE:LINE: what is wrong".
using PurseDataResult = std::variant<PurseData, std::string>;
using PsamDataResult = std::variant<PsamData, std::string>;

// `fileName` only names the text in messages.
PurseDataResult parsePurseData(std::string_view text, std::string_view fileName);
PsamDataResult parsePsamData(std::string_view text, std::string_view fileName);

// The part of a serial number that makes the card's own keys.
CipherBlock keySerial(const std::array<std::uint8_t, 10> &serial);

// Cents as "100.00".
std::string amountText(std::uint32_t cents);

} // namespace qvsim
