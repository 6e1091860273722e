// The zeros behind a report: the steps of a read over USB, each as a call of its own.

#include "harness.h"

#include "qvreader/transport.h"

#include <gtest/gtest.h>

using namespace qvtest;

namespace {

TEST(UsbPadding, AReportIsCopiedWithoutItsTrailingZerosOrWhole)
{
    struct Row {
        const char *pszReport;
        int32_t nStripped;
    };
    const Row rows[] = {{"02 30 31 03 00 00", 4}, {"00 00 41", 3}, {"00 00 00", 0},
                        {"41 00 00 00", 1},       {"41", 1},       {"00", 0}};
    for (const Row &row : rows) {
        SCOPED_TRACE(row.pszReport);
        Bytes report = bytes(row.pszReport);
        auto nLen = static_cast<int32_t>(report.size());
        Bytes out(8, 0xC5);
        EXPECT_EQ(GetLinuxDataClearZero(report.data(), nLen, out.data()), row.nStripped);
        auto nStripped = static_cast<size_t>(row.nStripped);
        EXPECT_EQ(hex(out.data(), nStripped), hex(report.data(), nStripped));
        EXPECT_EQ(Bytes(out.begin() + row.nStripped, out.end()), Bytes(8 - nStripped, 0xC5));
        EXPECT_EQ(GetLinuxDataReallenth(report.data(), nLen), row.nStripped);
        out.assign(8, 0xC5);
        EXPECT_EQ(GetLinuxLibDataWithoutZero(report.data(), nLen, out.data()), nLen);
        EXPECT_EQ(hex(out.data(), report.size()), hex(report));
        EXPECT_EQ(out[report.size()], 0xC5);
    }
}

TEST(UsbPadding, NothingIsCopiedFromNothing)
{
    uint8_t in[2] = {1, 2};
    uint8_t out[2] = {0xC5, 0xC5};
    for (int32_t nLen : {0, -1, -57, INT32_MIN}) {
        EXPECT_EQ(GetLinuxDataClearZero(in, nLen, out), 0);
        EXPECT_EQ(GetLinuxLibDataWithoutZero(in, nLen, out), 0);
        EXPECT_EQ(GetLinuxDataReallenth(in, nLen), 0);
    }
    EXPECT_EQ(GetLinuxDataClearZero(nullptr, 2, out), 0);
    EXPECT_EQ(GetLinuxDataClearZero(in, 2, nullptr), 0);
    EXPECT_EQ(GetLinuxLibDataWithoutZero(nullptr, 2, out), 0);
    EXPECT_EQ(GetLinuxLibDataWithoutZero(in, 2, nullptr), 0);
    EXPECT_EQ(GetLinuxDataReallenth(nullptr, 2), 0);
    EXPECT_EQ(hex(out, 2), "C5 C5");
}

TEST(UsbPadding, TheStrippingFlagIsKeptAsItIsSet)
{
    for (uint32_t nFlag : {0U, 2U, 0xFFFFFFFFU, 1U}) {
        EXPECT_EQ(COMM_Hid_SetLinuxHidClearZero(nFlag), 0);
        EXPECT_EQ(g_bIsLinuxHidClearZero, nFlag);
    }
}

} // namespace
