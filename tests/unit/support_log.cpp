// The diagnostic log: the state at load, the four writers byte by byte, and how much of a text they take.

#include "support_log.h"

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace qvtest;

namespace {

// The untyped and typed writers without the compiler's look at the format.
void (*const pfnUntyped)(const char *, ...) = DPrintLogToFile;
void (*const pfnTyped)(int32_t, int32_t, const char *, ...) = DPrintLogToFileAddType;

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

} // namespace
