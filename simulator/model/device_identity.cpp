// Fields of the device record: a row each.
#include "model/device_identity.h"

#include <algorithm>

namespace qvsim {

namespace {

bool setText(std::string &text, std::string_view value)
{
    const bool printable = std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~'; });
    if (value.size() > kDeviceTextBytes || !printable)
        return false;
    text = value;
    return true;
}

template <std::size_t size> bool setBytes(std::array<std::uint8_t, size> &bytes, std::string_view value)
{
    const std::optional<Bytes> parsed = fromHex(value);
    if (!parsed || parsed->size() != size)
        return false;
    std::copy(parsed->begin(), parsed->end(), bytes.begin());
    return true;
}

// "1.0.2.10", a byte each.
bool setVersion(std::array<std::uint8_t, 4> &version, std::string_view value)
{
    std::string digits;
    for (;;) {
        const std::size_t dot = std::min(value.find('.'), value.size());
        if (dot == 0 || dot > 2)
            return false;
        digits.append(2 - dot, '0').append(value.substr(0, dot));
        if (dot == value.size())
            return setBytes(version, digits);
        value.remove_prefix(dot + 1);
    }
}

bool setDate(std::array<std::uint8_t, 4> &date, std::string_view value)
{
    constexpr unsigned kHighestDate = 99991231;
    const std::optional<unsigned> number = value.size() == 8 ? parseNumber(value, kHighestDate) : std::nullopt;
    if (!number)
        return false;
    const unsigned month = *number / 100 % 100;
    const unsigned day = *number % 100;
    return month >= 1 && month <= 12 && day >= 1 && day <= 31 && setBytes(date, value);
}

struct FieldRow {
    std::string_view name;
    std::string_view takes;
    bool (*set)(DeviceIdentity &device, std::string_view value);
};

constexpr std::string_view kTakesText = "at most 32 printable ASCII characters";
constexpr std::string_view kTakesVersion = "four hexadecimal bytes with dots between them, as in 1.0.2.10";

constexpr std::array<FieldRow, 6> kFields{{
    {"model", kTakesText, [](DeviceIdentity &device, std::string_view text) { return setText(device.model, text); }},
    {"serial", kTakesText, [](DeviceIdentity &device, std::string_view text) { return setText(device.serial, text); }},
    {"date", "YYYYMMDD", [](DeviceIdentity &device, std::string_view text) { return setDate(device.date, text); }},
    {"version", kTakesVersion,
     [](DeviceIdentity &device, std::string_view text) { return setVersion(device.version, text); }},
    {"version2", kTakesVersion,
     [](DeviceIdentity &device, std::string_view text) { return setVersion(device.version2, text); }},
    {"mac", "six hexadecimal bytes",
     [](DeviceIdentity &device, std::string_view text) { return setBytes(device.mac, text); }},
}};

void appendText(Bytes &record, std::string_view text)
{
    record.insert(record.end(), text.begin(), text.end());
    record.insert(record.end(), kDeviceTextBytes - text.size(), ' ');
}

} // namespace

std::optional<std::string> setDeviceField(DeviceIdentity &device, std::string_view field, std::string_view value)
{
    for (const FieldRow &row : kFields) {
        if (row.name != field)
            continue;
        if (row.set(device, value))
            return std::nullopt;
        return "device " + std::string(field) + " takes " + std::string(row.takes);
    }
    return "a device field is model, serial, date, version, version2 or mac";
}

Bytes deviceRecord(const DeviceIdentity &device)
{
    Bytes record;
    record.reserve(kDeviceRecordBytes);
    appendText(record, device.model);
    appendText(record, device.serial);
    record.insert(record.end(), device.date.rbegin(), device.date.rend());
    record.insert(record.end(), device.version.rbegin(), device.version.rend());
    record.insert(record.end(), 4, 0);
    record.insert(record.end(), device.version2.rbegin(), device.version2.rend());
    record.insert(record.end(), device.mac.begin(), device.mac.end());
    return record;
}

} // namespace qvsim
