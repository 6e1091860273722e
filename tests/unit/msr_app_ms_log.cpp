// What MS_ReadCard and MS_WriteCard leave in the log of the day.

#include "msr_app.h"

#include "device_log.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

std::string logFolder()
{
    return libraryDirectory() + "/log";
}

class StripeMsLog : public StripeApp {
  protected:
    void SetUp() override
    {
        StripeApp::SetUp();
        std::filesystem::remove_all(logFolder());
        logOn();
    }
    void TearDown() override
    {
        StripeApp::TearDown();
        std::filesystem::remove_all(logFolder());
    }
    // The lines of the log of the day with the label of the stripe application, without it; the log is emptied.
    static std::vector<std::string> takeLines()
    {
        std::string sLog;
        for (const auto &entry : std::filesystem::directory_iterator(logFolder()))
            sLog += readFile(entry.path());
        std::filesystem::remove_all(logFolder());
        writeFile(libraryDirectory() + "/test.log", sLog);
        sLog = logWithoutTime();

        const std::string sHead = "  T  INFO:    AppMsg   ";
        std::vector<std::string> lines;
        for (size_t nAt = 0; nAt < sLog.size();) {
            size_t nEnd = std::min(sLog.find("\r\n", nAt), sLog.size());
            if (sLog.compare(nAt, sHead.size(), sHead) == 0)
                lines.push_back(sLog.substr(nAt + sHead.size(), nEnd - nAt - sHead.size()));
            nAt = nEnd + 2;
        }
        return lines;
    }
    // Where the line stands; -1 and a failure when it does not stand there once.
    static std::ptrdiff_t placeOf(const std::vector<std::string> &lines, const std::string &sLine)
    {
        if (std::count(lines.begin(), lines.end(), sLine) != 1) {
            ADD_FAILURE() << "not once: " << sLine << " in\n" << testing::PrintToString(lines);
            return -1;
        }
        return std::find(lines.begin(), lines.end(), sLine) - lines.begin();
    }
    static void expectInOrder(const std::vector<std::string> &expected)
    {
        const std::vector<std::string> lines = takeLines();
        std::ptrdiff_t nLast = -1;
        for (const std::string &sLine : expected) {
            const std::ptrdiff_t nPlace = placeOf(lines, sLine);
            EXPECT_GT(nPlace, nLast) << sLine;
            nLast = nPlace;
        }
        EXPECT_EQ(nLast + 1, static_cast<std::ptrdiff_t>(lines.size())) << "the last line is another one";
    }
};

TEST_F(StripeMsLog, AReadLogsItsParametersAndItsTracks)
{
    takes("1B 25 42");
    isRead(23, 7, "1B 27");
    TrackBuffer t2(256), t3(256);
    EXPECT_EQ(MS_ReadCard("COM3", "B", 38400, 7, 23, 1, t2.data(), t3.data()), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=COM3,extendPort=B,nBaudRate=38400,nTimeout=7\n", "nMode=23,nCharSet=1\n",
                   "MS_ReadCard End,nRet=0,szTrack2data=22=2,szTrack3data=333\n"});
}

TEST_F(StripeMsLog, AWriteLogsTheSameUnderTheNameOfTheReadWithItsTexts)
{
    isWritten(23);
    std::string s2 = pszText2, s3 = pszText3;
    EXPECT_EQ(MS_WriteCard(path(), "", 115200, 5, 23, 0, s2.data(), s3.data()), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=" + std::string(path()) + ",extendPort=,nBaudRate=115200,nTimeout=5\n",
                   "nMode=23,nCharSet=0\n", "szTrack2data=22=2,szTrack3data=333\n", "MS_ReadCard End,nRet=0\n"});
}

TEST_F(StripeMsLog, TheLastLineShowsTheEnginesCode)
{
    s_bUnplugged = true;
    TrackBuffer t2(256), t3(256);
    EXPECT_EQ(MS_ReadCard("COM3", "", 9600, 5, 23, 0, t2.data(), t3.data()), -99);
    expectInOrder({"func:MS_ReadCard,nPortNo=COM3,extendPort=,nBaudRate=9600,nTimeout=5\n", "nMode=23,nCharSet=0\n",
                   "MS_ReadCard End,nRet=-50,szTrack2data=,szTrack3data=\n"});
    std::string s2 = "1";
    EXPECT_EQ(MS_WriteCard("COM3", "", 9600, 0, 2, -4, s2.data(), nullptr), -10);
    expectInOrder({"func:MS_ReadCard,nPortNo=COM3,extendPort=,nBaudRate=9600,nTimeout=0\n", "nMode=2,nCharSet=-4\n",
                   "szTrack2data=1,szTrack3data=\n", "MS_ReadCard End,nRet=-2\n"});
}

