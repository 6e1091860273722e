// sha1.cpp - SHA-1 (FIPS 180-1), in pieces or in one call.
//
// The message schedule is worked out four words at a time, a few steps before the steps that use it.
//
// Messages may be secrets: what the stack held of one is wiped. A host's record is the host's.

#include "qvreader/support.h"

#include "big_endian.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

namespace {

constexpr size_t nBlock = 64;
constexpr size_t nBitsAt = 56; // of the message's length in bits, in the last block
constexpr size_t nSteps = 80;
constexpr std::array<uint32_t, 5> aInitial{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
constexpr std::array<uint32_t, 4> aConstants{0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};

// Four neighbouring words of the schedule.
using Four [[gnu::vector_size(16)]] = uint32_t;
constexpr size_t nFours = nSteps / 4;

using RecentFours = std::array<Four, 8>;
using Addends = std::array<uint32_t, nSteps>; // what the steps add: word and constant
using State = std::array<uint32_t, 5>;

Four rotate(Four words, int nBy) noexcept
{
    return words << nBy | words >> (32 - nBy);
}

// Four number i of the schedule, from those before it.
template <size_t i>
[[gnu::always_inline]] inline Four nextFour(const RecentFours &recent, const uint8_t *pBlock) noexcept
{
    if constexpr (i < 4) {
        Four words;
        std::memcpy(&words, pBlock + i * sizeof words, sizeof words);
        if constexpr (std::endian::native == std::endian::little)
            words = (rotate(words, 8) & 0x00FF00FF) | (rotate(words, 24) & 0xFF00FF00);
        return words;
    } else {
        const Four &minus4 = recent[(i - 1) % 8], &minus8 = recent[(i - 2) % 8], &minus12 = recent[(i - 3) % 8],
                   &minus16 = recent[(i - 4) % 8];
        if constexpr (i < 8) {
            // w[t] = rotate(w[t-3] ^ w[t-8] ^ w[t-14] ^ w[t-16], 1); the last of the four needs the first.
            constexpr Four nothing{};
            const Four words = rotate(__builtin_shufflevector(minus4, nothing, 1, 2, 3, 4) ^ minus8 ^
                                          __builtin_shufflevector(minus16, minus12, 2, 3, 4, 5) ^ minus16,
                                      1);
            return words ^ __builtin_shufflevector(nothing, rotate(words, 1), 0, 1, 2, 4);
        } else {
            // The same, put into itself: w[t] = rotate(w[t-6] ^ w[t-16] ^ w[t-28] ^ w[t-32], 2).
            return rotate(__builtin_shufflevector(minus8, minus4, 2, 3, 4, 5) ^ minus16 ^ recent[(i - 7) % 8] ^
                              recent[(i - 8) % 8],
                          2);
        }
    }
}

template <size_t i>
[[gnu::always_inline]] inline void prepare(RecentFours &recent, Addends &addends, const uint8_t *pBlock) noexcept
{
    if constexpr (i < nFours) {
        recent[i % 8] = nextFour<i>(recent, pBlock);
        const Four sums = recent[i % 8] + aConstants[i / 5];
        std::memcpy(&addends[4 * i], &sums, sizeof sums);
    }
}

// The function of a step: choose, parity, majority, parity.
template <size_t nStep> constexpr uint32_t mix(uint32_t b, uint32_t c, uint32_t d) noexcept
{
    if constexpr (nStep < 20)
        return d ^ (b & (c ^ d));
    else if constexpr (nStep >= 40 && nStep < 60)
        return (c & d) + (b & (c ^ d));
    else
        return c ^ d ^ b;
}

// One step. Instead of moving the five words on, each step knows them by other places.
template <size_t nStep> [[gnu::always_inline]] inline void step(State &state, const Addends &addends) noexcept
{
    const auto at = [](size_t n) { return (nSteps + n - nStep) % 5; };
    uint32_t &b = state[at(1)], &e = state[at(4)];
    // Volatile: read from memory, which is faster than taking the vectors apart.
    e += *static_cast<const volatile uint32_t *>(&addends[nStep]);
    e += mix<nStep>(b, state[at(2)], state[at(3)]);
    e += std::rotl(state[at(0)], 5);
    b = std::rotl(b, 30);
}

template <size_t... i>
[[gnu::always_inline]] inline void allSteps(State &state, Addends &addends, const uint8_t *pBlock,
                                            std::index_sequence<i...>) noexcept
{
    RecentFours recent;
    // The schedule stays four fours ahead of the steps.
    prepare<0>(recent, addends, pBlock);
    prepare<1>(recent, addends, pBlock);
    prepare<2>(recent, addends, pBlock);
    prepare<3>(recent, addends, pBlock);
    ((prepare<i + 4>(recent, addends, pBlock), step<4 * i>(state, addends), step<4 * i + 1>(state, addends),
      step<4 * i + 2>(state, addends), step<4 * i + 3>(state, addends)),
     ...);
}

void compress(uint32_t (&aState)[5], const uint8_t *pBlocks, size_t nBlocks) noexcept
{
    if (nBlocks == 0)
        return;
    State sums{aState[0], aState[1], aState[2], aState[3], aState[4]};
    alignas(Four) Addends addends;
    for (; nBlocks > 0; --nBlocks, pBlocks += nBlock) {
        State state = sums;
        allSteps(state, addends, pBlocks, std::make_index_sequence<nFours>{});
        sums = {sums[0] + state[0], sums[1] + state[1], sums[2] + state[2], sums[3] + state[3], sums[4] + state[4]};
    }
    std::copy(sums.begin(), sums.end(), aState);
    explicit_bzero(addends.data(), sizeof addends);
}

} // namespace

void sha1_starts(Sha1Context *pCtx) noexcept
{
    if (pCtx == nullptr)
        return;
    pCtx->nTotal[0] = 0;
    pCtx->nTotal[1] = 0;
    std::copy(aInitial.begin(), aInitial.end(), pCtx->nState);
}

void sha1_process(Sha1Context *pCtx, const uint8_t *pBlock) noexcept
{
    if (pCtx != nullptr && pBlock != nullptr)
        compress(pCtx->nState, pBlock, 1);
}

void sha1_update(Sha1Context *pCtx, const uint8_t *pData, uint32_t nLen) noexcept
{
    if (pCtx == nullptr || pData == nullptr)
        return;
    const size_t nUsed = pCtx->nTotal[0] % nBlock;
    pCtx->nTotal[0] += nLen;
    if (pCtx->nTotal[0] < nLen)
        ++pCtx->nTotal[1];
    size_t nLeft = nLen;
    if (nUsed != 0) {
        const size_t nTaken = std::min(nLeft, nBlock - nUsed);
        std::memcpy(pCtx->ucBuffer + nUsed, pData, nTaken);
        pData += nTaken;
        nLeft -= nTaken;
        if (nUsed + nTaken < nBlock)
            return;
        compress(pCtx->nState, pCtx->ucBuffer, 1);
    }
    compress(pCtx->nState, pData, nLeft / nBlock);
    std::memcpy(pCtx->ucBuffer, pData + nLeft / nBlock * nBlock, nLeft % nBlock);
}

void sha1_finish(Sha1Context *pCtx, uint8_t *pDigest) noexcept
{
    if (pCtx == nullptr || pDigest == nullptr)
        return;
    // The bytes that are left over, a one bit, zeros, the length in bits: in one block, or in two.
    const size_t nUsed = pCtx->nTotal[0] % nBlock;
    const size_t nBlocks = nUsed < nBitsAt ? 1 : 2;
    std::array<uint8_t, 2 * nBlock> tail{};
    std::memcpy(tail.data(), pCtx->ucBuffer, nUsed);
    tail[nUsed] = 0x80;
    uint8_t *pBits = tail.data() + (nBlocks - 1) * nBlock + nBitsAt;
    qv::storeBigEndian(pCtx->nTotal[1] << 3 | pCtx->nTotal[0] >> 29, pBits);
    qv::storeBigEndian(pCtx->nTotal[0] << 3, pBits + 4);
    compress(pCtx->nState, tail.data(), nBlocks);
    explicit_bzero(tail.data(), tail.size());
    for (uint32_t nWord : pCtx->nState) {
        qv::storeBigEndian(nWord, pDigest);
        pDigest += 4;
    }
}

int32_t xn_sha1(const uint8_t *pData, uint32_t nLen, uint8_t *pDigest) noexcept
{
    if (pData == nullptr || pDigest == nullptr)
        return RET_PUB_FAIL;
    Sha1Context context;
    sha1_starts(&context);
    sha1_update(&context, pData, nLen);
    sha1_finish(&context, pDigest);
    explicit_bzero(&context, sizeof context);
    return 0;
}
