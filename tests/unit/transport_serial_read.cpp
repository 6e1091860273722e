// Reading from the serial port, pass by pass.
//
// Most conversations here are a table of what each pass of the read brings; read(2) on the library's port then answers
// from the table instead of the line. A row is a run of bytes, an idle line or an errno.

#include "device_log.h"
#include "pty_peer.h"

#include "qvreader/support.h"
#include "qvreader/transport.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/syscall.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

struct Pass {
    Bytes data;
    int nErrno = 0;
};

Pass brings(std::string_view sHex)
{
    return {bytes(sHex), 0};
}
const Pass s_idle = {};
const Pass s_interrupted = {{}, EINTR};

bool s_bScripted = false;
std::vector<Pass> s_passes;
size_t s_nPass = 0;
std::vector<size_t> s_asked; // how much each pass asked for

} // namespace

extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    if (!s_bScripted || nFd != g_AuxFd)
        return syscall(SYS_read, nFd, pBuf, nLen);
    s_asked.push_back(nLen);
    if (s_nPass >= s_passes.size()) {
        errno = EBADF; // the table is used up: the read ends
        return -1;
    }
    const Pass &pass = s_passes[s_nPass++];
    if (pass.nErrno != 0) {
        errno = pass.nErrno;
        return -1;
    }
    size_t nCount = std::min(nLen, pass.data.size());
    std::copy_n(pass.data.begin(), nCount, static_cast<uint8_t *>(pBuf));
    return static_cast<ssize_t>(nCount);
}

namespace {

// What the end condition was shown, and when it says "complete".
std::vector<std::string> s_shown;
size_t s_nCompleteAt = 0;
const uint8_t *s_pShown = nullptr;

int32_t completeAt(const uint8_t *pBuf, int32_t nLen)
{
    s_pShown = pBuf;
    s_shown.push_back(hex(pBuf, static_cast<size_t>(nLen)));
    return s_shown.size() == s_nCompleteAt ? 0 : -1;
}

int32_t positive(const uint8_t *, int32_t)
{
    return 1;
}

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

class SerialRead : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        ASSERT_EQ(COMM_Com_OpenLinux(m_peer->path().c_str(), 9600), 0);
        s_bScripted = false;
        s_shown.clear();
        s_asked.clear();
        s_nCompleteAt = 0;
        m_buf.assign(64, 0xC5);
    }
    void TearDown() override
    {
        s_bScripted = false;
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    // A read over the table; it is complete when the end condition is asked for the nCompleteAt-th time (0: never).
    int32_t readOver(std::vector<Pass> passes, size_t nCompleteAt, uint32_t nMaxLen = 60)
    {
        s_passes = std::move(passes);
        s_nPass = 0;
        s_nCompleteAt = nCompleteAt;
        s_shown.clear();
        s_asked.clear();
        s_bScripted = true;
        int32_t nResult = COMM_Com_ReadLinux(m_buf.data(), nMaxLen, 30, completeAt);
        s_bScripted = false;
        return nResult;
    }
    std::string buffer(size_t nLen) const { return hex(m_buf.data(), nLen); }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    Bytes m_buf;
};

// ---- what ends a read ---------------------------------------------------------------------------------------------

TEST_F(SerialRead, TheEndConditionSeesTheWholeBufferAfterEveryPass)
{
    EXPECT_EQ(readOver({brings("41"), s_idle, brings("42 43"), brings("44")}, 4), 4);
    EXPECT_THAT(s_shown, ElementsAre("41", "41", "41 42 43", "41 42 43 44"));
    EXPECT_EQ(s_pShown, m_buf.data());
    EXPECT_EQ(buffer(5), "41 42 43 44 C5");
}

TEST_F(SerialRead, TheEndConditionIsAskedWhileNothingHasCome)
{
    EXPECT_EQ(readOver({s_idle, s_idle, brings("41")}, 3), 1);
    EXPECT_THAT(s_shown, ElementsAre("", "", "41"));
    // It may also end the read then.
    EXPECT_EQ(readOver({s_idle, s_idle}, 2), 0);
}

TEST_F(SerialRead, OnlyZeroMeansComplete)
{
    s_passes = {brings("41"), brings("42")};
    s_nPass = 0;
    s_bScripted = true;
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 60, 30, positive), -55);
    EXPECT_EQ(s_nPass, 2U);
}

