// The library opens an aux port only through an open record, and wraps and closes as that port's terminal wants it only
// where nAuxMode says so. A port name carries neither.
#include "channel.h"

#include "texts.h"
#include "usb_devices.h"

#include <qvreader/icreader.h>

#include <array>
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

void prepare(const Options &options)
{
    // The library releases a switch box at close only while this flag is on; the line stays at 9600 with a box.
    Dev_Rdz_Ic_RaiseBaundFlag(options.bRaise || options.cBox != 0 ? 1 : 0);
    if (options.usbId)
        Dev_Rdz_Ic_AddHid(-1, options.usbId->nProduct, options.usbId->nVendor);
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

} // namespace

std::optional<std::string> claimChannel(const Options &options, Port &port)
{
    switch (options.channel()) {
    case Channel::serial: return port.claim(options.sPort);
    case Channel::usb:
        if (std::string sReason = usbTrouble(options.usbId, false); !sReason.empty())
            return sReason;
        if (const std::vector<UsbDevice> devices = usbReaders(options.usbId); !devices.empty())
            return port.claimUsb(devices.front().sNode);
        return "the reader on USB has just gone";
    default: break;
    }
    const char *pszTerminal = ttyname(STDOUT_FILENO);
    if (pszTerminal == nullptr)
        return "standard output is no terminal: with --aux it is the line to the reader; for the results there is "
               "--output";
    return port.claim(pszTerminal);
}

int32_t openChannel(const Options &options, const Port &port)
{
    prepare(options);
    if (options.aux)
        return openAux(*options.aux, options.nBaud);
    const std::array<uint8_t, 2> szBox = boxText(options);
    return Dev_Rdz_Ic_OpenPort(portName(options, port).c_str(), szBox.data(), nSerialTermType, 0, options.nBaud);
}

std::string openFailure(const Options &options, int32_t nResult)
{
    const std::string sTrouble = options.channel() == Channel::usb ? usbTrouble(options.usbId, true) : std::string();
    return options.sPort + ": " + (sTrouble.empty() ? resultText(nResult) : sTrouble);
}

void closeChannel(const Options &options)
{
    if (options.aux)
        COMM_Icc_CloseCardReader();
    else
        Dev_Rdz_Ic_ClosePort();
}

int32_t askForLife(const Options &options, const Port &port, int nBaud)
{
    prepare(options);
    if (options.aux)
        return askAux(*options.aux, nBaud);
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
