// MS_ReadCard and MS_WriteCard: the mapping of port names, the tracks of each mode, and the codes.

#include "msr_app.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

using namespace qvtest;
using testing::ElementsAre;

namespace {

constexpr size_t nTrackRoom = 256;

class StripeMs : public StripeApp {
  protected:
    void TearDown() override
    {
        StripeApp::TearDown();
        std::filesystem::remove_all(libraryDirectory() + "/log");
    }
    int32_t read(const char *pszPort, int32_t nMode = 2, const char *pszChannel = "", uint32_t nBaud = 9600,
                 uint32_t nTimeOut = 5, int32_t nCharSet = 0)
    {
        m_t2 = m_t3 = TrackBuffer(nTrackRoom);
        return MS_ReadCard(pszPort, pszChannel, nBaud, nTimeOut, nMode, nCharSet, m_t2.data(), m_t3.data());
    }
    static int32_t write(const char *pszPort, int32_t nMode = 2, const char *pszChannel = "", uint32_t nBaud = 9600,
                         uint32_t nTimeOut = 5, int32_t nCharSet = 0)
    {
        std::string s2 = pszText2, s3 = pszText3;
        return MS_WriteCard(pszPort, pszChannel, nBaud, nTimeOut, nMode, nCharSet, s2.data(), s3.data());
    }