TEST_F(SerialRead, AFullBufferEndsTheReadWithoutAskingTheEndCondition)
{
    EXPECT_EQ(readOver({brings("41 42"), brings("43 44 45")}, 0, 4), 4);
    EXPECT_THAT(s_shown, ElementsAre("41 42"));
    EXPECT_THAT(s_asked, ElementsAre(4U, 2U));
    EXPECT_EQ(buffer(5), "41 42 43 44 C5");
}

TEST_F(SerialRead, EachPassAsksForTheRoomThatIsLeft)
{
    EXPECT_EQ(readOver({brings("41"), s_idle, brings("42 43 44"), brings("45")}, 4, 10), 5);
    EXPECT_THAT(s_asked, ElementsAre(10U, 9U, 9U, 6U));
}

TEST_F(SerialRead, ARoomOfNothingIsFullAtOnce)
{
    EXPECT_EQ(readOver({s_idle}, 0, 0), 0);
    EXPECT_THAT(s_shown, ElementsAre());
    EXPECT_EQ(buffer(1), "C5");
}

TEST_F(SerialRead, AFailingReadGivesMinus55AndKeepsWhatCame)
{
    for (int nErrno : {EIO, EAGAIN, EBADF, ENXIO}) {
        SCOPED_TRACE(nErrno);
        EXPECT_EQ(readOver({brings("41 42"), {{}, nErrno}, brings("03")}, 0), -55);
        EXPECT_EQ(s_nPass, 2U);
        EXPECT_THAT(s_shown, ElementsAre("41 42"));
        EXPECT_EQ(buffer(3), "41 42 C5");
    }
}

TEST_F(SerialRead, ADeadDescriptorGivesMinus55)
{
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 4, 5, nullptr), -55);
    g_AuxFd = -1;
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 4, 5, nullptr), -55);
    g_AuxFd = nFd;
}

TEST_F(SerialRead, NullAndNoPortAreRefused)
{
    EXPECT_EQ(COMM_Com_ReadLinux(nullptr, 4, 5, nullptr), -2);
    EXPECT_EQ(COMM_Com_ReadLinux(nullptr, 4, 0, completeAt), -2);
    COMM_Com_CloseLinux();
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 4, 5, completeAt), -2);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 4, 0, completeAt), -2);
    EXPECT_THAT(s_shown, ElementsAre());
    EXPECT_EQ(buffer(4), "C5 C5 C5 C5");
}

// ---- the leading zero byte ----------------------------------------------------------------------------------------

TEST_F(SerialRead, AnIdleLineDropsALeadingZeroBeforeTheEndConditionIsAsked)
{
    EXPECT_EQ(readOver({brings("00 41 42"), s_idle}, 2), 2);
    EXPECT_THAT(s_shown, ElementsAre("00 41 42", "41 42"));
    EXPECT_EQ(buffer(2), "41 42");
    EXPECT_THAT(s_asked, ElementsAre(60U, 57U));
}

TEST_F(SerialRead, TheRoomOfADroppedZeroIsUsedAgain)
{
    EXPECT_EQ(readOver({brings("00 41 42"), s_idle, brings("43 44")}, 0, 4), 4);
    EXPECT_THAT(s_shown, ElementsAre("00 41 42", "41 42"));
    EXPECT_THAT(s_asked, ElementsAre(4U, 1U, 2U));
    EXPECT_EQ(buffer(5), "41 42 43 44 C5");
}

TEST_F(SerialRead, OneZeroIsDroppedPerIdlePass)
{
    EXPECT_EQ(readOver({brings("00 00 00 41"), s_idle, s_idle, s_idle, s_idle}, 5), 1);
    EXPECT_THAT(s_shown, ElementsAre("00 00 00 41", "00 00 41", "00 41", "41", "41"));
    EXPECT_EQ(buffer(1), "41");
}

TEST_F(SerialRead, ASingleZeroByteStays)
{
    EXPECT_EQ(readOver({brings("00"), s_idle, s_idle}, 3), 1);
    EXPECT_THAT(s_shown, ElementsAre("00", "00", "00"));
    EXPECT_EQ(readOver({brings("00 00"), s_idle, s_idle}, 3), 1);
    EXPECT_THAT(s_shown, ElementsAre("00 00", "00", "00"));
    EXPECT_EQ(buffer(1), "00");
}

TEST_F(SerialRead, APassWithBytesDropsNothing)
{
    EXPECT_EQ(readOver({brings("00"), brings("41"), brings("42")}, 3), 3);
    EXPECT_THAT(s_shown, ElementsAre("00", "00 41", "00 41 42"));
}

