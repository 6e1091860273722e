// fuzz_arpc_text.cpp - QV_APP_CtlScriptData with any issuer's answer and a kernel that answers with anything.
//
// The kernel is this program: it keeps what it is told, and a copy of the process record as it gets it.
//
// input: mode (bit 0: no transaction data; bit 1: no second cryptogram; bit 2: no close operation; bit 3: no open
// operation; bit 4: a null ARPC; bit 5: the bytes at the end are the ARPC's, not its text), results of opening,
// completion, storing and reading, packed length (two bytes, signed), length that is read (two bytes), the ARPC

#include "fuzz_support.h"
#include "qvreader/emv_kernel.h"
#include "qvreader/icapp.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <vector>

using qvfuzz::Area;
using qvfuzz::Bytes;

namespace {

constexpr uint32_t nMark = 0x5EADBEEF;
constexpr uint8_t ucRecord = 0xA5; // what stands in the record before the call
constexpr size_t nPackedMax = 8192, nResultMax = 400, nAnswerMax = 2048;
constexpr int32_t nStandard = 70000; // what the kernel adds to a code
constexpr const char *pszPort = "a port of the fuzzer's";
constexpr int32_t nBaud = 57600;

struct Object {
    Bytes tag, value;
    bool operator==(const Object &) const = default;
};

struct Kernel {
    int32_t nOpened = 0, nFinal = 0, nStored = 0, nRead = 0; // results
    int32_t nPacked = 0;
    uint32_t nReadLen = 0;
    std::string sCalls; // a letter each
    std::vector<Object> stored;
    Bytes record;
    int32_t nEndedWith = 0;
};
Kernel s_kernel;

uint8_t patternAt(size_t i)
{
    return static_cast<uint8_t>(i * 7 + 1);
}

Bytes pattern(size_t n)
{
    Bytes bytes;
    for (size_t i = 0; i < n; ++i)
        bytes.push_back(patternAt(i));
    return bytes;
}

int32_t openReader(const char *psz, const char *pszParameter, uint32_t nType, uint32_t nReserved, int32_t nSpeed)
{
    QV_HOLDS(psz == pszPort && *pszParameter == '\0' && nType == 1 && nReserved == 0 && nSpeed == nBaud);
    s_kernel.sCalls += 'O';
    return s_kernel.nOpened;
}

int32_t closeReader()
{
    s_kernel.sCalls += 'C';
    return s_kernel.nOpened;
}

int32_t mustNotBeCalled()
{
    qvfuzz::fail("the card is left alone", __FILE__, __LINE__);
}

} // namespace

int32_t EMV_Final(void *proc)
{
    QV_HOLDS(proc == g_stProc);
    s_kernel.sCalls += 'F';
    s_kernel.record.assign(std::begin(g_stProc), std::end(g_stProc));
    return s_kernel.nFinal;
}

int32_t Emv_QV_End(int32_t lastResult)
{
    s_kernel.sCalls += 'E';
    s_kernel.nEndedWith = lastResult;
    return s_kernel.nStored;
}

int32_t TY_ConvertErr(int32_t result, int32_t *standardCode)
{
    s_kernel.sCalls += 'T';
    *standardCode = result + nStandard;
    return 0;
}

int32_t Pack_Data_Emv_Trance(uint8_t *out, int32_t kind)
{
    QV_HOLDS(kind == 1);
    s_kernel.sCalls += 'P';
    const auto nLen = static_cast<size_t>(std::max(s_kernel.nPacked, 0));
    for (size_t i = 0; i < std::min(nLen, nPackedMax); ++i)
        out[i] = patternAt(i);
    return s_kernel.nPacked;
}

int32_t Emv_SaveData(const uint8_t *tag, const uint8_t *value, int32_t len, int32_t source)
{
    QV_HOLDS(source == 49 && len >= 0);
    const auto *pszTag = reinterpret_cast<const char *>(tag);
    s_kernel.stored.push_back({Bytes(tag, tag + std::strlen(pszTag)), Bytes(value, value + len)});
    return s_kernel.nStored;
}

