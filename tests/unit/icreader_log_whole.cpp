// The whole log of one call each, line for line: a line that is missing, doubled or added shows.
//
// The reply stands in the line before the command goes out, so that it comes in one piece.

#include "icreader_log.h"

#include <cstdio>
#include <functional>

using namespace qvtest;

namespace {

constexpr int nTimeOut = 60; // seconds, as the fixture leaves it

// Hexadecimal, with a zero in front of a single digit or without.
std::string digits(uint32_t n, bool bTwo)
{
    char sz[9];
    std::snprintf(sz, sizeof sz, bTwo ? "%02x" : "%x", n);
    return sz;
}

std::string dump(const std::string &sTitle, const Bytes &data)
{
    std::string sHex = hex(data);
    std::erase(sHex, ' ');
    return sTitle + "  LEN=" + std::to_string(data.size()) + "   HEX: " + sHex;
}

Lines operator+(Lines lines, const Lines &more)
{
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// A frame that goes out of the port.
Lines sent(const Bytes &frame)
{
    const std::string sFd = std::to_string(g_AuxFd), sLen = std::to_string(frame.size());
    Lines lines{"CommDev: [ICC_WriteDataToLinuxTransPort] Start ",
                "CommDev: [COMM_Com_WriteLinux] Start ",
                "CommDev:  g_AuxFd = " + sFd + " ",
                "CommDev:  pInData = " + std::string(frame.begin(), frame.end()) + " ",
                "CommDev:  nLen = " + sLen + " ",
                "CommDev: COMM_Com_WriteLinux nLen = " + sLen + " "};
    for (uint8_t uc : frame)
        lines.push_back("CommDev: " + digits(uc, true));
    return lines + Lines{"CommDev: WriteBlock  fd = " + sFd + " ", "CommDev: WriteBlock  End "};
}

// A reply that the port takes in at once.
Lines received(const Bytes &reply)
{
    Lines lines{"CommDev: [COMM_Dev_Linux_ReadDataFromTransPort] Start ", "CommDev: [COMM_Com_ReadLinux ] Start  ",
                "CommDev:  g_AuxFd = " + std::to_string(g_AuxFd) + " nTimeOut = " + std::to_string(nTimeOut) +
                    " nMaxLen = 4096 ",
                dump("szRecvBuf", {})};
    for (uint8_t uc : reply)
        lines.push_back("CommDev: " + digits(uc, false));
    return lines + Lines{"CommDev: [COMM_Com_ReadLinux ] End nRetVal = " + std::to_string(reply.size()) + " ",
                         dump("PACKGET READ", reply)};
}

// One command in a card frame and its reply.
struct Conversation {
    std::string sCommand;
    uint32_t nStatus;
    std::string sBody;
    int nRoom; // bytes, for the reply

    Lines lines() const
    {
        const Bytes command = bytes(sCommand), reply = bytes(replyFrame(nStatus, sBody)), body = bytes(sBody);
        Bytes decoded{0, static_cast<uint8_t>(body.size() + 2), static_cast<uint8_t>(nStatus >> 8),
                      static_cast<uint8_t>(nStatus)};
        decoded.insert(decoded.end(), body.begin(), body.end());
        decoded.push_back(Str_CalcLrc(&decoded[2], static_cast<int32_t>(decoded.size() - 2)));
        const std::string sReply = std::to_string(reply.size());
        return Lines{"Comm: [ COMM_Rdz_SendAndReciveData ] Start ",
                     "Comm: nSendLen " + std::to_string(command.size()) + " ",
                     "Comm: nMaxReciveBufLen " + std::to_string(nRoom) + ",cHead =\x02,cHead = \x02",
                     "Comm: [COMM_Rdz_ReSetStatus]Start ", "CommDev: nDataLen = " + std::to_string(command.size())} +
               sent(bytes(commandFrame(sCommand))) +
               Lines{dump("【发送命令】 szSend\n", command), "Comm: [ COMM_Rdz_ReadDataFromReader ] Start ",
                     "Comm: [COMM_Rdz_ReSetStatus]Start "} +
               received(reply) +
               Lines{"CommDev: ==> nReadLen = " + sReply + " ",
                     dump("== ucPacket", reply),
                     "Comm: [Str_RDZ_ParsePacket] Start nPacketLen = " + sReply + " ",
                     "Comm:  cHead = 02 cEnd = 03  ",
                     "Comm: nBodyLen = " + std::to_string(reply.size() - 2) + " ",
                     dump("ucBody", decoded),
                     "Comm: [COMM_Rdz_SetRecStatus] Start ",
                     "Comm: status = " + digits(nStatus, true) + " ",
                     "CommDev: Str_RDZ_ParsePacket Data Len = " + std::to_string(body.size()) + " "};
    }
};

class WholeLog : public ReaderLog {
  protected:
    // The log of a call that has this conversation, and the result it must give.
    Lines logOf(const Conversation &conversation, int32_t nResult, const std::function<int32_t()> &call)
    {
        const std::string sReply = replyFrame(conversation.nStatus, conversation.sBody);
        m_peer->send(sReply);
        waitUnread(g_AuxFd, static_cast<int>(bytes(sReply).size()));
        m_peer->expect(commandFrame(conversation.sCommand));
        logOn();
        EXPECT_EQ(call(), nResult);
        Lines lines = labelled();
        logOff();
        m_peer->finish();
        return lines;
    }
};

TEST_F(WholeLog, OfAPowerUpByCardType)
{
    Dev_Rdz_SetPowerOnTime(nTimeOut);
    const Conversation power{"32 22 EA 60 00", 0x9000, "3B 41 42", 1024};
    EXPECT_EQ(logOf(power, 0, [this] { return Dev_Rdz_IccPowerOn('1', m_buf, &m_nLen); }),
              (Lines{"CommDev: [Dev_Rdz_IccPowerOn] Start icFlag = 1", "CommDev: g_nPowerOnTimeout = 60",
                     "CommDev: COMM_Rdz_ChageReadTimeOut Start  nTimeOut = 60 ", "CommDev: stCardReader.nCardSlot = 00",
                     "CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = 00 nTimeOut = 60000 ",
                     "CommDev: [INSTR_Ic_RDZPowerOnCmd] Start "} +
               power.lines() +
               Lines{"CommDev: PowerOn SendAndReciveData nRecvLen=3 ,ucRecvData =;AB\n ", "CommDev: status=36864\n ",
                     "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = 0 "}));
}

TEST_F(WholeLog, OfAPowerUpWithoutACard)
{
    const Conversation power{"32 24 00 00", 0x1003, "", 1024};
    EXPECT_EQ(logOf(power, -0x1003, [this] { return COMM_Icc_CardReaderPowerOn(255, m_buf, &m_nLen, 0); }),
              (Lines{"CommDev: [COMM_Icc_CardReaderPowerOn] Start nCardSlot = ff nTimeOut = 0 ",
                     "CommDev: [INSTR_Ic_RDZPowerOnCmd] Start "} +
               power.lines() +
               Lines{"CommDev: PowerOn SendAndReciveData nRecvLen=0 ,ucRecvData =\n ", "CommDev: status=4099\n ",
                     "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003",
                     "CommDev: [COMM_Icc_CardReaderPowerOn] End nRet = -4099 "}));
}

TEST_F(WholeLog, OfAnApdu)
{
    const Conversation apdu{"32 26 00 00 84 00 00 02", 0, "11 22 90 00", 1024};
    const Bytes command = bytes("00 84 00 00 02"), answer = bytes("11 22 90 00");
    EXPECT_EQ(logOf(apdu, 0, [&] { return ICC_CardCmdVisitCOS(command.data(), 5, m_buf, &m_nLen); }),
              (Lines{"CommDev: 【ICC_CardCmdVisitCOS】 Start ", dump("[ICC_CardCmdVisitCOS]", command),
                     dump("接触卡0 C_APDU ", command), "Instr: [INSTR_Ic_RDZAPDUCmd] Start "} +
               apdu.lines() +
               Lines{dump("[COMM_Icc_RDZAPDU] End", answer), dump("接触卡0 R_APDU ", answer),
                     "CommDev: stCardCmdParam.nErrorCode 9000"}));
}

TEST_F(WholeLog, OfAPowerDown)
{
    const Conversation power{"32 23 00", 0x1005, "", 1024};
    EXPECT_EQ(logOf(power, 0, [] { return Dev_Rdz_Ic_PowerOff(); }),
              (Lines{"CommDev: [COMM_Icc_RDZPowerOff] Start ",
                     dump("INSTR_Ic_RDZPowerOffCmd ucSendData ", bytes("32 23 00"))} +
               power.lines() + Lines{"CommDev: [COMM_Icc_RDZPowerOff] End nRet = 0  "}));
}

TEST_F(WholeLog, OfADetection)
{
    const Conversation which{"32 30 00 0A", 0x9000, "02", 2048};
    EXPECT_EQ(logOf(which, 1, [] { return ICC_RDZ73xxCHECKCARD(10); }),
              (Lines{"Comm: [ICC_RDZ73xxCHECKCARD] Start!\n"} + which.lines() +
               Lines{"Comm: 非接IC卡\n", "Comm: [ICC_RDZ73xxCHECKCARD] End!\n"}));
}

TEST_F(WholeLog, OfASlotScan)
{
    const Conversation status{"32 21 00", 0x1003, "", 1024};
    EXPECT_EQ(logOf(status, 2, [] { return DealCardSlot('1', nullptr); }),
              (Lines{"CommDev:  i = 0 "} + status.lines() +
               Lines{"CommDev: RdzCheckCardIsInSlot SendAndReciveData nRecvLen=0\n ", "CommDev: status=1003\n ",
                     "Comm: [COMM_Rdz_GetRecStatus] Start stRDZ73xx.gStatus = 1003",
                     "CommDev: stCardReader.nCardSlot = 00"}));
}

TEST_F(WholeLog, OfASwitchBoxPort)
{
    m_peer->expect("1B 25 42");
    logOn();
    EXPECT_EQ(Set_RdzBp("B"), 0);
    // The head byte is 0, which ends its line.
    EXPECT_EQ(labelled(), (Lines{"Comm: [Set_RdzBp] Start ", "Comm: [ COMM_Rdz_SendAndReciveData ] Start ",
                                 "Comm: nSendLen 3 ", "Comm: nMaxReciveBufLen 0,cHead =",
                                 "Comm: [COMM_Rdz_ReSetStatus]Start ", "CommDev: nDataLen = 3"} +
                           sent(bytes("1B 25 42")) + Lines{dump("【发送命令】 szSend\n", bytes("1B 25 42"))}));
}

} // namespace
