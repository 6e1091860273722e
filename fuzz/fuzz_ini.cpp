// fuzz_ini.cpp - GetIniKeyString and GetIniKeyInt against a plain reader of the same rules.
//
// input: which section and key, file

#include "fuzz_support.h"
#include "qvreader/support.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr size_t nLineMax = 1023; // characters of a line that count
constexpr size_t nValueMax = 1022;

struct Question {
    const char *pszSection, *pszKey;
};
constexpr std::array<Question, 4> questions{{{"QuorvanLog", "LogFlag"}, {"A", "k"}, {"", "="}, {"[x]", ""}}};

// A file of the process's own that never touches a disk.
class File {
  public:
    explicit File(std::span<const uint8_t> text) : m_nFd(memfd_create("ini", MFD_CLOEXEC))
    {
        QV_HOLDS(m_nFd >= 0 && write(m_nFd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
        m_sPath = "/proc/self/fd/" + std::to_string(m_nFd);
    }
    ~File() { close(m_nFd); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    const char *path() const { return m_sPath.c_str(); }

  private:
    int m_nFd;
    std::string m_sPath;
};

std::optional<std::string> valueByTheRules(std::string_view sText, const Question &question)
{
    const std::string sHeader = "[" + std::string(question.pszSection) + "]";
    bool bSeen = false;
    for (size_t nEnd; (nEnd = sText.find('\n')) != sText.npos; sText.remove_prefix(nEnd + 1)) {
        std::string_view sLine = sText.substr(0, std::min(nEnd, nLineMax));
        sLine = sLine.substr(0, sLine.find('\0'));
        const size_t nEquals = sLine.find('=');
        if (!bSeen || nEquals == sLine.npos) {
            bSeen = bSeen || sLine.starts_with(sHeader);
            continue;
        }
        if (sLine.find(question.pszKey) == sLine.npos || sLine.starts_with("#") || sLine.starts_with("//"))
            continue;
        return std::string(sLine.substr(nEquals + 1));
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize)
{
    qvfuzz::Input input(pData, nSize);
    const Question question = questions[input.byte() % questions.size()];
    const auto text = input.rest();
    const File file(text);
    const auto expected = valueByTheRules({reinterpret_cast<const char *>(text.data()), text.size()}, question);

    static const char szDefault[] = "7";
    const char *pszValue = GetIniKeyString(question.pszSection, question.pszKey, szDefault, file.path());
    QV_HOLDS((pszValue == szDefault) == !expected.has_value());
    QV_HOLDS(strnlen(pszValue, nValueMax + 1) <= nValueMax);
    QV_HOLDS(!expected || *expected == pszValue);
    QV_HOLDS(GetIniKeyInt(question.pszSection, question.pszKey, szDefault, file.path()) == std::atoi(pszValue));
    return 0;
}
