#include "card_options.h"

#include "amounts.h"
#include "option_values.h"
#include "texts.h"

#include <CLI/CLI.hpp>

#include <array>

namespace qvtool {

namespace {

constexpr size_t nMostName = 16; // bytes of an application's name
constexpr size_t nKey = 16;
constexpr size_t nTerminal = 6;
constexpr int nMostKeyIndex = 0xFF;
constexpr int nFirstPsam = 16;
constexpr int nLastPsam = 31;
constexpr char szDefaultName[] = "515650555253452E31"; // QVPURSE.1
constexpr char szDefaultTerminal[] = "000000000001";

struct ActionRow {
    PurseAction action;
    const char *pszName;
    const char *pszHelp;
    const char *pszExamples; // a line each, behind "qvreader --port PORT purse"
};

constexpr std::array<ActionRow, 4> actionTable{{
    {PurseAction::balance, "balance", "Show the balance of the purse, or of the deposit", "balance\nbalance --deposit"},
    {PurseAction::load, "load",
     "Load money. The tool plays the card's issuer: it checks the card's code (MAC1) and makes the issuer's (MAC2)",
     "load 12.50 --key 4C4F41442D4B45593A64656D6F2D3031 --pin 123456"},
    {PurseAction::buy, "buy", "Pay. The PSAM in another slot makes the terminal's code and checks the card's",
     "buy 2.50\nbuy 2.50 --psam psam1"},
    {PurseAction::log, "log", "Show the card's transaction log, the newest record first", "log"},
}};

[[noreturn]] void refuse(const char *pszOption, const std::string &sText)
{
    throw CLI::ValidationError(pszOption, sText);
}

Bytes hexOption(const char *pszOption, const std::string &sText, size_t nLeast, size_t nMost)
{
    const std::optional<Bytes> bytes = parseHex(sText);
    const std::string sRange =
        nLeast == nMost ? std::to_string(nMost) : std::to_string(nLeast) + " to " + std::to_string(nMost);
    if (!bytes || bytes->size() < nLeast || bytes->size() > nMost)
        refuse(pszOption, "takes " + sRange + " bytes in hexadecimal"); // without the text, which may be a key
    return *bytes;
}

// Two digits a byte, F behind an odd number of them.
Bytes pinBytes(const std::string &sPin)
{
    constexpr size_t nLeast = 4;
    constexpr size_t nMost = 12;
    if (sPin.size() < nLeast || sPin.size() > nMost || sPin.find_first_not_of("0123456789") != sPin.npos)
        refuse("--pin", "takes 4 to 12 digits");
    return *parseHex(sPin.size() % 2 == 0 ? sPin : sPin + "F");
}

uint32_t amount(const std::string &sText)
{
    const std::optional<uint32_t> nCents = parseAmount(sText);
    if (!nCents || *nCents == 0)
        refuse("AMOUNT", "\"" + sText + "\" is no amount: write 12.50, from 0.01 to 42949672.95");
    return *nCents;
}

int psamSlot(const std::string &sText)
{
    int nSlot = -1;
    try {
        nSlot = slotCode(sText);
    } catch (const CLI::ValidationError &) {
        nSlot = -1; // told below
    }
    if (nSlot < nFirstPsam || nSlot > nLastPsam)
        refuse("--psam", sText + " is no PSAM slot: write psam0 to psam15, or 16 to 31");
    return nSlot;
}

std::string footer(const ActionRow &row)
{
    std::string sText = "Examples:\n";
    for (const std::string &sLine : CLI::detail::split(row.pszExamples, '\n'))
        sText += "  qvreader --port /dev/ttyUSB0 purse " + sLine + "\n";
    if (row.action == PurseAction::load)
        sText += "\nKeys and PIN on the command line can be seen by all users of the machine while the tool runs: they "
                 "are for\ntest cards only.\n";
    return sText + "\nqvreader --help shows the options that all commands take (--port, --slot, --timeout, --trace, "
                   "--json and\nothers; they may stand before or behind the command) and the exit codes.\n";
}

void addText(CLI::App *pCommand, const char *pszName, const char *pszType, const char *pszHelp,
             std::function<void(const std::string &)> take)
{
    pCommand->add_option_function<std::string>(pszName, std::move(take), pszHelp)->type_name(pszType);
}

void addMoney(CLI::App *pCommand, PurseOptions &options)
{
    pCommand
        ->add_option_function<std::string>(
            "AMOUNT", [&options](const std::string &sText) { options.nAmount = amount(sText); }, "How much: 12.50")
        ->required();
    addText(pCommand, "--tac-key", "HEX", "Check the card's receipt (TAC) with this key of 16 bytes",
            [&](const std::string &sText) { options.tacKey = hexOption("--tac-key", sText, nKey, nKey); });
    addText(pCommand, "--key-index", "N", "Which of the card's keys: 0 to 255; when left out 1",
            [&](const std::string &sText) {
                options.ucKeyIndex = static_cast<uint8_t>(smallNumber("--key-index", sText, nMostKeyIndex));
            });
}

void addLoad(CLI::App *pCommand, PurseOptions &options)
{
    pCommand
        ->add_option_function<std::string>(
            "--key", [&options](const std::string &sText) { options.key = hexOption("--key", sText, nKey, nKey); },
            "The card's load key, 16 bytes")
        ->type_name("HEX")
        ->required();
    addText(pCommand, "--terminal", "HEX", "The terminal's number, 6 bytes; when left out 000000000001",
            [&](const std::string &sText) { options.terminal = hexOption("--terminal", sText, nTerminal, nTerminal); });
}

void addBuy(CLI::App *pCommand, PurseOptions &options)
{
    addText(pCommand, "--psam", "SLOT", "Where the PSAM is: psam0 to psam15 (codes 16 to 31); when left out psam0",
            [&](const std::string &sText) { options.nPsamSlot = psamSlot(sText); });
    addText(pCommand, "--psam-aid", "HEX", "Select this application on the PSAM first",
            [&](const std::string &sText) { options.psamAid = hexOption("--psam-aid", sText, 1, nMostName); });
}

} // namespace

void addSelectOptions(CLI::App &select, SelectOptions &options)
{
    select
        .add_option_function<std::string>(
            "AID", [&options](const std::string &sText) { options.aid = hexOption("AID", sText, 1, nMostName); },
            "The application's name, or its beginning: 1 to 16 bytes")
        ->required();
    select.add_flag("--next", options.bNext, "Ask for the next application of that name (P2 is 02)");
}

void addPurseOptions(CLI::App &purse, PurseOptions &options)
{
    purse.require_subcommand(1, 1);
    options.aid = *parseHex(szDefaultName);
    options.terminal = *parseHex(szDefaultTerminal);
    for (const ActionRow &row : actionTable) {
        CLI::App *pCommand = purse.add_subcommand(row.pszName, row.pszHelp);
        pCommand->footer(footer(row));
        addText(pCommand, "--aid", "HEX", "The application's name; when left out 515650555253452E31 (QVPURSE.1)",
                [&](const std::string &sText) { options.aid = hexOption("--aid", sText, 1, nMostName); });
        addText(pCommand, "--pin", "DIGITS", "Show the card this PIN first",
                [&](const std::string &sText) { options.pin = pinBytes(sText); });
        if (row.action != PurseAction::log)
            pCommand->add_flag("--deposit", options.bDeposit, "The electronic deposit instead of the purse");
        if (row.action == PurseAction::load || row.action == PurseAction::buy)
            addMoney(pCommand, options);
        if (row.action == PurseAction::load)
            addLoad(pCommand, options);
        if (row.action == PurseAction::buy)
            addBuy(pCommand, options);
    }
}

void settlePurse(const CLI::App &app, Options &options)
{
    const std::string sAction = app.get_subcommands().front()->get_subcommands().front()->get_name();
    for (const ActionRow &row : actionTable)
        if (sAction == row.pszName)
            options.purse.action = row.action;
    if (options.purse.action == PurseAction::buy && options.purse.nPsamSlot == options.nSlot)
        refuse("--psam", "the card is in " + slotText(options.nSlot) + "; the PSAM is in another slot");
}

} // namespace qvtool
