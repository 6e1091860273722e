// line_tap.h - the bytes on the wire, as the library hands them to the kernel or to libusb and gets them from there.
//
// The tool stands between the library and what the library calls: it defines read(), write() and the two transfer calls
// of libusb itself, and the dynamic linker gives those to libqvreader as well. All of them go straight on; what passes
// on the open reader port is noted on the way. Nothing lies in the line: speeds, flushes, time-outs and a line that
// hangs up are those of the real port.
//
// Belongs to the thread that calls the library.
#pragma once

#include "hex.h"

#include <cstdint>

namespace qvtool {

class LineListener {
  public:
    virtual void sent(BytesView data) = 0;
    virtual void received(BytesView data) = 0;
    virtual void failed(const char *pszCall, const char *pszError) = 0;

  protected:
    ~LineListener() = default;
};

// Listeners are told in the order in which they came.
void listenToLine(LineListener &listener);
void stopListening(LineListener &listener);

// How many bytes have come from the reader's port so far, heard by a listener or not: tells noise from silence. Without
// the zeros that fill USB reports up.
uint64_t bytesReceived();

// What has come since the last thing was sent, its first 4096 bytes: why a call failed that does not say it.
BytesView heard();
// True when the last thing that was to be sent could not be.
bool sendingFailed();

} // namespace qvtool
