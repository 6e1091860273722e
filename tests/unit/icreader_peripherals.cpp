// LEDs, buzzer, device record, module reset.

#include "failing_writes.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <unistd.h>

using namespace qvtest;

namespace {

class Peripherals : public OpenReader, public FailingWrites {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
        m_out.assign(1024, 0xC5);
    }
    void TearDown() override
    {
        s_bWritesFail = false;
        OpenReader::TearDown();
    }
    static std::string command(std::string_view sData) { return commandFrame(sData, 0x01, 0x04); }
    void answer(std::string_view sCommand, uint32_t nStatus, std::string_view sBody = "")
    {
        m_peer->expect(command(sCommand)).reply(replyFrame(nStatus, sBody, 0x01, 0x04));
    }
    // The reader stays silent until the time left, 60 seconds, has passed.
    void silence(std::string_view sCommand)
    {
        m_peer->finish();
        m_peer->expect(command(sCommand));
        COMM_Rdz_ChageReadTimeOut(60);
    }

    Bytes m_out;
};

// ---- LEDs ---------------------------------------------------------------------------------------------------------

TEST_F(Peripherals, TheLedByteGoesOutAsItIs)
{
    m_peer->expect("01 30 30 30 33 31 31 31 31 30 35 30 35 04").reply(replyFrame(0, "", 0x01, 0x04));
    EXPECT_EQ(COMM_Icc_SetLEDStatus(5), 0);
    for (int n : {0, 1, 0x7F, 0x80, 0xFF}) {
        answer("11 11 " + hex(Bytes{static_cast<uint8_t>(n)}), 0x9000);
        EXPECT_EQ(COMM_Icc_SetLEDStatus(static_cast<uint8_t>(n)), 0);
    }
}

TEST_F(Peripherals, TheTwoLedBytesGoOutAsTheyAre)
{
    answer("11 14 01 02", 0x9000);
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 2), 0);
    answer("11 14 FF 00", 0x9000);
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(0xFF, 0), 0);
    answer("11 14 04 FF", 0x9000);
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(4, 0xFF), 0);
}

TEST_F(Peripherals, StatusAndBodyOfALedReplyAreIgnored)
{
    for (uint32_t nStatus : {0U, 1U, 0x1005U, 0xFFFFU}) {
        answer("11 11 01", nStatus);
        EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 0);
        answer("11 14 01 01", nStatus, "AA BB");
        EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 1), 0);
        EXPECT_EQ(COMM_Rdz_GetRecStatus(), static_cast<int32_t>(nStatus));
    }
    // More than the 128 bytes that are looked at.
    answer("11 11 01", 0, hex(Bytes(507, 0x5A)));
    EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 0);
    answer("11 14 01 01", 0, hex(Bytes(507, 0x5A)));
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 1), 0);
}

TEST_F(Peripherals, AFailedLedCommandIsPlusOne)
{
    m_peer->expect(command("11 11 01")).reply("01 04");
    EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 1);
    m_peer->expect(command("11 14 01 02")).reply("01 04");
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 2), 1);
    silence("11 11 01");
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 1);
    }
    silence("11 14 01 02");
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 2), 1);
    }
    m_peer->finish();
    s_bWritesFail = true;
    EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 1);
    EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 2), 1);
}

TEST_F(Peripherals, APeripheralReplyEndsAtItsOwnEndByte)
{
    // 0x03 in the middle of the line does not end it.
    m_peer->expect(command("11 11 01"))
        .reply("03")
        .reply(replyFrame(0x1234, "", 0x01, 0x04), std::chrono::milliseconds(250));
    EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 0);
    EXPECT_EQ(COMM_Rdz_GetRecStatus(), 0x1234);
    EXPECT_EQ(gEndChar, 0x04);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, &ChangeEndCondition);
    // A card frame follows as if nothing had been.
    m_peer->expect(commandFrame("32 23 00")).reply(replyFrame(0x1003));
    EXPECT_EQ(COMM_Icc_CardReaderPowerOff(0), 0);
    EXPECT_EQ(gEndChar, 0x03);
}

TEST_F(Peripherals, TheTimeLeftIsUsed)
{
    FakeClock clock(1000);
    answer("11 11 01", 0);
    EXPECT_EQ(COMM_Icc_SetLEDStatus(1), 0);
    answer("80 15 00 01 01", 0, "00");
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), 0);
    answer("11 01", 0, "00");
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 60);
}

