// Session key: random number 4, offline counter 2 of the card, low two bytes of the serial number, enciphered by the
// card's own purchase key.
#include "model/psam_card.h"

#include "model/big_endian.h"

#include <algorithm>
#include <utility>

namespace qvsim {

namespace {

constexpr std::uint8_t kPublicFile = 0x15;
constexpr std::uint8_t kTerminalFile = 0x16;
constexpr std::size_t kMostData = 0xFF;
constexpr std::uint32_t kLastTransaction = 0xFFFF'FFFF;
constexpr std::uint8_t kSecondHalf[] = {0x80, 0x72, 0x00, 0x00};

// What the terminal passes on from the card and its own clock.
struct PurchaseData {
    BytesView random, counter, amount, type, dateTime;
    std::uint8_t keyVersion, keyAlgorithm;
    BytesView cardSerial;
};

constexpr std::size_t kPurchaseDataBytes = 28;

PurchaseData splitPurchase(BytesView data)
{
    return {data.subspan(0, 4),  data.subspan(4, 2), data.subspan(6, 4), data.subspan(10, 1),
            data.subspan(11, 7), data[18],           data[19],           data.subspan(20, 8)};
}

// Serial number 10, version 1, kind of key card 1, issuer's data 2.
Bytes publicFile(const PsamData &data)
{
    Bytes content;
    for (const BytesView field :
         {BytesView(data.serial), BytesView(data.version), BytesView(data.kind), BytesView(data.issuerData)})
        appendBytes(content, field);
    return content;
}

CipherBlock blockOf(BytesView bytes)
{
    CipherBlock block{};
    std::copy_n(bytes.begin(), block.size(), block.begin());
    return block;
}

} // namespace

PsamCard::PsamCard(PsamData data, std::string label) : data_(std::move(data)), label_(std::move(label))
{
    files_ = {{kPublicFile, publicFile(data_)}, {kTerminalFile, Bytes(data_.terminal.begin(), data_.terminal.end())}};
}

std::span<const ChipCommandRow<PsamCard>> PsamCard::commands()
{
    using Self = PsamCard;
    static constexpr ChipCommandRow<Self> rows[] = {
        {0x00, 0xA4, kAnyP1, 0, kMostData, kOwnLe, &Self::select},
        {0x00, 0xB0, kAnyP1, 0, 0, kOwnLe, &Self::readBinary},
        {0x80, 0x70, 0x00, kPurchaseDataBytes, kPurchaseDataBytes, 8, &Self::initializeForPurchase},
        {0x80, 0x72, 0x00, 4, 4, kOwnLe, &Self::creditForPurchase},
    };
    return rows;
}

CardAnswer PsamCard::powerOn()
{
    expectedMac2_.reset();
    return CardAnswer::of(data_.atr);
}

std::string PsamCard::label() const
{
    return label_ + " transaction " + std::to_string(data_.transaction);
}

CardAnswer PsamCard::transmit(BytesView command)
{
    if (command.size() < std::size(kSecondHalf) ||
        !std::ranges::equal(command.first(std::size(kSecondHalf)), kSecondHalf))
        expectedMac2_.reset();
    return CardAnswer::of(runChipCommand(*this, commands(), command));
}

Bytes PsamCard::select(const ChipCommand &command)
{
    return selectApplication(command, data_.aid, files_.front().content);
}

Bytes PsamCard::readBinary(const ChipCommand &command)
{
    return readShortFile(files_, command);
}

// Answer: serial number of the transaction 4, MAC1 4. The command names its key by version and algorithm alone.
Bytes PsamCard::initializeForPurchase(const ChipCommand &command)
{
    if (command.p2 != 0)
        return statusAnswer(sw::wrongParameters);
    const PurchaseData purchase = splitPurchase(command.data);
    const auto key =
        std::find_if(data_.masters.begin(), data_.masters.end(), [&purchase](const TransactionKey &master) {
            return master.version == purchase.keyVersion && master.algorithm == purchase.keyAlgorithm;
        });
    if (key == data_.masters.end())
        return statusAnswer(sw::noSuchKey);
    if (data_.transaction == kLastTransaction)
        return statusAnswer(sw::counterAtEnd);

    Bytes session;
    appendBytes(session, purchase.random);
    appendBytes(session, purchase.counter);
    appendNumber(session, data_.transaction, 2);
    const CipherBlock sessionKey = encipher(diversify(key->value, blockOf(purchase.cardSerial)), blockOf(session));
    Bytes agreed;
    for (const BytesView field : {purchase.amount, purchase.type, BytesView(data_.terminal), purchase.dateTime})
        appendBytes(agreed, field);
    expectedMac2_ = mac(sessionKey, purchase.amount);

    Bytes answer;
    appendNumber(answer, data_.transaction, 4);
    appendBytes(answer, mac(sessionKey, agreed));
    ++data_.transaction;
    return dataAnswer(answer);
}

Bytes PsamCard::creditForPurchase(const ChipCommand &command)
{
    if (command.p2 != 0)
        return statusAnswer(sw::wrongParameters);
    const std::optional<MacCode> expected = std::exchange(expectedMac2_, std::nullopt);
    if (!expected)
        return statusAnswer(sw::notAccepted);
    return statusAnswer(std::ranges::equal(*expected, command.data) ? sw::done : sw::wrongMac);
}

} // namespace qvsim
