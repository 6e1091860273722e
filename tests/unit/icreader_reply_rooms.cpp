// How much of a reply each call on the reader makes room for, as its exchange says in the log.

#include "open_reader.h"

#include "qvreader/icreader.h"

#include <functional>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

uint8_t s_out[2048];
uint32_t s_nOut;

struct Call {
    const char *pszName;
    const char *pszCommand;
    uint8_t ucHead; // of the frame, both directions; 0: bare
    uint8_t ucEnd;
    int nRoom; // bytes
    int32_t nResult;
    std::function<int32_t()> call;
};

const char *const pszApdu = "00 84 00 00 02";

const Call s_calls[] = {
    {"power-up", "32 22 00 00 02", 2, 3, 1024, 0, [] { return COMM_Icc_RDZPowerOn(2, s_out, &s_nOut, 0); }},
    {"power-up of a slot", "32 22 00 00 02", 2, 3, 1024, 0,
     [] { return COMM_Icc_CardReaderPowerOn(2, s_out, &s_nOut, 0); }},
    {"contactless power-up", "32 24 00 00", 2, 3, 1024, 0, [] { return COMM_Icc_RDZPowerOn(255, s_out, &s_nOut, 0); }},
    {"power-down", "32 23 02", 2, 3, 1024, 0, [] { return COMM_Icc_RDZPowerOff(2); }},
    {"APDU", "32 26 02 00 84 00 00 02", 2, 3, 1024, 0,
     [] { return COMM_Icc_RDZAPDU(2, bytes(pszApdu).data(), 5, s_out, &s_nOut); }},
    {"APDU of a slot", "32 26 02 00 84 00 00 02", 2, 3, 1024, 0,
     [] { return COMM_Icc_CardReaderApdu(2, bytes(pszApdu).data(), 5, s_out, &s_nOut); }},
    {"which card", "32 30 00 05", 2, 3, 2048, 0, [] { return ICC_RDZ73xxCHECKCARD(5); }},
    {"any kind of card", "32 30 00 03", 2, 3, 1024, 0,
     [] { return COMM_Icc_detectMulCard(5, nullptr, nullptr, &s_nOut); }},
    {"any kind of card, by request", "32 32 00 03 01", 2, 3, 1024, 0,
     [] { return COMM_Icc_detectMulComCard(1, 5, nullptr, nullptr, &s_nOut); }},
    {"LEDs", "11 11 05", 1, 4, 128, 0, [] { return COMM_Icc_SetLEDStatus(5); }},
    {"two LED bytes", "11 14 01 02", 1, 4, 128, 0, [] { return COMM_Icc_SetLEDStatusEx(1, 2); }},
    {"buzzer", "80 15 00 03 01", 1, 4, 1024, 0, [] { return COMM_Icc_SetBeepStatus(3, 1); }},
    {"device record", "11 01", 1, 4, 1024, 0, [] { return COMM_Icc_GetDeviceInfo(s_out); }},
    {"raw command", "1B 30", 0, 0, 512, 2,
     [] {
         s_nOut = 9;
         return Dev_Rdz_Ic_SendCommandOnlyDirect(2, bytes("1B 30").data(), &s_nOut, s_out);
     }},
};

// The rooms that the log since logOn() tells of, in order.
std::vector<std::string> rooms()
{
    static const std::string sTitle = "nMaxReciveBufLen ";
    std::vector<std::string> found;
    for (const std::string &sText : logTexts())
        if (sText.starts_with(sTitle))
            found.push_back(sText.substr(sTitle.size(), sText.find(',') - sTitle.size()));
    return found;
}

class ReplyRooms : public OpenReader {};

TEST_F(ReplyRooms, EachCallMakesRoomForItsOwnReply)
{
    for (const Call &row : s_calls) {
        SCOPED_TRACE(row.pszName);
        if (row.ucHead == 0)
            m_peer->expect(row.pszCommand).reply("41 03");
        else
            m_peer->expect(commandFrame(row.pszCommand, row.ucHead, row.ucEnd))
                .reply(replyFrame(0x9000, "01", row.ucHead, row.ucEnd));
        COMM_Rdz_ChageReadTimeOut(60);
        gEndChar = 0x03;
        logOn();
        EXPECT_EQ(row.call(), row.nResult);
        EXPECT_EQ(rooms(), std::vector<std::string>{std::to_string(row.nRoom)});
        logOff();
        m_peer->finish();
    }
}

TEST_F(ReplyRooms, ARawCommandWithOpenAndCloseHasTheSameRoom)
{
    ASSERT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    m_peer->expect("1B 30").reply("41 03");
    s_nOut = 9;
    logOn();
    EXPECT_EQ(Dev_Rdz_Ic_SendCommandDirect(path(), nullptr, 9600, 2, bytes("1B 30").data(), &s_nOut, s_out), 2);
    EXPECT_EQ(rooms(), std::vector<std::string>{"512"});
    EXPECT_EQ(hex(s_out, s_nOut), "41 03");
}

} // namespace
