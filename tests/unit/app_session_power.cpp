// Opening, closing, powering up and down through a device table: which of its functions are called, in which order,
// with what, and which result the host gets.

#include "app_session.h"

using namespace qvtest;

namespace {

class SessionPower : public Session {
  protected:
    void SetUp() override
    {
        Session::SetUp();
        fillTable();
    }
    int32_t powerUp(const char *pszType, const char *pszPort = nullptr, const char *pszParameter = "A")
    {
        m_nAtr = 0xC5C5;
        m_sAtr.assign(1100, '\x05');
        return QV_APP_PowerOn(pszPort == nullptr ? path() : pszPort, pszParameter, 38400, pszType, &m_nAtr,
                              m_sAtr.data());
    }
    // The text, and nothing but zeros or what stood there before behind it.
    std::string atr() const
    {
        const std::string sText(m_sAtr.c_str());
        return m_sAtr.find_first_not_of(std::string("\0\x05", 2), sText.size()) == std::string::npos
                   ? sText
                   : "more than a text: " + hex(m_sAtr.data(), m_sAtr.size());
    }

    uint32_t m_nAtr = 0;
    std::string m_sAtr;
};

// ---- opening and closing ------------------------------------------------------------------------------------------

TEST_F(SessionPower, OpeningPassesTheResultOn)
{
    for (int32_t nResult : {0, -51, 7}) {
        s_nOpenResult = nResult;
        EXPECT_EQ(QV_APP_OpenPort("COM9", "B", 19200), nResult);
        EXPECT_EQ(order(), Order{opened("COM9", "B", 19200)});
    }
    s_bParameter = false;
    EXPECT_EQ(QV_APP_OpenPort("COM9", nullptr, -1), 7);
    EXPECT_TRUE(s_bParameter); // an empty one
    EXPECT_EQ(order(), Order{opened("COM9", "", -1)});
    EXPECT_EQ(QV_APP_OpenPort(nullptr, "B", 9600), -2);
    EXPECT_EQ(order(), Order{});
}

TEST_F(SessionPower, ClosingPassesTheResultOn)
{
    for (int32_t nResult : {0, -50, 7}) {
        s_nCloseResult = nResult;
        EXPECT_EQ(QV_APP_ClosePort("COM9", "B", 19200), nResult);
        EXPECT_EQ(QV_APP_ClosePort(nullptr, nullptr, 0), nResult);
        EXPECT_EQ(order(), Order({"close", "close"}));
    }
}

TEST_F(SessionPower, ATableWithoutOpeningOrClosingDoesNothing)
{
    stICOp[nOpenSlot] = nullptr;
    EXPECT_EQ(QV_APP_OpenPort(path(), "", 9600), 0);
    EXPECT_FALSE(portOpen());
    EXPECT_EQ(order(), Order{});

    open();
    stICOp[nCloseSlot] = nullptr;
    EXPECT_EQ(QV_APP_ClosePort(path(), "", 9600), 0);
    EXPECT_TRUE(portOpen());
    EXPECT_EQ(order(), Order{});
}

// ---- powering up --------------------------------------------------------------------------------------------------

TEST_F(SessionPower, TheAtrIsUpperCaseTextOfTwiceItsLength)
{
    s_bReader = s_bLogsCalls = true;
    answer("32 22 00 00 00", 0, "3B 6f ab cd 09 00");
    logOn();
    EXPECT_EQ(powerUp("1"), 0);
    EXPECT_EQ(order(), Order({opened(path(), "A", 38400), "close"}));
    EXPECT_EQ(atr(), "3B6FABCD0900");
    EXPECT_EQ(m_nAtr, 12U);
    EXPECT_TRUE(wroteLines({appLine("uszAtr = 3B6FABCD0900"), closeLine()}));
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(SessionPower, TheFirstCharacterChoosesTheCard)
{
    s_bReader = true;
    g_nPowerOnTimeout = 3;
    answer("32 24 0B B8", 0, "50");
    EXPECT_EQ(powerUp("21"), 0);
    EXPECT_EQ(atr(), "50");
    EXPECT_EQ(m_nAtr, 2U);
    EXPECT_EQ(stCardReader.nCardSlot, 255);
    answer("32 22 0B B8 11", 0, "3B 00");
    EXPECT_EQ(powerUp("\x11"), 0);
    EXPECT_EQ(stCardReader.nCardSlot, 17);
}

TEST_F(SessionPower, TheLongestAtrIsHandedOut)
{
    s_bReader = true;
    answer("32 22 00 00 00", 0, hex(Bytes(507, 0xEF)));
    EXPECT_EQ(powerUp("1"), 0);
    std::string sWanted;
    for (int i = 0; i < 507; ++i)
        sWanted += "EF";
    EXPECT_EQ(m_nAtr, 1014U);
    EXPECT_EQ(atr(), sWanted);
}

TEST_F(SessionPower, AFailedPowerUpCloses)
{
    s_bReader = true;
    answer("32 22 00 00 00", 0x1003);
    logOn();
    EXPECT_EQ(powerUp("1"), -0x1003);
    EXPECT_EQ(order(), Order({opened(path(), "A", 38400), "close"}));
    EXPECT_EQ(m_nAtr, 0U);
    EXPECT_EQ(atr(), "");
    EXPECT_FALSE(portOpen());
    EXPECT_EQ(rawLog().find("uszAtr"), std::string::npos);
}

TEST_F(SessionPower, AFailedOpeningClosesAndPowersNothingUp)
{
    for (int32_t nResult : {-51, 7}) {
        s_nOpenResult = nResult;
        logOn();
        EXPECT_EQ(powerUp("1", "COM9"), nResult);
        EXPECT_EQ(order(), Order({opened("COM9", "A", 38400), "close"}));
        EXPECT_EQ(m_nAtr, 0U);
        EXPECT_EQ(atr(), "");
        EXPECT_EQ(stCardReader.nCardSlot, 7);
        EXPECT_EQ(rawLog().find("DevPowerOn"), std::string::npos);
    }
}

TEST_F(SessionPower, TheResultOfClosingAfterAPowerUpIsDropped)
{
    s_bReader = true;
    s_nCloseResult = -9;
    answer("32 22 00 00 00", 0, "3B 00");
    EXPECT_EQ(powerUp("1"), 0);
    answer("32 22 00 00 00", 0x1004);
    EXPECT_EQ(powerUp("1"), -0x1004);
}

TEST_F(SessionPower, WithoutBothOutputsTheAtrIsLeftOut)
{
    s_bReader = true;
    for (int i = 0; i < 3; ++i)
        answer("32 22 00 00 00", 0, "3B 00");
    std::string sAtr(1100, '\x05');
    uint32_t nAtr = 0xC5C5;
    EXPECT_EQ(QV_APP_PowerOn(path(), nullptr, 9600, "1", nullptr, sAtr.data()), 0);
    EXPECT_EQ(std::string(sAtr.c_str()), "");
    EXPECT_EQ(QV_APP_PowerOn(path(), nullptr, 9600, "1", &nAtr, nullptr), 0);
    EXPECT_EQ(nAtr, 0U);
    EXPECT_EQ(QV_APP_PowerOn(path(), nullptr, 9600, "1", nullptr, nullptr), 0);
    EXPECT_EQ(order(), Order({opened(path()), "close", opened(path()), "close", opened(path()), "close"}));
}

TEST_F(SessionPower, AMissingArgumentOpensNothing)
{
    EXPECT_EQ(QV_APP_PowerOn(nullptr, "", 9600, "1", &m_nAtr, m_sAtr.data()), -2);
    EXPECT_EQ(QV_APP_PowerOn("COM9", "", 9600, nullptr, &m_nAtr, m_sAtr.data()), -2);
    for (bool bPort : {false, true}) {
        SCOPED_TRACE(bPort);
        m_nAtr = 0xC5C5;
        m_sAtr = "before";
        EXPECT_EQ(QV_APP_PowerOn(bPort ? "COM9" : nullptr, "", 9600, bPort ? nullptr : "1", &m_nAtr, m_sAtr.data()),
                  -2);
        EXPECT_EQ(m_nAtr, 0U);
        EXPECT_EQ(m_sAtr.front(), '\0') << "the ATR of an earlier card";
    }
    EXPECT_EQ(QV_APP_PowerOff(nullptr, "", 9600, "1"), -2);
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, nullptr), -2);
    EXPECT_EQ(order(), Order{});
}

