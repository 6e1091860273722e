// option_values.h - from the words of the command line to numbers and bytes. All throw CLI::ValidationError.
#pragma once

#include "options.h"

#include <string>

namespace qvtool {

// "0", "psam1", "contactless", or a slot code.
int slotCode(const std::string &sText);
Bytes apduBytes(const std::string &sText);
// Decimal, or hexadecimal with 0x.
int smallNumber(const char *pszName, const std::string &sText, int nMost);
// "gg:2", "star:1", "5:1".
AuxPort auxPort(const std::string &sText);
// "0403:BCD5".
UsbId usbIdentity(const std::string &sText);

} // namespace qvtool
