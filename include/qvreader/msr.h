/*
 * msr.h - the magnetic-stripe side of the reader: reading and writing tracks 1, 2 and 3 of a swiped card.
 *
 * A host calls one family of the application functions: APP_Msg_ (the engine's codes), Linux_QV_ (TY codes with a
 * Chinese message each) or MS_ (tracks 2 and 3, standard codes). Each of their reads and writes opens the reader, sets
 * it up, waits for the card, closes the reader and keeps nothing; the functions below them are exported for hosts that
 * want the single steps.
 *
 * What a host must know:
 *  - Track texts that are written are checked against the character set of their track (track 1: 0x20 to 0x5F, tracks 2
 *    and 3: "0" to "?") and CUT IN PLACE at the first character outside it, also a text that the mode does not write.
 *    Only a bad first character is refused.
 *  - Success of a write is the reader's word; nothing is read back.
 *  - Over USB read and write one or two tracks. The commands for all three travel in frames, whose end is seldom found
 *    there, because zeros are not stripped from reports: unless a frame just fills its reports, reading three gives
 *    empty tracks and writing three gives success, both with result 0, whatever the reader says.
 *  - Over USB a read of one or two that times out or is cancelled gives -4; so does, on every channel, such a write
 *    whose card does not come (unless the reader reports it), and a cancel while the result is asked for.
 *  - A cancel that comes while nothing waits is lost. One that meets the setting of the read time ends that setting
 *    only, and the wait for the card follows; at the separator a serial read ends with -55.
 *  - A call lasts at most the time-out and 2 seconds for the card, and 4 for each other exchange. A late answer to one
 *    counts as that to the next: a bare read gives -4, a framed read or write may give 0 though the reader failed.
 *  - Reads and writes leave channel "A" selected. They close what is open, also when they could not open anything: a
 *    host that has the IC side open loses it.
 *  - Log lines of this side contain card data.
 *
 * Engine codes (MSG_QV_, APP_Msg_), and what the other families make of them:
 *
 *     engine                                                          TY      standard
 *        0   success; also another status word without a body          0          0
 *       -2   time-out outside 1 to 120; bad text; buffers or port     -9        -10
 *       -4   the reply or the status is not as it should be           -4         -6
 *       -5   read fault                                               -5        -99
 *       -6   write fault; no usable texts                             -6        -99
 *       -9   no data on the card                                     -10        -99
 *      -50   the reader could not be opened                           -1        -99
 *      -54   a command could not be sent, or does not fit a frame     -2        -99
 *      -55   read failed; separator not accepted                      -3        -99
 *      -56   time-out                                                 -8        -99
 *      -57   cancelled                                                -7        -99
 *     -100   write refused with another status word                 -100        -99
 *       -1   a write command could not be sent                      -100         -3
 *       above 0   another status word and a body of that many bytes  same        -99
 *     other                                                         -100        -99
 *
 * The standard set also knows -3 (-11), -7 (-23) and -8 (-2), which the engine does not give.
 */
#ifndef QVREADER_MSR_H
#define QVREADER_MSR_H

#include "qvreader/protocol.h"

QV_BEGIN_DECLS

/* ---- objects ------------------------------------------------------------------------------------------------- */

/* All of these are 0 at load. */
extern QV_API TransPortParam g_MsgParam; /* as filled by the last Dev_Rdz_MsgOpenPort */
extern QV_API IcHidId g_MsgHid[10];      /* USB identities added by the host */
extern QV_API int32_t g_nMsgHidNum;      /* valid entries of g_MsgHid */
extern QV_API int32_t g_bMsgSetHidFlag;  /* 1: the host's identities are tried after the built-in ones */
extern QV_API int32_t g_bOnlyUseSetHid;  /* 1: only the one identity added with index -1 is tried */
extern QV_API int32_t g_bMsgBaundFlag;   /* 1: a serial close at another rate than 9600 pauses 100 ms first */

/* Character and recording code, pair after pair: track 1 from 0x20, tracks 2 and 3 from "0". The tables say what a
 * text may hold; the reader does the coding. "]" has no pair: it shows the code of "^", which shows the one of "_",
 * which shows 0. */
extern QV_API const uint8_t ucTableTrack1[128];
extern QV_API const uint8_t ucTableTrack23[32];

