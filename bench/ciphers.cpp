// One block of DES and of triple DES, key schedule included, and SHA-1, beside other libraries: same run, same inputs,
// same results.
//
// The sides take turns within a round; a side's time is the median of its rounds, and what is printed is the median of
// three starts of this program. libgcrypt works without the SHA instructions of the processor, which ours does not use
// either; OpenSSL uses them where they are and is shown beside the others without counting.

#define OPENSSL_SUPPRESS_DEPRECATED // its single-block DES functions
#include "qvreader/support.h"

#include <openssl/des.h>
#include <openssl/sha.h>
#if defined(QV_HAVE_GCRYPT)
#include <gcrypt.h>
#endif
#if defined(QV_HAVE_MBEDTLS)
#include <mbedtls/des.h>
#endif
#if defined(QV_HAVE_NETTLE)
#include <nettle/des.h>
#endif

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double nLimit = 1.25; // ours to the fastest peer that counts
constexpr int nStarts = 3;
constexpr int nRounds = 301;
constexpr std::chrono::microseconds nTurn{60}; // of one side in a round, about
constexpr size_t nDigest = 20;

// Input and output of a call: for DES the key in front of the block.
using Bytes = std::vector<uint8_t>;
using Result = std::array<uint8_t, nDigest>;
using Call = void (*)(const Bytes &in, uint8_t *pOut);

[[noreturn]] void fail(const std::string &sWhat)
{
    std::fprintf(stderr, "bench_ciphers: %s\n", sWhat.c_str());
    std::exit(2);
}

template <size_t nKey> const uint8_t *blockOf(const Bytes &in)
{
    return in.data() + nKey;
}

// ---- ours -----------------------------------------------------------------------------------------------------------

template <int32_t nKey> void oursDes(const Bytes &in, uint8_t *pOut)
{
    EncryptDES_BYTE(in.data(), nKey, blockOf<nKey>(in), pOut);
}

void oursSha1(const Bytes &in, uint8_t *pOut)
{
    xn_sha1(in.data(), static_cast<uint32_t>(in.size()), pOut);
}

// ---- OpenSSL --------------------------------------------------------------------------------------------------------

template <size_t nKey> void opensslDes(const Bytes &in, uint8_t *pOut)
{
    const auto asBlock = [](const uint8_t *p) { return reinterpret_cast<DES_cblock *>(const_cast<uint8_t *>(p)); };
    std::array<DES_key_schedule, 3> aParts;
    for (size_t i = 0; i < nKey / 8; ++i)
        DES_set_key_unchecked(asBlock(in.data() + 8 * i), &aParts[i]);
    if constexpr (nKey == 8)
        DES_ecb_encrypt(asBlock(blockOf<nKey>(in)), asBlock(pOut), &aParts[0], DES_ENCRYPT);
    else
        DES_ecb3_encrypt(asBlock(blockOf<nKey>(in)), asBlock(pOut), &aParts[0], &aParts[1], &aParts[nKey == 16 ? 0 : 2],
                         DES_ENCRYPT);
}

void opensslSha1(const Bytes &in, uint8_t *pOut)
{
    SHA1(in.data(), in.size(), pOut);
}

// ---- the peers that count -------------------------------------------------------------------------------------------

// A two-key key as peers without such keys take it.
template <size_t nKey> std::array<uint8_t, 24> threeKeys(const Bytes &in)
{
    std::array<uint8_t, 24> key;
    std::copy_n(in.begin(), nKey, key.begin());
    if constexpr (nKey == 16)
        std::copy_n(in.begin(), 8, key.begin() + 16);
    return key;
}

#if defined(QV_HAVE_MBEDTLS)
template <size_t nKey> void mbedtlsDes(const Bytes &in, uint8_t *pOut)
{
    if constexpr (nKey == 8) {
        mbedtls_des_context context;
        mbedtls_des_init(&context);
        mbedtls_des_setkey_enc(&context, in.data());
        mbedtls_des_crypt_ecb(&context, blockOf<nKey>(in), pOut);
        mbedtls_des_free(&context);
    } else {
        mbedtls_des3_context context;
        mbedtls_des3_init(&context);
        if constexpr (nKey == 16)
            mbedtls_des3_set2key_enc(&context, in.data());
        else
            mbedtls_des3_set3key_enc(&context, in.data());
        mbedtls_des3_crypt_ecb(&context, blockOf<nKey>(in), pOut);
        mbedtls_des3_free(&context);
    }
}
#endif