int32_t Emv_GetData(const uint8_t *tag, uint8_t *out, uint32_t *len)
{
    QV_HOLDS(std::memcmp(tag, "\xDF\x31", 3) == 0);
    s_kernel.sCalls += 'G';
    for (size_t i = 0; i < std::min<size_t>(s_kernel.nReadLen, nResultMax); ++i)
        out[i] = patternAt(i);
    *len = s_kernel.nReadLen;
    return s_kernel.nRead;
}

namespace {

// The first item with tag 91 of the outermost level; nothing: there is none in front of what is malformed.
std::optional<Bytes> issuerAuthentication(std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        if (bytes[0] == 0x00 || bytes[0] == 0xFF) {
            bytes = bytes.subspan(1);
            continue;
        }
        const size_t nTag = bytes[0] % 32 == 31 ? 2 : 1;
        if (bytes.size() <= nTag)
            return std::nullopt;
        const uint8_t ucForm = bytes[nTag];
        const size_t nMore = ucForm < 0x80 ? 0 : size_t{ucForm} - 0x80;
        if ((ucForm >= 0x80 && (nMore < 1 || nMore > 3)) || bytes.size() - nTag - 1 < nMore)
            return std::nullopt;
        size_t nLen = ucForm < 0x80 ? ucForm : 0;
        for (size_t i = 0; i < nMore; ++i)
            nLen = nLen * 256 + bytes[nTag + 1 + i];
        const auto rest = bytes.subspan(nTag + 1 + nMore);
        if (nLen > rest.size())
            return std::nullopt;
        if (bytes[0] == 0x91)
            return Bytes(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(nLen));
        bytes = rest.subspan(nLen);
    }
    return std::nullopt;
}

void putNumber(Bytes &record, size_t nAt, uint32_t n)
{
    std::memcpy(record.data() + nAt, &n, sizeof n);
}

// The record that the kernel completes the transaction with.
Bytes recordFor(const Bytes &answer, bool bAnswered, bool bNoGac2)
{
    Bytes record(EMV_PROC_SIZE, ucRecord);
    if (bAnswered) {
        std::copy(answer.begin(), answer.end(), record.begin() + EMV_PROC_ISSUER_DATA);
        putNumber(record, EMV_PROC_ISSUER_LEN, static_cast<uint32_t>(answer.size()));
        record[EMV_PROC_ARC] = record[EMV_PROC_ARC + 1] = '0';
    }
    putNumber(record, EMV_PROC_HAS_ONLINE, 1);
    putNumber(record, EMV_PROC_ONLINE_RESULT, bAnswered ? 0 : 0xFFFFFFFF);
    if (bNoGac2)
        putNumber(record, EMV_PROC_NO_GAC2, 1);
    return record;
}

std::string hexText(const Bytes &bytes)
{
    static constexpr char szDigits[] = "0123456789ABCDEF";
    std::string s;
    for (uint8_t uc : bytes) {
        s += szDigits[uc >> 4];
        s += szDigits[uc & 15];
    }
    return s;
}

int32_t signedByte(qvfuzz::Input &input)
{
    return static_cast<int8_t>(input.byte());
}

uint32_t number(qvfuzz::Input &input)
{
    const uint32_t nHigh = input.byte();
    return nHigh << 8 | input.byte();
}

struct Outputs {
    Area completion{2 * nPackedMax + 1};
    Area script{6 + 2 * nResultMax + 1};
    uint32_t nCompletion = nMark;
};

// The outputs hold these texts with a NUL; nothing: they are as they were.
void checkOutputs(Outputs &out, const std::optional<std::string> &completion, const std::optional<std::string> &script)
{
    QV_HOLDS(out.completion.intactBehind(completion ? completion->size() + 1 : 0));
    QV_HOLDS(!completion || *completion == out.completion.text());
    QV_HOLDS(out.nCompletion == (completion ? completion->size() : nMark));
    QV_HOLDS(out.script.intactBehind(script ? script->size() + 1 : 0));
    QV_HOLDS(!script || *script == out.script.text());
}