/* ---- application: engine codes ------------------------------------------------------------------------------- */

/* Reads the tracks whose buffers are not null: one, 1 and 2, 2 and 3, or all three.
 * portName: "HID", "USB", "1001" or "0": USB; "COM" and a number (COM1 is /dev/ttyS0; 9600 or 115200 baud only);
 *   "/dev..." the path of a tty. Letter case counts in a path only, behind its "/dev".
 * channel: "A", "B", "C" or "K" selects a channel on a serial link; null, empty or other: none.
 * baud: bits per second. format: how the stripe is recorded: 1 IBM, 2 ISO-DK, 3 IBM-DK, any other ISO.
 * timeout: how long the reader waits for the card, 1 to 120 seconds.
 * track1 to track3: out, cleared over len1 to len3 bytes, then the track with a NUL, cut to fit.
 * An engine code; -2 for a null portName, no buffers, or 1 and 3 without 2.
 * Changes what MSG_QV_ReadData changes. */
QV_API int32_t APP_Msg_ReadMsgCard(const char *portName, const char *channel, uint32_t baud, int32_t format,
                                   uint32_t timeout, char *track1, uint32_t len1, char *track2, uint32_t len2,
                                   char *track3, uint32_t len3) QV_NOEXCEPT;

/* Writes the texts that are not null: one, 1 and 2, 2 and 3, or all three. Otherwise as APP_Msg_ReadMsgCard.
 * track1 to track3: in, NUL-terminated, may be shortened in place; together at most 1018 bytes, all three 504, and over
 * USB what five reports hold less 6 (64-byte reports: 314), beyond which a part of the command goes out.
 * An engine code; -6 for no texts, or 1 and 3 without 2; -50 also for a null portName, unless the time-out or a text is
 * bad as well (-2). */
QV_API int32_t APP_Msg_WriteMsgCard(const char *portName, const char *channel, uint32_t baud, int32_t format,
                                    uint32_t timeout, char *track1, char *track2, char *track3) QV_NOEXCEPT;

/* MSG_QV_CancelRead. */
QV_API int32_t APP_Msg_CancelReadMsgCard(void) QV_NOEXCEPT;

/* Sets g_bMsgBaundFlag. Always 0. */
QV_API int32_t APP_Msg_RaiseBaundFlag(uint32_t flag) QV_NOEXCEPT;

/* Dev_Rdz_Msg_AddHid. */
QV_API int32_t APP_MSG_AddHID(int32_t index, uint64_t pid, uint64_t vid) QV_NOEXCEPT;

/* ---- application: TY codes ----------------------------------------------------------------------------------- */

/* APP_Msg_ReadMsgCard and APP_Msg_WriteMsgCard without a channel; the engine's code as a TY code. A card without data
 * gives -10, which has no message of its own. */
QV_API int32_t Linux_QV_ReadMsgCard(const char *portName, uint32_t baud, int32_t format, uint32_t timeout, char *track1,
                                    uint32_t len1, char *track2, uint32_t len2, char *track3,
                                    uint32_t len3) QV_NOEXCEPT;
QV_API int32_t Linux_QV_WriteMsgCard(const char *portName, uint32_t baud, int32_t format, uint32_t timeout,
                                     char *track1, char *track2, char *track3) QV_NOEXCEPT;

/* Sets g_bMsgBaundFlag to 1 and cancels: MSG_QV_CancelRead and its results. */
QV_API int32_t Linux_QV_CancelReadMsgCard(void) QV_NOEXCEPT;

/* Adds a USB identity; pid and vid: in, four hexadecimal characters each. index: 0 to 9, see Dev_Rdz_Msg_AddHid.
 * 0; -2 other index or another text (nothing is changed). */
QV_API int32_t Linux_QV_MSG_AddHID(int32_t index, const char *pid, const char *vid) QV_NOEXCEPT;

/* The message of a TY code, in GBK. message: out, at least 128 bytes, zeroed by the caller: no NUL is written behind
 * the message of a known code. Any other code has a message, too, with its NUL. 0; -2 null. */
QV_API int32_t TY_MsgGetErrMessage(int32_t code, char *message) QV_NOEXCEPT;
QV_API int32_t QV_MsgGetErrCodeMessage(int32_t code, char *message) QV_NOEXCEPT;

