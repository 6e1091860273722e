// Files whose system calls move little at a time, are interrupted, or fail in the middle.

#include "codec_buffers.h"
#include "file_calls.h"
#include "support_files.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

using namespace qvtest;

namespace {

class FileCallsOfTheLibrary : public Files {
  protected:
    void TearDown() override
    {
        useFileCalls(nullptr);
        EXPECT_EQ(m_calls.nLeftToChildren, 0) << "a file would stay open in a child";
        Files::TearDown();
    }
    // One call of the library under these conditions.
    template <typename Call> int32_t under(FileCalls calls, Call call)
    {
        m_calls = calls;
        useFileCalls(&m_calls);
        const int32_t nRet = call();
        useFileCalls(nullptr);
        return nRet;
    }

    int32_t copy(FileCalls calls)
    {
        return under(calls, [this] { return CopyFile(path("source").c_str(), path("target").c_str(), 1); });
    }
    int32_t write(FileCalls calls)
    {
        return under(calls, [this] {
            return WriteFileData(path("target").c_str(), reinterpret_cast<const uint8_t *>(m_sText.data()),
                                 static_cast<int32_t>(m_sText.size()));
        });
    }
    int32_t read(FileCalls calls, Out &out)
    {
        return under(calls, [&] {
            auto nLen = static_cast<uint32_t>(m_sText.size());
            return ReadFileData(path("source").c_str(), out.bytes(), &nLen);
        });
    }

    FileCalls m_calls;
    const std::string m_sText = std::string(1500, 'a') + std::string(1500, 'b');
};

TEST_F(FileCallsOfTheLibrary, ThatMoveLittleAtATimeMoveAllInTheEnd)
{
    const FileCalls small{.nPiece = 7};
    made("source", m_sText);
    Out out(m_sText.size());
    EXPECT_EQ(read(small, out), 0);
    EXPECT_EQ(out.firstText(m_sText.size()), m_sText);
    EXPECT_EQ(copy(small), 1);
    EXPECT_EQ(readFile(path("target")), m_sText);
    made("target", "");
    EXPECT_EQ(write(small), 1);
    EXPECT_EQ(readFile(path("target")), m_sText);
    Out text(4001);
    EXPECT_EQ(under(small, [&] { return GetBase64DataEx(path("source").c_str(), text.text()); }), 0);
    EXPECT_EQ(text.firstText(4001).size(), 4001U);
    EXPECT_EQ(text.firstText(4001).substr(3996), std::string("YmJi") + '\0');
}

TEST_F(FileCallsOfTheLibrary, ThatAreInterruptedAreMadeAgain)
{
    made("source", m_sText);
    for (int nBefore : {0, 1, 2, 3}) {
        const FileCalls interrupted{.nPiece = 1000, .nBeforeError = nBefore, .nErrno = EINTR};
        Out out(m_sText.size());
        EXPECT_EQ(read(interrupted, out), 0);
        EXPECT_EQ(out.firstText(m_sText.size()), m_sText);
        EXPECT_EQ(copy(interrupted), 1) << nBefore;
        EXPECT_EQ(readFile(path("target")), m_sText);
        EXPECT_EQ(write(interrupted), 1) << nBefore;
        EXPECT_EQ(readFile(path("target")), m_sText);
    }
}

// A file that was cut after its size was taken.
TEST_F(FileCallsOfTheLibrary, ThatBringNothingMakeZerosOfTheBytesThatAreMissing)
{
    made("source", std::string(900, 'q'));
    const FileCalls ended{.nPiece = 0};
    Out text(1201), sized(1200), out(900);
    // Memory that is used again holds something else than zeros.
    Bytes(900, 0xAA);
    EXPECT_EQ(under(ended, [&] { return GetBase64DataEx(path("source").c_str(), text.text()); }), 0);
    EXPECT_EQ(text.firstText(1201), std::string(1200, 'A') + '\0');
    uint32_t nLen = 1200;
    Bytes(900, 0xAA);
    EXPECT_EQ(under(ended, [&] { return GetBase64FromFile(path("source").c_str(), sized.text(), &nLen); }), 0);
    EXPECT_EQ(nLen, 1200U);
    EXPECT_EQ(sized.firstText(1200), std::string(1200, 'A'));
    nLen = 900;
    EXPECT_EQ(under(ended, [&] { return ReadFileData(path("source").c_str(), out.bytes(), &nLen); }), 0);
    EXPECT_TRUE(out.untouched());
}

TEST_F(FileCallsOfTheLibrary, ThatFailInTheMiddleAreNoSuccess)
{
    made("source", m_sText);
    for (int nBefore : {0, 1, 2}) {
        const FileCalls failing{.nPiece = 1000, .nBeforeError = nBefore, .nErrno = EIO};
        Out out(m_sText.size()), text(4001);
        EXPECT_EQ(read(failing, out), -1) << nBefore;
        EXPECT_EQ(write(failing), 0) << nBefore;
        EXPECT_EQ(under(failing, [&] { return GetBase64DataEx(path("source").c_str(), text.text()); }), -1);
        uint32_t nLen = 4001;
        EXPECT_EQ(under(failing, [&] { return GetBase64FromFile(path("source").c_str(), text.text(), &nLen); }), -1);
        EXPECT_EQ(nLen, 4001U);
        EXPECT_TRUE(text.untouched());
    }
    for (int nBefore = 0; nBefore < 9; ++nBefore) // a read and a write a block; one more read at the end, twice
        EXPECT_EQ(copy({.nPiece = 1024, .nBeforeError = nBefore, .nErrno = EIO}), nBefore < 8 ? 0 : 1) << nBefore;
}

// A network file system may tell of a full disk only when the file is closed.
TEST_F(FileCallsOfTheLibrary, ThatFailToCloseWhatWasWrittenAreNoSuccess)
{
    made("source", m_sText);
    for (int nErrno : {EIO, ENOSPC, EINTR}) {
        const FileCalls failing{.nErrno = nErrno, .bCloseFails = true};
        Out out(m_sText.size());
        EXPECT_EQ(write(failing), 0) << nErrno;
        EXPECT_EQ(copy(failing), 0) << nErrno;
        EXPECT_EQ(read(failing, out), 0) << "all was read";
        EXPECT_EQ(readFile(path("target")), m_sText) << "what was written stays";
    }
}

} // namespace
