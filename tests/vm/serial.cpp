// serial.cpp - the library through the kernel's own driver of a 16550A.
#include "serial_simulator.h"
#include "steps.h"

#include "qvreader/qvreader.h"

#include <atomic>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>

using namespace qvvm;

namespace {

constexpr char szPortWithoutUart[] = "/dev/ttyS3";

// The tty as another program sees it.
class OtherEnd {
  public:
    OtherEnd() : m_nFd(open(szReaderPort, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
    ~OtherEnd() { close(m_nFd); }
    OtherEnd(const OtherEnd &) = delete;
    OtherEnd &operator=(const OtherEnd &) = delete;

    int fd() const { return m_nFd; }
    termios settings() const
    {
        termios found{};
        EXPECT_EQ(tcgetattr(m_nFd, &found), 0);
        return found;
    }
    void set(const termios &settings) const { EXPECT_EQ(tcsetattr(m_nFd, TCSANOW, &settings), 0); }
    int unread() const
    {
        int nCount = -1;
        EXPECT_EQ(ioctl(m_nFd, FIONREAD, &nCount), 0);
        return nCount;
    }

  private:
    int m_nFd;
};

class OpenPort {
  public:
    explicit OpenPort(int nBaud = 9600) : m_nResult(Dev_Rdz_Ic_OpenPort(szReaderPort, nullptr, 1, 0, nBaud)) {}
    ~OpenPort() { Dev_Rdz_Ic_ClosePort(); }
    OpenPort(const OpenPort &) = delete;
    OpenPort &operator=(const OpenPort &) = delete;
    int32_t result() const { return m_nResult; }

  private:
    int32_t m_nResult;
};

std::atomic<int> s_nPasses{0};
int32_t countPass(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return -1;
}

class Serial : public testing::Test {
  protected:
    Serial()
    {
        sim.reset();
        sim.command(std::string("insert 0 ") + szCardOutside);
    }
    ~Serial() override
    {
        Dev_Rdz_Ic_RaiseBaundFlag(0);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        EXPECT_EQ(g_AuxFd, -2);
    }

    SerialSimulator sim;

  private:
    int m_nDescriptors = openDescriptors();
};

TEST_F(Serial, APowerOnAndAnApduAreAnswered)
{
    const uint64_t nGarbage = sim.count("garbage");
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    EXPECT_EQ(send(szGetChallenge).sHex, szChallenge);
    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
    EXPECT_EQ(sim.count("garbage"), nGarbage);
}

TEST_F(Serial, TheDriverIsRawWhileOpenAndThenAsItWasFound)
{
    OtherEnd other;
    termios found = other.settings();
    const termios before = found;
    found.c_iflag |= ICRNL | IXON | INPCK;
    found.c_oflag |= OPOST | ONLCR;
    found.c_cflag =
        CS7 | PARENB | CSTOPB | CREAD | CLOCAL | HUPCL | CRTSCTS; // without CLOCAL an open waits for a carrier
    found.c_lflag |= ICANON | ECHO | ISIG | IEXTEN;
    found.c_cc[VMIN] = 1;
    found.c_cc[VTIME] = 0;
    cfsetspeed(&found, B1200);
    other.set(found);
    found = other.settings();
    ASSERT_EQ(found.c_cflag & (CSIZE | PARENB | CSTOPB | CRTSCTS), tcflag_t{CS7 | PARENB | CSTOPB | CRTSCTS});
    {
        OpenPort port(38400);
        ASSERT_EQ(port.result(), 0);
        const termios raw = other.settings();
        EXPECT_EQ(raw.c_iflag, 0U);
        EXPECT_EQ(raw.c_oflag, 0U);
        EXPECT_EQ(raw.c_cflag, tcflag_t{B38400 | CS8 | CREAD | CLOCAL});
        EXPECT_EQ(raw.c_lflag & (ISIG | ICANON | ECHO | NOFLSH), 0U);
        EXPECT_EQ(raw.c_lflag & IEXTEN, tcflag_t{IEXTEN});
        EXPECT_EQ(raw.c_cc[VMIN], 0);
        EXPECT_EQ(raw.c_cc[VTIME], 1);
    }
    const termios after = other.settings();
    EXPECT_EQ(after.c_iflag, found.c_iflag);
    EXPECT_EQ(after.c_oflag, found.c_oflag);
    EXPECT_EQ(after.c_cflag, found.c_cflag);
    EXPECT_EQ(after.c_lflag, found.c_lflag);
    EXPECT_EQ(cfgetospeed(&after), speed_t{B1200});
    EXPECT_EQ(std::memcmp(after.c_cc, found.c_cc, 8), 0); // as many as the interface carries
    other.set(before);
}

TEST_F(Serial, EachSpeedReachesTheLine)
{
    const uint64_t nGarbage = sim.count("garbage");
    for (int nBaud : {300, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200}) {
        SCOPED_TRACE(nBaud);
        sim.command("baud " + std::to_string(nBaud));
        OpenPort port(nBaud);
        ASSERT_EQ(port.result(), 0);
        EXPECT_EQ(powerOn(0).sHex, szAtr);
    }
    EXPECT_EQ(sim.count("garbage"), nGarbage);
}

TEST_F(Serial, AtAnotherSpeedThanTheReadersNothingIsUnderstood)
{
    const uint64_t nFrames = sim.count("frames");
    const uint64_t nGarbage = sim.count("garbage");
    sim.command("baud 38400");
    OpenPort port(115200);
    ASSERT_EQ(port.result(), 0);
    EXPECT_LT(powerOn(0, 0, 1).nResult, 0);
    EXPECT_EQ(sim.count("frames"), nFrames);
    EXPECT_GT(sim.count("garbage"), nGarbage);
}

// The speed before is the one that the old settings name.
TEST_F(Serial, ASpeedThatTheUartLacksOpensAndLeavesTheSpeedThatWasThere)
{
    OtherEnd other;
    const termios before = other.settings();
    OpenPort port(230400);
    EXPECT_EQ(port.result(), 0);
    EXPECT_EQ(other.settings().c_cflag & CBAUD, before.c_cflag & CBAUD);
}

TEST_F(Serial, ARaisedLineWorksAtTheNewSpeed)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    for (int nBaud : {38400, 115200}) {
        SCOPED_TRACE(nBaud);
        sim.command("baud 9600");
        OpenPort port(nBaud);
        ASSERT_EQ(port.result(), 0);
        EXPECT_EQ(powerOn(0).sHex, szAtr);
        EXPECT_EQ(send(szGetLong).sHex, longAnswer());
        EXPECT_EQ(sim.state("baud"), std::to_string(nBaud));
    }
}

TEST_F(Serial, TheLongestCommandAndAnswerPassTheFifo)
{
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    EXPECT_EQ(powerOn(0).sHex, szAtr);
    EXPECT_EQ(send(szGetLong).sHex, longAnswer());
    EXPECT_EQ(send(longCommand(505)).sHex, "90 00");
}

TEST_F(Serial, AnOpenDiscardsWhatNobodyRead)
{
    OtherEnd other;
    termios raw = other.settings();
    cfmakeraw(&raw);
    cfsetspeed(&raw, B9600);
    other.set(raw);
    const Bytes presence = bytes("02 30 30 30 32 33 31 31 31 32 30 03");
    ASSERT_EQ(write(other.fd(), presence.data(), presence.size()), static_cast<ssize_t>(presence.size()));
    ASSERT_TRUE(waitUntil([&] { return other.unread() > 5; }));
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    EXPECT_EQ(other.unread(), 0);
}

TEST_F(Serial, AnIdleReadEndsAfterItsTimeOutAndPassesTenTimesASecond)
{
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    std::array<uint8_t, 16> buf{};
    s_nPasses = 0;
    StopWatch watch;
    EXPECT_EQ(COMM_Com_ReadLinux(buf.data(), buf.size(), 2, countPass), RET_PUB_TIMEOUT);
    const double dElapsed = watch.ms();
    EXPECT_GE(dElapsed, 2000);
    EXPECT_LE(s_nPasses, dElapsed / 100 + 2);
    EXPECT_GE(s_nPasses, 3);
}

TEST_F(Serial, ACancelEndsARead)
{
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    std::array<uint8_t, 16> buf{};
    s_nPasses = 0;
    StopWatch sinceCancel;
    std::thread canceller([&] {
        waitUntil([] { return s_nPasses >= 2; });
        sinceCancel = StopWatch();
        EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0);
    });
    const int32_t nResult = COMM_Com_ReadLinux(buf.data(), buf.size(), 60, countPass);
    canceller.join();
    const double dElapsed = sinceCancel.ms();
    EXPECT_EQ(nResult, RET_PUB_CANCEL);
    EXPECT_LT(dElapsed, 5000); // a tenth of a second, and what a busy machine adds
}

TEST_F(Serial, AZeroByteInFrontOfAReplyIsNoPartOfIt)
{
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    sim.command("fault leadingzero 300");
    EXPECT_EQ(powerOn(0).sHex, szAtr);
}

TEST_F(Serial, ALineThatIsHungUpEndsTheReadAtItsTimeOutWithoutSpinning)
{
    OpenPort port;
    ASSERT_EQ(port.result(), 0);
    std::array<uint8_t, 16> buf{};
    s_nPasses = 0;
    std::thread hanger([] {
        waitUntil([] { return s_nPasses >= 2; });
        OtherEnd other;
        EXPECT_EQ(ioctl(other.fd(), TIOCVHANGUP), 0);
    });
    const double dBefore = processorMs();
    StopWatch watch;
    EXPECT_EQ(COMM_Com_ReadLinux(buf.data(), buf.size(), 2, countPass), RET_PUB_TIMEOUT);
    const double dElapsed = watch.ms();
    hanger.join();
    EXPECT_LE(s_nPasses, dElapsed / 100 + 2);
    EXPECT_LT(processorMs() - dBefore, dElapsed / 2);
    EXPECT_EQ(COMM_Com_WriteLinux(buf.data(), 4), 0);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(COMM_Com_OpenLinux(szReaderPort, 9600), 0);
}

TEST_F(Serial, APortWithoutAUartIsRefusedAndClosed)
{
    EXPECT_EQ(COMM_Com_OpenLinux(szPortWithoutUart, 9600), RET_PUB_FAIL);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(Dev_Rdz_Ic_OpenPort(szPortWithoutUart, nullptr, 1, 0, 9600), -51);
}

TEST_F(Serial, WithoutPermissionItWillNotOpen)
{
    EXPECT_EQ(asNobody([] { return -COMM_Com_OpenLinux(szReaderPort, 9600); }), 3);
}

} // namespace
