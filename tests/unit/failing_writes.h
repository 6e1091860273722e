// failing_writes.h - writes to the library's port that fail with EIO while a test says so.
#pragma once

#include <atomic>

namespace qvtest {

struct FailingWrites {
    static inline std::atomic<bool> s_bWritesFail{false};
};

} // namespace qvtest