/* The TY code of an engine code; 1 and above stay, what is not in the table above gives -100. */
QV_API int32_t TY_Msg_ConvertErr(int32_t code) QV_NOEXCEPT;

/* ---- application: standard codes ----------------------------------------------------------------------------- */

/* Reads tracks 2 and 3 (mode 23), track 2 (mode 2) or track 3 (mode 3); any other mode reads nothing and gives 0.
 * portName: as above, except that upper-case "COM" and a number is the path /dev/COM with that number (any baud),
 *   unless the name has 16 characters or more. charSet: the recording format.
 * track2, track3: out, at least 256 bytes each; mode 23 with one of them null does the other alone.
 * The engine's code as a standard code: -10 for no buffers or a null portName.
 * Begins with initDriver: today's log file, a process umask of 0, and old and foreign files in log/ deleted. Otherwise
 * changes what MSG_QV_ReadData changes. */
QV_API int32_t MS_ReadCard(const char *portName, const char *channel, uint32_t baud, uint32_t timeout, int32_t mode,
                           int32_t charSet, char *track2, char *track3) QV_NOEXCEPT;

/* Writes the same tracks; track2, track3: in, NUL-terminated, may be shortened in place. Otherwise as MS_ReadCard, but
 * -99 for no texts and for a null portName (-10 when the time-out or a text is bad as well); changes what
 * MSG_QV_WriteData changes. */
QV_API int32_t MS_WriteCard(const char *portName, const char *channel, uint32_t baud, uint32_t timeout, int32_t mode,
                            int32_t charSet, char *track2, char *track3) QV_NOEXCEPT;

/* The standard code of an engine code; -99 for what is not in the table above. */
QV_API int32_t GetStandardErrorCode_MAG(int32_t code) QV_NOEXCEPT;

/* ---- engine -------------------------------------------------------------------------------------------------- */

/* Reads a card. device: the port name; extPort: channel text; see APP_Msg_ReadMsgCard. termType: terminal family, for
 * aux ports only. mode: 1, 2, 3, 12, 23 or 123; any other opens the reader, sets it up, reads nothing and closes it.
 * timeout: 1 to 120 seconds. track1 to track3: out, each at least its length in bytes; any may be null. A success fills
 * the buffers of the mode's tracks (the track, cut to fit, and NULs); otherwise they stay.
 * An engine code.
 * Changes g_MsgParam, g_nMsgHidNum, g_stStartTime, gEndChar, the end condition and the read time-out of stBackUpParam,
 * g_bIsLinuxHidClearZero (0 when it is left), stRDZ73xx, and what COMM_Dev_OpenTransPort and COMM_Dev_CloseTransPort
 * change. */
QV_API int32_t MSG_QV_ReadData(const char *device, uint32_t baud, const char *extPort, int32_t format,
                               uint32_t termType, int32_t mode, uint32_t timeout, char *track1, uint32_t len1,
                               char *track2, uint32_t len2, char *track3, uint32_t len3) QV_NOEXCEPT;

/* Writes a card. Texts: in, NUL-terminated; one that the mode does not write may be null; all are checked and may be
 * shortened in place. Other parameters and changes as MSG_QV_ReadData, and g_stEndTime.
 * An engine code; -2 also for a missing text (nothing is opened), and for texts too long for any command; -54 for all
 * three together beyond a frame. */
QV_API int32_t MSG_QV_WriteData(const char *device, uint32_t baud, const char *extPort, int32_t format,
                                uint32_t termType, int32_t mode, uint32_t timeout, char *track1, char *track2,
                                char *track3) QV_NOEXCEPT;

/* Ends a read that waits. May be called from any thread. 0 (also when nothing waits); -57 no USB device is open, or
 * g_AuxFd is 0; -1 no transport is chosen (stBackUpParam.nType). */
QV_API int32_t MSG_QV_CancelRead(void) QV_NOEXCEPT;

/* ---- engine: steps ------------------------------------------------------------------------------------------- */

