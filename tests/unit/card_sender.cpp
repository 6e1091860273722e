// The sender behind the commands by name: how a command is put together, what becomes of the answer, whom it goes
// through, what it leaves in the log.

#include "card_exchange.h"
#include "open_reader.h"

using namespace qvtest;

namespace {

static_assert(sizeof stICOp == 80);
const Bytes s_tableAtLoad(reinterpret_cast<const uint8_t *>(stICOp), reinterpret_cast<const uint8_t *>(stICOp) + 80);

class CardSender : public CardExchange {
  protected:
    uint32_t send(std::string_view sData, uint8_t ucLeFlag, uint8_t ucLe)
    {
        const Bytes data = bytes(sData);
        return Cmd_Ic_PbocSendAPDU(0x80, 0xCA, 0x9F, 0x17, static_cast<uint8_t>(data.size()), data.data(), ucLeFlag,
                                   ucLe, m_response.data(), &m_nLen);
    }
    uint32_t send() { return send("", 1, 0); }
};

TEST(CardSenderAtLoad, TheTableIsEmpty)
{
    EXPECT_EQ(s_tableAtLoad, Bytes(80));
}

TEST_F(CardSender, OnlyTheFlag1SendsLe)
{
    struct Row {
        const char *pszData;
        uint8_t ucLeFlag, ucLe;
        const char *pszCommand;
    };
    const Row rows[] = {{"", 0, 0x55, "80 CA 9F 17"},
                        {"", 1, 0x55, "80 CA 9F 17 55"},
                        {"", 1, 0, "80 CA 9F 17 00"},
                        {"", 2, 0x55, "80 CA 9F 17"},
                        {"", 255, 0x55, "80 CA 9F 17"},
                        {"A1 A2 A3", 0, 0x55, "80 CA 9F 17 03 A1 A2 A3"},
                        {"A1 A2 A3", 1, 0x55, "80 CA 9F 17 03 A1 A2 A3 55"},
                        {"A1 A2 A3", 2, 0x55, "80 CA 9F 17 03 A1 A2 A3"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszCommand);
        EXPECT_EQ(send(row.pszData, row.ucLeFlag, row.ucLe), 0x9000U);
        EXPECT_EQ(command(), row.pszCommand);
        EXPECT_EQ(s_nRoom, 1024U);
        EXPECT_EQ(response(), "11 22 90 00");
        clearOutputs();
    }
}

TEST_F(CardSender, ALength0SendsNoData)
{
    const Bytes data = bytes("A1");
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0xA4, 4, 0, 0, data.data(), 0, 0, nullptr, nullptr), 0x9000U);
    EXPECT_EQ(command(), "00 A4 04 00");
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0xA4, 4, 0, 0, nullptr, 1, 1, nullptr, nullptr), 0x9000U);
    EXPECT_EQ(command(), "00 A4 04 00 01");
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0xA4, 4, 0, 1, nullptr, 1, 1, m_response.data(), &m_nLen), 0xFFFFFFFFU);
    EXPECT_EQ(command(), "none");
    EXPECT_TRUE(untouched());
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
}

TEST_F(CardSender, TheLongestCommandIsSent)
{
    const std::string sData = hex(Bytes(255, 0x5A));
    EXPECT_EQ(send(sData, 1, 0xFF), 0x9000U);
    EXPECT_EQ(command(), "80 CA 9F 17 FF " + sData + " FF");
}

// ---- the answer ---------------------------------------------------------------------------------------------------

TEST_F(CardSender, TheResultIsTheCardsStatusWord)
{
    struct Row {
        const char *pszAnswer;
        uint32_t nResult;
    };
    const Row rows[] = {{"90 00", 0x9000},
                        {"6A 82", 0x6A82},
                        {"61 10", 0x6110},
                        {"6C 1D", 0x6C1D},
                        {"63 C2", 0x63C2},
                        {"00 00", 0},
                        {"FF FE", 0xFFFE},
                        {"01 02 03 93 02", 0x9302},
                        {"6A 82 90 00", 0x9000},
                        {"90", 0},
                        {"", 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszAnswer);
        clearOutputs();
        s_answer = bytes(row.pszAnswer);
        EXPECT_EQ(send(), row.nResult);
        EXPECT_EQ(response(), row.pszAnswer);
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
    }
}

TEST_F(CardSender, AnAnswerOf1024BytesIsHandedOutWhole)
{
    s_answer.assign(1022, 0x61);
    s_answer.push_back(0x90);
    s_answer.push_back(0x01);
    EXPECT_EQ(send(), 0x9001U);
    EXPECT_EQ(response(), hex(s_answer));
}

