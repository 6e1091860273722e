// Commands and their replies over the line: the connection, the exchange, its failures, and what it leaves in the log.

#include "protocol_exchange.h"
#include "fake_clock.h"

#include <cstring>

using namespace qvtest;

namespace {

TEST(ExchangeAtLoad, NothingWasOpened)
{
    EXPECT_EQ(stRDZ73xx.nType, 0U);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(gEndChar, 0x03);
    EXPECT_EQ(stBackUpParam.nType, 0U);
}

// ---- connection ---------------------------------------------------------------------------------------------------

TEST_F(Exchange, ASuccessfulOpenSetsTheTypeAndACloseLeavesIt)
{
    EXPECT_EQ(stRDZ73xx.nType, 1U);
    EXPECT_EQ(COMM_Rdz_CloseReader(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(stRDZ73xx.nType, 1U);
    EXPECT_EQ(COMM_Rdz_CloseReader(), 0);
}

TEST_F(Exchange, AFailedOpenLeavesTheType)
{
    COMM_Com_CloseLinux();
    stRDZ73xx = {5, 0x1234};
    TransPortParam param = record();
    std::strcpy(param.szTermPath, "/nowhere/tty");
    EXPECT_EQ(COMM_Rdz_OpenReader(&param), -3);
    param.nType = 2;
    EXPECT_EQ(COMM_Rdz_OpenReader(&param), -1);
    EXPECT_EQ(COMM_Rdz_OpenReader(nullptr), -2);
    EXPECT_EQ(stRDZ73xx.nType, 5U);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
}

TEST_F(Exchange, AnOpenLeavesTheStatusWord)
{
    COMM_Com_CloseLinux();
    stRDZ73xx.gStatus = 0x1234;
    TransPortParam param = record();
    EXPECT_EQ(COMM_Rdz_OpenReader(&param), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
}

TEST_F(Exchange, ACloseBeforeAnyOpenGivesMinusOne)
{
    COMM_Com_CloseLinux();
    stBackUpParam = {};
    EXPECT_EQ(COMM_Rdz_CloseReader(), -1);
    EXPECT_EQ(COMM_Rdz_Cancel(), -1);
}

// ---- exchange -----------------------------------------------------------------------------------------------------

TEST_F(Exchange, ACommandAndItsReply)
{
    m_peer->expect("02 30 30 30 33 33 32 32 31 30 30 31 33 03").reply("02 30 30 30 32 31 30 30 34 31 34 03");
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(exchange("32 21 00"), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1004U);
    m_peer->expect(commandFrame("32 26 00 00 84 00 00 08")).reply(replyFrame(0, "11 22 33 44 55 66 77 88 90 00"));
    EXPECT_EQ(exchange("32 26 00 00 84 00 00 08"), 10);
    EXPECT_EQ(buffer(11), "11 22 33 44 55 66 77 88 90 00 C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    m_peer->finish();
}

TEST_F(Exchange, ARawCommandAndItsRawReply)
{
    m_peer->expect("1B 30 FF").reply("41 42 03");
    EXPECT_EQ(exchange("1B 30 FF", 512, 1, 0, 0), 3);
    EXPECT_EQ(buffer(4), "41 42 03 C5");
    m_peer->finish();
}

TEST_F(Exchange, ACommandWithoutReplyIsZeroAndReadsNothing)
{
    m_peer->expect(commandFrame("31")).reply(replyFrame(0x9000, "01"));
    stRDZ73xx.gStatus = 0x1234;
    Bytes command = bytes("31");
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, command.data(), 1, nullptr, 100), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    m_peer->finish();
    m_peer->expect(commandFrame("32"));
    EXPECT_EQ(exchange("32", 0), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEtx);
    m_peer->finish();
    // The reply to the first one still stands there.
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), 1);
}

TEST_F(Exchange, WhatCannotBeSentGivesMinus54)
{
    Bytes data = counted(1025);
    auto send = [&](uint8_t ucHead, uint8_t ucEnd, const uint8_t *p, uint32_t n) {
        stRDZ73xx.gStatus = 0x1234;
        int32_t nResult = COMM_Rdz_SendAndReciveData(1, ucHead, ucEnd, p, n, m_buf.data(), 100);
        EXPECT_EQ(stRDZ73xx.gStatus, 0U);
        return nResult;
    };
    EXPECT_EQ(send(2, 3, nullptr, 4), -54);
    EXPECT_EQ(send(0, 0, nullptr, 4), -54);
    EXPECT_EQ(send(2, 3, nullptr, 0), -54);
    EXPECT_EQ(send(2, 3, data.data(), 509), -54);
    EXPECT_EQ(send(0, 0, data.data(), 1025), -54);
    EXPECT_EQ(send(0, 0, data.data(), 0), -54);
    EXPECT_EQ(COMM_Rdz_SendAndReciveData(1, 2, 3, data.data(), 509, nullptr, 0), -54);
    EXPECT_EQ(m_peer->wire(), "");
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(send(2, 3, data.data(), 4), -54);
    g_AuxFd = -2;
    EXPECT_EQ(send(2, 3, data.data(), 4), -54);
    g_AuxFd = nFd;
    EXPECT_EQ(m_buf, Bytes(5200, 0xC5));
}

TEST_F(Exchange, TheLongestCommandIsExchanged)
{
    Bytes data = counted(508);
    m_peer->expect(commandFrame(hex(data))).reply(replyFrame(0x9000, "01"));
    EXPECT_EQ(exchange(hex(data)), 1);
    data = counted(1024);
    m_peer->expect(hex(data)).reply("05 03");
    EXPECT_EQ(exchange(hex(data), 1024, 1, 0, 0), 2);
    m_peer->finish();
}

TEST_F(Exchange, AnAnswerThatAlreadyStandsThereIsTaken)
{
    m_peer->expect(commandFrame("31"));
    m_peer->send(replyFrame(0x9000, "AA"));
    EXPECT_EQ(exchange("31"), 1);
    EXPECT_EQ(buffer(1), "AA");
    m_peer->finish();
}

TEST_F(Exchange, ATimeOutPassesThrough)
{
    FakeClock clock(1000);
    COMM_Rdz_ChageReadTimeOut(2);
    stRDZ73xx.gStatus = 0x1234;
    m_peer->expect(commandFrame("31"));
    clock.script({1000, 1000, 1003});
    EXPECT_EQ(exchange("31"), -56);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(buffer(1), "C5");
    m_peer->finish();
}

TEST_F(Exchange, ALateAnswerIsTakenForTheNextOneUnlessItIsDiscarded)
{
    m_peer->expect(commandFrame("31"));
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1500});
        EXPECT_EQ(exchange("31"), -56);
    }
    COMM_Rdz_ChageReadTimeOut(30);
    m_peer->send(replyFrame(0x9000, "11"));
    m_peer->expect(commandFrame("32"));
    EXPECT_EQ(exchange("32"), 1);
    EXPECT_EQ(buffer(1), "11");
    m_peer->finish();

    m_peer->send(replyFrame(0x9000, "22"));
    waitUnread(g_AuxFd, 14);
    EXPECT_EQ(ClearReceiveBuffer(), 0);
    m_peer->expect(commandFrame("33")).reply(replyFrame(0x9000, "33"));
    EXPECT_EQ(exchange("33"), 1);
    EXPECT_EQ(buffer(1), "33");
    m_peer->finish();
}

