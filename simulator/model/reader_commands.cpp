// The reader's commands and what they do: a row each.
//
//   data bytes (T: milliseconds, big-endian)   command
//   32 21 slot                                 card status of a contact or PSAM slot
//   32 22 T T slot                             power on a contact or PSAM slot, waiting up to T for a card
//   32 23 slot                                 power off a contact or PSAM slot
//   32 24 T T                                  power on the contactless card, waiting up to T for it
//   32 25 00 00                                power off the contactless card
//   32 26 slot C-APDU                          exchange with the card in a slot, 255 for the contactless one
//   32 30 S S                                  which card is there, waiting up to S seconds for one
//   32 32 S S kind                             the same for one kind of card, 0 for all
//   31 11                                      is a reader there
// and in peripheral frames
//   11 01                                      device record
//   11 11 S                                    LEDs
//   11 14 A B                                  a pair of LED bytes
//   80 15 D D N                                buzzer
//   20 01 text                                 separator between the tracks that the stripe head reads
//   20 02                                      read all tracks of a magnetic card
//   20 03 text                                 write all tracks of a magnetic card
//   20 04 S                                    how long the stripe head waits for a swipe
#include "model/reader.h"
#include "model/stripe_commands.h"

#include <utility>

namespace qvsim {

namespace {

unsigned bigEndian(std::uint8_t high, std::uint8_t low)
{
    return (unsigned{high} << 8) | low;
}

std::string waitText(unsigned waitMs)
{
    return waitMs == 0 ? std::string() : ", waits " + std::to_string(waitMs) + " ms";
}

std::string powerOnText(BytesView data)
{
    return "power on " + slotName(data[4]) + waitText(bigEndian(data[2], data[3]));
}

std::string powerOnContactlessText(BytesView data)
{
    return "power on " + slotName(kContactless) + waitText(bigEndian(data[2], data[3]));
}

std::string powerOffText(BytesView data)
{
    return "power off " + slotName(data[2]);
}

std::string powerOffContactlessText(BytesView)
{
    return "power off " + slotName(kContactless);
}

std::string transmitText(BytesView data)
{
    return "APDU to " + slotName(data[2]) + ": " + toHex(data.subspan(3));
}

std::string cardStatusText(BytesView data)
{
    return "card status of " + slotName(data[2]);
}

std::string waitSecondsText(BytesView data)
{
    const unsigned seconds = bigEndian(data[2], data[3]);
    return seconds == 0 ? std::string() : ", waits " + std::to_string(seconds) + " s";
}

std::string detectAnyText(BytesView data)
{
    return "which card is there" + waitSecondsText(data);
}

std::string detectKindText(BytesView data)
{
    return "which card of kind " + std::to_string(data[4]) + " is there" + waitSecondsText(data);
}

std::string presenceText(BytesView)
{
    return "is a reader there";
}

std::string ledText(BytesView data)
{
    return "LEDs " + toHex(data.subspan(2));
}

std::string ledPairText(BytesView data)
{
    return "LED pair " + toHex(data.subspan(2));
}

std::string buzzerText(BytesView data)
{
    return "buzzer " + toHex(data.subspan(2));
}

std::string tellDeviceText(BytesView)
{
    return "device record";
}

} // namespace

struct Reader::CommandRow {
    FrameKind frame;
    std::uint8_t group;
    std::uint8_t code;
    std::size_t least; // data bytes, group and code included
    std::size_t most;
    std::string (*describe)(BytesView data);
    void (Reader::*run)(BytesView data, TimePoint now);
};

const Reader::CommandRow Reader::kCommands[] = {
    {FrameKind::card, 0x32, 0x21, 3, 3, cardStatusText, &Reader::cardStatus},
    {FrameKind::card, 0x32, 0x22, 5, 5, powerOnText, &Reader::powerOnContact},
    {FrameKind::card, 0x32, 0x23, 3, 3, powerOffText, &Reader::powerOffContact},
    {FrameKind::card, 0x32, 0x24, 4, 4, powerOnContactlessText, &Reader::powerOnContactless},
    {FrameKind::card, 0x32, 0x25, 4, 4, powerOffContactlessText, &Reader::powerOffContactless},
    {FrameKind::card, 0x32, 0x26, 4, kMostCommandData, transmitText, &Reader::transmit},
    {FrameKind::card, 0x32, 0x30, 4, 4, detectAnyText, &Reader::detectAny},
    {FrameKind::card, 0x32, 0x32, 5, 5, detectKindText, &Reader::detectKind},
    {FrameKind::card, 0x31, 0x11, 2, 2, presenceText, &Reader::presence},
    {FrameKind::peripheral, 0x11, 0x01, 2, 2, tellDeviceText, &Reader::tellDevice},
    {FrameKind::peripheral, 0x11, 0x11, 3, 3, ledText, &Reader::setLed},
    {FrameKind::peripheral, 0x11, 0x14, 4, 4, ledPairText, &Reader::setLedPair},
    {FrameKind::peripheral, 0x80, 0x15, 5, 5, buzzerText, &Reader::soundBuzzer},
    {FrameKind::peripheral, kStripeGroup, 0x01, 3, 2 + kMostSeparator, separatorText, &Reader::setSeparator},
    {FrameKind::peripheral, kStripeGroup, 0x02, 2, 2, readAllText, &Reader::readAllTracks},
    {FrameKind::peripheral, kStripeGroup, 0x03, 4, kMostCommandData, writeAllText, &Reader::writeAllTracks},
    {FrameKind::peripheral, kStripeGroup, 0x04, 3, 3, readTimeText, &Reader::setReadTime},
};

void Reader::takeFrame(const LineEvent &frame, TimePoint now)
{
    const BytesView data = frame.data;
    ++counts_.frames;
    replyFrame_ = frame.frame;
    Outcome refusal = data.empty() ? Outcome::noCommand : Outcome::unknownCommand;
    if (frame.frame == FrameKind::peripheral && !data.empty() && data[0] == kStripeGroup && !reachesStripe()) {
        traceLine("> " + toHex(data) + "  for the stripe head");
        return missStripe();
    }
    for (const CommandRow &row : kCommands) {
        if (row.frame != frame.frame || data.size() < 2 || row.group != data[0] || row.code != data[1])
            continue;
        if (data.size() < row.least || data.size() > row.most) {
            refusal = Outcome::wrongCommandLength;
            break;
        }
        if (trace_.wanted())
            trace_.line("> " + toHex(data) + "  " + row.describe(data));
        (this->*row.run)(data, now);
        return;
    }
    traceLine("> " + toHex(data) + "  " + outcomeText(refusal));
    reply(0, refusal);
}

void Reader::powerOnContact(BytesView data, TimePoint now)
{
    if (!isContactSlot(data[4])) {
        reply(data[4], Outcome::noSuchSlot);
        return;
    }
    powerOn(data[4], bigEndian(data[2], data[3]), now);
}

void Reader::powerOnContactless(BytesView data, TimePoint now)
{
    powerOn(kContactless, bigEndian(data[2], data[3]), now);
}

void Reader::powerOffContact(BytesView data, TimePoint)
{
    if (!isContactSlot(data[2])) {
        reply(data[2], Outcome::noSuchSlot);
        return;
    }
    powerOff(data[2]);
    reply(data[2], Outcome::done);
}

void Reader::powerOffContactless(BytesView, TimePoint)
{
    powerOff(kContactless);
    reply(kContactless, Outcome::done);
}

void Reader::transmit(BytesView data, TimePoint now)
{
    const SlotCode slot = data[2];
    if (!isSlot(slot)) {
        reply(slot, Outcome::noSuchSlot);
        return;
    }
    Slot *const place = findCard(slot);
    if (place == nullptr) {
        reply(slot, Outcome::noCard);
        return;
    }
    if (!place->powered) {
        reply(slot, Outcome::notPowered);
        return;
    }
    askCard(slot, Work::transmits, place->card->transmit(data.subspan(3)), now);
}

void Reader::cardStatus(BytesView data, TimePoint)
{
    const SlotCode slot = data[2];
    if (!isContactSlot(slot)) {
        reply(slot, Outcome::noSuchSlot);
        return;
    }
    const Slot *const place = findCard(slot);
    if (place == nullptr)
        reply(slot, Outcome::noCard);
    else
        reply(slot, place->powered ? Outcome::done : Outcome::notPowered);
}

void Reader::detectAny(BytesView data, TimePoint now)
{
    detect(kAnyCardKind, bigEndian(data[2], data[3]), now);
}

void Reader::detectKind(BytesView data, TimePoint now)
{
    detect(data[4], bigEndian(data[2], data[3]), now);
}

void Reader::presence(BytesView, TimePoint)
{
    reply(0, Outcome::done);
}

void Reader::setLed(BytesView data, TimePoint)
{
    led_ = data[2];
    reply(0, Outcome::done);
}

void Reader::setLedPair(BytesView data, TimePoint)
{
    ledPair_ = {data[2], data[3]};
    reply(0, Outcome::done);
}

void Reader::soundBuzzer(BytesView data, TimePoint)
{
    ++buzzes_;
    lastBuzz_ = {data[2], data[3], data[4]};
    reply(0, Outcome::done, Bytes{0x00});
}

void Reader::tellDevice(BytesView, TimePoint)
{
    reply(0, Outcome::done, deviceRecord(device_));
}

} // namespace qvsim
