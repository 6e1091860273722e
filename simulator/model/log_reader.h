// The driver library's log file, read for what its cards have answered.
//
// Of all its lines only dumps matter, "TITLE  LEN=7   HEX: 00A40400023F00", and of these four:
//
//   title ends in   what it holds
//   szSend          a command as it goes into a frame; the title has a line of its own
//   ucBody          declared length (2), status word (2), body, LRC of a reply
//   C_APDU          a command to the card whose slot the title names
//   R_APDU          the card's answer to it
//
// An exchange is there twice, inside the frame and as APDUs, so that one line that is cut off does not lose it. Lines of
// other threads may stand in between. State goes on from file to file: a log may be cut anywhere.
#pragma once

#include "model/card_recorder.h"

#include <string>

namespace qvsim {

class LogReader {
  public:
    static constexpr std::size_t kMostLine = 16 * 1024; // characters; the library's longest dump has half as many

    explicit LogReader(CardRecorder &recorder) : recorder_(recorder) {}

    void read(std::string_view piece);
    // Takes the last line of a file that does not end in a line end.
    void endOfFile();

    std::size_t dumps() const { return dumps_; } // of the four titles
    std::size_t cutOffDumps() const { return cutOffDumps_; }
    std::size_t tooLongLines() const { return tooLongLines_; }

  private:
    enum class Title { send, reply, commandApdu, responseApdu };
    struct TitleRow {
        std::string_view end;
        Title title;
    };
    static const TitleRow kTitles[];

    void addToLine(std::string_view piece);
    void endLine();
    void takeLine(std::string_view line);
    void takeDump(Title title, std::string_view titleText, const std::optional<Bytes> &bytes);
    void takeSend(const std::optional<Bytes> &command);
    void takeReply(BytesView reply);
    void takeCommandApdu(std::string_view titleText, const std::optional<Bytes> &apdu);

    CardRecorder &recorder_;
    std::string line_;
    bool skipping_ = false;     // in a line that is too long
    bool sendExpected_ = false; // the title has come, its dump not yet
    Bytes announced_;           // the command that a C_APDU has announced
    std::size_t dumps_ = 0, cutOffDumps_ = 0, tooLongLines_ = 0;
};

} // namespace qvsim
