/*
 * protocol.h - the reader's packets, the exchange of one command, and the command bytes of the IC and the stripe side.
 *
 * Between a head and an end byte every byte travels as two half-byte characters (0x30 + high half, 0x30 + low half),
 * so that neither marker can occur inside a frame:
 *
 *     command  head | length (4 characters) | data | LRC of the data (2 characters) | end
 *     reply    head | length (4 characters) | status word (4) | body | LRC of status word and body (2) | end
 *
 * A command carries at most 508 data bytes, a raw command 1024; a reply at most 1024 characters between its markers.
 */
#ifndef QVREADER_PROTOCOL_H
#define QVREADER_PROTOCOL_H

#include "qvreader/support.h"
#include "qvreader/transport.h"

QV_BEGIN_DECLS

/* State of the reader connection. */
typedef struct {
    uint32_t nType;   /* transport type of the reader opened last, 0 before */
    uint32_t gStatus; /* status word of the last reply, 0 after a reset */
} RDZ73xx;

extern QV_API RDZ73xx stRDZ73xx; /* all 0 at load */
extern QV_API uint8_t gEndChar;  /* end byte that ChangeEndCondition looks for; 0x03 at load */

/* ---- frames -------------------------------------------------------------------------------------------------- */

/* Builds a command frame. data: in, len bytes. out: out, at least 2 * len + 8 bytes; nothing is checked against it.
 * Length of the frame (8 without data); -1 for null out, and for null data with a len above 0. */
QV_API int32_t Str_RDZ_MakePacket(uint8_t cHead, uint8_t cEnd, const uint8_t *data, uint32_t len,
                                  uint8_t *out) QV_NOEXCEPT;

/* Copies the characters between the first head byte and the first end byte behind it. packet: in, len bytes.
 * body: out, at least len bytes. Their count; -1 when a marker is missing or nothing stands between them. */
QV_API int32_t Str_GetPacketBody(uint8_t cHead, uint8_t cEnd, const uint8_t *packet, int32_t len,
                                 uint8_t *body) QV_NOEXCEPT;

/* Takes a reply frame apart; the bytes before its head and after its end are ignored. out: out, at least 508 bytes.
 * outLen: out, bytes of the body. 0, the status word is stored; -4 no valid frame, or null (the status word and the
 * outputs stay). */