// ---- buzzer -------------------------------------------------------------------------------------------------------

TEST_F(Peripherals, TheBuzzerTakesSixteenBitsAndAByte)
{
    m_peer->expect("01 30 30 30 35 38 30 31 35 30 31 30 32 30 33 39 35 04").reply(replyFrame(0, "00", 0x01, 0x04));
    EXPECT_EQ(COMM_Icc_SetBeepStatus(0x0102, 3), 0);
    struct Row {
        int32_t nValue;
        uint8_t ucCount;
        const char *pszCommand;
    };
    const Row rows[] = {{0, 0, "80 15 00 00 00"},
                        {500, 2, "80 15 01 F4 02"},
                        {65535, 255, "80 15 FF FF FF"},
                        {0x00012345, 1, "80 15 23 45 01"},
                        {-1, 1, "80 15 FF FF 01"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nValue);
        answer(row.pszCommand, 0x1005, "01");
        EXPECT_EQ(COMM_Icc_SetBeepStatus(row.nValue, row.ucCount), 0);
    }
}

TEST_F(Peripherals, TheBuzzerWantsAtLeastOneByteBack)
{
    answer("80 15 00 01 01", 0);
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    answer("80 15 00 01 01", 0x9000);
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    m_peer->expect(command("80 15 00 01 01")).reply("01 04");
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    silence("80 15 00 01 01");
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    }
    m_peer->finish();
    s_bWritesFail = true;
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    s_bWritesFail = false;
    answer("80 15 00 01 01", 0, hex(Bytes(507, 0x5A)));
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), 0);
}

TEST_F(Peripherals, TheBuzzersReplyIsLogged)
{
    answer("80 15 00 01 01", 0, "01 AB");
    logOn();
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), 0);
    EXPECT_TRUE(logged({"[ COMM_Rdz_SendAndReciveData ] Start ", "READ DATA LEN 2", "READ DATA 1", "READ DATA ab"}));
    EXPECT_NE(rawLog().find("  INFO:    CommDev:  READ DATA LEN 2\r\n"), std::string::npos);
    EXPECT_NE(rawLog().find("  INFO:    CommDev:  READ DATA ab\r\n"), std::string::npos);
    logOff();
    m_peer->expect(command("80 15 00 01 01")).reply("01 04");
    logOn();
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    EXPECT_TRUE(logged({"READ DATA LEN -4"}));
    logOff();
    answer("80 15 00 01 01", 0);
    logOn();
    EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -1);
    EXPECT_TRUE(logged({"READ DATA LEN 0"}));
}

// ---- device record ------------------------------------------------------------------------------------------------

TEST_F(Peripherals, TheDeviceRecordIsCopiedWhole)
{
    m_peer->expect("01 30 30 30 32 31 31 30 31 31 30 04").reply(replyFrame(0x1005, "00 01 02 FF", 0x01, 0x04));
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), 0);
    EXPECT_EQ(hex(std::span(m_out).first(4)), "00 01 02 FF");

    Bytes longest(507);
    for (size_t i = 0; i < longest.size(); ++i)
        longest[i] = static_cast<uint8_t>(i * 7);
    answer("11 01", 0, hex(longest));
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), 0);
    EXPECT_EQ(Bytes(m_out.begin(), m_out.begin() + 507), longest);

    answer("11 01", 0, "7E");
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), 0);
    EXPECT_EQ(m_out[0], 0x7E);
}

TEST_F(Peripherals, BehindTheDeviceRecordNothingIsWritten)
{
    answer("11 01", 0x9000, "00 01 02 FF");
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), 0);
    Bytes expected(1024, 0xC5);
    std::ranges::copy(bytes("00 01 02 FF"), expected.begin());
    EXPECT_EQ(m_out, expected);
}

TEST_F(Peripherals, NoDeviceRecordIsMinusOneAndCopiesNothing)
{
    answer("11 01", 0);
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    answer("11 01", 0x1005);
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    m_peer->expect(command("11 01")).reply("01 04");
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    // Wrong check characters.
    m_peer->expect(command("11 01")).reply("01 30 30 30 33 39 30 30 30 30 31 39 30 04");
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    silence("11 01");
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    }
    m_peer->finish();
    s_bWritesFail = true;
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -1);
    EXPECT_EQ(m_out, Bytes(1024, 0xC5));
}

TEST_F(Peripherals, ADeviceRecordNeedsRoom)
{
    EXPECT_EQ(COMM_Icc_GetDeviceInfo(nullptr), -1);
}

