// The diagnostic log: the four writers byte by byte, labels, switches, the choice of the file, and that a log that
// cannot be written changes nothing.

#include "fake_clock.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// The flags of what is opened while it is looked at, by path.
bool s_bLookAtOpens = false;
std::vector<std::pair<std::string, int>> s_opens;

} // namespace

extern "C" [[gnu::visibility("default")]] int open(const char *pszPath, int nFlags, ...)
{
    va_list args;
    va_start(args, nFlags);
    int nMode = (nFlags & O_CREAT) != 0 ? va_arg(args, int) : 0;
    va_end(args);
    if (s_bLookAtOpens)
        s_opens.emplace_back(pszPath, nFlags);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, pszPath, nFlags, nMode));
}

namespace {

// Far enough from UTC that local time cannot be mistaken for it.
const bool s_bZoneSet = [] {
    setenv("TZ", "QVT-8:30", 1);
    tzset();
    return true;
}();

constexpr char szTime[] = "03-05 06:07:08(009)";
constexpr char szLogOn[] = "[QuorvanLog]\nLogFlag=1\n";

// The untyped and typed writers without the compiler's look at the format.
void (*const pfnUntyped)(const char *, ...) = DPrintLogToFile;
void (*const pfnTyped)(int32_t, int32_t, const char *, ...) = DPrintLogToFileAddType;

void callAllWriters()
{
    const uint8_t data[] = {0x12, 0xAB};
    DPrintLogToFile("untyped %d", 1);
    DPrintLogToFileAddType(0, 1, "typed %d", 2);
    DPrintDataHexToFile("hex", data, 2);
    DPrintDataHexToFileAddType(1, 1, "typed hex", data, 2);
}

std::set<std::string> filesBelow(const std::string &sDir)
{
    std::set<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(sDir))
        names.insert(entry.path().string());
    return names;
}

mode_t modeOf(const std::string &sPath)
{
    struct stat info {};
    return stat(sPath.c_str(), &info) == 0 ? info.st_mode & 07777U : 0U;
}

mode_t currentUmask()
{
    mode_t nMask = umask(0);
    umask(nMask);
    return nMask;
}

class Log : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nMask = umask(022);
        g_DbgSetFlag = 0;
        g_stDebugTip = {};
        QV_DebugSetVersion(nullptr);
        fs::remove(libraryDirectory() + "/Alg_debug.log");
        logOn();
        m_nDescriptors = openDescriptors();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        umask(m_nMask);
        logOff();
    }

    FakeClock m_clock{localSeconds(2024, 3, 5, 6, 7, 8), 9};
    mode_t m_nMask = 0;
    int m_nDescriptors = 0;
};

// ---- state at load (first in this program) ---------------------------------------------------------------------

TEST(AtLoad, SwitchesAreOffNoFileAndNoVersionIsSet)
{
    EXPECT_EQ(g_DbgSetFlag, 0);
    for (int32_t nEnable : g_stDebugTip.nEnable)
        EXPECT_EQ(nEnable, 0);
    static_assert(sizeof(StDebugTip) == 11 * sizeof(int32_t));

    EXPECT_EQ(isWriteLog(), 0);
    EXPECT_EQ(getLogFilePath(), libraryDirectory() + "/Alg_debug.log");

    FakeClock clock(localSeconds(2024, 3, 5, 6, 7, 8), 9);
    writeIni(szLogOn);
    DPrintLogToFile("first");
    EXPECT_EQ(readFile(libraryDirectory() + "/Alg_debug.log"), std::string("  ") + szTime + "  first\r\n");
    removeIni();
    fs::remove(libraryDirectory() + "/Alg_debug.log");
}

// ---- the four writers, byte by byte ------------------------------------------------------------------------------

TEST_F(Log, UntypedLineIsBlankVersionBlankTimeTwoBlanksTextCrLf)
{
    QV_DebugSetVersion("V1.2");
    DPrintLogToFile("text %d %s", 7, "x");
    EXPECT_EQ(rawLog(), std::string(" V1.2 ") + szTime + "  text 7 x\r\n");
}

TEST_F(Log, UntypedLineWithoutVersionKeepsBothBlanks)
{
    DPrintLogToFile("t");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  t\r\n");
}

TEST_F(Log, TypedInformationLineHasKindAndPaddedTypeLabel)
{
    QV_DebugSetVersion("V1.2");
    DPrintLogToFileAddType(0, 2, "text %d", 7);
    EXPECT_EQ(rawLog(), std::string(" V1.2 ") + szTime + "  INFO:    Comm:    text 7\r\n");
}