/* One read command and the judgement of its reply. cmd: in, len bytes. bFramed 1: in a frame; otherwise bare, and the
 * reader is asked for its status. reply: out, size bytes: the frame's body, or the bare reply.
 * 0; -4, -5, -9 see above; bytes of the body when a frame carries another status; a negative code of the exchange.
 * Changes the end condition of the transport, stRDZ73xx.gStatus, the read time-out (what is left of it, when bare of
 * 2 seconds: renew it before the next read), and when framed gEndChar. */
QV_API int32_t ReadTrack(uint32_t bFramed, const uint8_t *cmd, uint32_t len, uint8_t *reply, uint32_t size) QV_NOEXCEPT;

/* Read tracks from the open and prepared reader. out: out, size bytes, the track with NULs behind it, cut to fit; left
 * alone unless the result is 0. ReadTrack123: the whole body with its separators. Results and changes of ReadTrack; -2
 * null (nothing changes). */
QV_API int32_t ReadTrack1(char *out, uint32_t size) QV_NOEXCEPT;
QV_API int32_t ReadTrack2(char *out, uint32_t size) QV_NOEXCEPT;
QV_API int32_t ReadTrack3(char *out, uint32_t size) QV_NOEXCEPT;
QV_API int32_t ReadTrack12(char *out1, uint32_t size1, char *out2, uint32_t size2) QV_NOEXCEPT;
QV_API int32_t ReadTrack23(char *out2, uint32_t size2, char *out3, uint32_t size3) QV_NOEXCEPT;
QV_API int32_t ReadTrack123(char *out, uint32_t size) QV_NOEXCEPT;

/* One write command and its judgement. timeout: a write that fails after 1 second more counts as timed out.
 * 0; -4, -6, -56, -100 see above; -1 not sent (bare); a negative code of the exchange (framed).
 * It waits for the transport's read time-out and takes that off it. Changes also g_stStartTime, g_stEndTime, the end
 * condition of the transport, stRDZ73xx.gStatus, and when framed gEndChar. */
QV_API int32_t WriteTrack(uint32_t bFramed, const uint8_t *cmd, uint32_t len, uint32_t timeout) QV_NOEXCEPT;

/* Write texts to the open and prepared reader. Texts are not checked; null: -2, but WriteTrack123 takes it as no data.
 * Results and changes of WriteTrack; -2 also too long (nothing changes then). */
QV_API int32_t WriteTrack1(const char *text, uint32_t timeout) QV_NOEXCEPT;
QV_API int32_t WriteTrack2(const char *text, uint32_t timeout) QV_NOEXCEPT;
QV_API int32_t WriteTrack3(const char *text, uint32_t timeout) QV_NOEXCEPT;
QV_API int32_t WriteTrack12(const char *text1, const char *text2, uint32_t timeout) QV_NOEXCEPT;
QV_API int32_t WriteTrack23(const char *text2, const char *text3, uint32_t timeout) QV_NOEXCEPT;
QV_API int32_t WriteTrack123(const char *text1, const char *text2, const char *text3, uint32_t timeout) QV_NOEXCEPT;

/* Takes a reply for two tracks apart at its first "A". reply: in, NUL-terminated, with its two leading and two trailing
 * bytes. first, second: out, their size in bytes, the track with NULs behind it, cut to fit; empty where the track is
 * (0x7F stands for it) and both without an "A"; either may be null. 0; -2 null reply. */
QV_API int32_t SeperateByTrays(const char *reply, char *first, uint32_t firstSize, char *second,
                               uint32_t secondSize) QV_NOEXCEPT;

/* Finds the separator text. Where it stands; the text's start when there is none (or null). out: out, as many bytes as
 * the text may have before it, no NUL is written; stays when the separator is at the start; may be null. */
QV_API const char *SplitMsgData(const char *text, char *out, const char *separator) QV_NOEXCEPT;

/* Looks a character up (any direction but 1; its code is stored) or a code (direction 1; its character is stored).
 * track: 1, or any other for tracks 2 and 3. out: out, 1 byte. 0; -1 not found (out stays), or null. */
QV_API int32_t LookupTrackTable(int32_t direction, int32_t track, uint8_t value, uint8_t *out) QV_NOEXCEPT;

/* Checks a text against the characters of its track and cuts it, in place, at the first other one. 0; -2 that is the
 * first character, or null. */
QV_API int32_t JudgeTrack(int32_t track, char *text) QV_NOEXCEPT;

