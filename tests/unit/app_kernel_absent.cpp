// A host without a kernel: every step fails with -1, unconverted, and leaves the reader closed; what needs no kernel
// works.

#include "app_steps.h"
#include "open_reader.h"

#include "qvreader/icapp.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using namespace qvtest;

namespace {

// Records are saved after a failure too, and without transaction data there is nothing to power down for.
bool powersDown(const Step &step)
{
    const std::string_view sName = step.pszName;
    return sName != "ReadRecord" && sName != "genARQC" && sName != "CtlScriptData";
}

std::string s_sOperations;

int32_t openOperation(const char *, const char *, uint32_t, uint32_t, int32_t)
{
    s_sOperations += "open ";
    return 0;
}
int32_t closeOperation()
{
    s_sOperations += "close ";
    return 0;
}
int32_t powerDownOperation()
{
    s_sOperations += "powerDown ";
    return -31;
}

void setTable()
{
    stICOp[1] = reinterpret_cast<void *>(openOperation);
    stICOp[2] = reinterpret_cast<void *>(closeOperation);
    stICOp[5] = reinterpret_cast<void *>(powerDownOperation);
}

class NoKernel : public ClosedReader {
  protected:
    void SetUp() override
    {
        ClosedReader::SetUp();
        s_sOperations.clear();
    }
    void TearDown() override
    {
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        g_stCallBackFunc = {1, 1, 1, 1, 1};
        pszEmvData = nullptr;
        ClosedReader::TearDown();
    }
};

TEST(NoKernelAtLoad, TheSharedObjectsAreClear)
{
    auto isZero = [](uint8_t uc) { return uc == 0; };
    EXPECT_TRUE(std::all_of(std::begin(g_stProc), std::end(g_stProc), isZero));
    EXPECT_TRUE(std::all_of(std::begin(stICS), std::end(stICS), isZero));
    EXPECT_TRUE(std::all_of(std::begin(g_szEmvbuf), std::end(g_szEmvbuf), isZero));
    EXPECT_TRUE(std::all_of(std::begin(stICOp), std::end(stICOp), [](void *p) { return p == nullptr; }));
    EXPECT_EQ(pszEmvData, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(g_stProc) % 8, 0U);
}

TEST_F(NoKernel, EachStepFailsWithTheReaderClosed)
{
    const int nBefore = openDescriptors();
    for (const Step &step : s_steps) {
        if (powersDown(step))
            answer("32 23 00", 0);
        EXPECT_EQ(step.call(path()), -1) << step.pszName;
        EXPECT_EQ(openDescriptors(), nBefore) << step.pszName;
    }
}

TEST_F(NoKernel, EachStepFailsWithTheHostsTableToo)
{
    setTable();
    for (const Step &step : s_steps) {
        s_sOperations.clear();
        EXPECT_EQ(step.call("/dev/reader"), -1) << step.pszName;
        EXPECT_EQ(s_sOperations, powersDown(step) ? "open powerDown close " : "open close ") << step.pszName;
    }
}

TEST_F(NoKernel, AnArqcWithTransactionDataPowersDownAndCloses)
{
    setTable();
    pszEmvData = s_szOut;
    EXPECT_EQ(QV_APP_genARQC("/dev/reader", "", 9600, "", "T", &s_nOut, s_szOut), -31); // the power-down's
    EXPECT_EQ(s_sOperations, "open powerDown close ");
}

TEST_F(NoKernel, ACompletionWithTransactionDataFailsAndCloses)
{
    setTable();
    pszEmvData = s_szOut;
    s_szScript[0] = 'x';
    EXPECT_EQ(QV_APP_CtlScriptData("/dev/reader", "", 9600, "", "T", "9101EE", &s_nOut, s_szOut, s_szScript), -1);
    EXPECT_EQ(s_sOperations, "open close ");
    EXPECT_EQ(s_szScript[0], 'x');
}

TEST_F(NoKernel, ResultsStayUnconverted)
{
    EXPECT_EQ(QV_APP_getIcInfo(path(), "", 9600, "1", "", &s_nOut, s_szOut), -2);
    EXPECT_EQ(QV_APP_SelectAid(path(), "", 9600, "1", ""), -2);
    EXPECT_EQ(QV_APP_getIcInfo("/dev/no-such-port", "", 9600, "1", "A", &s_nOut, s_szOut), -51);
    EXPECT_EQ(QV_APP_SelectGpo("/dev/no-such-port", "", 9600, "1"), -51);
    EXPECT_EQ(QV_APP_PowerOff("/dev/no-such-port", "", 9600, "1"), -51);
    EXPECT_EQ(QV_APP_SaveTlvTag("5A;", ',', ';'), -2);
    EXPECT_EQ(QV_APP_PowerOn(nullptr, "", 9600, "1", &s_nOut, s_szOut), -2);
}

TEST_F(NoKernel, ThereIsNobodyToTakeATableOrData)
{
    g_stCallBackFunc = {7, 7, 7, 7, 7};
    EXPECT_EQ(QV_APP_SetEmvFunc('1'), -1);
    EXPECT_EQ(g_stCallBackFunc.nOpen, 0);
    EXPECT_EQ(g_stCallBackFunc.nCommRW, 1);
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), -1);
    EXPECT_EQ(g_stCallBackFunc.nOpen, 1);
    void *table[10] = {};
    EXPECT_EQ(QV_APP_SetFuncP(table), -1);
    EXPECT_EQ(g_stCallBackFunc.nOpen, 0);
    EXPECT_EQ(g_stCallBackFunc.nCommRW, 0);
    EXPECT_EQ(QV_APP_SetTranseData(table), -1);
    EXPECT_EQ(stICOp[1], nullptr);
}

TEST_F(NoKernel, TheLogNamesWhatIsMissing)
{
    setTable();
    logOn();
    EXPECT_EQ(QV_APP_SelectGpo("/dev/reader", "", 9600, "1"), -1);
    EXPECT_NE(rawLog().find("Emv_QV_Start"), std::string::npos);
    EXPECT_TRUE(logged({"[QV_APP_SelectGpo] Start ", "[icFlag = 1]", "====> nRetConVert  = -1 "}));
}

} // namespace
