// Debian's libusb and hidapi against emulated devices in this very process.
#include "usb_hosts.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace qvsim::test {
namespace {

using Lines = std::vector<std::string>;
using std::chrono::milliseconds;

constexpr UsbId kFirst{0x2B46, 0xBE11};
constexpr UsbId kSecond{0x0403, 0xBCD5};

UsbDeviceOptions deviceWith(UsbId id, unsigned interfaces = 1)
{
    UsbDeviceOptions options;
    options.id = id;
    options.interfaces = interfaces;
    return options;
}

milliseconds elapsed(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - since);
}

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

TEST(UsbEmulation, LibusbTakesADeviceIntoUseAndEveryCallIsRecorded)
{
    UsbEmulation usb({deviceWith(kFirst)});
    {
        LibusbHost host(kFirst);
        ASSERT_TRUE(host.isOpen());
        EXPECT_EQ(::libusb_reset_device(host.handle()), 0);
        EXPECT_EQ(host.claim(0), 0);
        usb.answerWith({bytesOf("pong")});
        EXPECT_EQ(host.write(0x01, padded(bytesOf("ping"), 64)), 64);
        Bytes reply;
        EXPECT_EQ(host.read(0x81, 64, reply), 64);
        EXPECT_EQ(reply, padded(bytesOf("pong"), 64));
        EXPECT_EQ(::libusb_release_interface(host.handle(), 0), 0);
    }
    EXPECT_TRUE(usb.waitClosed());
    EXPECT_EQ(usb.calls(), (Lines{"OPEN", "RESET", "GETDRIVER 0", "GETDRIVER 0", "DISCONNECT 0", "CLAIM 0",
                                  "INTERRUPT OUT 01 64", "INTERRUPT IN 81 64", "RELEASE 0", "CLOSE"}));
    ASSERT_EQ(usb.received().size(), 1U);
    EXPECT_EQ(usb.received()[0].bytes, padded(bytesOf("ping"), 64));
    EXPECT_EQ(usb.received()[0].interface, 0U);
    EXPECT_EQ(usb.unusedAnswers(), 0U);
}

TEST(UsbEmulation, HidapiTakesADeviceIntoUseAndReportsKeepTheirBounds)
{
    UsbEmulation usb({deviceWith(kFirst)});
    {
        HidapiHost host(kFirst);
        ASSERT_TRUE(host.isOpen());
        EXPECT_EQ(host.write(bytesOf("ping")), 5);
        usb.sendReport(bytesOf("one"));
        usb.sendReport(bytesOf("three"));
        Bytes report;
        EXPECT_EQ(host.read(report), 3);
        EXPECT_EQ(report, bytesOf("one"));
        EXPECT_EQ(host.read(report), 5);
        EXPECT_EQ(report, bytesOf("three"));
    }
    EXPECT_TRUE(usb.waitClosed());
    const Lines calls = usb.calls();
    EXPECT_EQ(calls.front(), "HIDRAW OPEN 0");
    EXPECT_EQ(calls.back(), "HIDRAW CLOSE 0");
    EXPECT_NE(std::find(calls.begin(), calls.end(), "HIDRAW WRITE 0 5"), calls.end());
    ASSERT_EQ(usb.received().size(), 1U);
    EXPECT_EQ(usb.received()[0].bytes, bytesOf("ping"));
}

