// A purchase PSAM (JR/T 0025.1-2005, JR/T 0025.2-2005): the terminal's side of a purchase. It holds purchase master keys,
// makes a card's own key from the card's serial number, gives MAC1 and checks MAC2.
//
// The first half is remembered until any command but the second half comes, or a power-off. Every first half takes a
// serial number of its own; the number stays as long as the card object lives.
#pragma once

#include "model/card.h"
#include "model/chip_files.h"
#include "model/purse_data.h"

namespace qvsim {

class PsamCard final : public Card {
  public:
    PsamCard(PsamData data, std::string label);

    CardAnswer powerOn() override;
    CardAnswer transmit(BytesView command) override;
    CardAnswer answer() override { return {}; } // everything was answered at once
    void giveUp() override {}
    void powerOff() override { expectedMac2_.reset(); }
    // With the number of the next transaction.
    std::string label() const override;

  private:
    static std::span<const ChipCommandRow<PsamCard>> commands();

    Bytes select(const ChipCommand &command);
    Bytes readBinary(const ChipCommand &command);
    Bytes initializeForPurchase(const ChipCommand &command);
    Bytes creditForPurchase(const ChipCommand &command);

    PsamData data_;
    std::string label_;
    std::vector<ShortFile> files_;
    std::optional<MacCode> expectedMac2_; // of the purchase that has begun
};

} // namespace qvsim
