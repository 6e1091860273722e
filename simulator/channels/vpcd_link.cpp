// Length-prefixed messages over a non-blocking socket.
#include "channels/vpcd_link.h"

#include "system/io.h"

#include <array>

namespace qvsim {

namespace {

constexpr std::size_t kLengthBytes = 2;
// A card that reads nothing any more gets nothing any more.
constexpr std::size_t kMostUnsent = 64 * 1024;
constexpr std::size_t kMostReadsBeforeQuestion = 64;

} // namespace

void VpcdLink::send(BytesView message, bool expectsAnswer)
{
    // What has come before the question cannot be its answer.
    if (expectsAnswer)
        takeArrived();
    if (closed_)
        return;
    unsent_.push_back(static_cast<std::uint8_t>(message.size() >> 8));
    unsent_.push_back(static_cast<std::uint8_t>(message.size()));
    unsent_.insert(unsent_.end(), message.begin(), message.end());
    if (expectsAnswer)
        ++awaited_;
    onWritable();
    if (unsent_.size() > kMostUnsent)
        closed_ = true;
}

std::optional<Bytes> VpcdLink::takeAnswer()
{
    if (answers_.empty())
        return std::nullopt;
    Bytes answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
}

void VpcdLink::skipAnswer()
{
    answers_.clear();
    toSkip_ = awaited_;
}

void VpcdLink::onReadable()
{
    readOnce();
}

void VpcdLink::takeArrived()
{
    // Bounded, for a card that never stops talking.
    for (std::size_t i = 0; i < kMostReadsBeforeQuestion && !closed_ && readOnce(); ++i) {
    }
}

bool VpcdLink::readOnce()
{
    std::array<std::uint8_t, 4096> buffer;
    const ReadResult result = readSome(socket_.get(), buffer);
    if (result.kind == ReadResult::Kind::wouldBlock)
        return false;
    if (result.kind != ReadResult::Kind::bytes) {
        closed_ = true;
        return false;
    }
    received_.insert(received_.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(result.count));
    takeMessages();
    return true;
}

void VpcdLink::onWritable()
{
    int error = 0;
    const std::size_t done = sendSome(socket_.get(), unsent_, error);
    unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(done));
    if (error != 0)
        closed_ = true;
}

void VpcdLink::close()
{
    closed_ = true;
    socket_.reset();
}

void VpcdLink::takeMessages()
{
    std::size_t at = 0;
    while (received_.size() - at >= kLengthBytes) {
        const std::size_t length = (std::size_t{received_[at]} << 8) | received_[at + 1];
        if (received_.size() - at - kLengthBytes < length)
            break;
        const auto begin = received_.begin() + static_cast<std::ptrdiff_t>(at + kLengthBytes);
        at += kLengthBytes + length;
        if (awaited_ == 0)
            continue; // nobody asked
        --awaited_;
        if (toSkip_ != 0)
            --toSkip_;
        else
            answers_.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
    }
    received_.erase(received_.begin(), received_.begin() + static_cast<std::ptrdiff_t>(at));
}

} // namespace qvsim
