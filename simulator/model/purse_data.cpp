// A word, a row; amounts, dates and keys.
#include "model/purse_data.h"

#include "model/word_file.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr unsigned kCentsPerUnit = 100;
constexpr std::uint32_t kMostAmount = 0xFFFF'FFFF;
constexpr std::uint32_t kMostOverdraft = 0xFF'FFFF; // three bytes on the card
constexpr unsigned kMostCounter = 0xFFFF;
constexpr unsigned kMostPinTries = 15; // one hexadecimal digit tells them
constexpr std::size_t kLeastPinDigits = 4;
constexpr std::size_t kMostPinDigits = 12;
constexpr std::size_t kMostAtrBytes = 33;
constexpr std::size_t kLeastNameBytes = 5; // ISO 7816-5
constexpr std::size_t kMostNameBytes = 16;
constexpr std::size_t kMostRandomBytes = 255;

constexpr char kWrongAtr[] = "an answer to power-on has 1 to 33 bytes";
constexpr char kWrongAid[] = "the name of an application has 5 to 16 bytes";
constexpr char kWrongAmount[] = "an amount is written 100.00 and is at most 42949672.95";
constexpr char kWrongOverdraft[] = "an overdraft limit is written 100.00 and is at most 167772.15";
constexpr char kWrongCounter[] = "a counter is 0 to 65535";
constexpr char kWrongDate[] = "a date is YYYYMMDD";
constexpr char kWrongDigits[] = "a serial number is 20 decimal digits";
constexpr char kOneByte[] = "this is one hexadecimal byte";
constexpr char kTwoBytes[] = "these are two hexadecimal bytes";

const char *takeName(std::string &to, std::string_view text)
{
    to = text;
    return text.empty() ? "a name needs its text" : nullptr;
}

// "100.00"
const char *takeAmount(std::uint32_t &to, std::string_view text, std::uint32_t most, const char *wrong)
{
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos)
        return wrong;
    const std::optional<unsigned> units = parseNumber(text.substr(0, point), most / kCentsPerUnit);
    const std::optional<unsigned> cents = parseNumber(text.substr(point + 1), kCentsPerUnit - 1);
    if (!units || !cents || text.size() - point != 3)
        return wrong;
    const std::uint64_t amount = std::uint64_t{*units} * kCentsPerUnit + *cents;
    to = static_cast<std::uint32_t>(amount);
    return amount > most ? wrong : nullptr;
}

const char *takeAmount(std::uint32_t &to, std::string_view text)
{
    return takeAmount(to, text, kMostAmount, kWrongAmount);
}

const char *takeCounter(std::uint16_t &to, std::string_view text)
{
    const std::optional<unsigned> number = parseNumber(text, kMostCounter);
    to = static_cast<std::uint16_t>(number.value_or(0));
    return number ? nullptr : kWrongCounter;
}

const char *takeDate(std::array<std::uint8_t, 4> &to, std::string_view text)
{
    constexpr unsigned kHighestDate = 99'991'231;
    const std::optional<unsigned> number = text.size() == 8 ? parseNumber(text, kHighestDate) : std::nullopt;
    if (!number)
        return kWrongDate;
    const unsigned month = *number / 100 % 100;
    const unsigned day = *number % 100;
    return month >= 1 && month <= 12 && day >= 1 && day <= 31 ? takeHex(to, text, kWrongDate) : kWrongDate;
}

const char *takeSerial(std::array<std::uint8_t, 10> &to, std::string_view text)
{
    const bool decimal = text.find_first_not_of("0123456789 \t") == std::string_view::npos;
    return decimal ? takeHex(to, text, kWrongDigits) : kWrongDigits;
}

const char *takePin(Bytes &to, std::string_view text)
{
    const bool decimal = text.find_first_not_of("0123456789") == std::string_view::npos;
    if (!decimal || text.size() < kLeastPinDigits || text.size() > kMostPinDigits)
        return "a PIN is 4 to 12 decimal digits";
    to = fromHex(std::string(text) + (text.size() % 2 == 0 ? "" : "F")).value();
    return nullptr;
}

const char *takeTries(unsigned &to, std::string_view text)
{
    to = parseNumber(text, kMostPinTries).value_or(0);
    return to == 0 ? "a PIN has 1 to 15 tries" : nullptr;
}

