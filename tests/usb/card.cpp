// Whole conversations with the simulated reader and a card, over the system's libusb and hidapi.

#include "sim_reader.h"
#include "usb_devices.h"

#include "qvreader/devcall.h"
#include "qvreader/icreader.h"

#include <algorithm>
#include <array>

using namespace qvtest;
using testing::HasSubstr;

namespace {

constexpr char szFollowUpAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 46 55";
constexpr char szPurseAtr[] = "3B 68 00 00 51 56 53 49 4D 2D 45 50";
constexpr char szFileData[] = "41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 52 53 54 55 56 57 58 59 5A 90 00";

struct Answer {
    int32_t nResult;
    std::string sHex;
};

Answer powerOn(int32_t nSlot)
{
    std::array<uint8_t, 1024> buf{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(60);
    const int32_t nResult = COMM_Icc_CardReaderPowerOn(nSlot, buf.data(), &nLen, 0);
    return {nResult, hex(buf.data(), std::min<size_t>(nLen, buf.size()))};
}

Answer send(std::string_view sHex)
{
    const Bytes command = bytes(sHex);
    std::array<uint8_t, 2048> buf{};
    uint32_t nLen = 0;
    COMM_Rdz_ChageReadTimeOut(60);
    const int32_t nResult =
        ICC_CardCmdVisitCOS(command.data(), static_cast<uint32_t>(command.size()), buf.data(), &nLen);
    return {nResult, hex(buf.data(), std::min<size_t>(nLen, buf.size()))};
}

int32_t openPort()
{
    return Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600);
}

class UsbCard : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nBefore = openDescriptors();
        g_inep = g_outep = {};
    }
    void TearDown() override
    {
        Dev_Rdz_Ic_ClosePort();
        COMM_Hid_CloseLinuxHid();
        if (m_sim) {
            EXPECT_TRUE(m_sim->usb().waitClosed());
        }
        m_sim.reset();
        EXPECT_EQ(openDescriptors(), m_nBefore);
    }
    SimReader &plug(std::vector<UsbDeviceOptions> devices)
    {
        TearDown();
        m_sim = std::make_unique<SimReader>(std::move(devices));
        return *m_sim;
    }

    std::unique_ptr<SimReader> m_sim;

  private:
    int m_nBefore = 0;
};

TEST_F(UsbCard, AWholeConversationOverEveryKindOfReader)
{
    for (const UsbId id : {kFirstChannel, kSecondChannel})
        for (const unsigned nInterfaces : {1u, 2u})
            for (const unsigned nReportSize : {64u, 512u})
                for (const bool bBulk : {false, true}) {
                    SCOPED_TRACE(qvsim::usbIdText(id) + " with " + std::to_string(nInterfaces) + ", reports of " +
                                 std::to_string(nReportSize) + (bBulk ? ", bulk" : ", interrupt"));
                    UsbDeviceOptions options = reader(id, nInterfaces);
                    options.reportSize = nReportSize;
                    options.bulk = bBulk;
                    SimReader &sim = plug({options});
                    sim.insert(0, "follow-up");
                    sim.setDevice("serial", "BOX-17");
                    ASSERT_EQ(openPort(), 0);
                    const Answer atr = powerOn(0);
                    EXPECT_EQ(atr.nResult, 0);
                    EXPECT_EQ(atr.sHex, szFollowUpAtr);
                    COMM_Icc_CardReaderSetCardSlot(0);
                    EXPECT_EQ(send("00 A4 04 00 02 3F 00").sHex, szFileData); // with its follow-up
                    EXPECT_EQ(ICC_CardCmdGetErrCode(), 0x9000U);
                    EXPECT_EQ(send("00 20 00 00").sHex, "63 C2");
                    EXPECT_TRUE(sim.slot(0).starts_with("powered")) << sim.slot(0);
                    EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
                    EXPECT_TRUE(sim.slot(0).starts_with("unpowered")) << sim.slot(0);
                    std::array<uint8_t, 1024> record{};
                    EXPECT_EQ(COMM_Icc_GetDeviceInfo(record.data()), 0);
                    EXPECT_THAT(std::string(record.begin(), record.begin() + 86), HasSubstr("BOX-17"));
                    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
                }
}

