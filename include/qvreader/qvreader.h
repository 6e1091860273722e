/*
 * qvreader.h - the whole exported interface of libqvreader.
 *
 * A host that uses one subsystem only may include that subsystem's header instead; each stands alone.
 *
 * What holds everywhere:
 *  - One reader and one caller at a time. State is process-wide and unguarded. The only call that may come from
 *    another thread while a call runs is a cancel (COMM_Dev_CancelRead and those above it). It logs, so that log file,
 *    version text and log switches must not be changed meanwhile.
 *  - Results are 32-bit signed: 0 success, counts where a function moves bytes, negative codes for failures
 *    (RET_PUB_* in support.h). A function whose comment names no result always returns 0.
 *  - Buffers belong to the caller. Their least size stands with each function, in bytes unless said otherwise.
 *  - A null pointer never crashes a call; it gives a failure value of that function.
 *  - Read time-outs are whole seconds on the wall clock and strictly exceeded: 1 second waits 1 to 2 seconds.
 */
#ifndef QVREADER_QVREADER_H
#define QVREADER_QVREADER_H

#include "qvreader/devcall.h"
#include "qvreader/emv_kernel.h"
#include "qvreader/icapp.h"
#include "qvreader/icreader.h"
#include "qvreader/msr.h"
#include "qvreader/protocol.h"
#include "qvreader/support.h"
#include "qvreader/transport.h"

#endif
