// Cuts what arrives in pieces into lines.
#pragma once

#include "model/bytes.h"

namespace qvsim {

class LineBuffer {
  public:
    static constexpr std::size_t kMostLine = 64 * 1024;

    // False when a line grows beyond kMostLine: whoever sends that is no controller.
    bool add(BytesView bytes)
    {
        text_.append(bytes.begin(), bytes.end());
        return text_.size() - std::min(text_.rfind('\n') + 1, text_.size()) <= kMostLine;
    }

    std::optional<std::string> take()
    {
        const std::size_t end = text_.find('\n');
        if (end == std::string::npos)
            return std::nullopt;
        std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

  private:
    std::string text_;
};

} // namespace qvsim
