// charset.h - texts of the library and of cards are in GBK, JSON is in UTF-8, and a terminal is what its locale says.
#pragma once

#include <optional>
#include <string>

namespace qvtool {

// None: it is not GBK, or this system has no tables for it.
std::optional<std::string> utf8OfGbk(const std::string &sGbk);

// UTF-8 in another character set; "?" for each character that it does not have. As it is when the set is unknown here.
std::string inCharset(const std::string &sUtf8, const char *pszCharset);

// The character set of the user's locale. UTF-8 for the locale C, which says nothing about the terminal.
std::string terminalCharset();

// For lines that are to be read.
std::string forTerminal(const std::string &sUtf8);

} // namespace qvtool
