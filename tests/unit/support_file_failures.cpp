// Files that the system will not give or take: without rights, on a full disk, above the size that is allowed.

#include "codec_buffers.h"
#include "support_files.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace qvtest;

namespace {

const std::string g_sKiB(1024, 'k');

int32_t write(const std::string &sPath, const std::string &sText)
{
    return WriteFileData(sPath.c_str(), reinterpret_cast<const uint8_t *>(sText.data()),
                         static_cast<int32_t>(sText.size()));
}

// Why the rights of this process cannot be dropped, or not so that it still reaches the path; empty when they can.
std::string whyNotNobody(const std::string &sPath)
{
    std::filesystem::permissions(libraryDirectory(), std::filesystem::perms(0755));
    if (geteuid() != 0)
        return {};
    if (seteuid(65534) != 0)
        return "this process cannot become another user";
    const bool bReached = faccessat(AT_FDCWD, sPath.c_str(), F_OK, AT_EACCESS) == 0;
    if (seteuid(0) != 0)
        return "this process cannot become root again";
    return bReached ? "" : "another user cannot reach " + sPath;
}

// Files of this process end after nBytes while it lives.
class SizeLimit {
  public:
    explicit SizeLimit(rlim_t nBytes)
    {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &m_before), 0);
        m_pfnBefore = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit now{nBytes, m_before.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &now), 0);
    }
    ~SizeLimit()
    {
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &m_before), 0);
        std::signal(SIGXFSZ, m_pfnBefore);
    }
    SizeLimit(const SizeLimit &) = delete;
    SizeLimit &operator=(const SizeLimit &) = delete;

  private:
    rlimit m_before{};
    void (*m_pfnBefore)(int) = nullptr;
};

TEST_F(Files, WithoutTheRightToReadThemAreNotRead)
{
    const std::string sPath = made("closed", "0123456789");
    ASSERT_EQ(chmod(sPath.c_str(), 0), 0);
    if (const std::string sWhy = whyNotNobody(sPath); !sWhy.empty())
        GTEST_SKIP() << sWhy;
    const Nobody nobody;
    EXPECT_EQ(get_file_size(sPath.c_str()), 10) << "its size is no secret";
    Out out(32);
    uint32_t nLen = 77;
    EXPECT_EQ(ReadFileData(sPath.c_str(), nullptr, &nLen), -2);
    EXPECT_EQ(nLen, 10U);
    EXPECT_EQ(ReadFileData(sPath.c_str(), out.bytes(), &nLen), -1);
    EXPECT_EQ(nLen, 10U);
    EXPECT_EQ(GetBase64DataEx(sPath.c_str(), out.text()), -2);
    nLen = 32;
    EXPECT_EQ(GetBase64FromFile(sPath.c_str(), out.text(), &nLen), -1);
    EXPECT_EQ(nLen, 32U);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(CopyFile(sPath.c_str(), path("copy").c_str(), 1), 0);
    EXPECT_FALSE(exists(path("copy")));
}

TEST_F(Files, WithoutTheRightToWriteThemAreKept)
{
    const std::string sPath = made("kept", "kept"), sSource = made("source", "new");
    ASSERT_EQ(chmod(sPath.c_str(), 0444), 0);
    ASSERT_EQ(chmod(path("").c_str(), 0755), 0);
    if (const std::string sWhy = whyNotNobody(sPath); !sWhy.empty())
        GTEST_SKIP() << sWhy;
    const Nobody nobody;
    const mode_t nMode = getuid() == 0 ? 0755 : 0555; // root owns the folder, nobody may write there as it is
    chmod(path("").c_str(), nMode);
    EXPECT_EQ(write(sPath, "other"), 0);
    EXPECT_EQ(write(path("new"), "other"), 0);
    EXPECT_EQ(CopyFile(sSource.c_str(), sPath.c_str(), 1), 0);
    EXPECT_EQ(Remove_Img(sPath.c_str()), -1);
    EXPECT_EQ(readFile(sPath), "kept");
    EXPECT_FALSE(exists(path("new")));
    chmod(path("").c_str(), 0755);
}

