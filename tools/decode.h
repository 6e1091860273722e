// decode.h - what bytes on the wire mean.
//
// An own reading of the wire on purpose: it shares nothing with the library, so that a trace shows also what the library
// would misunderstand.
#pragma once

#include "hex.h"

#include <string>
#include <vector>

namespace qvtool {

// Meaning of what goes to the reader in one piece: frames, escape sequences, wake-up bytes.
std::string commandMeaning(BytesView sent);

// Cuts what comes from the reader into replies.
class ReplyCutter {
  public:
    struct Reply {
        Bytes data;
        std::string sMeaning;
    };

    // Takes note of what went to the reader: the body of an answer is told by the command that it answers.
    void expect(BytesView sent);
    // The replies that are complete with these bytes.
    std::vector<Reply> feed(BytesView received);
    // What came without becoming complete; empty data: nothing.
    Reply flush();

  private:
    uint8_t m_ucAskedHead = 0; // of the frame that went out last, 0: none yet
    Bytes m_asked;
    Bytes m_pending;
};

} // namespace qvtool