    TrackBuffer m_t2{nTrackRoom}, m_t3{nTrackRoom};
};

const int32_t s_otherModes[] = {0, 1, 4, 12, 13, 22, 24, 32, 123, -2, -23, 258, INT32_MIN, INT32_MAX};

// ---- modes ----------------------------------------------------------------------------------------------------------

TEST_F(StripeMs, TheTracksOfTheModeAreReadAndTheOtherIsLeftAlone)
{
    for (int32_t nMode : {2, 3, 23}) {
        SCOPED_TRACE(nMode);
        isRead(nMode);
        EXPECT_EQ(read(path(), nMode), 0);
        if (nMode == 3) {
            EXPECT_TRUE(m_t2.untouched());
        } else {
            EXPECT_EQ(m_t2.text(), pszText2);
        }
        if (nMode == 2) {
            EXPECT_TRUE(m_t3.untouched());
        } else {
            EXPECT_EQ(m_t3.text(), pszText3);
        }
        expectClosed();
    }
}

TEST_F(StripeMs, TheTracksOfTheModeAreWritten)
{
    for (int32_t nMode : {2, 3, 23}) {
        SCOPED_TRACE(nMode);
        isWritten(nMode);
        EXPECT_EQ(write(path(), nMode), 0);
        expectClosed();
    }
}

TEST_F(StripeMs, AnyOtherModeDoesNothingAndGives0)
{
    for (int32_t nMode : s_otherModes) {
        SCOPED_TRACE(nMode);
        for (const char *pszPort : {"COM3", "0", "", "nothing"}) {
            EXPECT_EQ(read(pszPort, nMode), 0);
            EXPECT_TRUE(m_t2.untouched());
            EXPECT_TRUE(m_t3.untouched());
            EXPECT_EQ(write(pszPort, nMode), 0);
        }
        EXPECT_EQ(MS_ReadCard(nullptr, nullptr, 0, 0, nMode, 0, nullptr, nullptr), 0);
        EXPECT_EQ(MS_WriteCard(nullptr, nullptr, 0, 0, nMode, 0, nullptr, nullptr), 0);
    }
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_EQ(g_MsgParam.nWord1, 0U);
}

TEST_F(StripeMs, ATrackOf255CharactersFitsItsBuffer)
{
    const std::string sLong(nTrackRoom - 1, '7');
    isPrepared(5);
    hasRead("1B 5D", sLong);
    isResetTwice();
    EXPECT_EQ(read(path(), 2), 0);
    EXPECT_EQ(m_t2.text(), sLong);

    isPrepared(5);
    hasRead("1B 54 5D", "+" + sLong + "8");
    isResetTwice();
    EXPECT_EQ(read(path(), 3), 0);
    EXPECT_EQ(m_t3.text(), sLong);
}

TEST_F(StripeMs, TheBuffersOfTheModeAreCleared)
{
    s_bUnplugged = true;
    for (int32_t nMode : {2, 3, 23}) {
        SCOPED_TRACE(nMode);
        EXPECT_EQ(read("COM3", nMode), -99);
        EXPECT_EQ(m_t2.cleared(), nMode != 3);
        EXPECT_EQ(m_t2.untouched(), nMode == 3);
        EXPECT_EQ(m_t3.cleared(), nMode != 2);
        EXPECT_EQ(m_t3.untouched(), nMode == 2);
    }
}

TEST_F(StripeMs, AMissingBufferOrTextIsATrackThatIsNotAskedFor)
{
    for (int32_t nMode : {2, 3, 23}) {
        SCOPED_TRACE(nMode);
        EXPECT_EQ(MS_ReadCard("COM3", "", 9600, 5, nMode, 0, nullptr, nullptr), -10);
        EXPECT_EQ(MS_WriteCard("COM3", "", 9600, 5, nMode, 0, nullptr, nullptr), -99);
    }
    EXPECT_THAT(s_opened, ElementsAre());
    TrackBuffer track(nTrackRoom);
    isRead(2);
    EXPECT_EQ(MS_ReadCard(path(), "", 9600, 5, 23, 0, track.data(), nullptr), 0);
    EXPECT_EQ(track.text(), pszText2);
    isRead(3);
    EXPECT_EQ(MS_ReadCard(path(), "", 9600, 5, 23, 0, nullptr, track.data()), 0);
    std::string sText = pszText3;
    isWritten(3);
    EXPECT_EQ(MS_WriteCard(path(), "", 9600, 5, 23, 0, nullptr, sText.data()), 0);
}

// ---- port names -----------------------------------------------------------------------------------------------------

TEST_F(StripeMs, AnUpperCaseComNameIsThePathDevComWithItsNumberAtAnyRate)
{
    const std::pair<const char *, const char *> rows[] = {{"COM3", "/dev/COM3"},   {"COM0", "/dev/COM0"},
                                                          {"COM12", "/dev/COM12"}, {"COM", "/dev/COM0"},
                                                          {"COM7x", "/dev/COM7"},  {"COMx", "/dev/COM0"},
                                                          {"COM007", "/dev/COM7"}, {"COM-1", "/dev/COM-1"},
                                                          {"COM 5", "/dev/COM5"},  {"COM1234567", "/dev/COM1234567"}};
    for (auto [pszName, pszTty] : rows) {
        SCOPED_TRACE(pszName);
        s_opened.clear();
        isRead(2);
        EXPECT_EQ(read(pszName, 2, "", 38400), 0);
        isWritten(2);
        EXPECT_EQ(write(pszName, 2, "", 38400), 0);
        EXPECT_THAT(s_opened, ElementsAre(pszTty, pszTty));
        expectRecord(pszTty, 38400, 5);
    }
}

TEST_F(StripeMs, AnotherNameStaysAsItIs)
{
    for (const char *psz : {"com3", "Com3", "cOM3"}) {
        SCOPED_TRACE(psz);
        s_opened.clear();
        isRead(2);
        EXPECT_EQ(read(psz, 2, "", 115200), 0);
        EXPECT_THAT(s_opened, ElementsAre("/dev/ttyS2"));
        EXPECT_EQ(read(psz, 2, "", 38400), -10);
        EXPECT_EQ(write(psz, 2, "", 38400), -99);
    }
    for (const char *psz : {"nothing", "00", "01", "CO", " COM3", "10011", "aCOM3"}) {
        SCOPED_TRACE(psz);
        EXPECT_EQ(read(psz), -10);
        EXPECT_EQ(write(psz), -99);
    }
    EXPECT_EQ(read(""), -99);
    EXPECT_EQ(write(""), -99);
}

TEST_F(StripeMs, ANameOfAnyLengthArrivesWhole)
{
    for (size_t nLen : {14U, 15U, 16U, 17U, 100U, 256U}) {
        SCOPED_TRACE(nLen);
        const std::string sName = "/dev/stripe" + std::string(nLen - 11, 'x');
        ASSERT_EQ(sName.size(), nLen);
        s_opened.clear();
        isRead(2);
        EXPECT_EQ(read(sName.c_str()), 0);
        isWritten(2);
        EXPECT_EQ(write(sName.c_str()), 0);
        EXPECT_THAT(s_opened, ElementsAre(sName, sName));
    }
}

TEST_F(StripeMs, ANumberWithTooManyDigitsIsNoMoreThanAPortThatWillNotOpen)
{
    s_bUnplugged = true;
    for (const char *psz : {"COM12345678", "COM2147483647", "COM-2147483648"}) {
        SCOPED_TRACE(psz);
        s_opened.clear();
        EXPECT_EQ(read(psz), -99);
        EXPECT_EQ(write(psz), -99);
        const std::string sTty = "/dev/" + std::string(psz);
        EXPECT_THAT(s_opened, ElementsAre(sTty, sTty));
    }
}

TEST_F(StripeMs, ANameLongerThan15CharactersIsNotMapped)
{
    s_bUnplugged = true;
    EXPECT_EQ(read("COM000000000003"), -99);
    EXPECT_THAT(s_opened, ElementsAre("/dev/COM3"));
    s_opened.clear();
    EXPECT_EQ(read("COM0000000000003"), -99);
    EXPECT_EQ(write("COM0000000000003"), -99);
    EXPECT_THAT(s_opened, ElementsAre("/dev/ttyS2", "/dev/ttyS2"));
    EXPECT_EQ(read("COM0000000000003", 2, "", 38400), -10);
}

TEST_F(StripeMs, TheNames0And1001AreUsbOnes)
{
    for (const char *psz : {"0", "1001", "HID", "usb"}) {
        SCOPED_TRACE(psz);
        g_MsgParam = {};
        EXPECT_EQ(read(psz), -99);
        EXPECT_EQ(g_MsgParam.nType, 7U);
        g_MsgParam = {};
        EXPECT_EQ(write(psz), -99);
        EXPECT_EQ(g_MsgParam.nType, 7U);
    }
}

TEST_F(StripeMs, WithoutAPortNameNothingIsOpened)
{
    EXPECT_EQ(read(nullptr, 2), -10);
    EXPECT_EQ(write(nullptr, 2), -99);
    EXPECT_THAT(s_opened, ElementsAre());
    EXPECT_EQ(g_AuxFd, -2);
}

// ---- what is handed on, and the codes -------------------------------------------------------------------------------

TEST_F(StripeMs, ChannelRateCharacterSetAndTimeOutAreHandedOn)
{
    takes("1B 25 43");
    isRead(23, 120, "1B 4F");
    EXPECT_EQ(read("COM3", 23, "C", 19200, 120, 2), 0);
    expectRecord("/dev/COM3", 19200, 120);
    takes("1B 25 41");
    isWritten(23, 1, "1B 41");
    EXPECT_EQ(write("COM4", 23, "A", 115200, 1, 3), 0);
    expectRecord("/dev/COM4", 115200, 1);
    isRead(3, 7, "1B 27");
    EXPECT_EQ(read("COM3", 3, nullptr, 9600, 7, 1), 0);
    isWritten(3, 7, "1B 3D");
    EXPECT_EQ(write("COM3", 3, nullptr, 9600, 7, 9), 0);
}

TEST_F(StripeMs, TheEnginesCodesBecomeStandardCodes)
{
    for (uint32_t nTimeOut : {0U, 121U}) {
        EXPECT_EQ(read(path(), 2, "", 9600, nTimeOut), -10);
        EXPECT_EQ(write(path(), 2, "", 9600, nTimeOut), -10);
    }
    isPrepared(5);
    says("1B 5D", "1B 74 31 3F 1C");
    isResetTwice();
    EXPECT_EQ(read(path(), 2), -6);
    isPrepared(5);
    says("1B 5D", "1B 73 31 3F 1C");
    says("1B 6A", "71");
    isResetTwice();
    EXPECT_EQ(read(path(), 2), -99);
    isPrepared(5);
    says("1B 74" + textHex(pszText2) + "1D 1B 5C 1B 6A", "71");
    isReset();
    EXPECT_EQ(write(path(), 2), -99);
    s_bUnplugged = true;
    EXPECT_EQ(read("COM3", 2), -99);
    EXPECT_EQ(write("COM3", 2), -99);
}

TEST_F(StripeMs, AWriteThatCannotBeSentGivesMinus3)
{
    // Format and read time go out, the write does not.
    isPrepared(5);
    s_errors = {0, 0, 0, EIO, EIO, EIO, EIO};
    EXPECT_EQ(write(path(), 2), -3);
    expectClosed();
}

TEST_F(StripeMs, ATextIsShortenedInPlace)
{
    std::string s2 = "22=2A", s3 = "A";
    isWritten(2);
    EXPECT_EQ(MS_WriteCard(path(), "", 9600, 5, 2, 0, s2.data(), s3.data()), 0);
    EXPECT_STREQ(s2.c_str(), "22=2");
    EXPECT_STREQ(s3.c_str(), "A"); // not of this mode
    EXPECT_EQ(MS_WriteCard(path(), "", 9600, 5, 23, 0, s2.data(), s3.data()), -10);
}

} // namespace
