// What the ciphers and the digest leave of keys and messages in memory when they are done.

#include "codec_buffers.h"
#include "sanitized.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <link.h>
#include <span>
#include <ucontext.h>

using namespace qvtest;

namespace {

using Act = std::function<void()>;

constexpr size_t nStack = 256 * 1024;
Act g_act;

void actOnce()
{
    g_act();
}

// The stack on which it was done, as it is afterwards.
Bytes stackAfter(const Act &act)
{
    static Bytes s_stack;
    s_stack.assign(nStack, 0);
    g_act = act;
    static ucontext_t s_here, s_there;
    getcontext(&s_there);
    s_there.uc_stack.ss_sp = s_stack.data();
    s_there.uc_stack.ss_size = s_stack.size();
    s_there.uc_link = &s_here;
    makecontext(&s_there, actOnce, 0);
    swapcontext(&s_here, &s_there);
    return s_stack;
}

// Appends the variables of the library to the bytes that pBytes points to.
int appendVariables(dl_phdr_info *pInfo, size_t, void *pBytes)
{
    if (std::strstr(pInfo->dlpi_name, "libqvreader") == nullptr)
        return 0;
    auto &variables = *static_cast<Bytes *>(pBytes);
    for (size_t i = 0; i < pInfo->dlpi_phnum; ++i)
        if (const auto &part = pInfo->dlpi_phdr[i]; part.p_type == PT_LOAD && (part.p_flags & PF_W) != 0) {
            const auto *pFrom = reinterpret_cast<const uint8_t *>(pInfo->dlpi_addr + part.p_vaddr);
            variables.insert(variables.end(), pFrom, pFrom + part.p_memsz);
        }
    return 0;
}

Bytes variablesAfter(const Act &act)
{
    act();
    Bytes variables;
    dl_iterate_phdr(appendVariables, &variables);
    EXPECT_GE(variables.size(), sizeof g_stDebugTip) << "the library has variables";
    return variables;
}

using MemoryAfter = Bytes (*)(const Act &);
using OfSecret = std::function<void(std::span<const uint8_t> secret)>;

// How many bytes of the memory are others for another secret.
size_t differing(MemoryAfter memoryAfter, const OfSecret &use, size_t nSecret)
{
    // In one place each time: the address of a secret is none.
    static std::array<uint8_t, 256> s_place;
    const auto after = [&](const Bytes &secret) {
        std::copy(secret.begin(), secret.end(), s_place.begin());
        return memoryAfter([&] { use(std::span(s_place).first(nSecret)); });
    };
    (void)after(Bytes(nSecret, 0x10)); // the loader is done with its own work
    const Bytes one = after(randomBytes(nSecret, 1)), other = after(randomBytes(nSecret, 2));
    size_t nDiffering = 0;
    for (size_t i = 0; i < one.size(); ++i)
        nDiffering += one[i] != other.at(i);
    return nDiffering;
}

const Bytes g_plain = bytes("5468652071756663");
Bytes g_out(20);

using Cipher = void (*)(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut);
constexpr Cipher aCiphers[] = {EncryptDES_BYTE, DecryptDES_BYTE,
                               [](const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut) {
                                   QV_EncryptDES_BYTE(pKey, nKeyLen, pIn, 8, pOut);
                               }};

OfSecret withKey(Cipher cipher)
{
    return [cipher](std::span<const uint8_t> key) {
        cipher(key.data(), static_cast<int32_t>(key.size()), g_plain.data(), g_out.data());
    };
}

void digest(std::span<const uint8_t> message)
{
    xn_sha1(message.data(), static_cast<uint32_t>(message.size()), g_out.data());
}

// A round key takes 8 bytes, nearly all of which differ between two keys. A library that is not optimised leaves some
// 30 bytes of the last round, beside the block.
TEST(DesMemory, KeepsNoRoundKeysOnTheStack)
{
    if constexpr (bSanitized)
        GTEST_SKIP() << "a sanitizer has its own stacks";
    constexpr size_t nBlock = 8, nBelowARoundKey = 11, nUnoptimised = 47;
    static_assert(nBelowARoundKey < 2 * nBlock);
    for (const Cipher cipher : aCiphers)
        for (const size_t nKeyLen : {8U, 16U, 24U})
            EXPECT_LE(differing(stackAfter, withKey(cipher), nKeyLen), QV_OPTIMISED ? nBelowARoundKey : nUnoptimised)
                << nKeyLen;
}

TEST(DesMemory, KeepsNothingOfTheKeyInTheVariablesOfTheLibrary)
{
    if constexpr (bSanitized)
        GTEST_SKIP() << "a sanitizer lets nobody read between variables";
    for (const Cipher cipher : aCiphers)
        for (const size_t nKeyLen : {8U, 16U, 24U})
            EXPECT_EQ(differing(variablesAfter, withKey(cipher), nKeyLen), 0U) << nKeyLen;
}

// What differs is the digest, 20 bytes, and what is left of the last step. A library that is not optimised works out of
// the stack.
TEST(Sha1Memory, KeepsNeitherTheMessageNorItsScheduleOnTheStack)
{
    if constexpr (bSanitized || !QV_OPTIMISED)
        GTEST_SKIP() << "a sanitizer has its own stacks, a library that is not optimised works on it";
    constexpr size_t nDigest = 20, nMost = 40;
    static_assert(nMost >= nDigest && nMost < 55);
    for (const size_t nLen : {55U, 56U, 64U, 100U, 130U})
        EXPECT_LE(differing(stackAfter, digest, nLen), nMost) << nLen;
}

TEST(Sha1Memory, KeepsNothingOfTheMessageInTheVariablesOfTheLibrary)
{
    if constexpr (bSanitized)
        GTEST_SKIP() << "a sanitizer lets nobody read between variables";
    for (const size_t nLen : {24U, 55U, 56U, 130U})
        EXPECT_EQ(differing(variablesAfter, digest, nLen), 0U) << nLen;
}

} // namespace
