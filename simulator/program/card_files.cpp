// open, one bounded read, parse; and the way back.
#include "program/card_files.h"

#include "model/card_text.h"
#include "system/io.h"
#include "system/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr mode_t kRecordMode = 0600; // card data

// The result of a parser that gets the text, or what is wrong with the file.
template <typename Result>
Result readFile(const std::string &path, Result (&parse)(std::string_view text, std::string_view fileName))
{
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        const int error = errno;
        return errorText(path, error);
    }
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return path + ": no regular file";
    // One byte more than allowed, so that the parser sees that it is too much.
    std::string text(kMostCardFileBytes + 1, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const std::span<char> rest(text.data() + size, text.size() - size);
        const ReadResult result = readSome(file.get(), {reinterpret_cast<std::uint8_t *>(rest.data()), rest.size()});
        if (result.kind == ReadResult::Kind::end)
            break;
        if (result.kind != ReadResult::Kind::bytes)
            return errorText(path, result.error);
        size += result.count;
    }
    text.resize(size);
    return parse(text, path);
}

} // namespace

CardScriptResult readCardFile(const std::string &path)
{
    return readFile(path, parseCardScript);
}

StripeCardResult readStripeFile(const std::string &path)
{
    return readFile(path, parseStripeCard);
}

PurseDataResult readPurseFile(const std::string &path)
{
    return readFile(path, parsePurseData);
}

PsamDataResult readPsamFile(const std::string &path)
{
    return readFile(path, parsePsamData);
}

void writeCardFile(std::string_view what, const std::string &path, std::string_view text)
{
    const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kRecordMode));
    int error = file ? 0 : errno;
    if (file)
        writeSome(file.get(), asBytes(text), error);
    if (error != 0)
        throw std::runtime_error(errorText(std::string(what) + " " + path, error));
}

} // namespace qvsim