TEST_F(Log, HexDumpHasNoLeadingBlankThenTitleLengthAndUpperCaseBytes)
{
    QV_DebugSetVersion("V1.2");
    const uint8_t data[] = {0x00, 0x0A, 0xAB, 0xFF};
    DPrintDataHexToFile("Send", data, 4);
    EXPECT_EQ(rawLog(), std::string("V1.2 ") + szTime + "  Send  LEN=4   HEX: 000AABFF\r\n");
}

TEST_F(Log, HexDumpWithoutVersionStartsWithOneBlank)
{
    const uint8_t data[] = {0x5A};
    DPrintDataHexToFile("Send", data, 1);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  Send  LEN=1   HEX: 5A\r\n");
}

TEST_F(Log, HexDumpWithNullTitleStartsWithLength)
{
    const uint8_t data[] = {0x5A};
    DPrintDataHexToFile(nullptr, data, 1);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  LEN=1   HEX: 5A\r\n");
}

TEST_F(Log, HexDumpWithEmptyTitleKeepsItsTwoBlanks)
{
    const uint8_t data[] = {0x5A};
    DPrintDataHexToFile("", data, 1);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "    LEN=1   HEX: 5A\r\n");
}

TEST_F(Log, TypedHexDumpOverlaysItsLabels)
{
    QV_DebugSetVersion("V1.2");
    const uint8_t data[] = {0x90, 0x00};
    DPrintDataHexToFileAddType(1, 2, "Status", data, 2);
    EXPECT_EQ(rawLog(), std::string("V1.2 ") + szTime + "  !!ERROR:     Comm:OR:     Status  LEN=2   HEX: 9000\r\n");
}

TEST_F(Log, TypedHexDumpWithNullTitleStartsWithLength)
{
    const uint8_t data[] = {0x90, 0x00};
    DPrintDataHexToFileAddType(1, 1, nullptr, data, 2);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  !!ERROR:     Public::     LEN=2   HEX: 9000\r\n");
}

TEST_F(Log, LinesAreAppended)
{
    DPrintLogToFile("a");
    DPrintLogToFileAddType(0, 1, "b");
    DPrintDataHexToFile(nullptr, nullptr, 0);
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  a\r\n  " + szTime + "  INFO:    Public:  b\r\n " + szTime +
                            "  LEN=0   HEX: \r\n");
}

TEST_F(Log, LineEndOfTheTextIsDoubled)
{
    DPrintLogToFile("a\r\n");
    DPrintLogToFileAddType(0, 1, "b\r\n");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  a\r\n\r\n  " + szTime + "  INFO:    Public:  b\r\n\r\n");
}

TEST_F(Log, TextThatIsNotUtf8GoesOutUnchanged)
{
    const std::string sText = "\xB6\xC1\xBF\xA8\xFF\x80 end";
    DPrintLogToFile("%s", sText.c_str());
    DPrintLogToFileAddType(0, 1, "%s", sText.c_str());
    DPrintDataHexToFile(sText.c_str(), nullptr, 0);
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  " + sText + "\r\n  " + szTime + "  INFO:    Public:  " + sText +
                            "\r\n " + szTime + "  " + sText + "  LEN=0   HEX: \r\n");
}

TEST_F(Log, PercentSignsInArgumentsAndTitlesAreText)
{
    const uint8_t data[] = {1};
    DPrintLogToFile("%s", "%s%n%d");
    DPrintDataHexToFile("%s%n", data, 1);
    DPrintDataHexToFileAddType(1, 3, "%d%n", data, 1);
    QV_DebugSetVersion("%s%n");
    DPrintLogToFile("x");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  %s%n%d\r\n " + szTime + "  %s%n  LEN=1   HEX: 01\r\n " +
                            szTime + "  !!ERROR:     CommDev:     %d%n  LEN=1   HEX: 01\r\n %s%n " + szTime +
                            "  x\r\n");
}

// ---- lengths -----------------------------------------------------------------------------------------------------

TEST_F(Log, TextIsCutAt4095Characters)
{
    for (size_t nLen : {size_t{4094}, size_t{4095}, size_t{4096}, size_t{4097}, size_t{5000}, size_t{100000}}) {
        SCOPED_TRACE(nLen);
        const std::string sText = std::string(nLen - 1, 'a') + 'z';
        const std::string sKept = sText.substr(0, 4095);
        logOn();
        DPrintLogToFile("%s", sText.c_str());
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  " + sKept + "\r\n");
        logOn();
        DPrintLogToFileAddType(0, 1, "%s", sText.c_str());
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  INFO:    Public:  " + sKept + "\r\n");
    }
}

