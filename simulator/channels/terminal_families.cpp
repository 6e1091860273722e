// Tables of the terminal families, and the match of bytes against them.
#include "channels/terminal_families.h"

#include <algorithm>
#include <array>

namespace qvsim {

namespace {

using enum TerminalAct;

constexpr std::size_t kMostDigits = 3;

constexpr std::array<TerminalSequence, 9> kStarSequences{{
    {"\x1B[2h", keepScreen},
    {"\x1B[2l", releaseScreen},
    {"\x1B!%s;0;0;0%c", open},
    {"\x1B[/54l", open},
    {"\x1B[/53h", open},
    {"\x1B[/50h", open},
    {"\x1B[/51h", beginData},
    {"\x1B[/51l", endData},
    {"\x1B[/50l", close},
}};
constexpr std::array<TerminalCode, 4> kStarPorts{{{'Y', 1}, {'Z', 2}, {'X', 3}, {'V', 4}}};
constexpr std::array<TerminalCode, 10> kStarSpeeds{{{0, 9600},
                                                    {1, 4800},
                                                    {2, 2400},
                                                    {3, 1200},
                                                    {5, 600},
                                                    {6, 300},
                                                    {8, 230400},
                                                    {10, 19200},
                                                    {11, 38400},
                                                    {12, 115200}}};

constexpr std::array<TerminalSequence, 4> kGwSequences{{
    {"\x1B[2h", keepScreen},
    {"\x1B[2l", releaseScreen},
    {"\x1B[%p>", open},
    {"\x1B[<", close},
}};
constexpr std::array<TerminalCode, 4> kGwPorts{{{0, 1}, {1, 2}, {2, 3}, {3, 4}}};

constexpr std::array<TerminalSequence, 6> kGgSequences{{
    {"\x1B[2h", keepScreen},
    {"\x1B[2l", releaseScreen},
    {"\x1B[/%p;1;%s;3;1;0M", open},
    {"\x1B[/|", beginData},
    {"|", endData},
    {"\x1B[/M", close},
}};
constexpr std::array<TerminalCode, 4> kGgPorts{{{1, 1}, {2, 2}, {3, 3}, {4, 4}}};
// Code 8 has to do for every speed that has no code of its own.
constexpr std::array<TerminalCode, 10> kGgSpeeds{
    {{3, 300}, {4, 600}, {5, 1200}, {6, 2400}, {7, 4800}, {8, 9600}, {8, 38400}, {8, 115200}, {8, 230400}, {9, 19200}}};

constexpr std::array<TerminalSequence, 5> kWyseSequences{{
    {"\x1B[2h", keepScreen},
    {"\x1B[2l", releaseScreen},
    {"\x1B!%p;1m", open},
    {"\x1B!b", open},
    {"\x1B!P", close},
}};
constexpr std::array<TerminalCode, 4> kWysePorts{{{45, 1}, {45, 4}, {54, 2}, {60, 3}}};

constexpr std::array<TerminalFamily, 4> kFamilies{{
    {"star", kStarSequences, kStarPorts, kStarSpeeds, true},
    {"gw", kGwSequences, kGwPorts, {}, false},
    {"gg", kGgSequences, kGgPorts, kGgSpeeds, true},
    {"wyse", kWyseSequences, kWysePorts, {}, false},
}};

} // namespace

std::size_t TerminalFamily::openSteps() const
{
    return static_cast<std::size_t>(
        std::count_if(sequences.begin(), sequences.end(), [](const TerminalSequence &row) { return row.act == open; }));
}

const TerminalFamily *findTerminalFamily(std::string_view name)
{
    for (const TerminalFamily &family : kFamilies)
        if (family.name == name)
            return &family;
    return nullptr;
}

std::string terminalFamilyNames()
{
    std::string names;
    for (std::size_t i = 0; i < kFamilies.size(); ++i)
        names += std::string(i == 0 ? "" : i + 1 == kFamilies.size() ? " or " : ", ") + std::string(kFamilies[i].name);
    return names;
}

SequenceMatch matchSequence(std::string_view text, std::string_view bytes, SequenceNumbers &numbers)
{
    std::size_t at = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (at == bytes.size())
            return SequenceMatch::partial;
        if (text[i] != '%') {
            if (bytes[at++] != text[i])
                return SequenceMatch::none;
            continue;
        }
        const char kind = text[++i];
        if (kind == 'c') {
            numbers.port = static_cast<unsigned char>(bytes[at++]);
            continue;
        }
        unsigned value = 0;
        std::size_t digits = 0;
        for (; at < bytes.size() && digits < kMostDigits && bytes[at] >= '0' && bytes[at] <= '9'; ++at, ++digits)
            value = value * 10 + static_cast<unsigned>(bytes[at] - '0');
        if (digits == 0)
            return SequenceMatch::none;
        (kind == 'p' ? numbers.port : numbers.speed) = value;
    }
    return at == bytes.size() ? SequenceMatch::whole : SequenceMatch::none;
}

} // namespace qvsim
