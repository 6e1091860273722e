// support_log.h - what the tests of the log share: a log that is on, a clock that stands, the files that come of it.
#pragma once

#include "fake_clock.h"
#include "far_zone.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <sys/stat.h>

namespace qvtest {

inline constexpr char szTime[] = "03-05 06:07:08(009)";
inline constexpr char szLogOn[] = "[QuorvanLog]\nLogFlag=1\n";

inline void callAllWriters()
{
    const uint8_t data[] = {0x12, 0xAB};
    DPrintLogToFile("untyped %d", 1);
    DPrintLogToFileAddType(0, 1, "typed %d", 2);
    DPrintDataHexToFile("hex", data, 2);
    DPrintDataHexToFileAddType(1, 1, "typed hex", data, 2);
}

inline std::set<std::string> filesBelow(const std::string &sDir)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(sDir))
        names.insert(entry.path().string());
    return names;
}

inline mode_t modeOf(const std::string &sPath)
{
    struct stat info {};
    return stat(sPath.c_str(), &info) == 0 ? info.st_mode & 07777U : 0U;
}

inline mode_t currentUmask()
{
    mode_t nMask = umask(0);
    umask(nMask);
    return nMask;
}

class Log : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nMask = umask(022);
        g_DbgSetFlag = 0;
        g_stDebugTip = {};
        QV_DebugSetVersion(nullptr);
        std::filesystem::remove(libraryDirectory() + "/Alg_debug.log");
        logOn();
        m_nDescriptors = openDescriptors();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        umask(m_nMask);
        logOff();
    }

    FakeClock m_clock{localSeconds(2024, 3, 5, 6, 7, 8), 9};
    mode_t m_nMask = 0;
    int m_nDescriptors = 0;
};

} // namespace qvtest
