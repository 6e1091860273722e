// main.cpp - runs the checks of one program inside the virtual machine: a line each, details behind a failure.
//
// The name of the running check stands in /tmp/running, so that whoever ends a program that hangs can tell it.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

namespace {

class OneLineEach : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &info) override
    {
        std::ofstream("/tmp/running", std::ios::trunc) << info.test_suite_name() << "." << info.name() << "\n";
    }

    void OnTestPartResult(const testing::TestPartResult &result) override
    {
        if (!result.failed())
            return;
        m_sDetails += std::string(result.file_name() == nullptr ? "?" : result.file_name()) + ":" +
                      std::to_string(result.line_number()) + "\n" + result.message() + "\n";
    }

    void OnTestEnd(const testing::TestInfo &info) override
    {
        const bool bPassed = info.result()->Passed();
        std::printf("%s %s.%s (%d ms)\n", bPassed ? "ok  " : "FAIL", info.test_suite_name(), info.name(),
                    static_cast<int>(info.result()->elapsed_time()));
        std::string sLine;
        for (char c : m_sDetails) {
            if (c != '\n') {
                sLine += c;
                continue;
            }
            std::printf("     %s\n", sLine.c_str());
            sLine.clear();
        }
        m_sDetails.clear();
        std::fflush(stdout);
    }

    std::string m_sDetails;
};

} // namespace

int main(int nArgs, char **ppArgs)
{
    std::signal(SIGPIPE, SIG_IGN);
    testing::InitGoogleTest(&nArgs, ppArgs);
    testing::TestEventListeners &listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new OneLineEach); // gtest owns it
    return RUN_ALL_TESTS();
}
