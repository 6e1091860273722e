// Stripe reads and writes over the system's libusb that wait: nobody swipes a card, a second thread cancels, the plug is
// pulled out.

#include "stripe_usb.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <thread>

using namespace qvtest;

namespace {

constexpr auto kPrompt = std::chrono::seconds(30); // a cancel takes 1 s; the rest is for a busy machine

class UsbStripeWaits : public UsbStripe {
  protected:
    // `call` in this thread; `act` in another one, once the library waits for the answer to this command.
    int32_t meanwhile(std::string_view sCommand, const std::function<int32_t()> &call, const std::function<void()> &act)
    {
        const auto start = std::chrono::steady_clock::now();
        std::thread other([&] {
            while (!waitsAfter(sCommand) && std::chrono::steady_clock::now() - start < kPrompt)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            act();
        });
        const int32_t nResult = call();
        other.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 2 * kPrompt);
        return nResult;
    }

  private:
    // The command has come, and the last thing that the library did was to ask for a report.
    bool waitsAfter(std::string_view sCommand)
    {
        const auto received = usb().received();
        const Bytes command = bytes(sCommand);
        const bool bCame = std::any_of(received.begin(), received.end(), [&](const auto &report) {
            return report.bytes.size() >= command.size() &&
                   std::equal(command.begin(), command.end(), report.bytes.begin());
        });
        const Lines calls = usb().calls();
        return bCame && !calls.empty() && calls.back().starts_with("INTERRUPT IN");
    }
};

TEST_F(UsbStripeWaits, WithoutACardAReadIsEmptyAfterItsTimeAndInNoForm)
{
    plugAndPlay(reader(), reading({{"1B 5D"}}, 1));
    const time_t nStart = time(nullptr);
    EXPECT_EQ(read(2, 1), -4);
    EXPECT_GE(time(nullptr) - nStart, 2);
    EXPECT_EQ(track(2), "untouched");
    expectPlayed();
}

TEST_F(UsbStripeWaits, WithoutAStatusAReadAndAWriteFail)
{
    plugAndPlay(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A"}}, 120));
    time_t nStart = time(nullptr);
    EXPECT_EQ(read(2, 120), -4);
    EXPECT_GE(time(nullptr) - nStart, 3);  // 2 seconds, exceeded
    EXPECT_LT(time(nullptr) - nStart, 60); // not those of the card
    expectPlayed();
    plugAndPlay(reader(), writing({{"1B 74 32 32 1D 1B 5C"}, {"1B 6A"}}, 1));
    nStart = time(nullptr);
    EXPECT_EQ(write(2, 1), -4);
    EXPECT_GE(time(nullptr) - nStart, 2);
    expectPlayed();
}

TEST_F(UsbStripeWaits, AReadTimeThatIsNotAnsweredStopsNothing)
{
    UsbStripeScript script = reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}});
    script[2].sReply.clear();
    plugAndPlay(reader(), script);
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(track(2), "6225");
    expectPlayed();
}

TEST_F(UsbStripeWaits, ACancelEndsTheWaitForTheCard)
{
    for (int32_t (*cancel)() noexcept :
         {MSG_QV_CancelRead, APP_Msg_CancelReadMsgCard, Linux_QV_CancelReadMsgCard, Dev_Rdz_MsgCancel}) {
        plugAndPlay(reader(), reading({{"1B 5D"}}, 120));
        EXPECT_EQ(meanwhile(
                      "1B 5D", [this] { return read(2, 120); }, [&] { EXPECT_EQ(cancel(), 0); }),
                  -4);
        EXPECT_EQ(track(2), "untouched");
        expectPlayed();
    }
    // The next read is whole.
    play(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(track(2), "6225");
    expectPlayed();
    EXPECT_EQ(MSG_QV_CancelRead(), -57); // nothing is open
}

TEST_F(UsbStripeWaits, ACancelEndsTheWaitOfAWrite)
{
    plugAndPlay(reader(), writing({{"1B 74 32 32 1D 1B 5C"}, {"1B 6A"}}, 120));
    EXPECT_EQ(meanwhile(
                  "1B 6A", [] { return write(2, 120); }, [] { EXPECT_EQ(MSG_QV_CancelRead(), 0); }),
              -4);
    expectPlayed();
}

TEST_F(UsbStripeWaits, WhenThePlugIsPulledOutTheCallEndsWithItsTimeAndClosesTheReader)
{
    plugAndPlay(reader(), {});
    EXPECT_EQ(meanwhile(
                  "1B 5D", [this] { return read(2, 2); }, [this] { usb().unplug(); }),
              -4);
    EXPECT_EQ(track(2), "untouched");
    expectClosed();
    EXPECT_EQ(read(2), -50);
    EXPECT_EQ(write(2), -50);
    usb().plug();
    play(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(2), 0);
    EXPECT_EQ(track(2), "6225");
    expectPlayed();
}

TEST_F(UsbStripeWaits, WhenThePlugIsPulledOutDuringAWriteTheWriteFails)
{
    plugAndPlay(reader(), writing({{"1B 74 32 32 1D 1B 5C"}, {"1B 6A"}}, 1));
    EXPECT_EQ(meanwhile(
                  "1B 6A", [] { return write(2, 1); }, [this] { usb().unplug(); }),
              -4);
    expectClosed();
    usb().plug();
    play(reader(), writing({{"1B 74 32 32 1D 1B 5C"}, {"1B 6A", "70"}}));
    EXPECT_EQ(write(2), 0);
    expectPlayed();
}

TEST_F(UsbStripeWaits, AReaderThatTakesNothingFailsTheCommandAndIsClosed)
{
    plug({reader()});
    behave("out stall");
    EXPECT_EQ(read(2), -54);
    expectClosed();
    EXPECT_EQ(write(2), -1);
    expectClosed();
    behave("out ok");
    play(reader(), reading({{"1B 5D", bareReply("6225")}, {"1B 6A", "70"}}));
    EXPECT_EQ(read(2), 0);
    expectPlayed();
}

} // namespace
