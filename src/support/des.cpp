// des.cpp - DES and triple DES (FIPS 46-3) on blocks of 8 bytes, electronic code book.
//
// Both halves of a block are kept rotated right by 3 bits. So the six bits that expansion gives to the odd S-boxes
// stand in the low bits of the four bytes, and those of the even ones do after a rotation by 4. A round key lies the
// same way: 64 bits, the odd boxes' halves of it first. S-box and permutation P are one look-up.
//
// Round keys live on the stack and are wiped.

#include "qvreader/support.h"

#include "big_endian.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

namespace {

constexpr size_t nBlock = 8;
constexpr size_t nRounds = 16;
constexpr size_t nKeyPart = 8;    // bytes of one DES key
constexpr unsigned nHalfKey = 28; // bits
constexpr unsigned nKept = 3;     // bits by which the halves are kept rotated

// The standard's tables count bits from 1, the leftmost.
constexpr std::array<uint8_t, 56> aPermutedChoice1{
    57, 49, 41, 33, 25, 17, 9,  1, 58, 50, 42, 34, 26, 18, 10, 2, 59, 51, 43, 35, 27, 19, 11, 3, 60, 52, 44, 36,
    63, 55, 47, 39, 31, 23, 15, 7, 62, 54, 46, 38, 30, 22, 14, 6, 61, 53, 45, 37, 29, 21, 13, 5, 28, 20, 12, 4};
constexpr std::array<uint8_t, 48> aPermutedChoice2{14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,
                                                   26, 8,  16, 7,  27, 20, 13, 2,  41, 52, 31, 37, 47, 55, 30, 40,
                                                   51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};
constexpr std::array<uint8_t, nRounds> aShifts{1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};
constexpr std::array<uint8_t, 32> aPermutationP{16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                                                2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};
// clang-format off
constexpr std::array<std::array<uint8_t, 64>, 8> aSBox{{
    {14,  4, 13,  1,  2, 15, 11,  8,  3, 10,  6, 12,  5,  9,  0,  7,
      0, 15,  7,  4, 14,  2, 13,  1, 10,  6, 12, 11,  9,  5,  3,  8,
      4,  1, 14,  8, 13,  6,  2, 11, 15, 12,  9,  7,  3, 10,  5,  0,
     15, 12,  8,  2,  4,  9,  1,  7,  5, 11,  3, 14, 10,  0,  6, 13},
    {15,  1,  8, 14,  6, 11,  3,  4,  9,  7,  2, 13, 12,  0,  5, 10,
      3, 13,  4,  7, 15,  2,  8, 14, 12,  0,  1, 10,  6,  9, 11,  5,
      0, 14,  7, 11, 10,  4, 13,  1,  5,  8, 12,  6,  9,  3,  2, 15,
     13,  8, 10,  1,  3, 15,  4,  2, 11,  6,  7, 12,  0,  5, 14,  9},
    {10,  0,  9, 14,  6,  3, 15,  5,  1, 13, 12,  7, 11,  4,  2,  8,
     13,  7,  0,  9,  3,  4,  6, 10,  2,  8,  5, 14, 12, 11, 15,  1,
     13,  6,  4,  9,  8, 15,  3,  0, 11,  1,  2, 12,  5, 10, 14,  7,
      1, 10, 13,  0,  6,  9,  8,  7,  4, 15, 14,  3, 11,  5,  2, 12},
    { 7, 13, 14,  3,  0,  6,  9, 10,  1,  2,  8,  5, 11, 12,  4, 15,
     13,  8, 11,  5,  6, 15,  0,  3,  4,  7,  2, 12,  1, 10, 14,  9,
     10,  6,  9,  0, 12, 11,  7, 13, 15,  1,  3, 14,  5,  2,  8,  4,
      3, 15,  0,  6, 10,  1, 13,  8,  9,  4,  5, 11, 12,  7,  2, 14},
    { 2, 12,  4,  1,  7, 10, 11,  6,  8,  5,  3, 15, 13,  0, 14,  9,
     14, 11,  2, 12,  4,  7, 13,  1,  5,  0, 15, 10,  3,  9,  8,  6,
      4,  2,  1, 11, 10, 13,  7,  8, 15,  9, 12,  5,  6,  3,  0, 14,
     11,  8, 12,  7,  1, 14,  2, 13,  6, 15,  0,  9, 10,  4,  5,  3},
    {12,  1, 10, 15,  9,  2,  6,  8,  0, 13,  3,  4, 14,  7,  5, 11,
     10, 15,  4,  2,  7, 12,  9,  5,  6,  1, 13, 14,  0, 11,  3,  8,
      9, 14, 15,  5,  2,  8, 12,  3,  7,  0,  4, 10,  1, 13, 11,  6,
      4,  3,  2, 12,  9,  5, 15, 10, 11, 14,  1,  7,  6,  0,  8, 13},
    { 4, 11,  2, 14, 15,  0,  8, 13,  3, 12,  9,  7,  5, 10,  6,  1,
     13,  0, 11,  7,  4,  9,  1, 10, 14,  3,  5, 12,  2, 15,  8,  6,
      1,  4, 11, 13, 12,  3,  7, 14, 10, 15,  6,  8,  0,  5,  9,  2,
      6, 11, 13,  8,  1,  4, 10,  7,  9,  5,  0, 15, 14,  2,  3, 12},
    {13,  2,  8,  4,  6, 15, 11,  1, 10,  9,  3, 14,  5,  0, 12,  7,
      1, 15, 13,  8, 10,  3,  7,  4, 12,  5,  6, 11,  0, 14,  9,  2,
      7, 11,  4,  1,  9, 12, 14,  2,  0,  6, 10, 13, 15,  3,  5,  8,
      2,  1, 14,  7,  4, 10,  8, 13, 15, 12,  9,  0,  3,  5,  6, 11},
}};
// clang-format on

// S-box and permutation P of each box, for its six bits as they come out of the expansion.
constexpr auto aSubstitute = [] {
    std::array<std::array<uint32_t, 64>, 8> aTables{};
    for (size_t nBox = 0; nBox < 8; ++nBox)
        for (unsigned nBits = 0; nBits < 64; ++nBits) {
            const unsigned nRow = (nBits >> 4 & 2) | (nBits & 1);
            const unsigned nColumn = nBits >> 1 & 15;
            const uint32_t nOut = uint32_t{aSBox[nBox][nRow * 16 + nColumn]} << (28 - 4 * nBox);
            uint32_t nPermuted = 0;
            for (size_t i = 0; i < 32; ++i)
                nPermuted = nPermuted << 1 | (nOut >> (32 - aPermutationP[i]) & 1);
            aTables[nBox][nBits] = std::rotr(nPermuted, nKept);
        }
    return aTables;
}();

using SevenBits = std::array<uint64_t, 128>; // what seven bits become, by their value

// A permutation of all values, from that of the single bits.
template <typename Permute> constexpr SevenBits permuted(Permute permute) noexcept
{
    SevenBits table{};
    for (unsigned nBits = 1; nBits < table.size(); ++nBits) {
        const unsigned nLowest = nBits & (~nBits + 1);
        table[nBits] = nBits == nLowest ? permute(nBits) : table[nBits ^ nLowest] | table[nLowest];
    }
    return table;
}

// What the upper seven bits of each key byte (the lowest is parity) become in permuted choice 1: 28 bits, 28 bits.
constexpr auto aChoose1 = [] {
    std::array<SevenBits, nKeyPart> aTables{};
    for (size_t nByte = 0; nByte < nKeyPart; ++nByte)
        aTables[nByte] = permuted([nByte](unsigned nBits) {
            const uint64_t nKey = uint64_t{nBits} << 1 << (56 - 8 * nByte);
            uint64_t nOut = 0;
            for (const uint8_t nFrom : aPermutedChoice1)
                nOut = nOut << 1 | (nKey >> (64 - nFrom) & 1);
            return nOut;
        });
    return aTables;
}();

// What seven neighbouring bits of the two halves become in permuted choice 2, in the layout of a round key.
constexpr auto aChoose2 = [] {
    std::array<SevenBits, 8> aTables{};
    for (size_t nGroup = 0; nGroup < 8; ++nGroup)
        aTables[nGroup] = permuted([nGroup](unsigned nBits) {
            const uint64_t nHalves = uint64_t{nBits} << (49 - 7 * nGroup);
            uint64_t nOut = 0;
            for (size_t i = 0; i < 48; ++i) {
                const size_t nBox = i / 6;
                const size_t nPlace = (nBox % 2 == 0 ? 56 : 24) - 8 * (nBox / 2) + 5 - i % 6;
                nOut |= (nHalves >> (56 - aPermutedChoice2[i]) & 1) << nPlace;
            }
            return nOut;
        });
    return aTables;
}();

using RoundKeys = std::array<uint64_t, nRounds>;

enum class Direction { Encrypt, Decrypt };

constexpr Direction opposite(Direction direction) noexcept
{
    return direction == Direction::Encrypt ? Direction::Decrypt : Direction::Encrypt;
}

constexpr uint32_t rotateHalfKey(uint32_t nHalf, unsigned nBy) noexcept
{
    return (nHalf << nBy | nHalf >> (nHalfKey - nBy)) & ((1U << nHalfKey) - 1);
}

// The round keys in the order in which they are used.
void schedule(const uint8_t *pKey, Direction direction, RoundKeys &keys) noexcept
{
    uint64_t nHalves = 0;
    for (size_t i = 0; i < nKeyPart; ++i)
        nHalves |= aChoose1[i][pKey[i] >> 1];
    auto c = static_cast<uint32_t>(nHalves >> nHalfKey);
    auto d = static_cast<uint32_t>(nHalves & ((1U << nHalfKey) - 1));
    for (size_t i = 0; i < nRounds; ++i) {
        c = rotateHalfKey(c, aShifts[i]);
        d = rotateHalfKey(d, aShifts[i]);
        keys[direction == Direction::Encrypt ? i : nRounds - 1 - i] =
            aChoose2[0][c >> 21] | aChoose2[1][c >> 14 & 127] | aChoose2[2][c >> 7 & 127] | aChoose2[3][c & 127] |
            aChoose2[4][d >> 21] | aChoose2[5][d >> 14 & 127] | aChoose2[6][d >> 7 & 127] | aChoose2[7][d & 127];
    }
}

struct Halves {
    uint32_t l, r;
};

// Swaps the bits of a that nMask << nBy selects with those of b that nMask selects.
void swapBits(uint32_t &a, uint32_t &b, unsigned nBy, uint32_t nMask) noexcept
{
    const uint32_t nDiffer = (a >> nBy ^ b) & nMask;
    b ^= nDiffer;
    a ^= nDiffer << nBy;
}

Halves initialPermutation(const uint8_t *pBlock) noexcept
{
    uint32_t l = qv::loadBigEndian(pBlock), r = qv::loadBigEndian(pBlock + 4);
    swapBits(l, r, 4, 0x0F0F0F0F);
    swapBits(l, r, 16, 0x0000FFFF);
    swapBits(r, l, 2, 0x33333333);
    swapBits(r, l, 8, 0x00FF00FF);
    swapBits(l, r, 1, 0x55555555);
    return {std::rotr(l, nKept), std::rotr(r, nKept)};
}

void finalPermutation(Halves halves, uint8_t *pBlock) noexcept
{
    uint32_t l = std::rotl(halves.l, nKept), r = std::rotl(halves.r, nKept);
    swapBits(l, r, 1, 0x55555555);
    swapBits(r, l, 8, 0x00FF00FF);
    swapBits(r, l, 2, 0x33333333);
    swapBits(l, r, 16, 0x0000FFFF);
    swapBits(l, r, 4, 0x0F0F0F0F);
    qv::storeBigEndian(l, pBlock);
    qv::storeBigEndian(r, pBlock + 4);
}

uint32_t roundFunction(uint32_t nHalf, uint64_t nKey) noexcept
{
    const uint32_t nOdd = nHalf ^ static_cast<uint32_t>(nKey >> 32);
    const uint32_t nEven = std::rotl(nHalf, 4) ^ static_cast<uint32_t>(nKey);
    return aSubstitute[0][nOdd >> 24 & 63] ^ aSubstitute[1][nEven >> 24 & 63] ^ aSubstitute[2][nOdd >> 16 & 63] ^
           aSubstitute[3][nEven >> 16 & 63] ^ aSubstitute[4][nOdd >> 8 & 63] ^ aSubstitute[5][nEven >> 8 & 63] ^
           aSubstitute[6][nOdd & 63] ^ aSubstitute[7][nEven & 63];
}

// Sixteen rounds; the halves come out exchanged, as the standard has it.
Halves rounds(Halves halves, const RoundKeys &keys) noexcept
{
    for (size_t i = 0; i < nRounds; i += 2) {
        halves.l ^= roundFunction(halves.r, keys[i]);
        halves.r ^= roundFunction(halves.l, keys[i + 1]);
    }
    return {halves.r, halves.l};
}

// A key of 8, 16 or 24 bytes, ready for one direction.
class Cipher {
  public:
    // False in the boolean sense for any other length.
    Cipher(const uint8_t *pKey, int32_t nKeyLen, Direction direction) noexcept
    {
        switch (nKeyLen) {
        case 8: schedule(pKey, direction, m_keys[0]); break;
        case 16:
            schedule(pKey, direction, m_keys[0]);
            schedule(pKey + nKeyPart, opposite(direction), m_keys[1]);
            m_nThird = 0;
            break;
        case 24: {
            const bool bFirst = direction == Direction::Encrypt;
            schedule(pKey + (bFirst ? 0 : 2 * nKeyPart), direction, m_keys[0]);
            schedule(pKey + nKeyPart, opposite(direction), m_keys[1]);
            schedule(pKey + (bFirst ? 2 * nKeyPart : 0), direction, m_keys[2]);
            m_nThird = 2;
            break;
        }
        default: return;
        }
        m_nParts = static_cast<size_t>(nKeyLen) / nKeyPart;
    }
    ~Cipher() { explicit_bzero(m_keys.data(), m_nParts * sizeof m_keys[0]); }
    Cipher(const Cipher &) = delete;
    Cipher &operator=(const Cipher &) = delete;

