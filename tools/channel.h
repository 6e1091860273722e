// channel.h - opening and closing the reader through the library, whichever way leads to it.
#pragma once

#include "options.h"
#include "port.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qvtool {

// Looks whether the port can be used, before the library opens it. The reason, in words, when it cannot.
std::optional<std::string> claimChannel(const Options &options, Port &port);

// 0 or the library's code. Behind a code that is not 0 the port may be open: close it.
int32_t openChannel(const Options &options, Port &port);
// Why that failed, where it is to be seen: "... is busy: ..."; empty: it is not.
std::string openTrouble(const Options &options);
// The same in any case, behind the port's name.
std::string openFailure(const Options &options, int32_t nResult);
void closeChannel(const Options &options);

// Asks for a sign of life; opens and closes the reader by itself. 0 it answered; -54 not sent; -55 no answer, or none
// that is a frame; what openChannel gives.
int32_t askForLife(const Options &options, Port &port, int nBaud);

// Puts things right when the process ends in the middle of a library call: safe from any thread.
void abandonChannel(const Options &options, const Port &port);

// Behind "no answer": what may be the matter.
std::string silenceHint(const Options &options);

// "at 9600 bit/s", "over USB".
std::string speedText(const Options &options, int nBaud);

// True when standard error is the same terminal as the one that leads to the reader.
bool sharesTerminal(const Options &options);

} // namespace qvtool
