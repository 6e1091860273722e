// Cards of every kind in slots of every kind, through the library's calls.
#include "conversation.h"

#include <atomic>
#include <thread>

using namespace qvtest;

namespace {

TEST(LibraryCards, EveryKindOfSlotReachesTheCardInIt)
{
    struct Row {
        int nSlot;
        const char *pszCard;
        const char *pszAtr;
        const char *pszCommand;
        const char *pszAnswer;
    };
    constexpr Row rows[] = {
        {0, "debit-credit", szDebitCreditAtr, "00 84 00 00 04", "3A 91 5C E7 90 00"},
        {3, "purse", szPurseAtr, "00 84 00 00 04", "B7 2E 61 0F 90 00"},
        {15, "follow-up", szFollowUpAtr, "00 20 00 00", "63 C2"},
        {16, "purse", szPurseAtr, "80 5C 00 02 04", "00 00 13 88 90 00"},
        {31, "debit-credit", szDebitCreditAtr, "00 84 00 00 04", "3A 91 5C E7 90 00"},
        {255, "debit-credit", szDebitCreditAtr, "00 B2 02 0C 00", "6A 83"},
    };
    std::vector<std::string> arguments;
    for (const Row &row : rows) {
        arguments.push_back("--card");
        arguments.push_back(std::to_string(row.nSlot) + "=" + cardFile(row.pszCard));
    }
    SimBench sim(arguments);
    OpenReader reader(sim);
    ASSERT_EQ(reader.result(), 0);
    for (const Row &row : rows) {
        SCOPED_TRACE("slot " + std::to_string(row.nSlot));
        Answer atr = powerOn(row.nSlot);
        EXPECT_EQ(atr.nResult, 0);
        EXPECT_EQ(atr.sHex, row.pszAtr);
        COMM_Icc_CardReaderSetCardSlot(row.nSlot);
        Answer answer = send(row.pszCommand);
        EXPECT_EQ(answer.nResult, 0);
        EXPECT_EQ(answer.sHex, row.pszAnswer);
        EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
        EXPECT_TRUE(sim.state("slot " + std::to_string(row.nSlot))->starts_with("unpowered")) << "still powered";
    }
}

TEST(LibraryCards, FollowUpsAreDoneOnceAndOnlyForAStatusAlone)
{
    struct Row {
        const char *pszCommand;
        const char *pszAnswer;
        int nFrames; // that the reader gets
    };
    constexpr Row rows[] = {
        {"00 A4 04 00 02 3F 00", "41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 52 53 54 55 56 57 58 59 5A 90 00",
         2},
        {"00 A4 00 00 02 3F 00", "61 05", 2},
        {"00 A4 08 00 00", "44 45 41 43 54 49 56 41 54 45 44 90 00", 2},
        {"00 B2 01 0C 00", "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 90 00", 2},
        {"80 A8 00 00 02 83 00", "80 06 1C 00 10 01 02 00 90 00", 2},
        {"00 B2 02 0C 00", "6C 21", 2},
        {"00 CA 02 00 00", "6F 00", 2},
        {"00 CA 04 00 00", "01 02 03 61 04", 1},
        {"00 CA 05 00 00", "01 02 03 62 81", 1},
        {"00 CA 06 00 00", "01 02 03 6C 02", 1},
        {"00 20 00 00", "63 C2", 1},
    };
    SimBench sim({"--card", "0=" + cardFile("follow-up")});
    OpenReader reader(sim);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszCommand);
        int nBefore = std::stoi(*sim.state("frames"));
        Answer answer = send(row.pszCommand);
        EXPECT_EQ(answer.nResult, 0);
        EXPECT_EQ(answer.sHex, row.pszAnswer);
        EXPECT_EQ(std::stoi(*sim.state("frames")) - nBefore, row.nFrames);
        Bytes whole = bytes(answer.sHex);
        EXPECT_EQ(ICC_CardCmdGetErrCode(), static_cast<uint32_t>(whole[whole.size() - 2] << 8 | whole.back()));
    }
}

TEST(LibraryCards, AFollowUpThatIsNotAnsweredLeavesTheStatusWordAlone)
{
    SimBench sim({"--card", "0=" + cardFile("follow-up")});
    OpenReader reader(sim);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    ICC_CardCmdSetErrCode(0x1234);
    EXPECT_EQ(send("00 CA 03 00 00").nResult, -0x1006);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x1234U);
}

TEST(LibraryCards, ThePurseIsLoadedAndPaidFromInOrder)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    OpenReader reader(sim);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    EXPECT_EQ(send("80 52 00 00 0B 00 00 00 00 00 00 00 00 00 00 00").sHex, "69 01"); // credit without its first step
    EXPECT_EQ(send("80 50 00 02 0B 00 00 00 00 00 00 00 00 00 00 00").sHex.substr(0, 11), "00 00 13 88");
    EXPECT_EQ(send("80 52 00 00 0B 00 00 00 00 00 00 00 00 00 00 00").sHex, "83 2C 59 E6 90 00");
    EXPECT_EQ(send("80 5C 00 02 04").sHex, "00 00 3A 98 90 00");
}

TEST(LibraryCards, TheDebitCreditCardIsReadToItsRecords)
{
    SimBench sim({"--card", "0=" + cardFile("debit-credit")});
    OpenReader reader(sim);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    EXPECT_EQ(send("00 A4 04 00 08 A0 00 00 03 33 01 01 01").sHex.substr(0, 5), "6F 48");
    EXPECT_EQ(send("80 A8 00 00 02 83 00").sHex, "80 0A 1C 00 10 01 02 00 18 01 02 00 90 00");
    EXPECT_EQ(send("00 B2 02 14 00").sHex.substr(0, 5), "70 30");
    EXPECT_EQ(send("00 A4 04 00 05 A0 00 00 09 99").sHex, "6A 82");
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x6A82U);
}

