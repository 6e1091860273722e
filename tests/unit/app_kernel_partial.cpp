// A kernel that lacks one of its functions: the steps that need it fail as they do without any kernel, with the card
// powered down and the reader closed, and all others work.

#include "kernel_library.h"

#include "qvreader/icapp.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <vector>

using namespace qvtest;

namespace {

uint32_t s_nOut;
char s_szOut[2100];
char s_szScript[810];

int32_t readInfo(const char *pszTags = "AB")
{
    return QV_APP_getIcInfo("/dev/reader", "", 9600, "2", pszTags, &s_nOut, s_szOut);
}
int32_t listAids()
{
    return QV_APP_GetIcAidList("/dev/reader", "", 9600, "2", &s_nOut, s_szOut);
}
int32_t readLog()
{
    return QV_APP_GetTranDetail("/dev/reader", "", 9600, "2", 1, &s_nOut, s_szOut);
}
int32_t makeArqc()
{
    return QV_APP_genARQC("/dev/reader", "", 9600, "", "AMT=1", &s_nOut, s_szOut);
}
int32_t complete(const char *pszArpc)
{
    return QV_APP_CtlScriptData("/dev/reader", "", 9600, "", "AMT=1", pszArpc, &s_nOut, s_szOut, s_szScript);
}

// With the kernel that lacks this function.
class PartialKernel : public testing::Test {
  protected:
    void load(const char *pszWithout)
    {
        m_library.emplace((std::string(QV_KERNEL_WITHOUT) + pszWithout + ".so").c_str());
        m_pKernel = m_library->function<TestKernel *()>("testKernel")();
        s_pfnNote = m_library->function<void(const char *, ...)>("testKernelNote");
        std::array<void *, 10> table = deviceTable();
        std::copy(table.begin(), table.end(), stICOp);
        m_pKernel->nPacked = 1;
        pszEmvData = s_szOut;
        s_nPowerDown = -31;
    }
    void TearDown() override
    {
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        pszEmvData = nullptr;
        s_pfnNote = nullptr;
        s_nPowerDown = 0;
        QV_APP_SetFastReadFlag(0);
        QV_APP_SetArqcExeFlag(0);
    }
    // The calls since the last look.
    std::string calls()
    {
        std::string s = m_pKernel->szCalls;
        m_pKernel->szCalls[0] = '\0';
        m_pKernel->nCalls = 0;
        return s;
    }

