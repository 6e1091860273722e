// Every wait of card detection, slot status, peripherals and the JSON call ends with a cancel from a second thread.

#include "cancel_point.h"

#include "qvreader/devcall.h"
#include "qvreader/icreader.h"

#include <array>

using namespace qvtest;

namespace {

constexpr int32_t nCancelled = -57;
constexpr int32_t nNoContactCard = 4, nScanFailed = -99; // of the slot scan
constexpr uint32_t nMark = 777;

std::array<char, 4096> s_text;
std::array<uint8_t, 4096> s_out;
uint32_t s_nOut = 0;
int32_t s_nSlot = 0;

std::string peripheralCommand(std::string_view sData)
{
    return commandFrame(sData, 0x01, 0x04);
}

void kindUntouched()
{
    EXPECT_EQ(s_nOut, nMark);
}

int32_t detect()
{
    s_nOut = nMark;
    return COMM_Icc_detectMulCard(60, s_text.data(), s_text.data() + 1024, &s_nOut);
}

int32_t detectKind()
{
    s_nOut = nMark;
    return COMM_Icc_detectMulComCard(7, 60, s_text.data(), s_text.data() + 1024, &s_nOut);
}

const std::vector<CancelPoint> s_detection = {
    {"WhichCard",
     [](const char *) { return ICC_RDZ73xxCHECKCARD(60); },
     {{cardCommand("32 30 00 3C"), ""}},
     nCancelled},
    {"DetectMulCard",
     [](const char *) { return detect(); },
     {{cardCommand("32 30 00 3A"), ""}},
     nCancelled,
     Port::OfTheTest,
     kindUntouched},
    {"DetectMulComCard",
     [](const char *) { return detectKind(); },
     {{cardCommand("32 32 00 3A 07"), ""}},
     nCancelled,
     Port::OfTheTest,
     kindUntouched},
    {"SlotStatus",
     [](const char *) { return COMM_Icc_RdzCheckCardIsInSlot(0); },
     {{cardCommand("32 21 00"), ""}},
     nCancelled},
    {"AntennaStatus",
     [](const char *) { return COMM_Icc_RdzCheckCardIsInSlot(255); },
     {{cardCommand("32 24 00 00"), ""}},
     nCancelled},
    {"SlotStatusOfAnyReader",
     [](const char *) { return COMM_Icc_CardReaderCheckSloct(1); },
     {{cardCommand("32 21 01"), ""}},
     nCancelled},
};

// To a scan a cancelled question is a slot without a card, so that an automatic scan goes on to the antenna.
const std::vector<CancelPoint> s_scans = {
    {"ContactScan",
     [](const char *) { return DealCardSlot('1', &s_nSlot); },
     {{cardCommand("32 21 00"), ""}},
     nNoContactCard},
    {"AntennaScan",
     [](const char *) { return DealCardSlot('2', &s_nSlot); },
     {{cardCommand("32 24 00 00"), ""}},
     nScanFailed},
    {"BothScans",
     [](const char *) { return DealCardSlot('!', &s_nSlot); },
     {{cardCommand("32 21 01"), ""}, {cardCommand("32 24 00 00"), ""}},
     nScanFailed},
    {"AntennaScanAfterAnEmptySlot",
     [](const char *) { return DealCardSlot(' ', &s_nSlot); },
     {{cardCommand("32 21 00"), cardReply("", 0x1002)}, {cardCommand("32 24 00 00"), ""}},
     nScanFailed},
    {"DetectCard",
     [](const char *pszPort) {
         return Dev_Rdz_Ic_DetectCard(1, pszPort, nullptr, 9600, reinterpret_cast<const uint8_t *>("1"));
     },
     {{cardCommand("32 21 00"), ""}},
     nNoContactCard,
     Port::OfTheCall},
    {"BothScansOfDetectCard",
     [](const char *pszPort) {
         return Dev_Rdz_Ic_DetectCard(1, pszPort, nullptr, 9600, reinterpret_cast<const uint8_t *>(" "));
     },
     {{cardCommand("32 21 00"), ""}, {cardCommand("32 24 00 00"), ""}},
     nScanFailed,
     Port::OfTheCall},
    {"ReaderPresence",
     [](const char *pszPort) { return Dev_Rdz_Ic_ChkDevPresent(pszPort, nullptr, 9600); },
     {{cardCommand("31 11"), ""}},
     -55,
     Port::OfTheCall},
};

const std::vector<CancelPoint> s_peripherals = {
    {"Led", [](const char *) { return COMM_Icc_SetLEDStatus(1); }, {{peripheralCommand("11 11 01"), ""}}, 1},
    {"TwoLeds",
     [](const char *) { return COMM_Icc_SetLEDStatusEx(1, 2); },
     {{peripheralCommand("11 14 01 02"), ""}},
     1},
    {"Buzzer",
     [](const char *) { return COMM_Icc_SetBeepStatus(300, 2); },
     {{peripheralCommand("80 15 01 2C 02"), ""}},
     -1},
    {"DeviceRecord",
     [](const char *) { return COMM_Icc_GetDeviceInfo(s_out.data()); },
     {{peripheralCommand("11 01"), ""}},
     -1},
};

int32_t callDevice()
{
    s_text.fill(0);
    s_nOut = 0;
    return DEV_CommCall(
        R"({"FunctionCode":"0001","RequestPort":"9701","RequestBaudRate":"9600","RequestTimeOut":"60"})", "",
        s_text.data(), &s_nOut);
}

void answersWithAFailure()
{
    // The quote in front of ErrorMessage is E2 80 9C.
    EXPECT_STREQ(s_text.data(), "{\"ErrorCode\":\"-1\", \"\xE2\x80\x9C"
                                "ErrorMessage\":\"GetDeviceInfo Failed\"}");
    EXPECT_EQ(s_nOut, std::char_traits<char>::length(s_text.data()));
    EXPECT_EQ(stBackUpParam.pfnEndCondition, &DefaultEndCondition);
}

const std::vector<CancelPoint> s_deviceCalls = {
    {"DeviceCall",
     [](const char *) { return callDevice(); },
     {{peripheralCommand("11 01"), ""}},
     -1,
     Port::OfTheCall,
     answersWithAFailure},
};

QV_CANCEL_POINTS(DetectionCancel, s_detection);
QV_CANCEL_POINTS(ScanCancel, s_scans);
QV_CANCEL_POINTS(PeripheralCancel, s_peripherals);
QV_CANCEL_POINTS(DeviceCallCancel, s_deviceCalls);

} // namespace
