// Writing to the serial port, block by block, and its log.

#include "transport_serial.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

using namespace qvtest;

namespace {

TEST_F(Serial, AWriteReturnsItsLengthAndRefusesNullAndNothing)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const uint8_t out[] = {0x00, 0x31, 0xFF};
    EXPECT_EQ(COMM_Com_WriteLinux(out, 3), 3);
    EXPECT_EQ(COMM_Com_WriteLinux(nullptr, 3), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, 0), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, -1), -2);
    EXPECT_EQ(COMM_Com_WriteLinux(out, INT32_MIN), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out + 1, 1), 1);
    EXPECT_EQ(QV_SendDataToTransPort(nullptr, 1), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out, 0), -2);
    EXPECT_EQ(QV_SendDataToTransPort(out, -5), -2);
    EXPECT_EQ(m_peer->wire(), "00 31 FF 31");
}

TEST_F(Serial, ShortWritesAreRepeatedUntilAllIsOut)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {1, 2, 1};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcdefg").data(), 7), 7);
    EXPECT_EQ(s_nWrites, 3U);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abcdefg")));
}

TEST_F(Serial, AFailingWriteReturnsTheCountSoFar)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {2, 1, -EIO};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcdefg").data(), 7), 3);
    s_writes = {-EIO};
    s_nWrites = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("xyz").data(), 3), 0);
    s_writes = {-EAGAIN};
    s_nWrites = 0;
    EXPECT_EQ(QV_SendDataToTransPort("xyz", 3), 0);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abc")));
}

TEST_F(Serial, AWriteOfNothingEndsLikeAFailure)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {2, 0};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abcd").data(), 4), 2);
    EXPECT_EQ(s_nWrites, 2U);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("ab")));
}

TEST_F(Serial, AnInterruptedWriteIsRepeated)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {-EINTR, 1, -EINTR};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abc").data(), 3), 3);
    // Also while every call is logged, which leaves its own errno behind.
    logOn();
    s_nWrites = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("def").data(), 3), 3);
    EXPECT_EQ(m_peer->wire(), hex(textBytes("abcdef")));
}

TEST_F(Serial, AWriteToADeadDescriptorReturnsZero)
{
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("abc").data(), 3), 0);
    g_AuxFd = -2;
}

TEST_F(Serial, AWriteIsLoggedByteByByte)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    std::string sFd = std::to_string(g_AuxFd);
    logOn();
    // The text has no terminator: exactly its three bytes are printed.
    const Bytes out = textBytes("\x31\x0F\x7A");
    EXPECT_EQ(COMM_Com_WriteLinux(out.data(), 3), 3);
    EXPECT_TRUE(
        logged({" g_AuxFd = " + sFd + " ", " pInData = \x31\x0F\x7A ", " nLen = 3 ", "COMM_Com_WriteLinux nLen = 3 ",
                "31", "0f", "7a", "WriteBlock  fd = " + sFd + " ", "WriteBlock  End "}));
}

TEST_F(Serial, TheLogOfAWriteNamesEachBlockAndIsTyped)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const std::string sFd = std::to_string(g_AuxFd);
    const std::string sHead = line("[COMM_Com_WriteLinux] Start ") + line(" g_AuxFd = " + sFd + " ") +
                              line(" pInData = z\xFA ") + line(" nLen = 2 ") + line("COMM_Com_WriteLinux nLen = 2 ") +
                              line("7a") + line("fa");
    const std::string sBlock = line("WriteBlock  fd = " + sFd + " ");
    const std::string sBlockEnd = line("WriteBlock  End ");
    logOn();
    s_writes = {1};
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("z\xFA").data(), 2), 2);
    EXPECT_EQ(logWithoutTime(), sHead + sBlock + sBlockEnd + sBlock + sBlockEnd);
    EXPECT_EQ(m_peer->wire(), "7A FA");
}

