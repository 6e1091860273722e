// A card that plays a script.
//
// A command is looked for in the ordered sections first, then among the free commands; the first match in file order
// answers. A section knows only its next command (and its first one, which begins it anew); after its last command it
// begins anew. A section that begins puts the others back to their beginning: one conversation at a time. Power-on puts
// sections and replies that are played in turn back to their beginning.
#pragma once

#include "model/card.h"
#include "model/card_script.h"

namespace qvsim {

class ScriptCard final : public Card {
  public:
    ScriptCard(CardScript script, std::string label);

    CardAnswer powerOn() override;
    CardAnswer transmit(BytesView command) override;
    CardAnswer answer() override;
    void giveUp() override {}
    void powerOff() override {}
    std::string label() const override { return label_; }

  private:
    struct SectionState {
        std::size_t next = 0;
        std::vector<std::size_t> turns;
    };

    void rewind();
    CardAnswer play(const ScriptedCommand &command, std::size_t &turn);

    CardScript script_;
    std::string label_;
    std::vector<std::size_t> turns_;     // per free command: which reply comes next
    std::vector<SectionState> sections_; // per ordered section
};

} // namespace qvsim