TEST_F(Log, HexDumpOf10000BytesIsNotCut)
{
    Bytes data(10000);
    std::string sHex;
    for (size_t n = 0; n < data.size(); ++n) {
        data[n] = static_cast<uint8_t>(n * 7);
        const std::string sByte = hex(&data[n], 1);
        sHex += sByte;
    }
    DPrintDataHexToFile("big", data.data(), 10000);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  big  LEN=10000   HEX: " + sHex + "\r\n");
    logOn();
    DPrintDataHexToFileAddType(1, 3, "big", data.data(), 10000);
    EXPECT_EQ(rawLog(),
              std::string(" ") + szTime + "  !!ERROR:     CommDev:     big  LEN=10000   HEX: " + sHex + "\r\n");
}

TEST_F(Log, HexDumpTitleOf5000CharactersDoesNotOverrun)
{
    const std::string sTitle(5000, 't');
    const uint8_t data[] = {0xEE};
    DPrintDataHexToFile(sTitle.c_str(), data, 1);
    DPrintDataHexToFileAddType(1, 1, sTitle.c_str(), data, 1);
    const std::string sLog = rawLog();
    EXPECT_EQ(sLog.find("ttt"), std::string(" 03-05 06:07:08(009)  ").size());
    EXPECT_TRUE(sLog.ends_with("  LEN=1   HEX: EE\r\n"));
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 2);
}

TEST_F(Log, HexDumpOfNegativeLengthWritesNoBytes)
{
    const uint8_t data[] = {1, 2, 3};
    DPrintDataHexToFile("t", data, -1);
    DPrintDataHexToFileAddType(1, 3, "t", data, INT_MIN);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  t  LEN=-1   HEX: \r\n " + szTime +
                            "  !!ERROR:     CommDev:     t  LEN=-2147483648   HEX: \r\n");
}

TEST_F(Log, HexDumpOfNullDataWritesNoBytes)
{
    DPrintDataHexToFile("t", nullptr, 5);
    DPrintDataHexToFileAddType(1, 3, "t", nullptr, 5);
    const std::vector<std::string> texts = logTexts();
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_TRUE(texts[0].starts_with("t  LEN=")) << texts[0];
    EXPECT_TRUE(texts[0].ends_with("   HEX: ")) << texts[0];
    EXPECT_TRUE(texts[1].ends_with("   HEX: ")) << texts[1];
}

TEST_F(Log, NullFormatIsNoCrashAndTheNextLineIsWhole)
{
    pfnUntyped(nullptr);
    pfnTyped(0, 1, nullptr);
    fs::remove(libraryDirectory() + "/test.log");
    DPrintLogToFile("after");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  after\r\n");
}

TEST_F(Log, VersionIsCutAt127CharactersOrCleared)
{
    for (size_t nLen : {size_t{1}, size_t{126}, size_t{127}, size_t{128}, size_t{200}, size_t{70000}}) {
        SCOPED_TRACE(nLen);
        const std::string sVersion = std::string(nLen, 'v');
        EXPECT_EQ(QV_DebugSetVersion(sVersion.c_str()), 0);
        logOn();
        DPrintLogToFile("t");
        EXPECT_EQ(rawLog(), " " + sVersion.substr(0, 127) + " " + szTime + "  t\r\n");
    }
    for (const char *pszNone : {static_cast<const char *>(nullptr), ""}) {
        QV_DebugSetVersion("old");
        EXPECT_EQ(QV_DebugSetVersion(pszNone), 0);
        logOn();
        DPrintLogToFile("t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  t\r\n");
    }
}

TEST_F(Log, ShorterVersionLeavesNothingOfTheLongerOne)
{
    QV_DebugSetVersion("longer version");
    QV_DebugSetVersion("s");
    DPrintLogToFile("t");
    EXPECT_EQ(rawLog(), std::string(" s ") + szTime + "  t\r\n");
}

// ---- labels --------------------------------------------------------------------------------------------------------

struct TypeRow {
    int32_t nType;
    const char *pszLabel;       // as the table has it
    const char *pszInformation; // as an information line shows it
    const char *pszError;       // as an error line shows it
};

constexpr TypeRow aTypes[] = {
    {1, "Public:", "Public:", "Public::   "},   {2, "Comm:", "Comm:  ", "Comm:OR:   "},
    {3, "CommDev:", "CommDev:", "CommDev:   "}, {4, "Instr:", "Instr: ", "Instr:R:   "},
    {5, "Loginc", "Loginc ", "LogincR:   "},    {6, "BusiId:", "BusiId:", "BusiId::   "},
    {7, "BusiIc:", "BusiIc:", "BusiIc::   "},   {8, "BusiMsg:", "BusiMsg:", "BusiMsg:   "},
    {9, "AppId:", "AppId: ", "AppId:R:   "},    {10, "AppIc", "AppIc  ", "AppIcOR:   "},
    {11, "AppMsg", "AppMsg ", "AppMsgR:   "},
};

