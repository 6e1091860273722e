// Where the library finds itself: the directory that the dynamic loader names decides about INI, fallback file and log
// directory. The loader's answer is given by this program.

#include "fake_clock.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

const std::string *s_pLibraryFile = nullptr; // what the loader names; null: the truth

} // namespace

extern "C" [[gnu::visibility("default")]] int dladdr(const void *pAddress, Dl_info *pInfo) noexcept
{
    if (s_pLibraryFile != nullptr) {
        *pInfo = {};
        pInfo->dli_fname = s_pLibraryFile->c_str();
        return 1;
    }
    using Function = int (*)(const void *, Dl_info *);
    static const Function pfnReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "dladdr"));
    return pfnReal(pAddress, pInfo);
}

namespace {

// What the library says, with a look behind the buffer.
std::string directory()
{
    std::string sOut(520, '\x15');
    getSoLocationPath(sOut.data());
    EXPECT_EQ(sOut.substr(512), std::string(8, '\x15'));
    return sOut.c_str();
}

// The library may ask the loader once and keep the answer, so that every library file gets a process of its own. This
// process must not ask before.
void asLibraryFile(const std::string *pFile, const std::function<void()> &fnCheck)
{
    std::fflush(nullptr);
    const pid_t nChild = fork();
    ASSERT_GE(nChild, 0);
    if (nChild == 0) {
        s_pLibraryFile = pFile;
        FakeClock clock(localSeconds(2026, 11, 20));
        const int nDescriptors = openDescriptors();
        fnCheck();
        EXPECT_EQ(openDescriptors(), nDescriptors);
        s_pLibraryFile = nullptr;
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    EXPECT_EQ(nStatus, 0) << "as " << (pFile == nullptr ? "itself" : *pFile);
}

TEST(LibraryPath, TruthIsThePrivateCopy)
{
    asLibraryFile(nullptr, [] { EXPECT_EQ(directory(), libraryDirectory()); });
}

TEST(LibraryPath, NameIsCutAtItsLastSlash)
{
    struct {
        std::string sFile;
        const char *pszDirectory;
    } const aRows[] = {{"/usr/lib/libqvreader.so.1", "/usr/lib"},
                       {"./libqvreader.so", "."},
                       {"../lib/libqvreader.so", "../lib"},
                       {"/a//libqvreader.so", "/a/"},
                       {"/libqvreader.so", ""},
                       {"/a b/\xB6\xC1/x.so", "/a b/\xB6\xC1"}};
    for (const auto &row : aRows)
        asLibraryFile(&row.sFile, [&] { EXPECT_EQ(directory(), row.pszDirectory); });
}

TEST(LibraryPath, NameWithoutASlashIsTheCurrentDirectory)
{
    const std::string sFile = "libqvreader.so.1";
    asLibraryFile(&sFile, [] {
        const std::string sDir = libraryDirectory() + "/current";
        fs::create_directory(sDir);
        fs::current_path(sDir);
        EXPECT_EQ(directory(), ".");
        EXPECT_STREQ(getLogFilePath(), "./Alg_debug.log");
        EXPECT_STREQ(pGetLogPath(), "./log/QV_20261120.log");
        EXPECT_TRUE(fs::is_directory(sDir + "/log"));
        EXPECT_EQ(isWriteLog(), 0);
        writeFile("QVConfig.ini", "[QuorvanLog]\nLogFlag=1\n");
        EXPECT_EQ(isWriteLog(), 1);
        DPrintLogToFile("here");
        EXPECT_TRUE(readFile("Alg_debug.log").ends_with("  here\r\n"));
    });
}

TEST(LibraryPath, OverlongDirectoryIsCutAt511Characters)
{
    for (size_t nLen : {size_t{510}, size_t{511}, size_t{512}, size_t{600}, size_t{5000}}) {
        const std::string sDir = "/" + std::string(nLen - 1, 'd');
        const std::string sFile = sDir + "/libqvreader.so.1";
        asLibraryFile(&sFile, [&] {
            EXPECT_EQ(directory(), sDir.substr(0, 511)) << nLen;
            EXPECT_LE(std::strlen(getLogFilePath()), 511U);
            EXPECT_LE(std::strlen(pGetLogPath()), 255U);
            EXPECT_EQ(isWriteLog(), 0);
            EXPECT_EQ(initDriver(), 0);
            DPrintLogToFile("dropped");
        });
    }
}

TEST(LibraryPath, DeepDirectoryIsPurgedWithNamesOf255Bytes)
{
    std::string sDir = libraryDirectory() + "/deep";
    while (sDir.size() + 80 < 500)
        sDir += "/" + std::string(70, 'd');
    fs::create_directories(sDir + "/log");
    const std::string sOld = sDir + "/log/QV_20250101.log" + std::string(240, 'o');
    const std::string sKept = sDir + "/log/QV_20261119.log" + std::string(240, 'k');
    writeFile(sOld, "x");
    writeFile(sKept, "x");
    writeFile(sDir + "/QVConfig.ini", "[QuorvanLog]\nLogFlag=1\n");
    const std::string sFile = sDir + "/libqvreader.so.1";
    asLibraryFile(&sFile, [&] {
        EXPECT_EQ(getLogFilePath(), sDir + "/Alg_debug.log");
        EXPECT_EQ(isWriteLog(), 1);
        DelOutTimeLogFile();
        // The path of the day does not fit its buffer: it is cut, not overrun.
        EXPECT_EQ(pGetLogPath(), (sDir + "/log/QV_20261120.log").substr(0, 255));
    });
    EXPECT_FALSE(fs::exists(sOld));
    EXPECT_TRUE(fs::exists(sKept));
    EXPECT_NE(readFile(sDir + "/Alg_debug.log").find("del outtime FILE:" + sOld + "\r\n"), std::string::npos);
}

} // namespace
