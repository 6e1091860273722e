// Which card is there: one question for all kinds of card, and cards that have no slot.
//
//   kind  card                                        there while
//   1     contact                                     the user's slot holds a card
//   2     contactless                                 the antenna holds a card
//   3     magnetic, the tracks follow as text         swiped and not yet reported
//   4     identity                                    it lies on the reader
//
// Of several cards the one of the lowest kind is reported. Nothing gets power from being detected.
#include "model/reader.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr SlotCode kUserSlot = 0;
constexpr std::uint8_t kContactKind = 1;
constexpr std::uint8_t kContactlessKind = 2;
constexpr std::uint8_t kMagneticKind = 3;
constexpr std::uint8_t kIdentityKind = 4;
constexpr char kTrackMark = '|';
constexpr std::string_view kTrackEnd = "\r\n";

bool isTrack(std::string_view text)
{
    return text.size() <= kMostTrackCharacters &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != kTrackMark; });
}

} // namespace

bool Reader::swipe(const std::string &track2, const std::string &track3)
{
    if (!isTrack(track2) || !isTrack(track3))
        return false;
    traceLine("     magnetic card swiped");
    swiped_ = track2 + kTrackMark + track3;
    noticeCard();
    return true;
}

void Reader::setIdentityCard(bool present)
{
    traceLine(present ? "     identity card put on" : "     identity card taken away");
    identityCard_ = present;
    noticeCard();
}

void Reader::detect(std::uint8_t kinds, unsigned waitSeconds, TimePoint now)
{
    if (kinds > kIdentityKind) {
        reply(kUserSlot, Outcome::noSuchKind);
        return;
    }
    wantedKinds_ = kinds;
    if (reportCard())
        return;
    if (waitSeconds == 0) {
        reply(kUserSlot, Outcome::noCard);
        return;
    }
    work_ = Work::waitsForAnyCard;
    workSlot_ = kUserSlot;
    workDeadline_ = now + std::chrono::seconds(waitSeconds);
}

// A card came: a detection that waits for it is over.
void Reader::noticeCard()
{
    if (work_ == Work::waitsForAnyCard && reportCard())
        work_ = Work::nothing;
}

bool Reader::reportCard()
{
    const auto wants = [this](std::uint8_t kind) { return wantedKinds_ == kAnyCardKind || wantedKinds_ == kind; };
    Bytes body;
    if (wants(kContactKind) && findCard(kUserSlot) != nullptr) {
        body = {kContactKind};
    } else if (wants(kContactlessKind) && findCard(kContactless) != nullptr) {
        body = {kContactlessKind};
    } else if (wants(kMagneticKind) && swiped_) {
        body = {kMagneticKind};
        body.insert(body.end(), swiped_->begin(), swiped_->end());
        body.insert(body.end(), kTrackEnd.begin(), kTrackEnd.end());
        swiped_.reset();
    } else if (wants(kIdentityKind) && identityCard_) {
        body = {kIdentityKind};
    } else {
        return false;
    }
    reply(kUserSlot, Outcome::done, body);
    return true;
}

} // namespace qvsim
