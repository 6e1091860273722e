// The aux port of a terminal: opening, what the open leaves behind, closing, and the log lines of both.

#include "aux_terminal.h"
#include "device_log.h"

#include "qvreader/support.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace qvtest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A text buffer of the aux state holds these bytes, and zeros behind them.
testing::AssertionResult holds(std::span<const char> buffer, int32_t nLen, std::string_view sHex)
{
    Bytes expected = bytes(sHex);
    if (nLen != static_cast<int32_t>(expected.size()))
        return testing::AssertionFailure() << "length " << nLen;
    expected.resize(buffer.size());
    if (std::memcmp(buffer.data(), expected.data(), buffer.size()) != 0)
        return testing::AssertionFailure() << "begins with " << hex(buffer.data(), 16);
    return testing::AssertionSuccess();
}

// ---- open ---------------------------------------------------------------------------------------------------------

TEST_F(AuxTerminal, AnOpenSendsTheFamilysSequenceInOneWrite)
{
    for (const FamilyRow &row : familyRows) {
        SCOPED_TRACE(row.nTermType);
        clearCalls();
        ASSERT_EQ(COMM_Com_OpenLinuxAux(row.nTermType, 1, 9600, 0), 0);
        EXPECT_THAT(writes(), ElementsAre(row.pszOpen));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, TheScreenIsKeptInFrontOfTheOpenSequenceWhereTheFlagAsksForIt)
{
    for (uint32_t bAuxPrefix : {1U, 2U, UINT32_MAX})
        for (const FamilyRow &row : familyRows) {
            SCOPED_TRACE(std::to_string(bAuxPrefix) + " " + std::to_string(row.nTermType));
            clearCalls();
            ASSERT_EQ(COMM_Com_OpenLinuxAux(row.nTermType, 1, 9600, bAuxPrefix), 0);
            EXPECT_THAT(writes(), ElementsAre(szKeepScreen, row.pszOpen));
            EXPECT_EQ(COMM_Com_CloseLinux(), 0);
        }
}

TEST_F(AuxTerminal, TheSequencesReachTheTerminalUnchangedThoughItWasCooked)
{
    cook();
    ASSERT_EQ(COMM_Com_OpenLinuxAux(3, 2, 4800, 1), 0);
    EXPECT_EQ(peer().wire(), "1B 5B 32 68 1B 5B 2F 32 3B 31 3B 37 3B 33 3B 31 3B 30 4D");
}

TEST_F(AuxTerminal, PortAndSpeedOfTheOpenStandInItsSequence)
{
    const struct {
        uint32_t nTermType;
        uint32_t nAuxPort;
        uint32_t nBaud;
        const char *pszSent;
    } rows[] = {
        {1, 2, 115200, "1B 21 31 32 3B 30 3B 30 3B 30 5A 1B 5B 2F 35 34 6C 1B 5B 2F 35 33 68 1B 5B 2F 35 30 68"},
        {1, 7, 9600, szStarOpen9600},
        {99, 4, 600, "1B 21 35 3B 30 3B 30 3B 30 56 1B 5B 2F 35 34 6C 1B 5B 2F 35 33 68 1B 5B 2F 35 30 68"},
        {2, 4, 115200, "1B 5B 33 3E"},
        {2, 7, 115200, szGwOpen},
        {3, 3, 19200, "1B 5B 2F 33 3B 31 3B 39 3B 33 3B 31 3B 30 4D"},
        {3, 7, 9600, szGgOpen9600},
        {3, 1, 230400, szGgOpen9600},
        {5, 3, 115200, "1B 21 36 30 3B 31 6D 1B 21 62"},
        {5, 7, 115200, szWyseOpen},
        {5, INT32_MAX, 115200, szWyseOpen},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.nTermType) + " " + std::to_string(row.nAuxPort));
        clearCalls();
        ASSERT_EQ(COMM_Com_OpenLinuxAux(row.nTermType, row.nAuxPort, row.nBaud, 0), 0);
        EXPECT_THAT(writes(), ElementsAre(row.pszSent));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, TheStateHoldsTypePrefixAndSuffixAndNothingOfTheLastOpen)
{
    for (const FamilyRow &row : familyRows) {
        SCOPED_TRACE(row.nTermType);
        std::memset(&g_AuxOp, 0xEE, sizeof g_AuxOp);
        open(row.nTermType);
        EXPECT_EQ(g_AuxOp.nTermType, row.nTermType);
        EXPECT_TRUE(holds(g_AuxOp.szPrefix, g_AuxOp.nPrefixLen, row.pszPrefix));
        EXPECT_TRUE(holds(g_AuxOp.szSuffix, g_AuxOp.nSuffixLen, row.pszSuffix));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, TheTerminalOfStandardOutputIsOpenedRawAtTheSpeed)
{
    const struct {
        uint32_t nBaud;
        speed_t nSpeed;
    } rows[] = {{9600, B9600}, {19200, B19200}, {115200, B115200}, {230400, B230400}, {600, B9600}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.nBaud);
        cook();
        clearCalls();
        ASSERT_EQ(COMM_Com_OpenLinuxAux(1, 1, row.nBaud, 0), 0);
        EXPECT_EQ(calls().size(), 3U);
        EXPECT_EQ(calls()[0], "TCGETA");
        EXPECT_EQ(calls()[1], "TCSETAF");
        char szName[64];
        ASSERT_EQ(ttyname_r(g_AuxFd, szName, sizeof szName), 0);
        EXPECT_EQ(szName, peer().path());
        EXPECT_NE(g_AuxFd, STDOUT_FILENO);
        EXPECT_EQ(fcntl(g_AuxFd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        const termios now = settings();
        EXPECT_EQ(cfgetospeed(&now), row.nSpeed);
        EXPECT_EQ(now.c_lflag & (ICANON | ECHO | ISIG), 0U);
        EXPECT_EQ(now.c_oflag & 0xFFFFU, 0U);
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, StandardOutputThatIsNoTerminalGivesMinusThree)
{
    const std::string sFile = libraryDirectory() + "/no.tty";
    writeFile(sFile, "untouched");
    const AuxOp before = g_AuxOp;
    for (const char *psz : {"/dev/null", sFile.c_str()}) {
        SCOPED_TRACE(psz);
        setStandardOutput(psz);
        g_AuxFd = 99999;
        EXPECT_EQ(COMM_Com_OpenLinuxAux(1, 1, 9600, 1), -3);
        EXPECT_EQ(g_AuxFd, -2);
    }
    EXPECT_EQ(readFile(sFile), "untouched");
    EXPECT_EQ(std::memcmp(&g_AuxOp, &before, sizeof before), 0);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AuxTerminal, ATerminalThatIsNotThereGivesMinusThree)
{
    nameTerminal("/dev/pts/nowhere");
    EXPECT_EQ(COMM_Com_OpenLinuxAux(1, 1, 9600, 0), -3);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(AuxTerminal, ATerminalThatRefusesItsSettingsGivesMinusOneAndIsClosed)
{
    for (unsigned long nRequest : {static_cast<unsigned long>(TCGETA), static_cast<unsigned long>(TCSETAF)}) {
        SCOPED_TRACE(nRequest);
        const int nBefore = openDescriptors();
        refuse(nRequest);
        EXPECT_EQ(COMM_Com_OpenLinuxAux(1, 1, 9600, 1), -1);
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(openDescriptors(), nBefore);
    }
    EXPECT_EQ(peer().wire(), "");
}

TEST_F(AuxTerminal, BlanksAndLineEndsInTheTerminalsNameAreLeftOut)
{
    const std::string sName = " " + peer().path().substr(0, 4) + "\t\r\n" + peer().path().substr(4) + " \n";
    nameTerminal(sName.c_str());
    ASSERT_EQ(COMM_Com_OpenLinuxAux(2, 1, 9600, 0), 0);
    EXPECT_EQ(peer().wire(), szGwOpen);
}

TEST_F(AuxTerminal, AnAuxPortBelowOneGivesMinusOneAndLeavesTheTerminalAsItWas)
{
    const termios before = cook();
    const AuxOp state = g_AuxOp;
    const int nBefore = openDescriptors();
    for (int32_t nAuxPort : {0, -1, INT32_MIN})
        for (uint32_t bAuxPrefix : {0U, 1U}) {
            SCOPED_TRACE(nAuxPort);
            EXPECT_EQ(COMM_Com_OpenLinuxAux(3, static_cast<uint32_t>(nAuxPort), 9600, bAuxPrefix), -1);
            EXPECT_EQ(g_AuxFd, -2);
            EXPECT_EQ(openDescriptors(), nBefore);
            EXPECT_TRUE(restored(before));
            EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
        }
    EXPECT_EQ(std::memcmp(&g_AuxOp, &state, sizeof state), 0);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(AuxTerminal, TheSecondHalfOfAnOpenRefusesAPortBelowOneAndChangesNothing)
{
    open();
    const AuxOp state = g_AuxOp;
    for (int32_t nAuxPort : {0, -1, INT32_MIN})
        EXPECT_EQ(COMM_Com_OpenAuxPort(3, static_cast<uint32_t>(nAuxPort), 9600, 1), -2) << nAuxPort;
    EXPECT_EQ(std::memcmp(&g_AuxOp, &state, sizeof state), 0);
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(AuxTerminal, NobodyLooksAtHowTheOpenSequenceIsSent)
{
    scriptWrites({-EIO, -EIO});
    EXPECT_EQ(COMM_Com_OpenLinuxAux(3, 1, 9600, 1), 0);
    EXPECT_THAT(writes(), IsEmpty());
    EXPECT_EQ(g_AuxOp.nTermType, 3U);
    EXPECT_EQ(g_AuxOp.nPrefixLen, 4);
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(AuxTerminal, WithoutAPortTheSecondHalfOfAnOpenStillPreparesTheState)
{
    EXPECT_EQ(COMM_Com_OpenAuxPort(3, 1, 9600, 1), 0);
    EXPECT_EQ(g_AuxOp.nTermType, 3U);
    EXPECT_TRUE(holds(g_AuxOp.szPrefix, g_AuxOp.nPrefixLen, szGgPrefix));
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AuxTerminal, AHostThatOpenedTheTtyItselfSetsItsDescriptor)
{
    const int nFd = ::open(peer().path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(nFd, 0);
    EXPECT_EQ(SetAuxFd(nFd), 0);
    EXPECT_EQ(g_AuxFd, nFd);
    EXPECT_EQ(COMM_Com_OpenAuxPort(2, 1, 9600, 0), 0);
    EXPECT_EQ(peer().wire(), szGwOpen);
    EXPECT_EQ(COMM_Com_CloseAuxPort(0), 0);
    EXPECT_EQ(peer().wire(), std::string(szGwOpen) + " " + szGwClose);
    EXPECT_EQ(g_AuxFd, nFd);
    for (int32_t nNone : {-1, -2}) {
        EXPECT_EQ(SetAuxFd(nNone), 0);
        EXPECT_EQ(g_AuxFd, nNone);
    }
    ::close(nFd);
}

// ---- close --------------------------------------------------------------------------------------------------------

TEST_F(AuxTerminal, ACloseSendsTheFamilysSequenceAndThenRestoresTheTerminal)
{
    for (const FamilyRow &row : familyRows) {
        SCOPED_TRACE(row.nTermType);
        const termios before = cook();
        open(row.nTermType);
        const int nFd = g_AuxFd;
        EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
        EXPECT_THAT(calls(), ElementsAre(std::string("write ") + row.pszClose, "TCSETAF"));
        EXPECT_EQ(g_AuxFd, -2);
        EXPECT_EQ(fcntl(nFd, F_GETFD), -1);
        EXPECT_TRUE(restored(before));
        EXPECT_EQ(g_AuxOp.nTermType, row.nTypeAfterClose);
    }
}

TEST_F(AuxTerminal, TheScreenIsReleasedBehindTheCloseSequenceWhereTheFlagAsksForIt)
{
    for (uint32_t bAuxPrefix : {1U, 2U, UINT32_MAX})
        for (const FamilyRow &row : familyRows) {
            SCOPED_TRACE(std::to_string(bAuxPrefix) + " " + std::to_string(row.nTermType));
            open(row.nTermType);
            EXPECT_EQ(COMM_Com_CloseLinuxAux(bAuxPrefix), 0);
            EXPECT_THAT(writes(), ElementsAre(row.pszClose, szReleaseScreen));
        }
}

TEST_F(AuxTerminal, AWholeSessionIsOnTheWireInItsOrder)
{
    ASSERT_EQ(COMM_Com_OpenLinuxAux(5, 2, 9600, 1), 0);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(textBytes("AB").data(), 2), 2);
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_EQ(peer().wire(), "1B 5B 32 68 1B 21 35 34 3B 31 6D 1B 21 62 41 42 1B 21 50 1B 5B 32 6C");
}

TEST_F(AuxTerminal, ACloseWithoutAPortDoesNothing)
{
    const AuxOp state = g_AuxOp;
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(std::memcmp(&g_AuxOp, &state, sizeof state), 0);

    open(99);
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    clearCalls();
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AuxTerminal, OnlyMinusTwoIsNoPortToAClose)
{
    g_AuxOp.nTermType = 2;
    EXPECT_EQ(SetAuxFd(-1), 0);
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_THAT(calls(),
                ElementsAre(std::string("write ") + szGwClose, std::string("write ") + szReleaseScreen, "TCSETAF"));
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(AuxTerminal, TheFirstHalfOfACloseLeavesThePortOpen)
{
    open(1);
    EXPECT_EQ(COMM_Com_CloseAuxPort(1), 0);
    EXPECT_THAT(calls(), ElementsAre(std::string("write ") + szStarClose, std::string("write ") + szReleaseScreen));
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(AuxTerminal, WithoutAPortTheFirstHalfOfACloseIsZeroAndMakesAnUnknownTypeAStar)
{
    g_AuxOp.nTermType = 4;
    EXPECT_EQ(COMM_Com_CloseAuxPort(1), 0);
    EXPECT_EQ(g_AuxOp.nTermType, 1U);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AuxTerminal, NobodyLooksAtHowTheCloseSequenceIsSent)
{
    const termios before = cook();
    open(1);
    scriptWrites({-EIO, -EIO});
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_TRUE(restored(before));
}

TEST_F(AuxTerminal, ACloseKeepsPrefixAndSuffixForWhoeverAsksLater)
{
    open(1);
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    EXPECT_TRUE(holds(g_AuxOp.szPrefix, g_AuxOp.nPrefixLen, szStarPrefix));
    EXPECT_TRUE(holds(g_AuxOp.szSuffix, g_AuxOp.nSuffixLen, szStarSuffix));
}

// ---- log ----------------------------------------------------------------------------------------------------------

TEST_F(AuxTerminal, AnOpenIsLoggedLineByLine)
{
    logOn();
    ASSERT_EQ(COMM_Com_OpenLinuxAux(2, 1, 9600, 0), 0);
    const std::string sFd = std::to_string(g_AuxFd);
    EXPECT_EQ(logWithoutTime(),
              line("[COMM_Com_OpenLinuxAux ] Start ") + line("LinuxOpenPort szTtyName =" + peer().path() + "\r\n") +
                  line("[COMM_Com_OpenLinux ] Start ") + line(" szTtyName = " + peer().path() + " nBaud = 9600  ") +
                  line("[ open g_AuxFd = " + sFd + " ] Start  ") + line("open linux com success!\r\n") +
                  line("open linux com success!\r\n") + line("set linux com success!\r\n") +
                  line(" g_AuxFd = " + sFd + " ") + line("WriteBlock  fd = " + sFd + " ") + line("WriteBlock  End "));
}

TEST_F(AuxTerminal, ACloseIsLoggedLineByLine)
{
    open(5);
    const std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_CloseLinuxAux] Start ") + line(" g_AuxFd = " + sFd + " ") +
                                    line("WriteBlock  fd = " + sFd + " ") + line("WriteBlock  End ") +
                                    line("[COMM_Com_CloseLinux] Start ") + line("[g_AuxFd = " + sFd + " ] Start  ") +
                                    line("[1 g_AuxFd = -2 ] Start  "));
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_EQ(logWithoutTime(), line("[COMM_Com_CloseLinuxAux] Start ") + line(" g_AuxFd = -2 "));
}

TEST_F(AuxTerminal, TheScreensSequencesAreLoggedWhereTheyAreSent)
{
    logOn();
    ASSERT_EQ(COMM_Com_OpenLinuxAux(2, 1, 9600, 1), 0);
    const std::string sWrite = "WriteBlock  fd = " + std::to_string(g_AuxFd) + " ";
    EXPECT_TRUE(logged({"AuxPrefix  LEN=4   HEX: 1B5B3268", sWrite, "WriteBlock  End ", sWrite, "WriteBlock  End "}));
    logOn();
    EXPECT_EQ(COMM_Com_CloseLinuxAux(1), 0);
    EXPECT_TRUE(logged({sWrite, "WriteBlock  End ", "AuxPrefix  LEN=4   HEX: 1B5B326C", sWrite, "WriteBlock  End "}));
}

TEST_F(AuxTerminal, AFailedOpenSaysWhyInTheLog)
{
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinuxAux(2, 0, 9600, 0), -1);
    EXPECT_TRUE(logged({"set linux com success!", "no aux port 0"}));
    const std::vector<std::string> lines = logTexts();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), " g_AuxFd = " + std::to_string(g_AuxFd) + " "), 0);

    setStandardOutput("/dev/null");
    logOn();
    EXPECT_EQ(COMM_Com_OpenLinuxAux(2, 1, 9600, 0), -3);
    EXPECT_TRUE(logged({"[COMM_Com_OpenLinuxAux ] Start ", "LinuxOpenPort szTtyName =", "open failed: no name"}));
}

} // namespace
