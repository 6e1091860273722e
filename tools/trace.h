// trace.h - what goes over the wire: time, direction, bytes, and what they mean, a line for each piece.
#pragma once

#include "console.h"
#include "decode.h"
#include "line_tap.h"
#include "stripe_words.h"

#include <optional>
#include <string>

namespace qvtool {

class Trace final : private LineListener {
  public:
    // From here until the object ends everything on the reader's port is told. stripe: in the words of the stripe head.
    explicit Trace(Console &console, std::optional<StripeWire> stripe = std::nullopt);
    ~Trace();
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

  private:
    void sent(BytesView data) override;
    void received(BytesView data) override;
    void failed(const char *pszCall, const char *pszError) override;
    void tell(char cDirection, BytesView data, const std::string &sMeaning);
    void tell(char cDirection, const ToldBytes &told);
    void tellSpeed();
    // Tells what came without becoming a whole reply.
    void flush();

    Console &m_console;
    ReplyCutter m_replies;
    std::optional<StripeWire> m_stripe;
    unsigned m_nSpeed = 0; // told last, bits per second
};

} // namespace qvtool
