// The card exchange with its one follow-up command and the register of the last card status word.

#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <atomic>
#include <cstddef>
#include <cstring>
#include <optional>
#include <thread>
#include <unistd.h>

using namespace qvtest;

namespace {

const uint32_t s_nRegisterAtLoad = stCardCmdParam.nErrorCode;

class FollowUp : public OpenReader {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 0;
        stCardCmdParam.nErrorCode = 0x1234;
        m_response.assign(1100, 0xC5);
        m_nLen = 0xC5C5;
    }
    // The reader gets this C-APDU for slot 0 and answers with a status word and an R-APDU.
    void card(std::string_view sCommand, std::string_view sResponse, uint32_t nStatus = 0)
    {
        m_peer->expect(commandFrame("32 26 00 " + std::string(sCommand))).reply(replyFrame(nStatus, sResponse));
    }
    int32_t visit(std::string_view sCommand)
    {
        Bytes command = bytes(sCommand);
        return ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), m_response.data(), &m_nLen);
    }
    std::string response() const { return hex(std::span(m_response).first(m_nLen)); }
    void expectUntouched() const
    {
        EXPECT_EQ(m_nLen, 0xC5C5U);
        EXPECT_EQ(m_response, Bytes(1100, 0xC5));
    }

    Bytes m_response;
    uint32_t m_nLen = 0;
};

TEST(FollowUpAtLoad, TheRegisterIsZero)
{
    EXPECT_EQ(s_nRegisterAtLoad, 0U);
}

// ---- conversations ------------------------------------------------------------------------------------------------

struct Conversation {
    const char *pszWhat;
    const char *pszCommand;
    std::vector<std::pair<const char *, const char *>> card; // C-APDU, R-APDU
    const char *pszResponse;
    uint32_t nRegister;
};

TEST_F(FollowUp, EachConversationEndsAfterAtMostOneFollowUp)
{
    const Conversation rows[] = {
        {"plain", "00 84 00 00 02", {{"00 84 00 00 02", "11 22 90 00"}}, "11 22 90 00", 0x9000},
        {"status only", "00 A4 00 00", {{"00 A4 00 00", "90 00"}}, "90 00", 0x9000},
        {"refused", "00 A4 00 00", {{"00 A4 00 00", "6A 82"}}, "6A 82", 0x6A82},
        {"61",
         "00 A4 04 00 01 AA",
         {{"00 A4 04 00 01 AA", "61 1A"}, {"00 C0 00 00 1A", "6F 00 90 00"}},
         "6F 00 90 00",
         0x9000},
        {"61 00", "00 A4 04 00", {{"00 A4 04 00", "61 00"}, {"00 C0 00 00 00", "01 90 00"}}, "01 90 00", 0x9000},
        {"61 twice", "00 A4 04 00", {{"00 A4 04 00", "61 1A"}, {"00 C0 00 00 1A", "61 05"}}, "61 05", 0x6105},
        {"61, data and 61",
         "00 A4 04 00",
         {{"00 A4 04 00", "61 1A"}, {"00 C0 00 00 1A", "AA 61 05"}},
         "AA 61 05",
         0x6105},
        {"61, then 6C", "00 A4 04 00", {{"00 A4 04 00", "61 1A"}, {"00 C0 00 00 1A", "6C 05"}}, "6C 05", 0x6C05},
        {"62",
         "00 A4 04 00 01 AA",
         {{"00 A4 04 00 01 AA", "62 83"}, {"00 C0 00 00 00", "6F 00 90 00"}},
         "6F 00 90 00",
         0x9000},
        {"62 twice", "00 A4 04 00", {{"00 A4 04 00", "62 83"}, {"00 C0 00 00 00", "62 83"}}, "62 83", 0x6283},
        {"62 00", "00 A4 04 00", {{"00 A4 04 00", "62 00"}, {"00 C0 00 00 00", "6A 86"}}, "6A 86", 0x6A86},
        {"6C",
         "00 B2 01 0C 00",
         {{"00 B2 01 0C 00", "6C 10"}, {"00 B2 01 0C 10", "70 0E 90 00"}},
         "70 0E 90 00",
         0x9000},
        {"6C without Le",
         "00 B2 01 0C",
         {{"00 B2 01 0C", "6C 10"}, {"00 B2 01 0C 10", "70 90 00"}},
         "70 90 00",
         0x9000},
        {"6C drops the data",
         "80 CA 9F 17 03 01 02 03 00",
         {{"80 CA 9F 17 03 01 02 03 00", "6C 04"}, {"80 CA 9F 17 04", "9F 17 01 03 90 00"}},
         "9F 17 01 03 90 00",
         0x9000},
        {"6C twice", "00 B2 01 0C 00", {{"00 B2 01 0C 00", "6C 10"}, {"00 B2 01 0C 10", "6C 11"}}, "6C 11", 0x6C11},
        {"6C, then 61", "00 B2 01 0C 00", {{"00 B2 01 0C 00", "6C 10"}, {"00 B2 01 0C 10", "61 11"}}, "61 11", 0x6111},
        {"6C 00", "00 B2 01 0C 10", {{"00 B2 01 0C 10", "6C 00"}, {"00 B2 01 0C 00", "90 00"}}, "90 00", 0x9000},
        {"6C of a short command", "00 B2 01", {{"00 B2 01", "6C 10"}}, "6C 10", 0x6C10},
        {"6C of one byte", "00", {{"00", "6C 10"}}, "6C 10", 0x6C10},
        {"61 of a short command", "00", {{"00", "61 02"}, {"00 C0 00 00 02", "AA BB 90 00"}}, "AA BB 90 00", 0x9000},
        {"data and 61", "00 A4 04 00", {{"00 A4 04 00", "AA 61 10"}}, "AA 61 10", 0x6110},
        {"data and 62", "00 A4 04 00", {{"00 A4 04 00", "AA BB 62 83"}}, "AA BB 62 83", 0x6283},
        {"data and 6C", "00 A4 04 00", {{"00 A4 04 00", "AA 6C 10"}}, "AA 6C 10", 0x6C10},
        {"60", "00 A4 04 00", {{"00 A4 04 00", "60 10"}}, "60 10", 0x6010},
        {"63 C2", "00 20 00 80", {{"00 20 00 80", "63 C2"}}, "63 C2", 0x63C2},
        {"6B 61", "00 A4 04 00", {{"00 A4 04 00", "6B 61"}}, "6B 61", 0x6B61},
        {"6D", "00 A4 04 00", {{"00 A4 04 00", "6D 00"}}, "6D 00", 0x6D00},
        {"16 1A", "00 A4 04 00", {{"00 A4 04 00", "16 1A"}}, "16 1A", 0x161A},
        {"one byte", "00 A4 04 00", {{"00 A4 04 00", "61"}}, "61", 0xAAAA},
        {"one byte after a follow-up",
         "00 A4 04 00",
         {{"00 A4 04 00", "61 01"}, {"00 C0 00 00 01", "90"}},
         "90",
         0xAAAA},
    };
    for (const Conversation &row : rows) {
        SCOPED_TRACE(row.pszWhat);
        for (auto [pszCommand, pszResponse] : row.card)
            card(pszCommand, pszResponse);
        m_response.assign(1100, 0xC5);
        EXPECT_EQ(visit(row.pszCommand), 0);
        EXPECT_EQ(response(), row.pszResponse);
        EXPECT_EQ(m_response[m_nLen], 0xC5);
        EXPECT_EQ(ICC_CardCmdGetErrCode(), row.nRegister);
        m_peer->finish();
    }
}

