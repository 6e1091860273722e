// DES, triple DES and SHA-1 beside OpenSSL on seeded random inputs.

#define OPENSSL_SUPPRESS_DEPRECATED // its single-block DES functions
#include "codec_buffers.h"
#include "sanitized.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>
#include <openssl/des.h>
#include <openssl/sha.h>

#include <array>
#include <cstring>
#include <random>

using namespace qvtest;

namespace {

constexpr int nInputs = bSanitized ? 20000 : 1000000;

using Block = std::array<uint8_t, 8>;

DES_cblock *asBlock(const void *p)
{
    return static_cast<DES_cblock *>(const_cast<void *>(p));
}

struct Peer {
    explicit Peer(const uint8_t *pKey)
    {
        for (size_t i = 0; i < 3; ++i)
            DES_set_key_unchecked(asBlock(pKey + 8 * i), &aParts[i]);
    }
    Block single(const Block &in, int nEncrypt)
    {
        Block out{};
        DES_ecb_encrypt(asBlock(in.data()), asBlock(out.data()), &aParts[0], nEncrypt);
        return out;
    }
    Block triple(const Block &in, size_t nThird, int nEncrypt)
    {
        Block out{};
        DES_ecb3_encrypt(asBlock(in.data()), asBlock(out.data()), &aParts[0], &aParts[1], &aParts[nThird], nEncrypt);
        return out;
    }
    std::array<DES_key_schedule, 3> aParts;
};

Block ours(void (*pfn)(const uint8_t *, int32_t, const uint8_t *, uint8_t *), const uint8_t *pKey, int32_t nKeyLen,
           const Block &in)
{
    Block out{};
    pfn(pKey, nKeyLen, in.data(), out.data());
    return out;
}

TEST(RandomInput, IsEncipheredAndDecipheredAsOpenSslDoes)
{
    std::mt19937_64 random(42);
    for (int n = 0; n < nInputs; ++n) {
        const std::array<uint64_t, 4> aWords{random(), random(), random(), random()};
        std::array<uint8_t, 24> key;
        std::memcpy(key.data(), aWords.data(), key.size());
        Block in;
        std::memcpy(in.data(), &aWords[3], in.size());
        Peer peer(key.data());
        ASSERT_EQ(ours(EncryptDES_BYTE, key.data(), 8, in), peer.single(in, DES_ENCRYPT)) << n;
        ASSERT_EQ(ours(DecryptDES_BYTE, key.data(), 8, in), peer.single(in, DES_DECRYPT)) << n;
        ASSERT_EQ(ours(EncryptDES_BYTE, key.data(), 16, in), peer.triple(in, 0, DES_ENCRYPT)) << n;
        ASSERT_EQ(ours(DecryptDES_BYTE, key.data(), 16, in), peer.triple(in, 0, DES_DECRYPT)) << n;
        ASSERT_EQ(ours(EncryptDES_BYTE, key.data(), 24, in), peer.triple(in, 2, DES_ENCRYPT)) << n;
        ASSERT_EQ(ours(DecryptDES_BYTE, key.data(), 24, in), peer.triple(in, 2, DES_DECRYPT)) << n;
    }
}

using Digest = std::array<uint8_t, SHA_DIGEST_LENGTH>;

void expectSameDigest(const uint8_t *pData, size_t nLen)
{
    Digest digest{}, peer{};
    ASSERT_EQ(xn_sha1(pData, static_cast<uint32_t>(nLen), digest.data()), 0);
    SHA1(pData, nLen, peer.data());
    ASSERT_EQ(digest, peer) << nLen;
}

TEST(RandomInput, HasTheDigestThatOpenSslGives)
{
    Bytes data = randomBytes(0x10000, 43);
    std::mt19937 random(44);
    for (int n = 0; n < nInputs; ++n) {
        const auto nRandom = static_cast<uint32_t>(random());
        data[nRandom & 0xFFFF] = static_cast<uint8_t>(nRandom >> 16); // no two runs over the same bytes
        ASSERT_NO_FATAL_FAILURE(expectSameDigest(data.data() + (nRandom & 0x7FFF), nRandom >> 24)) << n;
    }
}

TEST(EveryLengthUpTo200, HasTheDigestThatOpenSslGives)
{
    const Bytes data = randomBytes(200, 45);
    for (size_t nLen = 0; nLen <= 200; ++nLen)
        ASSERT_NO_FATAL_FAILURE(expectSameDigest(data.data(), nLen));
}

TEST(ManyBlocks, HaveTheDigestThatOpenSslGives)
{
    const Bytes data = randomBytes(300000, 46);
    for (size_t nLen : {4096U, 65535U, 299999U})
        ASSERT_NO_FATAL_FAILURE(expectSameDigest(data.data() + 1, nLen));
}

} // namespace
