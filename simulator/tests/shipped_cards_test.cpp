// The card files that come with the simulator: they load, their data objects have the lengths that they say, and a
// terminal finds its way through them.
#include "model/script_card.h"
#include "program/card_files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

namespace qvsim {
namespace {

constexpr char kCards[] = QVSIM_CARDS "/";

CardScript load(const std::string &name)
{
    CardScriptResult result = readCardFile(kCards + name);
    if (const std::string *const wrong = std::get_if<std::string>(&result)) {
        ADD_FAILURE() << *wrong;
        return {};
    }
    return std::move(std::get<CardScript>(result));
}

using Objects = std::map<unsigned, Bytes>;

// Walks data objects; every byte must belong to one. Inner ones are collected too.
bool walk(BytesView data, Objects &objects)
{
    while (!data.empty()) {
        std::size_t at = 0;
        const bool constructed = (data[0] & 0x20) != 0;
        unsigned tag = data[at++];
        if ((tag & 0x1F) == 0x1F) {
            do {
                if (at == data.size())
                    return false;
                tag = (tag << 8) | data[at];
            } while ((data[at++] & 0x80) != 0);
        }
        if (at == data.size())
            return false;
        std::size_t length = data[at++];
        if (length >= 0x80) {
            std::size_t count = length & 0x7F;
            if (count == 0 || count > 2 || count > data.size() - at)
                return false;
            for (length = 0; count > 0; --count)
                length = (length << 8) | data[at++];
        }
        if (length > data.size() - at)
            return false;
        const BytesView value = data.subspan(at, length);
        objects[tag] = Bytes(value.begin(), value.end());
        if (constructed && !walk(value, objects))
            return false;
        data = data.subspan(at + length);
    }
    return true;
}

std::string digits(BytesView packed)
{
    std::string text = toHex(packed);
    std::erase(text, ' ');
    return text.substr(0, text.find('F'));
}

bool checkDigitFits(const std::string &number)
{
    int sum = 0;
    for (std::size_t i = 0; i < number.size(); ++i) {
        int digit = number[number.size() - 1 - i] - '0';
        if (i % 2 == 1)
            digit = digit > 4 ? 2 * digit - 9 : 2 * digit;
        sum += digit;
    }
    return sum % 10 == 0;
}

class Terminal {
  public:
    explicit Terminal(const std::string &file) : card_(load(file), file)
    {
        EXPECT_EQ(card_.powerOn().kind, CardAnswer::Kind::bytes);
    }

    // Data of a command that must succeed.
    Bytes ask(const std::string &command)
    {
        Bytes data = exchange(command);
        EXPECT_GE(data.size(), 2U) << command;
        EXPECT_EQ(toHex(BytesView(data).last(2)), "90 00") << command;
        data.resize(data.size() - 2);
        return data;
    }

    Objects objects(const std::string &command)
    {
        Objects found;
        EXPECT_TRUE(walk(ask(command), found)) << command;
        return found;
    }

    std::string answer(const std::string &command) { return toHex(exchange(command)); }

  private:
    Bytes exchange(const std::string &command) { return card_.transmit(*fromHex(command)).bytes; }

