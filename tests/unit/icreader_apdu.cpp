// One APDU at the reader: the wire, the limits, the failures, the titles of its log.

#include "fake_clock.h"
#include "open_reader.h"

#include "qvreader/icreader.h"

#include <cstring>
#include <functional>
#include <optional>

using namespace qvtest;

namespace {

class Apdu : public OpenReader {
  protected:
    void SetUp() override
    {
        OpenReader::SetUp();
        stCardReader.nCardSlot = 0;
        m_rapdu.assign(1100, 0xC5);
        m_nLen = 0xC5C5;
    }
    int32_t inner(int32_t nSlot, const Bytes &capdu)
    {
        return COMM_Icc_RDZAPDU(nSlot, capdu.data(), static_cast<uint32_t>(capdu.size()), m_rapdu.data(), &m_nLen);
    }
    int32_t outer(int32_t nSlot, const Bytes &capdu)
    {
        return COMM_Icc_CardReaderApdu(nSlot, capdu.data(), static_cast<uint32_t>(capdu.size()), m_rapdu.data(),
                                       &m_nLen);
    }
    std::string rapdu() const { return hex(std::span(m_rapdu).first(m_nLen)); }

    Bytes m_rapdu;
    uint32_t m_nLen = 0;
};

TEST(ApduAtLoad, NoSlotIsChosen)
{
    EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), 0);
}

