// The JSON call's conversation with the reader and its answer.
//
// Every /dev/COM name leads to the pseudo-terminal of the test.

#include "devcall_record.h"
#include "failing_reads.h"
#include "fake_clock.h"

#include <algorithm>
#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

using namespace qvtest;

namespace {

size_t s_nWritable = SIZE_MAX; // bytes that the port still takes
int s_nErrorWhenFull = EIO;    // errno of a write behind them; 0: it writes nothing

} // namespace

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    if (nFd != g_AuxFd || s_nWritable == SIZE_MAX)
        return syscall(SYS_write, nFd, pData, nLen);
    if (s_nWritable == 0) {
        errno = s_nErrorWhenFull;
        return s_nErrorWhenFull == 0 ? 0 : -1;
    }
    ssize_t n = syscall(SYS_write, nFd, pData, std::min(nLen, s_nWritable));
    if (n > 0)
        s_nWritable -= static_cast<size_t>(n);
    return n;
}

namespace {

// The quote in front of ErrorMessage is E2 80 9C.
constexpr const char *pszFailure = "{\"ErrorCode\":\"-1\", \"\xE2\x80\x9C"
                                   "ErrorMessage\":\"GetDeviceInfo Failed\"}";

class DeviceAnswer : public AnsweredCall, public FailingReads {
  protected:
    void SetUp() override
    {
        AnsweredCall::SetUp();
        s_nWritable = SIZE_MAX;
        s_nErrorWhenFull = EIO;
    }
    void TearDown() override
    {
        s_nWritable = SIZE_MAX;
        s_bReadsFail = false;
        AnsweredCall::TearDown();
    }
};

// ---- the answer ---------------------------------------------------------------------------------------------------

TEST_F(DeviceAnswer, TheWholeAnswer)
{
    EXPECT_EQ(answerTo(Record{}),
              R"({"ErrorCode":"0", "ErrorMessage":"success", "DeviceBrand":"QORV", "DllVersion":"1.0.0.4",)"
              R"("DeviceVersion":"1.02.03.04","ProductionDate":"2024.3.15","DeviceSN":"SN00012345",)"
              R"("DeviceModel":"QV-100"})");
    EXPECT_EQ(s_opened, std::vector<std::string>{"/dev/COM9701"});
    EXPECT_EQ(m_peer->wire(), pszQuestion);
    EXPECT_EQ(g_sParam.stParam.nBaud, 9600U);
}

TEST_F(DeviceAnswer, TheDateIsReadFromItsEnd)
{
    const std::pair<const char *, const char *> rows[] = {{"15 03 24 20", "2024.3.15"}, {"31 12 99 19", "1999.12.31"},
                                                          {"01 01 00 20", "2000.1.1"},  {"09 10 05 20", "2005.10.9"},
                                                          {"15 03 24 09", " 924.3.15"}, {"15 03 24 00", " 024.3.15"},
                                                          {"00 00 00 00", " 000.0.0"},  {"FF FF FF FF", "ffff.ff.ff"},
                                                          {"15 03 24 10", "1024.3.15"}, {"0A 0B 0C 0D", " d0c.b.a"}};
    for (auto [pszBytes, pszText] : rows) {
        Record record;
        record.sDate = pszBytes;
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", pszText, "SN00012345", "QV-100"));
    }
}

TEST_F(DeviceAnswer, TheVersionIsReadFromItsEnd)
{
    const std::pair<const char *, const char *> rows[] = {{"04 03 02 01", "1.02.03.04"},
                                                          {"00 00 00 00", "0.00.00.00"},
                                                          {"FF AB CD EF", "ef.cd.ab.ff"},
                                                          {"10 20 30 0A", "a.30.20.10"}};
    for (auto [pszBytes, pszText] : rows) {
        Record record;
        record.sVersion = pszBytes;
        EXPECT_EQ(answerTo(record), answerText(pszText, "2024.3.15", "SN00012345", "QV-100"));
    }
}

TEST_F(DeviceAnswer, TextsLoseTheirOuterBlanks)
{
    const std::pair<std::string, std::string> rows[] = {{padded("SN1"), "SN1"},
                                                        {padded("  SN 1 2"), "SN 1 2"},
                                                        {padded("\t\r\n SN\v1 \f"), "SN\v1"},
                                                        {padded(""), ""},
                                                        {std::string(32, '\t'), ""},
                                                        {std::string(32, 'S'), std::string(32, 'S')},
                                                        {std::string(31, ' ') + "S", "S"},
                                                        {std::string("SN1") + std::string(29, '\0'), "SN1"},
                                                        {std::string(32, '\0'), ""},
                                                        {padded("a\"b\\c"), "a\"b\\c"},
                                                        {padded("%s%n%d"), "%s%n%d"},
                                                        {padded("\xE4\xB8\xAD"), "\xE4\xB8\xAD"}};
    for (const auto &[sBytes, sText] : rows) {
        SCOPED_TRACE(hex(textBytes(sBytes)));
        Record record;
        record.sSerial = sBytes;
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", sText, "QV-100"));
        record = {};
        record.sModel = sBytes;
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", sText));
    }
}

TEST_F(DeviceAnswer, TheLongestTextsStayApart)
{
    Record record;
    record.sModel = std::string(32, 'M');
    record.sSerial = std::string(32, 'S');
    record.sDate = "41 42 43 44";
    EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "4443.42.41", std::string(32, 'S'), std::string(32, 'M')));
}