#if defined(QV_HAVE_NETTLE)
template <size_t nKey> void nettleDes(const Bytes &in, uint8_t *pOut)
{
    if constexpr (nKey == 8) {
        des_ctx context;
        des_set_key(&context, in.data());
        des_encrypt(&context, 8, pOut, blockOf<nKey>(in));
    } else {
        des3_ctx context;
        des3_set_key(&context, threeKeys<nKey>(in).data());
        des3_encrypt(&context, 8, pOut, blockOf<nKey>(in));
    }
}
#endif

#if defined(QV_HAVE_GCRYPT)
// Opening a handle is left out of the time: a host opens it once.
gcry_cipher_hd_t openCipher(int nAlgorithm)
{
    gcry_cipher_hd_t handle = nullptr;
    if (gcry_cipher_open(&handle, nAlgorithm, GCRY_CIPHER_MODE_ECB, 0) != 0)
        fail("libgcrypt gives no cipher");
    return handle;
}

template <size_t nKey> void gcryptDes(const Bytes &in, uint8_t *pOut)
{
    static gcry_cipher_hd_t s_handle = openCipher(nKey == 8 ? GCRY_CIPHER_DES : GCRY_CIPHER_3DES);
    if constexpr (nKey == 8)
        gcry_cipher_setkey(s_handle, in.data(), nKey);
    else
        gcry_cipher_setkey(s_handle, threeKeys<nKey>(in).data(), 24);
    gcry_cipher_encrypt(s_handle, pOut, 8, blockOf<nKey>(in), 8);
}

void gcryptSha1(const Bytes &in, uint8_t *pOut)
{
    gcry_md_hash_buffer(GCRY_MD_SHA1, pOut, in.data(), in.size());
}
#endif

void startPeers()
{
#if defined(QV_HAVE_GCRYPT)
    // Before anything else: what the processor can do is looked up once.
    gcry_control(GCRYCTL_DISABLE_HWF, "intel-shaext", nullptr);
    if (gcry_check_version(GCRYPT_VERSION) == nullptr)
        fail("libgcrypt is older than its header");
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
#else
    std::fprintf(stderr, "bench_ciphers: built without libgcrypt\n");
#endif
#if !defined(QV_HAVE_MBEDTLS)
    std::fprintf(stderr, "bench_ciphers: built without mbedTLS\n");
#endif
#if !defined(QV_HAVE_NETTLE)
    std::fprintf(stderr, "bench_ciphers: built without nettle\n");
#endif
}

// ---- the tasks ------------------------------------------------------------------------------------------------------

struct Side {
    const char *pszName;
    bool bCounts;
    Call pfn;
};

struct Task {
    std::string sName;
    size_t nIn, nOut; // bytes
    std::vector<Side> sides;
};

template <size_t nKey> Task desTask(const char *pszName)
{
    Task task{pszName, nKey + 8, 8, {{"qvreader", false, oursDes<nKey>}, {"openssl", false, opensslDes<nKey>}}};
#if defined(QV_HAVE_MBEDTLS)
    task.sides.push_back({"mbedtls", true, mbedtlsDes<nKey>});
#endif
#if defined(QV_HAVE_NETTLE)
    task.sides.push_back({"nettle", true, nettleDes<nKey>});
#endif
#if defined(QV_HAVE_GCRYPT)
    task.sides.push_back({"libgcrypt", true, gcryptDes<nKey>});
#endif
    return task;
}

Task sha1Task(size_t nBytes)
{
    Task task{"sha1_" + std::to_string(nBytes),
              nBytes,
              nDigest,
              {{"qvreader", false, oursSha1}, {"openssl", false, opensslSha1}}};
#if defined(QV_HAVE_GCRYPT)
    task.sides.push_back({"libgcrypt", true, gcryptSha1});
#endif
    return task;
}

