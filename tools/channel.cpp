// The library opens an aux port only through an open record, and wraps and closes as that port's terminal wants it only
// where nAuxMode says so. A port name carries neither.
#include "channel.h"

#include "texts.h"
#include "usb_devices.h"

#include <qvreader/icreader.h>

#include <algorithm>
#include <array>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace qvtool {

namespace {

constexpr uint32_t nSerialTermType = 1;
constexpr std::array<uint8_t, 2> signOfLife{0x31, 0x11};
constexpr uint8_t ucCardFrameHead = 0x02;
constexpr uint8_t ucCardFrameEnd = 0x03;
constexpr size_t nReplyRoom = 256;

std::array<uint8_t, 2> boxText(const Options &options)
{
    return {static_cast<uint8_t>(options.cBox), 0};
}

// The name that the library gets.
std::string portName(const Options &options, const Port &port)
{
    return options.channel() == Channel::usb ? options.sPort : port.devicePath();
}

void prepare(const Options &options, const Port &port)
{
    // The library releases a switch box at close only while this flag is on; the line stays at 9600 with a box.
    Dev_Rdz_Ic_RaiseBaundFlag(options.bRaise || options.cBox != 0 ? 1 : 0);
    if (const std::optional<UsbId> only = options.usbId ? options.usbId : port.onlyUsbId())
        Dev_Rdz_Ic_AddHid(-1, only->nProduct, only->nVendor);
}

int32_t openAux(const AuxPort &aux, int nBaud)
{
    TransPortParam param{};
    COMM_Icc_InitCardReaderParam(&param);
    param.nTermType = aux.nTermType;
    param.nAuxPort = static_cast<int32_t>(aux.nPort);
    param.nBaud = static_cast<uint32_t>(nBaud);
    param.bAuxPrefix = aux.bPrefix ? 1 : 0;
    const int32_t nResult = COMM_Icc_OpenCardReader(&param);
    if (nResult != 0)
        return nResult;
    BackUpParam state = stBackUpParam;
    state.nAuxMode = 1;
    SetBackUpParam(&state);
    return 0;
}

int32_t askAux(const AuxPort &aux, int nBaud)
{
    int32_t nResult = openAux(aux, nBaud);
    if (nResult != 0)
        return nResult;
    std::array<uint8_t, nReplyRoom> reply{};
    nResult = COMM_Rdz_SendAndReciveData(1, ucCardFrameHead, ucCardFrameEnd, signOfLife.data(), signOfLife.size(),
                                         reply.data(), reply.size());
    COMM_Icc_CloseCardReader();
    return nResult == RET_PUB_SEND_FAIL ? nResult : nResult < 0 ? static_cast<int32_t>(RET_PUB_READ_FAIL) : 0;
}

std::string closeSequence(const AuxPort &aux)
{
    constexpr size_t nRoom = 64;
    std::array<char, nRoom> szText{};
    switch (aux.nTermType) {
    case 2: GW_GetCloseAuxCmd(szText.data()); break;
    case 3: GG_GetCloseAuxCmd(szText.data()); break;
    case 5: WYSE_GetCloseAuxCmd(szText.data()); break;
    default: Star_GetClosAuxCmd(szText.data()); break;
    }
    return std::string(szText.data()) + (aux.bPrefix ? "\x1B[2l" : "");
}

UsbSide usbSide(const Options &options)
{
    return options.command == Command::stripe ? UsbSide::stripe : UsbSide::ic;
}

// Of devices of one identity the library opens whichever the USB library lists first: a busy one keeps it off them all,
// since an open begins with a reset; an unusable one may not be the one.
UsbTrouble claimIdentity(std::span<const UsbDevice> devices, Port &port)
{
    std::vector<std::string> nodes;
    std::optional<UsbTrouble> first;
    bool bUsable = false;
    for (const UsbDevice &device : devices) {
        UsbTrouble trouble = usbTrouble(device, false);
        if (trouble.bBusy)
            return trouble;
        nodes.push_back(device.sNode);
        if (trouble.sText.empty())
            bUsable = true;
        else if (!first)
            first = std::move(trouble);
    }
    if (!bUsable && first)
        return *first;
    if (std::optional<std::string> sReason = port.claimUsb(nodes))
        return {*sReason, true};
    return {};
}

// The library tries the identities in turn and so passes an unusable device over; a busy one must not be tried.
std::optional<std::string> claimUsb(const Options &options, Port &port)
{
    const std::vector<UsbDevice> devices = usbReaders(options.usbId, usbSide(options));
    std::optional<UsbId> usable;
    std::string sFirst;
    bool bBusy = false;
    for (auto first = devices.begin(); first != devices.end();) {
        const auto last = std::find_if(first, devices.end(), [&](const UsbDevice &d) { return !(d.id == first->id); });
        const UsbTrouble trouble = claimIdentity({first, last}, port);
        if (trouble.sText.empty() && !usable)
            usable = first->id;
        if (sFirst.empty())
            sFirst = trouble.sText;
        bBusy |= trouble.bBusy;
        first = last;
    }
    if (!usable)
        return sFirst.empty() ? noReaderText(options.usbId, usbSide(options)) : sFirst;
    if (bBusy)
        port.setOnlyUsbId(*usable);
    return std::nullopt;
}

// What stands in the way of the first device that has something in its way.
std::string usbFailure(const Options &options)
{
    const std::vector<UsbDevice> devices = usbReaders(options.usbId, usbSide(options));
    for (const UsbDevice &device : devices)
        if (std::string sText = usbTrouble(device, true).sText; !sText.empty())
            return sText;
    return devices.empty() ? noReaderText(options.usbId, usbSide(options)) : std::string();
}

int32_t openReader(const Options &options, Port &port)
{
    const std::array<uint8_t, 2> szBox = boxText(options);
    const int32_t nResult =
        Dev_Rdz_Ic_OpenPort(portName(options, port).c_str(), szBox.data(), nSerialTermType, 0, options.nBaud);
    if (nResult == 0 && options.channel() == Channel::usb)
        port.settleUsb();
    return nResult;
}

} // namespace

