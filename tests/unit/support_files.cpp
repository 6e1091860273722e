// Whole files: sizes, reading, writing, copying, removing, and what is a directory.

#include "support_files.h"
#include "codec_buffers.h"
#include "support_log.h"

#include "qvreader/support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

constexpr int64_t nFiveGiB = int64_t{5} << 30;

int32_t read(const std::string &sPath, Out &out, uint32_t &nLen)
{
    return ReadFileData(sPath.c_str(), out.bytes(), &nLen);
}

int32_t write(const std::string &sPath, std::string_view sText)
{
    return WriteFileData(sPath.c_str(), reinterpret_cast<const uint8_t *>(sText.data()),
                         static_cast<int32_t>(sText.size()));
}

int32_t copy(const std::string &sFrom, const std::string &sTo, int32_t nOverwrite)
{
    return CopyFile(sFrom.c_str(), sTo.c_str(), nOverwrite);
}

std::string patterned(size_t nLen)
{
    const Bytes data = randomBytes(nLen, static_cast<unsigned>(nLen));
    return {data.begin(), data.end()};
}

TEST_F(Files, HaveTheSizeThatTheSystemTells)
{
    EXPECT_EQ(get_file_size(made("empty", "").c_str()), 0);
    EXPECT_EQ(get_file_size(made("ten", "0123456789").c_str()), 10);
    EXPECT_EQ(get_file_size(path("absent").c_str()), -1);
    struct stat info {};
    ASSERT_EQ(stat(path("").c_str(), &info), 0);
    EXPECT_EQ(get_file_size(path("").c_str()), info.st_size) << "a directory has a size, too";
    EXPECT_EQ(get_file_size(""), -1);
    EXPECT_EQ(get_file_size(nullptr), -1);
}

TEST_F(Files, Above4GiBHaveTheirWholeSize)
{
    const std::string sPath = made("sparse", "");
    ASSERT_EQ(truncate(sPath.c_str(), nFiveGiB), 0);
    EXPECT_EQ(get_file_size(sPath.c_str()), nFiveGiB);
    for (const bool bBuffer : {false, true}) {
        Out out(8);
        uint32_t nLen = 8;
        EXPECT_EQ(ReadFileData(sPath.c_str(), bBuffer ? out.bytes() : nullptr, &nLen), -2);
        EXPECT_EQ(nLen, UINT32_MAX) << "the most that a 32-bit length can tell";
        EXPECT_TRUE(out.untouched());
    }
    Out out(8);
    uint32_t nLen = 1U << 30; // the low word of the size
    EXPECT_EQ(read(sPath, out, nLen), -2);
    EXPECT_TRUE(out.untouched());
}

TEST_F(Files, AreReadWholeAndTheLengthStays)
{
    for (size_t nSize : {1U, 10U, 1023U, 1024U, 1025U, 5000U}) {
        const std::string sText = patterned(nSize);
        const std::string sPath = made("data", sText);
        for (uint32_t nExtra : {0U, 1U, 5000U}) {
            Out out(nSize + nExtra);
            uint32_t nLen = static_cast<uint32_t>(nSize) + nExtra;
            EXPECT_EQ(read(sPath, out, nLen), 0);
            EXPECT_EQ(nLen, nSize + nExtra);
            EXPECT_EQ(out.firstText(nSize), sText);
        }
    }
    Out out(4);
    uint32_t nLen = 4;
    EXPECT_EQ(read(made("empty", ""), out, nLen), 0);
    EXPECT_EQ(nLen, 4U);
    EXPECT_TRUE(out.untouched());
}

