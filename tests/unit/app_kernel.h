// app_kernel.h - card sessions with the kernel of the tests: device operations that write themselves into the kernel's
// list of calls, the process record and the data buffer full of a pattern, every option as at load.
#pragma once

#include "device_log.h"
#include "pty_peer.h"
#include "test_kernel.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace qvtest {

using Calls = std::vector<std::string>;

constexpr char szPort[] = "/dev/reader";
constexpr char szParameter[] = "B";
constexpr int32_t nBaud = 115200;
constexpr char szOpen[] = "open(/dev/reader, B, 1, 0, 115200)";
constexpr uint8_t ucPattern = 0xA5;

// What the device operations answer.
struct DeviceAnswers {
    int32_t nOpen = 0, nClose = 0, nPowerDown = 0;
};
inline DeviceAnswers s_device;

inline int32_t openOperation(const char *pszPort, const char *pszParameter, uint32_t nType, uint32_t nReserved,
                             int32_t nRate)
{
    testKernelNote("open(%s, %s, %u, %u, %d)", pszPort, pszParameter == nullptr ? "null" : pszParameter, nType,
                   nReserved, nRate);
    return s_device.nOpen;
}
inline int32_t closeOperation()
{
    testKernelNote("close()");
    return s_device.nClose;
}
inline int32_t powerDownOperation()
{
    testKernelNote("powerDown()");
    return s_device.nPowerDown;
}

template <typename Function> void *slot(Function *pFunction)
{
    return reinterpret_cast<void *>(pFunction);
}

// The list of calls since the last look.
inline Calls takeCalls()
{
    Calls calls;
    TestKernel *pKernel = testKernel();
    std::string sAll(pKernel->szCalls, pKernel->nCalls);
    for (size_t nAt = 0; nAt < sAll.size();) {
        size_t nEnd = sAll.find('\n', nAt);
        calls.push_back(sAll.substr(nAt, nEnd - nAt));
        nAt = nEnd + 1;
    }
    pKernel->nCalls = 0;
    pKernel->szCalls[0] = '\0';
    return calls;
}

// What the kernel's saving functions write.
inline void kernelText(std::string_view sText)
{
    testKernel()->szText[sText.copy(testKernel()->szText, sizeof testKernel()->szText - 1)] = '\0';
}

// A process record as it is expected: begins with one byte throughout.
class Record {
  public:
    explicit Record(uint8_t ucFill) { m_bytes.fill(ucFill); }
    Record &u8(size_t nAt, int nValue)
    {
        m_bytes.at(nAt) = static_cast<uint8_t>(nValue);
        return *this;
    }
    Record &u32(size_t nAt, int64_t nValue) { return put(nAt, static_cast<uint32_t>(nValue)); }
    Record &pointer(size_t nAt, const void *p) { return put(nAt, p); }
    Record &data(size_t nAt, const Bytes &bytes)
    {
        std::copy(bytes.begin(), bytes.end(), m_bytes.begin() + static_cast<std::ptrdiff_t>(nAt));
        return *this;
    }
    // Where another record differs: "offset: expected/found", the first ones.
    std::string differences(const uint8_t *pFound) const
    {
        std::string s;
        for (size_t i = 0; i < m_bytes.size() && s.size() < 200; ++i)
            if (pFound[i] != m_bytes[i])
                s += std::to_string(i) + ": " + hex(&m_bytes[i], 1) + "/" + hex(pFound + i, 1) + " ";
        return s;
    }

  private:
    template <typename T> Record &put(size_t nAt, T value)
    {
        std::memcpy(m_bytes.data() + nAt, &value, sizeof value);
        return *this;
    }
    std::array<uint8_t, EMV_PROC_SIZE> m_bytes;
};

// A cleared record with what every start of a selection writes.
inline Record startedRecord(int32_t nKind, char cCardType)
{
    return Record(0)
        .u32(EMV_PROC_KIND, nKind)
        .u8(EMV_PROC_CARD_TYPE, cCardType)
        .pointer(EMV_PROC_BUFFER, g_szEmvbuf)
        .u32(EMV_PROC_BUFFER_SIZE, 8192);
}

// What a step that goes on with the selection finds: the earlier record but for a few fields.
inline Record kept(int32_t nKind)
{
    return Record(ucPattern).u32(EMV_PROC_KIND, nKind).u8(EMV_PROC_DETAIL, 0);
}

inline bool isBufferKept()
{
    return std::all_of(std::begin(g_szEmvbuf), std::end(g_szEmvbuf), [](uint8_t uc) { return uc == ucPattern; });
}

// The record as the kernel saw it last.
inline std::string seenAgainst(const Record &expected)
{
    return expected.differences(testKernel()->record);
}

// The list of calls goes to the log too, so that a log shows calls and lines in their common order.
inline void logWithCalls()
{
    logOn();
    testKernel()->bLogsCalls = 1;
}

// The line of a call in such a log.
inline std::string callLine(const std::string &sCall)
{
    return "  T  call " + sCall + "\r\n";
}

inline void fillShared()
{
    std::fill(std::begin(g_stProc), std::end(g_stProc), ucPattern);
    std::fill(std::begin(g_szEmvbuf), std::end(g_szEmvbuf), ucPattern);
}

inline uint8_t icType()
{
    uint8_t uc = 0;
    EXPECT_EQ(tfunc_GetIcType(&uc), 0);
    return uc;
}

// Begins anew; the operations stand in stICOp, as the kernel puts them there.
inline void beginSession()
{
    static char szEmvData[] = "the kernel's";
    testKernelReset();
    s_device = {};
    std::array<void *, 10> table = {};
    table[1] = slot(openOperation);
    table[2] = slot(closeOperation);
    table[5] = slot(powerDownOperation);
    EXPECT_EQ(QV_APP_SetFuncP(table.data()), 0);
    EXPECT_EQ(takeCalls(), Calls{"Emv_SetFunP(0)"});
    QV_APP_SetArqcExeFlag(0);
    QV_APP_SetPpseSelect(1);
    QV_APP_SetNoGac2Flag(0);
    QV_APP_SetFastReadFlag(0);
    QV_APP_SetTlvTagFlag(0);
    QV_APP_SetInfoPowerOffFlag(0);
    tfunc_SetIcType(0xEE);
    pszEmvData = szEmvData;
    fillShared();
}

class KernelSession : public testing::Test {
  protected:
    void SetUp() override { beginSession(); }
    void TearDown() override
    {
        logOff();
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        pszEmvData = nullptr;
    }
};

// One case of a call: what is different this time, the calls in order, and the result.
struct Case {
    const char *pszWhat;
    std::function<void()> arrange;
    Calls expected;
    int32_t nResult;
};

inline void nothing() {}

inline void runCases(const std::function<int32_t()> &call, const std::vector<Case> &cases)
{
    for (const Case &c : cases) {
        beginSession();
        c.arrange();
        EXPECT_EQ(call(), c.nResult) << c.pszWhat;
        EXPECT_EQ(takeCalls(), c.expected) << c.pszWhat;
    }
}

// A line of this layer as the log file shows it.
inline std::string appLine(const std::string &sText)
{
    return "  T  INFO:    AppIc    " + sText + "\r\n";
}

} // namespace qvtest
