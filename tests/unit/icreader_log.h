// icreader_log.h - what the tests of the reader's log share: its lines with their labels, an open reader.
#pragma once

#include "open_reader.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <initializer_list>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

using Lines = std::vector<std::string>;

// The log since logOn(), one entry a line: "Comm: text" for a line with labels, the text alone for a hex dump.
inline Lines labelled()
{
    static const std::regex kind(R"(\)  INFO:    (\w+:?) )");
    Lines lines = logTexts();
    std::string sLog = rawLog();
    size_t nLine = 0;
    for (size_t nAt = 0; nAt < sLog.size() && nLine < lines.size();) {
        size_t nEnd = std::min(sLog.find("\r\n", nAt), sLog.size());
        if (nEnd > nAt) {
            std::string sRaw = sLog.substr(nAt, nEnd - nAt);
            std::smatch found;
            if (std::regex_search(sRaw, found, kind))
                lines[nLine] = found[1].str() + " " + lines[nLine];
            ++nLine;
        }
        nAt = nEnd + 2;
    }
    return lines;
}

// Success when the log holds these lines in this order; others may stand between them. A leading * stands for any
// beginning of the line.
inline testing::AssertionResult wrote(std::initializer_list<std::string> expected)
{
    Lines lines = labelled();
    auto at = lines.begin();
    for (const std::string &sWanted : expected) {
        at = std::find_if(at, lines.end(), [&](const std::string &sLine) {
            return sWanted.starts_with("*") ? sLine.ends_with(sWanted.substr(1)) : sLine == sWanted;
        });
        if (at == lines.end()) {
            auto result = testing::AssertionFailure() << "missing, or not in this order: \"" << sWanted << "\"\n";
            for (const std::string &sLine : lines)
                result << "  |" << sLine << "|\n";
            return result;
        }
        ++at;
    }
    return testing::AssertionSuccess();
}

// Number of lines that begin so.
inline long countBegun(const std::string &sBegin)
{
    Lines lines = labelled();
    return std::count_if(lines.begin(), lines.end(), [&](const auto &sLine) { return sLine.starts_with(sBegin); });
}

class ReaderLog : public OpenReader {
  protected:
    void damage(std::string_view sCommand) { m_peer->expect(commandFrame(sCommand)).reply("02 03"); }

    uint8_t m_buf[1100] = {};
    uint32_t m_nLen = 0;
};

} // namespace qvtest