TEST_F(SessionPower, PoweringUpThatIsOffGivesNoAtr)
{
    g_stCallBackFunc.nPowerUp = 0;
    EXPECT_EQ(powerUp("1", "COM9"), 0);
    EXPECT_EQ(order(), Order({opened("COM9", "A", 38400), "close"}));
    EXPECT_EQ(m_nAtr, 0U);
    EXPECT_EQ(atr(), "");
}

// ---- powering down ------------------------------------------------------------------------------------------------

struct PowerDown {
    const char *pszWhat;
    const char *pszType;
    std::vector<std::pair<int32_t, uint32_t>> powerDowns; // result, status word after it
    Order offs;
    int32_t nResult;
    int32_t nLogged;
    int32_t nSlot;
};

TEST_F(SessionPower, PoweringDownGoesByTheCardType)
{
    const PowerDown rows[] = {
        {"contact", "1", {{0, 0}}, {"off 0"}, 0, 0, 0},
        {"contact, more text", "1 2", {{0, 0}}, {"off 0"}, 0, 0, 0},
        {"contact, status", "1", {{0, 0x1003}}, {"off 0"}, -0x1003, 0, 0},
        {"contact, failed", "1", {{-4, 0x1003}}, {"off 0"}, -4, -4, 0},
        {"contact, failed above 0", "1", {{4, 0x1003}}, {"off 0"}, 4, 4, 0},
        {"contactless", "2", {{0, 0}}, {"off 255"}, 0, 0, 255},
        {"contactless, status", "2", {{0, 0x3001}}, {"off 255"}, -0x3001, 0, 255},
        {"contactless, failed", "2", {{-54, 0}}, {"off 255"}, -54, -54, 255},
        {"both, a status at first", "3", {{0, 0x1005}, {0, 0}}, {"off 0", "off 255"}, 0, 0, 255},
        {"both, two statuses", "3", {{0, 0x1005}, {0, 0x3004}}, {"off 0", "off 255"}, -0x3004, 0, 255},
        {"both, a status, then failed", "3", {{0, 0x1005}, {-55, 0}}, {"off 0", "off 255"}, -55, -55, 255},
        {"both, failed at first", "3", {{-4, 0}, {0, 0}}, {"off 0", "off 0"}, 0, 0, 0},
        {"both, failed, then a status", "3", {{-4, 0}, {0, 0x1003}}, {"off 0", "off 0"}, -0x1003, 0, 0},
        {"both, failed with a status", "3", {{-4, 0x1005}, {-55, 0}}, {"off 0", "off 0"}, -55, -55, 0},
        {"other", "x", {{0, 0}}, {"off 7"}, 0, 0, 7},
        {"other, status", "x", {{0, 0x1003}}, {"off 7"}, -0x1003, 0, 7},
        {"empty", "", {{0, 0}}, {"off 7"}, 0, 0, 7},
        {"the number 1", "\x01", {{0, 0}}, {"off 7"}, 0, 0, 7},
    };
    for (const PowerDown &row : rows) {
        SCOPED_TRACE(row.pszWhat);
        stCardReader.nCardSlot = 7;
        stRDZ73xx.gStatus = 0x7777;
        s_powerDowns = row.powerDowns;
        Order wanted = row.offs;
        wanted.insert(wanted.begin(), opened("COM9", "C", 9600));
        wanted.push_back("close");
        logOn();
        EXPECT_EQ(QV_APP_PowerOff("COM9", "C", 9600, row.pszType), row.nResult);
        EXPECT_EQ(order(), wanted);
        EXPECT_EQ(stCardReader.nCardSlot, row.nSlot);
        EXPECT_TRUE(wroteLines({appLine("[QV_APP_PowerOff] End nRet = " + std::to_string(row.nLogged) + "  ")}));
    }
}