std::vector<Task> allTasks()
{
    return {desTask<8>("des"), desTask<16>("des_two_keys"), desTask<24>("des_three_keys"), sha1Task(64), sha1Task(1024),
            sha1Task(1 << 20)};
}

// ---- one start: "task side nanoseconds" a line ----------------------------------------------------------------------

double nanosPerCall(const Side &side, const Bytes &in, int nCalls)
{
    Result out;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < nCalls; ++i)
        side.pfn(in, out.data());
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / nCalls;
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void measureOnce()
{
    startPeers();
    for (const Task &task : allTasks()) {
        std::mt19937 random(static_cast<unsigned>(task.nIn));
        Bytes in(task.nIn);
        for (uint8_t &uc : in)
            uc = static_cast<uint8_t>(random());
        Result expected{};
        task.sides.front().pfn(in, expected.data());
        for (const Side &side : task.sides) {
            Result result{};
            side.pfn(in, result.data());
            if (result != expected)
                fail(task.sName + ": " + side.pszName + " has another result");
        }
        const double nOne = nanosPerCall(task.sides.front(), in, 10);
        const int nCalls = std::max(1, static_cast<int>(std::chrono::nanoseconds(nTurn).count() / nOne));
        std::vector<std::vector<double>> times(task.sides.size());
        for (int nRound = 0; nRound < nRounds; ++nRound)
            for (size_t i = 0; i < task.sides.size(); ++i)
                times[i].push_back(nanosPerCall(task.sides[i], in, nCalls));
        for (size_t i = 0; i < task.sides.size(); ++i)
            std::printf("%s %s %.1f\n", task.sName.c_str(), task.sides[i].pszName, median(times[i]));
    }
}

// ---- three starts, and what they say --------------------------------------------------------------------------------

using Times = std::map<std::string, std::vector<double>>; // by "task side"

void start(const std::string &sSelf, Times &times)
{
    FILE *pOutput = popen(("'" + sSelf + "' --once").c_str(), "r");
    if (pOutput == nullptr)
        fail("cannot start itself");
    char szTask[64], szSide[64];
    double nTime = 0;
    while (std::fscanf(pOutput, "%63s %63s %lf", szTask, szSide, &nTime) == 3)
        times[szTask + (" " + std::string(szSide))].push_back(nTime);
    if (pclose(pOutput) != 0)
        fail("a start of it failed");
}

int report(const Times &times)
{
    int nSlow = 0;
    std::printf("%-15s %-10s %12s %7s\n", "task", "library", "ns", "ratio");
    for (const Task &task : allTasks()) {
        std::vector<double> medians;
        for (const Side &side : task.sides)
            medians.push_back(median(times.at(task.sName + " " + side.pszName)));
        double nFastest = 0;
        for (size_t i = 0; i < task.sides.size(); ++i)
            if (task.sides[i].bCounts && (nFastest == 0 || medians[i] < nFastest))
                nFastest = medians[i];
        const bool bSlow = nFastest > 0 && medians[0] > nLimit * nFastest;
        nSlow += bSlow;
        for (size_t i = 0; i < task.sides.size(); ++i)
            std::printf("%-15s %-10s %12.1f %7.2f%s\n", task.sName.c_str(), task.sides[i].pszName, medians[i],
                        medians[0] / medians[i], i == 0 && bSlow ? "  above the limit" : "");
    }
    return nSlow > 0 ? 1 : 0;
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    if (nArgs > 1 && std::strcmp(ppArgs[1], "--once") == 0) {
        measureOnce();
        return 0;
    }
    const std::string sBuildType = QV_BUILD_TYPE;
    if (sBuildType != "Release" && sBuildType != "RelWithDebInfo")
        fail("the library's build type is '" + sBuildType + "', not an optimised one");
    Times times;
    for (int i = 0; i < nStarts; ++i)
        start(ppArgs[0], times);
    return report(times);
}
