// Detections that learn nothing: a read that fails, silence, a reply that is damaged or empty.

#include "failing_reads.h"
#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <functional>

using namespace qvtest;

namespace {

constexpr uint32_t nMark = 777;

std::string s_track2, s_track3;
uint32_t s_nKind;

struct Detection {
    const char *pszName;
    const char *pszCommand;
    std::string sFailureLine; // of the log, in front of the code; empty: there is none
    std::function<int32_t()> call;
};

const Detection s_detections[] = {
    {"which card", "32 30 00 05", "", [] { return ICC_RDZ73xxCHECKCARD(5); }},
    {"any kind of card", "32 30 00 03", "READ DATA LEN ",
     [] { return COMM_Icc_detectMulCard(5, s_track2.data(), s_track3.data(), &s_nKind); }},
    {"any kind of card, by request", "32 32 00 03 01", "READ DATA LEN ",
     [] { return COMM_Icc_detectMulComCard(1, 5, s_track2.data(), s_track3.data(), &s_nKind); }},
    {"slot", "32 21 01",
     "RdzCheckCardIsInSlot SendAndReciveData nRecvLen=", [] { return COMM_Icc_RdzCheckCardIsInSlot(1); }},
    {"antenna", "32 24 00 00",
     "RdzCheckCardIsInSlot SendAndReciveData nRecvLen=", [] { return COMM_Icc_RdzCheckCardIsInSlot(255); }},
};

class DetectionFailures : public OpenReader, public FailingReads {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 7;
    }
    void TearDown() override
    {
        s_bReadsFail = false;
        EXPECT_EQ(stCardReader.nCardSlot, 7);
        OpenReader::TearDown();
    }
    // One call that fails with this code; it writes nothing to its outputs and tells the log.
    static void expectFailure(const Detection &row, int32_t nCode)
    {
        s_track2.assign(512, '#');
        s_track3.assign(512, '#');
        s_nKind = nMark;
        logOn();
        EXPECT_EQ(row.call(), nCode);
        if (!row.sFailureLine.empty()) {
            EXPECT_NE(logLine(row.sFailureLine + std::to_string(nCode)), "") << rawLog();
        }
        logOff();
        EXPECT_EQ(s_nKind, nMark);
        EXPECT_EQ(s_track2, std::string(512, '#'));
        EXPECT_EQ(s_track3, std::string(512, '#'));
    }
};

TEST_F(DetectionFailures, AFailedReadIsPassedOn)
{
    s_bReadsFail = true;
    for (const Detection &row : s_detections) {
        SCOPED_TRACE(row.pszName);
        m_peer->expect(commandFrame(row.pszCommand));
        expectFailure(row, -55);
        m_peer->finish();
    }
}

TEST_F(DetectionFailures, SilenceIsPassedOn)
{
    for (const Detection &row : s_detections) {
        SCOPED_TRACE(row.pszName);
        COMM_Rdz_ChageReadTimeOut(60);
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        m_peer->expect(commandFrame(row.pszCommand));
        expectFailure(row, -56);
        m_peer->finish();
    }
}

TEST_F(DetectionFailures, ADamagedReplyIsPassedOn)
{
    for (const Detection &row : s_detections) {
        SCOPED_TRACE(row.pszName);
        m_peer->expect(commandFrame(row.pszCommand)).reply("02 03");
        expectFailure(row, -4);
        m_peer->finish();
    }
}

TEST_F(DetectionFailures, AReplyWithoutBodyIsLoggedAsAnUnknownKind)
{
    for (uint32_t nStatus : {0U, 0x9000U, 0x1005U}) {
        SCOPED_TRACE(nStatus);
        answer("32 30 00 05", nStatus);
        logOn();
        EXPECT_EQ(ICC_RDZ73xxCHECKCARD(5), -1);
        EXPECT_NE(rawLog().find("INFO:    Comm:    未知异常\n"), std::string::npos) << rawLog();
        logOff();
    }
}

TEST_F(DetectionFailures, AFailedExchangeLogsNoKind)
{
    m_peer->expect(commandFrame("32 30 00 05")).reply("02 03");
    logOn();
    EXPECT_EQ(ICC_RDZ73xxCHECKCARD(5), -4);
    EXPECT_TRUE(logged({"[ICC_RDZ73xxCHECKCARD] Start!\n", "[ICC_RDZ73xxCHECKCARD] End!\n"}));
    for (const char *pszText : {"接触IC卡", "非接IC卡", "磁条卡", "身份证", "未知异常"})
        EXPECT_EQ(logLine(pszText), "");
}

} // namespace