TEST_F(SessionPower, PoweringDownBothEndsWithTheContactCardThatWasThere)
{
    s_powerDowns = {{0, 0}};
    EXPECT_EQ(QV_APP_PowerOff("COM9", nullptr, 9600, "3"), 0);
    EXPECT_EQ(order(), Order({opened("COM9"), "off 0", "close"}));
    EXPECT_EQ(stCardReader.nCardSlot, 0);
}

TEST_F(SessionPower, TheStatusAfterTheCloseCounts)
{
    for (const char *pszType : {"1", "2", "x"}) {
        s_powerDowns = {{0, 0x1003}};
        s_statusAfterClosing = 0x1005;
        EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, pszType), -0x1005) << pszType;
    }
    s_powerDowns = {{0, 0x1003}, {0, 0x1003}};
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "3"), -0x1005);
    s_powerDowns = {{0, 0}};
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "3"), 0) << "the contact card was powered down, and that is all";
}

TEST_F(SessionPower, TheEndIsLoggedBehindTheClose)
{
    s_bLogsCalls = true;
    for (const char *pszType : {"1", "2", "x"}) {
        s_powerDowns = {{-4, 0}};
        logOn();
        EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, pszType), -4);
        EXPECT_TRUE(logWithoutTime().ends_with(closeLine() + appLine("[QV_APP_PowerOff] End nRet = -4  ")))
            << pszType << logWithoutTime();
    }
    s_powerDowns = {{0, 0}};
    logOn();
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "3"), 0);
    EXPECT_TRUE(logWithoutTime().ends_with(closeLine())) << "the contact card's way has no such line\n"
                                                         << logWithoutTime();
}

