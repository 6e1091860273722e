// What the commands of the stripe head mean: bare escape sequences, and group 20 in peripheral frames.
//
//   1B 77 text 1D 1B 5C    characters from "0" to "?", at least one, then "A": track 2, and behind the "A" track 1;
//                          any other text: track 1. A text for track 1 that begins with digits and an "A" cannot be
//                          told from two tracks.
//   1B 74 text 1D 1B 5C    beginning with "A": behind it track 3; with an "A" further on: track 2, and behind it
//                          track 3; any other text: track 2. So an empty track 2 cannot be written with track 3.
//   20 03 text             track 1 "|" track 2 "|" track 3
//
// The head hangs at a channel of the switch box: while another one is selected it hears nothing and is not heard.
#include "model/stripe_commands.h"

#include "model/reader.h"

#include <algorithm>

namespace qvsim {

namespace {

constexpr char kNextTrack = 'A';
constexpr std::uint8_t kWriteMark = '|';
constexpr std::size_t kHead = 2; // group and code of a framed command

std::string shown(std::string_view text)
{
    std::string clean(text);
    std::replace_if(
        clean.begin(), clean.end(), [](char c) { return c < ' ' || c > '~'; }, '.');
    return clean;
}

std::string textOf(BytesView bytes)
{
    return {bytes.begin(), bytes.end()};
}

// `command`: 0 for 1B 77, 1 for 1B 74.
StripeHead::Texts bareTexts(unsigned command, const std::string &text)
{
    const std::size_t mark = text.find(kNextTrack);
    const bool isMarked = mark != std::string::npos;
    if (command == 0) {
        const bool isTwo =
            isMarked && mark > 0 &&
            std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(mark), isDigitTrackCharacter);
        return isTwo ? StripeHead::Texts{text.substr(mark + 1), text.substr(0, mark), std::nullopt}
                     : StripeHead::Texts{text, std::nullopt, std::nullopt};
    }
    if (!isMarked)
        return {std::nullopt, text, std::nullopt};
    if (mark == 0)
        return {std::nullopt, std::nullopt, text.substr(1)};
    return {std::nullopt, text.substr(0, mark), text.substr(mark + 1)};
}

// Nothing unless there are two marks.
std::optional<StripeHead::Texts> framedTexts(BytesView data)
{
    const std::string text = textOf(data);
    if (std::count(text.begin(), text.end(), kWriteMark) != 2)
        return std::nullopt;
    const std::size_t first = text.find(kWriteMark);
    const std::size_t second = text.find(kWriteMark, first + 1);
    return StripeHead::Texts{text.substr(0, first), text.substr(first + 1, second - first - 1),
                             text.substr(second + 1)};
}

std::string writeMeaning(const StripeHead::Texts &texts)
{
    std::string meaning;
    for (std::size_t track = 0; track < kTracks; ++track)
        if (texts[track])
            meaning += (meaning.empty() ? "write track " : ", track ") + std::to_string(track + 1) + ": " +
                       (texts[track]->empty() ? "empty" : shown(*texts[track]));
    return meaning;
}

} // namespace

std::string separatorText(BytesView data)
{
    return "track separator " + shown(textOf(data.subspan(kHead)));
}

std::string readAllText(BytesView)
{
    return "read all tracks";
}

std::string writeAllText(BytesView data)
{
    const std::optional<StripeHead::Texts> texts = framedTexts(data.subspan(kHead));
    return texts ? writeMeaning(*texts) : "write all tracks: not three of them";
}

std::string readTimeText(BytesView data)
{
    return "read time " + std::to_string(data[kHead]) + " s";
}

bool Reader::reachesStripe() const
{
    return boxPort_ == 0 || boxPort_ == stripe_.channel();
}

void Reader::takeStripeEscape(const LineEvent &event, TimePoint now)
{
    const Escape &escape = *event.escape;
    const bool isWrite = escape.kind == EscapeKind::stripeWrite;
    const StripeHead::Texts texts = isWrite ? bareTexts(escape.value, textOf(event.data)) : StripeHead::Texts{};
    ++counts_.escapes;
    if (trace_.wanted()) {
        Bytes bytes{kEscape};
        bytes.insert(bytes.end(), escape.tail.begin(), escape.tail.end());
        bytes.insert(bytes.end(), event.data.begin(), event.data.end());
        if (escape.takesText)
            bytes.insert(bytes.end(), {kTextEnds, kEscape, kTextEnd});
        trace_.line("> " + toHex(bytes) + "  " + (isWrite ? writeMeaning(texts) : escape.meaning));
    }
    if (!reachesStripe())
        return missStripe();
    switch (escape.kind) {
    case EscapeKind::stripeRead: stripe_.read(StripeHead::Way::bare, escape.value, now); break;
    case EscapeKind::stripeWrite: stripe_.write(StripeHead::Way::bare, texts, now); break;
    case EscapeKind::stripeStatus: stripe_.askStatus(); break;
    case EscapeKind::stripeFormat: stripe_.setFormat(static_cast<StripeFormat>(escape.value)); break;
    default: break;
    }
    passStripeAnswers();
}

void Reader::setSeparator(BytesView data, TimePoint)
{
    stripe_.setSeparator(textOf(data.subspan(kHead)));
    passStripeAnswers();
}

void Reader::readAllTracks(BytesView, TimePoint now)
{
    stripe_.read(StripeHead::Way::framed, kAllTracks, now);
    passStripeAnswers();
}

void Reader::writeAllTracks(BytesView data, TimePoint now)
{
    if (std::optional<StripeHead::Texts> texts = framedTexts(data.subspan(kHead)))
        stripe_.write(StripeHead::Way::framed, std::move(*texts), now);
    else
        stripe_.refuseWrite(StripeHead::Way::framed, "three tracks with two marks were expected");
    passStripeAnswers();
}

void Reader::setReadTime(BytesView data, TimePoint)
{
    stripe_.setReadTime(std::chrono::seconds(data[kHead]));
    passStripeAnswers();
}

void Reader::passStripeAnswers()
{
    for (const StripeAnswer &answer : stripe_.takeAnswers()) {
        if (!reachesStripe()) {
            missStripe();
        } else if (answer.status) {
            replyFrame_ = FrameKind::peripheral;
            reply(0, *answer.status, answer.bytes);
        } else {
            sendReply(answer.bytes, answer.bytes, answer.meaning);
        }
    }
}

void Reader::missStripe()
{
    traceLine(std::string("     the stripe head hangs at channel ") + stripe_.channel() + ", selected is " + boxPort_);
}

} // namespace qvsim
