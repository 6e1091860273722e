// Hexadecimal text and Base64, both ways, beside OpenSSL's functions for the same: same run, same inputs, same results.
//
// A row is named task/who/bytes, where bytes is the size of the data (not of its text) and who is "qvreader" or
// "openssl". compare.py puts the two side by side.

#include "qvreader/support.h"

#include <benchmark/benchmark.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr size_t aSizes[] = {100, 1024};

struct Input {
    std::vector<uint8_t> data;
    std::string sHex;
    std::string sBase64;
};

// ---- one call each --------------------------------------------------------------------------------------------------

using Buffer = std::vector<uint8_t>;

char *asText(Buffer &buffer)
{
    return reinterpret_cast<char *>(buffer.data());
}

long hexEncodeOurs(const Input &in, Buffer &out)
{
    return Str_HexToAsc(in.data.data(), static_cast<int32_t>(2 * in.data.size()), asText(out)) == 0
               ? static_cast<long>(2 * in.data.size())
               : -1;
}

long hexEncodePeer(const Input &in, Buffer &out)
{
    size_t nLen = 0;
    if (OPENSSL_buf2hexstr_ex(asText(out), out.size(), &nLen, in.data.data(), in.data.size(), '\0') != 1)
        return -1;
    return static_cast<long>(nLen) - 1; // it counts the NUL
}

long hexDecodeOurs(const Input &in, Buffer &out)
{
    return Str_AscToHex(in.sHex.c_str(), static_cast<int32_t>(in.sHex.size()), out.data()) == 0
               ? static_cast<long>(in.sHex.size() / 2)
               : -1;
}

long hexDecodePeer(const Input &in, Buffer &out)
{
    size_t nLen = 0;
    if (OPENSSL_hexstr2buf_ex(out.data(), out.size(), &nLen, in.sHex.c_str(), '\0') != 1)
        return -1;
    return static_cast<long>(nLen);
}

long base64EncodeOurs(const Input &in, Buffer &out)
{
    return Base64_EncData(in.data.data(), static_cast<uint32_t>(in.data.size()), asText(out),
                          static_cast<int32_t>(out.size()));
}

long base64EncodePeer(const Input &in, Buffer &out)
{
    return EVP_EncodeBlock(out.data(), in.data.data(), static_cast<int>(in.data.size()));
}

long base64DecodeOurs(const Input &in, Buffer &out)
{
    return Base64_DecData(in.sBase64.c_str(), static_cast<uint32_t>(in.sBase64.size()), out.data(),
                          static_cast<uint32_t>(out.size() - 1));
}

long base64DecodePeer(const Input &in, Buffer &out)
{
    return EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(in.sBase64.c_str()),
                           static_cast<int>(in.sBase64.size()));
}

struct Task {
    const char *pszName;
    long (*pfnOurs)(const Input &, Buffer &);
    long (*pfnPeer)(const Input &, Buffer &);
};

constexpr Task aTasks[] = {
    {"hex_encode", hexEncodeOurs, hexEncodePeer},
    {"hex_decode", hexDecodeOurs, hexDecodePeer},
    {"base64_encode", base64EncodeOurs, base64EncodePeer},
    {"base64_decode", base64DecodeOurs, base64DecodePeer},
};

// ---- inputs, and the check that both sides do the same work -----------------------------------------------------------

[[noreturn]] void fail(const char *pszTask, size_t nSize)
{
    std::fprintf(stderr, "%s of %zu bytes: the results differ\n", pszTask, nSize);
    std::exit(2);
}

Input makeInput(size_t nSize)
{
    Input in;
    std::mt19937 random(static_cast<unsigned>(nSize));
    for (size_t n = 0; n < nSize; ++n)
        in.data.push_back(static_cast<uint8_t>(random()));
    Buffer text(4 * nSize + 8);
    long nLen = hexEncodePeer(in, text);
    if (nLen < 0)
        fail("hex_encode", nSize);
    in.sHex.assign(asText(text), static_cast<size_t>(nLen));
    nLen = base64EncodePeer(in, text);
    if (nLen < 0)
        fail("base64_encode", nSize);
    in.sBase64.assign(asText(text), static_cast<size_t>(nLen));
    return in;
}

void checkEqual(const Task &task, const Input &in)
{
    Buffer ours(4 * in.data.size() + 8);
    Buffer peers(ours.size());
    long nOurs = task.pfnOurs(in, ours);
    long nPeers = task.pfnPeer(in, peers);
    // EVP_DecodeBlock counts the zero bytes that stand for padding.
    if (task.pfnPeer == base64DecodePeer && nPeers >= static_cast<long>(in.data.size()))
        nPeers = static_cast<long>(in.data.size());
    if (nOurs <= 0 || nOurs != nPeers || !std::equal(ours.begin(), ours.begin() + nOurs, peers.begin()))
        fail(task.pszName, in.data.size());
}

void run(benchmark::State &state, long (*pfn)(const Input &, Buffer &), const Input &in)
{
    Buffer out(4 * in.data.size() + 8);
    for (auto _ : state) {
        benchmark::DoNotOptimize(pfn(in, out));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(in.data.size()));
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    benchmark::AddCustomContext("qvreader_build_type", QV_BUILD_TYPE);
    for (const Task &task : aTasks)
        for (size_t nSize : aSizes) {
            const Input in = makeInput(nSize);
            checkEqual(task, in);
            const std::string sName = task.pszName;
            const std::string sSize = std::to_string(nSize);
            benchmark::RegisterBenchmark((sName + "/qvreader/" + sSize).c_str(), run, task.pfnOurs, in);
            benchmark::RegisterBenchmark((sName + "/openssl/" + sSize).c_str(), run, task.pfnPeer, in);
        }
    benchmark::Initialize(&nArgs, ppArgs);
    if (benchmark::ReportUnrecognizedArguments(nArgs, ppArgs))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
