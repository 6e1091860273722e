// Every wait of reads, power-ups, APDUs and the host's command calls ends with a cancel from a second thread.

#include "cancel_point.h"

#include "qvreader/icreader.h"

#include <array>

using namespace qvtest;

namespace {

constexpr int32_t nCancelled = -57;
constexpr uint32_t nExchangeFailed = 0xAAAA, nEarlier = 0x6A82;
constexpr uint32_t nMark = 777;

std::array<uint8_t, 4096> s_out;
uint32_t s_nOut = 0;

const Bytes s_read = bytes("00 B0 00 00 08");

int32_t visit()
{
    s_nOut = nMark;
    ICC_CardCmdSetErrCode(nEarlier);
    return ICC_CardCmdVisitCOS(s_read.data(), static_cast<uint32_t>(s_read.size()), s_out.data(), &s_nOut);
}

void firstPassFailed()
{
    EXPECT_EQ(s_nOut, nMark);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), nExchangeFailed);
}

// As after a follow-up that fails in any other way.
void followUpFailed()
{
    EXPECT_EQ(s_nOut, nMark);
    EXPECT_EQ(ICC_CardCmdGetErrCode(), nEarlier);
}

void noAtr()
{
    EXPECT_EQ(s_nOut, 0U);
}

std::function<int32_t(const char *)> powerOn(uint8_t ucCardType, uint32_t nSeconds = 60)
{
    return [=](const char *) {
        s_nOut = nMark;
        Dev_Rdz_SetPowerOnTime(nSeconds);
        return Dev_Rdz_IccPowerOn(ucCardType, s_out.data(), &s_nOut);
    };
}

int32_t cardCommand1()
{
    static IccCardCmd command;
    command = {};
    command.ins = 0xB0;
    command.lePresent = 1;
    command.le = 8;
    return ICC_CardCmd(&command);
}

const std::string s_sReadFrame = cardCommand("32 26 00 00 B0 00 00 08");

const std::vector<CancelPoint> s_reads = {
    {"ReadOfThePort",
     [](const char *) { return COMM_Com_ReadLinux(s_out.data(), 64, 60, IcEndCondition); },
     {{"", ""}},
     nCancelled},
    {"ReadWithTheLongWait",
     [](const char *) { return COMM_Com_ReadLinux(s_out.data(), 64, 0, nullptr); },
     {{"", ""}},
     nCancelled},
    {"ReadOfTheDispatcher",
     [](const char *) { return COMM_Dev_ReadDataFromTransPort(s_out.data(), 64); },
     {{"", ""}},
     nCancelled},
    {"ReadOfAReply",
     [](const char *) { return COMM_Rdz_ReadDataFromReader(1, 2, 3, s_out.data(), 64); },
     {{"", ""}},
     nCancelled},
    {"ReadFromTheCardReader",
     [](const char *) { return COMM_Icc_ReadDataFromCardReader(s_out.data(), 64); },
     {{"", ""}},
     nCancelled},
    {"FramedCommand",
     [](const char *) {
         const Bytes data = bytes("32 21 00");
         return COMM_Rdz_SendAndReciveData(1, 2, 3, data.data(), 3, s_out.data(), 64);
     },
     {{cardCommand("32 21 00"), ""}},
     nCancelled},
    {"RawCommand",
     [](const char *) {
         const Bytes data = bytes("1B 31");
         return COMM_Rdz_SendAndReciveData(1, 0, 0, data.data(), 2, s_out.data(), 64);
     },
     {{"1B 31", ""}},
     nCancelled},
};