// From the completion on: the steps, the results and what the host gets.
void checkCompletion(int32_t nRet, Outputs &out, const std::string &sArpc, bool bNoGac2)
{
    // The text's own codec has a target of its own.
    Bytes answer(sArpc.size() / 2, 0);
    Str_AscToHex(sArpc.c_str(), static_cast<int32_t>(2 * answer.size()), answer.data());
    std::vector<Object> objects;
    if (!sArpc.empty()) {
        objects.push_back({{0x8A}, {'0', '0'}});
        if (auto value = issuerAuthentication(answer))
            objects.push_back({{0x91}, *value});
    }
    QV_HOLDS(s_kernel.stored == objects);
    const Bytes record = recordFor(answer, !sArpc.empty(), bNoGac2);
    QV_HOLDS(s_kernel.record == record);
    QV_HOLDS(std::equal(record.begin(), record.end(), g_stProc));

    const bool bDone = s_kernel.nFinal == 0;
    const int32_t nLast = bDone ? s_kernel.nRead : s_kernel.nFinal;
    QV_HOLDS(nRet == nLast + nStandard && s_kernel.nEndedWith == nLast);
    std::optional<std::string> completion, script;
    if (bDone && s_kernel.nPacked > 0)
        completion = hexText(pattern(std::min(static_cast<size_t>(s_kernel.nPacked), nPackedMax)));
    if (bDone && s_kernel.nRead == 0)
        script = "DF3105" + hexText(pattern(std::min<size_t>(s_kernel.nReadLen, nResultMax)));
    checkOutputs(out, completion, script);
}

void setReader(bool bOpens, bool bCloses)
{
    std::fill(std::begin(stICOp), std::end(stICOp), reinterpret_cast<void *>(mustNotBeCalled));
    stICOp[1] = bOpens ? reinterpret_cast<void *>(openReader) : nullptr;
    stICOp[2] = bCloses ? reinterpret_cast<void *>(closeReader) : nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const uint8_t ucMode = input.byte();
    s_kernel = {};
    s_kernel.nOpened = signedByte(input);
    s_kernel.nFinal = signedByte(input);
    s_kernel.nStored = signedByte(input);
    s_kernel.nRead = signedByte(input);
    s_kernel.nPacked = static_cast<int16_t>(number(input));
    s_kernel.nReadLen = number(input);
    const auto bytes = input.rest();
    std::string sArpc(bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0}));
    if ((ucMode & 0x20) != 0)
        sArpc = hexText({bytes.begin(), bytes.end()});
    const bool bNoData = (ucMode & 1) != 0, bNoGac2 = (ucMode & 2) != 0, bNull = (ucMode & 0x10) != 0;
    if (bNull)
        sArpc.clear();
    const std::vector<char> exact(sArpc.c_str(), sArpc.c_str() + sArpc.size() + 1);
    setReader((ucMode & 8) == 0, (ucMode & 4) == 0);
    char cData = 0;
    pszEmvData = bNoData ? nullptr : &cData;
    QV_APP_SetNoGac2Flag(bNoGac2 ? 1 : 0);
    std::fill(std::begin(g_stProc), std::end(g_stProc), ucRecord);
    Outputs out;

    const int32_t nRet = QV_APP_CtlScriptData(pszPort, nullptr, nBaud, nullptr, nullptr, bNull ? nullptr : exact.data(),
                                              &out.nCompletion, out.completion.text(), out.script.text());
    pszEmvData = nullptr;

    const bool bRefused = sArpc.size() / 2 > nAnswerMax;
    const bool bCompletes = !bRefused && !bNoData;
    std::string sCalls;
    if (!bRefused)
        sCalls = std::string((ucMode & 8) == 0 ? "O" : "") +
                 (bNoData                ? ""
                  : s_kernel.nFinal == 0 ? "FPG"
                                         : "F") +
                 "E" + ((ucMode & 4) == 0 ? "C" : "");
    QV_HOLDS(s_kernel.sCalls == sCalls + "T");
    if (bCompletes) {
        checkCompletion(nRet, out, sArpc, bNoGac2);
        return 0;
    }
    QV_HOLDS(nRet == (bRefused ? -2 : -1) + nStandard && s_kernel.nEndedWith == (bRefused ? 0 : -1));
    QV_HOLDS(s_kernel.stored.empty());
    QV_HOLDS(std::all_of(std::begin(g_stProc), std::end(g_stProc), [](uint8_t uc) { return uc == ucRecord; }));
    checkOutputs(out, std::nullopt, std::nullopt);
    return 0;
}
