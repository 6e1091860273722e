// The single-shot reads and writes on any descriptor, and the removal of invisible characters.

#include "transport_serial.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

// ---- single-shot functions ----------------------------------------------------------------------------------------

class Pipe {
  public:
    Pipe() { EXPECT_EQ(pipe2(m_n, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe()
    {
        ::close(m_n[0]);
        ::close(m_n[1]);
    }
    int out() const { return m_n[0]; }
    int in() const { return m_n[1]; }
    void fill() const
    {
        const Bytes page(4096, 0xAA);
        while (::write(m_n[1], page.data(), page.size()) > 0) {
        }
    }

  private:
    int m_n[2] = {-1, -1};
};

TEST_F(Serial, AReadyDescriptorIsReadOnce)
{
    Pipe pipe;
    ASSERT_EQ(::write(pipe.in(), "abcd", 4), 4);
    uint8_t in[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    logOn();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 3), 3);
    EXPECT_TRUE(logged({"ReadUnblock\n"}));
    EXPECT_EQ(hex(in), "61 62 63 C5");
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 3), 1);
    EXPECT_EQ(hex(in), "64 62 63 C5");
}

TEST_F(Serial, ADescriptorThatStaysSilentIsReadAfterOneSecondAsZero)
{
    Pipe pipe;
    uint8_t in[2] = {0xC5, 0xC5};
    double nStart = seconds();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 0);
    EXPECT_GE(seconds() - nStart, 0.95);
    EXPECT_EQ(hex(in), "C5 C5");
}

TEST_F(Serial, AFullDescriptorTakesNothingWithinOneSecond)
{
    Pipe pipe;
    pipe.fill();
    double nStart = seconds();
    logOn();
    EXPECT_EQ(WriteUnBlock(pipe.in(), textBytes("x").data(), 1), 0);
    EXPECT_GE(seconds() - nStart, 0.95);
    EXPECT_TRUE(logged({"WriteUnblock\n"}));
}

TEST_F(Serial, APortThatTakesNothingLosesItsOutput)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    // A stopped line takes nothing.
    ASSERT_EQ(tcflow(m_nSecond, TCOOFF), 0);
    s_flushes.clear();
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("x").data(), 1), 0);
    EXPECT_THAT(s_flushes, ElementsAre(TCOFLUSH));
    ASSERT_EQ(tcflow(m_nSecond, TCOON), 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Serial, SingleShotsLogOneTypedLineWithItsOwnLineFeed)
{
    Pipe pipe;
    uint8_t in[2];
    logOn();
    EXPECT_EQ(WriteUnBlock(pipe.in(), textBytes("x").data(), 1), 1);
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 1);
    EXPECT_EQ(logWithoutTime(), line("WriteUnblock\n") + line("ReadUnblock\n"));
}

TEST_F(Serial, AReadyDescriptorIsWrittenOnce)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_flushes.clear();
    s_writes = {2};
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("xyz").data(), 3), 2);
    EXPECT_THAT(s_flushes, ElementsAre());
    EXPECT_EQ(m_peer->wire(), "78 79");
}

TEST_F(Serial, ASingleShotOnAReadyDescriptorReturnsWhatTheCallReturns)
{
    uint8_t in[2] = {0xC5, 0xC5};
    const int nReadOnly = ::open("/dev/null", O_RDONLY | O_CLOEXEC),
              nWriteOnly = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(ReadUnBlock(nWriteOnly, in, 2), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(WriteUnBlock(nReadOnly, in, 2), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ReadUnBlock(nReadOnly, in, 2), 0) << "the end of the file";
    EXPECT_EQ(WriteUnBlock(nWriteOnly, in, 2), 2);
    EXPECT_EQ(hex(in), "C5 C5");
    ::close(nReadOnly);
    ::close(nWriteOnly);

    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_flushes.clear();
    s_writes = {-EIO, 0};
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("x").data(), 1), -1);
    EXPECT_EQ(WriteUnBlock(g_AuxFd, textBytes("x").data(), 1), 0);
    EXPECT_THAT(s_flushes, ElementsAre()) << "it was ready";
}

