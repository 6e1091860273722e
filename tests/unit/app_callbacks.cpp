// The callbacks for a kernel, on a reader: what each does while it is switched on, and that it does nothing, with a
// success, while it is switched off.

#include "app_log.h"
#include "open_reader.h"

#include "qvreader/icapp.h"

#include <cstring>

using namespace qvtest;

namespace {

const StCallBackFunc s_flagsAtLoad = g_stCallBackFunc;
constexpr StCallBackFunc s_allOn = {1, 1, 1, 1, 1};

// What a callback says when it is switched off.
std::string ended(const std::string &sName)
{
    return appLine("**************[" + sName + "] End   *********************** ");
}

template <typename Base> class Callbacks : public Base {
  protected:
    void SetUp() override
    {
        Base::SetUp();
        g_stCallBackFunc = s_allOn;
        stCardReader.nCardSlot = 7;
        m_atr.assign(600, 0xC5);
        m_nAtr = 0xC5C5;
    }
    void TearDown() override
    {
        g_stCallBackFunc = s_allOn;
        Base::TearDown();
    }
    std::string atr() const { return hex(std::span(m_atr).first(m_nAtr)); }

    Bytes m_atr;
    uint32_t m_nAtr = 0;
};

class CallbacksOnClosed : public Callbacks<ClosedReader> {};
class CallbacksOnOpen : public Callbacks<OpenReader> {};

TEST(CallbacksAtLoad, AllAreOn)
{
    static_assert(sizeof(StCallBackFunc) == 20);
    EXPECT_EQ(std::memcmp(&s_flagsAtLoad, &s_allOn, sizeof s_allOn), 0);
}

// ---- opening and closing ------------------------------------------------------------------------------------------

TEST_F(CallbacksOnClosed, OpeningOpensTheReader)
{
    g_stCallBackFunc = {1, 0, 0, 0, 0};
    logOn();
    EXPECT_EQ(DevOpenPort(path(), nullptr, 2, 9, 38400), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevOpenPort] Start"), line("[Dev_Rdz_Ic_OpenPort] Start ")}));
    EXPECT_GE(g_AuxFd, 0);
    EXPECT_EQ(g_sParam.stParam.nTermType, 2U);
    EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(CallbacksOnClosed, TheParameterIsTheSwitchBoxsPort)
{
    m_peer->expect("1B 25 4B 1B 24 49 34");
    EXPECT_EQ(DevOpenPort(path(), "K", 1, 0, 9600), 0);
    EXPECT_EQ(g_useBpBox, 1);
}

TEST_F(CallbacksOnClosed, AFailedOpeningIsTheReaders)
{
    EXPECT_EQ(DevOpenPort("/dev/nowhere", nullptr, 1, 0, 9600), -51);
    EXPECT_EQ(DevOpenPort("nothing", nullptr, 1, 0, 9600), -2);
    EXPECT_EQ(DevOpenPort(nullptr, nullptr, 1, 0, 9600), -2);
    EXPECT_EQ(DevOpenPort("PCSC", nullptr, 1, 0, 9600), -50);
}

TEST_F(CallbacksOnClosed, OpeningThatIsOffDoesNothing)
{
    g_stCallBackFunc = {0, 1, 1, 1, 1};
    logOn();
    EXPECT_EQ(DevOpenPort(path(), nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(logWithoutTime(), appLine("[DevOpenPort] Start") + ended("DevOpenPort"));
    EXPECT_EQ(g_AuxFd, -2);
    EXPECT_EQ(DevOpenPort(nullptr, nullptr, 1, 0, 9600), 0);
}

TEST_F(CallbacksOnOpen, ClosingClosesTheReader)
{
    g_stCallBackFunc = {0, 1, 0, 0, 0};
    logOn();
    EXPECT_EQ(DevClosePort(), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevClosePort] Start"), line("===>[Dev_Rdz_Ic_ClosePort] Start ")}));
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(CallbacksOnOpen, ClosingThatIsOffDoesNothing)
{
    g_stCallBackFunc = {1, 0, 1, 1, 1};
    logOn();
    EXPECT_EQ(DevClosePort(), 0);
    EXPECT_EQ(logWithoutTime(), appLine("[DevClosePort] Start") + ended("DevClosePort"));
    EXPECT_GE(g_AuxFd, 0);
}

TEST_F(CallbacksOnOpen, TheHostsCloseAsksNoFlag)
{
    g_stCallBackFunc = {};
    EXPECT_EQ(CloseDev(), 0);
    EXPECT_EQ(g_AuxFd, -2);
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(CloseDev(), -50);
    g_stCallBackFunc.nClose = 1;
    EXPECT_EQ(DevClosePort(), -50);
}

// ---- power --------------------------------------------------------------------------------------------------------

TEST_F(CallbacksOnOpen, PoweringUpGoesByTheCardType)
{
    g_stCallBackFunc = {0, 0, 1, 0, 0};
    g_nPowerOnTimeout = 3;
    answer("32 22 0B B8 00", 0, "3B 65 00");
    logOn();
    EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevPowerOn] Start"), line("[Dev_Rdz_IccPowerOn] Start icFlag = 1")}));
    EXPECT_EQ(atr(), "3B 65 00");
    EXPECT_EQ(stCardReader.nCardSlot, 0);

    answer("32 24 0B B8", 0, "50 01");
    EXPECT_EQ(DevPowerOn('2', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(atr(), "50 01");
    EXPECT_EQ(stCardReader.nCardSlot, 255);

    answer("32 22 0B B8 00", 0x1003);
    EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), -0x1003);
}

TEST_F(CallbacksOnOpen, PoweringUpASlotLeavesTheCurrentOne)
{
    g_stCallBackFunc = {0, 0, 1, 0, 0};
    g_nPowerOnTimeout = 2;
    answer("32 22 07 D0 11", 0, "3B 9F");
    logOn();
    EXPECT_EQ(DevPowerOnSlot(17, m_atr.data(), &m_nAtr), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevPowerOnSlot] Start")}));
    EXPECT_EQ(atr(), "3B 9F");
    EXPECT_EQ(stCardReader.nCardSlot, 7);

    answer("32 22 07 D0 02", 0x1004);
    EXPECT_EQ(DevPowerOnSlot(2, m_atr.data(), &m_nAtr), -0x1004);
    EXPECT_EQ(stCardReader.nCardSlot, 7);
}

TEST_F(CallbacksOnOpen, PoweringUpThatIsOffDoesNothingAndSaysNoMore)
{
    g_stCallBackFunc = {1, 1, 0, 1, 1};
    logOn();
    EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(DevPowerOnSlot(17, m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(logWithoutTime(), appLine("[DevPowerOn] Start") + appLine("[DevPowerOnSlot] Start"));
    EXPECT_EQ(m_nAtr, 0xC5C5U);
    EXPECT_EQ(m_atr, Bytes(600, 0xC5));
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(CallbacksOnOpen, PoweringDownTakesTheCurrentSlot)
{
    g_stCallBackFunc = {0, 0, 0, 1, 0};
    answer("32 23 07", 0);
    logOn();
    EXPECT_EQ(DevPowerOff(), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevPowerOff] Start")}));
    stCardReader.nCardSlot = 255;
    answer("32 25 00 00", 0x1003);
    EXPECT_EQ(DevPowerOff(), 0);
    m_peer->expect(commandFrame("32 25 00 00")).reply("02 03");
    EXPECT_EQ(DevPowerOff(), -4);
}

TEST_F(CallbacksOnOpen, PoweringDownASlotLeavesTheCurrentOne)
{
    g_stCallBackFunc = {0, 0, 0, 1, 0};
    answer("32 23 11", 0);
    logOn();
    EXPECT_EQ(DevPowerOffSlot(17), 0);
    EXPECT_TRUE(wroteLines({appLine("[DevPowerOffSlot] Start")}));
    EXPECT_EQ(stCardReader.nCardSlot, 7);
    stCardReader.nReaderMode = 1;
    EXPECT_EQ(DevPowerOffSlot(17), -50);
    EXPECT_EQ(DevPowerOff(), -50);
}

TEST_F(CallbacksOnOpen, PoweringDownThatIsOffDoesNothing)
{
    g_stCallBackFunc = {1, 1, 1, 0, 1};
    logOn();
    EXPECT_EQ(DevPowerOff(), 0);
    EXPECT_EQ(DevPowerOffSlot(17), 0);
    EXPECT_EQ(logWithoutTime(), appLine("[DevPowerOff] Start") + ended("DevPowerOff") +
                                    appLine("[DevPowerOffSlot] Start") + ended("DevPowerOffSlot"));
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(CallbacksOnClosed, AnyFlagButNoughtIsOn)
{
    for (int32_t nFlag : {2, -1, INT32_MIN, 0x100}) {
        SCOPED_TRACE(nFlag);
        g_stCallBackFunc = {nFlag, nFlag, nFlag, nFlag, nFlag};
        stCardReader.nCardSlot = 7;
        g_nPowerOnTimeout = 3;
        EXPECT_EQ(DevOpenPort(path(), nullptr, 1, 0, 9600), 0);
        EXPECT_GE(g_AuxFd, 0);
        answer("32 22 0B B8 11", 0, "3B 9F");
        EXPECT_EQ(DevPowerOnSlot(17, m_atr.data(), &m_nAtr), 0);
        answer("32 23 11", 0);
        EXPECT_EQ(DevPowerOffSlot(17), 0);
        answer("32 23 07", 0);
        EXPECT_EQ(DevPowerOff(), 0);
        answer("32 22 0B B8 00", 0, "3B 65");
        EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), 0);
        EXPECT_EQ(QV_APP_SetDevPowerOnTimeout(5), 0);
        EXPECT_EQ(g_nPowerOnTimeout, 5U);
        EXPECT_EQ(DevClosePort(), 0);
        EXPECT_EQ(g_AuxFd, -2);
        m_peer->finish();
        if (HasFailure())
            return; // a reader that is out of step keeps the next calls waiting
    }
}

// ---- exchange -----------------------------------------------------------------------------------------------------

TEST_F(CallbacksOnOpen, TheExchangeAsksNoFlag)
{
    for (const StCallBackFunc &flags : {StCallBackFunc{}, s_allOn}) {
        SCOPED_TRACE(flags.nCommRW);
        g_stCallBackFunc = flags;
        stCardReader.nCardSlot = 7;
        answer("32 26 07 00 84 00 00 02", 0, "11 22 90 00");
        logOn();
        const Bytes command = bytes("00 84 00 00 02");
        EXPECT_EQ(DevSendCmd(command.data(), 5, m_atr.data(), &m_nAtr), 0);
        EXPECT_TRUE(wroteLines({appLine("[DevSendCmd] Start"), line("【ICC_CardCmdVisitCOS】 Start ")}));
        EXPECT_EQ(atr(), "11 22 90 00");

        answer("32 26 FF 00 84 00 00 02", 0, "6A 82");
        logOn();
        EXPECT_EQ(DevSendCmdSlot(255, command.data(), 5, m_atr.data(), &m_nAtr), 0);
        EXPECT_TRUE(wroteLines({appLine("[DevSendCmdSlot] Start"), line("stCardReader.nCardSlot = ff"),
                                line("【ICC_CardCmdVisitCOS】 Start ")}));
        EXPECT_EQ(atr(), "6A 82");
        EXPECT_EQ(stCardReader.nCardSlot, 255);
        EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x6A82U);
    }
}

TEST_F(CallbacksOnOpen, TheExchangeFollowsUp)
{
    answer("32 26 07 00 A4 04 00", 0, "61 02");
    answer("32 26 07 00 C0 00 00 02", 0, "AA BB 90 00");
    EXPECT_EQ(DevSendCmd(bytes("00 A4 04 00").data(), 4, m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(atr(), "AA BB 90 00");
}

TEST_F(CallbacksOnOpen, AFailedExchangeIsTheReaders)
{
    answer("32 26 10 00 84 00 00 02", 0x1003);
    EXPECT_EQ(DevSendCmdSlot(16, bytes("00 84 00 00 02").data(), 5, m_atr.data(), &m_nAtr), -0x1003);
    EXPECT_EQ(stCardReader.nCardSlot, 16);
    EXPECT_EQ(m_nAtr, 0xC5C5U);
    EXPECT_LT(DevSendCmd(nullptr, 5, m_atr.data(), &m_nAtr), 0);
    EXPECT_LT(DevSendCmd(bytes("00").data(), 1, nullptr, &m_nAtr), 0);
    EXPECT_LT(DevSendCmd(bytes("00").data(), 1, m_atr.data(), nullptr), 0);
}

// ---- as the tables say --------------------------------------------------------------------------------------------

TEST_F(CallbacksOnOpen, AHostsTableWithoutPoweringUpSwitchesOnlyThatOff)
{
    void *table[10];
    std::fill(std::begin(table), std::end(table), &table);
    table[3] = table[4] = nullptr;
    EXPECT_EQ(QV_APP_SetFuncP(table), -1); // no kernel takes it
    EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(DevPowerOnSlot(0, m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(m_nAtr, 0xC5C5U);
    EXPECT_EQ(m_peer->wire(), "");
    answer("32 23 07", 0);
    EXPECT_EQ(DevPowerOff(), 0);
    EXPECT_EQ(DevClosePort(), 0);
    EXPECT_EQ(g_AuxFd, -2);
}

TEST_F(CallbacksOnOpen, AnyTypeButTheCharacter0LeavesOnlyTheExchange)
{
    EXPECT_EQ(QV_APP_SetEmvFunc('1'), -1);
    EXPECT_EQ(DevOpenPort("/dev/nowhere", nullptr, 1, 0, 9600), 0);
    EXPECT_EQ(DevPowerOn('1', m_atr.data(), &m_nAtr), 0);
    EXPECT_EQ(DevPowerOff(), 0);
    EXPECT_EQ(DevClosePort(), 0);
    EXPECT_GE(g_AuxFd, 0);
    EXPECT_EQ(m_peer->wire(), "");
    answer("32 26 07 00 84 00 00 02", 0, "11 22 90 00");
    EXPECT_EQ(DevSendCmd(bytes("00 84 00 00 02").data(), 5, m_atr.data(), &m_nAtr), 0);
    m_peer->finish();
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), -1);
    answer("32 23 07", 0);
    EXPECT_EQ(DevPowerOff(), 0);
}

} // namespace
