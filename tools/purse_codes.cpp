// Triple DES with three equal keys is DES, and in CBC mode over one block it is the bare cipher: one primitive serves,
// and OpenSSL's legacy provider, where DES lives, is not needed.
#include "purse_codes.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace qvtool {

namespace {

constexpr size_t nBlock = 8;
constexpr uint8_t ucPadding = 0x80;

using Block = std::array<uint8_t, nBlock>;
using TripleKey = std::array<uint8_t, 3 * nBlock>;

struct FreeCipher {
    void operator()(EVP_CIPHER_CTX *pCipher) const { EVP_CIPHER_CTX_free(pCipher); }
};

// data: whole blocks, at least one.
Block lastBlock(const TripleKey &key, BytesView data)
{
    constexpr Block zero{};
    const std::unique_ptr<EVP_CIPHER_CTX, FreeCipher> cipher(EVP_CIPHER_CTX_new());
    Bytes out(data.size() + nBlock);
    int nOut = 0;
    if (cipher == nullptr ||
        EVP_EncryptInit_ex(cipher.get(), EVP_des_ede3_cbc(), nullptr, key.data(), zero.data()) != 1 ||
        EVP_CIPHER_CTX_set_padding(cipher.get(), 0) != 1 ||
        EVP_EncryptUpdate(cipher.get(), out.data(), &nOut, data.data(), static_cast<int>(data.size())) != 1 ||
        static_cast<size_t>(nOut) != data.size())
        throw std::runtime_error("triple DES of OpenSSL cannot be used");
    Block last{};
    std::copy_n(out.data() + data.size() - nBlock, nBlock, last.begin());
    return last;
}

} // namespace

SessionKey sessionKey(const CipherKey &key, const std::array<uint8_t, 8> &block)
{
    TripleKey triple{};
    std::copy(key.begin(), key.end(), triple.begin());
    std::copy_n(key.begin(), nBlock, triple.begin() + key.size());
    return lastBlock(triple, block);
}

SessionKey tacKey(const CipherKey &key)
{
    SessionKey out{};
    for (size_t n = 0; n < nBlock; ++n)
        out[n] = static_cast<uint8_t>(key[n] ^ key[n + nBlock]);
    return out;
}

Mac macOf(const SessionKey &key, BytesView data)
{
    TripleKey triple{};
    for (size_t n = 0; n < triple.size(); ++n)
        triple[n] = key[n % nBlock];
    Bytes padded(data.begin(), data.end());
    padded.push_back(ucPadding);
    padded.resize((padded.size() + nBlock - 1) / nBlock * nBlock);
    const Block last = lastBlock(triple, padded);
    Mac mac{};
    std::copy_n(last.begin(), mac.size(), mac.begin());
    return mac;
}

} // namespace qvtool
