// gbk.h - between the texts that hosts get, in GBK, and those that tests are written in, UTF-8.
#pragma once

#include <iconv.h>
#include <stdexcept>
#include <string>

namespace qvtest {

// Throws for a text that is not in the character set which the converter takes.
inline std::string converted(iconv_t converter, std::string sText)
{
    if (converter == reinterpret_cast<iconv_t>(-1))
        throw std::runtime_error("iconv does not know GBK");
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    std::string sOut(4 * sText.size() + 4, '\0');
    char *pIn = sText.data(), *pOut = sOut.data();
    size_t nIn = sText.size(), nOut = sOut.size();
    const size_t nResult = iconv(converter, &pIn, &nIn, &pOut, &nOut);
    if (nResult == static_cast<size_t>(-1))
        throw std::runtime_error("not of the character set: " + sText);
    sOut.resize(sOut.size() - nOut);
    return sOut;
}

inline std::string fromGbk(std::string sText)
{
    static const iconv_t s_converter = iconv_open("UTF-8", "GBK");
    return converted(s_converter, std::move(sText));
}

inline std::string toGbk(std::string sText)
{
    static const iconv_t s_converter = iconv_open("GBK", "UTF-8");
    return converted(s_converter, std::move(sText));
}

} // namespace qvtest
