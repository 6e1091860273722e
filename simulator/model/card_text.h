// What the texts of all card files have in common: lines, blanks, comments.
#pragma once

#include <string_view>

namespace qvsim {

constexpr std::size_t kMostCardFileBytes = std::size_t{1} << 20;
constexpr char kCardFileTooLarge[] = ": larger than a card file may be (1 MiB)";
constexpr std::size_t kMostCardLine = 8192; // characters
constexpr char kCardLineTooLong[] = "the line is longer than 8192 characters";
constexpr char kCardLineNoText[] = "not a text file: control characters in this line";

inline bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

inline std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Up to a "#" at the beginning or behind a blank.
inline std::string_view withoutComment(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '#' && (i == 0 || isBlank(text[i - 1])))
            return text.substr(0, i);
    return text;
}

// Takes the next line off the text, without its line feed.
inline std::string_view takeLine(std::string_view &text)
{
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

// What is wrong with a line as such, or null.
inline const char *lineTrouble(std::string_view line)
{
    if (line.size() > kMostCardLine)
        return kCardLineTooLong;
    for (const char c : line) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x20 && c != '\t' && c != '\r') || byte == 0x7F)
            return kCardLineNoText;
    }
    return nullptr;
}

} // namespace qvsim