TEST(UsbEmulation, ALongReplyGoesInReportsTheLastOneFilledUp)
{
    for (const unsigned size : {8U, 64U, 512U}) {
        UsbDeviceOptions options = deviceWith(kFirst);
        options.reportSize = size;
        UsbEmulation usb({options});
        LibusbHost host(kFirst);
        ASSERT_TRUE(host.isOpen());
        ASSERT_EQ(host.claim(0), 0);
        EXPECT_EQ(::libusb_get_max_packet_size(::libusb_get_device(host.handle()), 0x81), static_cast<int>(size));
        Bytes reply(size * 3 - 5);
        for (std::size_t i = 0; i < reply.size(); ++i)
            reply[i] = static_cast<std::uint8_t>(i % 251 + 1);
        usb.reply(reply);
        Bytes all, report;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(host.read(0x81, size, report), static_cast<int>(size));
            all.insert(all.end(), report.begin(), report.end());
        }
        EXPECT_EQ(all, padded(reply, size * 3));
        EXPECT_EQ(host.read(0x81, size, report, kShortMs), LIBUSB_ERROR_TIMEOUT);
    }
}

TEST(UsbEmulation, BothInterfacesTakeAndGiveReports)
{
    UsbEmulation usb({deviceWith(kSecond, 2)});
    LibusbHost host(kSecond);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    ASSERT_EQ(host.claim(1), 0);
    usb.answerWith({bytesOf("a"), bytesOf("b")});
    EXPECT_EQ(host.write(0x02, bytesOf("second")), 6);
    EXPECT_EQ(host.write(0x01, bytesOf("first")), 5);
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report), 64);
    EXPECT_EQ(report, padded(bytesOf("b"), 64));
    EXPECT_EQ(host.read(0x82, 64, report), 64);
    EXPECT_EQ(report, padded(bytesOf("a"), 64));
    const std::vector<UsbReceived> received = usb.received();
    ASSERT_EQ(received.size(), 2U);
    EXPECT_EQ(received[0].interface, 1U);
    EXPECT_EQ(received[1].interface, 0U);
}

TEST(UsbEmulation, BulkEndpointsTakeBulkTransfers)
{
    UsbDeviceOptions options = deviceWith(kFirst);
    options.bulk = true;
    UsbEmulation usb({options});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    usb.answerWith({bytesOf("reply")});
    EXPECT_EQ(host.write(0x01, padded(bytesOf("command"), 64), kLongMs, true), 64);
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report, kLongMs, true), 64);
    EXPECT_EQ(report, padded(bytesOf("reply"), 64));
    EXPECT_LT(host.write(0x01, bytesOf("x"), kLongMs, false), 0);
}

TEST(UsbEmulation, ASilentDeviceTimesOutWithoutBusyWaiting)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    const auto begin = std::chrono::steady_clock::now();
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report, 500), LIBUSB_ERROR_TIMEOUT);
    EXPECT_TRUE(report.empty());
    EXPECT_GE(elapsed(begin), milliseconds(490));
    EXPECT_EQ(usb.calls().back(), "DISCARD");
}

TEST(UsbEmulation, UnpluggingEndsATransferAndEverythingBehindIt)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    std::thread puller([&usb] {
        while (usb.calls().back() != "INTERRUPT IN 81 64")
            std::this_thread::yield();
        usb.unplug();
    });
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report), LIBUSB_ERROR_NO_DEVICE);
    puller.join();
    EXPECT_EQ(host.write(0x01, bytesOf("x")), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(::libusb_reset_device(host.handle()), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_FALSE(LibusbHost(kFirst).isOpen());
    EXPECT_FALSE(HidapiHost(kFirst).isOpen());
    usb.plug();
    LibusbHost again(kFirst);
    ASSERT_TRUE(again.isOpen());
    EXPECT_EQ(again.claim(0), 0);
    EXPECT_EQ(again.write(0x01, bytesOf("x")), 1);
}

TEST(UsbEmulation, UnpluggingEndsAHidapiRead)
{
    UsbEmulation usb({deviceWith(kFirst)});
    HidapiHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    std::thread puller([&usb] { usb.unplug(); });
    Bytes report;
    EXPECT_EQ(host.read(report), -1);
    puller.join();
    EXPECT_EQ(host.write(bytesOf("x")), -1);
}

TEST(UsbEmulation, AnInterfaceThatAnotherHostHoldsIsBusyUntilItLeaves)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost second(kFirst);
    {
        LibusbHost first(kFirst);
        ASSERT_TRUE(first.isOpen() && second.isOpen());
        EXPECT_EQ(first.claim(0), 0);
        EXPECT_EQ(::libusb_claim_interface(second.handle(), 0), LIBUSB_ERROR_BUSY);
    }
    EXPECT_EQ(::libusb_claim_interface(second.handle(), 0), 0);
}

