// Commands and replies over the line: framed and raw, the sticky end condition, the status word, sizes and failures.

#include "fake_clock.h"
#include "pty_peer.h"

#include "qvreader/protocol.h"

#include <cstring>
#include <functional>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace qvtest;

namespace {

int32_t never(const uint8_t *, int32_t)
{
    return 1;
}

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

int32_t endsWithEot(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x04 ? 0 : -1;
}

int32_t endsWithZero(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x00 ? 0 : -1;
}

// Bytes counting up, without the end byte 0x03.
Bytes counted(size_t nLen)
{
    Bytes data(nLen);
    for (size_t i = 0; i < nLen; ++i)
        data[i] = static_cast<uint8_t>(i % 200 + 5);
    return data;
}

class Exchange : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        stBackUpParam = {};
        stRDZ73xx = {};
        gEndChar = 0x03;
        TransPortParam param = record();
        ASSERT_EQ(COMM_Rdz_OpenReader(&param), 0);
        m_buf.assign(5200, 0xC5);
    }
    void TearDown() override
    {
        logOff();
        COMM_Com_CloseLinux();
        m_peer.reset();
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    TransPortParam record() const
    {
        TransPortParam param{};
        param.nType = 1;
        param.nBaud = 9600;
        param.nTimeOut = 30;
        param.pfnEndCondition = endsWithEtx;
        std::strncpy(param.szTermPath, m_peer->path().c_str(), sizeof param.szTermPath - 1);
        return param;
    }
    int32_t exchange(std::string_view sCommand, uint32_t nMax = 1024, uint32_t bParse = 1, uint8_t ucHead = 2,
                     uint8_t ucEnd = 3)
    {
        Bytes command = bytes(sCommand);
        return COMM_Rdz_SendAndReciveData(bParse, ucHead, ucEnd, command.data(), static_cast<uint32_t>(command.size()),
                                          m_buf.data(), nMax);
    }
    int32_t writeTo(uint8_t ucHead, uint8_t ucEnd, const Bytes &data)
    {
        return COMM_Rdz_WriteDataToReader(ucHead, ucEnd, data.data(), static_cast<uint32_t>(data.size()));
    }
    // Sends a reply on its own and reads it.
    int32_t readReply(std::string_view sReply, uint32_t bParse, uint8_t ucHead, uint8_t ucEnd, uint32_t nMax = 1024)
    {
        m_peer->send(sReply);
        return COMM_Rdz_ReadDataFromReader(bParse, ucHead, ucEnd, m_buf.data(), nMax);
    }
    // Waits until nCount bytes stand unread in the open port.
    static void waitUnread(int nCount)
    {
        int nUnread = 0;
        for (int i = 0; i < 5000 && nUnread < nCount; ++i) {
            usleep(1000);
            ASSERT_EQ(ioctl(g_AuxFd, FIONREAD, &nUnread), 0);
        }
        ASSERT_EQ(nUnread, nCount);
    }
    std::string buffer(size_t nLen) const { return hex(m_buf.data(), nLen); }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    Bytes m_buf;
};

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

// ---- writing ------------------------------------------------------------------------------------------------------

TEST_F(Exchange, DataAreFramedUnlessBothMarkersAreZero)
{
    Bytes data = bytes("32 30 00 10");
    EXPECT_EQ(writeTo(2, 3, data), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03");
    EXPECT_EQ(writeTo(0, 0, data), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 34 33 32 33 30 30 30 31 30 31 32 03 32 30 00 10");
}

TEST_F(Exchange, OneZeroMarkerIsStillAFrame)
{
    EXPECT_EQ(writeTo(0, 3, bytes("AB")), 0);
    EXPECT_EQ(m_peer->wire(), "00 30 30 30 31 3A 3B 3A 3B 03");
    EXPECT_EQ(writeTo(1, 0, bytes("AB")), 0);
    EXPECT_EQ(m_peer->wire(), "00 30 30 30 31 3A 3B 3A 3B 03 01 30 30 30 31 3A 3B 3A 3B 00");
}

TEST_F(Exchange, TypeTwoSendsRaw)
{
    stRDZ73xx.nType = 2;
    EXPECT_EQ(writeTo(2, 3, bytes("32 30 00 10")), 0);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10");
    // The raw limit counts then.
    Bytes data = counted(1024);
    EXPECT_EQ(writeTo(2, 3, data), 0);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10 " + hex(data));
    EXPECT_EQ(writeTo(2, 3, counted(1025)), -1);
    EXPECT_EQ(m_peer->wire(), "32 30 00 10 " + hex(data));
}

TEST_F(Exchange, AFrameWithoutDataIsSent)
{
    const uint8_t uc = 0x77;
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, &uc, 0), 0);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 30 30 30 03");
    // Raw there is nothing to send.
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, &uc, 0), -1);
    EXPECT_EQ(m_peer->wire(), "02 30 30 30 30 30 30 03");
}

