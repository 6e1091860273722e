// Lookup by short identifier; the tags of file control information.
#include "model/chip_files.h"

#include "model/big_endian.h"

#include <algorithm>
#include <array>

namespace qvsim {

namespace {

constexpr std::uint8_t kByIdentifier = 0x00; // P1 of SELECT
constexpr std::uint8_t kByName = 0x04;
constexpr std::uint8_t kFirstOne = 0x00; // P2 of SELECT
constexpr std::uint8_t kNextOne = 0x02;
constexpr std::array<std::uint8_t, 2> kMasterFile{0x3F, 0x00};

constexpr std::uint8_t kControlInformation = 0x6F;
constexpr std::uint8_t kName = 0x84;
constexpr std::uint8_t kProprietary = 0xA5;
constexpr std::uint16_t kIssuerDiscretionary = 0x9F0C;

// Applications' names and data are short, so that one byte holds every length.
void appendObject(Bytes &to, unsigned tag, BytesView value)
{
    appendNumber(to, tag, tag > 0xFF ? 2 : 1);
    to.push_back(static_cast<std::uint8_t>(value.size()));
    appendBytes(to, value);
}

Bytes controlInformation(BytesView name, BytesView discretionary)
{
    Bytes proprietary;
    appendObject(proprietary, kIssuerDiscretionary, discretionary);
    Bytes inner;
    appendObject(inner, kName, name);
    appendObject(inner, kProprietary, proprietary);
    Bytes whole;
    appendObject(whole, kControlInformation, inner);
    return whole;
}

} // namespace

const ShortFile *findShortFile(const std::vector<ShortFile> &files, const ChipCommand &command)
{
    const auto found = std::find_if(files.begin(), files.end(), [&command](const ShortFile &file) {
        return file.identifier == (command.p1 & kShortFileMask);
    });
    return found == files.end() ? nullptr : &*found;
}

Bytes readShortFile(const std::vector<ShortFile> &files, const ChipCommand &command)
{
    if ((command.p1 & kShortFileBit) == 0)
        return statusAnswer(sw::noCurrentFile);
    if ((command.p1 & ~(kShortFileBit | kShortFileMask)) != 0)
        return statusAnswer(sw::wrongParameters);
    const ShortFile *const file = findShortFile(files, command);
    if (file == nullptr)
        return statusAnswer(sw::noSuchFile);
    if (command.p2 >= file->content.size())
        return statusAnswer(sw::wrongOffset);
    const BytesView rest = BytesView(file->content).subspan(command.p2);
    const std::size_t wanted = command.le.value_or(0) == 0 ? rest.size() : *command.le;
    if (wanted > rest.size())
        return statusAnswer(static_cast<std::uint16_t>(sw::rightLe + rest.size()));
    return dataAnswer(rest.first(wanted));
}

Bytes selectApplication(const ChipCommand &command, BytesView name, BytesView discretionary)
{
    if (command.p1 == kByIdentifier && command.p2 == kFirstOne)
        return statusAnswer(std::ranges::equal(command.data, kMasterFile) ? sw::done : sw::noSuchFile);
    if (command.p1 != kByName || (command.p2 != kFirstOne && command.p2 != kNextOne))
        return statusAnswer(sw::wrongParameters);
    // There is one application and so no next one.
    if (command.p2 == kNextOne || command.data.size() > name.size() ||
        !std::ranges::equal(command.data, name.first(command.data.size())))
        return statusAnswer(sw::noSuchFile);
    const Bytes information = controlInformation(name, discretionary);
    if (command.le.value_or(0) != 0 && *command.le < information.size())
        return statusAnswer(static_cast<std::uint16_t>(sw::rightLe + information.size()));
    return dataAnswer(information);
}

} // namespace qvsim
