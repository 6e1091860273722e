// Test help: an electronic purse card and a PSAM that fit each other, with a random number that is always the same.
#pragma once

#include "model/psam_card.h"
#include "model/purse_card.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace qvsim::test {

// Random number C0 FF EE 42; deposit 1000.00, purse 50.00; deposit counters 7 and 2, purse counters 3 and 4.
constexpr char kTestPurse[] = "atr 3B 00\n"
                              "aid 51 56 50 55 52 53 45 2E 31\n"
                              "issuer 51 56 42 41 4E 4B 00 01\n"
                              "serial 0000 6200 0000 1000 0003\n"
                              "valid-from 20250101\n"
                              "valid-until 20351231\n"
                              "pin 123456\n"
                              "deposit-balance 1000.00\n"
                              "deposit-online 7\n"
                              "deposit-offline 2\n"
                              "purse-balance 50.00\n"
                              "purse-limit 1000.00\n"
                              "purse-online 3\n"
                              "purse-offline 4\n"
                              "load-key 01 01 00 4C4F41442D4B45593A64656D6F2D3031\n"
                              "unload-key 01 01 00 554E4C4F41442D4B3A64656D6F2D3032\n"
                              "purchase-master 01 01 00 50555243484153453A64656D6F2D3033\n"
                              "tac-key 5441432D4B45592E3A64656D6F2D3034\n"
                              "random C0 FF EE 42\n";

// Terminal 00 00 00 00 20 26, next transaction 41.
constexpr char kTestPsam[] = "atr 3B 01\n"
                             "aid 51 56 50 53 41 4D 2E 31\n"
                             "terminal 00 00 00 00 20 26\n"
                             "serial 0000 7000 0000 0000 0012\n"
                             "transaction 41\n"
                             "purchase-master 01 00 50555243484153453A64656D6F2D3033\n";

template <typename Data> Data checked(std::variant<Data, std::string> result)
{
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        throw std::runtime_error(*wrong);
    return std::get<Data>(std::move(result));
}

// The text with the line of `word` replaced; a new line comes at the end.
inline std::string replaceLine(std::string text, const std::string &word, const std::string &line)
{
    text.insert(0, "\n");
    const std::size_t begin = text.find("\n" + word + " ") + 1;
    if (begin == 0)
        text += line + "\n";
    else
        text.replace(begin, text.find('\n', begin) - begin, line);
    return text;
}

inline std::string withLine(const std::string &text, const std::string &line)
{
    return replaceLine(text, line.substr(0, line.find(' ')), line);
}

inline std::string withoutLine(const std::string &text, const std::string &word)
{
    return replaceLine(text, word, "");
}

class PurseTest : public testing::Test {
  protected:
    void load(const std::string &text = kTestPurse)
    {
        card.emplace(checked(parsePurseData(text, "t.purse")), "t", [](std::span<std::uint8_t> bytes) {
            for (std::uint8_t &byte : bytes)
                byte = 0x5A;
        });
        card->powerOn();
    }
    std::string ask(const std::string &command) { return toHex(card->transmit(fromHex(command).value()).bytes); }
    // Verifies the PIN first.
    std::string askWithPin(const std::string &command)
    {
        EXPECT_EQ(ask("00 20 00 00 03 12 34 56"), "90 00");
        return ask(command);
    }
    std::string balances() { return ask("80 5C 00 01 04") + ", " + ask("80 5C 00 02 04"); }

    std::optional<PurseCard> card;
};

constexpr char kBalancesAtStart[] = "00 01 86 A0 90 00, 00 00 13 88 90 00";

// Key 01, the amount, terminal 00 00 00 00 20 26.
inline std::string firstHalf(const std::string &header, const std::string &amount)
{
    return header + " 0B 01 " + amount + " 00 00 00 00 20 26";
}

} // namespace qvsim::test