TEST_F(UsbCard, AReopenLeavesTheCardPowered)
{
    SimReader &sim = plug({reader(kSecondChannel, 2)});
    sim.insert(0, "purse");
    ASSERT_EQ(openPort(), 0);
    ASSERT_EQ(powerOn(0).sHex, szPurseAtr);
    COMM_Icc_CardReaderSetCardSlot(0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
        EXPECT_TRUE(sim.usb().waitClosed());
        EXPECT_TRUE(sim.slot(0).starts_with("powered")) << sim.slot(0);
        ASSERT_EQ(openPort(), 0);
        EXPECT_EQ(send("80 5C 00 02 04").sHex, "00 00 13 88 90 00");
    }
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);

    // The call that opens and closes by itself.
    const Bytes command = bytes("80 5C 00 02 04");
    std::array<uint8_t, 1024> out{};
    uint32_t nLen = 0;
    EXPECT_EQ(Dev_Rdz_Ic_SendCommand("HID", 1, nullptr, 9600, "1", static_cast<uint32_t>(command.size()),
                                     command.data(), &nLen, out.data()),
              0);
    EXPECT_EQ(hex(out.data(), nLen), "00 00 13 88 90 00");
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_TRUE(sim.slot(0).starts_with("powered")) << sim.slot(0);
}

TEST_F(UsbCard, ACardIsUnpoweredByThePlugAndMustBePoweredAnew)
{
    SimReader &sim = plug({reader()});
    sim.insert(0, "purse");
    ASSERT_EQ(openPort(), 0);
    ASSERT_EQ(powerOn(0).sHex, szPurseAtr);
    COMM_Icc_CardReaderSetCardSlot(0);
    sim.replug();
    EXPECT_NE(send("80 5C 00 02 04").nResult, 0); // the old device is gone
    EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    ASSERT_EQ(openPort(), 0);
    EXPECT_EQ(send("80 5C 00 02 04").nResult, -0x1003);
    EXPECT_EQ(powerOn(0).sHex, szPurseAtr);
    EXPECT_EQ(send("80 5C 00 02 04").sHex, "00 00 13 88 90 00");
}

TEST_F(UsbCard, AnExchangeIsOneCommandAndItsReplyOnTheWire)
{
    SimReader &sim = plug({reader()});
    sim.insert(0, "follow-up");
    ASSERT_EQ(openPort(), 0);
    ASSERT_EQ(powerOn(0).nResult, 0);
    COMM_Icc_CardReaderSetCardSlot(0);
    sim.usb().forgetCalls();
    // 208 bytes of command make a frame of more than 320 bytes: too long for five reports of 64.
    const std::string sLong = "00 D6 00 00 CB " + hex(filled(203));
    EXPECT_NE(send(sLong).nResult, 0);
    EXPECT_EQ(sim.usb().calls(), Lines(5, "INTERRUPT OUT 01 64"));
    // The reader has got a frame without an end; the next command begins anew.
    sim.usb().forgetCalls();
    EXPECT_EQ(send("00 A4 04 00 02 3F 00").sHex, szFileData);
    // The answer with 26 bytes of data makes a frame of two reports.
    EXPECT_EQ(sim.usb().calls(), (Lines{"INTERRUPT OUT 01 64", "INTERRUPT IN 81 64", "INTERRUPT OUT 01 64",
                                        "INTERRUPT IN 81 64", "INTERRUPT IN 81 64"}));
}

TEST_F(UsbCard, TheDeviceCallTellsTheReaderOnUsb)
{
    SimReader &sim = plug({reader(kSecondChannel)});
    sim.setDevice("serial", "BOX-17");
    std::array<char, 1024> out{};
    uint32_t nLen = 0;
    EXPECT_EQ(DEV_CommCall(R"({"FunctionCode":"0001","RequestPort":"0","RequestBaudRate":"9600","RequestTimeOut":"5",)"
                           R"("RequestIP":""})",
                           "", out.data(), &nLen),
              0);
    EXPECT_THAT(std::string(out.data(), nLen), HasSubstr("BOX-17"));
    EXPECT_EQ(m_handle, nullptr);
}

