// fuzz_support.h - what the fuzz targets share: a check that ends the run, guarded output areas, a reader's line whose
// bytes come from the input, and a folder of its own for a target that lets the library write files.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// A fact that must hold for every input; ends the run with its text when it does not.
#define QV_HOLDS(condition)                                                                                            \
    do {                                                                                                               \
        if (!(condition))                                                                                              \
            qvfuzz::fail(#condition, __FILE__, __LINE__);                                                              \
    } while (false)

namespace qvfuzz {

using Bytes = std::vector<uint8_t>;

[[noreturn]] void fail(const char *pszFact, const char *pszFile, int nLine) noexcept;

// Takes the input apart from its front; what is not there reads as zero or empty.
class Input {
  public:
    Input(const uint8_t *pData, size_t nSize) : m_rest(pData, nSize) {}
    uint8_t byte();
    std::span<const uint8_t> take(size_t nMax);
    std::span<const uint8_t> rest() { return take(m_rest.size()); }

  private:
    std::span<const uint8_t> m_rest;
};

// An output area of nSize bytes with a fixed pattern in it and a guard on either side: tells writes behind what was
// asked for, with and without a sanitizer.
class Area {
  public:
    explicit Area(size_t nSize);
    uint8_t *data() { return m_block.data() + nGuard; }
    char *text() { return reinterpret_cast<char *>(data()); }
    // True: guards, and everything of the area from nUsed on, are as they were.
    bool intactBehind(size_t nUsed) const;
    std::span<const uint8_t> first(size_t n) const { return std::span(m_block).subspan(nGuard, n); }

  private:
    static constexpr size_t nGuard = 32;
    static constexpr uint8_t ucPattern = 0xA5;
    Bytes m_block;
};

// An open reader port whose answer is the given stream. It comes in pieces of nPiece bytes (at most 16 of them), and
// an end byte is put behind it, so that no read waits for its time-out.
class ReaderLine {
  public:
    ReaderLine(std::span<const uint8_t> stream, size_t nPiece, uint8_t ucEnd);
    ~ReaderLine();
    ReaderLine(const ReaderLine &) = delete;
    ReaderLine &operator=(const ReaderLine &) = delete;

    // What one read of up to nMax bytes gets: whole pieces up to the first that ends in the end byte.
    Bytes firstRead(size_t nMax) const;

  private:
    std::array<int, 2> m_nEnds{-1, -1};
    std::vector<Bytes> m_pieces;
    uint8_t m_ucEnd;
};

// Starts this program again so that the library takes a new folder for its own directory; returns in that second
// process. The folder goes away when the process ends well. Call from LLVMFuzzerInitialize.
void enterSandbox(char **ppArgs);
// That folder, without a trailing slash.
const std::string &sandbox();

// A reply frame, built without the library: L, status word, body, LRC between the markers.
Bytes replyFrame(uint8_t ucHead, uint8_t ucEnd, uint16_t nStatus, std::span<const uint8_t> body);

} // namespace qvfuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize);
extern "C" int LLVMFuzzerInitialize(int *pnArgs, char ***pppArgs);