TEST_F(Log, EveryTypeLabelOverlaysTheKindLabel)
{
    const uint8_t data[] = {0x01};
    for (const TypeRow &row : aTypes) {
        SCOPED_TRACE(row.nType);
        logOn();
        DPrintLogToFileAddType(0, row.nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  INFO:    " + row.pszInformation + "  t\r\n");
        logOn();
        DPrintLogToFileAddType(1, row.nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  !!ERROR:     " + row.pszError + "  t\r\n");
        logOn();
        DPrintDataHexToFileAddType(1, row.nType, "t", data, 1);
        EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  !!ERROR:     " + row.pszError + "  t  LEN=1   HEX: 01\r\n");
    }
}

TEST_F(Log, UnknownKindHasAnEmptyLabel)
{
    const uint8_t data[] = {0x01};
    for (int32_t nKind : {2, 7, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(nKind);
        logOn();
        DPrintLogToFileAddType(nKind, 2, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "    Comm:  t\r\n");
        logOn();
        DPrintDataHexToFileAddType(nKind, 2, "t", data, 1);
        EXPECT_EQ(rawLog(), std::string(" ") + szTime + "    Comm:  t  LEN=1   HEX: 01\r\n");
    }
}

TEST_F(Log, UnknownTypeRepeatsTheKindLabel)
{
    for (int32_t nType : {12, 100, -1, INT_MAX, INT_MIN}) {
        SCOPED_TRACE(nType);
        logOn();
        DPrintLogToFileAddType(0, nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  INFO:    INFO:    t\r\n");
        logOn();
        DPrintLogToFileAddType(1, nType, "t");
        EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  !!ERROR:     !!ERROR:     t\r\n");
    }
}

TEST_F(Log, UnknownKindAndTypeLeaveBothLabelsEmpty)
{
    DPrintLogToFileAddType(9, 12, "t");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "      t\r\n");
}

TEST_F(Log, TypedLineOfType0IsNeverWritten)
{
    DPrintLogToFileAddType(0, 0, "t");
    DPrintLogToFileAddType(1, 0, "t");
    g_DbgSetFlag = 1;
    DPrintLogToFileAddType(0, 0, "t");
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, TypedHexDumpOfKind0IsNeverWritten)
{
    const uint8_t data[] = {0x01};
    for (int32_t nType = -1; nType <= 12; ++nType)
        DPrintDataHexToFileAddType(0, nType, "t", data, 1);
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, TypedHexDumpOfType0IsWrittenWhenItsKindIsNot0)
{
    const uint8_t data[] = {0x01};
    DPrintDataHexToFileAddType(1, 0, "t", data, 1);
    EXPECT_EQ(rawLog(), std::string(" ") + szTime + "  !!ERROR:     !!ERROR:     t  LEN=1   HEX: 01\r\n");
}

TEST_F(Log, InfoLabelIsWrittenWithTwoBlanksAndANul)
{
    char szBuf[24];
    std::memset(szBuf, 'x', sizeof szBuf);
    MapDebugInfoType(0, szBuf);
    EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string("INFO:  ") + '\0' + std::string(16, 'x'));
    std::memset(szBuf, 'x', sizeof szBuf);
    MapDebugInfoType(1, szBuf);
    EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string("!!ERROR:   ") + '\0' + std::string(12, 'x'));
}

TEST_F(Log, InfoLabelOfAnotherKindLeavesTheBuffer)
{
    for (int32_t nKind : {2, 3, -1, 11, INT_MAX, INT_MIN}) {
        char szBuf[16];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugInfoType(nKind, szBuf);
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string(16, 'x')) << nKind;
    }
}

TEST_F(Log, LevelLabelIsWrittenWithoutANul)
{
    for (const TypeRow &row : aTypes) {
        char szBuf[40];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugLevelType(row.nType, szBuf);
        std::string sExpected = row.pszLabel;
        sExpected.resize(sizeof szBuf, 'x');
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), sExpected) << row.nType;
    }
}

TEST_F(Log, LevelLabelOfAnUnknownTypeLeavesTheBuffer)
{
    for (int32_t nType : {0, 12, 13, -1, 256 + 1, INT_MAX, INT_MIN}) {
        char szBuf[16];
        std::memset(szBuf, 'x', sizeof szBuf);
        MapDebugLevelType(nType, szBuf);
        EXPECT_EQ(std::string(szBuf, sizeof szBuf), std::string(16, 'x')) << nType;
    }
}

