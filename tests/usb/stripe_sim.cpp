// Magnetic cards read and written at the simulated reader, over the system's libusb.

#include "sim_reader.h"
#include "usb_devices.h"

#include "qvreader/icreader.h"
#include "qvreader/msr.h"

#include <array>

using namespace qvtest;

namespace {

// As the shipped card has them.
constexpr char szTrack1[] = "B6225000011112222^DEMO/CARD^29120000";
constexpr char szTrack2[] = "6225000011112222=29120000";
constexpr char szTrack3[] = "996225000011112222=156";

constexpr int32_t nModes[] = {1, 2, 3, 12, 23};

class UsbStripeSim : public testing::Test {
  protected:
    void SetUp() override { m_nBefore = openDescriptors(); }
    void TearDown() override
    {
        if (m_sim) {
            EXPECT_TRUE(m_sim->usb().waitClosed());
        }
        m_sim.reset();
        EXPECT_EQ(openDescriptors(), m_nBefore);
    }
    SimReader &plug(const UsbDeviceOptions &options)
    {
        TearDown();
        m_sim = std::make_unique<SimReader>(std::vector{options});
        m_sim->offerStripe("demo");
        return *m_sim;
    }
    int32_t read(int32_t nMode, int32_t nFormat = 0)
    {
        for (auto &track : m_tracks)
            track = {};
        return MSG_QV_ReadData("HID", 9600, nullptr, nFormat, 0, nMode, 30, m_tracks[0].data(), 513, m_tracks[1].data(),
                               513, m_tracks[2].data(), 513);
    }
    static int32_t write(int32_t nMode, std::string s1, std::string s2, std::string s3, int32_t nFormat = 0)
    {
        return MSG_QV_WriteData("HID", 9600, nullptr, nFormat, 0, nMode, 30, s1.data(), s2.data(), s3.data());
    }
    std::string track(size_t n) const { return m_tracks[n - 1].data(); }
    // Whether the mode has the track.
    static bool has(int32_t nMode, char c) { return std::to_string(nMode).find(c) != std::string::npos; }

    std::unique_ptr<SimReader> m_sim;
    std::array<std::array<char, 513>, 3> m_tracks{};

  private:
    int m_nBefore = 0;
};

TEST_F(UsbStripeSim, EveryModeOfOneAndTwoTracksReadsAndWritesTheCard)
{
    for (const UsbId id : {kFirstChannel, kSecondChannel})
        for (const unsigned nReportSize : {64U, 512U})
            for (const bool bBulk : {false, true})
                for (const int32_t nMode : nModes) {
                    SCOPED_TRACE(qvsim::usbIdText(id) + ", reports of " + std::to_string(nReportSize) +
                                 (bBulk ? ", bulk" : ", interrupt") + ", mode " + std::to_string(nMode));
                    UsbDeviceOptions options = reader(id, 2);
                    options.reportSize = nReportSize;
                    options.bulk = bBulk;
                    SimReader &sim = plug(options);
                    EXPECT_EQ(read(nMode), 0);
                    EXPECT_EQ(track(1), has(nMode, '1') ? szTrack1 : "");
                    EXPECT_EQ(track(2), has(nMode, '2') ? szTrack2 : "");
                    EXPECT_EQ(track(3), has(nMode, '3') ? szTrack3 : "");
                    EXPECT_EQ(write(nMode, "NEW^1", "22=22", "333?3"), 0);
                    EXPECT_EQ(sim.stripeTrack(1), has(nMode, '1') ? "NEW^1" : szTrack1);
                    EXPECT_EQ(sim.stripeTrack(2), has(nMode, '2') ? "22=22" : szTrack2);
                    EXPECT_EQ(sim.stripeTrack(3), has(nMode, '3') ? "333?3" : szTrack3);
                }
}

TEST_F(UsbStripeSim, ACardInAnotherFormatIsAReadFault)
{
    plug(reader());
    EXPECT_EQ(write(2, "", "22", "", 1), 0);
    EXPECT_EQ(read(2, 0), -5);
    EXPECT_EQ(read(2, 1), 0);
    EXPECT_EQ(track(2), "22");
}

TEST_F(UsbStripeSim, ATrackThatIsBlankedReadsEmpty)
{
    plug(reader());
    EXPECT_EQ(write(23, "", "22", ""), 0);
    EXPECT_EQ(read(23), 0);
    EXPECT_EQ(track(2), "22");
    EXPECT_EQ(track(3), "");
}

TEST_F(UsbStripeSim, StripesAndChipsOfOneReaderTakeTurns)
{
    SimReader &sim = plug(reader());
    sim.insert(0, "purse");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(read(2), 0);
        EXPECT_EQ(track(2), szTrack2);
        ASSERT_EQ(Dev_Rdz_Ic_OpenPort("HID", nullptr, 1, 0, 9600), 0);
        std::array<uint8_t, 512> atr{};
        uint32_t nAtr = 0;
        Dev_Rdz_SetPowerOnTime(30);
        EXPECT_EQ(Dev_Rdz_IccPowerOn('1', atr.data(), &nAtr), 0);
        EXPECT_EQ(hex(atr.data(), nAtr), "3B 68 00 00 51 56 53 49 4D 2D 45 50");
        EXPECT_EQ(Dev_Rdz_Ic_PowerOff(), 0);
        EXPECT_EQ(Dev_Rdz_Ic_ClosePort(), 0);
    }
}

} // namespace
