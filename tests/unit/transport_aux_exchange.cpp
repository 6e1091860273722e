// The aux port of a terminal: writes between prefix and suffix, and the plain port's reads.

#include "aux_terminal.h"

#include "qvreader/support.h"

#include <cerrno>
#include <cstring>
#include <thread>

using namespace qvtest;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : 1;
}

int32_t put(std::string_view sHex)
{
    const Bytes data = bytes(sHex);
    return COMM_Com_WriteLinuxAux(data.data(), static_cast<int32_t>(data.size()));
}

// ---- write --------------------------------------------------------------------------------------------------------

TEST_F(AuxTerminal, AWriteIsWrappedInTheFamilysPrefixAndSuffixByWritesOfTheirOwn)
{
    for (const FamilyRow &row : familyRows) {
        SCOPED_TRACE(row.nTermType);
        open(row.nTermType);
        EXPECT_EQ(put("41 42"), 2);
        std::vector<std::string> expected = {row.pszPrefix, "41 42", row.pszSuffix};
        std::erase(expected, "");
        EXPECT_THAT(writes(), ElementsAreArray(expected));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, AGgGetsThreeWrites)
{
    open(3);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(textBytes("AB").data(), 2), 2);
    EXPECT_THAT(writes(), ElementsAre("1B 5B 2F 7C", "41 42", "7C"));
}

TEST_F(AuxTerminal, GwAndWyseGetTheDataAlone)
{
    for (uint32_t nTermType : {2U, 5U}) {
        open(nTermType);
        EXPECT_EQ(put("02 30 30 03"), 4);
        EXPECT_THAT(writes(), ElementsAre("02 30 30 03"));
        EXPECT_EQ(COMM_Com_CloseLinux(), 0);
    }
}

TEST_F(AuxTerminal, EveryByteOfTheDataGoesOutAsItIs)
{
    Bytes data(256);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i);
    cook();
    open(3);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(data.data(), 256), 256);
    EXPECT_EQ(peer().wire(), std::string(szGgOpen9600) + " " + szGgPrefix + " " + hex(data) + " " + szGgSuffix);
}

TEST_F(AuxTerminal, EachWriteIsWrappedAnew)
{
    open(1);
    EXPECT_EQ(put("31"), 1);
    EXPECT_EQ(put("32 33"), 2);
    EXPECT_THAT(writes(), ElementsAre(szStarPrefix, "31", szStarSuffix, szStarPrefix, "32 33", szStarSuffix));
}

TEST_F(AuxTerminal, AWriteOfNothingIsRefusedBeforeThePrefix)
{
    open(1);
    const uint8_t one[] = {0x31};
    EXPECT_EQ(COMM_Com_WriteLinuxAux(nullptr, 1), -2);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(one, 0), -2);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(one, -1), -2);
    EXPECT_EQ(COMM_Com_WriteLinuxAux(one, INT32_MIN), -2);
    EXPECT_THAT(writes(), IsEmpty());
}

