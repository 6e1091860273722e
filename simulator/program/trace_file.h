// The trace as a file of lines: "2026-03-14 09:26:53.589 in   02 30 30 ...".
#pragma once

#include "model/trace.h"
#include "system/text_output.h"

#include <optional>
#include <string>

namespace qvsim {

class TraceFile final : public Trace {
  public:
    // Empty: no trace; "-": standard error; else a file that is begun anew. Throws std::runtime_error when it cannot be
    // opened.
    explicit TraceFile(const std::string &path);

    bool wanted() const override { return output_.has_value(); }
    void line(std::string_view text) override;

  private:
    std::optional<TextOutput> output_;
};

} // namespace qvsim