TEST_F(SerialRead, OnlyTheFirstByteIsLookedAt)
{
    EXPECT_EQ(readOver({brings("41 00 42"), s_idle}, 2), 3);
    EXPECT_THAT(s_shown, ElementsAre("41 00 42", "41 00 42"));
}

TEST_F(SerialRead, AZeroOfTheReadBeforeIsNotTakenForReceived)
{
    m_buf[0] = 0x00;
    m_buf[1] = 0x41;
    EXPECT_EQ(readOver({s_idle, s_idle}, 2), 0);
    EXPECT_THAT(s_shown, ElementsAre("", ""));
    EXPECT_EQ(buffer(2), "00 41");
}

TEST_F(SerialRead, ALeadingZeroInAFullBufferStays)
{
    EXPECT_EQ(readOver({brings("00 41")}, 0, 2), 2);
    EXPECT_EQ(buffer(3), "00 41 C5");
}

TEST_F(SerialRead, AZeroInFrontOfALongReplyIsDropped)
{
    constexpr size_t nLong = 200000;
    Bytes data(nLong);
    for (size_t i = 0; i < nLong; ++i)
        data[i] = static_cast<uint8_t>(i * 7 + 1);
    Bytes withZero = data;
    withZero.insert(withZero.begin(), 0x00);
    Bytes buf(nLong + 16, 0xC5);
    s_passes = {{withZero, 0}, s_idle};
    s_nPass = 0;
    s_nCompleteAt = 2;
    s_bScripted = true;
    EXPECT_EQ(COMM_Com_ReadLinux(buf.data(), nLong + 8, 30, completeAt), static_cast<int32_t>(nLong));
    EXPECT_TRUE(std::equal(data.begin(), data.end(), buf.begin()));
    EXPECT_EQ(hex(buf.data() + nLong + 1, 4), "C5 C5 C5 C5");
}

TEST_F(SerialRead, AReplyBehindAZeroArrivesWithoutItOverARealLine)
{
    m_peer->expect("31").reply("00 02 30 31 03");
    ASSERT_EQ(COMM_Com_WriteLinux(textBytes("1").data(), 1), 1);
    // Complete once the reply begins with its head byte.
    EndConditionFn end = [](const uint8_t *pBuf, int32_t nLen) -> int32_t { return nLen > 1 && pBuf[0] == 2 ? 0 : 1; };
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 60, 10, end), 4);
    EXPECT_EQ(buffer(4), "02 30 31 03");
    m_peer->finish();
}

// ---- signals ------------------------------------------------------------------------------------------------------

TEST_F(SerialRead, AnInterruptedPassGoesOnWithoutTheLeadingZeroStep)
{
    EXPECT_EQ(readOver({brings("00 41"), s_interrupted, s_interrupted, s_idle}, 4), 1);
    EXPECT_THAT(s_shown, ElementsAre("00 41", "00 41", "00 41", "41"));
}

TEST_F(SerialRead, AnInterruptedPassStillAsksTheEndCondition)
{
    EXPECT_EQ(readOver({s_interrupted, brings("41"), s_interrupted}, 3), 1);
    EXPECT_THAT(s_shown, ElementsAre("", "41", "41"));
    logOn();
    EXPECT_EQ(readOver({s_interrupted, brings("41"), s_interrupted}, 3), 1);
    EXPECT_FALSE(logged({"get empty data"}));
}

std::atomic<int> s_nSignals{0};

TEST_F(SerialRead, SignalsDoNotEndARead)
{
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { ++s_nSignals; };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    pthread_t self = pthread_self();
    std::atomic<bool> bDone{false};
    std::thread disturber([&] {
        while (!bDone) {
            pthread_kill(self, SIGUSR1);
            usleep(3000);
        }
    });
    m_peer->expect("31").reply("02 30", std::chrono::milliseconds(250)).reply("31 03", std::chrono::milliseconds(250));
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("1").data(), 1), 1);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 60, 20, endsWithEtx), 4);
    bDone = true;
    disturber.join();
    EXPECT_EQ(buffer(4), "02 30 31 03");
    EXPECT_GT(s_nSignals, 0);
    m_peer->finish();
    sigaction(SIGUSR1, &before, nullptr);
}

// ---- over a real line ---------------------------------------------------------------------------------------------

TEST_F(SerialRead, AReplyInPiecesIsPutTogether)
{
    using std::chrono::milliseconds;
    m_peer->expect("31 32").reply("02").reply("41 42", milliseconds(120)).reply("43 03", milliseconds(10));
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("12").data(), 2), 2);
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 60, 10, endsWithEtx), 5);
    EXPECT_EQ(buffer(6), "02 41 42 43 03 C5");
    m_peer->finish();
}