/* JudgeTrack of each text that is not null, up to the first that is refused. 0; -2. */
QV_API int32_t CheckTrackData(char *text1, char *text2, char *text3) QV_NOEXCEPT;

/* End conditions: before the first NUL the bytes end in 3F 1C / in "p" or "q". 0, else -1. */
QV_API int32_t MsgDataEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t MsgStatusEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Judge a bare reply: 0 when it begins with 1B 73 and contains 3F 1C, else -4. A status reply, by its last byte before
 * the first NUL: "p" 0, "q" -5, else -4. */
QV_API int32_t tFuncCheckTrackFormat(const uint8_t *reply, int32_t len) QV_NOEXCEPT;
QV_API int32_t tFuncCheckTrackStatusFormat(const uint8_t *reply, int32_t len) QV_NOEXCEPT;

/* ---- device layer -------------------------------------------------------------------------------------------- */

/* Opens the reader for stripe work. portName, channel: see APP_Msg_ReadMsgCard; "AUX" and a number names an aux port,
 * of the terminal family termType, which no channel serves: -50. timeout: read time-out, seconds.
 * 0; -2 unknown form of name, or "COM" with another rate than 9600 or 115200; -50 null or empty name, not opened, or
 * the channel not selected (the port is closed).
 * Changes g_MsgParam, g_nMsgHidNum (1 while g_bOnlyUseSetHid is 1, 0 unless the host's identities are in use),
 * stRDZ73xx and what COMM_Dev_OpenTransPort changes; a null or empty name changes nothing. What is open is closed
 * after each identity that could not be opened. */
QV_API int32_t Dev_Rdz_MsgOpenPort(const char *portName, const char *channel, uint32_t baud, uint32_t termType,
                                   int32_t timeout) QV_NOEXCEPT;

/* Closes the reader, 100 ms later on a serial link at another rate than 9600 while g_bMsgBaundFlag is 1. 0; -1 no
 * transport is chosen. Changes what COMM_Dev_CloseTransPort changes. */
QV_API int32_t Dev_Rdz_MsgClosePort(void) QV_NOEXCEPT;

/* Adds a USB identity (the low 32 bits of its ids are tried). index: 0 to 9 stores it at that place, tried after the
 * built-in ones, and makes the places 0 to index count; -1: only this identity is tried; it takes place 0 and puts the
 * others out of use. 0; -2 other index (which still ends the only-identity mode). Changes g_MsgHid, g_nMsgHidNum,
 * g_bMsgSetHidFlag, g_bOnlyUseSetHid. */
QV_API int32_t Dev_Rdz_Msg_AddHid(int32_t index, uint64_t pid, uint64_t vid) QV_NOEXCEPT;

/* Sets g_bMsgBaundFlag. Always 0. */
QV_API int32_t Dev_Rdz_Msg_RaiseBaundFlag(uint32_t flag) QV_NOEXCEPT;

/* Ask a read to end, from any thread: COMM_Dev_CancelRead and its results. */
QV_API int32_t Dev_Rdz_MsgCancel(void) QV_NOEXCEPT;
QV_API int32_t COMM_Msg_Cancel(void) QV_NOEXCEPT;

/* Tells the reader how long to wait for a card (see COMM_Msg_RDZSetTimeout). On success the read time-out becomes
 * seconds, otherwise it is what is left of 2. 0, -1. Changes what COMM_Msg_RDZSetTimeout changes. */
QV_API int32_t Dev_Rdz_MsgSetReadTrackTime(uint32_t seconds) QV_NOEXCEPT;

/* Sets the separator (see COMM_Msg_RDZSetSeparator); the read time-out becomes what is left of 2. 0; -2; -55. */
QV_API int32_t Dev_Rdz_MsgSetSeparator(const char *separator) QV_NOEXCEPT;

/* Reset the head / select a channel by its letter. Both always give -1, sent or not. */
QV_API int32_t Dev_Rdz_MsgReset(void) QV_NOEXCEPT;
QV_API int32_t Dev_Rdz_MsgSetBp(uint8_t channel) QV_NOEXCEPT;

