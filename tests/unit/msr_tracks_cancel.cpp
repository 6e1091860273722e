// Every wait of a stripe read and of a stripe write ends with a cancel from a second thread, whichever function of the
// stripe side it comes through; the head is then reset, the port closed and free for the next exchange.

#include "cancel_point.h"

#include "qvreader/msr.h"

#include <array>

using namespace qvtest;

namespace {

constexpr int32_t nCancelled = -57, nNoStatus = -4, nNoSeparator = -55;
constexpr int32_t nTyCancelled = -7, nStandardOther = -99;

// Behind the open: reset, ISO, and the read time of 30 seconds.
constexpr char szHead[] = "1B 30 1B 3D 01 30 30 30 33 32 30 30 34 31 3E 33 3A 04";
constexpr char szChannelKHead[] = "1B 25 4B 1B 30 1B 3D 01 30 30 30 33 32 30 30 34 31 3E 33 3A 04";
constexpr char szDone[] = "01 30 30 30 32 30 30 30 30 30 30 04";
constexpr char szSeparator[] = "01 30 30 30 33 32 30 30 31 37 3C 35 3D 04";
constexpr char szReadAll[] = "01 30 30 30 32 32 30 30 32 32 32 04";
constexpr char szTrack2[] = "1B 73 36 32 3F 1C";
constexpr char szWrite2[] = "1B 74 32 32 1D 1B 5C ";
constexpr char szStatus[] = "1B 6A";

const Exchange s_prepared{szHead, szDone};
const Exchange s_readTail{"1B 30 1B 25 41 1B 30", "", false};
const Exchange s_writeTail{"1B 30 1B 25 41", "", false};

std::array<std::array<char, 64>, 3> s_rooms;

std::function<int32_t(const char *)> reading(int32_t nMode)
{
    return [=](const char *pszPort) {
        for (auto &room : s_rooms)
            room.fill('#');
        return MSG_QV_ReadData(pszPort, 9600, nullptr, 0, 0, nMode, 30, s_rooms[0].data(), 64, s_rooms[1].data(), 64,
                               s_rooms[2].data(), 64);
    };
}

std::function<int32_t(const char *)> writing(int32_t nMode)
{
    return [=](const char *pszPort) {
        char sz1[] = "B1", sz2[] = "22", sz3[] = "33";
        return MSG_QV_WriteData(pszPort, 9600, nullptr, 0, 0, nMode, 30, sz1, sz2, sz3);
    };
}

void noTracks()
{
    for (const auto &room : s_rooms)
        EXPECT_EQ(std::string(room.data(), room.size()), std::string(64, '#'));
}

CancelPoint readPoint(std::string sName, int32_t nMode, std::vector<Exchange> exchanges, int32_t nResult)
{
    exchanges.push_back(s_readTail);
    return {std::move(sName), reading(nMode), std::move(exchanges), nResult,
            Port::OfTheCall,  noTracks,       MSG_QV_CancelRead};
}

CancelPoint writePoint(std::string sName, int32_t nMode, std::vector<Exchange> exchanges, int32_t nResult)
{
    exchanges.push_back(s_writeTail);
    return {std::move(sName), writing(nMode), std::move(exchanges), nResult, Port::OfTheCall, {}, MSG_QV_CancelRead};
}

const std::vector<CancelPoint> s_reads = {
    readPoint("CardOfMode1", 1, {s_prepared, {"1B 72", ""}}, nCancelled),
    readPoint("CardOfMode2", 2, {s_prepared, {"1B 5D", ""}}, nCancelled),
    readPoint("CardOfMode3", 3, {s_prepared, {"1B 54 5D", ""}}, nCancelled),
    readPoint("CardOfMode12", 12, {s_prepared, {"1B 44 5D", ""}}, nCancelled),
    readPoint("CardOfMode23", 23, {s_prepared, {"1B 42 5D", ""}}, nCancelled),
    readPoint("CardOfMode123", 123, {s_prepared, {szSeparator, szDone}, {szReadAll, ""}}, nCancelled),
    // A read time that is not answered counts as set, also after a cancel: the next wait takes its own.
    readPoint("ReadTimeAndCard", 2, {{szHead, ""}, {"1B 5D", ""}}, nCancelled),
    readPoint("ReadTimeAndStatus", 2, {{szHead, ""}, {"1B 5D", szTrack2}, {szStatus, ""}}, nNoStatus),
    readPoint("ReadTimeAndSeparator", 123, {{szHead, ""}, {szSeparator, ""}}, nNoSeparator),
    readPoint("ReadTimeAndCardOfMode123", 123, {{szHead, ""}, {szSeparator, szDone}, {szReadAll, ""}}, nCancelled),
    readPoint("Separator", 123, {s_prepared, {szSeparator, ""}}, nNoSeparator),
    readPoint("Status", 2, {s_prepared, {"1B 5D", szTrack2}, {szStatus, ""}}, nNoStatus),
};

const std::vector<CancelPoint> s_writes = {
    writePoint("StatusOfMode1", 1, {s_prepared, {"1B 77 42 31 1D 1B 5C 1B 6A", ""}}, nNoStatus),
    writePoint("StatusOfMode2", 2, {s_prepared, {std::string(szWrite2) + szStatus, ""}}, nNoStatus),
    writePoint("StatusOfMode3", 3, {s_prepared, {"1B 74 41 33 33 1D 1B 5C 1B 6A", ""}}, nNoStatus),
    writePoint("StatusOfMode12", 12, {s_prepared, {"1B 77 32 32 41 42 31 1D 1B 5C 1B 6A", ""}}, nNoStatus),
    writePoint("StatusOfMode23", 23, {s_prepared, {"1B 74 32 32 41 33 33 1D 1B 5C 1B 6A", ""}}, nNoStatus),
    writePoint("FrameOfMode123", 123, {s_prepared, {commandFrame("20 03 42 31 7C 32 32 7C 33 33", 1, 4), ""}},
               nCancelled),
    writePoint("ReadTimeAndStatus", 2, {{szHead, ""}, {std::string(szWrite2) + szStatus, ""}}, nNoStatus),
};

void baudFlagIs(int32_t nExpected)
{
    EXPECT_EQ(g_bMsgBaundFlag, nExpected);
    g_bMsgBaundFlag = 0;
}

// The families of the application, each with its own cancel. That of the TY codes raises the flag that the close of the
// other thread looks at.
const std::vector<CancelPoint> s_application = {
    {"EngineCodes",
     [](const char *pszPort) {
         char sz2[64];
         return APP_Msg_ReadMsgCard(pszPort, "K", 9600, 0, 30, nullptr, 0, sz2, 64, nullptr, 0);
     },
     {{szChannelKHead, szDone}, {"1B 5D", ""}, s_readTail},
     nCancelled,
     Port::OfTheCall,
     [] { baudFlagIs(0); },
     APP_Msg_CancelReadMsgCard},
    {"EngineCodesOfAWrite",
     [](const char *pszPort) {
         char sz2[] = "22";
         return APP_Msg_WriteMsgCard(pszPort, "K", 9600, 0, 30, nullptr, sz2, nullptr);
     },
     {{szChannelKHead, szDone}, {std::string(szWrite2) + szStatus, ""}, s_writeTail},
     nNoStatus,
     Port::OfTheCall,
     [] { baudFlagIs(0); },
     APP_Msg_CancelReadMsgCard},
    {"TyCodes",
     [](const char *pszPort) {
         char sz2[64];
         return Linux_QV_ReadMsgCard(pszPort, 115200, 0, 30, nullptr, 0, sz2, 64, nullptr, 0);
     },
     {s_prepared, {"1B 5D", ""}, s_readTail},
     nTyCancelled,
     Port::OfTheCall,
     [] { baudFlagIs(1); },
     Linux_QV_CancelReadMsgCard},
    {"TyCodesOfAWrite",
     [](const char *pszPort) {
         char sz1[] = "B1", sz2[] = "22", sz3[] = "33";
         return Linux_QV_WriteMsgCard(pszPort, 115200, 0, 30, sz1, sz2, sz3);
     },
     {s_prepared, {commandFrame("20 03 42 31 7C 32 32 7C 33 33", 1, 4), ""}, s_writeTail},
     nTyCancelled,
     Port::OfTheCall,
     [] { baudFlagIs(1); },
     Linux_QV_CancelReadMsgCard},
    {"StandardCodes",
     [](const char *pszPort) {
         char sz2[256], sz3[256];
         return MS_ReadCard(pszPort, "K", 9600, 30, 23, 0, sz2, sz3);
     },
     {{szChannelKHead, szDone}, {"1B 42 5D", ""}, s_readTail},
     nStandardOther,
     Port::OfTheCall,
     [] { baudFlagIs(0); },
     Dev_Rdz_MsgCancel},
    {"TheDeviceLayersCancel",
     reading(2),
     {s_prepared, {"1B 5D", ""}, s_readTail},
     nCancelled,
     Port::OfTheCall,
     noTracks,
     COMM_Msg_Cancel},
};

QV_CANCEL_POINTS(StripeReadCancel, s_reads);
QV_CANCEL_POINTS(StripeWriteCancel, s_writes);
QV_CANCEL_POINTS(StripeApplicationCancel, s_application);

} // namespace
