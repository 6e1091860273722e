// Reads the files piece by piece, chooses the slot, checks and writes the card file.
#include "program/from_log.h"

#include "model/log_reader.h"
#include "program/card_files.h"
#include "system/io.h"
#include "system/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::size_t kPieceBytes = 64 * 1024;

void readLog(const std::string &path, LogReader &reader)
{
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        const int error = errno;
        throw std::runtime_error(errorText(path, error));
    }
    struct stat info {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        throw std::runtime_error(path + ": no regular file");
    std::string piece(kPieceBytes, '\0');
    for (;;) {
        const ReadResult result = readSome(file.get(), {reinterpret_cast<std::uint8_t *>(piece.data()), piece.size()});
        if (result.kind == ReadResult::Kind::end)
            break;
        if (result.kind != ReadResult::Kind::bytes)
            throw std::runtime_error(errorText(path, result.error));
        reader.read(std::string_view(piece).substr(0, result.count));
    }
    reader.endOfFile();
}

std::string counted(std::size_t count, const std::string &what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// `name`: what the messages call the log.
SlotCode chooseSlot(const CardRecorder &recorder, const LogReader &reader, const std::string &name,
                    std::optional<SlotCode> wanted)
{
    const std::vector<SlotCode> slots = recorder.slots();
    if (reader.dumps() == 0)
        throw std::runtime_error(name + ": no log of the driver library, or nothing was sent while it was on");
    if (slots.empty())
        throw std::runtime_error(name + ": no card has answered in this log");
    std::string list;
    for (const SlotCode slot : slots) {
        if (wanted == slot || (!wanted && slots.size() == 1))
            return slot;
        list += "\n  --slot " + std::to_string(slot) + "  " + slotName(slot) + ", " +
                counted(recorder.exchanges(slot), "exchange");
    }
    if (wanted)
        throw std::runtime_error(name + ": no card has answered in " + slotName(*wanted) + ", but in" + list);
    throw std::runtime_error(name + ": cards have answered in several slots; choose one" + list);
}

std::vector<std::string> remarks(const CardRecorder &recorder, const LogReader &reader, SlotCode slot)
{
    std::vector<std::string> lines;
    if (reader.cutOffDumps() != 0)
        lines.push_back(counted(reader.cutOffDumps(), "dump") + " cut off, left out");
    if (reader.tooLongLines() != 0)
        lines.push_back(counted(reader.tooLongLines(), "line") + " of more than " +
                        std::to_string(LogReader::kMostLine) + " characters left out");
    if (recorder.unanswered() != 0)
        lines.push_back(counted(recorder.unanswered(), "command") + " without a card's answer left out");
    switch (recorder.firstAtr(slot)) {
    case CardRecorder::FirstAtr::heard: break;
    case CardRecorder::FirstAtr::ofLaterPowerOn:
        lines.emplace_back("the log begins behind the card's power-on; the answer to it is that of the next one");
        break;
    case CardRecorder::FirstAtr::madeUp:
        lines.emplace_back("no answer to power-on in the log; the card gets the plain 3B 00");
        break;
    }
    return lines;
}

} // namespace

int convertLogs(const Options &options)
{
    CardRecorder recorder;
    LogReader reader(recorder);
    for (const std::string &path : options.logFiles)
        readLog(path, reader);
    const std::string name = options.logFiles.size() == 1 ? options.logFiles.front() : "these files";
    const SlotCode slot = chooseSlot(recorder, reader, name, options.logSlot);
    const std::string text = recorder.cardFile(slot);
    if (const CardScriptResult checked = parseCardScript(text, "the card of " + name);
        !std::holds_alternative<CardScript>(checked))
        throw std::runtime_error(std::get<std::string>(checked));
    if (!options.quiet)
        for (const std::string &remark : remarks(recorder, reader, slot))
            std::cerr << "qvreader-sim: " << remark << '\n';
    if (!options.recordFile.empty()) {
        writeCardFile("record", options.recordFile, text);
        return 0;
    }
    int error = 0;
    if (writeSome(STDOUT_FILENO, asBytes(text), error) != text.size())
        throw std::runtime_error(error == 0 ? "standard output takes no more" : errorText("standard output", error));
    return 0;
}

} // namespace qvsim
