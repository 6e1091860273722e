// The simulator on USB as a newcomer starts it: with a command that finds the reader through libusb or hidapi.
#include "sim_process.h"

#include "model/frame.h"
#include "usb/launch.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <fstream>

namespace qvsim::test {
namespace {

const std::string kDebit = "script:" QVSIM_CARDS "/debit-credit.card";
constexpr char kDebitAtr[] = "00 00 3B 68 00 00 51 56 53 49 4D 2D 44 43";
constexpr char kChallenge[] = "32 26 00 00 84 00 00 08";
constexpr char kChallengeReply[] = "00 00 3A 91 5C E7 08 4D B2 F6 90 00";
constexpr char kPowerOn[] = "32 22 00 00 00";
constexpr char kStatus[] = "32 21 00";

using Words = std::vector<std::string>;

// `qvreader-sim --usb OPTIONS -- usb_client WAY ID INTERFACE STEPS`
Words withClient(Words options, Words client)
{
    Words all{"--usb", "--quiet"};
    all.insert(all.end(), options.begin(), options.end());
    all.insert(all.end(), {"--", QVSIM_USB_CLIENT});
    all.insert(all.end(), client.begin(), client.end());
    return all;
}

std::string lines(const Words &all)
{
    std::string text;
    for (const std::string &line : all)
        text += line + "\n";
    return text;
}

// Folders of emulations below TMPDIR.
std::size_t treesLeft(const std::string &folder)
{
    std::size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        count += entry.path().filename().string().starts_with("qvusb-") ? 1 : 0;
    return count;
}

class UsbProgram : public ::testing::Test {
  protected:
    void SetUp() override
    {
        ::setenv("TMPDIR", (dir_ / "").c_str(), 1);
        socket_ = dir_ / "control";
    }
    void TearDown() override
    {
        EXPECT_EQ(treesLeft(dir_ / ""), 0U);
        ::unsetenv("TMPDIR");
    }