TEST_F(SessionPower, AFailedOpeningClosesAndPowersNothingDown)
{
    for (const char *pszType : {"1", "2", "3", "x"}) {
        for (int32_t nResult : {-51, 7}) {
            s_nOpenResult = nResult;
            EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, pszType), nResult);
            EXPECT_EQ(order(), Order({opened("COM9"), "close"}));
            EXPECT_EQ(stCardReader.nCardSlot, 7);
        }
    }
}

TEST_F(SessionPower, TheResultOfClosingAfterAPowerDownIsDropped)
{
    s_nCloseResult = -9;
    s_powerDowns = {{0, 0}, {0, 0}};
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "1"), 0);
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "3"), 0);
}

TEST_F(SessionPower, ATableWithoutPoweringDownKeepsTheResultOfOpening)
{
    stICOp[nPowerOffSlot] = nullptr;
    stRDZ73xx.gStatus = 0;
    for (const char *pszType : {"1", "2", "3", "x"}) {
        EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, pszType), 0);
        EXPECT_EQ(order(), Order({opened("COM9"), "close"}));
    }
}

TEST_F(SessionPower, ATableWithoutPoweringDownGoesOnByTheStatus)
{
    stICOp[nPowerOffSlot] = nullptr;
    stRDZ73xx.gStatus = 0x1003;
    EXPECT_EQ(QV_APP_PowerOff("COM9", "", 9600, "3"), -0x1003);
    EXPECT_EQ(order(), Order({opened("COM9"), "close"}));
    EXPECT_EQ(stCardReader.nCardSlot, 255);
}

} // namespace
