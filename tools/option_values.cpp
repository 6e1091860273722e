#include "option_values.h"

#include <CLI/CLI.hpp>

#include <array>

namespace qvtool {

namespace {

constexpr size_t nLeastApdu = 4;
constexpr size_t nMostApdu = 505; // what a frame of the reader holds
constexpr int nContactless = 255;

struct FamilyRow {
    const char *pszName;
    uint32_t nTermType;
};

constexpr std::array<FamilyRow, 4> familyTable{{{"star", 1}, {"gw", 2}, {"gg", 3}, {"wyse", 5}}};
constexpr int nMostTermType = 99;
constexpr int nMostAuxPort = 4;

std::optional<int> number(std::string_view sText, int nMost)
{
    int nValue = 0;
    if (sText.empty() || sText.size() > 6)
        return std::nullopt;
    for (char c : sText) {
        if (c < '0' || c > '9')
            return std::nullopt;
        nValue = nValue * 10 + (c - '0');
    }
    if (nValue > nMost)
        return std::nullopt;
    return nValue;
}

} // namespace

int slotCode(const std::string &sText)
{
    constexpr std::string_view sPsam = "psam";
    if (sText == "contactless")
        return nContactless;
    if (sText.starts_with(sPsam)) {
        if (std::optional<int> nPsam = number(std::string_view(sText).substr(sPsam.size()), 15))
            return 16 + *nPsam;
    } else if (std::optional<int> nSlot = number(sText, nContactless); nSlot && (*nSlot < 32 || *nSlot == 255)) {
        return *nSlot;
    }
    throw CLI::ValidationError("--slot", sText + " is no slot: write 0 to 15, psam0 to psam15 or contactless");
}

Bytes apduBytes(const std::string &sText)
{
    std::optional<Bytes> bytes = parseHex(sText);
    if (!bytes)
        throw CLI::ValidationError("apdu", "\"" + sText + "\" is not hexadecimal, or half a byte is missing");
    if (bytes->size() < nLeastApdu)
        throw CLI::ValidationError("apdu", "\"" + sText +
                                               "\" is too short: a command has at least 4 bytes; with blanks "
                                               "between the bytes, put it in quotes");
    if (bytes->size() > nMostApdu)
        throw CLI::ValidationError("apdu", "a command has at most " + std::to_string(nMostApdu) + " bytes, this one " +
                                               std::to_string(bytes->size()));
    return *bytes;
}

int smallNumber(const char *pszName, const std::string &sText, int nMost)
{
    std::optional<int> nValue = number(sText, nMost);
    if (sText.starts_with("0x") && sText.size() > 2 && sText.size() <= 6 &&
        sText.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos)
        nValue = std::stoi(sText, nullptr, 16);
    if (!nValue || *nValue > nMost)
        throw CLI::ValidationError(pszName, "\"" + sText + "\" is no number from 0 to " + std::to_string(nMost));
    return *nValue;
}

AuxPort auxPort(const std::string &sText)
{
    const size_t nColon = sText.find(':');
    const std::string sType = sText.substr(0, nColon);
    std::optional<int> nType = number(sType, nMostTermType);
    for (const FamilyRow &row : familyTable)
        if (sType == row.pszName)
            nType = static_cast<int>(row.nTermType);
    const std::optional<int> nPort =
        nColon == sText.npos ? std::nullopt : number(sText.substr(nColon + 1), nMostAuxPort);
    if (!nType || !nPort || *nPort == 0)
        throw CLI::ValidationError("--aux", "\"" + sText +
                                                "\" is no aux port: write star, gw, gg, wyse or a number, a "
                                                "colon and the port, 1 to 4");
    return {static_cast<uint32_t>(*nType), static_cast<uint32_t>(*nPort)};
}

UsbId usbIdentity(const std::string &sText)
{
    constexpr size_t nDigits = 4;
    const size_t nColon = sText.find(':');
    const auto half = [&](std::string_view s) -> std::optional<uint16_t> {
        if (s.empty() || s.size() > nDigits || s.find_first_not_of("0123456789abcdefABCDEF") != s.npos)
            return std::nullopt;
        return static_cast<uint16_t>(std::stoi(std::string(s), nullptr, 16));
    };
    const auto nVendor = half(std::string_view(sText).substr(0, nColon));
    const auto nProduct = nColon == sText.npos ? std::nullopt : half(std::string_view(sText).substr(nColon + 1));
    if (!nVendor || !nProduct)
        throw CLI::ValidationError("--usb-id", "\"" + sText +
                                                   "\" is no identity: write VENDOR:PRODUCT, each up to four "
                                                   "hexadecimal digits");
    return {*nVendor, *nProduct};
}

} // namespace qvtool
