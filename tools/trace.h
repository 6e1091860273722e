// trace.h - the bytes on the wire, as the library hands them to the kernel and gets them from it.
//
// The tool stands between the library and the C library: it defines read() and write() itself, and the dynamic linker
// gives those to libqvreader as well. Both go straight to the kernel; what passes on the descriptor of the open reader
// port is noted on the way. Nothing lies in the line: speeds, flushes, time-outs and a line that hangs up are those of
// the real port.
#pragma once

#include "console.h"
#include "decode.h"

#include <string>

namespace qvtool {

class Trace {
  public:
    // From here until the object ends everything on the reader's port is told.
    explicit Trace(Console &console);
    ~Trace();
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    void sent(BytesView data);
    void received(BytesView data);
    void failed(const char *pszCall, int nError);

    // Tells what came without becoming a whole reply.
    void flush();

  private:
    void tell(char cDirection, BytesView data, const std::string &sMeaning);
    void tellSpeed();

    Console &m_console;
    ReplyCutter m_replies;
    unsigned m_nSpeed = 0; // told last, bits per second
};

} // namespace qvtool
