// head | data                     | command
//   02 | 31 11                    | sign of life
//      | 32 21 slot               | card status
//      | 32 22 T T slot           | power on; T T: milliseconds
//      | 32 23 slot               | power off
//      | 32 24 T T                | power on, contactless
//      | 32 25 00 00              | power off, contactless
//      | 32 26 slot C-APDU        | exchange with the card
//      | 32 30 S S                | which card is there; S S: seconds
//      | 32 32 S S kind           | the same for one kind
//   01 | 11 01                    | device record
//      | 11 11 X, 11 14 A B       | LEDs, pair of LED bytes
//      | 80 15 D D N              | buzzer
#include "command_words.h"

#include "card_command_names.h"
#include "device_record.h"
#include "texts.h"

#include <array>

namespace qvtool {

namespace {

uint32_t bigEndian(uint8_t ucHigh, uint8_t ucLow)
{
    return static_cast<uint32_t>(ucHigh) << 8 | ucLow;
}

std::string waitText(BytesView data, const char *pszUnit)
{
    const uint32_t nWait = bigEndian(data[2], data[3]);
    return nWait == 0 ? ", does not wait" : ", waits " + std::to_string(nWait) + " " + pszUnit;
}

std::string statusCommand(BytesView data)
{
    return "card status of " + slotText(data[2]);
}

std::string powerOn(BytesView data)
{
    return "power on " + slotText(data[4]) + waitText(data, "ms");
}

std::string powerOff(BytesView data)
{
    return "power off " + slotText(data[2]);
}

std::string powerOnContactless(BytesView data)
{
    return "power on " + slotText(255) + waitText(data, "ms");
}

std::string powerOffContactless(BytesView)
{
    return "power off " + slotText(255);
}

std::string apdu(BytesView data)
{
    const BytesView command = data.subspan(3);
    const char *pszName = cardCommandName(command);
    return "APDU to " + slotText(data[2]) + ": " + spacedHex(command) +
           (pszName != nullptr ? std::string(" (") + pszName + ")" : "");
}

std::string signOfLife(BytesView)
{
    return "sign of life";
}

std::string detect(BytesView data)
{
    return "which card is there" + waitText(data, "s");
}

std::string detectKind(BytesView data)
{
    return "which card of kind " + std::to_string(data[4]) + " is there" + waitText(data, "s");
}

std::string deviceRecord(BytesView)
{
    return "device record";
}

std::string leds(BytesView data)
{
    return "LEDs " + spacedHex(data.subspan(2));
}

std::string ledPair(BytesView data)
{
    return "LED pair " + spacedHex(data.subspan(2));
}

std::string buzzer(BytesView data)
{
    return "buzzer, D " + std::to_string(bigEndian(data[2], data[3])) + ", N " + std::to_string(data[4]);
}

// ---- answers

std::string detectedCard(BytesView body)
{
    const char *pszKind = body.empty() ? nullptr : cardKindName(body[0]);
    if (pszKind == nullptr)
        return "unknown kind of card";
    std::string sText = std::string(pszKind) + " card";
    if (body.size() == 1)
        return sText;
    sText += ", text \"";
    for (uint8_t uc : body.subspan(1))
        sText += uc >= 0x20 && uc < 0x7F ? static_cast<char>(uc) : '.';
    return sText + "\"";
}

std::string recordContent(BytesView body)
{
    if (body.size() < nDeviceRecordSize)
        return "too short for a device record";
    const DeviceRecord record = decodeDeviceRecord(body);
    return "model " + record.sModel + ", serial number " + record.sSerial + ", produced " + record.sDate +
           ", firmware " + record.sVersion;
}

struct CommandRow {
    uint8_t ucHead;
    uint8_t ucGroup;
    uint8_t ucCode;
    size_t nLeast; // bytes, group and code included
    std::string (*pfnCommand)(BytesView data);
    std::string (*pfnBody)(BytesView body); // null: the bytes say it all
};

constexpr std::array<CommandRow, 13> commandTable{{
    {ucCardHead, 0x31, 0x11, 2, signOfLife, nullptr},
    {ucCardHead, 0x32, 0x21, 3, statusCommand, nullptr},
    {ucCardHead, 0x32, 0x22, 5, powerOn, nullptr},
    {ucCardHead, 0x32, 0x23, 3, powerOff, nullptr},
    {ucCardHead, 0x32, 0x24, 4, powerOnContactless, nullptr},
    {ucCardHead, 0x32, 0x25, 4, powerOffContactless, nullptr},
    {ucCardHead, 0x32, 0x26, 3, apdu, nullptr},
    {ucCardHead, 0x32, 0x30, 4, detect, detectedCard},
    {ucCardHead, 0x32, 0x32, 5, detectKind, detectedCard},
    {ucPeripheralHead, 0x11, 0x01, 2, deviceRecord, recordContent},
    {ucPeripheralHead, 0x11, 0x11, 3, leds, nullptr},
    {ucPeripheralHead, 0x11, 0x14, 4, ledPair, nullptr},
    {ucPeripheralHead, 0x80, 0x15, 5, buzzer, nullptr},
}};

const CommandRow *rowOf(uint8_t ucHead, BytesView data)
{
    for (const CommandRow &row : commandTable)
        if (row.ucHead == ucHead && data.size() >= row.nLeast && data[0] == row.ucGroup && data[1] == row.ucCode)
            return &row;
    return nullptr;
}

} // namespace

std::string commandWords(uint8_t ucHead, BytesView data)
{
    if (const CommandRow *pRow = rowOf(ucHead, data); pRow != nullptr)
        return pRow->pfnCommand(data);
    return data.empty() ? "no data" : "data " + spacedHex(data);
}

std::string bodyWords(uint8_t ucHead, BytesView asked, BytesView body)
{
    const CommandRow *pRow = rowOf(ucHead, asked);
    return pRow != nullptr && pRow->pfnBody != nullptr ? pRow->pfnBody(body) : std::string();
}

} // namespace qvtool
