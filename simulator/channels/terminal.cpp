// The terminal's two ways: from the host through the sequences to screen or port, from the reader to the host.
#include "channels/terminal.h"

#include "model/line_noise.h"

#include <utility>

namespace qvsim {

namespace {

// What a code means; where it means several things, the preferred one if it is among them.
std::optional<unsigned> meaningOf(std::span<const TerminalCode> codes, unsigned code, unsigned preferred)
{
    std::optional<unsigned> meaning;
    for (const TerminalCode &row : codes)
        if (row.code == code && (!meaning || row.meaning == preferred))
            meaning = row.meaning;
    return meaning;
}

constexpr char kEsc = 0x1B;

std::string bytesText(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

} // namespace

Terminal::Terminal(const TerminalFamily &family, unsigned readerPort, unsigned setupSpeed, ToReader toReader,
                   Trace &trace)
    : family_(family), readerPort_(readerPort), setupSpeed_(setupSpeed), toReader_(std::move(toReader)), trace_(trace)
{
}

void Terminal::fromHost(BytesView bytes)
{
    if (trace_.wanted())
        trace_.line("host " + toHex(bytes));
    for (const std::uint8_t byte : bytes)
        feed(static_cast<char>(byte));
    flush();
}

Bytes Terminal::fromReader(BytesView bytes, unsigned readerSpeed)
{
    if (!on_ || port_ != readerPort_) {
        tell(bytesText(bytes.size()) + " of the reader lost: its aux port is off");
        return {};
    }
    if (readerSpeed == speed_)
        return {bytes.begin(), bytes.end()};
    tell("the aux port is at " + std::to_string(speed_) + ", the reader at " + std::to_string(readerSpeed) +
         ": its reply arrives as garbage");
    return lineNoise(bytes);
}

std::string Terminal::describe() const
{
    std::string text = std::string(family_.name) + ", reader at aux port " + std::to_string(readerPort_);
    text += on_ ? ", port " + std::to_string(port_) + " on at " + std::to_string(speed_) : ", off";
    if (inData_)
        text += ", in data";
    if (screenKept_)
        text += ", screen kept";
    return text + ", " + bytesText(shown_) + " shown";
}

// ---- from the host

// Takes a byte behind what is held. What can become a sequence no longer goes on to where plain bytes go.
void Terminal::feed(char byte)
{
    held_ += byte;
    while (!held_.empty()) {
        bool partial = false;
        for (const TerminalSequence &sequence : family_.sequences) {
            if (!isValid(sequence))
                continue;
            SequenceNumbers numbers;
            const SequenceMatch match = matchSequence(sequence.text, held_, numbers);
            if (match == SequenceMatch::whole) {
                held_.clear();
                act(sequence, numbers);
                return;
            }
            partial = partial || match == SequenceMatch::partial;
        }
        if (partial)
            return;
        give(held_.front());
        held_.erase(0, 1);
    }
}

// While bytes go to the port, only the end of that is looked for: a reader's own commands begin with ESC, too. A mark
// without ESC is plain text on the screen.
bool Terminal::isValid(const TerminalSequence &sequence) const
{
    if (sink() == Sink::port)
        return sequence.act == (family_.wraps ? TerminalAct::endData : TerminalAct::close);
    return sequence.text.front() == kEsc;
}

Terminal::Sink Terminal::sink() const
{
    return on_ && (inData_ || !family_.wraps) ? Sink::port : Sink::screen;
}

void Terminal::give(char byte)
{
    if (!run_.empty() && runSink_ != sink())
        flush();
    runSink_ = sink();
    run_.push_back(static_cast<std::uint8_t>(byte));
}

void Terminal::flush()
{
    const Bytes run = std::exchange(run_, {});
    if (run.empty())
        return;
    if (runSink_ == Sink::screen) {
        shown_ += run.size();
        tell("shows " + bytesText(run.size()) + " on the screen: " + toHex(run));
    } else if (port_ == readerPort_) {
        toReader_(run, speed_);
    } else {
        tell(bytesText(run.size()) + " to aux port " + std::to_string(port_) + ", where no reader is");
    }
}

void Terminal::act(const TerminalSequence &sequence, const SequenceNumbers &numbers)
{
    flush();
    switch (sequence.act) {
    case TerminalAct::keepScreen: screenKept_ = true; break;
    case TerminalAct::releaseScreen: screenKept_ = false; break;
    case TerminalAct::open: openStep(sequence, numbers); break;
    case TerminalAct::beginData:
        inData_ = on_;
        if (!on_)
            tell("is told to send data, but the aux port is off");
        break;
    case TerminalAct::endData: inData_ = false; break;
    case TerminalAct::close: switchOff(); break;
    }
}

void Terminal::openStep(const TerminalSequence &sequence, const SequenceNumbers &numbers)
{
    std::size_t step = 0;
    for (const TerminalSequence &row : family_.sequences) {
        if (&row == &sequence)
            break;
        step += row.act == TerminalAct::open ? 1 : 0;
    }
    if (step == 0)
        asked_ = numbers;
    else if (step != stepsDone_) {
        tell("gets the parts of the open sequence out of turn: the aux port stays as it is");
        stepsDone_ = 0;
        return;
    }
    stepsDone_ = step + 1;
    if (stepsDone_ < family_.openSteps())
        return;
    stepsDone_ = 0;
    switchOn();
}

void Terminal::switchOn()
{
    const std::optional<unsigned> port = meaningOf(family_.ports, asked_.port.value_or(0), readerPort_);
    const std::optional<unsigned> speed =
        asked_.speed ? meaningOf(family_.speeds, *asked_.speed, setupSpeed_) : std::optional(setupSpeed_);
    if (!port || !speed) {
        tell(port ? "knows no such speed: the aux port stays as it is" : "has no such aux port");
        return;
    }
    on_ = true;
    inData_ = false;
    port_ = *port;
    speed_ = *speed;
    tell("aux port " + std::to_string(port_) + " on at " + std::to_string(speed_) +
         (port_ == readerPort_ ? "" : "; the reader is at port " + std::to_string(readerPort_)));
}

void Terminal::switchOff()
{
    tell(on_ ? "aux port " + std::to_string(port_) + " off" : "is told to switch the aux port off, but it is off");
    on_ = false;
    inData_ = false;
}

void Terminal::tell(const std::string &text)
{
    if (trace_.wanted())
        trace_.line("     terminal: " + text);
}

} // namespace qvsim
