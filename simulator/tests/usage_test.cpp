// Wrong usage: the reason on standard error, 2 for a command line that cannot be understood, 1 for what cannot be done,
// and nothing is left behind.
#include "sim_process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace qvsim::test {
namespace {

struct Row {
    std::vector<std::string> arguments;
    int exitCode;
    std::string reason;
};

void expectRefused(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        const RunResult result = runProgram(row.arguments);
        std::string line = "qvreader-sim";
        for (const std::string &argument : row.arguments)
            line += " '" + argument + "'";
        EXPECT_EQ(result.exitCode, row.exitCode) << line;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_NE(result.err.find(row.reason), std::string::npos) << line << "\n" << result.err;
    }
}

TEST(Usage, CommandLinesThatCannotBeUnderstoodLeaveWithTwo)
{
    expectRefused({
        {{"--nonsense"}, 2, "not expected: --nonsense"},
        {{"extra"}, 2, "not expected: extra"},
        {{"--expect", "x"}, 2, "not expected: x"},
        {{"--card", "=script:x"}, 2, "write SLOT=script:FILE"},
        {{"--card-patience", "0"}, 2, "not in range 1 to 600000"},
        {{"--stripe", ""}, 2, "--stripe: a file name is missing"},
        {{"--stripe-after", "600001"}, 2, "not in range 0 to 600000"},
        {{"--stripe-channel", "D"}, 2, "--stripe-channel: D not in {A,B,C,K}"},
        {{"--from-log", "x", "--stripe", "y"}, 2, "--stripe excludes --from-log"},
        {{"--control", ""}, 2, "--control: a file name is missing"},
        {{"--trace", ""}, 2, "--trace: a file name is missing"},
        {{"--from-log", ""}, 2, "--from-log: a file name is missing"},
        {{"--from-log"}, 2, "--from-log: 1 required FILE missing"},
        {{"--from-log", "x", "--slot", "32"}, 2, "--slot: 32: a slot is"},
        {{"--from-log", "x", "--record", ""}, 2, "--record: a file name is missing"},
        {{"--from-log", "x", "--card", "0=script:x"}, 2, "--card excludes --from-log"},
        {{"--from-log", "x", "--expect"}, 2, "--expect excludes --from-log"},
        {{"--from-log", "x", "tap", "y"}, 2, "--from-log: means nothing to tap"},
        {{"--slot", "0"}, 2, "--slot requires --from-log"},
        {{"--record", "x"}, 2, "--record requires --from-log"},
        {{"ctl"}, 2, "SOCKETPATH is required"},
        {{"ctl", "x"}, 2, "COMMAND is required"},
        {{"--link", "x", "ctl", "x", "state"}, 2, "--link: means nothing to ctl"},
        {{"tap"}, 2, "TTY is required"},
        {{"tap", "/dev/null", "--expect"}, 2, "--expect: means nothing to tap"},
        {{"tap", "/dev/null", "--record", ""}, 2, "--record: a file name is missing"},
        {{"--card", "0=script:x", "tap", "/dev/null"}, 2, "--card: means nothing to tap"},
        {{"--stripe", "x", "tap", "/dev/null"}, 2, "--stripe: means nothing to tap"},
        {{"--stripe-once", "ctl", "x", "state"}, 2, "--stripe-once: means nothing to ctl"},
    });
}

TEST(Usage, FilesThatAreNotWhatTheyShouldBeLeaveWithOne)
{
    TempDir dir;
    const std::string folder = dir / "folder";
    const std::string file = dir / "file";
    std::filesystem::create_directory(folder);
    std::ofstream(file) << "precious";
    const std::string link = dir / "link";
    const std::vector<std::string> linked{"--link", link};
    std::vector<Row> rows{
        {{"--card", "0=script:" + dir / "none"}, 1, dir / "none" + ": No such file or directory"},
        {{"--card", "0=script:" + folder}, 1, folder + ": no regular file"},
        {{"--card", "0=script:/dev/zero"}, 1, "/dev/zero: no regular file"},
        {{"--card", "0=script:" + file}, 1, file + ":1: unknown word"},
        {{"--card", "0=script:"}, 1, "script:FILE takes the name of a card file"},
        {{"--stripe", dir / "none"}, 1, "stripe " + dir / "none" + ": No such file or directory"},
        {{"--stripe", folder}, 1, "stripe " + folder + ": no regular file"},
        {{"--stripe", "/dev/zero"}, 1, "/dev/zero: no regular file"},
        {{"--stripe", file}, 1, "stripe " + file + ":1: unknown word; known are name, format"},
        {{"--card", "0="}, 1, "a card is script:FILE, purse:FILE, psam:FILE or vpcd:PORT"},
        {{"--control", folder}, 1, "control socket " + folder + ": exists and is no socket"},
        {{"--control", file}, 1, "control socket " + file + ": exists and is no socket"},
        {{"--control", dir / "none/socket"}, 1, "none/socket: No such file or directory"},
        {{"--control", std::string(200, 'x')}, 1, "a path has 1 to 107 characters"},
        {{"--trace", folder}, 1, "trace file " + folder + ": Is a directory"},
        {{"--link", folder}, 1, "link " + folder + ": exists and is no symbolic link"},
        {{"--link", dir / "none/link"}, 1, "none/link: No such file or directory"},
        {{"ctl", dir / "none", "state"}, 1, "control socket " + dir / "none" + ": No such file or directory"},
        {{"ctl", file, "state"}, 1, "control socket " + file + ": "},
        {{"tap", folder}, 1, "tty " + folder + ": Is a directory"},
        {{"tap", file}, 1, "tty " + file + ": Inappropriate ioctl for device"},
    };
    for (Row &row : rows)
        if (row.arguments[0].starts_with("--"))
            row.arguments.insert(row.arguments.begin(), linked.begin(), linked.end());
    expectRefused(rows);
    EXPECT_FALSE(std::filesystem::is_symlink(link)) << "left behind";
    EXPECT_EQ(std::filesystem::file_size(file), 8U);
}

TEST(Usage, HelpNamesEveryOptionAndCommand)
{
    SimProcess help({"--help"}, StandardInput::atEnd);
    EXPECT_EQ(help.wait(), 0);
    std::string text;
    for (int empty = 0; empty < 8;) { // paragraphs
        const std::string line = help.readLine();
        empty = line.empty() ? empty + 1 : 0;
        text += line + "\n";
    }
    for (const char *word : {"--link",
                             "--baud",
                             "--card ",
                             "--device",
                             "--control",
                             "--trace",
                             "--card-patience",
                             "--expect",
                             "--from-log",
                             "--slot",
                             "--record",
                             "--quiet",
                             "--stripe ",
                             "--stripe-after",
                             "--stripe-once",
                             "--stripe-channel",
                             "--stripe-final",
                             "stripe FILE|none|SETTING",
                             "tap",
                             "ctl",
                             "exit code 3",
                             "  expect  "})
        EXPECT_NE(text.find(word), std::string::npos) << word << " in\n" << text;
}

} // namespace
} // namespace qvsim::test
