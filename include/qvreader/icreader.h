/*
 * icreader.h - the IC side of the reader: opening it, card power, APDU exchange with follow-up, card detection, LEDs,
 * buzzer and device record.
 *
 * A host opens the reader (Dev_Rdz_Ic_OpenPort), powers a card, exchanges APDUs and closes; or it uses a call that
 * opens and closes by itself (Dev_Rdz_Ic_SendCommand).
 *
 * What a host must know:
 *  - Read time-outs shrink: each read takes its duration off the time-out that the next one gets, and a time-out below
 *    1 waits 1000 seconds (USB 2000). The "...Only" calls run on what is left; renew it with COMM_Rdz_ChageReadTimeOut
 *    before each of them.
 *  - Every call that exchanges a frame makes ChangeEndCondition the end condition, sets gEndChar (0x03, the peripherals
 *    0x04) and replaces the reader's status word; the functions below do not say it again. The end byte counts up to
 *    the next frame or open: Dev_Rdz_Ic_SendCommandOnlyDirect behind a buzzer call reads up to 0x04.
 *  - Over USB a reader that does not answer gives result 0 with length 0.
 *  - A negative result between -65535 and -256 is minus the reader's status word (-4099: 0x1003). Status words below
 *    0x100 cannot be told from the library's own codes.
 *  - After a time-out a late reply may still come; call ClearReceiveBuffer, or close and open, before the next command.
 */
#ifndef QVREADER_ICREADER_H
#define QVREADER_ICREADER_H

#include "qvreader/protocol.h"

QV_BEGIN_DECLS

/* ---- records ------------------------------------------------------------------------------------------------- */

/* Open record of the IC side. */
typedef struct {
    TransPortParam stParam;
    char szPcscReader[256];
} IcOpenRecord;

/* State of the open reader. */
typedef struct {
    int32_t nReaderMode; /* 0: driven by this library; any other: COMM_Icc_ calls that talk to the reader give -50 */
    int32_t nTimeOut;    /* read time-out of the open record, seconds */
    int32_t nCardSlot;   /* current slot */
} IcCardReader;

/* An APDU field by field. Natural C alignment: responseLen stands at offset 2056. */
typedef struct {
    uint8_t cla, ins, p1, p2;
    uint8_t lc; /* bytes in data; 0: no data field */
    uint8_t data[1024];
    uint8_t lePresent; /* 1: le is sent */
    uint8_t le;
    uint8_t response[1024]; /* filled: data, SW1, SW2 */
    uint32_t responseLen;   /* filled: bytes in response */
} IccCardCmd;

/* Register of the last card status word. */
typedef struct {
    uint32_t nErrorCode; /* SW1 SW2 of the last exchange; 0xAAAA when it failed; 0 at load */
} StCardCmdParam;

/* All of these are 0 (empty) at load. */
extern QV_API IcOpenRecord g_sParam;         /* as filled by the last Dev_Rdz_Ic_OpenPort */
extern QV_API IcCardReader stCardReader;     /* set by a successful COMM_Icc_OpenCardReader */
extern QV_API IcHidId g_Hid[10];             /* USB identities added by the host */
extern QV_API int32_t g_nHidNum;             /* valid entries of g_Hid */
extern QV_API int32_t g_bIcSetHidFlag;       /* 1: the host's identities are tried after the built-in ones */
extern QV_API int32_t g_bUseSetHid;          /* 1: only the one identity added with index -1 is tried */
extern QV_API int32_t g_bIcBaundFlag;        /* 1: serial links open at 9600 and are then raised */
extern QV_API int32_t g_useBpBox;            /* 1: a switch-box port was selected at open */
extern QV_API char g_szPcscReader[256];      /* PC/SC reader name set by the host */
extern QV_API uint32_t g_nPowerOnTimeout;    /* power-up time-out, seconds */
extern QV_API uint32_t g_nPowerOnModule;     /* power-up strategy: 0 detect first, 1 contact then contactless */
extern QV_API StCardCmdParam stCardCmdParam; /* last card status word */

/* ---- open and close ------------------------------------------------------------------------------------------ */