TEST_F(AuxTerminal, AWriteWithoutAPortIsRefused)
{
    open(1);
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    clearCalls();
    EXPECT_EQ(put("31"), -2);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(AuxTerminal, EveryPartIsWrittenToItsEndThoughTheTerminalTakesLittleAtATime)
{
    open(3);
    scriptWrites({3, 1, 1, 2, 1});
    EXPECT_EQ(put("41 42 43"), 3);
    EXPECT_THAT(writes(), ElementsAre("1B 5B 2F", "7C", "41", "42 43", "7C"));
}

TEST_F(AuxTerminal, TheResultIsThatOfTheDataWhateverBecomesOfItsWrapping)
{
    open(3);
    scriptWrites({-EIO, 8, -EIO});
    EXPECT_EQ(put("41 42 43"), 3);
    EXPECT_THAT(writes(), ElementsAre("41 42 43"));

    clearCalls();
    scriptWrites({8, 2, -EIO});
    EXPECT_EQ(put("41 42 43"), 2) << "what was written before the failure";
    EXPECT_THAT(writes(), ElementsAre(szGgPrefix, "41 42", szGgSuffix));

    clearCalls();
    scriptWrites({8, -EIO});
    EXPECT_EQ(put("41 42 43"), 0);
    EXPECT_THAT(writes(), ElementsAre(szGgPrefix, szGgSuffix)) << "the terminal is not left waiting for a suffix";
}

TEST_F(AuxTerminal, TheWrappingIsWhatTheStateHoldsAtTheWrite)
{
    open(2);
    std::memcpy(g_AuxOp.szPrefix, "<<<", 3);
    g_AuxOp.nPrefixLen = 2;
    EXPECT_EQ(put("41"), 1);
    EXPECT_THAT(writes(), ElementsAre("3C 3C", "41"));

    clearCalls();
    g_AuxOp.nPrefixLen = 0;
    std::memcpy(g_AuxOp.szSuffix, ">>", 2);
    g_AuxOp.nSuffixLen = 1;
    EXPECT_EQ(put("41"), 1);
    EXPECT_THAT(writes(), ElementsAre("41", "3E"));
}

TEST_F(AuxTerminal, ImpossibleLengthsInTheStateReadNothingOutsideItsBuffers)
{
    open(2);
    g_AuxOp.nPrefixLen = -5;
    g_AuxOp.nSuffixLen = INT32_MIN;
    EXPECT_EQ(put("41"), 1);
    EXPECT_THAT(writes(), ElementsAre("41"));

    std::memset(g_AuxOp.szSuffix, '.', sizeof g_AuxOp.szSuffix);
    g_AuxOp.nPrefixLen = 0;
    g_AuxOp.nSuffixLen = INT32_MAX;
    clearCalls();
    // All of the suffix in one go would have to be read by the terminal first.
    scriptWrites({1, 1, -EIO});
    EXPECT_EQ(put("41"), 1);
    EXPECT_THAT(calls(), ElementsAre("write 41", "write 2E", testing::StartsWith("failed write 2E")));
    EXPECT_EQ(calls()[2].size(), std::strlen("failed write ") + 4095 * 3 - 1);
}

TEST_F(AuxTerminal, AWriteIsLoggedByThePlainPort)
{
    open(3);
    const std::string sFd = std::to_string(g_AuxFd);
    logOn();
    EXPECT_EQ(put("41 42"), 2);
    EXPECT_THAT(logTexts(),
                ElementsAre("WriteBlock  fd = " + sFd + " ", "WriteBlock  End ", "[COMM_Com_WriteLinux] Start ",
                            " g_AuxFd = " + sFd + " ", " pInData = AB ", " nLen = 2 ", "COMM_Com_WriteLinux nLen = 2 ",
                            "41", "42", "WriteBlock  fd = " + sFd + " ", "WriteBlock  End ",
                            "WriteBlock  fd = " + sFd + " ", "WriteBlock  End "));
}

// ---- read ---------------------------------------------------------------------------------------------------------

TEST_F(AuxTerminal, ARepliesBytesComePlain)
{
    peer().expect(std::string(szStarOpen9600) + szStarPrefix + "31 32" + szStarSuffix).reply("02 1B 5B 7C 03");
    open(1);
    EXPECT_EQ(put("31 32"), 2);
    uint8_t in[8];
    std::memset(in, 0xC5, sizeof in);
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 7, 10, endsWithEtx), 5);
    EXPECT_EQ(hex(in), "02 1B 5B 7C 03 C5 C5 C5");
    EXPECT_THAT(writes(), ElementsAre(szStarPrefix, "31 32", szStarSuffix)) << "a read sends nothing";
    peer().finish();
}

TEST_F(AuxTerminal, AReadIsThePlainPortsRead)
{
    open(5);
    uint8_t in[4] = {};
    peer().send("41 42 43 44");
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 4, 10, nullptr), 4) << "a full buffer";
    EXPECT_EQ(hex(in), "41 42 43 44");
    EXPECT_EQ(COMM_Com_ReadLinuxAux(nullptr, 4, 10, nullptr), -2);
    logOn();
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 4, 1, nullptr), -56);
    EXPECT_TRUE(logged({"[COMM_Com_ReadLinux ] Start  ", "[COMM_Com_ReadLinux ] End nRetVal = -56 "}));
    EXPECT_EQ(COMM_Com_CloseLinuxAux(0), 0);
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 4, 10, nullptr), -2) << "no port";
}

TEST_F(AuxTerminal, ALeadingZeroIsDroppedOnAnIdleLine)
{
    open(1);
    peer().send("00 41");
    int32_t nSeen = 0;
    static int32_t *s_pnSeen;
    s_pnSeen = &nSeen;
    uint8_t in[4] = {};
    const EndConditionFn oneLeft = [](const uint8_t *, int32_t nLen) {
        *s_pnSeen = std::max(*s_pnSeen, nLen);
        return *s_pnSeen == 2 && nLen == 1 ? 0 : 1;
    };
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 4, 10, oneLeft), 1);
    EXPECT_EQ(in[0], 0x41);
}

TEST_F(AuxTerminal, AReadIsEndedByACancelFromAnotherThread)
{
    open(1);
    static bool s_bAsked;
    s_bAsked = false;
    const EndConditionFn cancelOnce = [](const uint8_t *, int32_t) {
        if (!s_bAsked)
            std::thread([] { EXPECT_EQ(COMM_Com_CancelLinuxRead(), 0); }).join();
        s_bAsked = true;
        return 1;
    };
    uint8_t in[4];
    EXPECT_EQ(COMM_Com_ReadLinuxAux(in, 4, 30, cancelOnce), -57);
}

} // namespace
