// The serial port's settings: speeds, the raw line, what is kept and written back.

#include "transport_serial.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;

namespace {

struct BaudRow {
    uint32_t nBaud;
    speed_t nSpeed;
};

TEST_F(Serial, EachRateOfTheTableIsSetAndEveryOtherIs9600)
{
    const BaudRow rows[] = {{300, B300},        {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},
                            {19200, B19200},    {38400, B38400}, {57600, B57600}, {115200, B115200}, {230400, B230400},
                            {460800, B9600},    {600, B9600},    {1800, B9600},   {0, B9600},        {50, B9600},
                            {110, B9600},       {9601, B9600},   {500000, B9600}, {921600, B9600},   {115201, B9600},
                            {UINT32_MAX, B9600}};
    for (const BaudRow &row : rows) {
        SCOPED_TRACE(row.nBaud);
        cook();
        ASSERT_EQ(COMM_Com_OpenLinux(path(), row.nBaud), 0);
        termios now = settings();
        EXPECT_EQ(cfgetospeed(&now), row.nSpeed);
        EXPECT_EQ(cfgetispeed(&now), row.nSpeed);
        EXPECT_EQ(now.c_cflag & 0xFFFF, row.nSpeed | CS8 | CREAD | CLOCAL);
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
        now = settings();
        EXPECT_EQ(cfgetospeed(&now), static_cast<speed_t>(B1200));
    }
}

TEST_F(Serial, ADriverThatKeepsItsOldSpeedIsLoggedAndTheOpenSucceeds)
{
    s_nStubbornSpeed = B1200;
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux(path(), 1200), 0);
    const size_t nObedient = logTexts().size();
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinux(path(), 115200), 0);
    EXPECT_EQ(logTexts().size(), nObedient + 1);
    EXPECT_NE(rawLog().find("115200 baud\r\n"), std::string::npos);
    EXPECT_TRUE(logged({"set linux com success!"}));
}

TEST_F(Serial, ThePortIsRawAndKeepsTheRestOfTheLocalModes)
{
    termios cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 57600), 0);
    termios now = settings();
    EXPECT_EQ(now.c_iflag & 0xFFFF, 0U);
    EXPECT_EQ(now.c_oflag & 0xFFFF, 0U);
    EXPECT_EQ(now.c_cflag & 0xFFFF, static_cast<tcflag_t>(B57600 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(now.c_lflag & 0xFFFF, static_cast<tcflag_t>(ECHOE | ECHOK | TOSTOP | IEXTEN | ECHOCTL));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 1);
    EXPECT_EQ(now.c_cc[VQUIT], 0x7F);
    EXPECT_EQ(now.c_cc[VINTR], cooked.c_cc[VINTR]);
    EXPECT_EQ(now.c_cc[VERASE], cooked.c_cc[VERASE]);
    EXPECT_EQ(now.c_cc[VKILL], cooked.c_cc[VKILL]);
    EXPECT_EQ(now.c_line, cooked.c_line);
}

TEST_F(Serial, TheSettingsFoundAreKeptAndWrittenBackAtClose)
{
    termios cooked = cook();
    struct termio found {};
    ASSERT_EQ(ioctl(m_nSecond, TCGETA, &found), 0);
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 38400), 0);
    EXPECT_EQ(g_stOldTermAttr.c_iflag, found.c_iflag);
    EXPECT_EQ(g_stOldTermAttr.c_oflag, found.c_oflag);
    EXPECT_EQ(g_stOldTermAttr.c_cflag, found.c_cflag);
    EXPECT_EQ(g_stOldTermAttr.c_lflag, found.c_lflag);
    EXPECT_EQ(g_stOldTermAttr.c_line, found.c_line);
    EXPECT_EQ(hex(g_stOldTermAttr.c_cc, NCC), hex(found.c_cc, NCC));

    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    termios now = settings();
    EXPECT_EQ(now.c_iflag, cooked.c_iflag);
    EXPECT_EQ(now.c_oflag, cooked.c_oflag);
    EXPECT_EQ(now.c_cflag, cooked.c_cflag);
    EXPECT_EQ(now.c_lflag, cooked.c_lflag);
    EXPECT_EQ(hex(now.c_cc, NCCS), hex(cooked.c_cc, NCCS));
}

