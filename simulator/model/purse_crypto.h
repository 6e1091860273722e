// What electronic purse cards and purchase PSAMs compute (JR/T 0025.1-2005, JR/T 0025.2-2005): keys derived from keys,
// and message authentication codes. The cipher is DES and triple DES (FIPS 46-3), from OpenSSL.
//
// All functions throw std::runtime_error where OpenSSL has no triple DES.
#pragma once

#include "model/bytes.h"

#include <array>

namespace qvsim {

using CipherBlock = std::array<std::uint8_t, 8>;
using CardKey = std::array<std::uint8_t, 16>; // left half, right half
using MacCode = std::array<std::uint8_t, 4>;

// Triple DES of one block: left half, right half, left half.
CipherBlock encipher(const CardKey &key, const CipherBlock &block);

// A card's own key: left half from the card's serial number, right half from its complement.
CardKey diversify(const CardKey &master, const CipherBlock &serial);

// Left half XOR right half: the key of a transaction authorisation code (TAC).
CipherBlock tacKey(const CardKey &key);

// DES in CBC mode (ANSI X9.9; ISO 9797-1, algorithm 1 with padding 2): initial value zero, the data padded with 80 and
// zeroes to whole blocks, the left four bytes of the last block.
MacCode mac(const CipherBlock &key, BytesView data);

} // namespace qvsim