    ScriptCard card_;
};

TEST(ShippedCards, TheMagneticCardHasThreeTracksOfTheSameAccount)
{
    const StripeCardResult result = readStripeFile(kCards + std::string("demo.stripe"));
    ASSERT_TRUE(std::holds_alternative<StripeCard>(result)) << std::get<std::string>(result);
    const StripeCard &card = std::get<StripeCard>(result);
    EXPECT_EQ(card.name, "demo card");
    EXPECT_EQ(card.tracks[0], (StripeTrack{"B6225000011112222^DEMO/CARD^29120000", StripeFormat::iso}));
    EXPECT_EQ(card.tracks[1], (StripeTrack{"6225000011112222=29120000", StripeFormat::iso}));
    EXPECT_EQ(card.tracks[2], (StripeTrack{"996225000011112222=156", StripeFormat::iso}));
}

TEST(ShippedCards, AllOfThemLoad)
{
    for (const char *name : {"debit-credit.card", "purse.card", "follow-up.card"}) {
        const CardScript script = load(name);
        EXPECT_TRUE(script.parts.at(0).atr) << name;
        EXPECT_FALSE(script.parts[0].commands.empty()) << name;
        EXPECT_FALSE(script.name.empty()) << name;
    }
    EXPECT_FALSE(load("mute.card").parts.at(0).atr);
}

TEST(ShippedCards, HistoricalBytesOfTheAtrsAreCounted)
{
    for (const char *name : {"debit-credit.card", "purse.card", "follow-up.card"}) {
        const Bytes atr = load(name).parts.at(0).atr.value_or(Bytes(2));
        // T0 = 68: TB1 and TC1 follow, then 8 historical bytes; T=0 alone has no check byte.
        EXPECT_EQ(toHex(BytesView(atr).first(2)), "3B 68") << name;
        EXPECT_EQ(atr.size(), 2U + 2U + 8U) << name;
    }
}

TEST(ShippedCards, EveryTemplateOfTheDebitCreditCardHasItsLength)
{
    unsigned templates = 0;
    const CardScript script = load("debit-credit.card");
    for (const ScriptedCommand &command : script.parts.at(0).commands)
        for (const ScriptReply &reply : command.replies) {
            const Bytes data = reply.bytes.value_or(Bytes{});
            if (data.size() <= 2 || (data[0] != 0x6F && data[0] != 0x70 && data[0] != 0x80 && data[0] != 0x9F))
                continue;
            Objects found;
            EXPECT_TRUE(walk(BytesView(data).first(data.size() - 2), found)) << "line " << command.line;
            ++templates;
        }
    EXPECT_EQ(templates, 21U);
}

TEST(ShippedCards, ATerminalReadsTheDebitCreditCard)
{
    Terminal terminal("debit-credit.card");
    Objects data = terminal.objects("00 A4 04 00 0E 315041592E5359532E4444463031 00");
    EXPECT_EQ(toHex(data[0x88]), "01");
    data = terminal.objects("00 B2 01 0C 00");
    EXPECT_EQ(toHex(data[0x4F]), "A0 00 00 03 33 01 01 01");
    EXPECT_EQ(terminal.answer("00 B2 02 0C 00"), "6A 83");
    data = terminal.objects("00 A4 04 00 0E 325041592E5359532E4444463031 00");
    EXPECT_EQ(toHex(data[0x4F]), "A0 00 00 03 33 01 01 01");
    EXPECT_EQ(terminal.answer("00 A4 04 02 08 A000000333010101 00"), "6A 82");
    EXPECT_EQ(terminal.answer("00 A4 04 00 07 A0000000031010 00"), "6A 82");
    data = terminal.objects("00 A4 04 00 08 A000000333010101 00");
    EXPECT_EQ(toHex(data[0x84]), "A0 00 00 03 33 01 01 01");

    data = terminal.objects("80 A8 00 00 0B 8309 00 000000000100 0156 00");
    const Bytes options = data[0x80];
    ASSERT_EQ(options.size() % 4, 2U);
    Objects all;
    for (std::size_t at = 2; at < options.size(); at += 4)
        for (unsigned record = options[at + 1]; record <= options[at + 2]; ++record) {
            const Bytes command{0x00, 0xB2, static_cast<std::uint8_t>(record),
                                static_cast<std::uint8_t>(options[at] | 0x04), 0x00};
            all.merge(terminal.objects(toHex(command)));
        }
    for (const unsigned tag : {0x57U, 0x5AU, 0x5F20U, 0x5F24U, 0x5F25U, 0x5F28U, 0x5F34U, 0x8CU, 0x8DU, 0x8EU, 0x9F07U,
                               0x9F08U, 0x9F0DU, 0x9F0EU, 0x9F0FU, 0x9F61U, 0x9F62U})
        EXPECT_TRUE(all.contains(tag)) << std::hex << tag;
    const std::string number = digits(all[0x5A]);
    EXPECT_EQ(number.size(), 19U);
    EXPECT_TRUE(number.starts_with("62"));
    EXPECT_TRUE(checkDigitFits(number)) << number;
    EXPECT_TRUE(digits(all[0x57]).starts_with(number + "D3512201")) << "track 2 tells the same card";

    const Bytes cryptogram = terminal.objects("80 AE 80 00 01 00 00")[0x80];
    ASSERT_EQ(cryptogram.size(), 30U);
    EXPECT_EQ(cryptogram[0], 0x80);
    EXPECT_EQ(cryptogram[11], 0x07) << "length of the issuer's part";
    EXPECT_EQ(terminal.objects("80 AE 40 00 01 00 00")[0x80][0], 0x40);
    EXPECT_EQ(terminal.objects("80 AE 00 00 01 00 00")[0x80][0], 0x00);
}

TEST(ShippedCards, TheLogOfTheDebitCreditCardHasTheLengthOfItsFormat)
{
    Terminal terminal("debit-credit.card");
    const Bytes format = terminal.objects("80 CA 9F 4F 00")[0x9F4F];
    std::size_t length = 0;
    for (std::size_t at = 0; at < format.size();) {
        at += (format[at] & 0x1F) == 0x1F ? 2 : 1;
        ASSERT_LT(at, format.size());
        length += format[at++];
    }
    EXPECT_EQ(terminal.ask("00 B2 01 5C 00").size(), length);
    EXPECT_EQ(terminal.ask("00 B2 02 5C 00").size(), length);
    EXPECT_EQ(terminal.answer("00 B2 03 5C 00"), "6A 83");
}

TEST(ShippedCards, ChallengesDiffer)
{
    Terminal terminal("debit-credit.card");
    const Bytes first = terminal.ask("00 84 00 00 08");
    EXPECT_EQ(first.size(), 8U);
    EXPECT_NE(first, terminal.ask("00 84 00 00 08"));
}

TEST(ShippedCards, ThePurseIsLoadedUnloadedAndSpent)
{
    Terminal purse("purse.card");
    const std::string data = " 0B 01 00002710 112233445566";
    Objects control;
    EXPECT_TRUE(walk(purse.ask("00 A4 04 00 09 515650555253452E31 00"), control));
    EXPECT_TRUE(checkDigitFits(digits(BytesView(purse.ask("00 B0 95 00 00")).first(8))));
    EXPECT_EQ(toHex(purse.ask("80 5C 00 01 04")), "00 00 27 10");
    EXPECT_EQ(purse.answer("80 52 00 00" + data + " 04"), "69 01") << "not initialised";
    EXPECT_EQ(purse.ask("80 50 00 01" + data + " 10").size(), 0x10U);
    EXPECT_EQ(purse.ask("80 52 00 00" + data + " 04").size(), 4U);
    EXPECT_EQ(toHex(purse.ask("80 5C 00 01 04")), "00 00 4E 20");
    EXPECT_EQ(purse.ask("80 50 00 02" + data + " 10").size(), 0x10U);
    EXPECT_EQ(toHex(purse.ask("80 52 00 00" + data + " 04")), "83 2C 59 E6") << "of the purse, not the deposit";
    EXPECT_EQ(purse.ask("80 50 05 01" + data + " 10").size(), 0x10U);
    EXPECT_EQ(purse.ask("80 54 03 00" + data + " 04").size(), 4U);
    EXPECT_EQ(purse.ask("80 50 01 02" + data + " 0F").size(), 0x0FU);
    EXPECT_EQ(purse.ask("80 54 01 00 0F 00112233445566778899AABBCCDDEE 08").size(), 8U);
    EXPECT_EQ(toHex(purse.ask("80 5C 00 02 04")), "00 00 0F A0");
}

TEST(ShippedCards, TheFollowUpCardAsksForAnotherCommand)
{
    Terminal card("follow-up.card");
    const struct {
        const char *command;
        const char *answer;
    } rows[] = {
        {"00 A4 04 00 02 3F 00 00", "61 1A"},
        {"00 C0 00 00 1B", "61 05"},
        {"00 C0 00 00 05", "30 31 32 33 34 90 00"},
        {"00 A4 08 00 02 3F 00 00", "62 83"},
        {"00 C0 00 00 00", "44 45 41 43 54 49 56 41 54 45 44 90 00"},
        {"00 B2 01 0C 00", "6C 10"},
        {"00 B2 01 0C 10", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 90 00"},
        {"80 A8 00 00 02 83 00 00", "6C 08"},
        {"00 CA 04 00 00", "01 02 03 61 04"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(card.answer(row.command), row.answer) << row.command;
    EXPECT_EQ(card.ask("00 C0 00 00 1A").size(), 0x1AU);
    EXPECT_EQ(card.ask("80 A8 00 00 08").size(), 0x08U);
}

TEST(CardFiles, WhatIsNoCardFileIsRefusedAtOnce)
{
    const auto refusal = [](const std::string &path) {
        const CardScriptResult result = readCardFile(path);
        const std::string *const wrong = std::get_if<std::string>(&result);
        return wrong == nullptr ? std::string("accepted") : *wrong;
    };
    EXPECT_EQ(refusal("/nowhere/x.card"), "/nowhere/x.card: No such file or directory");
    EXPECT_EQ(refusal("/"), "/: no regular file");
    EXPECT_EQ(refusal("/dev/zero"), "/dev/zero: no regular file");
    const std::string path = testing::TempDir() + "qvsim-large.card";
    std::ofstream(path) << std::string(10 * 1024 * 1024, 'x');
    EXPECT_EQ(refusal(path), path + ": larger than a card file may be (1 MiB)");
    std::remove(path.c_str());
}

} // namespace
} // namespace qvsim