TEST(UsbEmulation, MisbehaviourComesAndGoes)
{
    UsbEmulation usb({deviceWith(kFirst)});
    const auto set = [&usb](const char *words) {
        UsbBehaviour behaviour = usb.behaviour();
        EXPECT_EQ(setUsbBehaviour(behaviour, words), std::nullopt);
        usb.setBehaviour(behaviour);
    };
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    set("detach refused");
    EXPECT_LT(host.claim(0), 0);
    EXPECT_EQ(::libusb_claim_interface(host.handle(), 0), LIBUSB_ERROR_BUSY);
    set("detach ok");
    set("claim busy");
    EXPECT_EQ(host.claim(0), LIBUSB_ERROR_BUSY);
    set("claim ok");
    EXPECT_EQ(host.claim(0), 0);
    set("reset fail");
    EXPECT_LT(::libusb_reset_device(host.handle()), 0);
    set("reset ok");
    EXPECT_EQ(::libusb_reset_device(host.handle()), 0);

    libusb_config_descriptor *config = nullptr;
    set("config none");
    EXPECT_EQ(::libusb_get_active_config_descriptor(::libusb_get_device(host.handle()), &config),
              LIBUSB_ERROR_NOT_FOUND);
    set("config ok");
    ASSERT_EQ(::libusb_get_active_config_descriptor(::libusb_get_device(host.handle()), &config), 0);
    EXPECT_EQ(config->bNumInterfaces, 1);
    ::libusb_free_config_descriptor(config);

    set("open fail");
    EXPECT_FALSE(LibusbHost(kFirst).isOpen());
    set("open ok");
    EXPECT_TRUE(LibusbHost(kFirst).isOpen());

    set("out stall");
    EXPECT_EQ(host.write(0x01, bytesOf("x")), LIBUSB_ERROR_PIPE);
    set("out short 3");
    EXPECT_EQ(host.write(0x01, bytesOf("12345")), 3);
    set("out stuck");
    EXPECT_EQ(host.write(0x01, bytesOf("x"), kShortMs), LIBUSB_ERROR_TIMEOUT);
    set("out ok");
    EXPECT_EQ(host.write(0x01, bytesOf("12345")), 5);

    Bytes report;
    set("in stall");
    EXPECT_EQ(host.read(0x81, 64, report), LIBUSB_ERROR_PIPE);
    set("in overflow");
    usb.reply(bytesOf("12345"));
    EXPECT_EQ(host.read(0x81, 64, report), LIBUSB_ERROR_OVERFLOW);
    set("in short 3");
    usb.reply(bytesOf("12345"));
    EXPECT_EQ(host.read(0x81, 64, report), 3);
    EXPECT_EQ(report, bytesOf("123"));
    EXPECT_EQ(host.read(0x81, 64, report), 2);
    EXPECT_EQ(report, bytesOf("45"));
    set("in empty");
    usb.reply(bytesOf("12345"));
    EXPECT_EQ(host.read(0x81, 64, report), 0);
    EXPECT_EQ(host.read(0x81, 64, report), 64);
    set("in ok");
    usb.reply(bytesOf("12345"));
    EXPECT_EQ(host.read(0x81, 64, report), 64);
    EXPECT_EQ(report, padded(bytesOf("12345"), 64));
}