TEST_F(StripeMsLog, MissingTextsAreLoggedAsEmptyOnes)
{
    EXPECT_EQ(MS_ReadCard(nullptr, nullptr, 9600, 5, 1, 0, nullptr, nullptr), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=,extendPort=,nBaudRate=9600,nTimeout=5\n", "nMode=1,nCharSet=0\n",
                   "MS_ReadCard End,nRet=0,szTrack2data=,szTrack3data=\n"});
    EXPECT_EQ(MS_WriteCard(nullptr, nullptr, 9600, 5, 1, 0, nullptr, nullptr), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=,extendPort=,nBaudRate=9600,nTimeout=5\n", "nMode=1,nCharSet=0\n",
                   "szTrack2data=,szTrack3data=\n", "MS_ReadCard End,nRet=0\n"});
}

TEST_F(StripeMsLog, TextsAreLoggedUpTo255Bytes)
{
    const std::string sLong(300, '7'), sCut(255, '7');
    // Buffers of 256 bytes that hold no NUL.
    std::string s2(256, '8'), s3(256, '9');
    EXPECT_EQ(MS_ReadCard(sLong.c_str(), sLong.c_str(), 9600, 5, 1, 0, s2.data(), s3.data()), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=" + sCut + ",extendPort=" + sCut + ",nBaudRate=9600,nTimeout=5\n",
                   "nMode=1,nCharSet=0\n",
                   "MS_ReadCard End,nRet=0,szTrack2data=" + std::string(255, '8') +
                       ",szTrack3data=" + std::string(255, '9') + "\n"});
    std::string sText2 = sLong, sText3(255, '5');
    EXPECT_EQ(MS_WriteCard(sLong.c_str(), "", 9600, 5, 1, 0, sText2.data(), sText3.data()), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=" + sCut + ",extendPort=,nBaudRate=9600,nTimeout=5\n",
                   "nMode=1,nCharSet=0\n", "szTrack2data=" + sCut + ",szTrack3data=" + sText3 + "\n",
                   "MS_ReadCard End,nRet=0\n"});
    EXPECT_EQ(sText2, sLong);
}

TEST_F(StripeMsLog, LargeNumbersAreLoggedAsSignedOnes)
{
    EXPECT_EQ(MS_ReadCard("COM3", "", 0xFFFFFFFFU, 0x80000000U, INT32_MIN, INT32_MAX, nullptr, nullptr), 0);
    expectInOrder({"func:MS_ReadCard,nPortNo=COM3,extendPort=,nBaudRate=-1,nTimeout=-2147483648\n",
                   "nMode=-2147483648,nCharSet=2147483647\n", "MS_ReadCard End,nRet=0,szTrack2data=,szTrack3data=\n"});
}

// ---- the log of the day ---------------------------------------------------------------------------------------------

TEST_F(StripeMsLog, EveryCallStartsTheLogOfTheDay)
{
    std::string s2 = "1";
    for (int nCall : {0, 1}) {
        SCOPED_TRACE(nCall);
        QV_DPritLogSetFileName((libraryDirectory() + "/other.log").c_str());
        if (nCall == 0)
            MS_ReadCard("", "", 9600, 5, 1, 0, nullptr, nullptr);
        else
            MS_WriteCard("", "", 9600, 5, 1, 0, nullptr, nullptr);
        EXPECT_EQ(std::string(getLogFilePath()), std::string(pGetLogPath()));
        const std::string sLog = readFile(pGetLogPath());
        const size_t nStarted = sLog.find("initDriver\r\n");
        EXPECT_NE(nStarted, std::string::npos);
        EXPECT_LT(nStarted, sLog.find("func:MS_ReadCard,"));
        EXPECT_FALSE(std::filesystem::exists(libraryDirectory() + "/other.log"));
        std::filesystem::remove_all(logFolder());
    }
}

TEST_F(StripeMsLog, WithoutTheSwitchNothingIsWritten)
{
    logOff();
    MS_ReadCard("", "", 9600, 5, 1, 0, nullptr, nullptr);
    MS_WriteCard("", "", 9600, 5, 1, 0, nullptr, nullptr);
    size_t nFiles = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(logFolder()))
        ++nFiles;
    EXPECT_EQ(nFiles, 0U);
}

} // namespace
