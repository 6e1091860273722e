// failing_reads.h - reads from the library's port that fail with EIO while a test says so.
#pragma once

#include <atomic>

namespace qvtest {

struct FailingReads {
    static inline std::atomic<bool> s_bReadsFail{false};
};

} // namespace qvtest
