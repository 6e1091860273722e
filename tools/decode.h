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

    // The replies that are complete with these bytes.
    std::vector<Reply> feed(BytesView received);
    // What came without becoming complete; empty data: nothing.
    Reply flush();

  private:
    Bytes m_pending;
};

} // namespace qvtool