TEST_F(Serial, AWriteThatFailsEndsWithHowFarItCame)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    const std::string sFd = std::to_string(g_AuxFd);
    const std::string sBlock = line("WriteBlock  fd = " + sFd + " ") + line("WriteBlock  End ");
    s_writes = {2, -EIO, -EIO, 0};
    logOn();
    EXPECT_EQ(COMM_Com_WriteLinux(textBytes("xyz").data(), 3), 2);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_WriteLinux] Start ") + line(" g_AuxFd = " + sFd + " ") +
                                    line(" pInData = xyz ") + line(" nLen = 3 ") +
                                    line("COMM_Com_WriteLinux nLen = 3 ") + line("78") + line("79") + line("7a") +
                                    sBlock + sBlock + line("write failed after 2 of 3 bytes"));
    for (int n = 0; n < 2; ++n) { // a failure, a write of nothing
        logOn();
        EXPECT_EQ(QV_SendDataToTransPort("x", 1), 0);
        EXPECT_EQ(logWithoutTime(), sBlock + line("write failed after 0 of 1 bytes"));
    }
    EXPECT_EQ(m_peer->wire(), "78 79");
}

TEST_F(Serial, ARefusedWriteIsLoggedUpToItsLength)
{
    logOn();
    EXPECT_EQ(COMM_Com_WriteLinux(nullptr, -7), -2);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_WriteLinux] Start ") + line(" g_AuxFd = -2 ") + line(" pInData =  ") +
                                    line(" nLen = -7 "));
}

TEST_F(Serial, TheLinesOfABlockStandBeforeAndBehindItsOneWrite)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    s_bLookAtLog = true;
    EXPECT_EQ(WriteBlock(g_AuxFd, textBytes("x").data(), 1), 1);
    EXPECT_NE(s_sLogAtWrite.find("WriteBlock  fd = "), std::string::npos);
    EXPECT_EQ(s_sLogAtWrite.find("WriteBlock  End "), std::string::npos);
    EXPECT_NE(rawLog().find("WriteBlock  End "), std::string::npos);
    EXPECT_EQ(m_peer->wire(), "78");
}

TEST_F(Serial, EachLineOfAWriteLooksAtTheSwitchAnew)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    s_nLooks = 0;
    EXPECT_EQ(COMM_Com_WriteLinux(Bytes(40, 0x61).data(), 40), 40);
    EXPECT_GE(s_nLooks, logTexts().size());
    EXPECT_GE(logTexts().size(), 40U);
}

TEST_F(Serial, ALogOfAWriteStopsAtTheFirstZeroByte)
{
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    logOn();
    const uint8_t out[] = {0x41, 0x00, 0x42};
    EXPECT_EQ(COMM_Com_WriteLinux(out, 3), 3);
    EXPECT_TRUE(logged({" pInData = A ", " nLen = 3 ", "41", "00", "42"}));
}

TEST_F(Serial, BlockCallsAreOneCallEach)
{
    int nPipe[2];
    ASSERT_EQ(pipe2(nPipe, O_CLOEXEC), 0);
    const uint8_t out[] = {1, 2, 3};
    uint8_t in[4] = {0xC5, 0xC5, 0xC5, 0xC5};
    logOn();
    EXPECT_EQ(WriteBlock(nPipe[1], out, 3), 3);
    EXPECT_TRUE(logged({"WriteBlock  fd = " + std::to_string(nPipe[1]) + " ", "WriteBlock  End "}));
    logOff();
    EXPECT_EQ(ReadBlock(nPipe[0], in, 2), 2);
    EXPECT_EQ(hex(in), "01 02 C5 C5");
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), 1);
    EXPECT_EQ(hex(in), "03 02 C5 C5");
    ::close(nPipe[1]);
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), 0);
    ::close(nPipe[0]);
    EXPECT_EQ(ReadBlock(nPipe[0], in, 4), -1);
    EXPECT_EQ(WriteBlock(nPipe[1], out, 3), -1);
    EXPECT_EQ(ReadBlock(-2, in, 4), -1);

    // One call only, also when it is cut short.
    ASSERT_EQ(COMM_Com_OpenLinux(path(), 9600), 0);
    s_writes = {1, -EINTR};
    EXPECT_EQ(WriteBlock(g_AuxFd, out, 3), 1);
    EXPECT_EQ(WriteBlock(g_AuxFd, out, 3), -1);
    EXPECT_EQ(m_peer->wire(), "01");
}

} // namespace
