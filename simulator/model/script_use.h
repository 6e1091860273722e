// Which lines of a card file have been played: answers to power-on and replies. A test that wants its whole
// conversation to have taken place asks what is left.
#pragma once

#include "model/card_script.h"

#include <map>

namespace qvsim {

class ScriptUse {
  public:
    // The lines of a script from now on; what has been played before stays played.
    void expect(const CardScript &script);
    void played(unsigned line);
    // In the order of the file: "12: > 00 84 00 00 08, answer 2 of 3".
    std::vector<std::string> left() const;

  private:
    struct Line {
        std::string what;
        bool played = false;
    };

    void expectCommands(const std::vector<ScriptedCommand> &commands);

    std::map<unsigned, Line> lines_; // by line number
};

} // namespace qvsim