/* One command and its reply. bRaw 1: bare, read until the installed end condition is met; otherwise in a frame 0x01 ...
 * 0x04. bFramedRead: handed to COMM_Rdz_SendAndReciveData unless bare. reply: out, replySize bytes; null: no reply is
 * awaited. Results and changes of COMM_Rdz_SendAndReciveData. */
QV_API int32_t Dev_Rdz_MsgSendAndReciveData(uint32_t bFramedRead, uint32_t bRaw, const uint8_t *cmd, uint32_t len,
                                            uint8_t *reply, uint32_t replySize) QV_NOEXCEPT;

/* Sends only. bRaw 1: bare, otherwise framed. 0, -1. */
QV_API int32_t Dev_Rdz_MsgSendData(uint32_t bRaw, const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* 1: the name is, whole and in any letter case, "HID", "1001", "0" or "USB"; else 0. */
QV_API int32_t dev_msg_judgeParamHid(const char *portName) QV_NOEXCEPT;

/* Fills an open record with the defaults (serial, 9600, 2 seconds, no end condition). 0; -2 null. */
QV_API int32_t COMM_Msg_InitCardReaderParam(TransPortParam *param) QV_NOEXCEPT;

/* Opens the reader that the record describes; a null end condition in it becomes MsgEndCondition. 0; -50 the record is
 * busy (nWord4 not 0); -2 null; the dispatcher's codes. Changes what COMM_Dev_OpenTransPort changes, stBackUpParam for
 * one, and on success stRDZ73xx.nType. */
QV_API int32_t COMM_Msg_OpenCardReader(TransPortParam *param) QV_NOEXCEPT;

/* 0; -50 busy; -1 no transport is chosen. Changes what COMM_Dev_CloseTransPort changes. */
QV_API int32_t COMM_Msg_CloseCardReader(void) QV_NOEXCEPT;

/* One command: 0, -1. One reply into buf (out, len bytes): bytes, 0 or a negative code. bRaw 1: bare, otherwise in a
 * frame. Both: -50 busy. The reply resets stRDZ73xx.gStatus, takes its time off stBackUpParam.nTimeOut, and in a frame
 * changes gEndChar and the end condition as well. */
QV_API int32_t COMM_Msg_WriteDataToCardReader(uint32_t bRaw, const uint8_t *data, uint32_t len) QV_NOEXCEPT;
QV_API int32_t COMM_Msg_ReadDataFromCardReader(uint32_t bRaw, uint8_t *buf, uint32_t len) QV_NOEXCEPT;

/* Status word of the last framed reply; 0 when busy. */
QV_API int32_t COMM_Msg_CardReaderGetRecStatus(void) QV_NOEXCEPT;

/* Tells the reader how long to wait for a card; seconds: its low 8 bits. 0: accepted, not sent, or no valid answer; -1:
 * another status, or an answer with a body. Leaves g_bIsLinuxHidClearZero 0, takes its time off the read time-out and
 * changes what else an exchange in a frame changes (gEndChar, end condition, status word). */
QV_API int32_t COMM_Msg_RDZSetTimeout(uint32_t seconds) QV_NOEXCEPT;

/* Sets the separator between the tracks of a reply. 0 (over USB also when it is not answered); -2 null or empty
 * (nothing is sent); -55 refused, not answered or too long. Takes its time off the read time-out and changes what else
 * an exchange in a frame changes. */
QV_API int32_t COMM_Msg_RDZSetSeparator(const char *separator) QV_NOEXCEPT;

/* As Dev_Rdz_MsgSetBp and Dev_Rdz_MsgReset. */
QV_API int32_t COMM_Msg_RDZSetBp(uint8_t channel) QV_NOEXCEPT;
QV_API int32_t COMM_Msg_RDZReset(void) QV_NOEXCEPT;

/* Resets the head and sets its recording format: 1 IBM, 2 ISO-DK, 3 IBM-DK, any other ISO. 0; -1 not sent. */
QV_API int32_t COMM_Msg_RDZSetFormat(int32_t code) QV_NOEXCEPT;

/* Does nothing. Always 0. */
QV_API int32_t COMM_Msg_SetBaud(uint32_t value) QV_NOEXCEPT;

/* End condition: 0 when the last byte is 0x04, else -1 (also for no bytes). */
QV_API int32_t MsgEndCondition(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

QV_END_DECLS

#endif
