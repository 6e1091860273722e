/*
 * transport.h - the byte channel to a reader: the dispatcher and the serial port.
 *
 * Order of calls: open; then any number of write/read pairs, with end condition and time-out changed between them;
 * cancel from another thread at any time; close.
 *
 * Nothing discards input before a command, since an answer may already stand there. After a time-out a late reply
 * would be taken for the next answer: call ClearReceiveBuffer (serial port) or reopen the port.
 */
#ifndef QVREADER_TRANSPORT_H
#define QVREADER_TRANSPORT_H

#include "qvreader/export.h"

QV_BEGIN_DECLS

/* Tells whether a reply is complete. pBuf: the bytes received so far, from the first; nLen: their count, which may
 * be 0. 0: complete, the read ends; anything else: go on reading. Called after every read pass, also after passes
 * that brought nothing. */
typedef int32_t (*EndConditionFn)(const uint8_t *pBuf, int32_t nLen);

/* The port-open record. */
typedef struct {
    uint32_t nWord1;      /* belongs to the device layer (170 by its initialiser) */
    uint32_t nType;       /* 1 serial tty, 2 PC/SC (refused), 7 USB HID (not in this version), 8 refused here */
    uint32_t nTermType;   /* thin-client terminal family of the aux port */
    uint32_t nWord4;      /* device layer: reader mode */
    uint32_t nPID;        /* USB product id */
    uint32_t nVID;        /* USB vendor id */
    int32_t nPort;        /* device layer: number behind "COM" or "AUX" */
    uint32_t nBaud;       /* bits per second */
    int32_t nAuxPort;     /* 1 or more: the terminal's aux port (not in this version) */
    uint32_t bAuxPrefix;  /* handed to the aux open and close */
    char szTermPath[384]; /* tty path, NUL-terminated */
    int32_t nTimeOut;     /* read time-out, seconds */
    EndConditionFn pfnEndCondition; /* end condition to install; null: none */
} TransPortParam;

/* State of the open transport. */
typedef struct {
    int32_t nTimeOut;               /* seconds that the next read gets; each read takes its own duration off */
    EndConditionFn pfnEndCondition; /* null: none */
    uint32_t nType;                 /* transport type of the open port, 0 before the first open */
    uint32_t bAuxPrefix;            /* from the open record */
    int32_t nAuxMode;               /* 1 or more: aux port; writes give -1 in this version */
} BackUpParam;

extern QV_API BackUpParam stBackUpParam; /* all 0 at load; a close leaves it as it is */

/* ---- dispatcher ---------------------------------------------------------------------------------------------- */

/* Opens the transport that pParam->nType names. On success its nTimeOut, pfnEndCondition, nType and bAuxPrefix
 * become those of stBackUpParam (nAuxMode stays); on failure stBackUpParam stays as it is.
 * 0; -1 terminal settings refused or unknown type; -2 null; -3 the tty would not open. */
QV_API int32_t COMM_Dev_OpenTransPort(TransPortParam *pParam) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_OpenTransPort(TransPortParam *pParam) QV_NOEXCEPT;

/* Writes len bytes. Bytes written; the transport's negative code (-2: no port open, null or nothing to write);
 * -1: no transport was ever opened. */
QV_API int32_t COMM_Dev_WriteDataToTransPort(const uint8_t *data, uint32_t len) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_WriteDataToTransPort(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Reads until the installed end condition is met, maxLen bytes have come, the time-out passes or a cancel comes.
 * buf: out, at least maxLen bytes. Bytes received; -2, -55, -56 or -57; -1: no transport was ever opened.
 * Takes the whole seconds that it lasted off stBackUpParam.nTimeOut, also when it fails. On a serial port a time-out
 * below 1 waits 1000 seconds, so set the time-out (COMM_Dev_ChangeReadTimeOut) before each exchange. */
QV_API int32_t COMM_Dev_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) QV_NOEXCEPT;

/* Closes the port; stBackUpParam stays as it is. 0; -1: no transport was ever opened. */
QV_API int32_t COMM_Dev_CloseTransPort(void) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_CloseTransPort(void) QV_NOEXCEPT;

/* Asks the running read to end with -57 and returns without waiting for it. May be called from any thread.
 * 0 (also when no read runs); the transport's code; -1: no transport was ever opened. */
QV_API int32_t COMM_Dev_CancelRead(void) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_CancelLinuxRead(void) QV_NOEXCEPT;

/* Replaces the end condition; null: reads end on a full buffer, time-out, cancel or failure only. Always 0. */
QV_API int32_t COMM_Dev_ChangeEndCondition(EndConditionFn end) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_ChangeEndCondition(EndConditionFn end) QV_NOEXCEPT;

/* Sets the read time-out, in seconds. Always 0. */
QV_API int32_t COMM_Dev_ChangeReadTimeOut(uint32_t seconds) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_ChangeReadTime(uint32_t seconds) QV_NOEXCEPT;