    TempDir dir_;
    std::string socket_;
};

TEST_F(UsbProgram, ACardAnswersOverLibusbAndOverHidapi)
{
    for (const char *way : {"libusb", "hidapi"}) {
        const RunResult run =
            runProgram(withClient({"--card", "0=" + kDebit}, {way, "2B46:BE11", "0", kPowerOn, kChallenge}));
        EXPECT_EQ(run.out, lines({kDebitAtr, kChallengeReply})) << way;
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.exitCode, 0);
    }
}

TEST_F(UsbProgram, AResetOrAReopenedDeviceLeavesACardPowered)
{
    const RunResult run = runProgram(withClient(
        {"--card", "0=" + kDebit}, {"libusb", "2B46:BE11", "0", kPowerOn, "reset", kStatus, "reopen", kStatus}));
    EXPECT_EQ(run.out, lines({kDebitAtr, "00 00", "00 00"}));
}

TEST_F(UsbProgram, BothInterfacesAnswer)
{
    for (const char *interface : {"0", "1"}) {
        const RunResult run =
            runProgram(withClient({"--ids", "0403:BCD5", "--interfaces", "2", "--card", "0=" + kDebit},
                                  {"libusb", "0403:BCD5", interface, kPowerOn}));
        EXPECT_EQ(run.out, lines({kDebitAtr})) << interface;
    }
}

TEST_F(UsbProgram, EveryReportSizeCarriesCommandsAndReplies)
{
    for (const char *size : {"8", "64", "512"}) {
        const RunResult run = runProgram(withClient({"--report-size", size, "--card", "0=" + kDebit},
                                                    {"libusb", "2B46:BE11", "0", kPowerOn, kChallenge}));
        EXPECT_EQ(run.out, lines({kDebitAtr, kChallengeReply})) << size;
    }
}

TEST_F(UsbProgram, BulkEndpointsCarryCommandsAndReplies)
{
    const RunResult run =
        runProgram(withClient({"--bulk", "--card", "0=" + kDebit}, {"bulk", "2B46:BE11", "0", kPowerOn}));
    EXPECT_EQ(run.out, lines({kDebitAtr}));
}

TEST_F(UsbProgram, SeveralDevicesAreTheSameReader)
{
    const Words options{"--ids", "0403:BCD5", "--ids", "2B46:BE11", "--card", "0=" + kDebit};
    for (const char *id : {"0403:BCD5", "2B46:BE11"}) {
        const RunResult run = runProgram(withClient(options, {"libusb", id, "0", kPowerOn}));
        EXPECT_EQ(run.out, lines({kDebitAtr})) << id;
    }
    EXPECT_EQ(runProgram(withClient(options, {"libusb", "0403:BCD7", "0", kPowerOn})).exitCode, 2);
}

TEST_F(UsbProgram, AnUnpluggedReaderIsGoneAndComesBackWithoutPower)
{
    SimProcess sim(withClient({"--control", socket_, "--card", "0=" + kDebit},
                              {"libusb", "2B46:BE11", "0", kPowerOn, "stop", kStatus, "stop", "reopen", kStatus}));
    EXPECT_EQ(sim.readLine(), kDebitAtr);
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_EQ(control(socket_, {"unplug"}), "ok\n");
    EXPECT_EQ(control(socket_, {"unplug"}), "!error: it is unplugged\n");
    EXPECT_NE(control(socket_, {"state"}).find("usb 2B46:BE11 (unplugged)"), std::string::npos);
    sim.say("");
    EXPECT_EQ(sim.readLine(), "not sent");
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_EQ(control(socket_, {"plug"}), "ok\n");
    sim.say("");
    EXPECT_EQ(sim.readLine(), "10 03");
    EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UsbProgram, LineFaultsStrikeOnUsbAsWell)
{
    SimProcess sim(
        withClient({"--control", socket_, "--card", "0=" + kDebit},
                   {"libusb", "2B46:BE11", "0", "stop", kStatus, "stop", kStatus, "stop", "hurry", kStatus}));
    const auto strike = [&](Words words) {
        EXPECT_EQ(sim.readLine(), "stopped");
        words.insert(words.begin(), "fault");
        EXPECT_EQ(control(socket_, words), "ok\n");
        sim.say("");
        return sim.readLine();
    };
    EXPECT_EQ(strike({"badlrc"}), faultText(FrameFault::wrongLrc));
    EXPECT_EQ(strike({"split", "3"}), "10 03");
    EXPECT_EQ(strike({"silence"}), "silence");
    EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UsbProgram, AHangUpUnplugsTheReader)
{
    SimProcess sim(withClient({"--control", socket_, "--card", "0=" + kDebit},
                              {"libusb", "2B46:BE11", "0", "stop", kStatus, "stop"}));
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_EQ(control(socket_, {"fault", "hangup"}), "ok\n");
    sim.say("");
    EXPECT_EQ(sim.readLine(), "gone");
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_NE(control(socket_, {"state"}).find("(unplugged)"), std::string::npos);
    EXPECT_EQ(control(socket_, {"plug"}), "ok\n");
    sim.say("");
    EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UsbProgram, AMisbehavingDeviceIsSwitchedByOptionAndCommand)
{
    EXPECT_EQ(runProgram(withClient({"--usb-set", "claim busy"}, {"libusb", "2B46:BE11", "0"})).out,
              "LIBUSB_ERROR_BUSY\n");
    EXPECT_EQ(runProgram(withClient({"--usb-set", "open fail"}, {"libusb", "2B46:BE11", "0"})).exitCode, 2);
    EXPECT_EQ(runProgram(withClient({"--no-kernel-driver"}, {"hidapi", "2B46:BE11", "0"})).exitCode, 2);
    const RunResult wrong = runProgram(withClient({"--usb-set", "claim perhaps"}, {"libusb", "2B46:BE11", "0"}));
    EXPECT_EQ(wrong.err, "qvreader-sim: --usb-set claim perhaps: claim is one of: busy, ok\n");
    EXPECT_EQ(wrong.exitCode, 1);

    SimProcess sim(
        withClient({"--control", socket_}, {"libusb", "2B46:BE11", "0", "hurry", "stop", "31 11", "stop", "31 11"}));
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_EQ(control(socket_, {"usb", "out", "stuck"}), "ok\n");
    EXPECT_NE(control(socket_, {"usb", "list"}).find("out stuck       transfers to the reader never complete [on]"),
              std::string::npos);
    sim.say("");
    EXPECT_EQ(sim.readLine(), "not sent");
    EXPECT_EQ(sim.readLine(), "stopped");
    EXPECT_EQ(control(socket_, {"usb", "out", "ok"}), "ok\n");
    EXPECT_EQ(control(socket_, {"usb", "report", "02 30 30 30 32 32 30 30 30 32 30 03"}), "ok\n");
    sim.say("");
    EXPECT_EQ(sim.readLine(), "20 00");
    EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UsbProgram, TheCommandsExitCodeIsTheSimulators)
{
    EXPECT_EQ(runProgram({"--usb", "--", "sh", "-c", "exit 7"}).exitCode, 7);
    EXPECT_EQ(runProgram({"--usb", "--", "sh", "-c", "kill -9 $$"}).exitCode, 128 + SIGKILL);
    const RunResult missing = runProgram({"--usb", "--", "/no/such/command"});
    EXPECT_EQ(missing.exitCode, 127);
    EXPECT_EQ(missing.err, "qvreader-sim: /no/such/command: No such file or directory\n");
}

TEST_F(UsbProgram, SignalsReachTheCommandAndNothingIsLeftBehind)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        SimProcess sim(
            {"--usb", "--", "sh", "-c", "trap 'exit 40' INT TERM HUP; echo up; while :; do sleep 0.01; done"});
        EXPECT_EQ(sim.readLine(), "up");
        EXPECT_EQ(treesLeft(dir_ / ""), 1U);
        EXPECT_EQ(sim.signalAndWait(number), 40);
        EXPECT_EQ(treesLeft(dir_ / ""), 0U);
    }
    SimProcess sim({"--usb", "--control", socket_, "--", "sleep", "60"});
    EXPECT_TRUE(eventually([&] { return control(socket_, {"quit"}) == "ok\n"; }));
    EXPECT_EQ(sim.wait(), 128 + SIGTERM);
}

