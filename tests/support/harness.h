// harness.h - what the test programs share: the library's own directory, its INI and log file, bytes as text.
//
// The library keeps INI and log beside its own file, so every test program works on a private copy of it: main()
// (test_main.cpp) copies the library into a new folder, starts itself again with that copy and removes the folder at
// the end.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

using Bytes = std::vector<uint8_t>;

// "02 30 ff" or "0230FF" -> bytes. Throws std::invalid_argument on anything else.
Bytes bytes(std::string_view sHex);
// Bytes -> "02 30 FF".
std::string hex(std::span<const uint8_t> data);
inline std::string hex(const void *pData, size_t nLen)
{
    return hex(std::span(static_cast<const uint8_t *>(pData), nLen));
}
// The bytes of a text.
Bytes textBytes(std::string_view sText);

// The folder of this program's private copy of the library, without a trailing slash.
std::string libraryDirectory();

// Writes the text as QVConfig.ini beside the library / removes that file.
void writeIni(std::string_view sText);
void removeIni();

// Switches logging on into a fresh file / off. The file is <library directory>/test.log.
void logOn();
void logOff();

// The raw log since logOn(), and with its heads (version, time and labels) cut off: one entry a line that the library
// wrote, empty lines left out. A typed line's text starts behind its labels; a hex dump reads "title  LEN=2   HEX: 9000".
std::string rawLog();
std::vector<std::string> logTexts();
// The raw log with every time stamp written as "T".
std::string logWithoutTime();
// The first line of the raw log that holds this text, with its CR; empty when there is none.
std::string logLine(const std::string &sText);

std::string readFile(const std::string &sPath);
void writeFile(const std::string &sPath, std::string_view sText);

// Number of open file descriptors of this process.
int openDescriptors();

} // namespace qvtest
