// fault_rules.h - for each place where a conversation calls the system: in which ways that call can fail, and what the
// conversation must come to.
#pragma once

#include "faulty_conversation.h"

#include <vector>

namespace qvtest {

// What the tty looks like when the conversation is over.
enum class Settings {
    AsBefore,
    NotRestored,     // the call that restores them failed
    FlowControlLost, // the call that switches hardware flow control back on failed
};

struct Rule {
    const char *pszKind;
    Target target;
    std::vector<Step> steps;
    std::vector<Way> ways;
    int32_t nResult = 0; // of the step; 0: the conversation goes on and is complete
    Settings settings = Settings::AsBefore;
    bool bSameLog = false; // the log loses nothing
};

// Every way for every call, or one way for each call, all ways taking turns over the calls of a kind.
enum class Ways { All, InTurn };

// Runs the conversation with each call failing in turn, and after each failure a conversation without faults.
// pfnWanted: which calls (null: all). bNoLogFolder: see FaultyConversation. Returns the number of injected faults.
int failEachCall(FaultyConversation &conversation, bool (*pfnWanted)(const Call &), Ways ways = Ways::All,
                 bool bNoLogFolder = false);

} // namespace qvtest