TEST_F(DeviceAnswer, OneModelHasAnotherName)
{
    const std::pair<std::string, std::string> rows[] = {{padded("VXTA-1"), "RDZ-7350"},
                                                        {padded("VXTA-1x"), "VXTA-1x"},
                                                        {padded("VXTA-10"), "VXTA-10"},
                                                        {padded("VXTA-"), "VXTA-"},
                                                        {padded(" VXTA-1"), "VXTA-1"},
                                                        {padded("vxta-1"), "vxta-1"},
                                                        {padded("VXTA-1", 31) + "x", padded("VXTA-1", 31) + "x"},
                                                        {padded("VXTA-1", 31) + '\t', "VXTA-1"},
                                                        {"VXTA-1" + std::string(26, '\0'), "VXTA-1"},
                                                        {padded("VXTA-1", 31) + '\0', "VXTA-1"},
                                                        {padded("RDZ-7350"), "RDZ-7350"}};
    for (const auto &[sBytes, sName] : rows) {
        SCOPED_TRACE(hex(textBytes(sBytes)));
        Record record;
        record.sModel = sBytes;
        EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", sName));
    }
}

// ---- the reply ----------------------------------------------------------------------------------------------------

TEST_F(DeviceAnswer, StatusAndCheckOfTheReplyAreIgnored)
{
    const std::string sExpected = answerText("1.02.03.04", "2024.3.15", "SN00012345", "QV-100");
    for (uint32_t nStatus : {0x9000U, 0x1005U, 0xFFFFU}) {
        stRDZ73xx.gStatus = 0x1234;
        EXPECT_EQ(answerTo(replyFrame(nStatus, Record{}.body(), 0x01, 0x04)), sExpected);
        EXPECT_EQ(stRDZ73xx.gStatus, 0x1234U); // the reply is taken apart here
    }
    Bytes frame = bytes(Record{}.frame());
    frame[frame.size() - 2] ^= 0x0F;
    frame[frame.size() - 3] ^= 0x0F;
    EXPECT_EQ(answerTo(hex(frame)), sExpected);
    // Head, length and status characters are stepped over whatever they are.
    std::fill_n(frame.begin(), 9, uint8_t{0x7A});
    EXPECT_EQ(answerTo(hex(frame)), sExpected);
    // Only the low half of a character counts.
    frame = bytes(Record{}.frame());
    for (size_t i = 9; i + 3 < frame.size(); ++i)
        if (i % 2 == 0)
            frame[i] = static_cast<uint8_t>(frame[i] ^ 0x50);
    EXPECT_EQ(answerTo(hex(frame)), sExpected);
}

TEST_F(DeviceAnswer, TheReplyEndsAtItsOwnEndByteOnly)
{
    // The head is followed by the end byte of other frames, then the line is silent for a while.
    Bytes frame = bytes(Record{}.frame());
    frame[4] = 0x03;
    const auto first = std::span(frame).first(5);
    m_peer->expect(pszQuestion)
        .reply(hex(first))
        .reply(hex(std::span(frame).subspan(5)), std::chrono::milliseconds(400));
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(text(), answerText("1.02.03.04", "2024.3.15", "SN00012345", "QV-100"));
}