// The host talks to the reader over hidapi by frames of its own.
class HidapiCard : public UsbCard {
  protected:
    struct Frame {
        int32_t nParsed;
        uint32_t nStatus;
        Bytes body;
    };
    static Frame exchange(std::string_view sCommand, uint8_t ucHead = 0x02, uint8_t ucEnd = 0x03)
    {
        const Bytes command = bytes(sCommand);
        std::array<uint8_t, 1024> frame{};
        const int32_t nFrame =
            Str_RDZ_MakePacket(ucHead, ucEnd, command.data(), static_cast<uint32_t>(command.size()), frame.data());
        EXPECT_EQ(COMM_Hid_WriteLinuxHid(frame.data(), static_cast<uint32_t>(nFrame)), nFrame);
        const int32_t nReply =
            COMM_Hid_ReadLinuxHid(frame.data(), frame.size(), 60, ucEnd == 0x03 ? IcEndCondition : VEREndCondition);
        EXPECT_GT(nReply, 0);
        Frame reply{0, 0, Bytes(508)};
        uint32_t nBody = 0;
        reply.nParsed = Str_RDZ_ParsePacket(ucHead, ucEnd, frame.data(), static_cast<uint32_t>(std::max(nReply, 0)),
                                            reply.body.data(), &nBody);
        reply.nStatus = COMM_Rdz_GetRecStatus();
        reply.body.resize(nBody);
        return reply;
    }
    static void expectReply(const Frame &reply, std::string_view sBody)
    {
        EXPECT_EQ(reply.nParsed, 0);
        EXPECT_EQ(reply.nStatus, 0U);
        EXPECT_EQ(hex(reply.body), sBody);
    }
};

TEST_F(HidapiCard, AWholeConversation)
{
    for (const unsigned nInterfaces : {1u, 2u})
        for (const unsigned nReportSize : {8u, 64u, 512u}) {
            SCOPED_TRACE(nReportSize);
            UsbDeviceOptions options = reader(kSecondChannel, nInterfaces);
            options.reportSize = nReportSize;
            SimReader &sim = plug({options});
            sim.insert(0, "follow-up");
            sim.setDevice("serial", "BOX-17");
            ASSERT_EQ(open(kHidapi, kSecondChannel), 0);
            expectReply(exchange("32 22 00 00 00"), szFollowUpAtr);
            expectReply(exchange("32 26 00 00 A4 04 00 02 3F 00"), "61 1A");
            expectReply(exchange("32 26 00 00 C0 00 00 1A"), szFileData);
            // A reopen leaves the card powered.
            ASSERT_EQ(open(kHidapi, kSecondChannel), 0);
            expectReply(exchange("32 26 00 00 20 00 00"), "63 C2");
            EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
            EXPECT_TRUE(sim.usb().waitClosed());
            EXPECT_TRUE(sim.slot(0).starts_with("powered")) << sim.slot(0);
            ASSERT_EQ(open(kHidapi, kSecondChannel), 0);
            expectReply(exchange("32 23 00"), "");
            EXPECT_TRUE(sim.slot(0).starts_with("unpowered")) << sim.slot(0);
            const Frame info = exchange("11 01", 0x01, 0x04);
            EXPECT_EQ(info.nParsed, 0);
            EXPECT_THAT(std::string(info.body.begin(), info.body.end()), HasSubstr("BOX-17"));
        }
}

TEST_F(HidapiCard, ACommandTooLongForFiveReportsOfLibusbGoesInOne)
{
    SimReader &sim = plug({reader()});
    sim.insert(0, "follow-up");
    ASSERT_EQ(open(kHidapi), 0);
    expectReply(exchange("32 22 00 00 00"), szFollowUpAtr);
    expectReply(exchange("32 26 00 00 D6 00 00 CB " + hex(filled(203))), "6D 00");
}

} // namespace