TEST_F(Exchange, AFrameHoldsAtMost508Bytes)
{
    Bytes data = counted(508);
    EXPECT_EQ(writeTo(2, 3, data), 0);
    std::string sWire = commandFrame(hex(data));
    EXPECT_EQ(m_peer->wire(), sWire);
    for (size_t n : {509U, 510U, 1024U, 5000U})
        EXPECT_EQ(writeTo(2, 3, counted(n)), -1) << n;
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, data.data(), 0x80000000U), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, data.data(), 0xFFFFFFFFU), -1);
    EXPECT_EQ(m_peer->wire(), sWire);
}

TEST_F(Exchange, RawDataAreAtMost1024Bytes)
{
    Bytes data = counted(1024);
    EXPECT_EQ(writeTo(0, 0, data), 0);
    EXPECT_EQ(m_peer->wire(), hex(data));
    EXPECT_EQ(writeTo(0, 0, counted(1025)), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, data.data(), 0xFFFFFFFFU), -1);
    EXPECT_EQ(m_peer->wire(), hex(data));
}

TEST_F(Exchange, NullDataAreNotSent)
{
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(2, 3, nullptr, 4), -1);
    EXPECT_EQ(COMM_Rdz_WriteDataToReader(0, 0, nullptr, 4), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(nullptr, 4), -1);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Exchange, WhatCannotBeWrittenGivesMinusOne)
{
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(writeTo(0, 0, bytes("31")), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("31").data(), 1), -1);
    g_AuxFd = -2;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("31").data(), 1), -1);
    g_AuxFd = nFd;
    stBackUpParam.nType = 0;
    EXPECT_EQ(writeTo(2, 3, bytes("31")), -1);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Exchange, AReaderCommandIsSentAsItIs)
{
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("1B 25 49 34").data(), 4), 0);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 34");
    EXPECT_EQ(COMM_Rdz_ReaderCmd(bytes("1B").data(), 0), -1);
    EXPECT_EQ(m_peer->wire(), "1B 25 49 34");
}

TEST_F(Exchange, AReaderCommandHolds1024Bytes)
{
    const Bytes data(1025, 0x55);
    EXPECT_EQ(COMM_Rdz_ReaderCmd(data.data(), 1025), -1);
    EXPECT_EQ(m_peer->wire(), "");
    EXPECT_EQ(COMM_Rdz_ReaderCmd(data.data(), 1024), 0);
    EXPECT_EQ(m_peer->wire(), hex(Bytes(1024, 0x55)));
}

// ---- reading ------------------------------------------------------------------------------------------------------

TEST_F(Exchange, AFramedReplyIsParsed)
{
    EXPECT_EQ(readReply("02 30 30 30 33 39 30 30 30 30 31 39 31 03", 1, 2, 3), 1);
    EXPECT_EQ(buffer(2), "01 C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Exchange, AHeadByteAloneMeansAFrame)
{
    EXPECT_EQ(readReply(replyFrame(0x1111, "AA"), 0, 2, 3), 1);
    EXPECT_EQ(buffer(2), "AA C5");
    COMM_Dev_ChangeEndCondition(endsWithZero);
    EXPECT_EQ(readReply(replyFrame(0x2222, "BB", 2, 0), 0, 2, 0), 1);
    EXPECT_EQ(buffer(2), "BB C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x2222U);
}

TEST_F(Exchange, AnEndByteAloneMeansAFrameOnlyWithTheParseFlag)
{
    std::string sReply = "02 30 30 30 33 39 30 30 30 30 31 39 31 03";
    EXPECT_EQ(readReply(sReply, 0, 0, 3), 14);
    EXPECT_EQ(buffer(15), sReply + " C5");
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    // With it, a head byte 0x00 is looked for.
    EXPECT_EQ(readReply(sReply, 1, 0, 3), -4);
    EXPECT_EQ(readReply("00 30 30 30 33 39 30 30 30 30 31 39 31 03", 1, 0, 3), 1);
    EXPECT_EQ(buffer(1), "01");
    EXPECT_EQ(stRDZ73xx.gStatus, 0x9000U);
}

TEST_F(Exchange, WithoutMarkersTheBytesComeAsTheyAre)
{
    for (uint32_t bParse : {0U, 1U, 2U}) {
        SCOPED_TRACE(bParse);
        stRDZ73xx.gStatus = 0x1234;
        EXPECT_EQ(readReply("02 30 99 03", bParse, 0, 0), 4);
        EXPECT_EQ(buffer(5), "02 30 99 03 C5");
        EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    }
}

TEST_F(Exchange, AReplyWithoutABodyGivesZeroAndTheStatusWord)
{
    EXPECT_EQ(readReply(replyFrame(0x1003), 1, 2, 3), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1003U);
    EXPECT_EQ(buffer(1), "C5");
}

TEST_F(Exchange, AReplyIsCutAtTheGivenLength)
{
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 3), 3);
    EXPECT_EQ(buffer(4), "01 02 03 C5");
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 1), 1);
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 5), 5);
    EXPECT_EQ(readReply(replyFrame(0x9000, "01 02 03 04 05"), 1, 2, 3, 0xFFFFFFFFU), 5);
    EXPECT_EQ(buffer(6), "01 02 03 04 05 C5");
    // The whole reply is read all the same.
    m_buf.assign(64, 0xC5);
    EXPECT_EQ(readReply("41 42 43 44 03", 0, 0, 0, 2), 2);
    EXPECT_EQ(buffer(3), "41 42 C5");
    EXPECT_EQ(readReply("45 03", 0, 0, 0, 9), 2);
    EXPECT_EQ(buffer(3), "45 03 C5");
}