TEST_F(DeviceAnswer, MoreThanTheRecordIsDropped)
{
    Record record;
    record.sMac += " " + hex(Bytes(300, 0x58));
    EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", "QV-100"));
}

TEST_F(DeviceAnswer, AReplyThatNeverEndsIsCutAtTheBuffer)
{
    Bytes endless = bytes(Record{}.frame());
    endless.back() = 0x30; // the end byte
    endless.resize(1024, 0x30);
    EXPECT_EQ(answerTo(hex(endless)), answerText("1.02.03.04", "2024.3.15", "SN00012345", "QV-100"));
}

TEST_F(DeviceAnswer, TheReadHasRoomFor1024BytesAndIsNoExchange)
{
    freshLog();
    answerTo(Record{});
    takeLog();
    EXPECT_NE(rawLog().find(" nMaxLen = 1024 \r\n"), std::string::npos) << rawLog();
    EXPECT_EQ(rawLog().find("nMaxReciveBufLen"), std::string::npos);
}

TEST_F(DeviceAnswer, AReplyTooShortForARecordIsARecordOfZeros)
{
    const std::string sZeros = answerText("0.00.00.00", " 000.0.0", "", "");
    EXPECT_EQ(answerTo("04"), sZeros);
    EXPECT_EQ(answerTo("01 04"), sZeros);
    EXPECT_EQ(answerTo("01 30 30 30 32 30 30 30 30 30 04"), sZeros); // 11 bytes
    EXPECT_EQ(answerTo(replyFrame(0, "", 0x01, 0x04)), sZeros);      // 12 bytes, no body
    EXPECT_EQ(answerTo(replyFrame(0x1005, "", 0x01, 0x04)), sZeros);
    EXPECT_EQ(answerTo("01 30 30 30 32 30 30 30 30 35 30 30 04"), sZeros); // half a byte
    // An odd number of characters is not decoded at all.
    Bytes frame = bytes(Record{}.frame());
    frame.erase(frame.begin() + 9);
    EXPECT_EQ(answerTo(hex(frame)), sZeros);
}

TEST_F(DeviceAnswer, OfARecordThatIsCutShortTheRestIsZero)
{
    struct Row {
        size_t nLen;
        const char *pszModel;
        const char *pszSerial;
        const char *pszDate;
        const char *pszVersion;
    };
    const Row rows[] = {{1, "Q", "", " 000.0.0", "0.00.00.00"},
                        {31, "QV-100", "", " 000.0.0", "0.00.00.00"},
                        {32, "QV-100", "", " 000.0.0", "0.00.00.00"},
                        {33, "QV-100", "S", " 000.0.0", "0.00.00.00"},
                        {64, "QV-100", "SN00012345", " 000.0.0", "0.00.00.00"},
                        {66, "QV-100", "SN00012345", " 000.3.15", "0.00.00.00"},
                        {68, "QV-100", "SN00012345", "2024.3.15", "0.00.00.00"},
                        {70, "QV-100", "SN00012345", "2024.3.15", "0.00.03.04"},
                        {71, "QV-100", "SN00012345", "2024.3.15", "0.02.03.04"},
                        {72, "QV-100", "SN00012345", "2024.3.15", "1.02.03.04"},
                        {79, "QV-100", "SN00012345", "2024.3.15", "1.02.03.04"},
                        {80, "QV-100", "SN00012345", "2024.3.15", "1.02.03.04"},
                        {85, "QV-100", "SN00012345", "2024.3.15", "1.02.03.04"}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.nLen);
        EXPECT_EQ(answerTo(Record{}.cutFrame(row.nLen)),
                  answerText(row.pszVersion, row.pszDate, row.pszSerial, row.pszModel));
    }
}

TEST_F(DeviceAnswer, OnlyAWholeModelHasAnotherName)
{
    Record record;
    record.sModel = padded("VXTA-1");
    const std::string sZeros = " 000.0.0";
    EXPECT_EQ(answerTo(record.cutFrame(6)), answerText("0.00.00.00", sZeros, "", "VXTA-1"));
    EXPECT_EQ(answerTo(record.cutFrame(31)), answerText("0.00.00.00", sZeros, "", "VXTA-1"));
    EXPECT_EQ(answerTo(record.cutFrame(32)), answerText("0.00.00.00", sZeros, "", "RDZ-7350"));
}

