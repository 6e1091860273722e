// The shipped purse card and PSAM in the real program: in their slots from the command line and by control command.
#include "program/card_files.h"
#include "purse_bench.h"
#include "sim_process.h"

namespace qvsim::test {
namespace {

const std::string kPurse = "purse:" QVSIM_CARDS "/demo.purse";
const std::string kPsam = "psam:" QVSIM_CARDS "/demo.psam";

// The answer's data; the reader's and the card's status must be good.
std::string exchange(HostPort &port, const std::string &slot, const std::string &command)
{
    const std::string answer = port.ask(("32 26 " + slot + " " + command).c_str());
    EXPECT_TRUE(answer.starts_with("00 00 ") && answer.ends_with("90 00")) << command << " gave " << answer;
    return answer.size() < 12 ? "" : answer.substr(6, answer.size() - 11);
}

TEST(PurseProgram, APurchaseGoesThroughBothSlots)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--card", "0=" + kPurse, "--card", "16=" + kPsam, "--control", socket, "--quiet"});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(port.ask("32 22 00 00 00"), "00 00 3B 68 00 00 51 56 53 49 4D 2D 4C 50");
    EXPECT_EQ(port.ask("32 22 00 00 10"), "00 00 3B 68 00 00 51 56 53 49 4D 2D 53 41");

    const std::string dateTime = "20 26 03 01 09 30 15 ";
    const std::string serial = exchange(port, "00", "00 B0 95 0C 08");
    const std::string terminal = exchange(port, "10", "00 B0 96 00 06");
    const std::string begun = exchange(port, "00", "80 50 01 02 0B 01 00 00 04 D2 " + terminal + "0F");
    ASSERT_EQ(begun.size(), 15U * 3);
    EXPECT_EQ(begun.substr(0, 33), "00 00 13 88 00 04 00 00 00 01 00 ");
    const std::string sam = exchange(port, "10",
                                     "80 70 00 00 1C " + begun.substr(33, 12) + begun.substr(12, 6) +
                                         "00 00 04 D2 06 " + dateTime + "01 00 " + serial + "08");
    ASSERT_EQ(sam.size(), 8U * 3);
    const std::string done =
        exchange(port, "00", "80 54 01 00 0F " + sam.substr(0, 12) + dateTime + sam.substr(12, 12) + "08");
    ASSERT_EQ(done.size(), 8U * 3);
    EXPECT_EQ(exchange(port, "10", "80 72 00 00 04 " + done.substr(12)), "");

    const std::string state = control(socket, {"state"});
    EXPECT_NE(state.find("(demo purse) deposit 1000.00, purse 37.66\n"), std::string::npos) << state;
    EXPECT_NE(state.find("(demo PSAM) transaction 42\n"), std::string::npos) << state;
}

TEST(PurseProgram, RandomNumbersDiffer)
{
    SimProcess sim({"--card", "0=" + kPurse, "--quiet"});
    HostPort port(sim.waitReady(), 9600);
    port.ask("32 22 00 00 00");
    const std::string first = exchange(port, "00", "00 84 00 00 08");
    EXPECT_NE(first, exchange(port, "00", "00 84 00 00 08"));
}

TEST(PurseProgram, CardsComeByControlCommandAndBeginAnewWhenPutInAgain)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--quiet"});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(control(socket, {"insert", "255", kPurse}), "ok\n");
    EXPECT_EQ(control(socket, {"insert", "16", kPsam}), "ok\n");
    EXPECT_EQ(control(socket, {"insert", "16", kPsam}), "!error: slot 16 is taken; remove its card first\n");
    EXPECT_EQ(port.ask("32 24 00 00"), "00 00 3B 68 00 00 51 56 53 49 4D 2D 4C 50");
    EXPECT_EQ(port.ask("32 26 FF 00 20 00 00 03 12 34 57"), "00 00 63 C2");
    EXPECT_EQ(control(socket, {"remove", "255"}), "ok\n");
    EXPECT_EQ(control(socket, {"insert", "255", kPurse}), "ok\n");
    port.ask("32 24 00 00");
    EXPECT_EQ(port.ask("32 26 FF 00 20 00 00 03 12 34 57"), "00 00 63 C2");
}

TEST(PurseProgram, FilesThatCannotBeUsedAreToldWithTheirReason)
{
    TempDir dir;
    const std::string socket = dir / "control";
    SimProcess sim({"--control", socket, "--quiet"});
    sim.waitReady();
    const struct {
        const char *card;
        const char *answer;
    } rows[] = {
        {"purse:", "!error: purse:FILE takes the name of a purse file\n"},
        {"psam:", "!error: psam:FILE takes the name of a PSAM file\n"},
        {"purse:/nowhere", "!error: /nowhere: No such file or directory\n"},
        {"psam:/dev", "!error: /dev: no regular file\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(control(socket, {"insert", "0", row.card}), row.answer);
    EXPECT_NE(
        control(socket, {"insert", "0", "purse:" QVSIM_CARDS "/demo.psam"}).find("demo.psam:5: unknown word terminal"),
        std::string::npos);
    EXPECT_NE(
        control(socket, {"insert", "0", "psam:" QVSIM_CARDS "/demo.purse"}).find("demo.purse:6: unknown word issuer"),
        std::string::npos);
    EXPECT_EQ(control(socket, {"remove", "0"}), "!error: slot 0 is empty\n");
}

TEST(PurseProgram, TheShippedFilesAreWhatTheTestsOfTheCardsUse)
{
    PurseData shipped = checked(readPurseFile(QVSIM_CARDS "/demo.purse"));
    const PurseData tested = checked(parsePurseData(kTestPurse, "t"));
    EXPECT_EQ(shipped.loadKeys.at(0).value, tested.loadKeys.at(0).value);
    EXPECT_EQ(shipped.unloadKeys.at(0).value, tested.unloadKeys.at(0).value);
    EXPECT_EQ(shipped.purchaseKeys.at(0).value, tested.purchaseKeys.at(0).value);
    EXPECT_EQ(shipped.tac, tested.tac);
    EXPECT_EQ(shipped.serial, tested.serial);
    EXPECT_EQ(checked(readPsamFile(QVSIM_CARDS "/demo.psam")).masters.at(0).value,
              checked(parsePsamData(kTestPsam, "t")).masters.at(0).value);
}

} // namespace
} // namespace qvsim::test
