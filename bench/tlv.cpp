// BER-TLV look-ups beside mbedTLS's ASN.1 reader, where that is installed: the last of 20 items in a record template, by
// the search that enters templates and by the path into it, and an item deep in a select answer, by the search and step
// by step (a path holds tags of one byte only).
//
// A row is named task/who/bytes, where bytes is the size of the buffer and who is "qvreader" or "mbedtls". Both sides
// copy the value out. Before anything is timed each look-up is made once, and the program stops with 2 when it does not
// give the value that was put there.

#include "qvreader/icapp.h"

#ifdef QV_HAVE_MBEDTLS
#include "mbedtls_walk.h"
#endif

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t nItems = 20;
constexpr uint8_t ucLast = 0x14; // second byte of the last item's tag
const Bytes wantedValue{0xC0, 0xFF, 0xEE, 0x01, 0x02, 0x03, 0x04, 0x05};

Bytes item(const std::string &sTag, const Bytes &value)
{
    Bytes out(value.size() + 6);
    uint32_t nLen = 0;
    if (Tlv_Pack_Data(out.data(), sTag.c_str(), value.data(), static_cast<uint32_t>(value.size()), &nLen) != 0)
        std::exit(2);
    out.resize(nLen);
    return out;
}

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// 70 with twenty items of eight bytes, tags 9F 01 to 9F 14.
Bytes record()
{
    Bytes items;
    for (size_t i = 1; i <= nItems; ++i) {
        const Bytes value = i == ucLast ? wantedValue : Bytes(8, static_cast<uint8_t>(i));
        items = joined({items, item({'\x9F', static_cast<char>(i)}, value)});
    }
    return item("\x70", items);
}

// 6F { 84, A5 { 50, 87, 5F2D, 9F11, BF0C { 9F4D, 61 { 4F, 50, 9F2A } } } }
Bytes selectAnswer()
{
    const Bytes application =
        joined({item("\x4F", Bytes(8, 0xA0)), item("\x50", Bytes(8, 0x42)), item("\x9F\x2A", wantedValue)});
    const Bytes discretionary = joined({item("\x9F\x4D", {0x0B, 0x0A}), item("\x61", application)});
    const Bytes proprietary =
        joined({item("\x50", Bytes(12, 0x41)), item("\x87", {0x01}), item("\x5F\x2D", {0x7A, 0x68}),
                item("\x9F\x11", {0x01}), item("\xBF\x0C", discretionary)});
    return item("\x6F", joined({item("\x84", Bytes(8, 0xA0)), item("\xA5", proprietary)}));
}

// One look-up: 0, the value in pOut and its length in *pnLen.
struct Task;
using Look = int32_t(const Task &, uint8_t *pOut, uint32_t *pnLen);

struct Task {
    const char *pszName;
    Look *pfnOurs;
    Look *pfnPeer;
    const char *pszTag;
    std::vector<const char *> path; // templates from the outside in
    const char *pszPath;            // the same as one text
    Bytes buf;
};

// ---- ours -----------------------------------------------------------------------------------------------------------

int32_t scan(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    int32_t nLen = 0;
    const int32_t nRet = quorvan_get_tag_value(reinterpret_cast<const uint8_t *>(task.pszTag), 2, task.buf.data(),
                                               static_cast<int32_t>(task.buf.size()), pOut, &nLen);
    *pnLen = static_cast<uint32_t>(nLen);
    return nRet;
}

int32_t walk(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    return Ex_TLV_GetDataByTagandTmplt(task.pszTag, task.pszPath, task.buf.data(),
                                       static_cast<int32_t>(task.buf.size()), pOut, pnLen);
}

int32_t step(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    auto *pAt = const_cast<uint8_t *>(task.buf.data());
    auto nLen = static_cast<uint32_t>(task.buf.size());
    for (const char *pszTemplate : task.path)
        if (TLV_GetData(pszTemplate, pAt, static_cast<int32_t>(nLen), &pAt, &nLen) != 0)
            return -1;
    return Ex_TLV_GetDataByTag(task.pszTag, pAt, static_cast<int32_t>(nLen), pOut, pnLen);
}