QV_API int32_t Str_RDZ_ParsePacket(uint8_t cHead, uint8_t cEnd, const uint8_t *packet, uint32_t nPacketLen,
                                   uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* ---- reader connection --------------------------------------------------------------------------------------- */

/* COMM_Dev_OpenTransPort; on success stRDZ73xx.nType becomes pParam->nType. Its results. */
QV_API int32_t COMM_Rdz_OpenReader(TransPortParam *pParam) QV_NOEXCEPT;

/* COMM_Dev_CloseTransPort. */
QV_API int32_t COMM_Rdz_CloseReader(void) QV_NOEXCEPT;

/* Sends data in a frame, or as they are when both markers are 0 or stRDZ73xx.nType is 2. 0; -1 when not all could be
 * sent, for null data and for more than a frame holds (nothing is sent). No data are a frame of 8 bytes; as they are,
 * -1 (over USB 0, and a report of zeros goes out). */
QV_API int32_t COMM_Rdz_WriteDataToReader(uint8_t cHead, uint8_t cEnd, const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Reads one reply. With cHead other than 0, or cEnd and bParse both other than 0, it is parsed as a frame and its body
 * handed out; otherwise the bytes as they came. out: out, at least nMax bytes; more is cut. nMax 0 reads nothing and
 * changes nothing.
 * Bytes placed in out (0: a reply without body; over USB also no answer, or a cancel); -1 null out (the reply stays on
 * the line, nothing changes); -4 no valid frame; the transport's codes.
 * Changes the status word (0, then the reply's) and, by what the read lasted, stBackUpParam.nTimeOut. With cEnd other
 * than 0, gEndChar becomes cEnd and ChangeEndCondition the end condition of this and all later reads. */
QV_API int32_t COMM_Rdz_ReadDataFromReader(uint32_t bParse, uint8_t cHead, uint8_t cEnd, uint8_t *out,
                                           uint32_t nMax) QV_NOEXCEPT;

/* One command and its reply. send: in, nSendLen bytes. recv null or nMaxReciveBufLen 0: no reply is awaited, 0.
 * As COMM_Rdz_ReadDataFromReader; -54 where COMM_Rdz_WriteDataToReader gives -1. Changes what these two change; the
 * status word becomes 0 also when no reply is awaited and on -54. */
QV_API int32_t COMM_Rdz_SendAndReciveData(uint32_t bParse, uint8_t cHead, uint8_t cEnd, const uint8_t *send,
                                          uint32_t nSendLen, uint8_t *recv, uint32_t nMaxReciveBufLen) QV_NOEXCEPT;

/* Sends len bytes, at most 1024, as they are. 0; -1 when not all could be sent, for null and for more. No bytes: -1
 * (over USB as above). */
QV_API int32_t COMM_Rdz_ReaderCmd(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* COMM_Dev_CancelRead. May be called from any thread. */
QV_API int32_t COMM_Rdz_Cancel(void) QV_NOEXCEPT;

/* Sets the end condition of the next reads. Always 0. */
QV_API int32_t COMM_Rdz_SetEndCondition(EndConditionFn end) QV_NOEXCEPT;

/* Sets the time-out of the next reads, in seconds; 0 waits 1000 seconds (USB 2000). Always 0. */
QV_API int32_t COMM_Rdz_ChageReadTimeOut(uint32_t nTimeOut) QV_NOEXCEPT;

/* Sets g_bIsLinuxHidClearZero. Always 0. */
QV_API int32_t COMM_Rdz_SetHidClearZero(uint32_t nFlag) QV_NOEXCEPT;

/* Status word of the last reply / sets and returns it / sets it to 0 (result 0). */
QV_API uint32_t COMM_Rdz_GetRecStatus(void) QV_NOEXCEPT;
QV_API uint32_t COMM_Rdz_SetRecStatus(uint32_t status) QV_NOEXCEPT;
QV_API int32_t COMM_Rdz_ReSetStatus(void) QV_NOEXCEPT;

/* Sets gEndChar. Always 0. */
QV_API int32_t ChangeEndChar(uint8_t c) QV_NOEXCEPT;

/* End condition: 0 when the last byte is gEndChar, else -1 (also for no bytes). */
QV_API int32_t ChangeEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Selects a port of an external switch box: mode begins with "A", "B", "C" or "K"; anything else, null too, does
 * nothing. 0; -54 when it could not be sent. A selection is an exchange without reply: the status word becomes 0. */
QV_API int32_t Set_RdzBp(const char *mode) QV_NOEXCEPT;

/* ---- IC command bytes ---------------------------------------------------------------------------------------- */

/* Slot codes: 0 to 15 contact slots (0: the user's card), 16 to 31 PSAM slots, 255 the contactless antenna.
 * Every builder writes into out (at least 16 bytes) and the length into *outLen; nothing is sent. Numbers wider than
 * their field are cut to its low bits. */

/* Card power-up; nTimeOut: milliseconds, 16 bits. 0; -1 invalid slot or null (nothing written). */
QV_API int32_t INSTR_Ic_RDZPowerOnCmd(int32_t nSlot, uint32_t nTimeOut, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Card power-down. 0; -1 invalid slot or null (nothing written). */
QV_API int32_t INSTR_Ic_RDZPowerOffCmd(int32_t nSlot, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Head of an APDU exchange, 3 bytes; the C-APDU follows directly behind it. An invalid slot gives the 2 bytes before
 * the slot. 0; -1 for null. */
QV_API int32_t INSTR_Ic_RDZAPDUCmd(int32_t nSlot, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Card status; nValue goes out for the antenna only. 0; -2 invalid slot or null (nothing written). */
QV_API int32_t INSTR_Ic_CheckCardStatus(int32_t nSlot, uint8_t *out, uint32_t *outLen, int32_t nValue) QV_NOEXCEPT;

/* Which card is present; nTimeOut: 16 bits. 0; -1 for null. */
QV_API int32_t INSTR_Ic_MulModuleStatus(int32_t nTimeOut, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* The same for the card kinds that ucKind asks for. 0; -1 for null. */
QV_API int32_t INSTR_Ic_MulModuleComStatus(uint8_t ucKind, uint32_t nTimeOut, uint8_t *out,
                                           uint32_t *outLen) QV_NOEXCEPT;

/* LEDs. 0; -1 for null. */
QV_API int32_t INSTR_Ic_SetLEDStatus(uint8_t ucState, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t INSTR_Ic_SetLEDStatusEx(uint8_t a, uint8_t b, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Buzzer; d: 16 bits. 0; -1 for null. */
QV_API int32_t INSTR_Ic_SetBeepStatus(int32_t d, uint8_t n, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Module reset, sent unframed. 0; -1 for null. */
QV_API int32_t Instr_IcMudle_Reset(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Escape sequence that switches the reader's speed, sent unframed. nFlag: 255 or any other, not part of it.
 * nBaud: 9600, 19200 or 38400; any other is 115200. escape: out, 4 bytes. unused: not written.
 * 4, the length of the sequence; -1 for null. */
QV_API int32_t INSTR_Rdz_BpsDeviceCom(uint32_t nFlag, uint32_t nBaud, uint32_t *escape, uint8_t *unused) QV_NOEXCEPT;

/* ---- stripe command bytes ------------------------------------------------------------------------------------ */

/* Every builder writes into out and the length into *outLen; nothing is sent and no terminator is written. out: at
 * least 16 bytes, for commands that carry a text 1024; a longer command is refused. Texts are NUL-terminated, and a
 * command ends at its first NUL.
 * All: 0; -2 null (unless a track may be missing) or too long (nothing is written). */

/* Escape commands, sent bare. The reader answers a read with 1B 73, the track text, 3F 1C (track 3 alone: one more byte
 * before the text; two tracks: track 2, "A", the other one). A write is not answered; its result is asked with
 * Instr_Msg_GetStatus. */
QV_API int32_t Instr_Msg_GetNtReadTrack1(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtReadTrack2(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtReadTrack3(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtReadTrack12(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtReadTrack23(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtWriteTrack1(const char *track1, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtWriteTrack2(const char *track2, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtWriteTrack3(const char *track3, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Both tracks; track 2 goes out first. The length of the command for tracks 1 and 2 is counted in out up to its first
 * NUL (at most 1024): out must be zero-filled behind the command. */
QV_API int32_t Instr_Msg_GetNtWriteTrack12(const char *track1, const char *track2, uint8_t *out,
                                           uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_GetNtWriteTrack23(const char *track2, const char *track3, uint8_t *out,
                                           uint32_t *outLen) QV_NOEXCEPT;

/* Result of the last operation; the answer ends in "p" (it succeeded) or "q" (it failed). */
QV_API int32_t Instr_Msg_GetStatus(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Reset of the head; its recording formats; a channel, by its letter. None of them is answered. */
QV_API int32_t Instr_Msg_Reset(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_SetModeIso(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_SetModeIBM(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_SetModeIsoDK(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_SetModeIBMDK(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;
QV_API int32_t Instr_Msg_BP(uint8_t n, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Commands that are sent in a frame with head 0x01 and end 0x04 and answered by a frame.
 * Separator between the tracks of a reply: an empty one is refused with -2. */
QV_API int32_t Instr_Msg_SetSeparator(const char *separator, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* All three tracks: status word 0 and the body track 1, separator, track 2, separator, track 3; 0x4001 no data, 0x4002
 * other read fault. */
QV_API int32_t Instr_Msg_GetReadTrack123(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* Writes all three tracks; a null track contributes no data, both separators ("|") are sent. Status word 0, 0x4001
 * write failed. */
QV_API int32_t Instr_Msg_GetNtWriteTrack123(const char *track1, const char *track2, const char *track3, uint8_t *out,
                                            uint32_t *outLen) QV_NOEXCEPT;

/* How long the reader waits for a card, in seconds; 0 goes out as the bare sub-code, 2 bytes. */
QV_API int32_t Instr_Msg_SetTimeOut(uint8_t seconds, uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

/* The sub-code of the write alone, without tracks. */
QV_API int32_t Instr_Msg_GetWriteTrack123(uint8_t *out, uint32_t *outLen) QV_NOEXCEPT;

QV_END_DECLS

#endif