/* Opens the reader.
 * portName: "/dev..." or "COM..." or "AUX...": a tty path of at most 256 characters; "HID...", "USB..." or "1001...":
 *   USB; "PCSC...": refused. Case counts. Over USB the identities are tried in turn, what is open being closed between
 *   two tries; a USB device that is open already stays, whatever its ids.
 * boxPort: "A", "B", "C" or "K" selects a port of an external switch box on a serial link; null or other: none.
 * termType: terminal family; 2 changes the switch-box sequence. reserved: ignored. baud: bits per second of a serial
 *   link; while g_bIcBaundFlag is 1 it opens at 9600 and is then raised to baud, unless a switch-box port was selected.
 * 0; -2 null, empty or unknown name; -50 PC/SC; -51 the port could not be opened, or the link not raised (the port may
 * then be open: close it).
 * Changes g_sParam, stCardReader, stRDZ73xx.nType, g_useBpBox, g_bIsLinuxHidClearZero, g_nHidNum (1 while g_bUseSetHid
 * is 1), and what COMM_Dev_OpenTransPort and the transport's own open and close change. */
QV_API int32_t Dev_Rdz_Ic_OpenPort(const char *portName, const uint8_t *boxPort, uint32_t termType, uint32_t reserved,
                                   int32_t baud) QV_NOEXCEPT;

/* Closes the reader; on a serial link with g_bIcBaundFlag 1 and g_useBpBox 1 the switch box is released first. 0, also
 * when the release could not be sent; -50 other reader mode; -1 no transport is chosen (stBackUpParam.nType). Changes
 * what COMM_Dev_CloseTransPort changes. */
QV_API int32_t Dev_Rdz_Ic_ClosePort(void) QV_NOEXCEPT;

/* Adds a USB identity (the low 32 bits of its ids are tried). nIndex: 0 to 9 stores it at that place, tried after the
 * built-in ones, and makes the places 0 to nIndex count; -1: only this identity is tried; it takes place 0 and puts the
 * others out of use. 0; -2 other index (which still ends the only-identity mode). Changes g_Hid, g_nHidNum,
 * g_bIcSetHidFlag, g_bUseSetHid. */
QV_API int32_t Dev_Rdz_Ic_AddHid(int32_t nIndex, uint64_t nPID, uint64_t nVID) QV_NOEXCEPT;

/* Sets g_bIcBaundFlag. Always 0. */
QV_API int32_t Dev_Rdz_Ic_RaiseBaundFlag(uint32_t nFlag) QV_NOEXCEPT;

/* Sets g_szPcscReader; at most 255 characters are kept, null clears it. Always 0. */
QV_API int32_t Dev_Rdz_Ic_SetPcscReader(const char *name) QV_NOEXCEPT;

/* PC/SC readers are not listed: always -2, nothing is written. */
QV_API int32_t Dev_Rdz_IcGetPcScList(char *out) QV_NOEXCEPT;

/* Does nothing. Always 0. */
QV_API int32_t Dev_Rdz_IcMulCancel(void) QV_NOEXCEPT;

/* Hands its arguments to the kernel's Instr_IC_M1PowerOn and returns its result; -1 when no kernel is loaded. */
QV_API int32_t Dev_Rdz_M1PowerOn(uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6,
                                 uint64_t a7, uint64_t a8) QV_NOEXCEPT;

/* Fills an open record with the defaults (serial, 9600, 3 seconds, IcEndCondition). 0; -2: null. */
QV_API int32_t COMM_Icc_InitCardReaderParam(TransPortParam *param) QV_NOEXCEPT;

/* Opens the reader that the record describes; a null end condition in it becomes IcEndCondition. 0; -50 the record's
 * reader mode is not 0; -2 null; the dispatcher's codes. Changes stCardReader and stRDZ73xx.nType on success, and what
 * COMM_Dev_OpenTransPort and the transport's own open change. */
QV_API int32_t COMM_Icc_OpenCardReader(TransPortParam *param) QV_NOEXCEPT;

/* Closes the reader as it is. 0; -50 other reader mode; -1 no transport is chosen. Changes what
 * COMM_Dev_CloseTransPort changes. */
QV_API int32_t COMM_Icc_CloseCardReader(void) QV_NOEXCEPT;

/* Sends one command in a card frame (data: in, len bytes, at most 508): 0, -1. Reads one reply's body (out: out, at
 * least nMax bytes): bytes, 0, or a negative code; changes gEndChar, the end condition, the status word and the read
 * budget as COMM_Rdz_ReadDataFromReader does. Sends raw bytes (at most 1024): 0, -1. All three: -50 in another reader
 * mode. */