TEST_F(UsbProgram, WithoutACommandItTellsTheEnvironmentForHosts)
{
    SimProcess sim({"--usb"});
    const std::string environment = sim.waitReady();
    ASSERT_TRUE(environment.starts_with("UMOCKDEV_DIR=" + (dir_ / "qvusb-"))) << environment;
    const std::string command =
        "env " + environment + " " QVSIM_USB_CLIENT " libusb 2B46:BE11 0 '31 11' > " + (dir_ / "out");
    EXPECT_EQ(::system(command.c_str()), 0);
    std::ifstream out(dir_ / "out");
    std::string line;
    std::getline(out, line);
    EXPECT_EQ(line, "00 00");
    EXPECT_EQ(sim.signalAndWait(SIGTERM), 0);
}

TEST_F(UsbProgram, AMissingPreloadLibraryIsToldWithItsPackage)
{
    // An empty file of its name comes first.
    std::ofstream(dir_ / "libumockdev-preload.so.0").flush();
    ::setenv("LD_LIBRARY_PATH", (dir_ / "").c_str(), 1);
    const RunResult run = runProgram({"--usb", "--", "true"});
    ::unsetenv("LD_LIBRARY_PATH");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "qvreader-sim: libumockdev-preload.so.0 cannot be loaded; USB emulation needs the package "
                       "umockdev (apt install umockdev)\n");
}

TEST_F(UsbProgram, AnEnvironmentKeepsWhatIsPreloadedAlready)
{
    ::setenv("LD_PRELOAD", "", 1);
    EXPECT_EQ(usbHostEnvironment("/x")[1], "LD_PRELOAD=libumockdev-preload.so.0");
    ::setenv("LD_PRELOAD", "first.so", 1);
    EXPECT_EQ(usbHostEnvironment("/x")[1], "LD_PRELOAD=first.so:libumockdev-preload.so.0");
    ::unsetenv("LD_PRELOAD");
}

} // namespace
} // namespace qvsim::test