int32_t cancelHere(const uint8_t *, int32_t)
{
    COMM_Rdz_Cancel();
    return 1;
}

TEST_F(Exchange, TransportFailuresPassThrough)
{
    COMM_Dev_ChangeEndCondition(cancelHere);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 0, 0, m_buf.data(), 8), -57);
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), -55);
    g_AuxFd = -2;
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), -2);
    g_AuxFd = nFd;
    stBackUpParam.nType = 9;
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), -1);
}

int32_t completeAtOnce(const uint8_t *, int32_t)
{
    return 0;
}

TEST_F(Exchange, AReadOfNothingIsZeroAndNotParsed)
{
    COMM_Dev_ChangeEndCondition(completeAtOnce);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 0, m_buf.data(), 8), 0);
    EXPECT_EQ(buffer(1), "C5");
}

TEST_F(Exchange, EveryReadTakesItsTimeOffTheBudget)
{
    FakeClock clock(1000);
    EXPECT_EQ(COMM_Rdz_ChageReadTimeOut(7), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 7);
    m_peer->send(replyFrame(0x9000));
    clock.script({1000, 1000, 1002});
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), 0);
    EXPECT_EQ(stBackUpParam.nTimeOut, 5);
}

TEST_F(Exchange, TheZeroStrippingFlagIsForwarded)
{
    EXPECT_EQ(COMM_Rdz_SetHidClearZero(0), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 0U);
    EXPECT_EQ(COMM_Rdz_SetHidClearZero(1), 0);
    EXPECT_EQ(g_bIsLinuxHidClearZero, 1U);
}

// ---- switch box ---------------------------------------------------------------------------------------------------