TEST_F(Serial, HardwareFlowControlIsSwitchedOffAndComesBackAtClose)
{
    termios cooked = cook(CRTSCTS);
    ASSERT_NE(cooked.c_cflag & CRTSCTS, 0U);
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 115200), 0);
    termios now = settings();
    EXPECT_EQ(now.c_cflag & CRTSCTS, 0U);
    EXPECT_EQ(now.c_cflag & 0xFFFF, static_cast<tcflag_t>(B115200 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(now.c_cc[VMIN], 0);
    EXPECT_EQ(now.c_cc[VTIME], 1);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag, cooked.c_cflag);

    // A line that had none does not get it from the line before.
    cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag & CRTSCTS, 0U);
}

TEST_F(Serial, ASeparateInputSpeedIsSwitchedOff)
{
    constexpr unsigned nInputShift = 16;
    termios cooked = cook(static_cast<tcflag_t>(B300) << nInputShift);
    if (((cooked.c_cflag & CIBAUD) >> nInputShift) != B300)
        FAIL() << "this kernel's pseudo-terminal has no separate input speed";
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 19200), 0);
    tcflag_t nInput = (settings().c_cflag & CIBAUD) >> nInputShift;
    EXPECT_TRUE(nInput == 0 || nInput == B19200) << nInput;
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(settings().c_cflag & CIBAUD, cooked.c_cflag & CIBAUD);
}

TEST_F(Serial, AllByteValuesPassInBothDirections)
{
    cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    Bytes all(256);
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<uint8_t>(255 - i);
    EXPECT_EQ(COMM_Com_WriteLinux(all.data(), 256), 256);
    ASSERT_TRUE(m_peer->waitForBytes(256));
    EXPECT_EQ(hex(m_peer->received()), hex(all));
    m_peer->send(hex(all));
    Bytes in(256);
    EXPECT_EQ(COMM_Com_ReadLinux(in.data(), 256, 10, nullptr), 256);
    EXPECT_EQ(hex(in), hex(all));
}

TEST_F(Serial, SetTermWorksOnAnyDescriptorAndKeepsItsSettings)
{
    cook();
    EXPECT_EQ(SetTerm(m_nSecond, 2400), 0);
    EXPECT_EQ(settings().c_cflag & 0xFFFF, static_cast<tcflag_t>(B2400 | CS8 | CREAD | CLOCAL));
    EXPECT_EQ(g_stOldTermAttr.c_cflag & CBAUD, static_cast<tcflag_t>(B1200));
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(Serial, SetTermDiscardsInput)
{
    cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    EXPECT_EQ(SetTerm(g_AuxFd, 9600), 0);
    EXPECT_EQ(unread(), 0U);
}

TEST_F(Serial, SetTermRefusesWhatIsNoTty)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    EXPECT_EQ(SetTerm(nPipe[0], 9600), -1);
    EXPECT_EQ(SetTerm(-1, 9600), -1);
    EXPECT_EQ(SetTerm(-2, 9600), -2);
    ::close(nPipe[0]);
    ::close(nPipe[1]);
    EXPECT_EQ(SetTerm(nPipe[0], 9600), -1);
}

TEST_F(Serial, ResetAuxWritesTheKeptSettingsBackAndDiscardsInput)
{
    termios cooked = cook();
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    EXPECT_EQ(ResetAux(), 0);
    EXPECT_EQ(settings().c_lflag, cooked.c_lflag);
    EXPECT_EQ(settings().c_cflag, cooked.c_cflag);
    EXPECT_EQ(unread(), 0U);
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(Serial, ResetAuxOfWhatIsNoTtyGivesMinusOne)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    g_AuxFd = nPipe[0];
    EXPECT_EQ(ResetAux(), -1);
    EXPECT_EQ(ClearReceiveBuffer(), -1);
    // A close ends all the same.
    EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(fcntl(nPipe[0], F_GETFD), -1);
    ::close(nPipe[1]);
}

TEST_F(Serial, UnreadInputIsDiscardedOnRequest)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    m_peer->send("41 42");
    waitUnread(2);
    s_flushes.clear();
    EXPECT_EQ(ClearReceiveBuffer(), 0);
    EXPECT_EQ(unread(), 0U);
    EXPECT_THAT(s_flushes, ElementsAre(TCIFLUSH));
}

} // namespace