TEST_F(Files, ThatMayNotBeReadAreNotSeenAsTargetsToSpare)
{
    const std::string sSource = made("source", "new"), sTarget = made("target", "older"), sClosed = made("no", "kept");
    ASSERT_EQ(chmod(sTarget.c_str(), 0222), 0);
    ASSERT_EQ(chmod(sClosed.c_str(), 0), 0);
    if (const std::string sWhy = whyNotNobody(sSource); !sWhy.empty())
        GTEST_SKIP() << sWhy;
    {
        const Nobody nobody;
        EXPECT_EQ(CopyFile(sSource.c_str(), sTarget.c_str(), 0), 1);
        EXPECT_EQ(CopyFile(sSource.c_str(), sClosed.c_str(), 0), 0) << "neither to be read nor to be written";
    }
    chmod(sTarget.c_str(), 0644);
    chmod(sClosed.c_str(), 0644);
    EXPECT_EQ(readFile(sTarget), "new");
    EXPECT_EQ(readFile(sClosed), "kept");
}

TEST_F(Files, ThatMayNotBeWrittenAreRemovedFromAFolderThatMay)
{
    const std::string sPath = made("image", "secret");
    ASSERT_EQ(chmod(sPath.c_str(), 0444), 0);
    ASSERT_EQ(chmod(path("").c_str(), 0777), 0);
    if (const std::string sWhy = whyNotNobody(sPath); !sWhy.empty())
        GTEST_SKIP() << sWhy;
    const Nobody nobody;
    EXPECT_EQ(Remove_Img(sPath.c_str()), 0);
    EXPECT_FALSE(exists(sPath));
}

TEST_F(Files, AreNoDirectoriesWhenTheseMayNotBeRead)
{
    std::filesystem::create_directory(path("dir"));
    ASSERT_EQ(chmod(path("dir").c_str(), 0), 0);
    if (const std::string sWhy = whyNotNobody(path("dir")); !sWhy.empty())
        GTEST_SKIP() << sWhy;
    {
        const Nobody nobody;
        EXPECT_EQ(PathIsDirectory(path("dir").c_str()), 0);
        EXPECT_NE(PathIsDirectory(path("dir/").c_str()), 0) << "the slash is enough";
    }
    EXPECT_EQ(chmod(path("dir").c_str(), 0755), 0);
    EXPECT_NE(PathIsDirectory(path("dir").c_str()), 0);
}

TEST_F(Files, ThatAreDirectoriesAreNeitherReadNorWritten)
{
    std::filesystem::create_directory(path("dir"));
    Bytes room(1 << 20);
    auto nLen = static_cast<uint32_t>(room.size());
    EXPECT_EQ(ReadFileData(path("dir").c_str(), room.data(), &nLen), -1);
    EXPECT_EQ(nLen, room.size());
    EXPECT_EQ(GetBase64FromFile(path("dir").c_str(), reinterpret_cast<char *>(room.data()), &nLen), -1);
    EXPECT_EQ(GetBase64DataEx(path("dir").c_str(), reinterpret_cast<char *>(room.data())), -1);
    EXPECT_EQ(room, Bytes(1 << 20));
    EXPECT_EQ(write(path("dir"), "x"), 0);
}

TEST_F(Files, OnAFullDiskAreNotWrittenWhole)
{
    EXPECT_EQ(write("/dev/full", "x"), 0);
    EXPECT_EQ(write("/dev/full", ""), 1) << "nothing to write";
    EXPECT_EQ(CopyFile(made("source", "x").c_str(), "/dev/full", 1), 0);
    EXPECT_EQ(CopyFile(made("empty", "").c_str(), "/dev/full", 1), 1);
}

TEST_F(Files, ThatTheDiskTakesOnlyInPartFail)
{
    const std::string sSource = made("source", g_sKiB + g_sKiB + g_sKiB);
    {
        const SizeLimit limit(1500);
        EXPECT_EQ(write(path("written"), g_sKiB + g_sKiB), 0);
        EXPECT_EQ(CopyFile(sSource.c_str(), path("copied").c_str(), 1), 0);
        EXPECT_EQ(write(path("small"), g_sKiB), 1);
    }
    EXPECT_EQ(get_file_size(path("written").c_str()), 1500) << "what it took is there";
    EXPECT_EQ(get_file_size(path("copied").c_str()), 1500);
    EXPECT_EQ(readFile(path("small")), g_sKiB);
}

TEST_F(Files, InAFolderThatIsAbsentAreNotWritten)
{
    EXPECT_EQ(write(path("no/such/file"), "x"), 0);
    EXPECT_EQ(write("", "x"), 0);
    EXPECT_FALSE(exists(path("no")));
}

} // namespace
