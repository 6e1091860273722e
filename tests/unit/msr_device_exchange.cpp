// Stripe commands and their replies, bare and in frames, and the cancel of a read.

#include "msr_reader.h"

#include "cancelled_read.h"
#include "fake_clock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>

using namespace qvtest;
using testing::ElementsAre;

namespace {

std::atomic<int> s_nPasses{0};

int32_t countPasses(const uint8_t *, int32_t)
{
    ++s_nPasses;
    return 1;
}

int32_t endsWithZ(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 'Z' ? 0 : -1;
}

class StripeExchange : public OpenStripePort {
  protected:
    void SetUp() override
    {
        OpenStripePort::SetUp();
        m_reply.assign(2000, 0xC5);
    }
    int32_t exchange(uint32_t bFramedRead, uint32_t bRaw, std::string_view sCommand, uint32_t nSize = 1024)
    {
        const Bytes command = bytes(sCommand);
        return Dev_Rdz_MsgSendAndReciveData(bFramedRead, bRaw, command.data(), static_cast<uint32_t>(command.size()),
                                            m_reply.data(), nSize);
    }
    std::string reply(size_t nLen) const { return hex(m_reply.data(), nLen); }

    Bytes m_reply;
};

const uint32_t s_framedFlags[] = {0, 2, 0xFFFFFFFFU}; // anything but 1

TEST_F(StripeExchange, ABareExchangeSendsAndReceivesTheBytesAsTheyAre)
{
    for (uint32_t bFramedRead : {0U, 1U, 2U}) {
        SCOPED_TRACE(bFramedRead);
        says("1B 5D", "1B 73 31 32 04");
        EXPECT_EQ(exchange(bFramedRead, 1, "1B 5D"), 5);
        EXPECT_EQ(reply(6), "1B 73 31 32 04 C5");
        EXPECT_EQ(stBackUpParam.pfnEndCondition, MsgEndCondition);
        EXPECT_EQ(gEndChar, 0x03);
        EXPECT_EQ(COMM_Msg_CardReaderGetRecStatus(), 0);
    }
    // A frame is no frame to it.
    const std::string sFrame = stripeAnswer(0x4001, "AA");
    says("1B 5D", sFrame);
    EXPECT_EQ(exchange(1, 1, "1B 5D"), static_cast<int32_t>(bytes(sFrame).size()));
    EXPECT_EQ(reply(bytes(sFrame).size()), sFrame);
}

TEST_F(StripeExchange, ABareReplyIsReadUpToTheInstalledEndConditionAndCutToItsRoom)
{
    COMM_Rdz_SetEndCondition(endsWithZ);
    says("1B 6A", "31 04 5A");
    EXPECT_EQ(exchange(0, 1, "1B 6A"), 3);
    EXPECT_EQ(reply(4), "31 04 5A C5");
    EXPECT_EQ(stBackUpParam.pfnEndCondition, endsWithZ);
    says("1B 6A", "41 42 5A");
    EXPECT_EQ(exchange(0, 1, "1B 6A", 2), 2);
    EXPECT_EQ(reply(4), "41 42 5A C5");
}

TEST_F(StripeExchange, AnyOtherFlagFramesTheCommandAndTakesTheReplyApart)
{
    for (uint32_t bRaw : s_framedFlags)
        for (uint32_t bFramedRead : {0U, 1U}) {
            SCOPED_TRACE(testing::Message() << bRaw << " " << bFramedRead);
            m_reply.assign(2000, 0xC5);
            answers("20 02", 0x4002, "AA BB CC");
            EXPECT_EQ(exchange(bFramedRead, bRaw, "20 02"), 3);
            EXPECT_EQ(reply(4), "AA BB CC C5");
            EXPECT_EQ(COMM_Msg_CardReaderGetRecStatus(), 0x4002);
            EXPECT_EQ(stBackUpParam.pfnEndCondition, ChangeEndCondition);
            EXPECT_EQ(gEndChar, 0x04);
        }
    EXPECT_EQ(s_sent[0], "01 30 30 30 32 32 30 30 32 32 32 04");
    answers("20 02", 0, "AA BB CC");
    EXPECT_EQ(exchange(1, 0, "20 02", 2), 2);
    answers("20 02", 0);
    EXPECT_EQ(exchange(1, 0, "20 02"), 0);
    says(stripeFrame("20 02"), "01 31 04");
    EXPECT_EQ(exchange(1, 0, "20 02"), -4);
    EXPECT_EQ(COMM_Msg_CardReaderGetRecStatus(), 0);
}

TEST_F(StripeExchange, AFrameOfTheCardSideIsNoReply)
{
    says(stripeFrame("20 02"), replyFrame(0, "AA") + " 04");
    EXPECT_EQ(exchange(1, 0, "20 02"), -4);
}

TEST_F(StripeExchange, WithoutRoomForAReplyNoneIsAwaited)
{
    const Bytes command = bytes("1B 30");
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(1, 1, command.data(), 2, nullptr, 16), 0);
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(1, 0, command.data(), 2, nullptr, 16), 0);
    EXPECT_EQ(exchange(1, 1, "1B 30", 0), 0);
    EXPECT_EQ(exchange(1, 0, "1B 30", 0), 0);
    EXPECT_THAT(s_sent, ElementsAre("1B 30", stripeFrame("1B 30"), "1B 30", stripeFrame("1B 30")));
}