TEST_F(Log, NullPointersToSmallCallsChangeNothing)
{
    MapDebugInfoType(0, nullptr);
    MapDebugInfoType(1, nullptr);
    MapDebugLevelType(1, nullptr);
    getSoLocationPath(nullptr);
    DPrintTlvToFileAddType(1, 1, nullptr, nullptr, 0);
    GetFullPath(nullptr, nullptr, 0);
    DPrintLogToFile("still here");
    EXPECT_EQ(logTexts(), std::vector<std::string>{"still here"});
}

TEST_F(Log, TlvWriterAndFullPathDoNothing)
{
    const uint8_t data[] = {0x5A, 0x01, 0x02};
    char szOut[] = "unchanged";
    DPrintTlvToFileAddType(0, 1, "t", data, 3);
    DPrintTlvToFileAddType(1, 1, "t", data, 3);
    GetFullPath("/tmp", szOut, 9);
    EXPECT_STREQ(szOut, "unchanged");
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

// ---- switches ------------------------------------------------------------------------------------------------------

TEST_F(Log, SwitchOfOneTypeHidesThatTypeAlone)
{
    g_DbgSetFlag = 1;
    for (int32_t &nEnable : g_stDebugTip.nEnable)
        nEnable = 1;
    g_stDebugTip.nEnable[2] = 0;
    for (int32_t nType = 1; nType <= 12; ++nType)
        DPrintLogToFileAddType(0, nType, "type %d", nType);
    std::vector<std::string> texts = logTexts();
    std::vector<std::string> expected;
    for (int nType : {1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12})
        expected.push_back("type " + std::to_string(nType));
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(rawLog().find("CommDev:"), std::string::npos);
}

TEST_F(Log, EachSwitchBelongsToTheTypeAfterItsIndex)
{
    g_DbgSetFlag = 1;
    for (int nAt = 0; nAt < 11; ++nAt) {
        logOn();
        g_stDebugTip = {};
        g_stDebugTip.nEnable[nAt] = nAt % 2 == 0 ? 1 : -5; // anything but 0 is on
        for (int32_t nType = 1; nType <= 11; ++nType)
            DPrintLogToFileAddType(1, nType, "%d", nType);
        const std::string sLog = rawLog();
        EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 1) << nAt;
        EXPECT_TRUE(sLog.ends_with("  " + std::to_string(nAt + 1) + "\r\n")) << sLog;
    }
}

TEST_F(Log, SwitchesCountOnlyWhileTheFlagIsExactly1)
{
    for (int32_t nFlag : {0, 2, -1, INT_MAX}) {
        logOn();
        g_DbgSetFlag = nFlag;
        DPrintLogToFileAddType(0, 3, "t");
        EXPECT_EQ(logTexts(), std::vector<std::string>{"t"}) << nFlag;
    }
}

TEST_F(Log, SwitchesConcernNeitherUntypedLinesNorHexDumps)
{
    const uint8_t data[] = {0x01};
    g_DbgSetFlag = 1;
    DPrintLogToFile("untyped");
    DPrintDataHexToFile("hex", data, 1);
    DPrintDataHexToFileAddType(1, 3, "typed hex", data, 1);
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 3) << sLog;
}

TEST_F(Log, UnknownTypesHaveNoSwitch)
{
    g_DbgSetFlag = 1;
    DPrintLogToFileAddType(0, 12, "twelve");
    DPrintLogToFileAddType(0, -1, "minus one");
    const std::string sLog = rawLog();
    EXPECT_NE(sLog.find("twelve"), std::string::npos);
    EXPECT_NE(sLog.find("minus one"), std::string::npos);
}