TEST_F(SerialRead, WithoutAnEndConditionTheBufferMustFill)
{
    m_peer->send("41 03 42 03 43 03 44");
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 6, 10, nullptr), 6);
    EXPECT_EQ(buffer(7), "41 03 42 03 43 03 C5");
    // What was beyond the buffer is the next read's.
    EXPECT_EQ(COMM_Com_ReadLinux(m_buf.data(), 1, 10, nullptr), 1);
    EXPECT_EQ(buffer(1), "44");
}

// ---- log ----------------------------------------------------------------------------------------------------------

TEST_F(SerialRead, AReadIsLoggedPassByPass)
{
    std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(readOver({brings("02 AB"), s_idle, brings("03")}, 3), 3);
    EXPECT_TRUE(logged({"[COMM_Com_ReadLinux ] Start  ", " g_AuxFd = " + sFd + " nTimeOut = 30 nMaxLen = 60 ",
                        "szRecvBuf  LEN=0   HEX: ", "get empty data", "szRecvBuf  LEN=2   HEX: 02AB",
                        "szRecvBuf  LEN=2   HEX: 02AB", "2", "ab", "3", "[COMM_Com_ReadLinux ] End nRetVal = 3 "}));
    EXPECT_FALSE(logged({" Param err"}));
}

// A dump as the file shows it.
std::string dump(const std::string &sText)
{
    return " T  " + sText + "\r\n";
}

TEST_F(SerialRead, TheLinesOfAReadAreTypedAndItsDumpsAreNot)
{
    const std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(readOver({s_idle, brings("02 AB"), s_idle, brings("0F")}, 4), 3);
    EXPECT_EQ(logWithoutTime(),
              line("[COMM_Com_ReadLinux ] Start  ") + line(" g_AuxFd = " + sFd + " nTimeOut = 30 nMaxLen = 60 ") +
                  line("get empty data") + dump("szRecvBuf  LEN=0   HEX: ") + dump("szRecvBuf  LEN=0   HEX: ") +
                  line("get empty data") + dump("szRecvBuf  LEN=2   HEX: 02AB") + dump("szRecvBuf  LEN=2   HEX: 02AB") +
                  line("2") + line("ab") + line("f") + line("[COMM_Com_ReadLinux ] End nRetVal = 3 "));
}

TEST_F(SerialRead, TheLinesOfAFailedAndOfARefusedReadAreTyped)
{
    const std::string sStart = line("[COMM_Com_ReadLinux ] Start  ");
    const std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(readOver({{{}, EIO}}, 0), -55);
    EXPECT_EQ(logWithoutTime(), sStart + line(" g_AuxFd = " + sFd + " nTimeOut = 30 nMaxLen = 60 ") +
                                    line("[ReadBlock] Start  nTempLen = -1") +
                                    line("[COMM_Com_ReadLinux ] End nRetVal = -55 "));
    logOn();
    EXPECT_EQ(COMM_Com_ReadLinux(nullptr, 7, -3, nullptr), -2);
    EXPECT_EQ(logWithoutTime(), sStart + line(" g_AuxFd = " + sFd + " nTimeOut = -3 nMaxLen = 7 ") +
                                    line(" Param err") + line("[RET_PUB_INVAL_PARAM]  "));
}

TEST_F(SerialRead, ALeadingZeroIsGoneFromTheLogOfItsPass)
{
    logOn();
    EXPECT_EQ(readOver({brings("00 AB"), s_idle}, 2), 1);
    EXPECT_TRUE(
        logged({"get empty data", "szRecvBuf  LEN=1   HEX: AB", "ab", "[COMM_Com_ReadLinux ] End nRetVal = 1 "}));
    EXPECT_FALSE(logged({"0"}));
}

TEST_F(SerialRead, FailuresAreLogged)
{
    logOn();
    EXPECT_EQ(readOver({brings("41"), {{}, EIO}}, 0), -55);
    EXPECT_TRUE(logged({"[ReadBlock] Start  nTempLen = -1", "41", "[COMM_Com_ReadLinux ] End nRetVal = -55 "}));
    logOn();
    EXPECT_EQ(COMM_Com_ReadLinux(nullptr, 7, 0, nullptr), -2);
    EXPECT_TRUE(logged({" g_AuxFd = " + std::to_string(g_AuxFd) + " nTimeOut = 0 nMaxLen = 7 ", " Param err",
                        "[RET_PUB_INVAL_PARAM]  "}));
}

} // namespace
