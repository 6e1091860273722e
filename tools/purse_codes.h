// purse_codes.h - what the issuer and the bank compute for an electronic deposit or purse (JR/T 0025.1 and .2, 2005):
// session keys and message authentication codes, with DES and triple DES (FIPS 46-3).
//
// All functions throw std::runtime_error where the system's OpenSSL has no triple DES.
#pragma once

#include "hex.h"

#include <array>

namespace qvtool {

using CipherKey = std::array<uint8_t, 16>; // left half, right half
using SessionKey = std::array<uint8_t, 8>;
using Mac = std::array<uint8_t, 4>;

// Triple DES of one block: left half, right half, left half.
SessionKey sessionKey(const CipherKey &key, const std::array<uint8_t, 8> &block);

// Left half XOR right half: makes the transaction authorisation code (TAC).
SessionKey tacKey(const CipherKey &key);

// DES in CBC mode, initial value 0, the data filled up with 80 00 ..; the left four bytes of the last block.
Mac macOf(const SessionKey &key, BytesView data);

} // namespace qvtool