const std::vector<CancelPoint> s_power = {
    {"ContactPowerOn", powerOn('1'), {{cardCommand("32 22 EA 60 00"), ""}}, nCancelled, Port::OfTheTest, noAtr},
    {"AntennaPowerOn", powerOn('2'), {{cardCommand("32 24 EA 60"), ""}}, nCancelled, Port::OfTheTest, noAtr},
    {"PsamPowerOn", powerOn(16), {{cardCommand("32 22 EA 60 10"), ""}}, nCancelled, Port::OfTheTest, noAtr},
    {"PowerOnWithoutATimeOut",
     powerOn('1', 0),
     {{cardCommand("32 22 00 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    {"SlotPowerOn",
     [](const char *) { return Dev_Rdz_IccPowerOnSlot(1, s_out.data(), &s_nOut); },
     {{cardCommand("32 22 EA 60 01"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    {"DetectionOfDetectFirst", powerOn('x'), {{cardCommand("32 30 00 3C"), ""}}, nCancelled, Port::OfTheTest, noAtr},
    {"ContactPowerOnOfDetectFirst",
     powerOn('x'),
     {{cardCommand("32 30 00 3C"), cardReply("01")}, {cardCommand("32 22 00 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    {"AntennaPowerOnOfDetectFirst",
     powerOn('x'),
     {{cardCommand("32 30 00 3C"), cardReply("02")}, {cardCommand("32 24 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    // The contact card counts as absent then, and the antenna is tried: each of the two waits takes its own cancel.
    {"BothPowerOnsOfContactThenContactless",
     powerOn(' ', 0),
     {{cardCommand("32 22 00 00 00"), ""}, {cardCommand("32 24 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    {"AntennaPowerOnOfContactThenContactless",
     powerOn('!', 0),
     {{cardCommand("32 22 00 00 01"), cardReply("", 0x3001)}, {cardCommand("32 24 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     noAtr},
    {"PowerOff", [](const char *) { return Dev_Rdz_Ic_PowerOff(); }, {{cardCommand("32 23 00"), ""}}, nCancelled},
    {"AntennaPowerOff",
     [](const char *) { return Dev_Rdz_Ic_PowerOffSlot(255); },
     {{cardCommand("32 25 00 00"), ""}},
     nCancelled},
};

const std::vector<CancelPoint> s_apdus = {
    {"Apdu", [](const char *) { return visit(); }, {{s_sReadFrame, ""}}, nCancelled, Port::OfTheTest, firstPassFailed},
    {"GetResponseAfter61",
     [](const char *) { return visit(); },
     {{s_sReadFrame, cardReply("61 10")}, {cardCommand("32 26 00 00 C0 00 00 10"), ""}},
     nCancelled,
     Port::OfTheTest,
     followUpFailed},
    {"GetResponseAfter62",
     [](const char *) { return visit(); },
     {{s_sReadFrame, cardReply("62 82")}, {cardCommand("32 26 00 00 C0 00 00 00"), ""}},
     nCancelled,
     Port::OfTheTest,
     followUpFailed},
    {"RightLengthAfter6C",
     [](const char *) { return visit(); },
     {{s_sReadFrame, cardReply("6C 04")}, {cardCommand("32 26 00 00 B0 00 00 04"), ""}},
     nCancelled,
     Port::OfTheTest,
     followUpFailed},
    {"ApduOfARecord", [](const char *) { return cardCommand1(); }, {{s_sReadFrame, ""}}, nCancelled},
    {"ApduOfASlot",
     [](const char *) { return COMM_Icc_CardReaderApdu(16, s_read.data(), 5, s_out.data(), &s_nOut); },
     {{cardCommand("32 26 10 00 B0 00 00 08"), ""}},
     nCancelled},
};

const std::vector<CancelPoint> s_commands = {
    {"SendCommand",
     [](const char *pszPort) {
         return Dev_Rdz_Ic_SendCommand(pszPort, 1, nullptr, 9600, "1", 5, s_read.data(), &s_nOut, s_out.data());
     },
     {{s_sReadFrame, ""}},
     nCancelled,
     Port::OfTheCall},
    {"FollowUpOfSendCommand",
     [](const char *pszPort) {
         return Dev_Rdz_Ic_SendCommand(pszPort, 1, nullptr, 9600, "1", 5, s_read.data(), &s_nOut, s_out.data());
     },
     {{s_sReadFrame, cardReply("61 10")}, {cardCommand("32 26 00 00 C0 00 00 10"), ""}},
     nCancelled,
     Port::OfTheCall},
    {"SendCommandOnly",
     [](const char *) { return Dev_Rdz_Ic_SendCommandOnly("1", 5, s_read.data(), &s_nOut, s_out.data()); },
     {{s_sReadFrame, ""}},
     nCancelled},
    {"SlotScanOfSendCommandeOnly",
     [](const char *) { return Dev_Rdz_Ic_SendCommandeOnly("1", 5, s_read.data(), &s_nOut, s_out.data()); },
     {{cardCommand("32 21 00"), ""}},
     4},
    {"SendCommandDirect",
     [](const char *pszPort) {
         const Bytes data = bytes("1B 31");
         s_nOut = 1;
         return Dev_Rdz_Ic_SendCommandDirect(pszPort, nullptr, 9600, 2, data.data(), &s_nOut, s_out.data());
     },
     {{"1B 31", ""}},
     nCancelled,
     Port::OfTheCall},
    {"SendCommandOnlyDirect",
     [](const char *) {
         const Bytes data = bytes("1B 31");
         s_nOut = 1;
         return Dev_Rdz_Ic_SendCommandOnlyDirect(2, data.data(), &s_nOut, s_out.data());
     },
     {{"1B 31", ""}},
     nCancelled},
};

QV_CANCEL_POINTS(ReadCancel, s_reads);
QV_CANCEL_POINTS(PowerCancel, s_power);
QV_CANCEL_POINTS(ApduCancel, s_apdus);
QV_CANCEL_POINTS(CommandCancel, s_commands);

} // namespace
