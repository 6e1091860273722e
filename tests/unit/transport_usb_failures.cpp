// Each call of libusb and hidapi in a conversation fails once: the host gets the right code, nothing stays open, and the
// next conversation works.

#include "fake_hidapi.h"
#include "usb_bus.h"

#include "qvreader/icreader.h"

#include <cerrno>
#include <optional>

using namespace qvtest;
using testing::ElementsAre;

namespace {

int32_t endsWithEtx(const uint8_t *pBuf, int32_t nLen)
{
    return nLen > 0 && pBuf[nLen - 1] == 0x03 ? 0 : -1;
}

// What a conversation came to: the first call that did not work (empty: none) and its result.
struct Outcome {
    std::string sFailed;
    int32_t nResult = 0;
    bool operator==(const Outcome &) const = default;
};
std::ostream &operator<<(std::ostream &out, const Outcome &is)
{
    return out << (is.sFailed.empty() ? "all went well" : is.sFailed) << " " << is.nResult;
}

class UsbFailures : public UsbBus {
  protected:
    void SetUp() override
    {
        UsbBus::SetUp();
        m_usb.plug({usbReader(0x1D6B, 0x0002), usbReader(0x0403, 0xBCD5)});
        g_sParam = {};
        stCardReader = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = 0;
    }
    // Opens, writes two reports, reads two, closes. The reader answers the second report.
    Outcome converse()
    {
        m_usb.results("driver_active", {1});
        m_nReports = 0;
        m_usb.onOut([this](const Bytes &) {
            if (++m_nReports == 2) {
                m_usb.in(hex(padded(filled(64), 64)));
                m_usb.in(hex(padded(bytes("41 03"), 64)));
            }
        });
        Outcome outcome = afterOpen();
        EXPECT_EQ(COMM_Hid_CloseLinuxUsbLibHid(), 0);
        return outcome;
    }
    Outcome afterOpen()
    {
        int32_t nResult = COMM_Hid_OpenLinuxUsbLibHid(0x0403, 0xBCD5);
        if (nResult != 0)
            return {"open", nResult};
        Bytes data = filled(100);
        nResult = COMM_Hid_WriteLinuxUsbLibHid(data.data(), 100);
        if (nResult != 100)
            return {"write", nResult};
        Bytes buf(200);
        nResult = COMM_Hid_ReadLinuxUsbLibHid(buf.data(), 200, 3, endsWithEtx);
        if (nResult != 66)
            return {"read", nResult};
        return {};
    }

    int m_nReports = 0;
};

// What becomes of the conversation when that call fails. A transfer is told apart by its endpoint.
std::optional<Outcome> expected(const std::string &sCall)
{
    auto is = [&sCall](const char *psz) { return sCall.starts_with(psz); };
    if (is("init") || is("list") || sCall == "descriptor 1")
        return Outcome{"open", -50};
    if (is("open") || is("active_config") || is("claim"))
        return Outcome{"open", -3};
    if (is("interrupt 02"))
        return Outcome{"write", -54};
    if (is("descriptor 0") || is("reset") || is("driver_active") || is("detach") || is("interrupt 82") || is("release"))
        return Outcome{};
    ADD_FAILURE() << "an unknown call: " << sCall;
    return std::nullopt;
}

TEST_F(UsbFailures, EachCallOfLibusbMayFailOnce)
{
    ASSERT_EQ(converse(), Outcome{});
    std::vector<std::string> calls;
    for (const std::string &sCall : m_usb.takeCalls()) {
        if (sCall != "close" && sCall != "free_list" && sCall != "exit")
            calls.push_back(sCall);
    }
    ASSERT_THAT(calls,
                ElementsAre("init", "list", "descriptor 0", "descriptor 1", "open 1", "reset", "active_config",
                            "driver_active 1", "detach 1", "claim 1", "interrupt 02 64 1000", "interrupt 02 64 1000",
                            "interrupt 82 64 1000", "interrupt 82 64 1000", "release 0"));
    for (int nError : {-1, -4, -99}) {
        for (size_t i = 0; i < calls.size(); ++i) {
            SCOPED_TRACE(testing::Message() << "call " << i << ", " << calls[i] << ", fails with " << nError);
            m_usb.failCall(i, nError);
            Outcome outcome = converse();
            EXPECT_EQ(outcome, expected(calls[i]));
            expectClosed();
            m_usb.forgetScript();
            EXPECT_EQ(converse(), Outcome{});
            expectClosed();
            m_usb.forgetScript();
        }
    }
}

TEST_F(UsbFailures, EachCallOfLibusbMayFailOnceBelowThePresenceCheck)
{
    m_usb.plug({usbReader(0x2B46, 0xBE01)});
    auto check = [this] {
        m_usb.onOut([this](const Bytes &) { m_usb.in(hex(padded(bytes(replyFrame(0)), 64))); });
        return Dev_Rdz_Ic_ChkDevPresent("HID", nullptr, 9600);
    };
    ASSERT_EQ(check(), 0);
    auto calls = m_usb.takeCalls();
    std::erase_if(calls, [](const std::string &s) { return s == "close" || s == "free_list" || s == "exit"; });
    ASSERT_EQ(calls.front(), "init");
    ASSERT_GT(calls.size(), 20U); // five tries in vain, the sixth and the exchange
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "call " << i << ", " << calls[i] << ", fails");
        // The tries before the reader's own identity may fail as they like.
        const bool bInVain = i < 15;
        int32_t nExpected = 0;
        if (!bInVain) {
            auto outcome = expected(calls[i] == "descriptor 0" ? "descriptor 1" : calls[i]);
            ASSERT_TRUE(outcome.has_value());
            nExpected = outcome->sFailed == "open" ? -51 : outcome->nResult;
        }
        m_usb.failCall(i, -1);
        EXPECT_EQ(check(), nExpected);
        expectClosed();
        m_usb.forgetScript();
        EXPECT_EQ(check(), 0);
        expectClosed();
    }
}

TEST_F(UsbFailures, EachCallOfHidapiMayFailOnce)
{
    FakeHid hid;
    Bytes data = filled(10);
    auto converse = [&]() -> Outcome {
        if (int32_t n = COMM_Hid_OpenLinuxHid(0x0403, 0xBCD5); n != 0)
            return {"open", n};
        if (int32_t n = COMM_Hid_WriteLinuxHid(data.data(), 10); n != 10)
            return {"write", n};
        Bytes buf(64);
        if (int32_t n = COMM_Hid_ReadLinuxHid(buf.data(), 64, 3, endsWithEtx); n != 3)
            return {"read", n};
        return {};
    };
    auto close = [] {
        EXPECT_EQ(COMM_Hid_CloseLinuxHid(), 0);
        EXPECT_EQ(m_pHidHanle, nullptr);
        EXPECT_EQ(FakeHid::openDevices(), 0);
    };
    auto expectGood = [&] {
        hid.in("41 42");
        hid.in("03");
        EXPECT_EQ(converse(), Outcome{});
        close();
    };
    expectGood();
    hid.failOpens(1);
    EXPECT_EQ(converse(), (Outcome{"open", -3}));
    close();
    expectGood();

    testing::internal::CaptureStderr();
    hid.writes({-1}, EIO);
    EXPECT_EQ(converse(), (Outcome{"write", -54}));
    close();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc: Input/output error\n");
    expectGood();

    for (int nReportsBefore : {0, 1}) {
        for (int i = 0; i < nReportsBefore; ++i)
            hid.in("41 42");
        hid.failRead(-1, ENODEV);
        EXPECT_EQ(converse(), (Outcome{"read", -55}));
        close();
        expectGood();
    }
}

} // namespace