TEST(LibraryCards, ACardThatGoesAndComesBackMustBePoweredAnew)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    OpenReader reader(sim);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    sim.remove(0);
    EXPECT_EQ(send("00 84 00 00 04").nResult, -0x1005);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0xAAAAU);
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), 0x1005);
    sim.insert(0, "debit-credit");
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), 0x1003);
    EXPECT_EQ(send("00 84 00 00 04").nResult, -0x1003);
    EXPECT_EQ(powerOn(0).sHex, szDebitCreditAtr);
    EXPECT_EQ(COMM_Icc_RdzCheckCardIsInSlot(0), 0);
    EXPECT_EQ(send("00 84 00 00 04").sHex, "3A 91 5C E7 90 00");
}

TEST(LibraryCards, ACardThatComesLaterIsWaitedFor)
{
    for (int nSlot : {0, 17, 255}) {
        SCOPED_TRACE("slot " + std::to_string(nSlot));
        SimBench sim;
        OpenReader reader(sim);
        Answer atr{-1, {}};
        std::thread host([&] { atr = powerOn(nSlot, 30'000, 35); });
        bool bWaits = waitUntil([&] { return sim.state("waits for a card in slot").has_value(); });
        sim.insert(nSlot, "purse");
        host.join();
        EXPECT_TRUE(bWaits);
        EXPECT_EQ(atr.nResult, 0);
        EXPECT_EQ(atr.sHex, szPurseAtr);
    }
}

TEST(LibraryCards, EmptySlotsAndMuteCardsAreTold)
{
    SimBench sim({"--card", "0=" + cardFile("mute"), "--card", "255=" + cardFile("mute")});
    OpenReader reader(sim);
    EXPECT_EQ(powerOn(0).nResult, -0x1004);
    EXPECT_EQ(powerOn(1).nResult, -0x1005);
    EXPECT_EQ(powerOn(16).nResult, -0x1005);
    EXPECT_EQ(powerOn(255).nResult, -0x3007);
    sim.remove(255);
    EXPECT_EQ(powerOn(255).nResult, -0x3001);
}

TEST(LibraryCards, TheSlotScanTellsWhatIsThere)
{
    SimBench sim;
    OpenReader reader(sim);
    COMM_Rdz_ChageReadTimeOut(60);
    int32_t nSlot = -1;
    EXPECT_EQ(DealCardSlot('1', &nSlot), 4);
    EXPECT_EQ(DealCardSlot(' ', &nSlot), 7);
    EXPECT_EQ(nSlot, 255);
    sim.insert(255, "debit-credit");
    EXPECT_EQ(DealCardSlot(' ', &nSlot), 1);
    sim.insert(0, "purse");
    EXPECT_EQ(DealCardSlot(' ', &nSlot), 2);
    EXPECT_EQ(nSlot, 0);
    sim.insert(1, "purse");
    EXPECT_EQ(DealCardSlot('!', &nSlot), 2);
    EXPECT_EQ(nSlot, 1);
}

TEST(LibraryCards, ContactFailsAndContactlessIsTakenInTheAutomaticPowerUp)
{
    SimBench sim({"--card", "255=" + cardFile("debit-credit")});
    OpenReader reader(sim);
    Dev_Rdz_SetPowerOnTime(0);
    std::array<uint8_t, 512> atr{};
    uint32_t nLen = 0;
    EXPECT_EQ(Dev_Rdz_IccPowerOn(' ', atr.data(), &nLen), 0);
    EXPECT_EQ(hex(atr.data(), nLen), szDebitCreditAtr);
    EXPECT_EQ(COMM_Icc_CardReaderGetCardSlot(), 255);
}

TEST(LibraryCards, ACancelEndsTheWaitForACard)
{
    SimBench sim;
    OpenReader reader(sim);
    Answer atr{0, {}};
    std::atomic<bool> bDone = false;
    std::thread host([&] {
        atr = powerOn(0, 60'000, 65);
        bDone = true;
    });
    EXPECT_TRUE(waitUntil([&] { return sim.state("waits for a card in slot").has_value(); }));
    EXPECT_TRUE(waitUntil([&] {
        COMM_Dev_CancelRead(); // reaches only a read that runs at that moment
        return bDone.load();
    }));
    host.join();
    EXPECT_EQ(atr.nResult, RET_PUB_CANCEL);
    sim.insert(0, "purse");
    ClearReceiveBuffer();
    EXPECT_EQ(powerOn(0).sHex, szPurseAtr);
}

TEST(LibraryCards, TheCallThatOpensAndClosesLeavesTheCardPowered)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    {
        OpenReader reader(sim);
        ASSERT_EQ(powerOn(0).nResult, 0);
    }
    Bytes command = bytes("00 84 00 00"); // 4 bytes: the call adds 00
    std::array<uint8_t, 1024> out{};
    uint32_t nLen = 0;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand(sim.path().c_str(), 1, nullptr, 9600, "1", 4, command.data(), &nLen, out.data()),
              0);
    EXPECT_EQ(hex(out.data(), nLen), "6D 00"); // the card knows no challenge of that length
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_TRUE(sim.state("slot 0")->starts_with("powered"));
}

TEST(LibraryCards, NoDescriptorIsLeft)
{
    SimBench sim({"--card", "0=" + cardFile("purse")});
    int nBefore = openDescriptors();
    for (int i = 0; i < 3; ++i) {
        OpenReader reader(sim);
        EXPECT_EQ(powerOn(0).nResult, 0);
        EXPECT_EQ(powerOn(5).nResult, -0x1005);
    }
    EXPECT_EQ(openDescriptors(), nBefore);
}

} // namespace