TEST_F(Exchange, ASwitchBoxPortIsNamedByItsFirstLetter)
{
    EXPECT_EQ(Set_RdzBp("A"), 0);
    EXPECT_EQ(Set_RdzBp("Bxyz"), 0);
    EXPECT_EQ(Set_RdzBp("C"), 0);
    EXPECT_EQ(Set_RdzBp("K"), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 41 1B 25 42 1B 25 43 1B 25 4B");
}

TEST_F(Exchange, ASwitchBoxPortIsSelectedByAnExchangeThatAwaitsNoReply)
{
    stRDZ73xx.gStatus = 0x1234;
    stBackUpParam.pfnEndCondition = never;
    logOn();
    EXPECT_EQ(Set_RdzBp("B"), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_TRUE(logged({"[Set_RdzBp] Start ", "[ COMM_Rdz_SendAndReciveData ] Start ", "nSendLen 3 ",
                        "[COMM_Rdz_ReSetStatus]Start ", "nDataLen = 3", "【发送命令】 szSend\n  LEN=3   HEX: 1B2542"}));
    EXPECT_EQ(logLine("COMM_Rdz_ReadDataFromReader"), "");
    EXPECT_EQ(stBackUpParam.pfnEndCondition, never);
    // Also when it cannot be sent.
    COMM_Com_CloseLinux();
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(Set_RdzBp("B"), -54);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    // A port that is none is no exchange.
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(Set_RdzBp("D"), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
}

TEST_F(Exchange, AnyOtherSwitchBoxPortSendsNothing)
{
    for (const char *psz : {"", "D", "a", "b", "k", " A", "J", "L", "@", "1"})
        EXPECT_EQ(Set_RdzBp(psz), 0) << psz;
    EXPECT_EQ(Set_RdzBp(nullptr), 0);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Exchange, ASwitchBoxThatCannotBeReachedGivesMinus54)
{
    COMM_Com_CloseLinux();
    EXPECT_EQ(Set_RdzBp("A"), -54);
    EXPECT_EQ(Set_RdzBp("D"), 0);
}

// ---- log ----------------------------------------------------------------------------------------------------------

TEST_F(Exchange, AnExchangeIsLogged)
{
    m_peer->expect(commandFrame("31 32")).reply("02 30 30 30 33 39 30 30 30 30 31 39 31 03");
    logOn();
    EXPECT_EQ(exchange("31 32", 1000), 1);
    EXPECT_TRUE(logged({"[ COMM_Rdz_SendAndReciveData ] Start ", "nSendLen 2 ",
                        "nMaxReciveBufLen 1000,cHead =\x02,cHead = \x02", "[COMM_Rdz_ReSetStatus]Start ",
                        "nDataLen = 2", "【发送命令】 szSend\n  LEN=2   HEX: 3132",
                        "[ COMM_Rdz_ReadDataFromReader ] Start ", "[COMM_Rdz_ReSetStatus]Start ", "==> nReadLen = 14 ",
                        "== ucPacket  LEN=14   HEX: 0230303033393030303031393103",
                        "[Str_RDZ_ParsePacket] Start nPacketLen = 14 ", "Str_RDZ_ParsePacket Data Len = 1 "}));
    std::string sLog = rawLog();
    EXPECT_NE(sLog.find("INFO:    Comm:    nSendLen 2 \r\n"), std::string::npos);
    EXPECT_NE(sLog.find("INFO:    CommDev:  nDataLen = 2\r\n"), std::string::npos);
    EXPECT_NE(sLog.find("INFO:    CommDev:  ==> nReadLen = 14 \r\n"), std::string::npos);
    EXPECT_NE(sLog.find("INFO:    CommDev:  Str_RDZ_ParsePacket Data Len = 1 \r\n"), std::string::npos);
    m_peer->finish();
}

TEST_F(Exchange, ARawReadIsLogged)
{
    m_peer->send("41 42 43 03");
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf.data(), 2), 2);
    EXPECT_TRUE(logged({"[ COMM_Rdz_ReadDataFromReader ] Start ", "==> nReadLen = 4 ",
                        "== ucPacket  LEN=4   HEX: 41424303", "nretval = 2 "}));
}

TEST_F(Exchange, AFailedReadIsLogged)
{
    int nFd = g_AuxFd;
    g_AuxFd = -2;
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), -2);
    EXPECT_TRUE(logged({"==> nReadLen = -2 "}));
    g_AuxFd = nFd;
    logOn();
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 0), 0);
    EXPECT_TRUE(logged({"[ COMM_Rdz_ReadDataFromReader ] Start ", "Not Read Data "}));
}

TEST_F(Exchange, TheSettersAndTheConnectionAreLogged)
{
    logOn();
    COMM_Rdz_SetEndCondition(endsWithEtx);
    COMM_Rdz_ChageReadTimeOut(12);
    COMM_Rdz_SetHidClearZero(1);
    Set_RdzBp("D");
    COMM_Rdz_Cancel();
    EXPECT_TRUE(
        logged({"[COMM_Rdz_SetEndCondition ] Start", "COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 12 ",
                "[ COMM_Rdz_SetHidClearZero ] Start nFlag = 01", "[Set_RdzBp] Start ", "[COMM_Rdz_Cancel] Start "}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  COMM_Rdz_ChageReadTimeOut Start"), std::string::npos);
    EXPECT_NE(rawLog().find("INFO:    Comm:    [Set_RdzBp] Start \r\n"), std::string::npos);

    COMM_Com_CloseLinux();
    TransPortParam param = record();
    logOn();
    EXPECT_EQ(COMM_Rdz_OpenReader(&param), 0);
    EXPECT_TRUE(logged(
        {"[COMM_Rdz_OpenReader]Start ", "【COMM_Dev_OpenTransPort】 Start ", "[COMM_Rdz_OpenReader]End nRet = 0  "}));
}

} // namespace
