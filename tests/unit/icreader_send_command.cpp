// The host's send calls: with open and close around them or on an open port, through the card layer or raw.

#include "failing_writes.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <algorithm>
#include <cstring>
#include <memory>

using namespace qvtest;

namespace {

class SendCommand : public ClosedReader, public FailingWrites {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        stCardReader.nCardSlot = 7;
        m_out.assign(1100, 0xC5);
        m_nOut = 0xC5C5;
    }
    void TearDown() override
    {
        s_bWritesFail = false;
        ClosedReader::TearDown();
    }
    void open()
    {
        ClosedReader::open();
        stCardReader.nCardSlot = 7;
    }
    void card(std::string_view sSlot, std::string_view sCommand, std::string_view sResponse, uint32_t nStatus = 0)
    {
        m_peer->expect(commandFrame("32 26 " + std::string(sSlot) + " " + std::string(sCommand)))
            .reply(replyFrame(nStatus, sResponse));
    }
    // The command stands in memory of exactly its size.
    int32_t send(const char *pszCardType, std::string_view sCommand, const char *pszPort = nullptr)
    {
        Bytes command = bytes(sCommand);
        auto exact = std::make_unique<uint8_t[]>(command.size());
        std::copy(command.begin(), command.end(), exact.get());
        return Dev_Rdz_Ic_SendCommand(pszPort == nullptr ? path() : pszPort, 1, nullptr, 9600, pszCardType,
                                      static_cast<uint32_t>(command.size()), exact.get(), &m_nOut, m_out.data());
    }
    int32_t sendOnly(const char *pszCardType, std::string_view sCommand)
    {
        Bytes command = bytes(sCommand);
        auto exact = std::make_unique<uint8_t[]>(command.size());
        std::copy(command.begin(), command.end(), exact.get());
        return Dev_Rdz_Ic_SendCommandOnly(pszCardType, static_cast<uint32_t>(command.size()), exact.get(), &m_nOut,
                                          m_out.data());
    }
    int32_t direct(std::string_view sCommand, uint32_t nAwait)
    {
        Bytes command = bytes(sCommand);
        m_nOut = nAwait;
        return Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, static_cast<uint32_t>(command.size()),
                                            command.data(), &m_nOut, m_out.data());
    }
    int32_t onlyDirect(std::string_view sCommand, uint32_t nAwait)
    {
        Bytes command = bytes(sCommand);
        m_nOut = nAwait;
        return Dev_Rdz_Ic_SendCommandOnlyDirect(static_cast<uint32_t>(command.size()), command.data(), &m_nOut,
                                                m_out.data());
    }
    std::string out() const { return hex(std::span(m_out).first(m_nOut)); }

    Bytes m_out;
    uint32_t m_nOut = 0;
};

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
    EXPECT_NE(Dev_Rdz_Ic_SendCommandOnly("1", 5, nullptr, &m_nOut, m_out.data()), 0);
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

// ---- raw ----------------------------------------------------------------------------------------------------------

TEST_F(SendCommand, ARawCommandReturnsTheCountOfItsReply)
{
    m_peer->expect("1B 30 00 FF").reply("02 30 31 41 42 43 44 45 46 03");
    EXPECT_EQ(direct("1B 30 00 FF", 100), 10);
    EXPECT_EQ(out(), "02 30 31 41 42 43 44 45 46 03");
    EXPECT_EQ(m_out[10], 0xC5);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
}

TEST_F(SendCommand, ARawCommandWithoutReplyIsZero)
{
    m_peer->expect("1B 30").reply("41 42 03");
    EXPECT_EQ(direct("1B 30", 0), 0);
    EXPECT_EQ(m_nOut, 0U);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

TEST_F(SendCommand, ARawReplyIsCutAt512WhateverLengthIsGiven)
{
    Bytes data(599, 0x41);
    data.push_back(0x03);
    for (uint32_t nAwait : {1U, 512U, 1024U}) {
        SCOPED_TRACE(nAwait);
        m_out.assign(1100, 0xC5);
        m_peer->expect("31").reply(hex(data));
        EXPECT_EQ(direct("31", nAwait), 512);
        EXPECT_EQ(m_nOut, 512U);
        EXPECT_EQ(out(), hex(std::span(data).first(512)));
        EXPECT_EQ(m_out[512], 0xC5);
        m_peer->finish();
    }
}

TEST_F(SendCommand, ARawFailureIsTheExchangesCode)
{
    m_peer->expect("31");
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1004});
        EXPECT_EQ(direct("31", 77), -56);
    }
    EXPECT_EQ(m_nOut, 77U);
    m_peer->finish();
    EXPECT_EQ(direct(hex(Bytes(1025, 0x31)), 77), -54);
    EXPECT_EQ(m_nOut, 77U);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 0, bytes("31").data(), &m_nOut, m_out.data()), -54);
    s_bWritesFail = true;
    EXPECT_EQ(direct("31", 0), -54);
    EXPECT_EQ(direct("31", 77), -54);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