TEST_F(Log, SetDebugLevelCopiesAllSwitchesAndLeavesTheFlag)
{
    StDebugTip tip{};
    for (int n = 0; n < 11; ++n)
        tip.nEnable[n] = n * 3 - 5;
    g_DbgSetFlag = 7;
    EXPECT_EQ(Dbg_SetDebugLevel(&tip), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(g_DbgSetFlag, 7);

    EXPECT_EQ(Dbg_SetDebugLevel(nullptr), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(Dbg_SetDebugLevel(&g_stDebugTip), &g_stDebugTip);
    EXPECT_EQ(std::memcmp(&tip, &g_stDebugTip, sizeof tip), 0);
    EXPECT_EQ(g_DbgSetFlag, 7);
}

// ---- on and off ----------------------------------------------------------------------------------------------------

TEST_F(Log, WithoutIniNothingIsWrittenAnywhere)
{
    logOff();
    fs::remove(libraryDirectory() + "/test.log");
    const std::set<std::string> before = filesBelow(libraryDirectory());
    callAllWriters();
    DPrintLogToFileAddType(1, 3, "t");
    EXPECT_EQ(filesBelow(libraryDirectory()), before);
    EXPECT_EQ(isWriteLog(), 0);

    QV_DPritLogSetFileName((libraryDirectory() + "/named.log").c_str());
    callAllWriters();
    EXPECT_EQ(filesBelow(libraryDirectory()), before);
}

TEST_F(Log, IniIsReadAnewAtEveryCall)
{
    for (int n = 0; n < 3; ++n) {
        writeIni("[QuorvanLog]\nLogFlag=0\n");
        callAllWriters();
        EXPECT_EQ(isWriteLog(), 0);
        removeIni();
        callAllWriters();
        EXPECT_EQ(isWriteLog(), 0);
        EXPECT_EQ(rawLog(), "");
    }
    writeIni(szLogOn);
    EXPECT_EQ(isWriteLog(), 1);
    callAllWriters();
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 4) << sLog;
    writeIni("[QuorvanLog]\nLogFlag=0\n");
    callAllWriters();
    EXPECT_EQ(rawLog(), sLog);
}

struct FlagRow {
    const char *pszIni;
    int32_t nOn;
};

TEST_F(Log, FlagIsOnForEveryNumberButZero)
{
    const FlagRow aRows[] = {
        {"[QuorvanLog]\nLogFlag=1\n", 1},
        {"[QuorvanLog]\nLogFlag=0\n", 0},
        {"[QuorvanLog]\nLogFlag=2\n", 1},
        {"[QuorvanLog]\nLogFlag=-1\n", 1},
        {"[QuorvanLog]\nLogFlag= 1\n", 1},
        {"[QuorvanLog]\nLogFlag = 1\n", 1},
        {"[QuorvanLog]\nLogFlag=01x\n", 1},
        {"[QuorvanLog]\nLogFlag=x1\n", 0},
        {"[QuorvanLog]\nLogFlag=\n", 0},
        {"[QuorvanLog]\nLogFlag=on\n", 0},
        {"[QuorvanLog]\r\nLogFlag=1\r\n", 1},
        {"[QuorvanLog]\nLogFlag=1", 0},
        {"LogFlag=1\n", 0},
        {"[Other]\nLogFlag=1\n", 0},
        {"[QuorvanLog]\n#LogFlag=1\n", 0},
        {"[QuorvanLog]\n//LogFlag=1\n", 0},
        {"[QuorvanLog]\n/LogFlag=1\n", 1},
        {"[QuorvanLog]\n[Next]\nLogFlag=1\n", 1},
        {"[quorvanlog]\nLogFlag=1\n", 0},
        {"[QuorvanLog]\nlogflag=1\n", 0},
        {"[QuorvanLog]\nLogFlag=1\n[Next]\nLogFlag=0\n", 1},
        {"[QuorvanLog]\n[Next]\nLogFlag=0\n[More]\nLogFlag=1\n", 0},
        {"", 0},
    };
    for (const FlagRow &row : aRows) {
        SCOPED_TRACE(row.pszIni);
        writeIni(row.pszIni);
        EXPECT_EQ(isWriteLog(), row.nOn);
        fs::remove(libraryDirectory() + "/test.log");
        callAllWriters();
        EXPECT_EQ(fs::exists(libraryDirectory() + "/test.log"), row.nOn == 1);
    }
}

// ---- time stamp -----------------------------------------------------------------------------------------------------

TEST_F(Log, TimeStampIsLocalMonthDayTimeAndMilliseconds)
{
    m_clock.set(localSeconds(2024, 12, 31, 23, 59, 58), 999);
    EXPECT_STREQ(GetLogTime(), "12-31 23:59:58(999)");
    m_clock.set(localSeconds(2025, 1, 1, 0, 0, 0), 0);
    EXPECT_STREQ(GetLogTime(), "01-01 00:00:00(000)");
    m_clock.set(localSeconds(2024, 2, 29, 9, 5, 1), 70);
    char *pszTime = GetLogTime();
    EXPECT_STREQ(pszTime, "02-29 09:05:01(070)");
    m_clock.set(localSeconds(2024, 3, 1, 1, 2, 3), 4);
    EXPECT_EQ(GetLogTime(), pszTime) << "the stamp has one buffer";
    EXPECT_STREQ(pszTime, "03-01 01:02:03(004)");
}

// ---- the file -------------------------------------------------------------------------------------------------------

TEST_F(Log, NewFileHasTheModeThatTheUmaskLeaves)
{
    for (mode_t nMask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        logOn();
        umask(nMask);
        DPrintLogToFile("t");
        EXPECT_EQ(modeOf(libraryDirectory() + "/test.log"), 0666U & ~nMask) << "umask " << nMask;
    }
}

TEST_F(Log, EveryLineLooksIntoTheIniOnceAndOpensTheFileOnceBothCloseOnExec)
{
    s_opens.clear();
    s_bLookAtOpens = true;
    callAllWriters();
    s_bLookAtOpens = false;
    ASSERT_EQ(s_opens.size(), 8U);
    for (size_t n = 0; n < s_opens.size(); n += 2) {
        EXPECT_EQ(s_opens[n].first, libraryDirectory() + "/QVConfig.ini");
        EXPECT_EQ(s_opens[n].second & O_ACCMODE, O_RDONLY);
        EXPECT_EQ(s_opens[n + 1].first, libraryDirectory() + "/test.log");
        EXPECT_EQ(s_opens[n + 1].second & (O_ACCMODE | O_APPEND | O_CREAT | O_TRUNC), O_WRONLY | O_APPEND | O_CREAT);
    }
    for (const auto &[sPath, nFlags] : s_opens)
        EXPECT_NE(nFlags & O_CLOEXEC, 0) << sPath;
}

TEST_F(Log, WithoutAFileNameLinesGoToTheFallbackFile)
{
    const std::string sFallback = libraryDirectory() + "/Alg_debug.log";
    for (const char *pszNone : {static_cast<const char *>(nullptr), ""}) {
        fs::remove(sFallback);
        QV_DPritLogSetFileName("/somewhere/else.log");
        QV_DPritLogSetFileName(pszNone);
        EXPECT_EQ(getLogFilePath(), sFallback);
        DPrintLogToFile("t");
        EXPECT_EQ(readFile(sFallback), std::string("  ") + szTime + "  t\r\n");
    }
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
}

TEST_F(Log, FileNameIsKeptTo511Characters)
{
    for (size_t nLen : {size_t{1}, size_t{510}, size_t{511}, size_t{512}, size_t{513}, size_t{5000}}) {
        const std::string sPath = "/" + std::string(nLen - 1, 'p');
        QV_DPritLogSetFileName(sPath.c_str());
        EXPECT_EQ(getLogFilePath(), sPath.substr(0, 511)) << nLen;
    }
    QV_DPritLogSetFileName("/short");
    EXPECT_STREQ(getLogFilePath(), "/short");
}

TEST_F(Log, LostLibraryDirectoryIsMadeAgainWithMode0755AndTheUmaskStays)
{
    const std::string sDir = libraryDirectory();
    QV_DPritLogSetFileName(nullptr);
    for (mode_t nMask : {mode_t{0}, mode_t{022}}) {
        fs::remove_all(sDir);
        umask(nMask);
        EXPECT_EQ(getLogFilePath(), sDir + "/Alg_debug.log");
        EXPECT_TRUE(fs::is_directory(sDir));
        EXPECT_EQ(modeOf(sDir), 0755U) << "umask " << nMask;
        EXPECT_EQ(currentUmask(), nMask);
    }
    EXPECT_FALSE(fs::exists(sDir + "/Alg_debug.log"));
    writeIni(szLogOn);
    DPrintLogToFile("t");
    EXPECT_EQ(readFile(sDir + "/Alg_debug.log"), std::string("  ") + szTime + "  t\r\n");
}

TEST_F(Log, LostLibraryDirectoryIsNotMadeForANamedFileNorWhileLoggingIsOff)
{
    const std::string sDir = libraryDirectory();
    fs::remove_all(sDir);
    EXPECT_EQ(getLogFilePath(), sDir + "/test.log");
    EXPECT_FALSE(fs::exists(sDir));
    QV_DPritLogSetFileName(nullptr);
    callAllWriters(); // the INI went with the directory
    EXPECT_FALSE(fs::exists(sDir));
    fs::create_directory(sDir);
}

TEST_F(Log, MkdirClearsTheUmaskForGoodAndMakesMode0777)
{
    const std::string sDir = libraryDirectory() + "/made";
    umask(077);
    EXPECT_EQ(mkdir_s(sDir.c_str()), 0);
    EXPECT_EQ(modeOf(sDir), 0777U);
    EXPECT_EQ(currentUmask(), 0U);

    umask(022);
    errno = 0;
    EXPECT_EQ(mkdir_s(sDir.c_str()), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(currentUmask(), 0U) << "also when the directory is there";

    errno = 0;
    EXPECT_EQ(mkdir_s((sDir + "/no/such").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mkdir_s(nullptr), -1);
    EXPECT_EQ(mkdir_s(""), -1);
    fs::remove(sDir);
}

TEST_F(Log, LibraryDirectoryHasNoTrailingSlash)
{
    char szPath[512];
    std::memset(szPath, 'x', sizeof szPath);
    getSoLocationPath(szPath);
    EXPECT_STREQ(szPath, libraryDirectory().c_str());
}

// ---- nothing depends on the log --------------------------------------------------------------------------------------

TEST_F(Log, FileThatCannotBeWrittenChangesNothing)
{
    const std::string sDir = libraryDirectory();
    fs::create_directory(sDir + "/directory.log");
    const std::set<std::string> before = filesBelow(sDir);
    const std::string aPaths[] = {
        sDir + "/directory.log",         // is a directory
        sDir + "/no/such/directory.log", // has no directory
        sDir + "/QVConfig.ini/x.log",    // has a file for a directory
        "/proc/qv-test.log",             // cannot be created, not even by root
        "/dev/full",                     // takes nothing
        std::string(511, 'n'),           // too long a name
    };
    for (const std::string &sPath : aPaths) {
        SCOPED_TRACE(sPath);
        QV_DPritLogSetFileName(sPath.c_str());
        const int nBefore = openDescriptors();
        callAllWriters();
        uint8_t aBig[3000] = {};
        DPrintDataHexToFile("big", aBig, sizeof aBig);
        char szOut[8] = {};
        EXPECT_EQ(Str_GetSplitData("ab|c", "|", szOut), 0);
        EXPECT_STREQ(szOut, "ab");
        EXPECT_EQ(openDescriptors(), nBefore);
        EXPECT_EQ(filesBelow(sDir), before);
    }
    logOn();
    DPrintLogToFile("again");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  again\r\n");
    fs::remove(sDir + "/directory.log");
}

TEST_F(Log, ReadOnlyDirectoryDropsTheLineSilently)
{
    const std::string sDir = libraryDirectory();
    const mode_t nMode = modeOf(sDir);
    const std::set<std::string> before = filesBelow(sDir);
    ASSERT_EQ(chmod(sDir.c_str(), 0555), 0);
    const bool bRoot = geteuid() == 0; // root may write anywhere
    if (bRoot) {
        ASSERT_EQ(seteuid(65534), 0);
    }
    const int32_t nOn = isWriteLog();
    callAllWriters();
    char szOut[8] = {};
    const int32_t nResult = Str_GetSplitData("ab|c", "|", szOut);
    if (bRoot) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_EQ(chmod(sDir.c_str(), nMode), 0);
    EXPECT_EQ(nOn, 1);
    EXPECT_EQ(nResult, 0);
    EXPECT_EQ(filesBelow(sDir), before);
}

TEST_F(Log, IniThatIsADirectoryMeansOff)
{
    removeIni();
    fs::create_directory(libraryDirectory() + "/QVConfig.ini");
    EXPECT_EQ(isWriteLog(), 0);
    callAllWriters();
    EXPECT_FALSE(fs::exists(libraryDirectory() + "/test.log"));
    fs::remove(libraryDirectory() + "/QVConfig.ini");
}

TEST_F(Log, ThousandLinesLeaveNoDescriptorBehind)
{
    const int nBefore = openDescriptors();
    for (int n = 0; n < 250; ++n)
        callAllWriters();
    EXPECT_EQ(openDescriptors(), nBefore);
    const std::string sLog = rawLog();
    EXPECT_EQ(std::count(sLog.begin(), sLog.end(), '\n'), 1000);
}

TEST_F(Log, WritersLeaveErrnoAsItWas)
{
    for (const std::string &sPath : {libraryDirectory() + "/test.log", std::string("/no/such/x.log")}) {
        QV_DPritLogSetFileName(sPath.c_str());
        errno = ENODEV;
        callAllWriters();
        EXPECT_EQ(errno, ENODEV) << sPath;
    }
    removeIni();
    errno = ENODEV;
    callAllWriters();
    EXPECT_EQ(errno, ENODEV) << "switched off";
}

TEST_F(Log, TwoThreadsAtOnceDoNoHarm)
{
    auto work = [] {
        for (int n = 0; n < 200; ++n)
            callAllWriters();
    };
    std::thread first(work);
    std::thread second(work);
    first.join();
    second.join();
    EXPECT_NE(rawLog(), "");
    logOn();
    DPrintLogToFile("after");
    EXPECT_EQ(rawLog(), std::string("  ") + szTime + "  after\r\n");
}

} // namespace