TEST(UsbEmulation, AReceiverAnswersBeforeTheHostsCallReturns)
{
    UsbEmulation *device = nullptr;
    UsbEmulation usb({deviceWith(kFirst)}, UsbHost::thisProcess, [&device](const UsbReceived &received) {
        device->reply(Bytes(received.bytes.rbegin(), received.bytes.rend()), received.interface, received.device);
    });
    device = &usb;
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    EXPECT_EQ(host.write(0x01, bytesOf("abc")), 3);
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report), 64);
    EXPECT_EQ(report, padded(bytesOf("cba"), 64));
}

TEST(UsbEmulation, ATransferLongerThanAReportTakesReportsUpToAShortOne)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    usb.sendReport(Bytes(64, 0x11));
    usb.sendReport(bytesOf("end"));
    usb.sendReport(Bytes(64, 0x22));
    Bytes report;
    EXPECT_EQ(host.read(0x81, 200, report), 67);
    EXPECT_EQ(host.read(0x81, 64, report), 64);
    EXPECT_EQ(report, Bytes(64, 0x22));
    usb.sendReport(Bytes(64, 0x33));
    EXPECT_EQ(host.read(0x81, 20, report), LIBUSB_ERROR_OVERFLOW);
}

TEST(UsbEmulation, AResetThrowsAwayWhatNobodyHasRead)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    usb.sendReport(bytesOf("late"));
    EXPECT_EQ(::libusb_reset_device(host.handle()), 0);
    Bytes report;
    EXPECT_EQ(host.read(0x81, 64, report, kShortMs), LIBUSB_ERROR_TIMEOUT);
}

TEST(UsbEmulation, ADetachedDriverTakesItsHidrawNodeAlongUntilItIsAttached)
{
    UsbEmulation usb({deviceWith(kFirst)});
    {
        HidapiHost reader(kFirst);
        LibusbHost host(kFirst);
        ASSERT_TRUE(reader.isOpen() && host.isOpen());
        EXPECT_EQ(::libusb_claim_interface(host.handle(), 0), LIBUSB_ERROR_BUSY);
        EXPECT_EQ(::libusb_detach_kernel_driver(host.handle(), 0), 0);
        Bytes report;
        EXPECT_EQ(reader.read(report), -1);
        EXPECT_EQ(::libusb_kernel_driver_active(host.handle(), 0), 0);
        EXPECT_EQ(::libusb_detach_kernel_driver(host.handle(), 0), LIBUSB_ERROR_NOT_FOUND);
    }
    EXPECT_FALSE(HidapiHost(kFirst).isOpen());
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    EXPECT_EQ(::libusb_attach_kernel_driver(host.handle(), 0), 0);
    EXPECT_TRUE(HidapiHost(kFirst).isOpen());
}

TEST(UsbEmulation, AHidrawNodeThatNobodyHadOpenBeginsWithoutOldReports)
{
    UsbEmulation usb({deviceWith(kFirst, 2)});
    usb.sendReport(bytesOf("other interface"), 1);
    for (int times = 0; times < 2; ++times) {
        usb.sendReport(bytesOf("before"));
        HidapiHost host(kFirst);
        ASSERT_TRUE(host.isOpen());
        usb.sendReport(bytesOf("now"));
        Bytes report;
        EXPECT_EQ(host.read(report), 3);
        EXPECT_EQ(report, bytesOf("now"));
        EXPECT_EQ(host.read(report, static_cast<int>(kShortMs)), 0);
    }
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(1), 0);
    Bytes report;
    EXPECT_EQ(host.read(0x82, 64, report), 15); // the nodes of the first interface leave the second alone
}

TEST(UsbEmulation, ASecondHidrawHostLeavesTheFirstOneItsReports)
{
    UsbEmulation usb({deviceWith(kFirst)});
    HidapiHost first(kFirst);
    ASSERT_TRUE(first.isOpen());
    usb.sendReport(bytesOf("kept"));
    HidapiHost second(kFirst);
    ASSERT_TRUE(second.isOpen());
    Bytes report;
    EXPECT_EQ(first.read(report), 4);
    EXPECT_EQ(second.read(report, static_cast<int>(kShortMs)), 0);
}

