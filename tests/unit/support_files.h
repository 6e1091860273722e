// support_files.h - what the tests of the file functions share: a folder beside the library, and being nobody.
#pragma once

#include "harness.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace qvtest {

// A fresh folder for each test; descriptors are counted.
class Files : public testing::Test {
  protected:
    void SetUp() override
    {
        std::filesystem::remove_all(m_sDir);
        std::filesystem::create_directory(m_sDir);
        m_nDescriptors = openDescriptors();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
        std::filesystem::remove_all(m_sDir);
    }

    std::string path(const std::string &sName) const { return m_sDir + "/" + sName; }
    // Makes a file, gives its path.
    std::string made(const std::string &sName, std::string_view sText) const
    {
        writeFile(path(sName), sText);
        return path(sName);
    }
    static bool exists(const std::string &sPath) { return access(sPath.c_str(), F_OK) == 0; }

  private:
    const std::string m_sDir = libraryDirectory() + "/files";
    int m_nDescriptors = 0;
};

// A user without rights while it lives: root may do everything.
class Nobody {
  public:
    Nobody() : m_bRoot(geteuid() == 0) { EXPECT_TRUE(!m_bRoot || seteuid(65534) == 0); }
    ~Nobody() { EXPECT_TRUE(!m_bRoot || seteuid(0) == 0); }
    Nobody(const Nobody &) = delete;
    Nobody &operator=(const Nobody &) = delete;

  private:
    bool m_bRoot;
};

} // namespace qvtest