    explicit operator bool() const noexcept { return m_nParts != 0; }

    void block(const uint8_t *pIn, uint8_t *pOut) const noexcept
    {
        Halves halves = rounds(initialPermutation(pIn), m_keys[0]);
        if (m_nParts > 1)
            halves = rounds(rounds(halves, m_keys[1]), m_keys[m_nThird]);
        finalPermutation(halves, pOut);
    }

  private:
    std::array<RoundKeys, 3> m_keys; // only those of m_nParts are filled
    size_t m_nParts = 0;
    size_t m_nThird = 0;
};

void oneBlock(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut, Direction direction) noexcept
{
    if (pKey == nullptr || pIn == nullptr || pOut == nullptr)
        return;
    if (const Cipher cipher(pKey, nKeyLen, direction); cipher)
        cipher.block(pIn, pOut);
}

// Every block that has begun within nLen bytes, the last one whole. How many bytes that is, as far as a result can
// tell. The key is read anew for each block: the output may lie over it.
int32_t allBlocks(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen, uint8_t *pOut,
                  Direction direction) noexcept
{
    const size_t nBytes = nLen <= 0 ? 0 : (static_cast<size_t>(nLen) + nBlock - 1) / nBlock * nBlock;
    for (size_t nAt = 0; nAt < nBytes; nAt += nBlock)
        oneBlock(pKey, nKeyLen, pIn + nAt, pOut + nAt, direction);
    constexpr size_t nCountMax = INT32_MAX / nBlock * nBlock;
    return static_cast<int32_t>(std::min(nBytes, nCountMax));
}

bool anyNull(const void *p1, const void *p2, const void *p3) noexcept
{
    return p1 == nullptr || p2 == nullptr || p3 == nullptr;
}

} // namespace

