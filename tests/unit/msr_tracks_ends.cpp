// When a stripe reply is complete, and what a complete one tells.

#include "harness.h"

#include "qvreader/msr.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

using namespace qvtest;

namespace {

// With the bytes in a block of exactly their length, so that a look behind them is seen.
template <typename Function> int32_t judged(Function *pfn, std::string_view sHex)
{
    const Bytes data = bytes(sHex);
    return pfn(data.data(), static_cast<int32_t>(data.size()));
}

struct Row {
    const char *pszHex;
    int32_t nResult;
};

template <typename Function, size_t n> void expectRows(Function *pfn, const Row (&rows)[n])
{
    for (const Row &row : rows)
        EXPECT_EQ(judged(pfn, row.pszHex), row.nResult) << row.pszHex;
}

TEST(MsgDataEndCondition, AReplyIsCompleteWhenItEndsIn3F1C)
{
    expectRows(MsgDataEndCondition, {
                                        {"1B 73 31 3F 1C", 0},
                                        {"3F 1C", 0},
                                        {"1B 73 3F 1C 3F 1C", 0},
                                        {"1B 73 31 3F", -1},
                                        {"1B 73 31 1C", -1},
                                        {"1B 73 31 1C 3F", -1},
                                        {"1B 73 3F 1C 31", -1}, // they must be the last
                                        {"1B 73", -1},
                                        {"1C", -1},
                                        {"3F", -1},
                                        {"31", -1},
                                    });
}

TEST(MsgDataEndCondition, WhatStandsBehindTheFirstNulDoesNotCount)
{
    expectRows(MsgDataEndCondition, {
                                        {"1B 73 31 3F 1C 00", 0},
                                        {"1B 73 31 3F 1C 00 00 00 00", 0},
                                        {"1B 73 31 3F 1C 00 31 32", 0},
                                        {"1B 73 31 00 3F 1C", -1},
                                        {"00 1B 73 31 3F 1C", -1},
                                        {"3F 00 1C", -1},
                                        {"3F 1C 00", 0},
                                        {"00", -1},
                                        {"00 00", -1},
                                    });
}

TEST(MsgStatusEndCondition, AStatusIsCompleteWhenItEndsInPOrQ)
{
    expectRows(MsgStatusEndCondition, {
                                          {"70", 0},
                                          {"71", 0},
                                          {"1B 73 70", 0},
                                          {"31 32 71", 0},
                                          {"71 70", 0},
                                          {"70 31", -1},
                                          {"71 1B", -1},
                                          {"6F", -1},
                                          {"72", -1},
                                          {"50", -1},
                                          {"51", -1},
                                      });
}

TEST(MsgStatusEndCondition, WhatStandsBehindTheFirstNulDoesNotCount)
{
    expectRows(MsgStatusEndCondition, {
                                          {"70 00", 0},
                                          {"1B 71 00 00 00", 0},
                                          {"70 00 31", 0},
                                          {"31 00 70", -1},
                                          {"00 70", -1},
                                          {"00", -1},
                                      });
}

TEST(StripeEndConditions, OnlyTheCountedBytesAreLookedAt)
{
    const Bytes data = bytes("1B 73 31 3F 1C"), status = bytes("31 70 71");
    EXPECT_EQ(MsgDataEndCondition(data.data(), 4), -1);
    EXPECT_EQ(MsgDataEndCondition(data.data(), 5), 0);
    EXPECT_EQ(MsgStatusEndCondition(status.data(), 1), -1);
    EXPECT_EQ(MsgStatusEndCondition(status.data(), 2), 0);
}

TEST(StripeEndConditions, NoBytesAreNotComplete)
{
    // As if a complete reply stood in front of the buffer.
    const Bytes data = bytes("3F 1C 70 3F 1C");
    for (auto *pfn : {MsgDataEndCondition, MsgStatusEndCondition}) {
        EXPECT_EQ(pfn(data.data() + 2, 0), -1);
        EXPECT_EQ(pfn(data.data() + 3, 0), -1);
        EXPECT_EQ(pfn(data.data(), -1), -1);
        EXPECT_EQ(pfn(nullptr, 0), -1);
        EXPECT_EQ(pfn(nullptr, 5), -1);
    }
}

TEST(tFuncCheckTrackFormat, AReplyBeginsWith1B73AndContains3F1C)
{
    expectRows(tFuncCheckTrackFormat, {
                                          {"1B 73 31 32 3F 1C", 0},
                                          {"1B 73 3F 1C", 0},
                                          {"1B 73 31 3F 1C 32 33", 0},
                                          {"1B 73 31 3F 1C 3F 1C", 0},
                                          {"1B 73 31 3F 1C 00", 0},
                                          {"1B 73", -4},
                                          {"1B 73 31 3F", -4},
                                          {"1B 73 31 1C", -4},
                                          {"1B 73 31 1C 3F", -4},
                                          {"1B 73 31 3F 20 1C", -4},
                                          {"1B 74 31 3F 1C", -4},
                                          {"1C 73 31 3F 1C", -4},
                                          {"73 31 3F 1C", -4},
                                          {"31 1B 73 31 3F 1C", -4},
                                          {"00 1B 73 31 3F 1C", -4},
                                          {"3F 1C", -4},
                                          {"1B", -4},
                                          {"1B 3F 1C", -4},
                                      });
}

TEST(tFuncCheckTrackStatusFormat, TheLastByteTellsHowTheOperationWent)
{
    expectRows(tFuncCheckTrackStatusFormat, {
                                                {"70", 0},
                                                {"71", -5},
                                                {"31 32 70", 0},
                                                {"70 71", -5},
                                                {"71 70", 0},
                                                {"70 31", -4},
                                                {"71 31", -4},
                                                {"71 00", -5},
                                                {"70 00 71", 0},
                                                {"72", -4},
                                                {"50", -4},
                                                {"1B", -4},
                                                {"00 70", -4},
                                                {"00", -4},
                                            });
}

TEST(StripeFormatChecks, OnlyTheCountedBytesAreLookedAt)
{
    const Bytes data = bytes("1B 73 31 3F 1C"), status = bytes("70 71");
    EXPECT_EQ(tFuncCheckTrackFormat(data.data(), 4), -4);
    EXPECT_EQ(tFuncCheckTrackStatusFormat(status.data(), 1), 0);
}

TEST(StripeFormatChecks, NoBytesAreInNoForm)
{
    const Bytes data = bytes("70 1B 73 3F 1C");
    for (auto *pfn : {tFuncCheckTrackFormat, tFuncCheckTrackStatusFormat}) {
        EXPECT_EQ(pfn(data.data() + 1, 0), -4);
        EXPECT_EQ(pfn(data.data(), -1), -4);
        EXPECT_EQ(pfn(nullptr, 0), -4);
        EXPECT_EQ(pfn(nullptr, 5), -4);
    }
}

} // namespace
