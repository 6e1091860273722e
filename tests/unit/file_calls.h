// file_calls.h - the system calls of the file functions, as a test wants them: in pieces, interrupted, failing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvtest {

struct FileCalls {
    size_t nPiece = SIZE_MAX; // bytes that one read or write moves at most
    int nBeforeError = -1;    // reads and writes that work before one fails; negative: none fails
    int nErrno = 0;           // of the one that fails
    bool bCloseFails = false; // closes with nErrno, the descriptor is gone
    int nLeftToChildren = 0;  // out: files that were opened without close-on-exec
};

// Holds for the whole process from now on, until null.
void useFileCalls(FileCalls *pCalls);

} // namespace qvtest