void EnDES(const uint8_t *pKey, const uint8_t *pIn, uint8_t *pOut) noexcept
{
    oneBlock(pKey, nKeyPart, pIn, pOut, Direction::Encrypt);
}

void DeDES(const uint8_t *pKey, const uint8_t *pIn, uint8_t *pOut) noexcept
{
    oneBlock(pKey, nKeyPart, pIn, pOut, Direction::Decrypt);
}

void EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut) noexcept
{
    oneBlock(pKey, nKeyLen, pIn, pOut, Direction::Encrypt);
}

void DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut) noexcept
{
    oneBlock(pKey, nKeyLen, pIn, pOut, Direction::Decrypt);
}

int32_t EncryptDES_HEX(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, char *pText) noexcept
{
    if (anyNull(pKey, pIn, pText))
        return RET_PUB_INVAL_PARAM;
    std::array<uint8_t, nBlock> cipherText{};
    EncryptDES_BYTE(pKey, nKeyLen, pIn, cipherText.data());
    // The text ends before the block's first zero byte.
    const void *pZero = std::memchr(cipherText.data(), 0, cipherText.size());
    const auto nLen = pZero == nullptr ? cipherText.size()
                                       : static_cast<size_t>(static_cast<const uint8_t *>(pZero) - cipherText.data());
    ByteToHex(cipherText.data(), static_cast<int32_t>(nLen), pText);
    return 0;
}

