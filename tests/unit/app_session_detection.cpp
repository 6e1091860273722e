// Detection of a card, and of the reader: both use the reader directly, with or without a device table.

#include "app_session.h"

using namespace qvtest;

namespace {

class SessionDetection : public Session {
  protected:
    // The second time with a table.
    template <typename Function> void withAndWithoutTable(Function test)
    {
        test();
        fillTable();
        test();
        EXPECT_EQ(order(), Order{});
    }
    int32_t detect(const char *pszMode, const char *pszBox = nullptr)
    {
        Bytes mode = textBytes(pszMode);
        mode.push_back(0);
        return QV_APP_DetectCard(path(), pszBox, 19200, mode.data());
    }
    static std::string ended(int nResult)
    {
        return appLine("[QV_APP_DetectCard] End nRet = " + std::to_string(nResult) + "  ");
    }
};

TEST_F(SessionDetection, ACardIsDetected)
{
    withAndWithoutTable([this] {
        answer("32 21 00", 0x1003);
        logOn();
        EXPECT_EQ(detect("1"), 2);
        EXPECT_TRUE(wroteLines({ended(2)}));
        EXPECT_FALSE(portOpen());
        EXPECT_EQ(g_sParam.stParam.nTermType, 1U);
        EXPECT_EQ(g_sParam.stParam.nBaud, 19200U);
        m_peer->finish();

        m_peer->expect("1B 25 43 1B 24 49 34");
        answer("32 24 00 00", 0x3001);
        logOn();
        EXPECT_EQ(detect("2", "C"), 7);
        EXPECT_TRUE(wroteLines({ended(7)}));
        m_peer->finish();

        answer("32 21 01", 0x1004);
        EXPECT_EQ(detect("!"), 3);
        m_peer->finish();
    });
}

TEST_F(SessionDetection, AFailedDetectionIsTheReaders)
{
    uint8_t mode[] = {'1', 0};
    logOn();
    EXPECT_EQ(QV_APP_DetectCard("/dev/nowhere", "", 9600, mode), -51);
    EXPECT_TRUE(wroteLines({ended(-51)}));
    EXPECT_EQ(QV_APP_DetectCard("x", "", 9600, mode), -51);
    EXPECT_EQ(QV_APP_DetectCard(nullptr, "", 9600, mode), -2);
    EXPECT_EQ(QV_APP_DetectCard(path(), "", 9600, nullptr), -2);
    EXPECT_EQ(m_peer->wire(), "");
}

TEST_F(SessionDetection, AReaderIsDetected)
{
    withAndWithoutTable([this] {
        answer("31 11", 0, "41");
        EXPECT_EQ(QV_APP_ChkDevPresent(path(), nullptr, 38400), 0);
        EXPECT_FALSE(portOpen());
        EXPECT_EQ(g_sParam.stParam.nBaud, 38400U);
        EXPECT_EQ(g_sParam.stParam.nTermType, 0U);
        m_peer->finish();
        m_peer->expect("1B 25 4B 1B 24 49 34").expect(commandFrame("31 11")).reply("02 03");
        EXPECT_EQ(QV_APP_ChkDevPresent(path(), "K", 9600), -55);
        m_peer->finish();
    });
    EXPECT_EQ(QV_APP_ChkDevPresent("/dev/nowhere", "", 9600), -51);
    EXPECT_EQ(QV_APP_ChkDevPresent("PCSC", "", 9600), -50);
    EXPECT_EQ(QV_APP_ChkDevPresent("x", "", 9600), -2);
    EXPECT_EQ(QV_APP_ChkDevPresent(nullptr, "", 9600), -2);
}

} // namespace
