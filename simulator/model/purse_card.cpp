// Commands, files and PIN in the order of the table; the transactions are in purse_transactions.cpp.
#include "model/purse_card.h"

#include "model/big_endian.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr std::uint8_t kPublicFile = 0x15;
constexpr std::uint8_t kHolderFile = 0x16;
constexpr std::uint8_t kLogFile = 0x18;
constexpr std::uint8_t kRecordNumberInP1 = 0x04; // ISO 7816-4: P2 is the short file and this
constexpr std::uint8_t kPinOfApplication = 0x80; // P2 of VERIFY; 00 means the same
constexpr std::size_t kChallengeBytes = 8;       // when Le does not say how many
constexpr std::size_t kLeastPinBytes = 2;
constexpr std::size_t kMostPinBytes = 6;
constexpr std::size_t kMostData = 0xFF;
constexpr std::size_t kBalanceBytes = 4;

// Issuer 8, application type 1, version 1, serial number 10, first day 4, last day 4, issuer's data 2.
Bytes publicFile(const PurseData &data)
{
    Bytes content;
    for (const BytesView field :
         {BytesView(data.issuer), BytesView(data.type), BytesView(data.version), BytesView(data.serial),
          BytesView(data.validFrom), BytesView(data.validUntil), BytesView(data.issuerData)})
        appendBytes(content, field);
    return content;
}

} // namespace

PurseCard::PurseCard(PurseData data, std::string label, RandomSource random)
    : data_(std::move(data)), label_(std::move(label)), random_(std::move(random)), triesLeft_(data_.pinTries)
{
    files_ = {{kPublicFile, publicFile(data_)}, {kHolderFile, Bytes(data_.holder.begin(), data_.holder.end())}};
}

std::span<const ChipCommandRow<PurseCard>> PurseCard::commands()
{
    using Self = PurseCard;
    static constexpr ChipCommandRow<Self> rows[] = {
        {0x00, 0xA4, kAnyP1, 0, kMostData, kOwnLe, &Self::select},
        {0x00, 0xB0, kAnyP1, 0, 0, kOwnLe, &Self::readBinary},
        {0x00, 0xD6, kAnyP1, 1, kMostData, kOwnLe, &Self::updateBinary},
        {0x00, 0xB2, kAnyP1, 0, 0, kLogRecordBytes, &Self::readRecord},
        {0x00, 0x20, 0x00, kLeastPinBytes, kMostPinBytes, kOwnLe, &Self::verify},
        {0x00, 0x84, 0x00, 0, 0, kOwnLe, &Self::getChallenge},
        {0x80, 0x5C, 0x00, 0, 0, kBalanceBytes, &Self::getBalance},
        {0x80, 0x50, 0x00, 11, 11, 16, &Self::initializeForLoad},
        {0x80, 0x50, 0x05, 11, 11, 16, &Self::initializeForUnload},
        {0x80, 0x50, 0x01, 11, 11, 15, &Self::initializeForPurchase},
        {0x80, 0x52, 0x00, 11, 11, 4, &Self::creditForLoad},
        {0x80, 0x54, 0x03, 11, 11, 4, &Self::debitForUnload},
        {0x80, 0x54, 0x01, 15, 15, 8, &Self::debitForPurchase},
    };
    return rows;
}

CardAnswer PurseCard::powerOn()
{
    forget();
    return CardAnswer::of(data_.atr);
}

void PurseCard::forget()
{
    begun_.reset();
    pinVerified_ = false;
}

std::string PurseCard::label() const
{
    return label_ + " deposit " + amountText(data_.deposit.balance) + ", purse " + amountText(data_.purse.balance);
}

CardAnswer PurseCard::transmit(BytesView command)
{
    if (begun_ && !isSecondHalf(begun_->transaction, command))
        begun_.reset();
    return CardAnswer::of(runChipCommand(*this, commands(), command));
}

// ---- files

Bytes PurseCard::select(const ChipCommand &command)
{
    Bytes answer = selectApplication(command, data_.aid, files_.front().content);
    if (bigEndianNumber(BytesView(answer).last(2)) == sw::done)
        pinVerified_ = false;
    return answer;
}

Bytes PurseCard::readBinary(const ChipCommand &command)
{
    return readShortFile(files_, command);
}

// Only the card holder's file, and only by who knows the PIN.
Bytes PurseCard::updateBinary(const ChipCommand &command)
{
    if ((command.p1 & kShortFileBit) == 0)
        return statusAnswer(sw::noCurrentFile);
    const ShortFile *const file = findShortFile(files_, command);
    if (file == nullptr)
        return statusAnswer(sw::noSuchFile);
    if (file->identifier != kHolderFile || !pinVerified_)
        return statusAnswer(sw::securityMissing);
    Bytes &content = files_.back().content;
    if (command.p2 >= content.size())
        return statusAnswer(sw::wrongOffset);
    if (command.data.size() > content.size() - command.p2)
        return statusAnswer(sw::fileTooSmall);
    std::copy(command.data.begin(), command.data.end(), content.begin() + command.p2);
    return statusAnswer(sw::done);
}

// ISO 7816-4 has the record number in P1 and the short file in P2; hosts of electronic purses put the short file into
// P1 as in READ BINARY and the record number into P2. Both name the log.
Bytes PurseCard::readRecord(const ChipCommand &command)
{
    unsigned number = 0;
    if (command.p2 == ((kLogFile << 3) | kRecordNumberInP1))
        number = command.p1;
    else if (command.p1 == (kShortFileBit | kLogFile))
        number = command.p2;
    else if (command.p2 == kRecordNumberInP1)
        return statusAnswer(sw::noCurrentFile);
    else if ((command.p1 & kShortFileBit) != 0 || (command.p2 & 0x07) == kRecordNumberInP1)
        return statusAnswer(sw::noSuchFile);
    else
        return statusAnswer(sw::wrongParameters);
    const BytesView record = log_.record(number);
    return record.empty() ? statusAnswer(sw::noSuchRecord) : dataAnswer(record);
}

// ---- PIN and random numbers

Bytes PurseCard::verify(const ChipCommand &command)
{
    if (command.p2 != 0x00 && command.p2 != kPinOfApplication)
        return statusAnswer(sw::wrongParameters);
    if (triesLeft_ == 0)
        return statusAnswer(sw::pinBlocked);
    pinVerified_ = std::ranges::equal(command.data, data_.pin);
    triesLeft_ = pinVerified_ ? data_.pinTries : triesLeft_ - 1;
    return statusAnswer(pinVerified_ ? sw::done : static_cast<std::uint16_t>(sw::triesLeft + triesLeft_));
}

Bytes PurseCard::getChallenge(const ChipCommand &command)
{
    if (command.p2 != 0)
        return statusAnswer(sw::wrongParameters);
    const std::size_t wanted = command.le.value_or(0) == 0 ? kChallengeBytes : *command.le;
    Bytes challenge(wanted);
    fillRandom(challenge);
    return dataAnswer(challenge);
}

void PurseCard::fillRandom(std::span<std::uint8_t> bytes)
{
    if (data_.fixedRandom.empty())
        return random_(bytes);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = data_.fixedRandom[i % data_.fixedRandom.size()];
}

} // namespace qvsim