QV_API int32_t COMM_Icc_WriteDataToCardReader(const uint8_t *data, uint32_t len) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_ReadDataFromCardReader(uint8_t *out, uint32_t nMax) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_CardReaderCmd(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Raises a serial link to param->nBaud: switches the reader, reopens the port at the new rate, switches once more.
 * nFlag is not sent. 0; 1 the reader could not be written to; -1 the port could not be reopened, also because of the
 * reader mode in the record (the reader may be switched already, the port is closed), or null; -50 other reader mode.
 * Changes what COMM_Icc_CloseCardReader and COMM_Icc_OpenCardReader change. */
QV_API int32_t COMM_Icc_CardReaderSynBps(TransPortParam *param, uint32_t nFlag) QV_NOEXCEPT;

/* Sends the escape sequence for param->nBaud, nothing else. nFlag is not sent. 0, sent or not; -2 null; -50 other
 * reader mode. */
QV_API int32_t COMM_Icc_CardReaderByBaund(TransPortParam *param, uint32_t nFlag) QV_NOEXCEPT;

/* Sends nothing. Always 0. */
QV_API int32_t COMM_Icc_CardReaderResetSynBps(uint32_t nFlag) QV_NOEXCEPT;

/* End condition: 0 when the last byte is 0x03, else -1 (also for no bytes). */
QV_API int32_t IcEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* ---- slot ---------------------------------------------------------------------------------------------------- */

/* Set / set / read the current slot (0 to 15 contact, 16 to 31 PSAM, 255 contactless); it is not checked. For a slot
 * that there is not, power-up and power-down send a frame without data, an APDU goes out behind a head of two bytes,
 * and the reader answers as it likes; only the status of a slot is refused. */
QV_API int32_t COMM_Icc_CardReaderSetCardSlot(int32_t nSlot) QV_NOEXCEPT;
QV_API int32_t Dev_Rdz_Ic_SetSlot(int32_t nSlot) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_CardReaderGetCardSlot(void) QV_NOEXCEPT;

/* Makes slot 0 current. Always 0. */
QV_API int32_t COMM_Icc_CardReaderReSetCardSlot(void) QV_NOEXCEPT;

/* ---- card power ---------------------------------------------------------------------------------------------- */

/* Sets / reads g_nPowerOnModule. */
QV_API int32_t Dev_Rdz_Ic_SetPowerOnModule(uint32_t nModule) QV_NOEXCEPT;
QV_API uint32_t Dev_Rdz_Ic_GetPowerOnModule(void) QV_NOEXCEPT;

/* Sets g_nPowerOnTimeout, seconds: both the time that the reader waits for a card and the read time-out of the
 * power-up (0: the reader does not wait, and a read waits up to 1000 seconds, USB 2000). Always 0. */
QV_API int32_t Dev_Rdz_SetPowerOnTime(uint32_t nSeconds) QV_NOEXCEPT;

/* Powers up the card in a slot. atr: out, at least 512 bytes, may be null. atrLen: out, bytes, may be null; 0 when
 * nothing is copied. T: milliseconds that the reader waits for a card, cut at 65,535.
 * 0; minus the status word when the reader answered without an ATR (0 if that is 0); -50 other reader mode (the status
 * word stays); the exchange's codes. The read time-out is the caller's affair. */
QV_API int32_t COMM_Icc_CardReaderPowerOn(int32_t nSlot, uint8_t *atr, uint32_t *atrLen, uint32_t T) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_RDZPowerOn(int32_t nSlot, uint8_t *atr, uint32_t *atrLen, uint32_t T) QV_NOEXCEPT;

/* Powers down the card in a slot. 0, whatever the reader's status; -50 other reader mode; the exchange's codes. */
QV_API int32_t COMM_Icc_CardReaderPowerOff(int32_t nSlot) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_RDZPowerOff(int32_t nSlot) QV_NOEXCEPT;

/* Powers up by card type: "1" or 0 contact slot 0; "2" or 255 contactless; 1 to 3 that contact slot; 16 to 31 that PSAM
 * slot; " " or "!" contact (slot 0 / slot 1), then contactless; any other: the card that the reader detects.
 * atr: out, at least 512 bytes. atrLen: out, bytes. As COMM_Icc_CardReaderPowerOn; for the last two kinds also as
 * Dev_Rdz_PowerOnLoop (-1 while the power-up time-out is not 0) and Dev_Rdz_PowerOnInstr (2 magnetic card, -1 unknown).
 * Changes the current slot, the read time-out and, for the last two kinds, g_nPowerOnModule. */
QV_API int32_t Dev_Rdz_IccPowerOn(uint8_t cCardType, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;

/* Powers up one slot with the power-up time-out; the current slot stays. atr: out, at least 512 bytes. atrLen: out,
 * bytes. As COMM_Icc_CardReaderPowerOn. Changes the read time-out. */
QV_API int32_t Dev_Rdz_IccPowerOnSlot(int32_t nSlot, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;

/* Asks the reader which card is present and powers that up. atr: out, at least 512 bytes. atrLen: out, bytes.
 * As COMM_Icc_CardReaderPowerOn; a detection that finds something else is handed on: 2 magnetic card, -1 unknown card,
 * the exchange's codes. Changes the current slot and the read time-out. */
QV_API int32_t Dev_Rdz_PowerOnInstr(uint8_t cCardType, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;

/* Powers up contact slot 0 (slot 1 for "!") and, if that fails, the contactless card; both share one read time-out of
 * 0, which waits 1000 seconds (USB 2000). As COMM_Icc_CardReaderPowerOn for the card tried last; -1 with a power-up
 * time-out other than 0: nothing is sent or changed, *atrLen is 0. Changes the current slot and the read time-out. */
QV_API int32_t Dev_Rdz_PowerOnLoop(uint8_t cCardType, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;

/* Powers down the card in the current slot / in nSlot. As COMM_Icc_CardReaderPowerOff. */
QV_API int32_t Dev_Rdz_Ic_PowerOff(void) QV_NOEXCEPT;
QV_API int32_t Dev_Rdz_Ic_PowerOffSlot(int32_t nSlot) QV_NOEXCEPT;

/* ---- APDU exchange ------------------------------------------------------------------------------------------- */

/* One APDU, no follow-up. capdu: in, nLen bytes, at most 505. rapdu: out, at least 1024 bytes. rapduLen: out, bytes.
 * 0; -54 when it is too long or could not be sent; -55 for a reply of 1024 bytes or more; -50 other reader mode; -2
 * null; the exchange's codes. COMM_Icc_CardReaderApdu also: minus the status word for an empty reply. The reader's
 * status word becomes 0 also where nothing is sent. */
QV_API int32_t COMM_Icc_CardReaderApdu(int32_t nSlot, const uint8_t *capdu, uint32_t nLen, uint8_t *rapdu,
                                       uint32_t *rapduLen) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_RDZAPDU(int32_t nSlot, const uint8_t *capdu, uint32_t nLen, uint8_t *rapdu,
                                uint32_t *rapduLen) QV_NOEXCEPT;

/* One APDU (ISO 7816-4) with the card in the current slot, with one follow-up: after 61xx and 62xx GET RESPONSE, after
 * 6Cxx the command's head again with the right Le. cmd: in, len bytes. response: out, at least 1024 bytes.
 * responseLen: out, bytes. The follow-up reads on the time that the command has left. 0, whatever the card's status
 * word; -2 null; the reader's codes.
 * Changes the last card status word: SW1 SW2; 0xAAAA when the first exchange failed or fewer than 2 bytes came; after a
 * failed follow-up and on -2 it stays, as the outputs do. */
QV_API int32_t ICC_CardCmdVisitCOS(const uint8_t *cmd, uint32_t len, uint8_t *response,
                                   uint32_t *responseLen) QV_NOEXCEPT;

/* The same for an APDU described field by field; the response goes into the record. -2: null. */
QV_API int32_t ICC_CardCmd(IccCardCmd *record) QV_NOEXCEPT;

/* Reads / sets the last card status word. */
QV_API uint32_t ICC_CardCmdGetErrCode(void) QV_NOEXCEPT;
QV_API int32_t ICC_CardCmdSetErrCode(uint32_t code) QV_NOEXCEPT;

/* Title of a hex dump: a word for the current slot, then label (may be null), in a buffer of the library (64 bytes,
 * longer titles are cut) that the next call overwrites. UTF-8. */
QV_API char *ICC_CardCmdGetApduCardType(const char *label) QV_NOEXCEPT;

/* Opens the reader, sends one APDU with follow-up and closes it again. cardType: "1" contact slot 0, "2" contactless,
 * other: the current slot. cmd: in, cmdLen bytes; a 4-byte command gets a fifth byte 00. out: out, at least 1024
 * bytes. outLen: out, bytes; 0 when the exchange failed, untouched on -2 and -51.
 * 0; -2 null argument (boxPort may be null); -51 open failed, the port is closed; minus the status word when the
 * exchange failed (the exchange's own code if that is 0). Changes the last card status word, for "1" and "2" the
 * current slot, and what Dev_Rdz_Ic_OpenPort and Dev_Rdz_Ic_ClosePort change. */
QV_API int32_t Dev_Rdz_Ic_SendCommand(const char *port, uint32_t termType, const uint8_t *boxPort, int32_t baud,
                                      const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                      uint8_t *out) QV_NOEXCEPT;

/* The same on a port that is open, within the time-out that is left. A failure is the status word itself, not negated
 * (the exchange's own code if that is 0); -2 null, nothing changes. Changes the last card status word and, for "1" and
 * "2", the current slot. */
QV_API int32_t Dev_Rdz_Ic_SendCommandOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                          uint8_t *out) QV_NOEXCEPT;

/* Opens the reader, sends raw bytes, reads raw bytes up to 0x03 and closes it again. cmd: in, cmdLen bytes, at most
 * 1024. ioLen: in, 0 to await no reply; out, bytes received (unchanged when none came). out: out, at least 512 bytes
 * whatever *ioLen says. Bytes received; 0 when no reply was awaited; -2 null; -51 open failed; the exchange's codes.
 * Changes the reader's status word (0), and what Dev_Rdz_Ic_OpenPort and Dev_Rdz_Ic_ClosePort change. */
QV_API int32_t Dev_Rdz_Ic_SendCommandDirect(const char *port, const uint8_t *boxPort, int32_t baud, uint32_t cmdLen,
                                            const uint8_t *cmd, uint32_t *ioLen, uint8_t *out) QV_NOEXCEPT;

/* The same on a port that is open, within the time-out that is left and up to the end byte in force. -54 null cmd; -2
 * null ioLen or out. Changes the reader's status word (0). */
QV_API int32_t Dev_Rdz_Ic_SendCommandOnlyDirect(uint32_t cmdLen, const uint8_t *cmd, uint32_t *ioLen,
                                                uint8_t *out) QV_NOEXCEPT;

/* Scans the slots (DealCardSlot, its mode the first character of cardType) and returns what the scan found; the command
 * is sent only if that is 0, which it never is: the other arguments may be null and stay. -2 null cardType. Changes the
 * current slot and may leave the contactless card powered. */
QV_API int32_t Dev_Rdz_Ic_SendCommandeOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                           uint8_t *out) QV_NOEXCEPT;

/* ---- card detection ------------------------------------------------------------------------------------------ */

/* Asks the reader which card is present, in any reader mode. nTimeOut: seconds that the reader waits, 16 bits.
 * 0 contact card or identity card; 1 contactless card; 2 magnetic card; -1 unknown, or a reply without body; the
 * exchange's codes. */
QV_API int32_t ICC_RDZ73xxCHECKCARD(uint32_t nTimeOut) QV_NOEXCEPT;

/* Status word of a slot: 0 or 0x1003 a card is there, 0x1004 a card in another state, other: none. For slot 255 the
 * question is the power-up of the contactless card. -2 invalid slot, nothing is sent; the exchange's codes; in another
 * reader mode -50, COMM_Icc_CardReaderCheckSloct 0. */
QV_API int32_t COMM_Icc_RdzCheckCardIsInSlot(int32_t nSlot) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_CardReaderCheckSloct(int32_t nSlot) QV_NOEXCEPT;

/* Scans the slots. cMode: "1" contact slot 0 only, "2" contactless only, "!" contact slot 1 then contactless, other:
 * contact slot 0 then contactless. slotOut: out, the slot looked at last, may be null.
 * 1 contactless card powered up; 2 contact card; 3 contact card with status 0x1004; 4 no contact card (mode "1");
 * 6, 7 contactless card not usable; -54, -55, -56 transport failures; -99 other; in another reader mode -99 for "2",
 * else 2. Both reads share the time-out that is left. Changes the current slot. */
QV_API int32_t DealCardSlot(uint8_t cMode, int32_t *slotOut) QV_NOEXCEPT;

/* Status word of the last reply (COMM_Rdz_GetRecStatus); 0 in another reader mode. */
QV_API int32_t COMM_Icc_CardReaderGetRecStatus(void) QV_NOEXCEPT;

/* Waits until the reader has found a card of any kind. nTimeOut: seconds that the host waits; the reader itself gives
 * up 2 seconds earlier. track2, track3: out, at least 512 bytes each, may be null; the texts of a magnetic card, each
 * with a NUL, where the reader sends both (track 3 only when it is not empty), else untouched.
 * kind: out, 1 contact, 2 contactless, 3 magnetic, 4 identity card.
 * 0; -4 another kind (which stands in *kind, 0 without a body), or null kind; -50 other reader mode; the exchange's
 * codes. Changes the read time-out. */
QV_API int32_t COMM_Icc_detectMulCard(int32_t nTimeOut, char *track2, char *track3, uint32_t *kind) QV_NOEXCEPT;

/* The same for the card kinds that ucRequest asks for. */
QV_API int32_t COMM_Icc_detectMulComCard(uint8_t ucRequest, int32_t nTimeOut, char *track2, char *track3,
                                         uint32_t *kind) QV_NOEXCEPT;

/* Opens the reader (a second time if that fails), scans the slots and closes it again. cardType: the mode of
 * DealCardSlot in its first character. The time-out is 1 second, once for the whole scan: in every mode but "1" and "2"
 * the antenna's read runs on what the contact slot's has left, and behind a silent reader, where that is below 1, waits
 * 1000 seconds (USB 2000). Ask with "1" and then with "2", or cancel from another thread.
 * As DealCardSlot; -2 null port or cardType; -51 the port could not be opened, for whatever reason. Changes the current
 * slot, the read time-out and what Dev_Rdz_Ic_OpenPort and Dev_Rdz_Ic_ClosePort change. */
QV_API int32_t Dev_Rdz_Ic_DetectCard(uint32_t termType, const char *port, const uint8_t *boxPort, int32_t baud,
                                     const uint8_t *cardType) QV_NOEXCEPT;

/* Opens the reader, asks it for a sign of life and closes it again. 0 it answered; -54 not sent; -55 no answer, or none
 * that is a frame; the codes of Dev_Rdz_Ic_OpenPort. Changes what opening and closing change. */
QV_API int32_t Dev_Rdz_Ic_ChkDevPresent(const char *port, const uint8_t *boxPort, int32_t baud) QV_NOEXCEPT;

/* ---- reader peripherals: on an open port, within the time-out that is left ------------------------------------- */

/* LEDs; what the bytes mean is the reader firmware's affair. 0; 1 (not negative) when the exchange failed; -50 other
 * reader mode. */
QV_API int32_t COMM_Icc_SetLEDStatus(uint8_t ucState) QV_NOEXCEPT;
QV_API int32_t COMM_Icc_SetLEDStatusEx(uint8_t a, uint8_t b) QV_NOEXCEPT;

/* Buzzer; what the numbers mean is the reader firmware's affair. d: 16 bits. 0; -1 no reply byte; -50 other reader
 * mode. */
QV_API int32_t COMM_Icc_SetBeepStatus(int32_t d, uint8_t n) QV_NOEXCEPT;

/* Device record. out: out, at least 1024 bytes; its length is not told, so clear it first. 0; -1 no reply byte, or
 * null; -50 other reader mode. */
QV_API int32_t COMM_Icc_GetDeviceInfo(uint8_t *out) QV_NOEXCEPT;

/* Resets the reader's card module, in any reader mode; nothing is read, and a read that is running is cancelled
 * (COMM_Rdz_Cancel). 0, also when there was none; -1 not sent, nothing is cancelled. */
QV_API int32_t COMM_IC_MulModuleReset(void) QV_NOEXCEPT;

QV_END_DECLS

#endif
