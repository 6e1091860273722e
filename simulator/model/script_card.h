// A card that plays a script.
//
// A command is looked for in the ordered sections first, then among the free commands; the first match in file order
// answers. A section knows only its next command (and its first one, which begins it anew); after its last command it
// begins anew. A section that begins puts the others back to their beginning: one conversation at a time. Power-on puts
// sections and replies that are played in turn back to their beginning.
//
// A script of several parts goes on to its next part at a power-on; hosts that power a card on again and again until
// it suits them do not use up parts that they have asked nothing yet.
#pragma once

#include "model/card.h"
#include "model/card_script.h"
#include "model/script_use.h"

#include <memory>

namespace qvsim {

class ScriptCard final : public Card {
  public:
    // `use` is told every line that is played; it may outlive the card.
    ScriptCard(CardScript script, std::string label, std::shared_ptr<ScriptUse> use = std::make_shared<ScriptUse>());

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

    const CardPart &part() const { return script_.parts[part_]; }
    bool partIsOver() const;
    void rewind();
    CardAnswer play(const ScriptedCommand &command, std::size_t &turn);

    CardScript script_;
    std::string label_;
    std::shared_ptr<ScriptUse> use_;
    std::size_t part_ = 0;
    bool hadPower_ = false;
    bool asked_ = false;                 // a command has come since the last power-on
    std::vector<std::size_t> turns_;     // per free command: which reply comes next
    std::vector<SectionState> sections_; // per ordered section
};

} // namespace qvsim