TEST_F(Peripherals, AnotherReaderModeIsRefused)
{
    for (int32_t nMode : {1, -1, 170}) {
        stCardReader.nReaderMode = nMode;
        EXPECT_EQ(COMM_Icc_SetLEDStatus(1), -50);
        EXPECT_EQ(COMM_Icc_SetLEDStatusEx(1, 2), -50);
        EXPECT_EQ(COMM_Icc_SetBeepStatus(1, 1), -50);
        EXPECT_EQ(COMM_Icc_GetDeviceInfo(m_out.data()), -50);
    }
    EXPECT_EQ(m_out, Bytes(1024, 0xC5));
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- module reset -------------------------------------------------------------------------------------------------

TEST_F(Peripherals, AModuleResetGoesOutInAnyReaderMode)
{
    stCardReader.nReaderMode = 1;
    m_peer->expect("1B 30");
    EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
    m_peer->finish();
}

TEST_F(Peripherals, AModuleResetIsTwoBareBytesAndReadsNothing)
{
    stRDZ73xx.gStatus = 0x1234;
    m_peer->expect("1B 30").expect("1B 30");
    {
        FakeClock clock(1000);
        logOn();
        EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
        EXPECT_TRUE(logged({"nDataLen = 2", "[COMM_Rdz_Cancel] Start ", "[COMM_Com_CancelLinuxRead] Start "}));
        EXPECT_EQ(rawLog().find("COMM_Com_ReadLinux"), std::string::npos);
        logOff();
        const int nCalls = FakeClock::timeCalls();
        EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
        EXPECT_EQ(FakeClock::timeCalls(), nCalls); // a read would have looked at the clock
    }
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(stBackUpParam.nTimeOut, 60);
}

TEST_F(Peripherals, AModuleResetThatCannotBeSentIsMinusOne)
{
    s_bWritesFail = true;
    logOn();
    EXPECT_EQ(COMM_IC_MulModuleReset(), -1);
    EXPECT_EQ(rawLog().find("COMM_Rdz_Cancel"), std::string::npos);
}

TEST_F(Peripherals, AModuleResetIsDoneWhateverItsCancelSays)
{
    // Of a port with descriptor 0 no read is cancelled.
    const int nPort = g_AuxFd;
    const int nStdin = dup(0);
    ASSERT_EQ(dup2(nPort, 0), 0);
    g_AuxFd = 0;
    EXPECT_EQ(COMM_Dev_CancelRead(), -57);
    m_peer->expect("1B 30");
    EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
    m_peer->finish();
    g_AuxFd = nPort;
    if (nStdin < 0) {
        close(0);
    } else {
        dup2(nStdin, 0);
        close(nStdin);
    }
}

TEST_F(Peripherals, AModuleResetLeavesTheEndOfFramesAsItWas)
{
    for (EndConditionFn pfnEnd : {&IcEndCondition, &ChangeEndCondition}) {
        gEndChar = 0x55;
        stBackUpParam.pfnEndCondition = pfnEnd;
        m_peer->expect("1B 30");
        EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
        EXPECT_EQ(gEndChar, 0x55);
        EXPECT_EQ(stBackUpParam.pfnEndCondition, pfnEnd);
        m_peer->finish();
    }
}

TEST_F(Peripherals, AModuleResetEndsARunningRead)
{
    using std::chrono::milliseconds;
    int32_t nResult = 0;
    std::atomic<bool> bDone{false};
    const int nCalls = FakeClock::timeCalls();
    std::thread reading([&] {
        Bytes out(16);
        nResult = COMM_Rdz_ReadDataFromReader(0, 0, 0, out.data(), 16);
        bDone = true;
    });
    while (FakeClock::timeCalls() == nCalls && !bDone) // a read looks at the clock when it starts
        std::this_thread::sleep_for(milliseconds(1));
    // The first reset may still come between that and the read's first pass.
    size_t nResets = 0;
    while (!bDone && nResets < 50) {
        m_peer->expect("1B 30");
        EXPECT_EQ(COMM_IC_MulModuleReset(), 0);
        ++nResets;
        for (int i = 0; i < 2000 && !bDone; ++i)
            std::this_thread::sleep_for(milliseconds(1));
    }
    reading.join();
    EXPECT_EQ(nResult, -57);
    EXPECT_LE(nResets, 3U);
}

} // namespace
