// The option --from-log: files in, a card file or a reason out.
#include "sim_process.h"

#include "program/card_files.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace qvsim::test {
namespace {

// What the library writes of one exchange, as far as it matters.
std::string exchange(const std::string &command, const std::string &body)
{
    return " 11-21 14:21:33(305)  【发送命令】 szSend\n  LEN=" + std::to_string(command.size() / 2) +
           "   HEX: " + command + "\r\n 11-21 14:21:33(308)  ucBody  LEN=" + std::to_string(body.size() / 2) +
           "   HEX: " + body + "\r\n";
}

const std::string kPowerOn = exchange("3222000000", "000400003B003B");
const std::string kChallenge = exchange("3226000084000002", "0006000011229000A3");

class FromLog : public testing::Test {
  protected:
    std::string file(const std::string &name, const std::string &text)
    {
        std::ofstream(dir / name, std::ios::binary) << text;
        return dir / name;
    }

    TempDir dir;
};

TEST_F(FromLog, TheCardIsPrintedOrRecorded)
{
    const std::string log = file("a.log", kPowerOn + kChallenge);
    const std::string card = "name recorded in slot 0\natr 3B 00\n> 00 84 00 00 02\n< 11 22 90 00\n";
    const RunResult printed = runProgram({"--from-log", log});
    EXPECT_EQ(printed.exitCode, 0);
    EXPECT_EQ(printed.out, card);
    EXPECT_EQ(printed.err, "");
    const std::string recorded = dir / "a.card";
    const RunResult written = runProgram({"--from-log", log, "--record", recorded});
    EXPECT_EQ(written.exitCode, 0);
    EXPECT_EQ(written.out + written.err, "");
    struct stat info {};
    ASSERT_EQ(::stat(recorded.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U) << "it holds card data";
    EXPECT_TRUE(std::holds_alternative<CardScript>(readCardFile(recorded)));
    SimProcess sim({"--card", "0=script:" + recorded});
    HostPort port(sim.waitReady(), 9600);
    EXPECT_EQ(port.ask("32 22 00 00 00"), "00 00 3B 00");
    EXPECT_EQ(port.ask("32 26 00 00 84 00 00 02"), "00 00 11 22 90 00");
}

TEST_F(FromLog, SeveralFilesAreOneLog)
{
    const std::string first = file("QV_20261120.log", kPowerOn + kChallenge.substr(0, kChallenge.find(" 11-21", 5)));
    const std::string second = file("QV_20261121.log", kChallenge.substr(kChallenge.find(" 11-21", 5)));
    const RunResult result = runProgram({"--from-log", first, "--from-log", second});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("> 00 84 00 00 02\n< 11 22 90 00\n"), std::string::npos) << result.out;
}

TEST_F(FromLog, ASlotIsChosenWhereThereAreSeveral)
{
    const std::string psam = exchange("3222000010", "000400003B102B") + exchange("3226100084", "00040000900090");
    const std::string log = file("a.log", kPowerOn + kChallenge + psam);
    const RunResult open = runProgram({"--from-log", log});
    EXPECT_EQ(open.exitCode, 1);
    EXPECT_EQ(open.out, "");
    EXPECT_EQ(open.err, "qvreader-sim: " + log +
                            ": cards have answered in several slots; choose one\n"
                            "  --slot 0  slot 0, 1 exchange\n  --slot 16  PSAM 0, 1 exchange\n");
    EXPECT_EQ(runProgram({"--from-log", log, "--slot", "16"}).out,
              "name recorded in PSAM 0\natr 3B 10\n> 00 84\n< 90 00\n");
    const RunResult wrong = runProgram({"--from-log", log, "--slot", "255"});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_NE(wrong.err.find("no card has answered in contactless card, but in\n  --slot 0"), std::string::npos)
        << wrong.err;
}

TEST_F(FromLog, WhatIsLeftOutIsTold)
{
    const std::string cut = kChallenge.substr(0, kChallenge.size() - 6) + "\n";
    const std::string log = file("a.log", kChallenge + cut + std::string(100'000, 'x') + "\n");
    const RunResult result = runProgram({"--from-log", log});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "name recorded in slot 0\natr 3B 00 # the power-on was not heard\n> 00 84 00 00 02\n< 11 22 90 00\n");
    EXPECT_EQ(result.err, "qvreader-sim: 1 dump cut off, left out\n"
                          "qvreader-sim: 1 line of more than 16384 characters left out\n"
                          "qvreader-sim: 1 command without a card's answer left out\n"
                          "qvreader-sim: no answer to power-on in the log; the card gets the plain 3B 00\n");
    EXPECT_EQ(runProgram({"--from-log", log, "--quiet"}).err, "");
    const RunResult later = runProgram({"--from-log", file("b.log", kChallenge + kPowerOn)});
    EXPECT_EQ(later.err, "qvreader-sim: the log begins behind the card's power-on; the answer to it is that of the "
                         "next one\n");
}

TEST_F(FromLog, FilesThatHoldNoCardAreRefusedWithTheReason)
{
    const std::string noCard = exchange("3222000000", "0002100515");
    const struct {
        std::string path;
        std::string reason;
    } rows[] = {
        {file("empty", ""), ": no log of the driver library, or nothing was sent while it was on"},
        {file("binary", std::string("\x7F"
                                    "ELF\0\0\n\0",
                                    8) +
                            std::string(50'000, '\0')),
         ": no log of the driver library, or nothing was sent while it was on"},
        {file("text", "  11-21 14:21:33(305)  INFO:    Comm:    [COMM_Rdz_OpenReader]Start \r\n"),
         ": no log of the driver library, or nothing was sent while it was on"},
        {file("nocard", noCard), ": no card has answered in this log"},
        {dir / "nowhere", ": No such file or directory"},
        {dir / "", ": no regular file"},
    };
    for (const auto &row : rows) {
        const RunResult result = runProgram({"--from-log", row.path});
        EXPECT_EQ(result.exitCode, 1) << row.path;
        EXPECT_EQ(result.out, "") << row.path;
        EXPECT_EQ(result.err, "qvreader-sim: " + row.path + row.reason + "\n");
    }
}

TEST_F(FromLog, ACardThatIsLargerThanACardFileMayBeIsRefused)
{
    std::string log = kPowerOn;
    for (unsigned i = 0; i < 60'000; ++i) {
        const char digits[] = "0123456789ABCDEF";
        std::string command = "32260000B0";
        for (const int shift : {12, 8, 4, 0})
            command += digits[(i >> shift) & 0x0F];
        log += exchange(command + "00", "00040000900090");
    }
    const RunResult result = runProgram({"--from-log", file("a.log", log)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("larger than a card file may be (1 MiB)"), std::string::npos) << result.err;
}

TEST_F(FromLog, ARecordThatCannotBeWrittenIsTold)
{
    const std::string log = file("a.log", kPowerOn + kChallenge);
    const RunResult result = runProgram({"--from-log", log, "--record", dir / "no/such/folder"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "qvreader-sim: record " + dir / "no/such/folder" + ": No such file or directory\n");
    EXPECT_EQ(runProgram({"--from-log", log, "--record", "/dev/full"}).exitCode, 1);
}

} // namespace
} // namespace qvsim::test
