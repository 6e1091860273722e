// A second thread that cancels without pause while the reader is opened, used and closed over USB does no harm: what the
// reader answers arrives, what it does not answer ends at once, nothing is left behind.

#include "fake_hidapi.h"
#include "usb_bus.h"

#include <atomic>
#include <thread>

using namespace qvtest;

namespace {

constexpr int nRounds = 30;

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

int32_t openDispatcher() noexcept
{
    TransPortParam param{};
    param.nType = 7;
    param.nVID = 0x0403;
    param.nPID = 0xBCD5;
    param.nTimeOut = 60;
    param.pfnEndCondition = endsWithEtx;
    return COMM_Dev_OpenTransPort(&param);
}

// One way to a reader.
struct Way {
    const char *pszName;
    int32_t (*open)() noexcept;
    int32_t (*write)(const uint8_t *, uint32_t) noexcept;
    int32_t (*read)(uint8_t *, uint32_t) noexcept;
    int32_t (*close)() noexcept;
    int32_t (*cancel)() noexcept;
    int32_t nCancelled; // what a cancelled read returns
};

const Way s_libusb = {
    "libusb",
    []() noexcept { return COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5); },
    COMM_Hid_WriteLinuxUsbLibHid,
    [](uint8_t *pBuf, uint32_t nMax) noexcept { return COMM_Hid_ReadLinuxUsbLibHid(pBuf, nMax, 60, endsWithEtx); },
    COMM_Hid_CloseLinuxUsbLibHid,
    COMM_Hid_CancelLinuxUsbLibHid,
    0};
const Way s_dispatcher = {"dispatcher",
                          openDispatcher,
                          COMM_Dev_WriteDataToTransPort,
                          COMM_Dev_ReadDataFromTransPort,
                          COMM_Dev_CloseTransPort,
                          COMM_Dev_CancelRead,
                          0};
const Way s_hidapi = {
    "hidapi",
    []() noexcept { return COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5); },
    COMM_Hid_WriteLinuxHid,
    [](uint8_t *pBuf, uint32_t nMax) noexcept { return COMM_Hid_ReadLinuxHid(pBuf, nMax, 60, endsWithEtx); },
    COMM_Hid_CloseLinuxHid,
    COMM_Hid_CancelLinuxRead,
    -57};

// Cancels for as long as it lives; such a cancel finds an open reader or none.
class Storm {
  public:
    explicit Storm(const Way &way)
        : m_thread([this, &way] {
              while (!m_bOver) {
                  const int32_t nRet = way.cancel();
                  EXPECT_TRUE(nRet == 0 || nRet == -57) << nRet;
                  std::this_thread::yield();
              }
          })
    {
    }
    ~Storm()
    {
        m_bOver = true;
        m_thread.join();
    }
    Storm(const Storm &) = delete;
    Storm &operator=(const Storm &) = delete;

  private:
    std::atomic<bool> m_bOver{false};
    std::thread m_thread;
};

class UsbStorm : public UsbBus, public testing::WithParamInterface<std::tuple<const Way *, bool>> {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        m_usb.onSilence(nullptr); // the clock stands: only a cancel ends a read that is not answered
        m_usb.plug({usbReader(0x0403, 0xBCD5)});
        // A cancel finds its way by the transport that was opened last.
        EXPECT_EQ(way().open(), 0);
        EXPECT_EQ(way().close(), 0);
    }
    void TearDown() override
    {
        COMM_Hid_CloseLinuxHid();
        EXPECT_EQ(FakeHid::openDevices(), 0);
        UsbBus::TearDown();
    }
    static const Way &way() { return *std::get<0>(GetParam()); }
    void answer(const char *pszHex)
    {
        if (&way() == &s_hidapi)
            m_hid.in(pszHex);
        else
            m_usb.in(pszHex);
    }
    int32_t read()
    {
        m_buf[0] = 0xC5;
        COMM_Dev_ChangeReadTimeOut(60);
        return way().read(m_buf, sizeof m_buf);
    }
    void converse()
    {
        const uint8_t command[] = {0x31, 0x32};
        EXPECT_EQ(way().open(), 0);
        EXPECT_EQ(way().write(command, 2), 2);
        answer("41 03"); // a complete reply is not given up for a cancel
        EXPECT_EQ(read(), 2);
        EXPECT_EQ(hex(m_buf, 2), "41 03");
        EXPECT_EQ(read(), way().nCancelled); // nothing but the storm ends it
        EXPECT_EQ(m_buf[0], 0xC5);
        EXPECT_EQ(way().close(), 0);
        EXPECT_EQ(FakeUsb::leftOver(), "");
        EXPECT_EQ(FakeHid::openDevices(), 0);
    }

    FakeHid m_hid;
    uint8_t m_buf[64] = {};
};

TEST_P(UsbStorm, HarmsNoConversation)
{
    if (std::get<1>(GetParam()))
        logOn();
    {
        Storm storm(way());
        for (int i = 0; i < nRounds; ++i) {
            SCOPED_TRACE(i);
            converse();
        }
    }
    // What the storm leaves behind ends no later read.
    EXPECT_EQ(way().open(), 0);
    answer("41");
    answer("42 03");
    EXPECT_EQ(read(), 3);
    EXPECT_EQ(hex(m_buf, 3), "41 42 03");
    EXPECT_EQ(way().close(), 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, UsbStorm,
                         testing::Combine(testing::Values(&s_libusb, &s_dispatcher, &s_hidapi), testing::Bool()),
                         [](const auto &row) {
                             return std::string(std::get<0>(row.param)->pszName) +
                                    (std::get<1>(row.param) ? "Logged" : "NotLogged");
                         });

} // namespace
