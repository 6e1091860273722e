// What may go wrong with a reply on its way to the host; switched on and off while the simulator runs.
//
// A fault strikes the next reply, or every reply until it is switched off. Several faults strike together, in the order
// of the table in line_faults.cpp: first what changes the frame, then what cuts it up, then what holds it back.
#pragma once

#include "model/bytes.h"

#include <chrono>
#include <map>

namespace qvsim {

// A piece of a reply, and how long after the piece before it (for the first: after the reply was ready) it leaves.
struct TimedBytes {
    Bytes bytes;
    std::chrono::milliseconds after{0};
};

struct Delivery {
    std::vector<TimedBytes> pieces; // none: silence
    bool isCut = false;             // a fault has cut the reply into pieces
    bool hangsUp = false;
    std::string faults; // that have struck: "badlrc, late 3000 every"
};

class LineFaults {
  public:
    // "badlrc", "late 3000", "garbage 41 42 every", "off". Returns what is wrong; nothing has then changed.
    std::optional<std::string> set(std::string_view words);
    bool any() const { return !set_.empty(); }
    // The switched-on faults: "badlrc, late 3000 every".
    std::string names() const { return names(true); }
    // Every fault there is, a line each, with what is switched on.
    std::vector<std::string> describe() const;
    // What becomes of a reply, a frame or a bare one; faults of one reply are over with it. Those of a frame's parts
    // leave bare replies alone and wait for the next frame.
    Delivery apply(Bytes reply);

    struct Row;

  private:
    struct Setting {
        std::string text; // the argument as it was given
        Bytes bytes;
        unsigned number = 0;
        bool every = false;
    };
    static const Row kRows[];
    std::string names(bool ofFrames) const;
    static std::string settingText(std::string_view name, const Setting &setting);

    std::map<std::size_t, Setting> set_; // by row
};

} // namespace qvsim
