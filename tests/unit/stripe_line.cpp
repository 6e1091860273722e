#include "stripe_line.h"

#include "harness.h"

#include "qvreader/transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace {

qvtest::StripeLine *s_pLine = nullptr;

bool isOfThePort(int nFd)
{
    return s_pLine != nullptr && nFd >= 0 && nFd == g_AuxFd;
}

} // namespace

extern "C" [[gnu::visibility("default")]] ssize_t read(int nFd, void *pBuf, size_t nLen)
{
    return isOfThePort(nFd) ? s_pLine->read(static_cast<uint8_t *>(pBuf), nLen) : syscall(SYS_read, nFd, pBuf, nLen);
}

extern "C" [[gnu::visibility("default")]] ssize_t write(int nFd, const void *pData, size_t nLen)
{
    return isOfThePort(nFd) ? s_pLine->written(static_cast<const uint8_t *>(pData), nLen)
                            : syscall(SYS_write, nFd, pData, nLen);
}

namespace qvtest {

StripeScript operator+(StripeScript first, const StripeScript &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void PrintTo(const StripeWait &wait, std::ostream *pOut)
{
    *pOut << "{after " << wait.sCommand << ", " << wait.nSeconds << " s, "
          << reinterpret_cast<const void *>(wait.pfnEnd) << "}";
}

StripeLine::StripeLine() : m_clock(nStripeStart)
{
    s_pLine = this;
}

StripeLine::~StripeLine()
{
    s_pLine = nullptr;
}

void StripeLine::play(const StripeScript &script)
{
    m_script = script;
    m_nStep = 0;
    m_passes.clear();
    m_sWrong.clear();
}

void StripeLine::finish()
{
    EXPECT_EQ(m_sWrong, "");
    EXPECT_EQ(m_nStep, m_script.size()) << "commands of the script were not sent, first of them "
                                        << (m_nStep < m_script.size() ? m_script[m_nStep].sCommand : "");
    play({});
}

std::vector<StripeWait> StripeLine::takeWaits()
{
    return std::exchange(m_waits, {});
}

int64_t StripeLine::takeMillis()
{
    return m_nPassed - std::exchange(m_nTaken, m_nPassed);
}

void StripeLine::passMillis(int64_t nMillis)
{
    m_nPassed += nMillis;
    m_clock.set(nStripeStart + m_nPassed / 1000, static_cast<int>(m_nPassed % 1000));
}

void StripeLine::answer(const StripeStep &step)
{
    std::string sHex;
    auto addData = [&] {
        if (Bytes data = bytes(sHex); !data.empty())
            m_passes.push_back({Pass::Data, std::move(data)});
        sHex.clear();
    };
    for (const char c : step.sReply) {
        if (c != '/' && c != ',' && c != '!') {
            sHex += c;
            continue;
        }
        addData();
        m_passes.push_back({c == '/' ? Pass::Idle : c == ',' ? Pass::Short : Pass::Failure, {}});
    }
    addData();
    if (!m_passes.empty())
        m_passes.back().nMillis = step.nMillis;
}

long StripeLine::written(const uint8_t *pData, size_t nLen)
{
    const std::string sSent = hex(pData, nLen);
    m_sLastCommand = sSent;
    m_bReading = false;
    if (m_nStep >= m_script.size() || hex(bytes(m_script[m_nStep].sCommand)) != sSent) {
        if (m_sWrong.empty())
            m_sWrong = "sent " + sSent + "\n  instead of " +
                       (m_nStep < m_script.size() ? m_script[m_nStep].sCommand : std::string("nothing"));
        return static_cast<long>(nLen);
    }
    const StripeStep &step = m_script[m_nStep++];
    if (!step.bTaken) {
        errno = EIO;
        return -1;
    }
    answer(step);
    return static_cast<long>(nLen);
}

long StripeLine::read(uint8_t *pBuf, size_t nLen)
{
    if (!m_bReading)
        m_waits.push_back({m_sLastCommand, stBackUpParam.nTimeOut, stBackUpParam.pfnEndCondition});
    m_bReading = true;
    if (m_passes.empty()) {
        passMillis(1000);
        return 0;
    }
    const long nRead = hand(m_passes.front(), pBuf, nLen);
    if (m_passes.front().data.empty()) {
        passMillis(m_passes.front().nMillis);
        m_passes.erase(m_passes.begin());
    }
    return nRead;
}

long StripeLine::hand(Pass &pass, uint8_t *pBuf, size_t nLen)
{
    switch (pass.kind) {
    case Pass::Idle: passMillis(1000); return 0;
    case Pass::Short: return 0;
    case Pass::Failure: errno = EIO; return -1;
    case Pass::Data: break;
    }
    const auto nHanded = static_cast<long>(std::min(nLen, pass.data.size()));
    std::copy_n(pass.data.begin(), nHanded, pBuf);
    pass.data.erase(pass.data.begin(), pass.data.begin() + nHanded);
    return nHanded;
}

} // namespace qvtest
