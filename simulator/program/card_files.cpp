// open, one bounded read, parse.
#include "program/card_files.h"

#include "system/io.h"
#include "system/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace qvsim {

CardScriptResult readCardFile(const std::string &path)
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
    return parseCardScript(text, path);
}

} // namespace qvsim
