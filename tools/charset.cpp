// The process keeps the locale C: the library and number texts must not change with the user's.
#include "charset.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <iconv.h>
#include <langinfo.h>
#include <string_view>

namespace qvtool {

namespace {

constexpr char szUtf8[] = "UTF-8";

class Conversion {
  public:
    Conversion(const char *pszTo, const char *pszFrom) : m_state(iconv_open(pszTo, pszFrom)) {}
    ~Conversion()
    {
        if (isOpen())
            iconv_close(m_state);
    }
    Conversion(const Conversion &) = delete;
    Conversion &operator=(const Conversion &) = delete;

    bool isOpen() const { return m_state != reinterpret_cast<iconv_t>(-1); }
    // How many bytes of sFrom went through.
    size_t append(std::string_view sFrom, std::string &sTo)
    {
        char *pFrom = const_cast<char *>(sFrom.data()); // which iconv does not write to
        size_t nFrom = sFrom.size();
        step(&pFrom, &nFrom, sTo);
        return sFrom.size() - nFrom;
    }
    // Back to the set's first state.
    void finish(std::string &sTo) { step(nullptr, nullptr, sTo); }

  private:
    void step(char **ppFrom, size_t *pnFrom, std::string &sTo)
    {
        for (;;) {
            std::array<char, 256> room{};
            char *pTo = room.data();
            size_t nTo = room.size();
            const size_t nResult = iconv(m_state, ppFrom, pnFrom, &pTo, &nTo);
            const int nError = errno;
            sTo.append(room.data(), room.size() - nTo);
            if (nResult != static_cast<size_t>(-1) || nError != E2BIG)
                return;
        }
    }

    iconv_t m_state;
};

// Bytes of the UTF-8 character at the start of s.
size_t characterSize(std::string_view s)
{
    size_t n = 1;
    while (n < s.size() && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80)
        ++n;
    return n;
}

} // namespace

std::optional<std::string> utf8OfGbk(const std::string &sGbk)
{
    Conversion conversion(szUtf8, "GBK");
    std::string sOut;
    if (!conversion.isOpen() || conversion.append(sGbk, sOut) != sGbk.size())
        return std::nullopt;
    return sOut;
}

std::string inCharset(const std::string &sUtf8, const char *pszCharset)
{
    Conversion conversion(pszCharset, szUtf8);
    if (!conversion.isOpen())
        return sUtf8;
    std::string sOut;
    for (std::string_view sRest = sUtf8; !sRest.empty();) {
        sRest.remove_prefix(conversion.append(sRest, sOut));
        if (sRest.empty())
            break;
        conversion.append("?", sOut);
        sRest.remove_prefix(characterSize(sRest));
    }
    conversion.finish(sOut);
    return sOut;
}

std::string terminalCharset()
{
    const locale_t user = newlocale(LC_CTYPE_MASK, "", nullptr);
    if (user == nullptr)
        return szUtf8;
    const std::string sCharset = nl_langinfo_l(CODESET, user);
    freelocale(user);
    return sCharset == "ANSI_X3.4-1968" || sCharset.empty() ? szUtf8 : sCharset;
}

std::string forTerminal(const std::string &sUtf8)
{
    const std::string sCharset = terminalCharset();
    return sCharset == szUtf8 ? sUtf8 : inCharset(sUtf8, sCharset.c_str());
}

} // namespace qvtool
