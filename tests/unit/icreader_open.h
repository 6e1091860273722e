// icreader_open.h - what the tests of the reader's opening share: a reader that is not open yet, and what the library
// does to its port.
#pragma once

#include "pty_peer.h"

#include "qvreader/icreader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <termios.h>
#include <utility>
#include <vector>

namespace qvtest {

// One write: the bytes, and the speed of the line at that moment.
struct Sent {
    std::string sBytes;
    speed_t nSpeed;
    bool operator==(const Sent &) const = default;
};
inline std::ostream &operator<<(std::ostream &out, const Sent &sent)
{
    return out << sent.sBytes << " at speed code " << sent.nSpeed;
}

// A USB identity: product, vendor.
using Identity = std::pair<uint32_t, uint32_t>;

// The identities that are tried without the host's doing, in order.
inline const std::vector<Identity> s_builtIn = {{0xBCD5, 0x0403}, {0xBCD7, 0x0403}, {0xBC95, 0x0403},
                                                {0xBE11, 0x2B46}, {0xBE21, 0x2B46}, {0xBE01, 0x2B46}};

struct PortCalls {
    static inline PtyPeer *s_pPeer = nullptr;
    static inline size_t s_nOnTheLine = 0;
    static inline std::vector<Sent> s_sent;
    static inline std::vector<int> s_errors;                // errno of the i-th write, 0: it works
    static inline std::function<void(size_t)> s_afterWrite; // called with the number of the write
    static inline std::vector<int> s_openErrors;            // errno of the i-th opening of the port, 0: it works
    static inline size_t s_nOpens = 0;                      // openings of the port

    // The identities that the open record went through, each once in a row.
    static inline std::vector<Identity> s_identities;
};

class ReaderOpen : public testing::Test, public PortCalls {
  protected:
    void SetUp() override
    {
        m_nDescriptors = openDescriptors();
        m_peer.emplace();
        s_pPeer = &*m_peer;
        s_nOnTheLine = 0;
        s_sent.clear();
        s_errors.clear();
        s_afterWrite = nullptr;
        s_openErrors.clear();
        s_nOpens = 0;
        s_identities.clear();
        stBackUpParam = {};
        stRDZ73xx = {};
        g_sParam = {};
        stCardReader = {};
        for (IcHidId &id : g_Hid)
            id = {};
        g_nHidNum = g_bIcSetHidFlag = g_bUseSetHid = g_bIcBaundFlag = g_useBpBox = 0;
        Dev_Rdz_Ic_SetPcscReader(nullptr);
        g_bIsLinuxHidClearZero = 0;
        // "COM1", "AUX3" and so on are paths as well: relative ones, in this folder.
        m_home = std::filesystem::current_path();
        m_folder = libraryDirectory() + "/ttys";
        std::filesystem::create_directory(m_folder);
        std::filesystem::current_path(m_folder);
    }
    void TearDown() override
    {
        logOff();
        s_pPeer = nullptr;
        COMM_Com_CloseLinux();
        m_peer.reset();
        std::filesystem::current_path(m_home);
        std::filesystem::remove_all(m_folder);
        EXPECT_EQ(openDescriptors(), m_nDescriptors);
    }
    const char *path() const { return m_peer->path().c_str(); }
    void link(const std::string &sName) { std::filesystem::create_symlink(m_peer->path(), sName); }
    static int32_t open(const char *pszName, int32_t nBaud = 9600, const char *pszBox = nullptr, uint32_t nTermType = 1)
    {
        return Dev_Rdz_Ic_OpenPort(pszName, reinterpret_cast<const uint8_t *>(pszBox), nTermType, 0, nBaud);
    }
    static speed_t speed()
    {
        termios now{};
        EXPECT_EQ(tcgetattr(g_AuxFd, &now), 0);
        return cfgetospeed(&now);
    }
    static size_t countLogged(const std::string &sText)
    {
        auto texts = logTexts();
        return static_cast<size_t>(std::count(texts.begin(), texts.end(), sText));
    }
    // Opens by a USB name and returns the identities that were tried, in order; none is plugged in.
    static std::vector<Identity> tried(const char *pszName, size_t *pnOpens = nullptr)
    {
        g_sParam = {};
        s_identities.clear();
        logOn();
        EXPECT_EQ(open(pszName), -51);
        size_t nOpens = countLogged("ICC_OpenLinuxTransPort");
        EXPECT_EQ(countLogged("===>[Dev_Rdz_Ic_ClosePort] Start "), nOpens - 1);
        logOff();
        if (pnOpens != nullptr)
            *pnOpens = nOpens;
        if (!s_identities.empty() && s_identities.front() == Identity{0, 0})
            s_identities.erase(s_identities.begin());
        return s_identities;
    }

    int m_nDescriptors = 0;
    std::optional<PtyPeer> m_peer;
    std::filesystem::path m_home;
    std::string m_folder;
};

} // namespace qvtest
