// A kernel that is loaded while the program runs, with local scope: it shares the library's objects, may come and go,
// and may offer only a part of its functions.

#include "kernel_library.h"

#include "qvreader/icapp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

using namespace qvtest;

namespace {

uint32_t s_nOut;
char s_szOut[2100];

int32_t readInfo()
{
    return QV_APP_getIcInfo("/dev/reader", "", 9600, "2", "AB", &s_nOut, s_szOut);
}

class LoadedKernel : public testing::Test {
  protected:
    void SetUp() override
    {
        std::fill(std::begin(stICOp), std::end(stICOp), nullptr);
        s_pfnNote = nullptr;
        s_sWithoutKernel.clear();
        EXPECT_EQ(QV_APP_SetTranseData(nullptr), -1) << "a kernel is there already";
    }
};

TEST_F(LoadedKernel, ItIsFoundSharesTheLibrarysObjectsAndMayGo)
{
    for (int i = 0; i < 2; ++i) {
        {
            Loaded library(QV_WHOLE_KERNEL);
            TestKernel *pKernel = library.function<TestKernel *()>("testKernel")();
            s_pfnNote = library.function<void(const char *, ...)>("testKernelNote");
            EXPECT_EQ(QV_APP_SetFuncP(deviceTable().data()), 0);
            EXPECT_EQ(stICOp[1], reinterpret_cast<void *>(openOperation));
            std::strcpy(pKernel->szText, "A0036225");
            EXPECT_EQ(readInfo(), 0);
            EXPECT_STREQ(pKernel->szCalls,
                         "Emv_SetFunP(0)\nopen()\nPackAidList(cleared)\nTY_DealAidList(, 0)\nEmv_QV_Start(record, 1)\n"
                         "TY_SaveInfoTag(AB)\nclose()\nTY_ConvertErr(0)\n");
            EXPECT_EQ(pKernel->record[EMV_PROC_CARD_TYPE], '2');
            EXPECT_EQ(s_nOut, 8U);
            EXPECT_STREQ(s_szOut, "A0036225");
            pKernel->nStart = -7;
            EXPECT_EQ(readInfo(), -9007);
            s_pfnNote = nullptr;
        }
        ASSERT_EQ(dlopen(QV_WHOLE_KERNEL, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the kernel stays";
        s_sWithoutKernel.clear();
        EXPECT_EQ(readInfo(), -1) << "the kernel has gone";
        EXPECT_EQ(s_sWithoutKernel, "open()\npowerDown()\nclose()\n");
        EXPECT_EQ(QV_APP_SetEmvFunc('0'), -1);
    }
}

TEST_F(LoadedKernel, AKernelThatOnlyConvertsTranslatesTheMissingSteps)
{
    Loaded library(QV_CONVERTING_KERNEL);
    std::array<void *, 10> table = deviceTable();
    std::copy(table.begin(), table.end(), stICOp);
    EXPECT_EQ(readInfo(), -9001);
    EXPECT_EQ(s_sWithoutKernel, "open()\npowerDown()\nclose()\n");
    EXPECT_EQ(QV_APP_getIcInfo("/dev/reader", "", 9600, "2", "", &s_nOut, s_szOut), -9002);
    EXPECT_EQ(QV_APP_SetEmvFunc('0'), -1);
}

TEST_F(LoadedKernel, AKernelThatOnlyStartsIsEnoughForWhatNeedsNoMore)
{
    Loaded library(QV_STARTING_KERNEL);
    std::array<void *, 10> table = deviceTable();
    std::copy(table.begin(), table.end(), stICOp);
    EXPECT_EQ(QV_APP_SelectGpo("/dev/reader", "", 9600, "2"), 0);
    EXPECT_EQ(s_sWithoutKernel, "open()\nclose()\n");
    s_sWithoutKernel.clear();
    *library.function<int32_t>("g_nStartAnswers") = -7;
    EXPECT_EQ(QV_APP_SelectGpo("/dev/reader", "", 9600, "2"), -7);
    EXPECT_EQ(s_sWithoutKernel, "open()\npowerDown()\nclose()\n");
    s_sWithoutKernel.clear();
    *library.function<int32_t>("g_nStartAnswers") = 0;
    EXPECT_EQ(QV_APP_ReadRecord("/dev/reader", "", 9600, "2", "AB", &s_nOut, s_szOut), -1) << "nobody saves the data";
    EXPECT_EQ(readInfo(), -1) << "nobody has a list of applications";
    EXPECT_EQ(s_sWithoutKernel, "open()\nclose()\nopen()\npowerDown()\nclose()\n");
}

} // namespace
