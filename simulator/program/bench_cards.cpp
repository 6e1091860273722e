// Electronic purse cards and PSAMs on the bench: from their files into slots.
#include "program/bench.h"

#include "model/psam_card.h"
#include "model/purse_card.h"
#include "program/card_files.h"
#include "system/random.h"

#include <stdexcept>

namespace qvsim {

namespace {

std::string cardLabel(std::string_view kind, std::string_view file, const std::string &name)
{
    return std::string(kind) + std::string(file) + (name.empty() ? "" : " (" + name + ")");
}

} // namespace

Trouble Bench::insertPurse(SlotCode slot, std::string_view file, std::vector<std::string> &)
{
    if (file.empty())
        return "purse:FILE takes the name of a purse file";
    try {
        PurseDataResult result = readPurseFile(std::string(file));
        if (const std::string *const wrong = std::get_if<std::string>(&result))
            return *wrong;
        PurseData &data = std::get<PurseData>(result);
        std::string label = cardLabel("purse:", file, data.name);
        putCard(slot, std::make_unique<PurseCard>(std::move(data), std::move(label), fillWithRandom));
    } catch (const std::runtime_error &error) {
        return error.what(); // no triple DES on this machine
    }
    return std::nullopt;
}

Trouble Bench::insertPsam(SlotCode slot, std::string_view file, std::vector<std::string> &)
{
    if (file.empty())
        return "psam:FILE takes the name of a PSAM file";
    PsamDataResult result = readPsamFile(std::string(file));
    if (const std::string *const wrong = std::get_if<std::string>(&result))
        return *wrong;
    PsamData &data = std::get<PsamData>(result);
    std::string label = cardLabel("psam:", file, data.name);
    putCard(slot, std::make_unique<PsamCard>(std::move(data), std::move(label)));
    return std::nullopt;
}

} // namespace qvsim
