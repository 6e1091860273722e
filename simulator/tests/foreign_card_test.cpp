// A card that nobody here wrote: the virtual ISO 7816 card of the package vsmartcard-vpicc in the simulator's slot.
#include "sim_process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>

namespace qvsim::test {
namespace {

constexpr char kVicc[] = "/usr/bin/vicc";
constexpr int kSkipped = 77;

// The virtual card as a child process.
class Vicc {
  public:
    explicit Vicc(const std::string &port) : pid_(::fork())
    {
        if (pid_ != 0)
            return;
        const int quiet = ::open("/dev/null", O_RDWR);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::dup2(quiet, standard);
        const std::string launcher = QVSIM_CARDS "/foreign/vicc-launcher";
        ::execl("/usr/bin/python3", "python3", launcher.c_str(), "--type", "iso7816", "--hostname", "127.0.0.1",
                "--port", port.c_str(), nullptr);
        ::_exit(127);
    }
    ~Vicc() { end(); }

    void end()
    {
        if (pid_ <= 0)
            return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

  private:
    pid_t pid_;
};

TEST(ForeignCard, ConversesThroughTheSimulatorLeavesAndComesAgain)
{
    SimProcess sim({"--card", "0=vpcd:0"});
    const std::string line = sim.readLine();
    ASSERT_TRUE(line.starts_with("vpcd 0 ")) << line;
    const std::string vpcdPort = line.substr(7);
    HostPort port(sim.waitReady(), 9600);
    for (int round = 0; round < 2; ++round) {
        Vicc card(vpcdPort);
        ASSERT_TRUE(eventually([&] { return port.ask("32 21 00") == "10 03"; })) << "it has never connected";
        EXPECT_EQ(port.ask("32 22 00 00 00"), "00 00 3B 95 13 81 01 80 73 FF 01 00 0B");
        EXPECT_EQ(port.ask("32 26 00 00 A4 00 0C 02 3F 00"), "00 00 90 00");
        const std::string challenge = port.ask("32 26 00 00 84 00 00 08");
        EXPECT_EQ(challenge.size(), std::string("00 00 11 22 33 44 55 66 77 88 90 00").size()) << challenge;
        EXPECT_TRUE(challenge.ends_with("90 00")) << challenge;
        EXPECT_NE(challenge, port.ask("32 26 00 00 84 00 00 08"));
        EXPECT_EQ(port.ask("32 26 00 00 B0 00 00 00"), "00 00 69 86");
        card.end();
        EXPECT_TRUE(eventually([&] { return port.ask("32 21 00") == "10 05"; })) << "it has been pulled out";
    }
}

} // namespace
} // namespace qvsim::test

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (::access(qvsim::test::kVicc, X_OK) != 0) {
        std::printf("SKIPPED: %s is not installed (package vsmartcard-vpicc)\n", qvsim::test::kVicc);
        return qvsim::test::kSkipped;
    }
    return RUN_ALL_TESTS();
}