TEST(UsbEmulation, IdentitiesInSysfsAreInSmallLetters)
{
    UsbEmulation usb({deviceWith(kFirst)});
    const std::string folder = usb.directory() + "/sys/bus/usb/devices/1-1/";
    for (const auto &[name, wanted] : {std::pair{"idVendor", "2b46"}, std::pair{"idProduct", "be11"}}) {
        std::string text;
        std::getline(std::ifstream(folder + name), text);
        EXPECT_EQ(text, wanted) << name;
    }
}

TEST(UsbEmulation, EveryHostThatHasAHidrawNodeOpenGetsEveryReport)
{
    UsbEmulation usb({deviceWith(kFirst)});
    HidapiHost first(kFirst);
    ASSERT_TRUE(first.isOpen());
    Bytes report;
    HidapiHost second(kFirst);
    usb.sendReport(bytesOf("both"));
    EXPECT_EQ(first.read(report), 4);
    EXPECT_EQ(second.read(report), 4);
    EXPECT_EQ(first.read(report, static_cast<int>(kShortMs)), 0);
}

struct ConfigurationRow {
    const char *name;
    unsigned interfaces;
    unsigned altSettings;
    UsbEndpointSet endpoints;
    std::vector<unsigned> addresses; // of the first alternate setting of the last interface
};

TEST(UsbEmulation, LibusbReadsEveryKindOfConfiguration)
{
    const ConfigurationRow rows[] = {
        {"none", 0, 1, UsbEndpointSet::inOut, {}},
        {"one", 1, 1, UsbEndpointSet::inOut, {0x81, 0x01}},
        {"two", 2, 1, UsbEndpointSet::inOut, {0x82, 0x02}},
        {"most", kMostUsbInterfaces, 2, UsbEndpointSet::inOutIn, {0x87, 0x07, 0x8E}},
        {"out first", 1, 1, UsbEndpointSet::outIn, {0x01, 0x81}},
        {"in alone", 1, 1, UsbEndpointSet::inOnly, {0x81}},
        {"out alone", 1, 1, UsbEndpointSet::outOnly, {0x01}},
        {"no endpoint", 1, 1, UsbEndpointSet::none, {}},
        {"settings", 1, 2, UsbEndpointSet::inOut, {0x81, 0x01}},
    };
    for (const ConfigurationRow &row : rows) {
        SCOPED_TRACE(row.name);
        UsbDeviceOptions options = deviceWith(kFirst, row.interfaces);
        options.altSettings = row.altSettings;
        options.endpoints = row.endpoints;
        UsbEmulation usb({options});
        LibusbHost host(kFirst);
        ASSERT_TRUE(host.isOpen());
        libusb_config_descriptor *config = nullptr;
        ASSERT_EQ(::libusb_get_active_config_descriptor(::libusb_get_device(host.handle()), &config), 0);
        EXPECT_EQ(config->bNumInterfaces, row.interfaces);
        std::vector<unsigned> addresses;
        if (config->bNumInterfaces != 0) {
            const libusb_interface &last = config->interface[config->bNumInterfaces - 1];
            EXPECT_EQ(last.num_altsetting, static_cast<int>(row.altSettings));
            for (int i = 0; i < last.altsetting[0].bNumEndpoints; ++i)
                addresses.push_back(last.altsetting[0].endpoint[i].bEndpointAddress);
        }
        EXPECT_EQ(addresses, row.addresses);
        ::libusb_free_config_descriptor(config);
    }
}

