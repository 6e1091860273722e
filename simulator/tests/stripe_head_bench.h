// stripe_head_bench.h - the stripe head of the reader model, byte by byte: commands in, replies out, with a clock that the
// test turns.
#pragma once

#include "model/reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace qvsim {

using std::chrono::milliseconds;
using Fault = StripeHead::Fault;

class Lines final : public Trace {
  public:
    bool wanted() const override { return true; }
    void line(std::string_view text) override { text_ += std::string(text) + "\n"; }
    bool has(std::string_view text) const { return text_.find(text) != std::string::npos; }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

inline std::string hexOf(std::string_view text)
{
    return toHex(Bytes(text.begin(), text.end()));
}

class StripeHeadTest : public testing::Test {
  protected:
    void raw(std::string_view hex) { reader.receive(*fromHex(hex), reader.baud(), time); }
    void framed(std::string_view hex)
    {
        reader.receive(encodeFrame(FrameKind::peripheral, *fromHex(hex)), reader.baud(), time);
    }

    // The replies since the last look as they are on the line, "1B 70 | 1B 71".
    std::string replies()
    {
        std::string text;
        for (const SentBytes &sent : reader.takeOutput())
            text += (text.empty() ? "" : " | ") + toHex(sent.bytes);
        return text;
    }
    std::string ask(std::string_view hex)
    {
        raw(hex);
        return replies();
    }
    // Status word and body of the reply to a command in a peripheral frame.
    std::string askFramed(std::string_view hex)
    {
        framed(hex);
        return decoded();
    }
    std::string decoded()
    {
        const std::vector<SentBytes> output = reader.takeOutput();
        if (output.empty())
            return "silence";
        const BytesView frame = output.front().bytes;
        EXPECT_EQ(output.size(), 1U);
        EXPECT_EQ(frame.front(), 0x01);
        EXPECT_EQ(frame.back(), 0x04);
        return toHex(decodeFrame(frame.subspan(1, frame.size() - 2)).data);
    }

    void offer(const char *track1, const char *track2, const char *track3, StripeFormat format = StripeFormat::iso)
    {
        StripeCard card;
        card.tracks = {StripeTrack{track1, format}, {track2, format}, {track3, format}};
        reader.stripe().offer(std::move(card), "test card");
        reader.tick(time);
    }
    std::string tracks()
    {
        const auto &all = reader.stripe().card()->tracks;
        return all[0].text + "/" + all[1].text + "/" + all[2].text;
    }
    void pass(int ms)
    {
        time += milliseconds(ms);
        reader.tick(time);
    }
    bool describes(const std::string &line)
    {
        const std::vector<std::string> lines = reader.describe(time);
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    Lines trace;
    TimePoint time{};
    Reader reader{9600, milliseconds(2500), trace};
};

inline constexpr char kStatus[] = "1B 6A";
inline constexpr char kDone[] = "1B 70";
inline constexpr char kFailed[] = "1B 71";

} // namespace qvsim
