// bench_support.h - what the exchange benches share: a library of their own, frames, one CPU for everything.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace qvbench {

using Bytes = std::vector<uint8_t>;

constexpr size_t nCommand = 20, nReply = 100; // bytes of the APDU that each exchange sends, and of its answer
constexpr uint8_t ucEnd = 0x03;               // end byte of a card frame

// The result of a system call; throws std::system_error when it is negative.
int checked(int nResult, const char *pszWhat);

// This process and the children that it starts from now on.
void pinToOneCpu();

Bytes makeCommand();
// The frame in which the library sends that command to slot 0.
Bytes makeCommandFrame();
// The reader's answer to it: status word 0000 and the response.
Bytes makeReplyFrame();

// How long one of nSteps steps takes.
template <typename Step> double microsPerStep(int nSteps, Step step)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < nSteps; ++i)
        step();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() / nSteps;
}

// A private copy of the library, so that the INI file beside it is the bench's own. There is none at first.
class Library {
  public:
    explicit Library(const std::string &sFile);
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    template <typename Function> Function *find(const char *pszName) const
    {
        void *p = dlsym(m_pHandle, pszName);
        if (p == nullptr)
            throw std::runtime_error(dlerror());
        return reinterpret_cast<Function *>(p);
    }
    std::string ini() const { return m_dir / "QVConfig.ini"; }
    // An INI file that says that the log is off.
    void writeIni() const;

  private:
    std::filesystem::path m_dir;
    void *m_pHandle = nullptr;
};

} // namespace qvbench