TEST_F(Apdu, TheCommandStandsBehindTheHeadOfItsSlot)
{
    m_peer->expect("02 30 30 30 38 33 32 32 36 30 30 30 30 38 34 30 30 30 30 30 38 39 38 03")
        .reply("02 30 30 30 34 30 30 30 30 39 30 30 30 39 30 03");
    EXPECT_EQ(inner(0, bytes("00 84 00 00 08")), 0);
    EXPECT_EQ(rapdu(), "90 00");
    EXPECT_EQ(m_rapdu[2], 0xC5);

    answer("32 26 10 00 A4 04 00", 0x9000, "6A 82");
    EXPECT_EQ(inner(16, bytes("00 A4 04 00")), 0);
    EXPECT_EQ(rapdu(), "6A 82");
    answer("32 26 FF 00 A4 04 00", 0, "01 02 03 90 00");
    EXPECT_EQ(outer(255, bytes("00 A4 04 00")), 0);
    EXPECT_EQ(rapdu(), "01 02 03 90 00");
    // The slot of the call counts, not the current one, and that stays.
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(Apdu, AnInvalidSlotHasATwoByteHead)
{
    answer("32 26 00 84 00 00 08", 0x1111, "90 00");
    EXPECT_EQ(inner(32, bytes("00 84 00 00 08")), 0);
    answer("32 26 00 84 00 00 08", 0x1111, "90 00");
    EXPECT_EQ(outer(-1, bytes("00 84 00 00 08")), 0);
}

TEST_F(Apdu, ThereIsNoFollowUpHere)
{
    answer("32 26 00 00 A4 04 00", 0x9000, "61 1A");
    EXPECT_EQ(outer(0, bytes("00 A4 04 00")), 0);
    EXPECT_EQ(rapdu(), "61 1A");
    EXPECT_EQ(m_peer->wire(), commandFrame("32 26 00 00 A4 04 00"));
}

TEST_F(Apdu, AnEmptyReplyIsZeroBelowAndMinusTheStatusWordAbove)
{
    answer("32 26 00 00 84", 0x1003);
    EXPECT_EQ(inner(0, bytes("00 84")), 0);
    EXPECT_EQ(m_nLen, 0U);
    m_nLen = 5;
    answer("32 26 00 00 84", 0x1003);
    EXPECT_EQ(outer(0, bytes("00 84")), -0x1003);
    EXPECT_EQ(m_nLen, 0U);
    answer("32 26 00 00 84", 0);
    EXPECT_EQ(outer(0, bytes("00 84")), 0);
    EXPECT_EQ(m_rapdu, Bytes(1100, 0xC5));
}

TEST_F(Apdu, ACommandOf505BytesIsTheLongest)
{
    Bytes capdu(505);
    for (size_t i = 0; i < capdu.size(); ++i)
        capdu[i] = static_cast<uint8_t>(i * 3);
    answer("32 26 01 " + hex(capdu), 0x9000, "90 00");
    EXPECT_EQ(inner(1, capdu), 0);
    EXPECT_EQ(rapdu(), "90 00");
    m_peer->finish();
    std::string sWire = m_peer->wire();
    m_nLen = 0xC5C5;
    for (size_t n : {506U, 507U, 1021U, 1022U, 1024U, 1025U, 4096U, 70000U}) {
        SCOPED_TRACE(n);
        capdu.resize(n, 0x55);
        EXPECT_EQ(inner(1, capdu), -54);
        EXPECT_EQ(outer(1, capdu), -54);
    }
    EXPECT_EQ(COMM_Icc_RDZAPDU(1, capdu.data(), 0xFFFFFFFFU, m_rapdu.data(), &m_nLen), -54);
    EXPECT_EQ(COMM_Icc_RDZAPDU(1, capdu.data(), 0xFFFFFFFDU, m_rapdu.data(), &m_nLen), -54);
    EXPECT_EQ(COMM_Icc_CardReaderApdu(1, capdu.data(), 0x80000000U, m_rapdu.data(), &m_nLen), -54);
    EXPECT_EQ(m_peer->wire(), sWire);
}

TEST_F(Apdu, TheLongestReplyIsHandedOut)
{
    Bytes body(507);
    for (size_t i = 0; i < body.size(); ++i)
        body[i] = static_cast<uint8_t>(i * 5);
    answer("32 26 00 00 B0 00 00 00", 0x9000, hex(body));
    EXPECT_EQ(outer(0, bytes("00 B0 00 00 00")), 0);
    EXPECT_EQ(m_nLen, 507U);
    EXPECT_EQ(rapdu(), hex(body));
    EXPECT_EQ(m_rapdu[507], 0xC5);
    // One byte more is no valid reply any more.
    body.push_back(0);
    answer("32 26 00 00 B0 00 00 00", 0x9000, hex(body));
    EXPECT_EQ(outer(0, bytes("00 B0 00 00 00")), -4);
}

TEST_F(Apdu, FailuresArePassedOn)
{
    m_peer->expect(commandFrame("32 26 00 00 84")).reply("02 30 30 30 33 39 30 30 30 30 31 39 30 03");
    EXPECT_EQ(outer(0, bytes("00 84")), -4);
    m_peer->expect(commandFrame("32 26 00 00 84"));
    {
        FakeClock clock(1000);
        clock.script({1000, 1000, 1061});
        EXPECT_EQ(inner(0, bytes("00 84")), -56);
    }
    m_peer->finish();
    int nFd = g_AuxFd;
    g_AuxFd = 99999;
    EXPECT_EQ(inner(0, bytes("00 84")), -54);
    EXPECT_EQ(outer(0, bytes("00 84")), -54);
    g_AuxFd = nFd;
    EXPECT_EQ(m_rapdu, Bytes(1100, 0xC5));
}

TEST_F(Apdu, NullIsRefused)
{
    Bytes capdu = bytes("00 84");
    ICC_CardCmdSetErrCode(0x1234);
    for (auto *pfn : {COMM_Icc_RDZAPDU, COMM_Icc_CardReaderApdu}) {
        EXPECT_EQ(pfn(0, nullptr, 2, m_rapdu.data(), &m_nLen), -2);
        EXPECT_EQ(pfn(0, capdu.data(), 2, nullptr, &m_nLen), -2);
        EXPECT_EQ(pfn(0, capdu.data(), 2, m_rapdu.data(), nullptr), -2);
    }
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
    EXPECT_EQ(m_nLen, 0xC5C5U);
    EXPECT_EQ(m_rapdu, Bytes(1100, 0xC5));
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(Apdu, AnotherReaderModeAnswersMinus50WithoutTraffic)
{
    stCardReader.nReaderMode = 3;
    // The status word of an earlier reply is not this command's: hosts take it for the failure's code.
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(inner(0, bytes("00 84")), -50);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    stRDZ73xx.gStatus = 0x1234;
    EXPECT_EQ(outer(0, bytes("00 84")), -50);
    EXPECT_EQ(stRDZ73xx.gStatus, 0U);
    EXPECT_EQ(m_nLen, 0xC5C5U);
    EXPECT_EQ(m_peer->wire(), "");
}

// ---- titles -------------------------------------------------------------------------------------------------------

TEST_F(Apdu, ATitleNamesTheCurrentSlotAndTheLabel)
{
    const std::pair<int32_t, const char *> rows[] = {
        {255, "非接卡"},  {0, "接触卡0"},  {1, "接触卡1"},  {9, "接触卡9"},       {10, "接触卡10"},
        {15, "接触卡15"}, {16, "PSAM卡0"}, {17, "PSAM卡1"}, {31, "PSAM卡15"},     {32, "未知卡"},
        {254, "未知卡"},  {256, "未知卡"}, {-1, "未知卡"},  {INT32_MIN, "未知卡"}};
    for (auto [nSlot, pszWord] : rows) {
        SCOPED_TRACE(nSlot);
        stCardReader.nCardSlot = nSlot;
        EXPECT_EQ(std::string(ICC_CardCmdGetApduCardType("C_APDU")), std::string(pszWord) + " C_APDU ");
        EXPECT_EQ(std::string(ICC_CardCmdGetApduCardType("")), std::string(pszWord) + "  ");
        EXPECT_EQ(std::string(ICC_CardCmdGetApduCardType(nullptr)), pszWord);
    }
}

TEST_F(Apdu, ALongTitleIsCutAt63Bytes)
{
    stCardReader.nCardSlot = 16;
    std::string sWhole = "PSAM卡0 " + std::string(100, 'L') + " ";
    char *pszFirst = ICC_CardCmdGetApduCardType(std::string(100, 'L').c_str());
    std::string sTitle = pszFirst;
    EXPECT_EQ(sTitle, sWhole.substr(0, 63));
    // One buffer for all calls.
    EXPECT_EQ(ICC_CardCmdGetApduCardType("x"), pszFirst);
    EXPECT_STREQ(pszFirst, "PSAM卡0 x ");
}

TEST_F(Apdu, AnExchangeIsLoggedUnderTheTitleOfTheCurrentSlot)
{
    Dev_Rdz_Ic_SetSlot(255);
    answer("32 26 00 00 84 00 00 02", 0x9000, "11 22 90 00");
    logOn();
    EXPECT_EQ(outer(0, bytes("00 84 00 00 02")), 0);
    EXPECT_TRUE(logged({"非接卡 C_APDU   LEN=5   HEX: 0084000002", "[ COMM_Rdz_SendAndReciveData ] Start ",
                        "[COMM_Icc_RDZAPDU] End  LEN=4   HEX: 11229000", "非接卡 R_APDU   LEN=4   HEX: 11229000"}));
    logOff();

    Dev_Rdz_Ic_SetSlot(17);
    answer("32 26 11 00 84 00 00 02", 0x9000, "6D 00");
    logOn();
    EXPECT_EQ(outer(17, bytes("00 84 00 00 02")), 0);
    EXPECT_TRUE(logged({"PSAM卡1 C_APDU   LEN=5   HEX: 0084000002", "PSAM卡1 R_APDU   LEN=2   HEX: 6D00"}));
}

TEST_F(Apdu, AFailureIsLoggedInDecimalAndHexadecimal)
{
    m_peer->expect(commandFrame("32 26 00 00 84")).reply("02 03");
    logOn();
    EXPECT_EQ(outer(0, bytes("00 84")), -4);
    std::string sLog = rawLog();
    EXPECT_NE(sLog.find("-4"), std::string::npos);
    EXPECT_NE(sLog.find("fffffffc"), std::string::npos) << sLog;
    EXPECT_EQ(sLog.find("R_APDU"), std::string::npos);
}

} // namespace
