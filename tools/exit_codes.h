// exit_codes.h - how the tool ends. Kept stable for scripts; a cancelled run ends with 128 plus the signal's number.
#pragma once

#include <array>

namespace qvtool {

enum class Exit : int {
    ok = 0,
    cardError = 1,
    usage = 2,
    port = 3,
    noCard = 4,
    noAnswer = 5,
    readerError = 6,
    system = 7,
    checkFailed = 8,
    cancelled = 130, // Ctrl-C; other signals: signalExit()
};

struct ExitRow {
    Exit nCode;
    const char *pszName; // "error"."name" in JSON
    const char *pszHelp;
};

inline constexpr std::array<ExitRow, 10> exitTable{{
    {Exit::ok, "ok", "done; the card's last status word is 9000 or 61xx"},
    {Exit::cardError, "card-error",
     "done, but the card's last status word is another one, its stripe is empty, or TLV data are malformed"},
    {Exit::usage, "usage", "the command line is wrong; nothing was opened"},
    {Exit::port, "port", "the port cannot be opened; the message says why"},
    {Exit::noCard, "no-card", "no card, or it was pulled out on the way"},
    {Exit::noAnswer, "no-answer", "no usable answer came from the reader (silence, rubbish, line gone)"},
    {Exit::readerError, "reader-error", "the reader answered with an error status"},
    {Exit::system, "system", "the system refused what the tool needs (memory, a thread, a file)"},
    {Exit::checkFailed, "check-failed", "what was read back from the stripe differs, or a purse card's code is wrong"},
    {Exit::cancelled, "cancelled", "cancelled by Ctrl-C (143: by SIGTERM, 129: by SIGHUP)"},
}};

constexpr int signalExit(int nSignal)
{
    return 128 + nSignal;
}

} // namespace qvtool