std::optional<std::string> claimChannel(const Options &options, Port &port)
{
    switch (options.channel()) {
    case Channel::serial: return port.claim(options.ttyPath());
    case Channel::usb: return claimUsb(options, port);
    default: break;
    }
    const char *pszTerminal = ttyname(STDOUT_FILENO);
    if (pszTerminal == nullptr)
        return "standard output is no terminal: with --aux it is the line to the reader; for the results there is "
               "--output";
    return port.claim(pszTerminal);
}

int32_t openChannel(const Options &options, Port &port)
{
    prepare(options, port);
    return options.aux ? openAux(*options.aux, options.nBaud) : openReader(options, port);
}

std::string openTrouble(const Options &options)
{
    return options.channel() == Channel::usb ? usbFailure(options) : std::string();
}

std::string openFailure(const Options &options, int32_t nResult)
{
    const std::string sTrouble = openTrouble(options);
    return options.sPort + ": " + (sTrouble.empty() ? resultText(nResult) : sTrouble);
}

void closeChannel(const Options &options)
{
    if (options.aux)
        COMM_Icc_CloseCardReader();
    else
        Dev_Rdz_Ic_ClosePort();
}

int32_t askForLife(const Options &options, Port &port, int nBaud)
{
    prepare(options, port);
    if (options.aux)
        return askAux(*options.aux, nBaud);
    // A device on USB that is open is asked as it is, and then it is known which one it was.
    if (options.channel() == Channel::usb)
        if (const int32_t nResult = openReader(options, port); nResult != 0)
            return nResult;
    const std::array<uint8_t, 2> szBox = boxText(options);
    return Dev_Rdz_Ic_ChkDevPresent(portName(options, port).c_str(), szBox.data(), nBaud);
}

void abandonChannel(const Options &options, const Port &port)
{
    if (options.aux)
        port.putLast(closeSequence(*options.aux));
    port.restoreSettings();
}

std::string silenceHint(const Options &options)
{
    if (options.channel() == Channel::usb)
        return "; is it a reader, and is it switched on?";
    std::string sText = "; is the reader switched on, and does it run " + speedText(options, options.nBaud) + "?";
    if (options.aux)
        sText += " is the terminal of this family, the reader at this port of it?";
    return sText;
}

std::string speedText(const Options &options, int nBaud)
{
    return options.channel() == Channel::usb ? "over USB" : "at " + std::to_string(nBaud) + " bit/s";
}

bool sharesTerminal(const Options &options)
{
    struct stat out {};
    struct stat err {};
    return options.aux && fstat(STDOUT_FILENO, &out) == 0 && fstat(STDERR_FILENO, &err) == 0 && S_ISCHR(err.st_mode) &&
           out.st_rdev == err.st_rdev;
}

} // namespace qvtool
