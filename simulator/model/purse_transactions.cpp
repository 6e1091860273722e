// Balance, load, unload and purchase of a purse card: first halves, second halves, and the codes that both sides check.
//
//   session key of load, unload    random number 4, online counter 2, 80 00
//   session key of a purchase      random number 4, offline counter 2, low two bytes of the terminal's serial number
// Both are enciphered by the transaction's key.
#include "model/purse_card.h"

#include "model/big_endian.h"

#include <algorithm>
#include <utility>

namespace qvsim {

namespace {

constexpr std::uint8_t kDeposit = 0x01; // P2
constexpr std::uint8_t kPurse = 0x02;
constexpr std::uint8_t kUnloadType = 0x03;
constexpr std::uint8_t kPurchaseTypes = 0x04; // 05 from the deposit, 06 from the purse; loads are 01 and 02
constexpr std::uint16_t kLastCounter = 0xFFFF;
constexpr std::array<std::uint8_t, 2> kOnlineTail{0x80, 0x00};
constexpr std::size_t kRandomBytes = 4;
constexpr std::size_t kDateTimeBytes = 7;
constexpr std::size_t kTerminalSerialBytes = 4;

// By Transaction: INS and P1 of the second half.
constexpr std::array<std::array<std::uint8_t, 2>, 3> kSecondHalves{{{0x52, 0x00}, {0x54, 0x03}, {0x54, 0x01}}};

Bytes joined(std::initializer_list<BytesView> parts)
{
    Bytes whole;
    for (const BytesView part : parts)
        appendBytes(whole, part);
    return whole;
}

Bytes number(std::uint32_t value, std::size_t bytes)
{
    Bytes to;
    appendNumber(to, value, bytes);
    return to;
}

CipherBlock sessionKey(const CardKey &key, BytesView random, std::uint16_t counter, BytesView tail)
{
    const Bytes input = joined({random, number(counter, 2), tail});
    CipherBlock block{};
    std::copy_n(input.begin(), block.size(), block.begin());
    return encipher(key, block);
}

} // namespace

bool PurseCard::isSecondHalf(Transaction transaction, BytesView command)
{
    const auto &[ins, p1] = kSecondHalves[static_cast<std::size_t>(transaction)];
    return command.size() >= 4 && command[0] == 0x80 && command[1] == ins && command[2] == p1 && command[3] == 0;
}

PurseAccount *PurseCard::findAccount(const ChipCommand &command)
{
    if (command.p2 == kDeposit)
        return &data_.deposit;
    return command.p2 == kPurse ? &data_.purse : nullptr;
}

const TransactionKey *PurseCard::findKey(Transaction transaction, std::uint8_t index) const
{
    const auto &keys = transaction == Transaction::load     ? data_.loadKeys
                       : transaction == Transaction::unload ? data_.unloadKeys
                                                            : data_.purchaseKeys;
    const auto found =
        std::find_if(keys.begin(), keys.end(), [index](const TransactionKey &key) { return key.index == index; });
    return found == keys.end() ? nullptr : &*found;
}

Bytes PurseCard::getBalance(const ChipCommand &command)
{
    const PurseAccount *const account = findAccount(command);
    return account == nullptr ? statusAnswer(sw::wrongParameters) : dataAnswer(number(account->balance, 4));
}

// ---- first halves

// Data: key index 1, amount 4, terminal number 6.
const TransactionKey *PurseCard::begin(Transaction transaction, const ChipCommand &command, std::uint16_t &status)
{
    const auto refuse = [&status](std::uint16_t reason) {
        status = reason;
        return nullptr;
    };
    PurseAccount *const account = findAccount(command);
    if (account == nullptr)
        return refuse(sw::wrongParameters);
    const bool isPurchase = transaction == Transaction::purchase;
    if (!pinVerified_ && !(isPurchase && command.p2 == kPurse))
        return refuse(sw::securityMissing);
    if ((isPurchase ? account->offline : account->online) == kLastCounter)
        return refuse(sw::counterAtEnd);
    const TransactionKey *const key = findKey(transaction, command.data[0]);
    if (key == nullptr)
        return refuse(sw::noSuchKey);
    const std::uint32_t amount = bigEndianNumber(command.data.subspan(1, 4));
    if (transaction == Transaction::load && amount > account->limit - account->balance)
        return refuse(sw::conditionsMissing);
    if (transaction != Transaction::load && amount > account->balance)
        return refuse(sw::fundsMissing);

    const BytesView terminal = command.data.subspan(5);
    std::uint8_t type = command.p2;
    if (transaction == Transaction::unload)
        type = kUnloadType;
    else if (isPurchase)
        type = static_cast<std::uint8_t>(kPurchaseTypes + command.p2);
    Bytes random(kRandomBytes);
    fillRandom(random);
    begun_ = Begun{transaction, account,          type, amount, Bytes(terminal.begin(), terminal.end()),
                   key->value,  std::move(random)};
    return key;
}

// Answer: balance 4, online counter 2, key version 1, algorithm 1, random number 4, MAC1 4.
Bytes PurseCard::beginOnline(Transaction transaction, const ChipCommand &command)
{
    std::uint16_t status = sw::done;
    const TransactionKey *const key = begin(transaction, command, status);
    if (key == nullptr)
        return statusAnswer(status);
    const PurseAccount &account = *begun_->account;
    const Bytes balance = number(account.balance, 4);
    const std::array<std::uint8_t, 1> type{begun_->type};
    const std::array<std::uint8_t, 2> keyNames{key->version, key->algorithm};
    const MacCode mac1 = mac(sessionKey(key->value, begun_->random, account.online, kOnlineTail),
                             joined({balance, number(begun_->amount, 4), type, begun_->terminal}));
    return dataAnswer(joined({balance, number(account.online, 2), keyNames, begun_->random, mac1}));
}

Bytes PurseCard::initializeForLoad(const ChipCommand &command)
{
    return beginOnline(Transaction::load, command);
}

Bytes PurseCard::initializeForUnload(const ChipCommand &command)
{
    return beginOnline(Transaction::unload, command);
}

// Answer: balance 4, offline counter 2, overdraft limit 3, key version 1, algorithm 1, random number 4.
Bytes PurseCard::initializeForPurchase(const ChipCommand &command)
{
    std::uint16_t status = sw::done;
    const TransactionKey *const key = begin(Transaction::purchase, command, status);
    if (key == nullptr)
        return statusAnswer(status);
    const PurseAccount &account = *begun_->account;
    const std::array<std::uint8_t, 2> keyNames{key->version, key->algorithm};
    return dataAnswer(joined({number(account.balance, 4), number(account.offline, 2), number(account.overdraft, 3),
                              keyNames, begun_->random}));
}

// ---- second halves

std::optional<PurseCard::Begun> PurseCard::takeBegun(const ChipCommand &command, std::uint16_t &status)
{
    status = command.p2 == 0 ? sw::notAccepted : sw::wrongParameters;
    return std::exchange(begun_, std::nullopt);
}

// Data: date 4, time 3, MAC2 4. Answer: of a load the TAC, of an unload MAC3.
Bytes PurseCard::finishOnline(const ChipCommand &command)
{
    std::uint16_t status = sw::done;
    const std::optional<Begun> begun = takeBegun(command, status);
    if (!begun)
        return statusAnswer(status);
    PurseAccount &account = *begun->account;
    const BytesView dateTime = command.data.first(kDateTimeBytes);
    const BytesView mac2 = command.data.subspan(kDateTimeBytes);
    const CipherBlock session = sessionKey(begun->key, begun->random, account.online, kOnlineTail);
    const std::array<std::uint8_t, 1> type{begun->type};
    const Bytes agreed = joined({number(begun->amount, 4), type, begun->terminal, dateTime});
    if (!std::ranges::equal(mac(session, agreed), mac2))
        return statusAnswer(sw::wrongMac);

    const bool adds = begun->transaction == Transaction::load;
    const std::uint32_t balance = adds ? account.balance + begun->amount : account.balance - begun->amount;
    const MacCode code =
        mac(adds ? tacKey(data_.tac) : session, joined({number(balance, 4), number(account.online, 2), agreed}));
    account.balance = balance;
    log(*begun, account.online, dateTime);
    ++account.online;
    return dataAnswer(code);
}

Bytes PurseCard::creditForLoad(const ChipCommand &command)
{
    return finishOnline(command);
}

Bytes PurseCard::debitForUnload(const ChipCommand &command)
{
    return finishOnline(command);
}

// Data: terminal's serial number 4, date 4, time 3, MAC1 4. Answer: TAC 4, MAC2 4.
Bytes PurseCard::debitForPurchase(const ChipCommand &command)
{
    std::uint16_t status = sw::done;
    const std::optional<Begun> begun = takeBegun(command, status);
    if (!begun)
        return statusAnswer(status);
    PurseAccount &account = *begun->account;
    const BytesView terminalSerial = command.data.first(kTerminalSerialBytes);
    const BytesView dateTime = command.data.subspan(kTerminalSerialBytes, kDateTimeBytes);
    const BytesView mac1 = command.data.subspan(kTerminalSerialBytes + kDateTimeBytes);
    const CipherBlock session = sessionKey(begun->key, begun->random, account.offline, terminalSerial.last(2));
    const Bytes amount = number(begun->amount, 4);
    const std::array<std::uint8_t, 1> type{begun->type};
    if (!std::ranges::equal(mac(session, joined({amount, type, begun->terminal, dateTime})), mac1))
        return statusAnswer(sw::wrongMac);

    const MacCode tac = mac(tacKey(data_.tac), joined({amount, type, begun->terminal, terminalSerial, dateTime}));
    const MacCode mac2 = mac(session, amount);
    account.balance -= begun->amount;
    log(*begun, account.offline, dateTime);
    ++account.offline;
    return dataAnswer(joined({tac, mac2}));
}

void PurseCard::log(const Begun &begun, std::uint16_t counter, BytesView dateTime)
{
    log_.add({counter, begun.account->overdraft, begun.amount, begun.type, begun.terminal, dateTime});
}

} // namespace qvsim
