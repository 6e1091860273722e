#include "usb_devices.h"

#include "qvreader/support.h"

#include <chrono>
#include <thread>

namespace qvtest {

namespace {

constexpr std::chrono::seconds kPatience{10};

size_t s_nWanted = 0;

int32_t untilWanted(const uint8_t *, int32_t nLen)
{
    return nLen >= 0 && static_cast<size_t>(nLen) >= s_nWanted ? 0 : -1;
}

int32_t atOnce(const uint8_t *, int32_t)
{
    return 0;
}

Reply readInto(const UsbWay &way, size_t nRoom, EndConditionFn pfnEnd)
{
    constexpr int32_t nSeconds = 60;
    Bytes room(nRoom);
    const int32_t nResult = way.read(room.data(), static_cast<uint32_t>(nRoom), nSeconds, pfnEnd);
    room.resize(nResult > 0 ? static_cast<size_t>(nResult) : 0);
    return {nResult, room};
}

} // namespace

const UsbWay kLibusb = {"libusb",
                        COMM_Hid_OpenLinuxUsbLibHid,
                        COMM_Hid_CloseLinuxUsbLibHid,
                        COMM_Hid_WriteLinuxUsbLibHid,
                        COMM_Hid_ReadLinuxUsbLibHid,
                        COMM_Hid_CancelLinuxUsbLibHid,
                        0,
                        0,
                        1024};
const UsbWay kHidapi = {"hidapi",
                        COMM_Hid_OpenLinuxHid,
                        COMM_Hid_CloseLinuxHid,
                        COMM_Hid_WriteLinuxHid,
                        COMM_Hid_ReadLinuxHid,
                        COMM_Hid_CancelLinuxRead,
                        RET_PUB_TIMEOUT,
                        RET_PUB_CANCEL,
                        1023};

Bytes filled(size_t nLen)
{
    Bytes out(nLen);
    for (size_t i = 0; i < nLen; ++i)
        out[i] = static_cast<uint8_t>(1 + i % 251);
    return out;
}

Bytes padded(Bytes data, size_t nLen)
{
    data.resize(nLen);
    return data;
}

Reply readReply(const UsbWay &way, size_t nWanted, size_t nRoom)
{
    s_nWanted = nWanted;
    return readInto(way, nRoom, untilWanted);
}

Reply readOnce(const UsbWay &way)
{
    return readInto(way, 4096, atOnce);
}

void UsbDevices::SetUp()
{
    m_nBefore = openDescriptors();
    g_inep = g_outep = {};
    g_bIsLinuxHidClearZero = 1;
    stBackUpParam = {};
}

void UsbDevices::TearDown()
{
    unplugAll();
}

// Counted without the emulation, whose own descriptors come and go with the kernel's driver.
void UsbDevices::unplugAll()
{
    if (m_usb) {
        kLibusb.close();
        kHidapi.close();
        expectClosed();
        m_usb.reset();
    }
    EXPECT_EQ(openDescriptors(), m_nBefore);
}

void UsbDevices::plug(std::vector<UsbDeviceOptions> devices)
{
    unplugAll();
    m_nKept = 0;
    m_usb = std::make_unique<qvsim::UsbEmulation>(std::move(devices));
}

void UsbDevices::behave(std::string_view sWords, size_t nDevice)
{
    qvsim::UsbBehaviour behaviour = m_usb->behaviour(nDevice);
    ASSERT_EQ(qvsim::setUsbBehaviour(behaviour, sWords), std::nullopt);
    m_usb->setBehaviour(behaviour, nDevice);
}

Lines UsbDevices::takeCalls(size_t nDevice)
{
    const Lines calls = m_usb->calls(nDevice);
    m_usb->forgetCalls();
    return calls;
}

Bytes UsbDevices::receivedBytes()
{
    Bytes all;
    for (const qvsim::UsbReceived &received : m_usb->received())
        all.insert(all.end(), received.bytes.begin(), received.bytes.end());
    return all;
}

std::vector<size_t> UsbDevices::receivedSizes()
{
    std::vector<size_t> sizes;
    for (const qvsim::UsbReceived &received : m_usb->received())
        sizes.push_back(received.bytes.size());
    return sizes;
}

void UsbDevices::expectWorks(const UsbWay &way, UsbId id)
{
    SCOPED_TRACE("afterwards");
    ASSERT_EQ(open(way, id), 0);
    m_usb->forgetCalls();
    const Bytes command = bytes("02 31 03"), answer = bytes("02 30 30 03");
    m_usb->answerWith({answer});
    EXPECT_EQ(way.write(command.data(), static_cast<uint32_t>(command.size())), 3);
    const Reply reply = readReply(way, answer.size());
    EXPECT_EQ(hex(reply.data), hex(answer));
    ASSERT_EQ(m_usb->received().size(), 1U);
    EXPECT_EQ(hex(std::span(m_usb->received()[0].bytes).first(3)), hex(command));
    EXPECT_EQ(way.close(), 0);
    expectClosed();
}

void UsbDevices::expectClosed()
{
    EXPECT_EQ(m_targetDev, nullptr);
    EXPECT_EQ(m_devs, nullptr);
    EXPECT_EQ(m_handle, nullptr);
    EXPECT_EQ(m_pHidHanle, nullptr);
    if (m_nKept == 0) {
        EXPECT_TRUE(m_usb->waitClosed());
        return;
    }
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (m_usb->openNodes() != static_cast<size_t>(m_nKept) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(m_usb->openNodes(), static_cast<size_t>(m_nKept));
}

void UsbDevices::preloadKeeps(int nConnections)
{
    m_nKept += nConnections;
    m_nBefore += nConnections;
}

} // namespace qvtest