int32_t DecryptDES_HEX(const uint8_t *pKey, int32_t nKeyLen, const char *pszText, uint8_t *pOut) noexcept
{
    if (pKey == nullptr || pOut == nullptr)
        return RET_PUB_INVAL_PARAM;
    // HexToByte converts nothing: whatever the text, a block of zeros is deciphered.
    std::array<uint8_t, nBlock> block{};
    HexToByte(pszText, static_cast<int32_t>(block.size()), block.data());
    DecryptDES_BYTE(pKey, nKeyLen, block.data(), pOut);
    return 0;
}

int32_t QV_EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                           uint8_t *pOut) noexcept
{
    if (anyNull(pKey, pIn, pOut))
        return RET_PUB_INVAL_PARAM;
    allBlocks(pKey, nKeyLen, pIn, nLen, pOut, Direction::Encrypt);
    return 0;
}

int32_t QV_DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                           uint8_t *pOut) noexcept
{
    if (anyNull(pKey, pIn, pOut))
        return 0;
    return allBlocks(pKey, nKeyLen, pIn, nLen, pOut, Direction::Decrypt);
}

void QV_TY_EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                           uint8_t *pOut) noexcept
{
    QV_EncryptDES_BYTE(pKey, nKeyLen, pIn, nLen, pOut);
}

void QV_TY_DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                           uint8_t *pOut) noexcept
{
    QV_DecryptDES_BYTE(pKey, nKeyLen, pIn, nLen, pOut);
}

int32_t ByteToHex(const uint8_t *pData, int32_t nLen, char *pText) noexcept
{
    if (pData == nullptr || pText == nullptr)
        return 0;
    constexpr char szDigits[] = "0123456789ABCDEF";
    char *pEnd = pText;
    for (int32_t i = 0; i < nLen; ++i) {
        *pEnd++ = szDigits[pData[i] >> 4];
        *pEnd++ = szDigits[pData[i] & 15];
    }
    return static_cast<int32_t>(pEnd - pText);
}

int32_t HexToByte(const char *, int32_t, uint8_t *) noexcept
{
    return 0;
}