TEST_F(StripeExchange, ACommandThatCannotBeSentGivesMinus54)
{
    s_errors = {EIO, EIO};
    EXPECT_EQ(exchange(0, 1, "1B 5D"), -54);
    EXPECT_EQ(exchange(1, 0, "20 02"), -54);
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(0, 1, nullptr, 2, m_reply.data(), 16), -54);
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(1, 0, nullptr, 2, m_reply.data(), 16), -54);
    EXPECT_EQ(reply(1), "C5");
}

TEST_F(StripeExchange, AReplyThatDoesNotComeGivesMinus56)
{
    FakeClock clock(1000);
    for (uint32_t bRaw : {0U, 1U}) {
        clock.script({1000, 1000, 1061});
        takes(bRaw == 1 ? "20 02" : stripeFrame("20 02"));
        COMM_Rdz_ChageReadTimeOut(60);
        EXPECT_EQ(exchange(1, bRaw, "20 02"), -56);
    }
}

// ---- the halves of an exchange --------------------------------------------------------------------------------------

TEST_F(StripeExchange, ASendAwaitsNothingAndIsBareForTheFlag1Only)
{
    const Bytes data = bytes("1B 74 31");
    EXPECT_EQ(Dev_Rdz_MsgSendData(1, data.data(), 3), 0);
    EXPECT_EQ(COMM_Msg_WriteDataToCardReader(1, data.data(), 3), 0);
    EXPECT_THAT(s_sent, ElementsAre("1B 74 31", "1B 74 31"));
    for (uint32_t bRaw : s_framedFlags) {
        s_sent.clear();
        EXPECT_EQ(Dev_Rdz_MsgSendData(bRaw, data.data(), 3), 0);
        EXPECT_EQ(COMM_Msg_WriteDataToCardReader(bRaw, data.data(), 3), 0);
        EXPECT_THAT(s_sent, ElementsAre(stripeFrame("1B 74 31"), stripeFrame("1B 74 31")));
    }
}

TEST_F(StripeExchange, ASendThatFailsGivesMinus1)
{
    const Bytes data = bytes("1B 74 31");
    s_errors = {EIO, EIO, EIO, EIO};
    for (uint32_t bRaw : {0U, 1U}) {
        EXPECT_EQ(Dev_Rdz_MsgSendData(bRaw, data.data(), 3), -1);
        EXPECT_EQ(COMM_Msg_WriteDataToCardReader(bRaw, data.data(), 3), -1);
        EXPECT_EQ(Dev_Rdz_MsgSendData(bRaw, nullptr, 3), -1);
        EXPECT_EQ(COMM_Msg_WriteDataToCardReader(bRaw, nullptr, 3), -1);
    }
    EXPECT_EQ(Dev_Rdz_MsgSendData(0, Bytes(509).data(), 509), -1);
    EXPECT_EQ(Dev_Rdz_MsgSendData(1, Bytes(1025).data(), 1025), -1);
    EXPECT_EQ(s_sent.size(), 4U);
}

