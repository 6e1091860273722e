// LEDs, buzzer, device record, detection of any card: open, act, close; a failed act leaves the port open.

#include "app_session.h"

#include <functional>

using namespace qvtest;

namespace {

struct Act {
    const char *pszName;
    std::function<int32_t(const char *)> call; // of a port
    std::string sParameter;
    std::string sCommand; // frame
    std::string sReply;   // frame
    std::string sDamaged; // reply that no call can read
    int32_t nFailure;
    std::string sDone, sFailed; // log
};

class SessionActs : public Session {
  protected:
    static inline char s_szInfo[1024];

    static std::string frame(std::string_view sData) { return commandFrame(sData, 0x01, 0x04); }
    static std::string reply(std::string_view sBody) { return replyFrame(0, sBody, 0x01, 0x04); }

    const std::vector<Act> m_acts = {
        {"LED", [](const char *p) { return QV_APP_SetLEDStatu(p, "K", 19200, 5); }, "K", frame("11 11 05"), reply(""),
         "01 04", 1, "nRET 0 ", "nRET 1 "},
        {"two LED bytes", [](const char *p) { return QV_APP_SetLEDStatuEx(p, 19200, 0x0A, 0xB2); }, "",
         frame("11 14 0A B2"), reply(""), "01 04", 1, "nRET 0 ", "nRET 1 "},
        {"buzzer", [](const char *p) { return QV_APP_SetBeepStatu(p, "K", 19200, 0x1234, 0x56); }, "K",
         frame("80 15 12 34 56"), reply("00"), "01 04", -1, "nRET 0 ", "nRET -1 "},
        {"device record",
         [](const char *p) { return QV_APP_GetDeviceInfo(p, "K", 19200, reinterpret_cast<uint8_t *>(s_szInfo)); }, "",
         frame("11 01"), reply("41 42"), "01 04", -1, "nRET 0 ", "nRET -1 "},
        // Nothing but its kind is wanted of the card.
        {"any card", [](const char *p) { return QV_APP_DetectMulCard(p, "K", 19200, 10, nullptr, nullptr) - 2; }, "K",
         commandFrame("32 30 00 08"), replyFrame(0, "02"), "02 03", -6, "nRET 0 , PSTATU=2", ""},
    };
    void expectAct(const Act &act) { m_peer->expect(act.sCommand).reply(act.sReply); }
    void expectDamage(const Act &act) { m_peer->expect(act.sCommand).reply(act.sDamaged); }
    // Ends a row: what stands open is closed.
    void next()
    {
        m_peer->finish();
        Dev_Rdz_Ic_ClosePort();
        s_nOpenResult = 0;
    }
};

TEST_F(SessionActs, EachOpensActsAndCloses)
{
    fillTable();
    s_bReader = s_bLogsCalls = true;
    for (const Act &act : m_acts) {
        SCOPED_TRACE(act.pszName);
        expectAct(act);
        logOn();
        EXPECT_EQ(act.call(path()), 0);
        EXPECT_EQ(order(), Order({opened(path(), act.sParameter, 19200), "close"}));
        EXPECT_TRUE(s_bParameter);
        EXPECT_TRUE(wroteLines({appLine(act.sDone), closeLine()}));
        EXPECT_FALSE(portOpen());
        next();
    }
    EXPECT_EQ(std::string(s_szInfo, 3), std::string("AB\0", 3));
}

TEST_F(SessionActs, AFailedActLeavesThePortOpen)
{
    for (bool bTable : {true, false}) {
        if (bTable)
            fillTable();
        else
            clearTable();
        s_bReader = true;
        for (const Act &act : m_acts) {
            SCOPED_TRACE(act.pszName);
            if (!bTable && !act.sParameter.empty()) {
                // Without a table the parameter reaches the switch box.
                m_peer->expect("1B 25 4B 1B 24 49 34");
            }
            expectDamage(act);
            logOn();
            EXPECT_EQ(act.call(path()), act.nFailure);
            EXPECT_EQ(order(), bTable ? Order({opened(path(), act.sParameter, 19200)}) : Order{});
            EXPECT_TRUE(portOpen());
            if (!act.sFailed.empty()) {
                EXPECT_TRUE(wroteLines({appLine(act.sFailed)}));
            }
            next();
        }
    }
}

TEST_F(SessionActs, ANegativeOpeningEndsEach)
{
    fillTable();
    for (int32_t nResult : {-51, -1, INT32_MIN + 2}) {
        s_nOpenResult = nResult;
        for (const Act &act : m_acts) {
            SCOPED_TRACE(act.pszName);
            // The last row's call takes 2 off.
            const int32_t nWanted = act.sFailed.empty() ? nResult - 2 : nResult;
            logOn();
            EXPECT_EQ(act.call("COM9"), nWanted);
            EXPECT_EQ(order(), Order{opened("COM9", act.sParameter, 19200)});
            EXPECT_EQ(rawLog().find("nRET"), std::string::npos);
        }
    }
}

TEST_F(SessionActs, APositiveOpeningGoesOn)
{
    fillTable();
    s_bReader = true;
    for (const Act &act : m_acts) {
        SCOPED_TRACE(act.pszName);
        s_nOpenResult = 7;
        expectAct(act);
        EXPECT_EQ(act.call(path()), 0);
        EXPECT_EQ(order(), Order({opened(path(), act.sParameter, 19200), "close"}));
        next();
    }
}

TEST_F(SessionActs, ATableWithoutOpeningAndClosingActsOnWhatIsOpen)
{
    fillTable();
    stICOp[nOpenSlot] = stICOp[nCloseSlot] = nullptr;
    for (const Act &act : m_acts) {
        SCOPED_TRACE(act.pszName);
        open();
        expectAct(act);
        EXPECT_EQ(act.call(path()), 0);
        EXPECT_EQ(order(), Order{});
        EXPECT_TRUE(portOpen());
        next();
    }
}

TEST_F(SessionActs, WithoutATableEachUsesTheReaderWhateverTheFlags)
{
    g_stCallBackFunc = {};
    for (const Act &act : m_acts) {
        SCOPED_TRACE(act.pszName);
        if (!act.sParameter.empty())
            m_peer->expect("1B 25 4B 1B 24 49 34");
        expectAct(act);
        EXPECT_EQ(act.call(path()), 0);
        EXPECT_FALSE(portOpen());
        EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
        EXPECT_EQ(g_sParam.stParam.nBaud, 19200U);
        next();
    }
}

TEST_F(SessionActs, AMissingArgumentOpensNothing)
{
    fillTable();
    EXPECT_EQ(QV_APP_SetLEDStatu(nullptr, "", 9600, 1), -2);
    EXPECT_EQ(QV_APP_SetLEDStatuEx(nullptr, 9600, 1, 1), -2);
    EXPECT_EQ(QV_APP_SetBeepStatu(nullptr, "", 9600, 1, 1), -2);
    EXPECT_EQ(QV_APP_GetDeviceInfo(nullptr, "", 9600, reinterpret_cast<uint8_t *>(s_szInfo)), -2);
    EXPECT_EQ(QV_APP_GetDeviceInfo("COM9", "", 9600, nullptr), -2);
    EXPECT_EQ(QV_APP_DetectMulCard(nullptr, "", 9600, 10, s_szInfo, s_szInfo), -2);
    EXPECT_EQ(order(), Order{});
}

TEST_F(SessionActs, TheLedByteIsLogged)
{
    fillTable();
    s_bReader = true;
    for (const char *pszByte : {"0a", "ff"}) {
        const auto ucState = bytes(pszByte)[0];
        m_peer->expect(frame("11 14 " + std::string(pszByte) + " 01")).reply(reply(""));
        logOn();
        EXPECT_EQ(QV_APP_SetLEDStatuEx(path(), 9600, ucState, 1), 0);
        EXPECT_TRUE(wroteLines({appLine("cLedStatu = " + std::string(pszByte))}));
    }
}

// ---- any card -----------------------------------------------------------------------------------------------------

TEST_F(SessionActs, TheKindOfTheCardIsTheResult)
{
    fillTable();
    s_bReader = true;
    for (int32_t nKind : {1, 2, 4}) {
        m_peer->expect(commandFrame("32 30 00 03")).reply(replyFrame(0, "0" + std::to_string(nKind)));
        EXPECT_EQ(QV_APP_DetectMulCard(path(), "", 9600, 5, nullptr, nullptr), nKind);
    }
    char szTrack2[512] = {}, szTrack3[512] = {};
    const Bytes tracks = textBytes("\x03"
                                   "1234=5678|9999??");
    m_peer->expect(commandFrame("32 30 00 03")).reply(replyFrame(0, hex(tracks)));
    logOn();
    EXPECT_EQ(QV_APP_DetectMulCard(path(), "", 9600, 5, szTrack2, szTrack3), 3);
    EXPECT_STREQ(szTrack2, "1234=5678");
    EXPECT_STREQ(szTrack3, "9999");
    EXPECT_TRUE(wroteLines({appLine("nRET 0 , PSTATU=3")}));
    const std::string sLog = rawLog();
    EXPECT_EQ(sLog.find("nRET"), sLog.rfind("nRET")) << "one line with the result\n" << sLog;
}

TEST_F(SessionActs, AnUnknownCardLeavesThePortOpen)
{
    fillTable();
    s_bReader = true;
    m_peer->expect(commandFrame("32 30 00 03")).reply(replyFrame(0, "09"));
    logOn();
    EXPECT_EQ(QV_APP_DetectMulCard(path(), "", 9600, 5, nullptr, nullptr), -4);
    EXPECT_TRUE(wroteLines({appLine("nRET -4 , PSTATU=9")}));
    EXPECT_EQ(order(), Order{opened(path())});
}

} // namespace