/* Copies the four fields of a successful open from pParam into stBackUpParam without opening anything. 0; -2: null. */
QV_API int32_t COMM_Dev_ChangeTermParam(TransPortParam *pParam) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_ChangeTermParam(TransPortParam *pParam) QV_NOEXCEPT;

/* Copies the whole record into stBackUpParam; the only setter of nAuxMode. 0; -2: null. */
QV_API int32_t SetBackUpParam(const BackUpParam *pParam) QV_NOEXCEPT;

/* Sets g_bIsLinuxHidClearZero. Always 0. */
QV_API int32_t COMM_Dev_SetHidClearZero(uint32_t flag) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_SetLinuxHidClearZero(uint32_t flag) QV_NOEXCEPT;

/* Accepted and ignored; kept so that older hosts link. Always 0. */
QV_API int32_t COMM_Dev_UseComm(uint32_t value) QV_NOEXCEPT;

/* ---- serial port --------------------------------------------------------------------------------------------- */

struct termio;

extern QV_API int32_t g_AuxFd;               /* descriptor of the open tty, -2: none (and at load) */
extern QV_API struct termio g_stOldTermAttr; /* the tty's settings as found at open, written back at close */

/* Opens a tty raw, 8 data bits, no parity, 1 stop bit. nBaud: 300, 1200, 2400, 4800, 9600, 19200, 38400, 57600,
 * 115200 or 230400; any other value opens at 9600. The tty may become the controlling terminal.
 * 0; -1 settings refused (the port is closed again); -3 the path would not open (or is null).
 * Changes g_AuxFd and g_stOldTermAttr. A port that is still open is forgotten, not closed. */
QV_API int32_t COMM_Com_OpenLinux(const char *szTtyName, uint32_t nBaud) QV_NOEXCEPT;

/* Restores the tty's settings and closes it. Always 0; without an open port it does nothing. Changes g_AuxFd. */
QV_API int32_t COMM_Com_CloseLinux(void) QV_NOEXCEPT;

/* Writes nLen bytes. Bytes written, fewer when the port fails on the way; -2: no port, null or nLen below 1. */
QV_API int32_t COMM_Com_WriteLinux(const uint8_t *pInData, int32_t nLen) QV_NOEXCEPT;

/* Reads until end (may be null) says complete, nMaxLen bytes have come, nTimeOut seconds are exceeded or a cancel
 * comes. buf: out, at least nMaxLen bytes. nTimeOut: whole seconds, strictly exceeded; below 1 it waits 1000 seconds.
 * On an idle line a leading 0x00 is dropped once at least 2 bytes are there. A full buffer ends the read without
 * asking end. Bytes received; -2: no port or null; -55, -56 or -57 (what came before stays in buf). */
QV_API int32_t COMM_Com_ReadLinux(uint8_t *buf, uint32_t nMaxLen, int32_t nTimeOut, EndConditionFn end) QV_NOEXCEPT;

/* Asks the running read to end; it does within about 0.1 s. May be called from any thread.
 * 0, also without an open port or a running read; -57 when g_AuxFd is 0. */
QV_API int32_t COMM_Com_CancelLinuxRead(void) QV_NOEXCEPT;

/* Puts a tty into the raw mode of COMM_Com_OpenLinux; its settings before are kept in g_stOldTermAttr.
 * 0; -1 refused; -2: fd is -2. */
QV_API int32_t SetTerm(int32_t fd, uint32_t baud) QV_NOEXCEPT;

/* Writes g_stOldTermAttr back to the open tty; unread input is lost. 0; -1 refused; -2: no port. */
QV_API int32_t ResetAux(void) QV_NOEXCEPT;

/* Writes len bytes to the open port, repeating short writes. Bytes written, fewer when the port fails on the way;
 * -2: no port, null or len below 1. */
QV_API int32_t QV_SendDataToTransPort(const void *data, int32_t len) QV_NOEXCEPT;

/* One write(2) / one read(2); their result. */
QV_API int32_t WriteBlock(int32_t fd, const uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t ReadBlock(int32_t fd, uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Wait up to 1 second for fd to become readable / writable and then read / write once. The result of that call; 0
 * when fd did not become ready (WriteUnBlock then discards what is still to be sent). */
QV_API int32_t ReadUnBlock(int32_t fd, uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t WriteUnBlock(int32_t fd, const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Discards unread input of the open port. 0; -1 refused; -2: no port. */
QV_API int32_t ClearReceiveBuffer(void) QV_NOEXCEPT;

/* Removes every blank, tab, line feed and carriage return, in place. Returns str. */
QV_API char *ClearInvisibleCharInStr(char *str) QV_NOEXCEPT;

/* ---- USB HID -------------------------------------------------------------------------------------------------- */

extern QV_API uint32_t g_bIsLinuxHidClearZero; /* 1 at load: strip the zero padding of each received report */

/* Sets g_bIsLinuxHidClearZero. Always 0. */
QV_API int32_t COMM_Hid_SetLinuxHidClearZero(uint32_t flag) QV_NOEXCEPT;

QV_END_DECLS

#endif
