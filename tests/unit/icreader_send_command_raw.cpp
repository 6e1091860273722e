// The host's raw send calls, and the one behind a slot scan.

#include "fake_clock.h"
#include "icreader_send_command.h"

using namespace qvtest;

namespace {

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
    struct Row {
        const char *pszCardType;
        std::vector<std::pair<const char *, uint32_t>> asked; // command, status word
        int32_t nResult;
        int32_t nSlot; // that is current afterwards
    };
    const Row rows[] = {{"1", {{"32 21 00", 0}}, 2, 0},
                        {"1", {{"32 21 00", 0x1004}}, 3, 0},
                        {"1", {{"32 21 00", 0x1005}}, 4, 0},
                        {"2", {{"32 24 00 00", 0}}, 1, 255},
                        {"2", {{"32 24 00 00", 0x3006}}, 6, 7},
                        {"!", {{"32 21 01", 0x1003}}, 2, 1},
                        {"!", {{"32 21 01", 0x1005}, {"32 24 00 00", 0x3001}}, 7, 1},
                        {"!x", {{"32 21 01", 0x1005}, {"32 24 00 00", 0}}, 1, 255},
                        {" ", {{"32 21 00", 0x1004}}, 3, 0},
                        {" ", {{"32 21 00", 0x1005}, {"32 24 00 00", 0}}, 1, 255},
                        {"", {{"32 21 00", 0x1005}, {"32 24 00 00", 0x1003}}, -99, 0}};
    open();
    Bytes command = bytes("00 84 00 00 08");
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszCardType);
        stCardReader.nCardSlot = 7;
        for (auto [pszCommand, nStatus] : row.asked)
            answer(pszCommand, nStatus);
        EXPECT_EQ(Dev_Rdz_Ic_SendCommandeOnly(row.pszCardType, 5, command.data(), &m_nOut, m_out.data()), row.nResult);
        EXPECT_EQ(stCardReader.nCardSlot, row.nSlot);
        m_peer->finish();
    }
    EXPECT_EQ(m_nOut, 0xC5C5U);
    EXPECT_EQ(m_out, Bytes(1100, 0xC5));
}

TEST_F(SendCommand, TheScanningFormNeedsACardTypeOnly)
{
    open();
    Bytes command = bytes("00 84 00 00 08");
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandeOnly(nullptr, 5, command.data(), &m_nOut, m_out.data()), -2);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(m_nOut, 0xC5C5U);
    EXPECT_EQ(m_peer->wire(), "");
    answer("32 21 00", 0);
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandeOnly("1", 5, nullptr, nullptr, nullptr), 2);
}

} // namespace
