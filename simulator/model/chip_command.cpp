// The four cases of a command with short lengths.
#include "model/chip_command.h"

#include "model/big_endian.h"

namespace qvsim {

namespace {

constexpr std::size_t kHeaderBytes = 4;

} // namespace

std::optional<ChipCommand> parseChipCommand(BytesView bytes)
{
    if (bytes.size() < kHeaderBytes)
        return std::nullopt;
    ChipCommand command{bytes[0], bytes[1], bytes[2], bytes[3], {}, std::nullopt};
    BytesView rest = bytes.subspan(kHeaderBytes);
    if (rest.size() > 1) {
        const std::size_t length = rest[0];
        rest = rest.subspan(1);
        if (length == 0 || length > rest.size())
            return std::nullopt;
        command.data = rest.first(length);
        rest = rest.subspan(length);
    }
    if (rest.size() > 1)
        return std::nullopt;
    if (!rest.empty())
        command.le = rest[0];
    return command;
}

Bytes statusAnswer(std::uint16_t status)
{
    Bytes answer;
    appendNumber(answer, status, 2);
    return answer;
}

Bytes dataAnswer(BytesView data)
{
    Bytes answer(data.begin(), data.end());
    appendNumber(answer, sw::done, 2);
    return answer;
}

} // namespace qvsim
