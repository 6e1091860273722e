// support_retention.h - what the tests of log files by date share: a log directory, and a clock that stands.
#pragma once

#include "fake_clock.h"
#include "far_zone.h"
#include "harness.h"

#include "qvreader/support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace qvtest {

using Texts = std::vector<std::string>;
using Names = std::vector<std::string>;

struct Date {
    int nYear;
    int nMonth;
    int nDay;
};

inline std::string logName(Date date)
{
    char szName[64];
    std::snprintf(szName, sizeof szName, "QV_%04d%02d%02d.log", date.nYear, date.nMonth, date.nDay);
    return szName;
}

class Retention : public testing::Test {
  protected:
    void SetUp() override
    {
        m_nMask = umask(022);
        std::filesystem::remove_all(m_sDir);
        std::filesystem::create_directory(m_sDir);
        logOn();
        m_nDescriptors = openDescriptors();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        logOff();
        std::filesystem::remove_all(m_sDir);
        umask(m_nMask);
    }

    void today(Date date) { m_clock.set(localSeconds(date.nYear, date.nMonth, date.nDay)); }
    void put(const std::string &sName) { writeFile(m_sDir + "/" + sName, "x"); }
    bool has(const std::string &sName) const { return std::filesystem::exists(m_sDir + "/" + sName); }
    std::string path(const std::string &sName) const { return m_sDir + "/" + sName; }

    // The names in the order in which the directory gives them.
    Names listed()
    {
        int32_t nCount = -1;
        auto names = std::make_unique<char[][256]>(100);
        EXPECT_EQ(GetLogList((m_sDir + "/").c_str(), names.get(), &nCount), 0);
        Names all;
        for (int32_t n = 0; n < nCount; ++n)
            all.emplace_back(names[static_cast<size_t>(n)]);
        return all;
    }

    // Puts two files so that the directory gives sFirst before a file of the name sPrefix + number, and returns that
    // name.
    std::string putInOrder(const std::string &sFirst, const std::string &sPrefix)
    {
        for (int n = 0; n < 100; ++n) {
            const std::string sSecond = sPrefix + std::to_string(n);
            std::filesystem::remove_all(m_sDir);
            std::filesystem::create_directory(m_sDir);
            put(n % 2 == 0 ? sFirst : sSecond);
            put(n % 2 == 0 ? sSecond : sFirst);
            if (listed() == Names{sFirst, sSecond})
                return sSecond;
        }
        ADD_FAILURE() << "the directory never gave " << sFirst << " first";
        return sPrefix;
    }

    // The log texts of a purge.
    Texts purge()
    {
        logOn();
        DelOutTimeLogFile();
        return logTexts();
    }

    // A purge of this file alone logs this age, and deletes the file when it is above 15.
    void expectAge(const std::string &sName, int nAge)
    {
        put(sName);
        Texts expected = {"3", "file:" + sName, "nbetween data:" + std::to_string(nAge)};
        if (nAge > 15)
            expected.push_back("del outtime FILE:" + path(sName));
        EXPECT_EQ(purge(), expected);
        EXPECT_EQ(has(sName), nAge <= 15);
        std::filesystem::remove(path(sName));
    }

    const std::string m_sDir = libraryDirectory() + "/log";
    FakeClock m_clock{localSeconds(2026, 11, 20)};
    mode_t m_nMask = 0;
    int m_nDescriptors = 0;
};

} // namespace qvtest