TEST_F(FollowUp, BothCommandsGoToTheCurrentSlot)
{
    for (int32_t nSlot : {1, 17, 255}) {
        SCOPED_TRACE(nSlot);
        Dev_Rdz_Ic_SetSlot(nSlot);
        uint8_t ucSlot = static_cast<uint8_t>(nSlot);
        std::string sHead = "32 26 " + hex(&ucSlot, 1);
        m_peer->expect(commandFrame(sHead + " 00 A4 04 00")).reply(replyFrame(0, "61 02"));
        m_peer->expect(commandFrame(sHead + " 00 C0 00 00 02")).reply(replyFrame(0, "AA BB 90 00"));
        EXPECT_EQ(visit("00 A4 04 00"), 0);
        EXPECT_EQ(response(), "AA BB 90 00");
    }
}

TEST_F(FollowUp, TheFollowUpRunsOnTheTimeThatTheCommandHasLeft)
{
    for (const char *pszStatus : {"61 02", "62 83", "6C 02"}) {
        SCOPED_TRACE(pszStatus);
        const Bytes status = bytes(pszStatus);
        const char *pszNext = status[0] == 0x61   ? "00 C0 00 00 02"
                              : status[0] == 0x62 ? "00 C0 00 00 00"
                                                  : "00 A4 04 00 02";
        FakeClock clock(1000);
        COMM_Rdz_ChageReadTimeOut(10);
        card("00 A4 04 00", pszStatus);
        card(pszNext, "AA BB 90 00");
        // The first read lasts from 1000 to 1003; the clock stands again afterwards.
        clock.script({1000, 1000, 1003});
        logOn();
        EXPECT_EQ(visit("00 A4 04 00"), 0);
        const std::string sPort = " g_AuxFd = " + std::to_string(g_AuxFd);
        EXPECT_TRUE(logged({sPort + " nTimeOut = 10 nMaxLen = 4096 ", sPort + " nTimeOut = 7 nMaxLen = 4096 "}));
        EXPECT_EQ(logLine("COMM_Rdz_ChageReadTimeOut"), "");
        logOff();
        EXPECT_EQ(stBackUpParam.nTimeOut, 7);
        m_peer->finish();
    }
}