TEST(UsbEmulation, AnAlternateSettingIsChosenAndOneThatIsNotThereRefused)
{
    UsbDeviceOptions options = deviceWith(kFirst);
    options.altSettings = 2;
    UsbEmulation usb({options});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    ASSERT_EQ(host.claim(0), 0);
    EXPECT_EQ(::libusb_set_interface_alt_setting(host.handle(), 0, 1), 0);
    EXPECT_EQ(usb.calls().back(), "SETINTERFACE 0 1");
    EXPECT_NE(::libusb_set_interface_alt_setting(host.handle(), 0, 2), 0);
    EXPECT_EQ(::libusb_clear_halt(host.handle(), 0x81), 0);
    EXPECT_EQ(::libusb_clear_halt(host.handle(), 0x85), LIBUSB_ERROR_NOT_FOUND);
}

TEST(UsbEmulation, AConfigurationOfTheTestsOwnIsShownAsItIs)
{
    UsbDeviceOptions options = deviceWith(kFirst);
    options.configuration = *fromHex("09 02 19 00 01 01 00 80 32 09 04 00 00 01 03 00 00 00 07 05 8A 02 20 00 00");
    UsbEmulation usb({options});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    libusb_config_descriptor *config = nullptr;
    ASSERT_EQ(::libusb_get_active_config_descriptor(::libusb_get_device(host.handle()), &config), 0);
    ASSERT_EQ(config->interface[0].altsetting[0].bNumEndpoints, 1);
    EXPECT_EQ(config->interface[0].altsetting[0].endpoint[0].bEndpointAddress, 0x8A);
    ::libusb_free_config_descriptor(config);
    ASSERT_EQ(host.claim(0), 0);
    usb.reply(Bytes(40, 0x55));
    Bytes report;
    EXPECT_EQ(host.read(0x8A, 32, report, kLongMs, true), 32);
    EXPECT_EQ(host.read(0x8A, 32, report, kLongMs, true), 32);
    EXPECT_EQ(report, padded(Bytes(8, 0x55), 32));
}

TEST(UsbEmulation, StringsAreReadByControlTransfers)
{
    UsbEmulation usb({deviceWith(kFirst)});
    LibusbHost host(kFirst);
    ASSERT_TRUE(host.isOpen());
    std::array<unsigned char, 64> text{};
    EXPECT_EQ(::libusb_get_string_descriptor_ascii(host.handle(), 2, text.data(), text.size()), 9);
    EXPECT_STREQ(reinterpret_cast<const char *>(text.data()), "QV reader");
    EXPECT_EQ(::libusb_get_string_descriptor_ascii(host.handle(), 9, text.data(), text.size()), LIBUSB_ERROR_PIPE);
}

TEST(UsbEmulation, SeveralDevicesAreToldApart)
{
    UsbEmulation usb({deviceWith(kFirst), deviceWith(kSecond)});
    LibusbHost first(kFirst);
    LibusbHost second(kSecond);
    ASSERT_TRUE(first.isOpen() && second.isOpen());
    ASSERT_EQ(first.claim(0), 0);
    ASSERT_EQ(second.claim(0), 0);
    EXPECT_EQ(second.write(0x01, bytesOf("x")), 1);
    ASSERT_EQ(usb.received().size(), 1U);
    EXPECT_EQ(usb.received()[0].device, 1U);
    usb.unplug(0);
    EXPECT_EQ(first.write(0x01, bytesOf("x")), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(second.write(0x01, bytesOf("x")), 1);
}

TEST(UsbEmulation, NothingIsLeftBehind)
{
    const std::size_t before = openDescriptors();
    std::string directory;
    for (int i = 0; i < 3; ++i) {
        UsbEmulation usb({deviceWith(kFirst), deviceWith(kSecond, 2)});
        directory = usb.directory();
        EXPECT_STREQ(::getenv("UMOCKDEV_DIR"), directory.c_str());
        LibusbHost host(kFirst);
        EXPECT_EQ(host.claim(0), 0);
        EXPECT_TRUE(HidapiHost(kSecond).isOpen());
    }
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::getenv("UMOCKDEV_DIR"), nullptr);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

} // namespace
} // namespace qvsim::test
