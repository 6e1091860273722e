// The host's send calls through the card layer: with open and close around them or on an open port.

#include "icreader_send_command.h"
#include "fake_clock.h"

#include <algorithm>
#include <utility>

using namespace qvtest;

namespace {

TEST(SendCommandAtLoad, NothingIsOpen)
{
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

// ---- with open and close ------------------------------------------------------------------------------------------

TEST_F(SendCommand, ACommandOpensExchangesAndCloses)
{
    card("00", "00 84 00 00 02", "11 22 90 00");
    EXPECT_EQ(send("1", "00 84 00 00 02"), 0);
    EXPECT_EQ(out(), "11 22 90 00");
    EXPECT_EQ(m_out[4], 0xC5);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);
}

TEST_F(SendCommand, TheCardTypeChoosesTheSlot)
{
    stCardReader.nCardSlot = 7;
    card("00", "00 84 00 00 02", "90 00");
    EXPECT_EQ(send("1", "00 84 00 00 02"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 0);
    m_peer->finish();
    card("FF", "00 84 00 00 02", "90 00");
    EXPECT_EQ(send("2x", "00 84 00 00 02"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    m_peer->finish();
    for (const char *psz : {"", " ", "!", "3", "\x01", "\x02"}) {
        SCOPED_TRACE(psz);
        stCardReader.nCardSlot = 17;
        card("11", "00 84 00 00 02", "90 00");
        EXPECT_EQ(send(psz, "00 84 00 00 02"), 0);
        EXPECT_EQ(stCardReader.nCardSlot, 17);
        m_peer->finish();
    }
}

TEST_F(SendCommand, AFourByteCommandGetsAFifthByteZero)
{
    card("00", "00 84 00 00 00", "90 00");
    EXPECT_EQ(send("1", "00 84 00 00"), 0);
    m_peer->finish();
    card("00", "00 84 00", "67 00");
    EXPECT_EQ(send("1", "00 84 00"), 0);
    m_peer->finish();
    card("00", "00 84 00 00 08", "90 00");
    EXPECT_EQ(send("1", "00 84 00 00 08"), 0);
    m_peer->finish();
    card("00", "00 A4 00 00 02 3F 00", "90 00");
    EXPECT_EQ(send("1", "00 A4 00 00 02 3F 00"), 0);
}

TEST_F(SendCommand, ARefusedCommandIsASuccess)
{
    card("00", "00 A4 04 00 00", "6A 82");
    EXPECT_EQ(send("1", "00 A4 04 00"), 0);
    EXPECT_EQ(out(), "6A 82");
}

TEST_F(SendCommand, TheFollowUpIsMade)
{
    card("00", "00 A4 04 00 00", "61 02");
    card("00", "00 C0 00 00 02", "AA BB 90 00");
    EXPECT_EQ(send("1", "00 A4 04 00"), 0);
    EXPECT_EQ(out(), "AA BB 90 00");
    m_peer->finish();
    card("00", "00 B2 01 0C 00", "6C 03");
    card("00", "00 B2 01 0C 03", "01 02 03 90 00");
    EXPECT_EQ(send("1", "00 B2 01 0C"), 0);
    EXPECT_EQ(out(), "01 02 03 90 00");
}

TEST_F(SendCommand, AFailureIsMinusTheStatusWord)
{
    card("00", "00 84 00 00 08", "", 0x1003);
    EXPECT_EQ(send("1", "00 84 00 00 08"), -0x1003);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

TEST_F(SendCommand, AFailureWithoutStatusWordIsTheExchangesCode)
{
    m_peer->expect(commandFrame("32 26 00 00 84 00 00 08")).reply("02 03");
    EXPECT_EQ(send("1", "00 84 00 00 08"), -4);
    EXPECT_EQ(m_nOut, 0U);
    m_peer->finish();
    m_nOut = 0xC5C5;
    m_peer->expect(commandFrame("32 26 00 00 84 00 00 08"));
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1004});
        EXPECT_EQ(send("1", "00 84 00 00 08"), -56);
    }
    EXPECT_EQ(m_nOut, 0U);
    m_peer->finish();
    m_nOut = 0xC5C5;
    EXPECT_EQ(send("1", hex(Bytes(506, 0x11))), -54);
    EXPECT_EQ(m_nOut, 0U);
    s_bWritesFail = true;
    m_nOut = 0xC5C5;
    EXPECT_EQ(send("1", "00 84 00 00 08"), -54);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(SendCommand, AStatusWordOfTheCommandBeforeIsNotTaken)
{
    stRDZ73xx.gStatus = 0x1003;
    EXPECT_EQ(send("1", hex(Bytes(506, 0x11))), -54);
    stRDZ73xx.gStatus = 0x1003;
    s_bWritesFail = true;
    EXPECT_EQ(send("1", "00 84 00 00 08"), -54);
    stRDZ73xx.gStatus = 0x1003;
    EXPECT_EQ(sendOnly("1", hex(Bytes(506, 0x11))), -54);
}

TEST_F(SendCommand, TheLongestCommandGoesThrough)
{
    Bytes command(505, 0x22);
    card("00", hex(command), "90 00");
    EXPECT_EQ(send("1", hex(command)), 0);
}

TEST_F(SendCommand, NullArgumentsGiveMinusTwoAndOpenNothing)
{
    Bytes command = bytes("00 84 00 00 08");
    const uint8_t *p = command.data();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(nullptr, 1, nullptr, 9600, "1", 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 9600, nullptr, 5, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 9600, "1", 5, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 9600, "1", 5, p, nullptr, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 9600, "1", 5, p, &m_nOut, nullptr), -2);
    EXPECT_EQ(stBackUpParam.nType, 0U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(SendCommand, AFailedOpenClosesAndGivesMinus51)
{
    // USB closes between its six tries as well.
    const std::pair<const char *, int> rows[] = {{"/dev/nowhere", 1}, {"", 1}, {"xyz", 1}, {"PCSC", 1}, {"HID", 6}};
    for (auto [pszPort, nCloses] : rows) {
        SCOPED_TRACE(pszPort);
        logOn();
        EXPECT_EQ(send("1", "00 84 00 00 08", pszPort), -51);
        auto texts = logTexts();
        EXPECT_EQ(std::count(texts.begin(), texts.end(), "===>[Dev_Rdz_Ic_ClosePort] Start "), nCloses);
        EXPECT_TRUE(logged(
            {"[Dev_Rdz_Ic_SendCommand] Start ", "[Dev_Rdz_Ic_OpenPort] Start ", "===>[Dev_Rdz_Ic_ClosePort] Start "}));
        logOff();
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(stCardReader.nCardSlot, 7);
    }
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

TEST_F(SendCommand, AFailedRaiseClosesThePort)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    s_bWritesFail = true;
    Bytes command = bytes("00 84 00 00 08");
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 1, nullptr, 38400, "1", 5, command.data(), &m_nOut, m_out.data()), -51);
    EXPECT_EQ(g_AuxFd, -2);
    m_nOut = 8;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 38400, 5, command.data(), &m_nOut, m_out.data()), -51);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(openDescriptors(), m_nDescriptors + 4);
}