// ---- no reply -----------------------------------------------------------------------------------------------------

TEST_F(DeviceAnswer, SilenceIsAnErrorObject)
{
    FakeClock clock(1000);
    // One second a look: the reader has the 3 seconds of the open.
    clock.script({1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008, 1009, 1010, 1011, 1012, 1013, 1014, 1015});
    m_peer->expect(pszQuestion);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(text(), pszFailure);
    EXPECT_EQ(m_nOut, 60U);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, &DefaultEndCondition);
    EXPECT_LT(stBackUpParam.nTimeOut, 0);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(DeviceAnswer, TheReaderHasTheThreeSecondsOfTheOpen)
{
    FakeClock clock(1000);
    // Twice when the read starts, once a look, and once at its end: 3 seconds are in time, 4 are not.
    clock.script({1000, 1000, 1003, 1004, 1010});
    m_peer->expect(pszQuestion);
    EXPECT_EQ(callWith(R"({"FunctionCode":"0001","RequestPort":"9701","RequestTimeOut":"60"})", ""), -1);
    EXPECT_EQ(text(), pszFailure);
    EXPECT_EQ(stBackUpParam.nTimeOut, 3 - 10);
    EXPECT_EQ(FakeClock::timeCalls(), 5);
    m_peer->finish();
    clock.script({1000, 1000, 1003, 1003, 1004});
    m_peer->expect(pszQuestion);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(stBackUpParam.nTimeOut, -1);
    g_nPowerOnTimeout = 0;
}

TEST_F(DeviceAnswer, AnUnfinishedReplyIsAnErrorObject)
{
    FakeClock clock(1000);
    m_peer->expect(pszQuestion).reply("01 30 30 03");
    clock.script({1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008, 1009, 1010, 1011, 1012, 1013, 1014, 1015});
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(text(), pszFailure);
}

TEST_F(DeviceAnswer, AFailedReadIsAnErrorObject)
{
    m_peer->expect(pszQuestion);
    s_bReadsFail = true;
    freshLog();
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(text(), pszFailure);
    EXPECT_EQ(stBackUpParam.pfnEndCondition, &DefaultEndCondition);
    takeLog();
    EXPECT_TRUE(logged({"DEV_CommCall Start", "outJson = " + std::string(pszFailure) + ", *outlen = 60, nRet = -1"}));
    EXPECT_NE(rawLog().find("INFO:    CommDev:  GetDeviceInfo Failed, nRetVal = -55\n\r\n"), std::string::npos);
}

TEST_F(DeviceAnswer, WhereNothingCanBeWrittenNothingIsSaid)
{
    for (int nError : {EIO, ENXIO, 0}) {
        SCOPED_TRACE(nError);
        s_nWritable = 0;
        s_nErrorWhenFull = nError;
        EXPECT_EQ(call(), 0);
        EXPECT_TRUE(untouched());
        EXPECT_EQ(g_AuxFd, -2);
        // That of the open.
        EXPECT_EQ(stBackUpParam.pfnEndCondition, &IcEndCondition);
    }
    EXPECT_EQ(s_opened.size(), 3U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(DeviceAnswer, APartOfTheQuestionIsAQuestion)
{
    s_nWritable = 5;
    m_peer->expect("01 30 30 30 32").reply(Record{}.frame());
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(text(), answerText("1.02.03.04", "2024.3.15", "SN00012345", "QV-100"));
}

TEST_F(DeviceAnswer, ASecondCallStartsAfresh)
{
    Record record;
    record.sModel = padded("VXTA-1");
    EXPECT_EQ(answerTo(record), answerText("1.02.03.04", "2024.3.15", "SN00012345", "RDZ-7350"));
    EXPECT_EQ(answerTo("04"), answerText("0.00.00.00", " 000.0.0", "", ""));
    s_nWritable = 0;
    EXPECT_EQ(call(), 0);
    EXPECT_TRUE(untouched());
}

} // namespace