// ---- mbedTLS --------------------------------------------------------------------------------------------------------

#ifdef QV_HAVE_MBEDTLS
int32_t copied(const qvbench::MbedtlsItem &item, uint8_t *pOut, uint32_t *pnLen)
{
    std::copy_n(item.pValue, item.nValue, pOut);
    *pnLen = static_cast<uint32_t>(item.nValue);
    return 0;
}

int32_t scanPeer(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    auto *pAt = const_cast<uint8_t *>(task.buf.data());
    qvbench::MbedtlsItem found{};
    return qvbench::mbedtlsScan(task.pszTag, pAt, pAt + task.buf.size(), found) ? copied(found, pOut, pnLen) : -1;
}

int32_t stepPeer(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    auto *pAt = const_cast<uint8_t *>(task.buf.data());
    const uint8_t *pEnd = pAt + task.buf.size();
    qvbench::MbedtlsItem found{};
    for (const char *pszTemplate : task.path) {
        if (!qvbench::mbedtlsFind(pszTemplate, pAt, pEnd, found))
            return -1;
        pAt = found.pValue;
        pEnd = pAt + found.nValue;
    }
    return qvbench::mbedtlsFind(task.pszTag, pAt, pEnd, found) ? copied(found, pOut, pnLen) : -1;
}

constexpr char szPeer[] = "mbedtls";
constexpr char szPeerBuild[] = MBEDTLS_VERSION_STRING_FULL;
#else
constexpr Look *scanPeer = nullptr;
constexpr Look *stepPeer = nullptr;
constexpr char szPeer[] = "";
constexpr char szPeerBuild[] = "not built in: no peer to compare with";
#endif

// ---- the runs -------------------------------------------------------------------------------------------------------

void check(const Task &task, Look *pfnLook)
{
    uint8_t aOut[256];
    uint32_t nLen = 0;
    if (pfnLook(task, aOut, &nLen) == 0 && std::equal(wantedValue.begin(), wantedValue.end(), aOut, aOut + nLen))
        return;
    std::fprintf(stderr, "%s: not the value that was put there\n", task.pszName);
    std::exit(2);
}

void run(benchmark::State &state, const Task &task, Look *pfnLook)
{
    uint8_t aOut[256];
    uint32_t nLen = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(pfnLook(task, aOut, &nLen));
        benchmark::ClobberMemory();
    }
}

void add(const Task &task, Look *pfnLook, const char *pszWho)
{
    if (pfnLook == nullptr)
        return;
    check(task, pfnLook);
    const std::string sName = std::string(task.pszName) + "/" + pszWho + "/" + std::to_string(task.buf.size());
    benchmark::RegisterBenchmark(sName.c_str(), run, task, pfnLook);
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    const std::vector<const char *> intoAnswer{"\x6F", "\xA5", "\xBF\x0C", "\x61"};
    const Task aTasks[] = {{"last_of_20_scan", scan, scanPeer, "\x9F\x14", {}, "", record()},
                           {"last_of_20_path", walk, stepPeer, "\x9F\x14", {"\x70"}, "\x70", record()},
                           {"deep_in_answer_scan", scan, scanPeer, "\x9F\x2A", {}, "", selectAnswer()},
                           {"deep_in_answer_steps", step, stepPeer, "\x9F\x2A", intoAnswer, "", selectAnswer()}};
    benchmark::AddCustomContext("qvreader_build_type", QV_BUILD_TYPE);
    benchmark::AddCustomContext("mbedtls", szPeerBuild);
    for (const Task &task : aTasks) {
        add(task, task.pfnOurs, "qvreader");
        add(task, task.pfnPeer, szPeer);
    }
    benchmark::Initialize(&nArgs, ppArgs);
    if (benchmark::ReportUnrecognizedArguments(nArgs, ppArgs))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
