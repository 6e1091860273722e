// Card files that are a list of facts: a word a line, and what it says. Magnetic cards have their own parser, their
// tracks need quotation marks.
#pragma once

#include "model/bytes.h"
#include "model/card_text.h"

#include <array>
#include <variant>

namespace qvsim {

// Each take... returns what is wrong with a text, or null.

template <typename Data> struct FileWord {
    enum class Count { needed, optional, repeated };
    std::string_view word;
    Count count;
    const char *(*take)(Data &data, std::string_view text);
};

template <std::size_t size>
const char *takeHex(std::array<std::uint8_t, size> &to, std::string_view text, const char *wrong)
{
    const std::optional<Bytes> bytes = fromHex(text);
    if (!bytes || bytes->size() != size)
        return wrong;
    std::copy(bytes->begin(), bytes->end(), to.begin());
    return nullptr;
}

inline const char *takeHex(Bytes &to, std::string_view text, std::size_t least, std::size_t most, const char *wrong)
{
    std::optional<Bytes> bytes = fromHex(text);
    if (!bytes || bytes->size() < least || bytes->size() > most)
        return wrong;
    to = std::move(*bytes);
    return nullptr;
}

// The data, or the sentence "FILE:LINE: what is wrong". `Data` has a finish() that says what is wrong with the whole.
template <typename Data, std::size_t size>
std::variant<Data, std::string> parseWordFile(std::string_view text, std::string_view fileName,
                                              const std::array<FileWord<Data>, size> &words)
{
    using Count = typename FileWord<Data>::Count;
    const std::string file(fileName);
    if (text.size() > kMostCardFileBytes)
        return file + kCardFileTooLarge;
    Data data;
    std::array<bool, size> given{};
    for (unsigned number = 1; !text.empty(); ++number) {
        const std::string_view whole = takeLine(text);
        const std::string place = file + ":" + std::to_string(number) + ": ";
        if (const char *const wrong = lineTrouble(whole))
            return place + wrong;
        const std::string_view line = trimmed(withoutComment(whole));
        if (line.empty())
            continue;
        const std::size_t wordEnd = std::min(line.find_first_of(" \t"), line.size());
        const std::string_view word = line.substr(0, wordEnd);
        std::size_t i = 0;
        while (i < size && words[i].word != word)
            ++i;
        if (i == size)
            return place + "unknown word " + std::string(word);
        if (given[i] && words[i].count != Count::repeated)
            return place + std::string(word) + " has been given already";
        given[i] = true;
        if (const char *const wrong = words[i].take(data, trimmed(line.substr(wordEnd))))
            return place + wrong;
    }
    for (std::size_t i = 0; i < size; ++i)
        if (words[i].count == Count::needed && !given[i])
            return file + ": the line " + std::string(words[i].word) + " is missing";
    if (const char *const wrong = data.finish())
        return file + ": " + wrong;
    return data;
}

} // namespace qvsim
