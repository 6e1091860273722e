// BER-TLV look-ups: the last of 20 items in a record template, by the search that enters templates and by the path into
// it, and an item deep in a select answer by the search (templates with tags of two bytes have no path).
//
// A row is named task/who/bytes, where bytes is the size of the buffer. Before anything is timed each look-up is made
// once, and the program stops with 2 when it does not give the value that was put there.

#include "qvreader/icapp.h"

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

// 6F { 84, A5 { 50, 87, 5F2D, 9F11, BF0C { 9F4D, DF4D } } }
Bytes selectAnswer()
{
    const Bytes discretionary = joined({item("\x9F\x4D", {0x0B, 0x0A}), item("\xDF\x4D", wantedValue)});
    const Bytes proprietary =
        joined({item("\x50", Bytes(12, 0x41)), item("\x87", {0x01}), item("\x5F\x2D", {0x7A, 0x68}),
                item("\x9F\x11", {0x01}), item("\xBF\x0C", discretionary)});
    return item("\x6F", joined({item("\x84", Bytes(8, 0xA0)), item("\xA5", proprietary)}));
}

int32_t scan(const char *pszTag, const Bytes &buf, uint8_t *pOut, uint32_t *pnLen)
{
    int32_t nLen = 0;
    const int32_t nRet = quorvan_get_tag_value(reinterpret_cast<const uint8_t *>(pszTag), 2, buf.data(),
                                               static_cast<int32_t>(buf.size()), pOut, &nLen);
    *pnLen = static_cast<uint32_t>(nLen);
    return nRet;
}

int32_t walk(const char *pszTag, const char *pszPath, const Bytes &buf, uint8_t *pOut, uint32_t *pnLen)
{
    return Ex_TLV_GetDataByTagandTmplt(pszTag, pszPath, buf.data(), static_cast<int32_t>(buf.size()), pOut, pnLen);
}

struct Task {
    const char *pszName;
    const char *pszTag;
    const char *pszPath; // null: the search that enters templates
    Bytes buf;
};

int32_t look(const Task &task, uint8_t *pOut, uint32_t *pnLen)
{
    return task.pszPath == nullptr ? scan(task.pszTag, task.buf, pOut, pnLen)
                                   : walk(task.pszTag, task.pszPath, task.buf, pOut, pnLen);
}

void check(const Task &task)
{
    uint8_t aOut[256];
    uint32_t nLen = 0;
    if (look(task, aOut, &nLen) == 0 && std::equal(wantedValue.begin(), wantedValue.end(), aOut, aOut + nLen))
        return;
    std::fprintf(stderr, "%s: not the value that was put there\n", task.pszName);
    std::exit(2);
}

void run(benchmark::State &state, const Task &task)
{
    uint8_t aOut[256];
    uint32_t nLen = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(look(task, aOut, &nLen));
        benchmark::ClobberMemory();
    }
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    const Task aTasks[] = {{"last_of_20_scan", "\x9F\x14", nullptr, record()},
                           {"last_of_20_path", "\x9F\x14", "\x70", record()},
                           {"deep_in_answer_scan", "\xDF\x4D", nullptr, selectAnswer()}};
    benchmark::AddCustomContext("qvreader_build_type", QV_BUILD_TYPE);
    for (const Task &task : aTasks) {
        check(task);
        const std::string sName = std::string(task.pszName) + "/qvreader/" + std::to_string(task.buf.size());
        benchmark::RegisterBenchmark(sName.c_str(), run, task);
    }
    benchmark::Initialize(&nArgs, ppArgs);
    if (benchmark::ReportUnrecognizedArguments(nArgs, ppArgs))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