// "01 02 00 HEX": index, version, algorithm, key.
const char *takeKey(std::vector<TransactionKey> &keys, std::string_view text, bool fromMaster)
{
    std::array<std::uint8_t, 3 + std::tuple_size_v<CardKey>> bytes{};
    if (const char *const wrong =
            takeHex(bytes, text, "a key is its index, version and algorithm, a byte each, and 16 bytes"))
        return wrong;
    TransactionKey key{bytes[0], bytes[1], bytes[2], {}, fromMaster};
    std::copy(bytes.begin() + 3, bytes.end(), key.value.begin());
    if (std::any_of(keys.begin(), keys.end(), [&key](const TransactionKey &other) { return other.index == key.index; }))
        return "this key index has been given already";
    keys.push_back(key);
    return nullptr;
}

const char *takeMaster(std::vector<TransactionKey> &keys, std::string_view text)
{
    std::array<std::uint8_t, 2 + std::tuple_size_v<CardKey>> bytes{};
    if (const char *const wrong =
            takeHex(bytes, text, "a master key is its version and algorithm, a byte each, and 16 bytes"))
        return wrong;
    TransactionKey key{0, bytes[0], bytes[1], {}, true};
    std::copy(bytes.begin() + 2, bytes.end(), key.value.begin());
    if (std::any_of(keys.begin(), keys.end(), [&key](const TransactionKey &other) {
            return other.version == key.version && other.algorithm == key.algorithm;
        }))
        return "this version and algorithm has been given already";
    keys.push_back(key);
    return nullptr;
}

using Count = FileWord<PurseData>::Count;
using SamCount = FileWord<PsamData>::Count;
using Text = std::string_view;

constexpr std::array<FileWord<PurseData>, 28> kPurseWords{{
    {"name", Count::optional, [](PurseData &card, Text text) { return takeName(card.name, text); }},
    {"atr", Count::needed,
     [](PurseData &card, Text text) { return takeHex(card.atr, text, 1, kMostAtrBytes, kWrongAtr); }},
    {"aid", Count::needed,
     [](PurseData &card, Text text) { return takeHex(card.aid, text, kLeastNameBytes, kMostNameBytes, kWrongAid); }},
    {"issuer", Count::optional,
     [](PurseData &card, Text text) { return takeHex(card.issuer, text, "an issuer is 8 hexadecimal bytes"); }},
    {"type", Count::optional, [](PurseData &card, Text text) { return takeHex(card.type, text, kOneByte); }},
    {"version", Count::optional, [](PurseData &card, Text text) { return takeHex(card.version, text, kOneByte); }},
    {"serial", Count::needed, [](PurseData &card, Text text) { return takeSerial(card.serial, text); }},
    {"valid-from", Count::optional, [](PurseData &card, Text text) { return takeDate(card.validFrom, text); }},
    {"valid-until", Count::optional, [](PurseData &card, Text text) { return takeDate(card.validUntil, text); }},
    {"issuer-data", Count::optional,
     [](PurseData &card, Text text) { return takeHex(card.issuerData, text, kTwoBytes); }},
    {"holder", Count::optional,
     [](PurseData &card, Text text) { return takeHex(card.holder, text, "a card holder is 55 hexadecimal bytes"); }},
    {"pin", Count::needed, [](PurseData &card, Text text) { return takePin(card.pin, text); }},
    {"pin-tries", Count::optional, [](PurseData &card, Text text) { return takeTries(card.pinTries, text); }},
    {"deposit-balance", Count::optional,
     [](PurseData &card, Text text) { return takeAmount(card.deposit.balance, text); }},
    {"deposit-limit", Count::optional, [](PurseData &card, Text text) { return takeAmount(card.deposit.limit, text); }},
    {"deposit-overdraft", Count::optional,
     [](PurseData &card, Text text) {
         return takeAmount(card.deposit.overdraft, text, kMostOverdraft, kWrongOverdraft);
     }},
    {"deposit-online", Count::optional,
     [](PurseData &card, Text text) { return takeCounter(card.deposit.online, text); }},
    {"deposit-offline", Count::optional,
     [](PurseData &card, Text text) { return takeCounter(card.deposit.offline, text); }},
    {"purse-balance", Count::optional, [](PurseData &card, Text text) { return takeAmount(card.purse.balance, text); }},
    {"purse-limit", Count::optional, [](PurseData &card, Text text) { return takeAmount(card.purse.limit, text); }},
    {"purse-online", Count::optional, [](PurseData &card, Text text) { return takeCounter(card.purse.online, text); }},
    {"purse-offline", Count::optional,
     [](PurseData &card, Text text) { return takeCounter(card.purse.offline, text); }},
    {"load-key", Count::repeated, [](PurseData &card, Text text) { return takeKey(card.loadKeys, text, false); }},
    {"unload-key", Count::repeated, [](PurseData &card, Text text) { return takeKey(card.unloadKeys, text, false); }},
    {"purchase-key", Count::repeated,
     [](PurseData &card, Text text) { return takeKey(card.purchaseKeys, text, false); }},
    {"purchase-master", Count::repeated,
     [](PurseData &card, Text text) { return takeKey(card.purchaseKeys, text, true); }},
    {"tac-key", Count::needed,
     [](PurseData &card, Text text) { return takeHex(card.tac, text, "this key is 16 hexadecimal bytes"); }},
    {"random", Count::optional,
     [](PurseData &card, Text text) {
         return takeHex(card.fixedRandom, text, 1, kMostRandomBytes, "a fixed random number has 1 to 255 bytes");
     }},
}};