TEST_F(SendCommand, TerminalTypeAndBoxPortReachTheOpen)
{
    Dev_Rdz_Ic_RaiseBaundFlag(1);
    Bytes command = bytes("00 84 00 00 08");
    m_peer->expect("1B 25 4B 1B 25 49 34");
    card("00", "00 84 00 00 08", "90 00");
    m_peer->expect("1B 24 42");
    const uint8_t box[] = "K";
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(path(), 2, box, 9600, "1", 5, command.data(), &m_nOut, m_out.data()), 0);
    EXPECT_EQ(g_sParam.stParam.nTermType, 2U);
}

TEST_F(SendCommand, ACommandIsLogged)
{
    card("00", "00 84 00 00 00", "90 00");
    logOn();
    EXPECT_EQ(send("1", "00 84 00 00"), 0);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_SendCommand] Start ", std::string("==>port:") + path() + " term:1,baud:9600",
                        "[Dev_Rdz_Ic_OpenPort] Start ", "==>nReturn:0", " nSlot = 0 ", "【ICC_CardCmdVisitCOS】 Start ",
                        "===>[Dev_Rdz_Ic_ClosePort] Start ", "[Dev_Rdz_Ic_SendCommand] End nRet = 00  "}));
    logOff();
    card("00", "00 84 00 00 08", "", 0x1003);
    logOn();
    EXPECT_EQ(send("1", "00 84 00 00 08"), -0x1003);
    EXPECT_TRUE(logged({"[Dev_Rdz_Ic_SendCommand] End nRet = ffffeffd  "}));
    logOn();
    EXPECT_EQ(send("1", "00 84 00 00 08", "/dev/nowhere"), -51);
    EXPECT_TRUE(logged({"==>nReturn:-51"}));
}

