// What purse cards and PSAMs have in common beside cryptography: one application that is found by its name, and short
// files of plain bytes (ISO 7816-4).
#pragma once

#include "model/chip_command.h"

#include <vector>

namespace qvsim {

constexpr std::uint8_t kShortFileBit = 0x80; // in P1: the low five bits are a short file identifier
constexpr std::uint8_t kShortFileMask = 0x1F;

struct ShortFile {
    std::uint8_t identifier;
    Bytes content;
};

// The file that P1 names, or null.
const ShortFile *findShortFile(const std::vector<ShortFile> &files, const ChipCommand &command);

// READ BINARY of a short file: as much as Le says, the rest of the file when it says nothing.
Bytes readShortFile(const std::vector<ShortFile> &files, const ChipCommand &command);

// SELECT: the application by its name or the beginning of it, answered with its file control information; the master
// file by its identifier 3F00, answered with a status alone. `discretionary` are the issuer's data in that information.
Bytes selectApplication(const ChipCommand &command, BytesView name, BytesView discretionary);

} // namespace qvsim