TEST_F(FollowUp, TheReadersOwnStatusWordDoesNotMatterWhenTheCardAnswers)
{
    card("00 A4 00 00", "90 00", 0x1003);
    EXPECT_EQ(visit("00 A4 00 00"), 0);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);
}

TEST_F(FollowUp, TheLongestResponseIsHandedOut)
{
    Bytes body(505, 0x61);
    body.push_back(0x90);
    body.push_back(0x00);
    card("00 B0 00 00 00", hex(body));
    EXPECT_EQ(visit("00 B0 00 00 00"), 0);
    EXPECT_EQ(response(), hex(body));
    EXPECT_EQ(m_response[507], 0xC5);
}

TEST_F(FollowUp, AnEmptyResponseWithoutStatusWordStoresItsLengthAndAAAA)
{
    card("00 84 00 00 08", "", 0);
    EXPECT_EQ(visit("00 84 00 00 08"), 0);
    EXPECT_EQ(m_nLen, 0U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    // After a follow-up as well.
    card("00 84 00 00 08", "61 05");
    card("00 C0 00 00 05", "", 0);
    stCardCmdParam.nErrorCode = 0x1234;
    EXPECT_EQ(visit("00 84 00 00 08"), 0);
    EXPECT_EQ(m_nLen, 0U);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

// ---- failures -----------------------------------------------------------------------------------------------------

TEST_F(FollowUp, AFailedFirstExchangeSetsAAAA)
{
    card("00 84 00 00 08", "", 0x1003);
    EXPECT_EQ(visit("00 84 00 00 08"), -0x1003);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);

    stCardCmdParam.nErrorCode = 0x1234;
    m_peer->expect(commandFrame("32 26 00 00 84 00 00 08")).reply("02 03");
    EXPECT_EQ(visit("00 84 00 00 08"), -4);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    m_peer->finish();

    stCardCmdParam.nErrorCode = 0x1234;
    EXPECT_EQ(visit(hex(Bytes(506, 0x11))), -54);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);

    stCardCmdParam.nErrorCode = 0x1234;
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(visit("00 84 00 00 08"), -50);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
}

TEST_F(FollowUp, AFailedFollowUpLeavesOutputsAndRegister)
{
    // The reader answers without the card.
    card("00 A4 04 00", "61 1A");
    card("00 C0 00 00 1A", "", 0x1003);
    EXPECT_EQ(visit("00 A4 04 00"), -0x1003);
    expectUntouched();
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);

    // A damaged reply.
    card("00 B2 01 0C 00", "6C 10");
    m_peer->expect(commandFrame("32 26 00 00 B2 01 0C 10")).reply("02 30 30 30 33 39 30 30 30 30 31 39 30 03");
    EXPECT_EQ(visit("00 B2 01 0C 00"), -4);
    expectUntouched();
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);

    // No reply: the read is cancelled from another thread.
    m_peer->finish();
    std::string sFollowUp = commandFrame("32 26 00 00 C0 00 00 00");
    card("00 A4 04 00", "62 83");
    m_peer->expect(sFollowUp);
    size_t nAll =
        m_peer->received().size() + bytes(commandFrame("32 26 00 00 A4 04 00")).size() + bytes(sFollowUp).size();
    std::atomic<bool> bDone{false};
    std::thread other([&] {
        m_peer->waitForBytes(nAll);
        while (!bDone) {
            COMM_Rdz_Cancel();
            usleep(10000);
        }
    });
    EXPECT_EQ(visit("00 A4 04 00"), -57);
    bDone = true;
    other.join();
    expectUntouched();
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
}

TEST_F(FollowUp, NullIsRefusedWithoutTraffic)
{
    Bytes command = bytes("00 84 00 00 08");
    EXPECT_EQ(ICC_CardCmdVisitCOS(nullptr, 5, m_response.data(), &m_nLen), -2);
    EXPECT_EQ(ICC_CardCmdVisitCOS(command.data(), 5, nullptr, &m_nLen), -2);
    EXPECT_EQ(ICC_CardCmdVisitCOS(command.data(), 5, m_response.data(), nullptr), -2);
    expectUntouched();
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- log and register ---------------------------------------------------------------------------------------------

TEST_F(FollowUp, AnExchangeIsLogged)
{
    card("00 A4 04 00", "61 02");
    card("00 C0 00 00 02", "AA BB 90 00");
    logOn();
    EXPECT_EQ(visit("00 A4 04 00"), 0);
    EXPECT_TRUE(logged({"【ICC_CardCmdVisitCOS】 Start ", "[ICC_CardCmdVisitCOS]  LEN=4   HEX: 00A40400",
                        "接触卡0 C_APDU   LEN=4   HEX: 00A40400", "接触卡0 R_APDU   LEN=2   HEX: 6102",
                        "接触卡0 C_APDU   LEN=5   HEX: 00C0000002", "接触卡0 R_APDU   LEN=4   HEX: AABB9000",
                        "stCardCmdParam.nErrorCode 9000"}));
}

TEST_F(FollowUp, TheRegisterIsSetAndRead)
{
    EXPECT_EQ(ICC_CardCmdSetErrCode(0x9000), 0);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);
    EXPECT_EQ(stCardCmdParam.nErrorCode, 0x9000U);
    EXPECT_EQ(ICC_CardCmdSetErrCode(0xFFFFFFFFU), 0);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xFFFFFFFFU);
}

