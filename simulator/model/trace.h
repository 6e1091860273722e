// Where the simulator tells what happens: one line per event, without time and without line end.
#pragma once

#include <string_view>

namespace qvsim {

class Trace {
  public:
    virtual ~Trace() = default;
    // Callers put no text together for a trace that nobody reads.
    virtual bool wanted() const = 0;
    virtual void line(std::string_view text) = 0;
};

class NoTrace final : public Trace {
  public:
    bool wanted() const override { return false; }
    void line(std::string_view) override {}
};

} // namespace qvsim