constexpr std::array<FileWord<PsamData>, 10> kPsamWords{{
    {"name", SamCount::optional, [](PsamData &sam, Text text) { return takeName(sam.name, text); }},
    {"atr", SamCount::needed,
     [](PsamData &sam, Text text) { return takeHex(sam.atr, text, 1, kMostAtrBytes, kWrongAtr); }},
    {"aid", SamCount::needed,
     [](PsamData &sam, Text text) { return takeHex(sam.aid, text, kLeastNameBytes, kMostNameBytes, kWrongAid); }},
    {"terminal", SamCount::needed,
     [](PsamData &sam, Text text) { return takeHex(sam.terminal, text, "a terminal number is 6 hexadecimal bytes"); }},
    {"serial", SamCount::optional, [](PsamData &sam, Text text) { return takeSerial(sam.serial, text); }},
    {"version", SamCount::optional, [](PsamData &sam, Text text) { return takeHex(sam.version, text, kOneByte); }},
    {"kind", SamCount::optional, [](PsamData &sam, Text text) { return takeHex(sam.kind, text, kOneByte); }},
    {"issuer-data", SamCount::optional,
     [](PsamData &sam, Text text) { return takeHex(sam.issuerData, text, kTwoBytes); }},
    {"transaction", SamCount::optional,
     [](PsamData &sam, Text text) {
         const std::optional<unsigned> number = parseNumber(text, 0xFFFF'FFFF);
         sam.transaction = number.value_or(0);
         return number ? nullptr : "a transaction number is 0 to 4294967295";
     }},
    {"purchase-master", SamCount::repeated, [](PsamData &sam, Text text) { return takeMaster(sam.masters, text); }},
}};

} // namespace

const char *PurseData::finish()
{
    if (deposit.balance > deposit.limit || purse.balance > purse.limit)
        return "a balance is above its limit";
    if (validFrom > validUntil)
        return "valid-until is before valid-from";
    for (TransactionKey &key : purchaseKeys)
        if (key.fromMaster)
            key = {key.index, key.version, key.algorithm, diversify(key.value, keySerial(serial)), false};
    return nullptr;
}

PurseDataResult parsePurseData(std::string_view text, std::string_view fileName)
{
    return parseWordFile(text, fileName, kPurseWords);
}

PsamDataResult parsePsamData(std::string_view text, std::string_view fileName)
{
    return parseWordFile(text, fileName, kPsamWords);
}

CipherBlock keySerial(const std::array<std::uint8_t, 10> &serial)
{
    CipherBlock block{};
    std::copy(serial.end() - block.size(), serial.end(), block.begin());
    return block;
}

std::string amountText(std::uint32_t cents)
{
    const std::string text = std::to_string(cents % kCentsPerUnit);
    return std::to_string(cents / kCentsPerUnit) + (text.size() < 2 ? ".0" : ".") + text;
}

} // namespace qvsim
