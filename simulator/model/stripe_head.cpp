// Operations from their begin to their answer.
#include "model/stripe_head.h"

#include <iterator>
#include <utility>

namespace qvsim {

namespace {

using Fault = StripeHead::Fault;

constexpr std::uint8_t kEsc = 0x1B;
constexpr std::uint8_t kTracksFollow = 's';
constexpr std::uint8_t kNextTrack = 'A'; // also the byte ahead of track 3 alone
constexpr std::uint8_t kEmptyTrack = 0x7F;
constexpr std::uint8_t kTracksEnd[] = {'?', 0x1C};
constexpr std::uint8_t kDone = 'p';
constexpr std::uint8_t kFailed = 'q';
constexpr std::uint8_t kNoStatus = 'x';

bool isIn(TrackSet tracks, std::size_t track)
{
    return (tracks & (1U << track)) != 0;
}

std::string trackName(std::size_t track)
{
    return "track " + std::to_string(track + 1);
}

std::string tracksName(TrackSet tracks)
{
    std::string text;
    for (std::size_t track = 0; track < kTracks; ++track)
        if (isIn(tracks, track))
            text += (text.empty() ? "" : " and ") + std::to_string(track + 1);
    return (text.size() > 1 ? "tracks " : "track ") + text;
}

void append(Bytes &bytes, std::string_view text)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

} // namespace

// ---- commands

void StripeHead::read(Way way, TrackSet tracks, TimePoint now)
{
    Operation operation;
    operation.way = way;
    operation.tracks = tracks;
    begin(std::move(operation), now);
}

void StripeHead::write(Way way, Texts texts, TimePoint now)
{
    for (std::size_t track = 0; track < kTracks; ++track)
        if (const char *const wrong = texts[track] ? trackTrouble(track, *texts[track]) : nullptr)
            return refuseWrite(way, wrong);
    Operation operation;
    operation.way = way;
    operation.texts = std::move(texts);
    operation.isWrite = true;
    begin(std::move(operation), now);
}

void StripeHead::refuseWrite(Way way, std::string_view why)
{
    giveUp("a new command came");
    tell("write fault: " + std::string(why));
    ++writes_.begun;
    if (way == Way::framed)
        answer({Outcome::stripeWriteFault, {}, {}});
    end(true, false);
}

void StripeHead::begin(Operation operation, TimePoint now)
{
    giveUp("a new command came");
    ++(operation.isWrite ? writes_ : reads_).begun;
    operation.began = now;
    waiting_ = std::move(operation);
    tick(now);
}

void StripeHead::askStatus()
{
    if (waiting_) {
        tell("the status has to wait for the swipe");
        statusWaits_ = true;
    } else {
        answerStatus();
    }
}

void StripeHead::setSeparator(std::string separator)
{
    separator_ = std::move(separator);
    answer({Outcome::done, {}, {}});
}

void StripeHead::setReadTime(std::chrono::seconds time)
{
    readTime_ = time;
    answer({Outcome::done, {}, {}});
}

void StripeHead::reset()
{
    giveUp("module reset");
    format_ = StripeFormat::iso;
}

void StripeHead::giveUp(std::string_view why)
{
    if (!waiting_)
        return;
    tell("waiting for a magnetic card given up: " + std::string(why));
    const bool isWrite = waiting_->isWrite;
    waiting_.reset();
    statusWaits_ = false;
    end(isWrite, false);
}

void StripeHead::losePower()
{
    reset();
    answers_.clear();
    separator_ = kFirstSeparator;
    readTime_ = kFirstReadTime;
    wentWell_ = false;
}

// ---- the swipe

std::optional<TimePoint> StripeHead::swipeTime() const
{
    if (!waiting_ || !card_ || (onlyOnce_ && wasSwiped_) || swipeDelay_ > readTime_)
        return std::nullopt;
    return waiting_->began + swipeDelay_;
}

std::optional<TimePoint> StripeHead::deadline() const
{
    if (!waiting_)
        return std::nullopt;
    return swipeTime().value_or(waiting_->began + readTime_);
}

void StripeHead::tick(TimePoint now)
{
    const std::optional<TimePoint> due = deadline();
    if (!due || now < *due)
        return;
    if (swipeTime())
        swipe();
    else
        missSwipe();
}

void StripeHead::swipe()
{
    wasSwiped_ = true;
    tell("magnetic card swiped: " + label_);
    const Operation operation = *std::exchange(waiting_, std::nullopt);
    if (operation.isWrite)
        finishWrite(operation);
    else
        finishRead(operation);
}

void StripeHead::missSwipe()
{
    tell("nobody swiped a magnetic card in " + std::to_string(readTime_.count()) + " s");
    const Operation operation = *std::exchange(waiting_, std::nullopt);
    if (operation.isWrite && operation.way == Way::framed)
        answer({Outcome::stripeWriteFault, {}, {}});
    end(operation.isWrite, false);
}

void StripeHead::finishRead(const Operation &operation)
{
    const Outcome outcome = judge(operation.tracks);
    const bool readable = outcome == Outcome::done;
    if (operation.way == Way::framed) {
        answer({outcome, readable ? framedText() : Bytes{}, {}});
    } else {
        Bytes text = bareText(operation.tracks, readable);
        const bool isGarbled = strikes(Fault::garbled);
        if (isGarbled)
            text.resize(text.size() - std::size(kTracksEnd));
        answer({std::nullopt, std::move(text),
                tracksName(operation.tracks) + (readable ? "" : ", nothing read") + (isGarbled ? ", garbled" : "")});
    }
    end(false, readable);
}

void StripeHead::finishWrite(const Operation &operation)
{
    const bool fails = strikes(Fault::write);
    if (fails)
        tell("write fault: the fault is on");
    for (std::size_t track = 0; track < kTracks && !fails; ++track)
        if (operation.texts[track])
            card_->tracks[track] = {*operation.texts[track], format_};
    if (operation.way == Way::framed)
        answer({fails ? Outcome::stripeWriteFault : Outcome::done, {}, {}});
    end(true, !fails);
}

void StripeHead::end(bool isWrite, bool wentWell)
{
    wentWell_ = wentWell;
    if (!wentWell)
        ++(isWrite ? writes_ : reads_).failed;
    if (std::exchange(statusWaits_, false))
        answerStatus();
}

// What a read of these tracks comes to.
Outcome StripeHead::judge(TrackSet tracks)
{
    if (strikes(Fault::noData)) {
        tell("no data: the fault is on");
        return Outcome::stripeNoData;
    }
    if (strikes(Fault::read)) {
        tell("read fault: the fault is on");
        return Outcome::stripeReadFault;
    }
    bool hasData = false;
    for (std::size_t track = 0; track < kTracks; ++track) {
        const StripeTrack &recorded = card_->tracks[track];
        if (!isIn(tracks, track) || recorded.text.empty())
            continue;
        hasData = true;
        if (recorded.format != format_) {
            tell("read fault: " + trackName(track) + " is recorded as " + formatName(recorded.format) +
                 ", the head stands at " + formatName(format_));
            return Outcome::stripeReadFault;
        }
    }
    if (!hasData)
        tell("no data: " + tracksName(tracks) + " empty");
    return hasData ? Outcome::done : Outcome::stripeNoData;
}

// Whether a fault strikes now.
bool StripeHead::strikes(Fault fault)
{
    if (fault_ != fault)
        return false;
    if (faultOnce_)
        fault_ = Fault::none;
    return true;
}

// ---- answers

Bytes StripeHead::bareText(TrackSet tracks, bool readable) const
{
    const auto text = [&](std::size_t track) {
        return readable ? std::string_view(card_->tracks[track].text) : std::string_view();
    };
    Bytes bytes{kEsc, kTracksFollow};
    if (tracks == kTrack3)
        bytes.push_back(kNextTrack);
    if (tracks == kTrack1 || tracks == kTrack2 || tracks == kTrack3) {
        append(bytes, text(tracks == kTrack1 ? 0 : tracks == kTrack2 ? 1 : 2));
    } else {
        const auto appendSegment = [&](std::string_view segment) {
            if (segment.empty())
                bytes.push_back(kEmptyTrack);
            append(bytes, segment);
        };
        appendSegment(text(1));
        bytes.push_back(kNextTrack);
        appendSegment(text(isIn(tracks, 0) ? 0 : 2));
    }
    bytes.insert(bytes.end(), std::begin(kTracksEnd), std::end(kTracksEnd));
    return bytes;
}

Bytes StripeHead::framedText() const
{
    Bytes bytes;
    for (std::size_t track = 0; track < kTracks; ++track) {
        append(bytes, card_->tracks[track].text);
        if (track + 1 < kTracks || finalSeparator_)
            append(bytes, separator_);
    }
    return bytes;
}

void StripeHead::answer(StripeAnswer answer)
{
    if (strikes(Fault::silent))
        tell("the stripe head keeps silent: the fault is on");
    else
        answers_.push_back(std::move(answer));
}

void StripeHead::answerStatus()
{
    if (strikes(Fault::status))
        answer({std::nullopt, {kEsc, kNoStatus}, "no status at all: the fault is on"});
    else if (wentWell_)
        answer({std::nullopt, {kEsc, kDone}, "the last operation succeeded"});
    else
        answer({std::nullopt, {kEsc, kFailed}, "the last operation failed"});
}

std::vector<StripeAnswer> StripeHead::takeAnswers()
{
    return std::exchange(answers_, {});
}

void StripeHead::tell(std::string_view text)
{
    if (trace_.wanted())
        trace_.line("     " + std::string(text));
}

} // namespace qvsim
