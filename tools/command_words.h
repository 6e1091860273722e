// command_words.h - what the data of a frame mean: the commands of the reader, and what some of its answers hold.
#pragma once

#include "hex.h"

#include <string>

namespace qvtool {

constexpr uint8_t ucCardHead = 0x02;       // commands for cards, and the sign of life
constexpr uint8_t ucPeripheralHead = 0x01; // commands for what else is in the reader

// data: of a frame that begins with ucHead. A command that is not known there is shown as data.
std::string commandWords(uint8_t ucHead, BytesView data);

// What the body of the answer to a command tells beyond its bytes; empty: nothing. asked: the command's data.
std::string bodyWords(uint8_t ucHead, BytesView asked, BytesView body);

} // namespace qvtool