TEST_F(SendCommand, TheLongestRawCommandGoesThrough)
{
    Bytes command(1024, 0x31);
    m_peer->expect(hex(command)).reply("41 03");
    EXPECT_EQ(direct(hex(command), 9), 2);
}

TEST_F(SendCommand, RawNullArgumentsGiveMinusTwo)
{
    Bytes command = bytes("31");
    const uint8_t *p = command.data();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(nullptr, nullptr, 9600, 1, p, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 1, nullptr, &m_nOut, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 1, p, nullptr, m_out.data()), -2);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 1, p, &m_nOut, nullptr), -2);
    EXPECT_EQ(stBackUpParam.nType, 0U);
}

TEST_F(SendCommand, ARawOpenFailureGivesMinus51)
{
    Bytes command = bytes("31");
    for (const char *psz : {"/dev/nowhere", "", "xyz", "PCSC"}) {
        m_nOut = 8;
        EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(psz, nullptr, 9600, 1, command.data(), &m_nOut, m_out.data()), -51)
            << psz;
        EXPECT_EQ(m_nOut, 8U);
    }
}

TEST_F(SendCommand, ARawCommandGoesThroughTheSwitchBox)
{
    m_peer->expect("1B 25 41 1B 24 49 34");
    m_peer->expect("31").reply("41 03");
    const uint8_t box[] = "A";
    Bytes command = bytes("31");
    m_nOut = 8;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), box, 9600, 1, command.data(), &m_nOut, m_out.data()), 2);
}

TEST_F(SendCommand, ARawCommandOnAnOpenPortEndsAtTheEndByteInForce)
{
    open();
    m_peer->expect("31").reply("41 04 42 03");
    EXPECT_EQ(onlyDirect("31", 9), 4);
    EXPECT_EQ(out(), "41 04 42 03");
    // A framed exchange with another end byte leaves that one in force.
    m_peer->expect(commandFrame("11 01", 1, 4)).reply(replyFrame(0x9000, "", 1, 4));
    uint8_t in[8];
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 1, 4, bytes("11 01").data(), 2, in, 8), 0);
    m_peer->expect("31").reply("41 03 42 04");
    EXPECT_EQ(onlyDirect("31", 9), 4);
    EXPECT_EQ(out(), "41 03 42 04");
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(SendCommand, ARawCommandOnAnOpenPortWithoutReply)
{
    open();
    m_peer->expect("1B 30");
    EXPECT_EQ(onlyDirect("1B 30", 0), 0);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
    Bytes data(700, 0x41);
    data.push_back(0x03);
    m_peer->expect("32").reply(hex(data));
    EXPECT_EQ(onlyDirect("32", 4), 512);
    EXPECT_EQ(m_out[512], 0xC5);
    EXPECT_EQ(onlyDirect(hex(Bytes(1025, 0x31)), 4), -54);
    EXPECT_EQ(m_nOut, 4U);
}

int32_t completeAtOnce(const uint8_t *, int32_t)
{
    return 0;
}

TEST_F(SendCommand, ARawCommandThatIsAnsweredByNothingLeavesTheLength)
{
    open();
    COMM_Rdz_SetEndCondition(completeAtOnce);
    m_peer->expect("31");
    EXPECT_EQ(onlyDirect("31", 9), 0);
    EXPECT_EQ(m_nOut, 9U);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

TEST_F(SendCommand, ARawCommandIsLogged)
{
    m_peer->expect("1B 30 77").reply("03");
    logOn();
    EXPECT_EQ(direct("1B 30 77", 1), 1);
    bool bSeen = false;
    for (const std::string &sText : logTexts()) {
        if (sText.find("LEN=3   HEX: 1B3077") != std::string::npos && sText.find("szSend") == std::string::npos)
            bSeen = true;
    }
    EXPECT_TRUE(bSeen) << rawLog();
}

// ---- behind a slot scan -------------------------------------------------------------------------------------------

TEST_F(SendCommand, TheScanningFormReturnsTheScanAndSendsNoCommand)
{
    open();
    Bytes command = bytes("00 84 00 00 08");
    auto scan = [&](const char *pszCardType) {
        return Dev_Rdz_Ic_SendCommandeOnly(pszCardType, 5, command.data(), &m_nOut, m_out.data());
    };
    m_peer->expect(commandFrame("32 21 00")).reply(replyFrame(0));
    EXPECT_EQ(scan("1"), 2);
    m_peer->expect(commandFrame("32 21 00")).reply(replyFrame(0x1004));
    EXPECT_EQ(scan("1"), 3);
    m_peer->expect(commandFrame("32 21 00")).reply(replyFrame(0x1005));
    EXPECT_EQ(scan("1"), 4);
    m_peer->expect(commandFrame("32 24 00 00")).reply(replyFrame(0, "50 01"));
    EXPECT_EQ(scan("2"), 1);
    m_peer->expect(commandFrame("32 24 00 00")).reply(replyFrame(0x3006));
    EXPECT_EQ(scan("2"), 6);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

} // namespace