int32_t boast(const uint8_t *, uint32_t, uint8_t *pResponse, uint32_t *pnResponse)
{
    std::fill_n(pResponse, 1024, uint8_t{0x6A});
    *pnResponse = 2000;
    return 0;
}

TEST_F(CardSender, NoMoreThanTheRoomIsTakenOfAnAnswer)
{
    stICOp[nExchangeSlot] = slot(boast);
    logOn();
    EXPECT_EQ(send(), 0x6A6AU);
    EXPECT_EQ(response(), hex(Bytes(1024, 0x6A)));
    EXPECT_TRUE(wroteLines({dump("R_APDU", hex(Bytes(1024, 0x6A)))}));
}

TEST_F(CardSender, TheAnswerIsCopiedOnlyWhenBothOutputsAreGiven)
{
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0x84, 0, 0, 0, nullptr, 1, 8, m_response.data(), nullptr), 0x9000U);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0x84, 0, 0, 0, nullptr, 1, 8, nullptr, &m_nLen), 0x9000U);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0x84, 0, 0, 0, nullptr, 1, 8, nullptr, nullptr), 0x9000U);
    EXPECT_EQ(s_nCalls, 3);
}

TEST_F(CardSender, AFailedExchangeSetsAAAAAndLeavesTheOutputs)
{
    for (int32_t nResult : {-1, -55, -0x1003, 1, 0x9000, INT32_MIN}) {
        SCOPED_TRACE(nResult);
        stCardCmdParam.nErrorCode = 0x1234;
        s_nResult = nResult;
        EXPECT_EQ(send(), static_cast<uint32_t>(nResult));
        EXPECT_TRUE(untouched());
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    }
    s_nResult = 0;
    EXPECT_EQ(send(), 0x9000U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

// ---- the table ----------------------------------------------------------------------------------------------------

int32_t refuse(const uint8_t *, uint32_t, uint8_t *, uint32_t *)
{
    return -77;
}

TEST_F(CardSender, TheSlotIsReadAtEachCall)
{
    EXPECT_EQ(send(), 0x9000U);
    stICOp[nExchangeSlot] = slot(refuse);
    EXPECT_EQ(send(), static_cast<uint32_t>(-77));
    stICOp[nExchangeSlot] = slot(exchange);
    EXPECT_EQ(send(), 0x9000U);
}

TEST_F(CardSender, ATableWithoutExchangeFails)
{
    for (size_t n = 0; n < 10; ++n) {
        if (n == nExchangeSlot)
            continue;
        SCOPED_TRACE(n);
        clearTable();
        stICOp[n] = slot(exchange);
        stCardCmdParam.nErrorCode = 0x1234;
        EXPECT_EQ(send(), 0xFFFFFFFFU);
        EXPECT_EQ(command(), "none");
        EXPECT_TRUE(untouched());
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    }
}

// ---- the log ------------------------------------------------------------------------------------------------------

TEST_F(CardSender, AnExchangeIsLogged)
{
    logOn();
    EXPECT_EQ(Cmd_Ic_PbocReadRecord(1, 2, nullptr, nullptr), 0x9000U);
    EXPECT_EQ(logWithoutTime(), commandLine("[Cmd_Ic_PbocSendAPDU] Start ") + dump("C_APDU", "00 B2 02 0C 00") +
                                    commandLine(" CommRW   !!1 nRet = 00  nRespLen = 04") +
                                    dump("R_APDU", "11 22 90 00"));
    s_answer.assign(300, 0x90);
    logOn();
    EXPECT_EQ(send("A1 A2", 0, 0), 0x9090U);
    EXPECT_EQ(logWithoutTime(), commandLine("[Cmd_Ic_PbocSendAPDU] Start ") + dump("C_APDU", "80 CA 9F 17 02 A1 A2") +
                                    commandLine(" CommRW   !!1 nRet = 00  nRespLen = 12c") +
                                    dump("R_APDU", hex(s_answer)));
}

TEST_F(CardSender, AFailedExchangeIsLoggedWithoutAnAnswer)
{
    s_nResult = -55;
    logOn();
    EXPECT_EQ(send(), static_cast<uint32_t>(-55));
    EXPECT_EQ(logWithoutTime(), commandLine("[Cmd_Ic_PbocSendAPDU] Start ") + dump("C_APDU", "80 CA 9F 17 00") +
                                    commandLine(" CommRW   !!1 nRet = ffffffc9  nRespLen = 04"));
}

TEST_F(CardSender, AnEmptyAnswerIsLogged)
{
    s_answer.clear();
    logOn();
    EXPECT_EQ(send(), 0U);
    EXPECT_TRUE(wroteLines({commandLine(" CommRW   !!1 nRet = 00  nRespLen = 00"), dump("R_APDU", "")}));
}

TEST_F(CardSender, ACommandIsLoggedBeforeItGoesOutAndItsAnswerAsTheCardClaimsIt)
{
    // An operation of the host's own that claims more than its caller has room for.
    stICOp[nExchangeSlot] = slot(+[](const uint8_t *, uint32_t, uint8_t *pResponse, uint32_t *pnResponse) {
        DPrintLogToFile("the exchange");
        std::fill_n(pResponse, 1024, uint8_t{0x90});
        *pnResponse = 2000;
        return 0;
    });
    logOn();
    EXPECT_EQ(send(), 0x9090U);
    EXPECT_EQ(logWithoutTime(), commandLine("[Cmd_Ic_PbocSendAPDU] Start ") + dump("C_APDU", "80 CA 9F 17 00") +
                                    "  T  the exchange\r\n" + commandLine(" CommRW   !!1 nRet = 00  nRespLen = 7d0") +
                                    dump("R_APDU", hex(Bytes(1024, 0x90))));
    EXPECT_EQ(m_nLen, 1024U);
}

// ---- without a table ----------------------------------------------------------------------------------------------

class SenderOnReader : public OpenReader {
  protected:
    void SetUp() override
    {
        clearTable();
        OpenReader::SetUp();
        stCardReader.nCardSlot = 17;
        stCardCmdParam.nErrorCode = 0x1234;
        g_stCallBackFunc = {};
    }
    void TearDown() override
    {
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        OpenReader::TearDown();
    }
    void card(std::string_view sCommand, std::string_view sResponse, uint32_t nStatus = 0)
    {
        answer("32 26 11 " + std::string(sCommand), nStatus, sResponse);
    }

    uint8_t m_response[1024] = {};
    uint32_t m_nLen = 0xC5C5;
};

TEST_F(SenderOnReader, ACommandGoesToTheReaderWithItsFollowUp)
{
    card("00 A4 04 00 02 A0 01 00", "61 03");
    card("00 C0 00 00 03", "6F 01 A5 90 00");
    EXPECT_EQ(Cmd_Ic_PbocSelect_Aid(0, bytes("A0 01").data(), 2, m_response, &m_nLen), 0x9000U);
    EXPECT_EQ(hex(m_response, m_nLen), "6F 01 A5 90 00");
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);

    card("80 CA 9F 17 00", "6C 04");
    card("80 CA 9F 17 04", "9F 17 01 03 90 00");
    EXPECT_EQ(Cmd_Ic_PbocGetData(bytes("9F 17").data(), m_response, &m_nLen), 0x9000U);
    EXPECT_EQ(hex(m_response, m_nLen), "9F 17 01 03 90 00");

    // What the exchange left in the register stays.
    card("80 CA 9F 36 00", "6A 88");
    EXPECT_EQ(Cmd_Ic_PbocGetData(bytes("9F 36").data(), m_response, &m_nLen), 0x6A88U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x6A88U);
}

TEST_F(SenderOnReader, TheReadersFailureIsTheResult)
{
    card("80 5C 00 02 04", "", 0x1003);
    EXPECT_EQ(Cmd_Ic_EpEdGetBalance(2, m_response, &m_nLen), static_cast<uint32_t>(-0x1003));
    EXPECT_EQ(m_nLen, 0xC5C5U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);

    // A failed follow-up leaves the register to the sender.
    stCardCmdParam.nErrorCode = 0x1234;
    card("80 5C 00 02 04", "61 04");
    card("00 C0 00 00 04", "", 0x1004);
    EXPECT_EQ(Cmd_Ic_EpEdGetBalance(2, m_response, &m_nLen), static_cast<uint32_t>(-0x1004));
    EXPECT_EQ(m_nLen, 0xC5C5U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

TEST_F(SenderOnReader, AnAnswerWithoutStatusWordIs0)
{
    card("00 84 00 00 08", "90");
    EXPECT_EQ(Cmd_Ic_PbocSendAPDU(0, 0x84, 0, 0, 0, nullptr, 1, 8, m_response, &m_nLen), 0U);
    EXPECT_EQ(hex(m_response, m_nLen), "90");
}

} // namespace