// ---- an APDU field by field ---------------------------------------------------------------------------------------

TEST_F(FollowUp, TheFieldsOfARecordMakeTheCommand)
{
    struct Row {
        const char *pszWhat;
        uint8_t ucLc;
        uint8_t ucLePresent;
        uint8_t ucLe;
        const char *pszCommand;
    };
    const Row rows[] = {{"no data, no Le", 0, 0, 0x55, "80 CA 9F 17"},
                        {"Le", 0, 1, 0x10, "80 CA 9F 17 10"},
                        {"Le 0", 0, 1, 0, "80 CA 9F 17 00"},
                        {"data", 3, 0, 0x55, "80 CA 9F 17 03 A1 A2 A3"},
                        {"data and Le", 3, 1, 0, "80 CA 9F 17 03 A1 A2 A3 00"},
                        {"only the flag 1 sends Le", 3, 2, 0x55, "80 CA 9F 17 03 A1 A2 A3"},
                        {"flag 255", 0, 255, 0x55, "80 CA 9F 17"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszWhat);
        IccCardCmd record;
        std::memset(&record, 0xC5, sizeof record);
        record.cla = 0x80;
        record.ins = 0xCA;
        record.p1 = 0x9F;
        record.p2 = 0x17;
        record.lc = row.ucLc;
        record.data[0] = 0xA1;
        record.data[1] = 0xA2;
        record.data[2] = 0xA3;
        record.lePresent = row.ucLePresent;
        record.le = row.ucLe;
        card(row.pszCommand, "11 22 33 90 00");
        EXPECT_EQ(ICC_CardCmd(&record), 0);
        EXPECT_EQ(record.responseLen, 5U);
        EXPECT_EQ(hex(record.response, 5), "11 22 33 90 00");
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);
        EXPECT_EQ(record.cla, 0x80);
        EXPECT_EQ(record.lc, row.ucLc);
        EXPECT_EQ(hex(record.data, 4), "A1 A2 A3 C5");
        EXPECT_EQ(record.lePresent, row.ucLePresent);
        EXPECT_EQ(record.le, row.ucLe);
        m_peer->finish();
    }
}

TEST_F(FollowUp, ARecordHoldsUpTo255DataBytes)
{
    IccCardCmd record{};
    record.ins = 0xD6;
    record.lc = 255;
    for (size_t i = 0; i < 255; ++i)
        record.data[i] = static_cast<uint8_t>(i + 1);
    record.lePresent = 1;
    record.le = 0x07;
    card("00 D6 00 00 FF " + hex(record.data, 255) + " 07", "90 00");
    EXPECT_EQ(ICC_CardCmd(&record), 0);
    EXPECT_EQ(record.responseLen, 2U);
}

TEST_F(FollowUp, ARecordFollowsUpToo)
{
    IccCardCmd record{};
    record.ins = 0xA4;
    record.p1 = 4;
    card("00 A4 04 00", "61 02");
    card("00 C0 00 00 02", "AA BB 90 00");
    EXPECT_EQ(ICC_CardCmd(&record), 0);
    EXPECT_EQ(hex(record.response, record.responseLen), "AA BB 90 00");
}

TEST_F(FollowUp, AFailedRecordReturnsTheReadersResult)
{
    IccCardCmd record{};
    record.ins = 0x84;
    card("00 84 00 00", "", 0x1005);
    EXPECT_EQ(ICC_CardCmd(&record), -0x1005);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    EXPECT_EQ(ICC_CardCmd(nullptr), -2);
}

TEST_F(FollowUp, ARecordHasNaturalAlignment)
{
    EXPECT_EQ(offsetof(IccCardCmd, lc), 4U);
    EXPECT_EQ(offsetof(IccCardCmd, data), 5U);
    EXPECT_EQ(offsetof(IccCardCmd, lePresent), 1029U);
    EXPECT_EQ(offsetof(IccCardCmd, response), 1031U);
    EXPECT_EQ(offsetof(IccCardCmd, responseLen), 2056U);
    EXPECT_EQ(sizeof(IccCardCmd), 2060U);
}

} // namespace