TEST_F(StripeExchange, AReadIsBareForTheFlag1Only)
{
    m_peer->send("41 42 04");
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(1, m_reply.data(), 1024), 3);
    EXPECT_EQ(reply(4), "41 42 04 C5");
    for (uint32_t bRaw : s_framedFlags) {
        m_reply.assign(2000, 0xC5);
        m_peer->send(stripeAnswer(0x4001, "AA BB"));
        EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(bRaw, m_reply.data(), 1024), 2);
        EXPECT_EQ(reply(3), "AA BB C5");
        EXPECT_EQ(COMM_Msg_CardReaderGetRecStatus(), 0x4001);
        m_peer->send("01 31 04");
        EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(bRaw, m_reply.data(), 1024), -4);
    }
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(1, m_reply.data(), 0), 0);
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(1, nullptr, 16), -1);
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(0, nullptr, 16), -1);
}

TEST_F(StripeExchange, ABusyFieldThatIsWrittenLaterDoesNotCount)
{
    g_MsgParam.nWord4 = 1;
    takes("1B 30 1B 30");
    EXPECT_EQ(Dev_Rdz_MsgSendData(1, bytes("1B 30").data(), 2), 0);
    EXPECT_EQ(COMM_Msg_WriteDataToCardReader(1, bytes("1B 30").data(), 2), 0);
    answers("20 04 1E", 0x4001);
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(30), -1);
    EXPECT_EQ(Dev_Rdz_MsgClosePort(), 0);
    EXPECT_EQ(g_AuxFd, -2);
}

// ---- cancel ---------------------------------------------------------------------------------------------------------

TEST_F(StripeExchange, ACancelFromAnotherThreadEndsARead)
{
    const std::pair<const char *, int32_t (*)()> cancels[] = {{"device", Dev_Rdz_MsgCancel},
                                                              {"reader", COMM_Msg_Cancel}};
    for (auto [pszName, cancel] : cancels) {
        SCOPED_TRACE(pszName);
        COMM_Rdz_SetEndCondition(countPasses);
        int nAfter = 0;
        EXPECT_EQ(cancelledRead(
                      s_nPasses, nAfter, [&] { return exchange(0, 1, "1B 5D"); }, cancel, 2),
                  -57);
        EXPECT_LE(nAfter, 2);
    }
}

TEST_F(StripeExchange, ACancelWhileNothingWaitsIsLost)
{
    logOn();
    EXPECT_EQ(Dev_Rdz_MsgCancel(), 0);
    EXPECT_TRUE(logged({"[COMM_Rdz_Cancel] Start "}));
    logOff();
    EXPECT_EQ(COMM_Msg_Cancel(), 0);
    says("1B 6A", "70 04");
    EXPECT_EQ(exchange(0, 1, "1B 6A"), 2);
}

TEST_F(StripePort, ACancelBeforeAnyOpenGivesMinus1)
{
    EXPECT_EQ(Dev_Rdz_MsgCancel(), -1);
    EXPECT_EQ(COMM_Msg_Cancel(), -1);
}

TEST_F(StripePort, WithoutAnOpenReaderEverythingFails)
{
    uint8_t buf[16] = {};
    EXPECT_EQ(Dev_Rdz_MsgSendData(1, buf, 2), -1);
    EXPECT_EQ(Dev_Rdz_MsgSendData(0, buf, 2), -1);
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(0, 1, buf, 2, buf, 16), -54);
    EXPECT_EQ(Dev_Rdz_MsgSendAndReciveData(1, 0, buf, 2, buf, 16), -54);
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(1, buf, 16), -1);
    EXPECT_EQ(COMM_Msg_ReadDataFromCardReader(0, buf, 16), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetSeparator("|"), -55);
    EXPECT_EQ(Dev_Rdz_MsgReset(), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetBp(65), -1);
    EXPECT_EQ(COMM_Msg_RDZSetFormat(0), -1);
    EXPECT_EQ(Dev_Rdz_MsgSetReadTrackTime(5), 0);
}

} // namespace