// ---- on an open port ----------------------------------------------------------------------------------------------

TEST_F(SendCommand, OnAnOpenPortTheSameExchangeIsMade)
{
    open();
    card("FF", "00 84 00 00 00", "11 90 00");
    EXPECT_EQ(sendOnly("2", "00 84 00 00"), 0);
    EXPECT_EQ(out(), "11 90 00");
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    EXPECT_GE(g_AuxFd, 0);
    card("FF", "00 A4 04 00 00", "61 02");
    card("FF", "00 C0 00 00 02", "AA BB 90 00");
    EXPECT_EQ(sendOnly("x", "00 A4 04 00"), 0);
    EXPECT_EQ(out(), "AA BB 90 00");
    card("00", "00 84 00 00 08", "6A 81");
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), 0);
    EXPECT_EQ(out(), "6A 81");
}

TEST_F(SendCommand, OnAnOpenPortAFailureIsTheStatusWordItself)
{
    open();
    card("00", "00 84 00 00 08", "", 0x1003);
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), 0x1003);
    EXPECT_EQ(m_nOut, 0U);
    m_nOut = 0xC5C5;
    m_peer->expect(commandFrame("32 26 00 00 84 00 00 08")).reply("02 03");
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), -4);
    EXPECT_EQ(m_nOut, 0U);
    m_peer->finish();
    m_nOut = 0xC5C5;
    EXPECT_EQ(sendOnly("1", hex(Bytes(506, 0x11))), -54);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(SendCommand, InAnotherReaderModeTheCommandIsRefusedWhateverStatusWordStands)
{
    open();
    stCardReader.nReaderMode = 1;
    stRDZ73xx.gStatus = 0x1003;
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), -50);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(m_peer->wire(), "");
    stCardReader.nReaderMode = 0;
}

TEST_F(SendCommand, TheTimeLeftIsNotRenewedOnAnOpenPort)
{
    open();
    FakeClock clock(1000);
    COMM_Rdz_ChageReadTimeOut(5);
    card("00", "00 84 00 00 08", "90 00");
    clock.script({1000, 1000, 1003});
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 2);
    card("00", "00 84 00 00 08", "90 00");
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 2);
}

TEST_F(SendCommand, WithoutAnOpenPortTheCommandCannotBeSent)
{
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), -54);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(onlyDirect("1B 30", 8), -54);
    EXPECT_EQ(onlyDirect("1B 30", 0), -54);
}

TEST_F(SendCommand, OnAnOpenPortNullIsNotSent)
{
    open();
    Bytes command = bytes("00 84 00 00 08");
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnly("1", 5, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnly(nullptr, 5, command.data(), &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnly("1", 5, command.data(), nullptr, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnly("1", 5, command.data(), &m_nOut, nullptr), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnlyDirect(5, command.data(), nullptr, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnlyDirect(5, command.data(), &m_nOut, nullptr), -2);
    EXPECT_EQ(m_nOut, 0xC5C5U);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    m_nOut = 5;
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandOnlyDirect(5, nullptr, &m_nOut, m_out.data()), -54);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(m_nOut, 5U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(SendCommand, ACommandOnAnOpenPortIsLogged)
{
    open();
    card("00", "00 84 00 00 08", "", 0x1003);
    logOn();
    EXPECT_EQ(sendOnly("1", "00 84 00 00 08"), 0x1003);
    EXPECT_TRUE(
        logged({" nSlot = 0 ", "【ICC_CardCmdVisitCOS】 Start ", "[Dev_Rdz_Ic_SendCommandOnly] End nRet = 4099  "}));
}

} // namespace