TEST_F(Files, TellTheirSizeToABufferThatIsNullOrTooSmall)
{
    const std::string sPath = made("ten", "0123456789");
    uint32_t nLen = 77;
    EXPECT_EQ(ReadFileData(sPath.c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 10U);
    Out out(9);
    nLen = 9;
    EXPECT_EQ(read(sPath, out, nLen), -2);
    EXPECT_EQ(nLen, 10U);
    EXPECT_TRUE(out.untouched());
    nLen = 77;
    EXPECT_EQ(ReadFileData(made("empty", "").c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 0U);
}

TEST_F(Files, ThatAreAbsentLeaveTheLengthAlone)
{
    Out out(4);
    uint32_t nLen = 4;
    EXPECT_EQ(read(path("absent"), out, nLen), -1);
    EXPECT_EQ(ReadFileData(path("absent").c_str(), nullptr, &nLen), -1);
    EXPECT_EQ(ReadFileData(nullptr, out.bytes(), &nLen), -1);
    EXPECT_EQ(nLen, 4U);
    EXPECT_EQ(ReadFileData(made("ten", "0123456789").c_str(), out.bytes(), nullptr), -1);
    EXPECT_TRUE(out.untouched());
}

// What /proc tells of itself has the size 0 and goes on all the same, like a file that grows.
TEST_F(Files, ThatHoldMoreThanTheirSizeNeverOverrunTheBuffer)
{
    ASSERT_EQ(get_file_size("/proc/self/status"), 0);
    Out out(10);
    uint32_t nLen = 10;
    EXPECT_EQ(read("/proc/self/status", out, nLen), 0);
    EXPECT_EQ(out.firstText(10).substr(0, 5), "Name:");
    EXPECT_EQ(nLen, 10U);
}

TEST_F(Files, AreWrittenAnew)
{
    const std::string sPath = path("new");
    EXPECT_EQ(write(sPath, "a longer text"), 1);
    EXPECT_EQ(readFile(sPath), "a longer text");
    EXPECT_EQ(write(sPath, "short"), 1);
    EXPECT_EQ(readFile(sPath), "short");
    EXPECT_EQ(write(sPath, std::string_view("\0\xFF\n", 3)), 1);
    EXPECT_EQ(readFile(sPath), std::string("\0\xFF\n", 3));
    EXPECT_EQ(write(sPath, ""), 1) << "no bytes are all bytes";
    EXPECT_EQ(readFile(sPath), "");
}

TEST_F(Files, AreNotTouchedForANegativeLengthOrNull)
{
    const std::string sPath = made("kept", "kept");
    EXPECT_EQ(WriteFileData(sPath.c_str(), &ucFree, -1), 0);
    EXPECT_EQ(WriteFileData(sPath.c_str(), &ucFree, INT32_MIN), 0);
    EXPECT_EQ(WriteFileData(sPath.c_str(), nullptr, 1), 0);
    EXPECT_EQ(WriteFileData(sPath.c_str(), nullptr, -1), 0);
    EXPECT_EQ(WriteFileData(nullptr, &ucFree, 1), 0);
    EXPECT_EQ(WriteFileData(nullptr, nullptr, 0), 0);
    EXPECT_EQ(readFile(sPath), "kept");
}

TEST_F(Files, OfNoBytesNeedNoData)
{
    EXPECT_EQ(WriteFileData(path("new").c_str(), nullptr, 0), 1);
    EXPECT_EQ(get_file_size(path("new").c_str()), 0);
    EXPECT_EQ(WriteFileData(made("emptied", "text").c_str(), nullptr, 0), 1);
    EXPECT_EQ(get_file_size(path("emptied").c_str()), 0);
}

TEST_F(Files, AreMadeWithTheRightsThatTheUmaskLeaves)
{
    const mode_t nMask = umask(0);
    for (const mode_t nNow : {0U, 027U}) {
        umask(nNow);
        const std::string sNew = path("new" + std::to_string(nNow)), sCopy = path("copy" + std::to_string(nNow));
        EXPECT_EQ(write(sNew, "x"), 1);
        EXPECT_EQ(copy(sNew, sCopy, 1), 1);
        EXPECT_EQ(modeOf(sNew), 0666U & ~nNow);
        EXPECT_EQ(modeOf(sCopy), 0666U & ~nNow);
    }
    umask(nMask);
}

TEST_F(Files, AreCopiedWhole)
{
    for (size_t nSize : {0U, 1U, 1023U, 1024U, 1025U, 2048U, 5000U}) {
        const std::string sText = patterned(nSize);
        EXPECT_EQ(copy(made("source", sText), path("target"), 1), 1) << nSize;
        EXPECT_EQ(readFile(path("target")), sText);
        EXPECT_EQ(readFile(path("source")), sText);
    }
    EXPECT_EQ(copy(path("source"), path("second"), 0), 1);
    EXPECT_EQ(readFile(path("second")), readFile(path("source")));
}

TEST_F(Files, AreCopiedOverALongerTargetOnlyWithTheFlag)
{
    const std::string sSource = made("source", "new"), sTarget = made("target", "older text");
    EXPECT_EQ(copy(sSource, sTarget, 0), 0);
    EXPECT_EQ(readFile(sTarget), "older text");
    EXPECT_EQ(copy(path("absent"), sTarget, 1), 0);
    EXPECT_EQ(readFile(sTarget), "older text") << "no source, no change";
    for (int32_t nFlag : {1, -1, 2}) {
        writeFile(sTarget, "older text");
        EXPECT_EQ(copy(sSource, sTarget, nFlag), 1);
        EXPECT_EQ(readFile(sTarget), "new");
    }
}

TEST_F(Files, AreNeverCopiedOntoThemselves)
{
    const std::string sPath = made("one", "text");
    std::filesystem::create_hard_link(sPath, path("hard"));
    std::filesystem::create_symlink(sPath, path("soft"));
    for (const char *pszName : {"one", "./one", "hard", "soft"})
        for (int32_t nFlag : {0, 1}) {
            EXPECT_EQ(copy(sPath, path(pszName), nFlag), 0) << pszName;
            EXPECT_EQ(copy(path(pszName), sPath, nFlag), 0) << pszName;
            EXPECT_EQ(readFile(sPath), "text");
        }
}

TEST_F(Files, BehindASymbolicLinkAreTheOnesThatCount)
{
    const std::string sFile = made("file", "0123456789"), sLink = path("link");
    std::filesystem::create_symlink(sFile, sLink);
    EXPECT_EQ(get_file_size(sLink.c_str()), 10);
    Out out(10);
    uint32_t nLen = 10;
    EXPECT_EQ(read(sLink, out, nLen), 0);
    EXPECT_EQ(out.firstText(10), "0123456789");
    EXPECT_EQ(copy(sLink, path("copy"), 0), 1);
    EXPECT_EQ(readFile(path("copy")), "0123456789");
    EXPECT_FALSE(std::filesystem::is_symlink(path("copy")));
    EXPECT_EQ(write(sLink, "written"), 1);
    EXPECT_EQ(readFile(sFile), "written");
    EXPECT_EQ(copy(path("copy"), sLink, 0), 0) << "what it leads to is there";
    EXPECT_EQ(copy(path("copy"), sLink, 1), 1);
    EXPECT_EQ(readFile(sFile), "0123456789");
    EXPECT_TRUE(std::filesystem::is_symlink(sLink));
    std::filesystem::remove(sFile);
    EXPECT_EQ(get_file_size(sLink.c_str()), -1);
    EXPECT_EQ(copy(path("copy"), sLink, 0), 1);
    EXPECT_EQ(readFile(sFile), "0123456789") << "made where the link leads to";
}

TEST_F(Files, AreNotCopiedFromOrToADirectoryOrNull)
{
    std::filesystem::create_directory(path("dir"));
    const std::string sPath = made("one", "text");
    EXPECT_EQ(copy(path("dir"), path("target"), 1), 0);
    EXPECT_FALSE(exists(path("target")));
    EXPECT_EQ(copy(path("dir"), sPath, 1), 0);
    EXPECT_EQ(readFile(sPath), "text");
    EXPECT_EQ(copy(sPath, path("dir"), 1), 0);
    EXPECT_EQ(copy(sPath, path("absent/target"), 1), 0);
    EXPECT_EQ(CopyFile(nullptr, sPath.c_str(), 1), 0);
    EXPECT_EQ(CopyFile(sPath.c_str(), nullptr, 1), 0);
    EXPECT_EQ(readFile(sPath), "text");
}

TEST_F(Files, AreEmptiedThenRemoved)
{
    const std::string sPath = made("image", "secret");
    const int nOpen = open(sPath.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(nOpen, 0);
    EXPECT_EQ(Remove_Img(sPath.c_str()), 0);
    EXPECT_FALSE(exists(sPath));
    struct stat info {};
    EXPECT_EQ(fstat(nOpen, &info), 0);
    EXPECT_EQ(info.st_size, 0) << "who has it open finds nothing";
    close(nOpen);

    made("image", "secret");
    std::filesystem::create_hard_link(sPath, path("other name"));
    EXPECT_EQ(Remove_Img(sPath.c_str()), 0);
    EXPECT_EQ(readFile(path("other name")), "");
}

TEST_F(Files, ThatAreAbsentAreRemovedAllTheSame)
{
    EXPECT_EQ(Remove_Img(path("absent").c_str()), 0);
    EXPECT_FALSE(exists(path("absent")));
    EXPECT_EQ(Remove_Img(path("no/such/folder").c_str()), -1);
    EXPECT_EQ(Remove_Img(""), -1);
    EXPECT_EQ(Remove_Img(nullptr), -1);
}

TEST_F(Files, AreNotRemovedWithTheirDirectoryButAnEmptyOneIs)
{
    std::filesystem::create_directory(path("dir"));
    const std::string sInside = made("dir/inside", "kept");
    EXPECT_EQ(Remove_Img(path("dir").c_str()), -1);
    EXPECT_EQ(readFile(sInside), "kept");
    std::filesystem::remove(sInside);
    EXPECT_EQ(Remove_Img(path("dir").c_str()), 0);
    EXPECT_FALSE(exists(path("dir")));
}

TEST_F(Files, AreDirectoriesWhenTheyOpenAsOneOrEndInASlash)
{
    std::filesystem::create_directory(path("dir"));
    made("file", "x");
    EXPECT_NE(PathIsDirectory(path("dir").c_str()), 0);
    EXPECT_NE(PathIsDirectory(path("dir/").c_str()), 0);
    EXPECT_NE(PathIsDirectory(path("absent/").c_str()), 0);
    EXPECT_NE(PathIsDirectory(path("file/").c_str()), 0);
    EXPECT_NE(PathIsDirectory("/"), 0);
    std::filesystem::create_symlink(path("dir"), path("link"));
    std::filesystem::create_symlink(path("file"), path("link to file"));
    std::filesystem::create_symlink(path("absent"), path("link to nothing"));
    EXPECT_NE(PathIsDirectory(path("link").c_str()), 0);
    EXPECT_EQ(PathIsDirectory(path("link to file").c_str()), 0);
    EXPECT_EQ(PathIsDirectory(path("link to nothing").c_str()), 0);
    EXPECT_NE(PathIsDirectory("."), 0);
    EXPECT_EQ(PathIsDirectory(path("file").c_str()), 0);
    EXPECT_EQ(PathIsDirectory(path("absent").c_str()), 0);
    EXPECT_EQ(PathIsDirectory(""), 0);
    EXPECT_EQ(PathIsDirectory(nullptr), 0);
}

TEST_F(Log, OfWriteDataToFileIsTheNameAndNothingElseHappens)
{
    const std::string sPath = libraryDirectory() + "/never.bin";
    const auto before = filesBelow(libraryDirectory());
    logOn();
    EXPECT_EQ(WriteDataToFile(0, sPath.c_str(), &ucFree, 1), -1);
    EXPECT_EQ(WriteDataToFile(7, "100%s", nullptr, 0), -1);
    EXPECT_EQ(WriteDataToFile(0, nullptr, &ucFree, 1), -1);
    EXPECT_THAT(logTexts(), ElementsAre(sPath, "100%s", "")) << "a null name is an empty one";
    EXPECT_NE(rawLog().find("Public:"), std::string::npos);
    auto after = filesBelow(libraryDirectory());
    after.erase(libraryDirectory() + "/test.log");
    auto expected = before;
    expected.erase(libraryDirectory() + "/test.log");
    EXPECT_EQ(after, expected);
}

TEST_F(Files, AreNotConcernedByGetTempFilePath)
{
    char szFirst[] = "first", szSecond[] = "second";
    GetTempFilePath(szFirst, szSecond, 5);
    GetTempFilePath(nullptr, nullptr, 0);
    EXPECT_STREQ(szFirst, "first");
    EXPECT_STREQ(szSecond, "second");
}

} // namespace