    std::optional<Loaded> m_library;
    TestKernel *m_pKernel = nullptr;
};

constexpr char szFailed[] = "powerDown()\nclose()\nTY_ConvertErr(-1)\n";

TEST_F(PartialKernel, WithoutAStoredListCardDataAndLogsFail)
{
    load("PackAidList");
    EXPECT_EQ(readInfo(), -9001);
    EXPECT_EQ(calls(), std::string("open()\n") + szFailed);
    EXPECT_EQ(readLog(), -9001);
    EXPECT_EQ(calls(), std::string("open()\nEmv_QV_End(-1)\n") + szFailed);
    EXPECT_EQ(listAids(), 0);
}

TEST_F(PartialKernel, WithoutCandidatesEverySelectionFails)
{
    load("TY_DealAidList");
    EXPECT_EQ(readInfo(), -9001);
    EXPECT_EQ(calls(), std::string("open()\nPackAidList(cleared)\n") + szFailed);
    EXPECT_EQ(readLog(), -9001);
    EXPECT_EQ(calls(), std::string("open()\nPackAidList(cleared)\nEmv_QV_End(-1)\n") + szFailed);
    EXPECT_EQ(listAids(), -9001);
    EXPECT_EQ(calls(), std::string("open()\n") + szFailed);
    EXPECT_EQ(QV_APP_SelectAid("/dev/reader", "", 9600, "2", "A0"), -9001);
    EXPECT_EQ(calls(), std::string("open()\n") + szFailed);
    EXPECT_EQ(QV_APP_SelectAidNoGpo("/dev/reader", "", 9600, "2", "A0"), -9001);
    EXPECT_EQ(calls(), std::string("open()\n") + szFailed);
    EXPECT_EQ(QV_APP_SelectGpo("/dev/reader", "", 9600, "2"), 0);
}

TEST_F(PartialKernel, WithoutFastReadingOnlyItsRequestFails)
{
    load("SetRead5AFlag");
    QV_APP_SetFastReadFlag(1);
    EXPECT_EQ(readInfo("A"), -9001);
    EXPECT_EQ(calls(), std::string("open()\nPackAidList(cleared)\nTY_DealAidList(, 0)\n") + szFailed);
    EXPECT_EQ(readInfo("AB"), 0);
    QV_APP_SetFastReadFlag(0);
    EXPECT_EQ(readInfo("A"), 0);
}

TEST_F(PartialKernel, WithoutTheTerminalsResultsThereIsNoArqc)
{
    load("SetTVR");
    EXPECT_EQ(makeArqc(), -9031);
    EXPECT_EQ(calls(), "open()\npowerDown()\nclose()\nTY_ConvertErr(-31)\n");
    stICOp[5] = nullptr; // a power-down would have the last word
    EXPECT_EQ(makeArqc(), -9001);
    EXPECT_EQ(calls(), "open()\nclose()\nTY_ConvertErr(-1)\n");
}

TEST_F(PartialKernel, WithoutAStoreForTheTransactionThereIsNoArqc)
{
    load("TY_SaveData");
    EXPECT_EQ(makeArqc(), -9031);
    EXPECT_EQ(calls(), "open()\nSetTVR(80)\npowerDown()\nclose()\nTY_ConvertErr(-31)\n");
    stICOp[5] = nullptr;
    EXPECT_EQ(makeArqc(), -9001);
    EXPECT_EQ(calls(), "open()\nSetTVR(80)\nclose()\nTY_ConvertErr(-1)\n");
    QV_APP_SetArqcExeFlag(1);
    EXPECT_EQ(makeArqc(), -1);
    EXPECT_EQ(calls(), "");
}

TEST_F(PartialKernel, WithoutAStoreForObjectsAnAnswerOfTheIssuerCannotBeUsed)
{
    load("Emv_SaveData");
    EXPECT_EQ(complete("9101EE"), -9001);
    EXPECT_EQ(calls(), "open()\nEmv_QV_End(-1)\nclose()\nTY_ConvertErr(-1)\n");
    EXPECT_EQ(complete(""), 0);
    EXPECT_EQ(calls(), "open()\nEMV_Final(record)\nPack_Data_Emv_Trance(1)\nEmv_GetData(DF31, cleared)\nEmv_QV_End(0)\n"
                       "close()\nTY_ConvertErr(0)\n");
}

TEST_F(PartialKernel, WithoutAnEndStepsEndAllTheSame)
{
    load("Emv_QV_End");
    EXPECT_EQ(complete(""), 0);
    EXPECT_EQ(readLog(), 0);
    m_pKernel->nStart = m_pKernel->nFinal = -7;
    EXPECT_EQ(complete(""), -9007);
    EXPECT_EQ(readLog(), -9007);
}

TEST_F(PartialKernel, WithoutConversionResultsStayAsTheyAre)
{
    load("TY_ConvertErr");
    EXPECT_EQ(readInfo(), 0);
    EXPECT_EQ(calls(), "open()\nPackAidList(cleared)\nTY_DealAidList(, 0)\nEmv_QV_Start(record, 1)\n"
                       "TY_SaveInfoTag(AB)\nclose()\n");
    for (int32_t nResult : {-7, 5}) {
        m_pKernel->nStart = nResult;
        EXPECT_EQ(readInfo(), nResult);
    }
    EXPECT_EQ(readInfo(""), -2);
}

} // namespace
