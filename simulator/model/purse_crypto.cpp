// One primitive, triple DES in CBC mode, is enough: with three equal keys it is single DES, over one block it is ECB.
// So nothing depends on OpenSSL's legacy provider, where single DES lives.
#include "model/purse_crypto.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::uint8_t kPadding = 0x80;

using TripleKey = std::array<std::uint8_t, 24>;

struct FreeContext {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};

// `blocks`: whole blocks, at least one.
CipherBlock lastBlock(const TripleKey &key, BytesView blocks)
{
    const CipherBlock zero{};
    const std::unique_ptr<EVP_CIPHER_CTX, FreeContext> context(EVP_CIPHER_CTX_new());
    Bytes out(blocks.size() + zero.size());
    int length = 0;
    if (!context || EVP_EncryptInit_ex(context.get(), EVP_des_ede3_cbc(), nullptr, key.data(), zero.data()) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
        EVP_EncryptUpdate(context.get(), out.data(), &length, blocks.data(), static_cast<int>(blocks.size())) != 1 ||
        static_cast<std::size_t>(length) != blocks.size())
        throw std::runtime_error("OpenSSL's triple DES cannot be used");
    CipherBlock block{};
    std::copy_n(out.begin() + static_cast<std::ptrdiff_t>(blocks.size() - block.size()), block.size(), block.begin());
    return block;
}

} // namespace

CipherBlock encipher(const CardKey &key, const CipherBlock &block)
{
    TripleKey triple{};
    std::copy(key.begin(), key.end(), triple.begin());
    std::copy_n(key.begin(), key.size() / 2, triple.begin() + key.size());
    return lastBlock(triple, block);
}

CardKey diversify(const CardKey &master, const CipherBlock &serial)
{
    CipherBlock complement{};
    std::transform(serial.begin(), serial.end(), complement.begin(),
                   [](std::uint8_t byte) { return static_cast<std::uint8_t>(byte ^ 0xFF); });
    const CipherBlock left = encipher(master, serial);
    const CipherBlock right = encipher(master, complement);
    CardKey key{};
    std::copy(left.begin(), left.end(), key.begin());
    std::copy(right.begin(), right.end(), key.begin() + left.size());
    return key;
}

CipherBlock tacKey(const CardKey &key)
{
    CipherBlock block{};
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<std::uint8_t>(key[i] ^ key[i + block.size()]);
    return block;
}

MacCode mac(const CipherBlock &key, BytesView data)
{
    TripleKey triple{};
    for (std::size_t i = 0; i < triple.size(); ++i)
        triple[i] = key[i % key.size()];
    Bytes padded(data.begin(), data.end());
    padded.push_back(kPadding);
    padded.resize((padded.size() + key.size() - 1) / key.size() * key.size());
    const CipherBlock block = lastBlock(triple, padded);
    MacCode code{};
    std::copy_n(block.begin(), code.size(), code.begin());
    return code;
}

} // namespace qvsim
