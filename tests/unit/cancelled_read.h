// cancelled_read.h - a read that a second thread cancels.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>

namespace qvtest {

// Runs a read in this thread and cancels it from another one as soon as its end condition, which counts nPassed, has
// been asked nPasses times. Returns the read's result; nAfter: the passes made after the cancel.
template <typename Read, typename Cancel>
int32_t cancelledRead(std::atomic<int> &nPassed, int &nAfter, Read read, Cancel cancel, int nPasses)
{
    nPassed = 0;
    int nAtCancel = 0;
    std::thread other([&] {
        while (nPassed < nPasses)
            usleep(1000);
        EXPECT_EQ(cancel(), 0);
        nAtCancel = nPassed;
    });
    const int32_t nResult = read();
    other.join();
    nAfter = nPassed - nAtCancel;
    return nResult;
}

} // namespace qvtest