TEST_F(Serial, ASingleShotWithoutABufferFails)
{
    Pipe pipe;
    uint8_t in[2] = {0xC5, 0xC5};
    EXPECT_EQ(WriteUnBlock(pipe.in(), nullptr, 1), -1);
    EXPECT_EQ(WriteUnBlock(pipe.in(), in, -1), -1);
    ASSERT_EQ(::write(pipe.in(), "x", 1), 1);
    EXPECT_EQ(ReadUnBlock(pipe.out(), nullptr, 1), -1);
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, -1), -1);
    pipe.fill();
    const double nStart = seconds();
    EXPECT_EQ(WriteUnBlock(pipe.in(), nullptr, 1), -1);
    EXPECT_LT(seconds() - nStart, 0.9) << "at once, ready or not";
}

TEST_F(Serial, DescriptorsAbove1023AreServedAndNothingIsOverrun)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    rlimit more = limit;
    more.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
    ASSERT_GE(more.rlim_cur, 4096U) << "the test needs 4,096 descriptors";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
    for (int nHigh : {1024, 1025, 4000}) {
        SCOPED_TRACE(nHigh);
        Pipe pipe;
        ASSERT_EQ(dup3(pipe.in(), nHigh, O_CLOEXEC), nHigh);
        EXPECT_EQ(WriteUnBlock(nHigh, textBytes("hi").data(), 2), 2);
        ASSERT_EQ(dup3(pipe.out(), nHigh, O_CLOEXEC), nHigh);
        uint8_t in[4] = {};
        EXPECT_EQ(ReadUnBlock(nHigh, in, 4), 2);
        EXPECT_EQ(hex(in), "68 69 00 00");
        ::close(nHigh);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(Serial, BadDescriptorsAreNeitherReadNorWritten)
{
    uint8_t in[2] = {0xC5, 0xC5};
    for (int nFd : {-1, -2, INT32_MIN, 99999, INT32_MAX}) {
        SCOPED_TRACE(nFd);
        EXPECT_LE(ReadUnBlock(nFd, in, 2), 0);
        EXPECT_LE(WriteUnBlock(nFd, in, 2), 0);
    }
    EXPECT_EQ(hex(in), "C5 C5");
}

TEST_F(Serial, ASignalDoesNotCutTheOneSecondShortNorStretchIt)
{
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    Pipe pipe;
    std::atomic<bool> bDone{false};
    pthread_t self = pthread_self();
    std::thread disturber([&] {
        while (!bDone) {
            pthread_kill(self, SIGUSR1);
            usleep(20000);
        }
    });
    uint8_t in[2];
    double nStart = seconds();
    EXPECT_EQ(ReadUnBlock(pipe.out(), in, 2), 0);
    double nTook = seconds() - nStart;
    bDone = true;
    disturber.join();
    EXPECT_GE(nTook, 0.95);
    EXPECT_LT(nTook, 5.0);
    sigaction(SIGUSR1, &before, nullptr);
}

// ---- text ---------------------------------------------------------------------------------------------------------

TEST(InvisibleCharacters, BlankTabLineFeedAndReturnAreRemoved)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", ""},     {"abc", "abc"}, {" a b\tc\r\n", "abc"}, {" \t\r\n", ""}, {"a\x0B\x0C_b", "a\x0B\x0C_b"},
        {"  x", "x"}, {"x  ", "x"}};
    for (auto [pszIn, pszOut] : rows) {
        char sz[16];
        std::memset(sz, 0x7E, sizeof sz);
        std::strcpy(sz, pszIn);
        EXPECT_EQ(ClearInvisibleCharInStr(sz), sz);
        EXPECT_STREQ(sz, pszOut);
        EXPECT_EQ(sz[15], 0x7E);
    }
    EXPECT_EQ(ClearInvisibleCharInStr(nullptr), nullptr);
}

} // namespace