TEST_F(Exchange, ALengthOfZeroReadsNothingAndResetsNothing)
{
    stRDZ73xx.gStatus = 0x1234;
    stBackUpParam.pfnEndCondition = never;
    gEndChar = 0x44;
    m_peer->send(replyFrame(0x9000, "01"));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 0), 0);
    EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, never);
    EXPECT_EQ(gEndChar, 0x44);
    // The reply still stands there.
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 8), 1);
}

TEST_F(Exchange, AnInvalidReplyGivesMinusFourAndNoStatusWord)
{
    for (const char *psz : {"02 30 30 30 33 39 30 30 30 30 31 39 30 03", // LRC
                            "02 30 30 30 33 39 30 30 30 30 31 39 03",    // odd
                            "30 30 30 33 39 30 30 30 30 31 39 31 03",    // no head
                            "02 03", "03", "02 30 30 03"}) {
        SCOPED_TRACE(psz);
        stRDZ73xx.gStatus = 0x1234;
        EXPECT_EQ(readReply(psz, 1, 2, 3), -4);
        EXPECT_EQ(stRDZ73xx.gStatus, 0U);
        EXPECT_EQ(buffer(1), "C5");
    }
}

TEST_F(Exchange, GarbageInFrontOfAFrameIsIgnored)
{
    EXPECT_EQ(readReply("FF 00 31 " + replyFrame(0x9000, "AB"), 1, 2, 3), 1);
    EXPECT_EQ(buffer(1), "AB");
}

TEST_F(Exchange, AFrameInPiecesIsOneReply)
{
    using std::chrono::milliseconds;
    m_peer->expect(commandFrame("32 23 00"))
        .reply("02 30 30 30")
        .reply("33 39 30 30 30 30", milliseconds(30))
        .reply("31 39 31", milliseconds(120))
        .reply("03", milliseconds(10));
    EXPECT_EQ(exchange("32 23 00"), 1);
    EXPECT_EQ(buffer(1), "01");
    m_peer->finish();
}

TEST_F(Exchange, AReplyOfMoreThan1024CharactersIsRefused)
{
    Bytes body = counted(507);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(body)), 1, 2, 3), 507);
    EXPECT_EQ(buffer(508), hex(body) + " C5");
    m_buf.assign(2048, 0xC5);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(counted(508))), 1, 2, 3, 2048), -4);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(readReply(replyFrame(0x9000, hex(counted(1500))), 1, 2, 3, 2048), -4);
    EXPECT_EQ(m_buf, Bytes(2048, 0xC5));
}

TEST_F(Exchange, ARawReplyIsReadUpTo4096Bytes)
{
    COMM_Dev_ChangeEndCondition(nullptr);
    Bytes data = counted(5000);
    m_peer->send(hex(data));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf.data(), 5100), 4096);
    EXPECT_EQ(buffer(4096), hex(std::span(data).first(4096)));
    EXPECT_EQ(m_buf[4096], 0xC5);
    // The rest is the next read's.
    m_peer->send("03");
    COMM_Dev_ChangeEndCondition(endsWithEtx);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(0, 0, 0, m_buf.data(), 5100), 905);
}

TEST_F(Exchange, AFrameBehind4096BytesOfGarbageIsNotFound)
{
    m_peer->send(hex(counted(4096)) + " " + replyFrame(0x9000, "AB"));
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 64), -4);
    EXPECT_EQ(COMM_Rdz_ReadDataFromReader(1, 2, 3, m_buf.data(), 64), 1);
    EXPECT_EQ(buffer(2), "AB C5");
}

// ---- the sticky end condition -------------------------------------------------------------------------------------

TEST_F(Exchange, AnEndByteInstallsItsConditionForGood)
{
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEtx);
    EXPECT_EQ(readReply(replyFrame(0x9000, "", 1, 4), 1, 1, 4), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, ChangeEndCondition);
    EXPECT_EQ(gEndChar, 0x04);
    // A raw read afterwards ends at the 0x04.
    EXPECT_EQ(readReply("41 03 42 04", 0, 0, 0), 4);
    EXPECT_EQ(buffer(4), "41 03 42 04");
    EXPECT_EQ(COMM_Rdz_SetEndCondition(endsWithEtx), 0);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEtx);
    EXPECT_EQ(readReply("41 04 42 03", 0, 0, 0), 4);
}

TEST_F(Exchange, WithoutAnEndByteTheConditionStays)
{
    COMM_Dev_ChangeEndCondition(endsWithEot);
    EXPECT_EQ(readReply("41 03 04", 1, 0, 0), 3);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithEot);
    EXPECT_EQ(gEndChar, 0x03);
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
    waitUnread(14);
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
