// files.cpp - whole files: size, contents, copies, Base64 text.

#include "directory.h"
#include "log.h"
#include "unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <span>
#include <sys/stat.h>

namespace {

constexpr size_t nCopyBlock = 1024;
constexpr mode_t nNewFile = 0666; // less the umask
constexpr int32_t nBufferTooSmall = RET_PUB_INVAL_PARAM;

qv::UniqueFd openToRead(const char *pszPath) noexcept
{
    return qv::UniqueFd(pszPath == nullptr ? -1 : ::open(pszPath, O_RDONLY | O_CLOEXEC));
}

qv::UniqueFd openToWrite(const char *pszPath) noexcept
{
    return qv::UniqueFd(pszPath == nullptr ? -1 : ::open(pszPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, nNewFile));
}

// Fills the buffer as far as the file goes; nothing when it cannot be read.
std::optional<size_t> readSome(const qv::UniqueFd &file, std::span<uint8_t> out) noexcept
{
    size_t nDone = 0;
    while (nDone < out.size()) {
        const ssize_t n = ::read(file.get(), out.data() + nDone, out.size() - nDone);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        nDone += static_cast<size_t>(n);
    }
    return nDone;
}

bool writeAll(const qv::UniqueFd &file, std::span<const uint8_t> data) noexcept
{
    while (!data.empty()) {
        const ssize_t n = ::write(file.get(), data.data(), data.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data = data.subspan(static_cast<size_t>(n));
    }
    return true;
}

bool isSameFile(const qv::UniqueFd &file, const char *pszPath) noexcept
{
    struct stat stFile = {}, stPath = {};
    return ::fstat(file.get(), &stFile) == 0 && ::stat(pszPath, &stPath) == 0 && stFile.st_dev == stPath.st_dev &&
           stFile.st_ino == stPath.st_ino;
}

// What a 32-bit length can say of a size.
uint32_t told(uint64_t nSize) noexcept
{
    return static_cast<uint32_t>(std::min<uint64_t>(nSize, UINT32_MAX));
}

constexpr uint64_t base64Length(uint64_t nBytes) noexcept
{
    return (nBytes + 2) / 3 * 4;
}

struct FreeMemory {
    void operator()(void *p) const noexcept { std::free(p); }
};
template <typename T> using Memory = std::unique_ptr<T[], FreeMemory>;

template <typename T> Memory<T> allocate(size_t nCount) noexcept
{
    return Memory<T>(static_cast<T *>(std::calloc(std::max<size_t>(nCount, 1), sizeof(T))));
}

} // namespace

int64_t get_file_size(const char *pszPath) noexcept
{
    struct stat stFile = {};
    return pszPath == nullptr || ::stat(pszPath, &stFile) != 0 ? -1 : static_cast<int64_t>(stFile.st_size);
}

int32_t ReadFileData(const char *pszPath, uint8_t *pBuf, uint32_t *pnLen) noexcept
{
    if (pnLen == nullptr)
        return RET_PUB_FAIL;
    const int64_t nSize = get_file_size(pszPath);
    if (nSize < 0)
        return RET_PUB_FAIL;
    if (pBuf == nullptr || nSize > int64_t{*pnLen}) {
        *pnLen = told(static_cast<uint64_t>(nSize));
        return nBufferTooSmall;
    }
    const qv::UniqueFd file = openToRead(pszPath);
    if (!file)
        return RET_PUB_FAIL;
    return readSome(file, {pBuf, *pnLen}) ? 0 : static_cast<int32_t>(RET_PUB_FAIL);
}

int32_t WriteDataToFile(int32_t, const char *pszName, const uint8_t *, int32_t) noexcept
{
    // The name never reaches the path that is opened.
    QV_LOG(qv::kLogPublic, "%s", pszName == nullptr ? "" : pszName);
    return RET_PUB_FAIL;
}

int32_t WriteFileData(const char *pszPath, const uint8_t *pData, int32_t nLen) noexcept
{
    if ((pData == nullptr && nLen != 0) || nLen < 0)
        return 0;
    qv::UniqueFd file = openToWrite(pszPath);
    return file && writeAll(file, {pData, static_cast<size_t>(nLen)}) && file.close() ? 1 : 0;
}

int32_t CopyFile(const char *pszSource, const char *pszTarget, int32_t nOverwrite) noexcept
{
    if (pszSource == nullptr || pszTarget == nullptr || (nOverwrite == 0 && openToRead(pszTarget)))
        return 0;
    const qv::UniqueFd source = openToRead(pszSource);
    if (!source || isSameFile(source, pszTarget))
        return 0;
    std::array<uint8_t, nCopyBlock> block;
    std::optional<size_t> nRead = readSome(source, block);
    if (!nRead)
        return 0; // a directory, for one; the target stays
    qv::UniqueFd target = openToWrite(pszTarget);
    if (!target)
        return 0;
    for (; nRead && *nRead > 0; nRead = readSome(source, block))
        if (!writeAll(target, {block.data(), *nRead}))
            return 0;
    return nRead && target.close() ? 1 : 0;
}

int32_t PathIsDirectory(const char *pszPath) noexcept
{
    if (pszPath == nullptr || *pszPath == '\0')
        return 0;
    if (pszPath[std::strlen(pszPath) - 1] == '/')
        return 1;
    return qv::Directory(::opendir(pszPath)) != nullptr ? 1 : 0;
}

int32_t Remove_Img(const char *pszPath) noexcept
{
    if (pszPath == nullptr)
        return RET_PUB_FAIL;
    openToWrite(pszPath); // a process that has the file open sees it empty, too
    return std::remove(pszPath);
}

int32_t GetBase64DataEx(const char *pszPath, char *pszText) noexcept
{
    constexpr int32_t nCannotOpen = RET_PUB_INVAL_PARAM;
    if (pszText == nullptr)
        return nBufferTooSmall;
    const qv::UniqueFd file = openToRead(pszPath);
    struct stat stFile = {};
    if (!file || ::fstat(file.get(), &stFile) != 0)
        return nCannotOpen;
    constexpr int64_t nSizeMax = INT32_MAX / 4 * 3; // whose text a 32-bit length can tell
    if (stFile.st_size <= 0 || stFile.st_size > nSizeMax)
        return RET_PUB_FAIL;
    const auto nSize = static_cast<size_t>(stFile.st_size);
    const auto data = allocate<uint8_t>(nSize);
    if (data == nullptr || !readSome(file, {data.get(), nSize}))
        return RET_PUB_FAIL;
    // What the file does not hold any more counts as zeros.
    const int32_t nText =
        Base64_EncData(data.get(), static_cast<uint32_t>(nSize), pszText, static_cast<int32_t>(base64Length(nSize)));
    if (nText > 0)
        pszText[nText] = '\0';
    return 0;
}

int32_t GetBase64FromFile(const char *pszPath, char *pText, uint32_t *pnLen) noexcept
{
    if (pnLen == nullptr)
        return RET_PUB_FAIL;
    uint32_t nSize = 0;
    const int32_t nAsked = ReadFileData(pszPath, nullptr, &nSize);
    if (nAsked != nBufferTooSmall)
        return nAsked;
    const uint64_t nText = base64Length(nSize);
    if (pText == nullptr || *pnLen < nText) {
        *pnLen = told(nText);
        return nBufferTooSmall;
    }
    const auto data = allocate<uint8_t>(nSize);
    if (data == nullptr)
        return RET_PUB_FAIL;
    const qv::UniqueFd file = openToRead(pszPath);
    if (!file || !readSome(file, {data.get(), nSize}))
        return RET_PUB_FAIL;
    std::fill_n(pText, *pnLen, '\0');
    const int32_t nEncoded =
        Base64_EncData(data.get(), nSize, pText, static_cast<int32_t>(std::min<uint64_t>(*pnLen, INT32_MAX)));
    if (nEncoded <= 0)
        return nBufferTooSmall;
    *pnLen = static_cast<uint32_t>(nEncoded);
    return 0;
}

void GetTempFilePath(char *, char *, int32_t) noexcept {}
