/*
 * transport.h - the byte channel to a reader: the dispatcher, the serial port, a terminal's aux port, USB.
 *
 * Order of calls: open; then any number of write/read pairs, with end condition and time-out changed between them;
 * cancel from another thread at any time; close.
 *
 * While a port is open, nothing discards input before a command, since an answer may already stand there; each open
 * and close of a tty does. After a time-out a late reply would be taken for the next answer: call ClearReceiveBuffer
 * (serial port) or reopen the port (USB).
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
    uint32_t nWord1;                /* belongs to the device layer (170 by its initialiser) */
    uint32_t nType;                 /* 1 serial tty or aux port, 7 USB HID; any other, 2 (PC/SC) and 8 too: -1 */
    uint32_t nTermType;             /* thin-client terminal family of the aux port */
    uint32_t nWord4;                /* device layer: reader mode */
    uint32_t nPID;                  /* USB product id */
    uint32_t nVID;                  /* USB vendor id */
    int32_t nPort;                  /* device layer: number behind "COM" or "AUX" */
    uint32_t nBaud;                 /* bits per second */
    int32_t nAuxPort;               /* 1 or more: the terminal's aux port, szTermPath is not used */
    uint32_t bAuxPrefix;            /* handed to the aux open and close */
    char szTermPath[384];           /* tty path, NUL-terminated */
    int32_t nTimeOut;               /* read time-out, seconds */
    EndConditionFn pfnEndCondition; /* end condition to install; null: none */
} TransPortParam;

/* A USB identity. */
typedef struct {
    uint64_t nPID;
    uint64_t nVID;
} IcHidId;

/* State of the open transport. */
typedef struct {
    int32_t nTimeOut;               /* seconds that the next read gets; each read takes its own duration off */
    EndConditionFn pfnEndCondition; /* null: none */
    uint32_t nType;                 /* transport type of the open port, 0 before the first open */
    uint32_t bAuxPrefix;            /* from the open record */
    int32_t nAuxMode;               /* 1 or more: write and close as an aux port; an open leaves it as it is */
} BackUpParam;

extern QV_API BackUpParam stBackUpParam; /* all 0 at load; a close leaves it as it is */

/* ---- dispatcher ------------------------------------------------------------------------------------------------
 *
 * Writes, reads, closes and cancels go where stBackUpParam.nType says. While that is neither 1 nor 7, their result is
 * -1: before the first open, and after COMM_Dev_ChangeTermParam or SetBackUpParam has put another type there. */

/* Opens the transport that pParam->nType names. On success its nTimeOut, pfnEndCondition, nType and bAuxPrefix
 * become those of stBackUpParam (nAuxMode stays); on failure stBackUpParam stays as it is, but a failed open of type 1
 * sets g_AuxFd to -2: a port that was open is forgotten, not closed.
 * 0; -1 terminal settings refused or unknown type; -2 null; -3 the tty or the USB device would not open;
 * -50 no such USB device.
 * Changes also what the channel's own open changes (g_AuxFd, g_stOldTermAttr, g_AuxOp; m_targetDev, m_devs, m_handle,
 * g_inep, g_outep). */
QV_API int32_t COMM_Dev_OpenTransPort(TransPortParam *pParam) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_OpenTransPort(TransPortParam *pParam) QV_NOEXCEPT;

/* Writes len bytes. Bytes written, fewer or 0 when a serial port fails; the transport's negative code (serial and aux
 * -2: no port open, null or nothing to write; USB -50 and -54); -1: other nType. */
QV_API int32_t COMM_Dev_WriteDataToTransPort(const uint8_t *data, uint32_t len) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_WriteDataToTransPort(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Reads until the installed end condition is met, maxLen bytes have come, the time-out passes or a cancel comes.
 * buf: out, at least maxLen bytes. Bytes received; serial and aux -2, -55, -56 or -57; USB -50, and 0
 * for a time-out or a cancel; -1: other nType.
 * Takes the whole seconds that it lasted off stBackUpParam.nTimeOut, also when it fails. A time-out below 1
 * waits 1000 seconds (USB 2000), so set the time-out (COMM_Dev_ChangeReadTimeOut) before each exchange. */
QV_API int32_t COMM_Dev_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen) QV_NOEXCEPT;

/* Closes the port; stBackUpParam stays as it is. 0; -1: other nType. Changes g_AuxFd, in aux mode also
 * g_AuxOp.nTermType where that was unknown; or m_targetDev, m_devs and m_handle. */
QV_API int32_t COMM_Dev_CloseTransPort(void) QV_NOEXCEPT;
QV_API int32_t COMM_Dev_Linux_CloseTransPort(void) QV_NOEXCEPT;

/* Asks the running read to end and returns without waiting for it: a serial or aux read gives -57, a USB read 0. May be
 * called from any thread. 0 (also when no read runs); -57: no USB device is open, or g_AuxFd is 0; -1: other nType. */
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
 * 115200 or 230400; any other value opens at 9600. The tty may become the controlling terminal. Unread input and output
 * that is still to be sent are discarded.
 * Where an earlier program has left the tty waiting for a carrier (CLOCAL off), the open waits for it without an end.
 * 0; -1 settings refused (the port is closed again); -3 the path would not open (or is null).
 * Changes g_AuxFd and g_stOldTermAttr. A port that is still open is forgotten, not closed. */
QV_API int32_t COMM_Com_OpenLinux(const char *szTtyName, uint32_t nBaud) QV_NOEXCEPT;

/* Restores the tty's settings as ResetAux does and closes it. Always 0; without an open port it does nothing. Changes
 * g_AuxFd. */
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

/* Puts a tty into the raw mode of COMM_Com_OpenLinux; its settings before are kept in g_stOldTermAttr. Waits until all
 * output is sent; unread input is lost. 0; -1 refused; -2: fd is -2. */
QV_API int32_t SetTerm(int32_t fd, uint32_t baud) QV_NOEXCEPT;

/* Writes g_stOldTermAttr back to the open tty. Waits until all output is sent; unread input is lost. 0; -1 refused;
 * -2: no port. */
QV_API int32_t ResetAux(void) QV_NOEXCEPT;

/* Writes len bytes to the open port, repeating short writes. Bytes written, fewer when the port fails on the way;
 * -2: no port, null or len below 1. */
QV_API int32_t QV_SendDataToTransPort(const void *data, int32_t len) QV_NOEXCEPT;

/* One write(2) / one read(2); their result; -1 for null or a negative len, too. */
QV_API int32_t WriteBlock(int32_t fd, const uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t ReadBlock(int32_t fd, uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Wait up to 1 second for fd to become readable / writable and then read / write once. The result of that call, -1
 * when it fails; 0 when fd did not become ready (WriteUnBlock then discards what is still to be sent). For null or a
 * negative len: -1, from WriteUnBlock at once, from ReadUnBlock once fd is ready. */
QV_API int32_t ReadUnBlock(int32_t fd, uint8_t *buf, int32_t len) QV_NOEXCEPT;
QV_API int32_t WriteUnBlock(int32_t fd, const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* Discards unread input of the open port. 0; -1 refused; -2: no port. */
QV_API int32_t ClearReceiveBuffer(void) QV_NOEXCEPT;

/* Removes every blank, tab, line feed and carriage return, in place. Returns str. */
QV_API char *ClearInvisibleCharInStr(char *str) QV_NOEXCEPT;

/* ---- aux port of a thin-client terminal -------------------------------------------------------------------------
 *
 * The reader is plugged into the terminal; the terminal device of standard output leads there. Whoever prints to that
 * terminal while the port is open talks to the terminal too: keep standard output quiet meanwhile.
 *
 * Terminal families (nTermType): 2 GW, 3 GG, 5 WYSE, any other Star. The dispatcher wraps writes and switches the port
 * off at close only where nAuxMode of SetBackUpParam says so. */

/* State of the aux port, from one open to the next; a close leaves it. */
typedef struct {
    uint32_t nTermType;
    char szPrefix[4096]; /* sent in front of each write, */
    int32_t nPrefixLen;  /* bytes; 0: nothing is sent */
    char szSuffix[4096]; /* sent behind each write, */
    int32_t nSuffixLen;  /* bytes; 0: nothing is sent */
} AuxOp;

extern QV_API AuxOp g_AuxOp; /* all 0 at load */

/* Makes fd the open port, for a host that opened the tty itself. Always 0. Changes g_AuxFd. */
QV_API int32_t SetAuxFd(int32_t fd) QV_NOEXCEPT;

/* Opens the terminal device of standard output as COMM_Com_OpenLinux does and switches the terminal's aux port on.
 * nAuxPort: 1 to 4, any other positive number means 1. nBaud: bits per second, of the tty and of the aux port.
 * bAuxPrefix: other than 0: ESC "[2h" goes in front. 0; -1 settings refused or nAuxPort (as a signed number) below 1,
 * the port is closed again; -3 standard output is no terminal or would not open. Changes g_AuxFd, g_stOldTermAttr,
 * g_AuxOp. */
QV_API int32_t COMM_Com_OpenLinuxAux(uint32_t nTermType, uint32_t nAuxPort, uint32_t nBaud,
                                     uint32_t bAuxPrefix) QV_NOEXCEPT;

/* The second half of it, on the port that is open: prepares prefix and suffix and sends the open sequence, with the
 * same flag. 0, whether or not it could be sent; -2: nAuxPort (as a signed number) below 1. Changes g_AuxOp. */
QV_API int32_t COMM_Com_OpenAuxPort(uint32_t nTermType, uint32_t nAuxPort, uint32_t nBaud,
                                    uint32_t bAuxPrefix) QV_NOEXCEPT;

/* Writes len bytes, the family's prefix before and its suffix behind them, each by a write of its own. Bytes of data
 * written (prefix and suffix do not count), fewer or 0 when the port fails; -2: no port, null or len below 1. */
QV_API int32_t COMM_Com_WriteLinuxAux(const uint8_t *data, int32_t len) QV_NOEXCEPT;

/* COMM_Com_ReadLinux. */
QV_API int32_t COMM_Com_ReadLinuxAux(uint8_t *buf, uint32_t nMaxLen, int32_t nTimeOut, EndConditionFn end) QV_NOEXCEPT;

/* Switches the aux port off, then restores the tty's settings and closes it; without an open port it does nothing.
 * bAuxPrefix: other than 0: ESC "[2l" goes behind. Always 0. Changes g_AuxFd; g_AuxOp.nTermType becomes 1 where it was
 * unknown. */
QV_API int32_t COMM_Com_CloseLinuxAux(uint32_t bAuxPrefix) QV_NOEXCEPT;

/* The first half of it: sends the close sequence, with the same flag. Always 0, whether or not it could be sent.
 * g_AuxOp.nTermType becomes 1 where it was unknown. */
QV_API int32_t COMM_Com_CloseAuxPort(uint32_t bAuxPrefix) QV_NOEXCEPT;

/* Open and close sequences of each family, as NUL-terminated text. port, baud: as nAuxPort, nBaud above.
 * out: at least 64 bytes. 0; -2: out is null. */
QV_API int32_t Star_GetOpenAuxCmd(uint32_t port, uint32_t baud, char *out) QV_NOEXCEPT;
QV_API int32_t Star_GetClosAuxCmd(char *out) QV_NOEXCEPT;
QV_API int32_t GG_GetOpenAuxCmd(uint32_t port, uint32_t baud, char *out) QV_NOEXCEPT;
QV_API int32_t GG_GetCloseAuxCmd(char *out) QV_NOEXCEPT;
QV_API int32_t GW_GetOpenAuxCmd(uint32_t port, char *out) QV_NOEXCEPT;
QV_API int32_t GW_GetCloseAuxCmd(char *out) QV_NOEXCEPT;
QV_API int32_t WYSE_GetOpenAuxCmd(uint32_t port, char *out) QV_NOEXCEPT;
QV_API int32_t WYSE_GetCloseAuxCmd(char *out) QV_NOEXCEPT;

/* ---- USB HID through libusb -------------------------------------------------------------------------------------
 *
 * One device at a time. The kernel's driver is taken off the interface and not given back. Needs read and write
 * access to the device's node below /dev/bus/usb. */

typedef struct libusb_device libusb_device;
typedef struct libusb_device_handle libusb_device_handle;
struct libusb_interface;
struct libusb_interface_descriptor;
struct libusb_endpoint_descriptor;

/* What is known of one endpoint. */
typedef struct {
    uint8_t cEpaddress;       /* endpoint address, bit 7: IN */
    uint8_t cTransferType;    /* 2 bulk, 3 interrupt */
    uint8_t cTimeInterval;    /* slept after each interrupt transfer, milliseconds */
    uint8_t cMaxPackeSize[2]; /* report size in bytes, high byte first */
} EndpointInfo;

extern QV_API libusb_device *m_targetDev;      /* the open device; null: closed (and at load) */
extern QV_API libusb_device **m_devs;          /* the list that it came from */
extern QV_API libusb_device_handle *m_handle;  /* its handle */
extern QV_API EndpointInfo g_inep;             /* all 0 at load; a close leaves it */
extern QV_API EndpointInfo g_outep;            /* likewise */
extern QV_API uint32_t g_bIsLinuxHidClearZero; /* 1 at load: strip the zero padding of each received report */

/* Opens the first device of these ids, resets it and claims its reader interface: the only one where there is one, the
 * first of vendor 0x2B46 product 0xBE11, the second of any other. nVID, nPID: compared as 32 bits. While a device is
 * open it returns 0 and keeps that one, whatever the ids. The reset takes the reader away from any other program that
 * holds it through libusb: make sure there is none. 0; -50 no such device; -3 it would not open, has no configuration
 * or its interface could not be claimed. Changes m_targetDev, m_devs, m_handle, g_inep, g_outep. */
QV_API int32_t COMM_Hid_OpenLinuxUsbLibHid(uint32_t nVID, uint32_t nPID) QV_NOEXCEPT;

/* Closes the device; without one it does nothing. Always 0. Changes m_targetDev, m_devs, m_handle. */
QV_API int32_t COMM_Hid_CloseLinuxUsbLibHid(void) QV_NOEXCEPT;

/* Writes a command in up to five reports, so that with reports of 64 bytes it has at most 320 bytes; len 0 sends one
 * report of zeros. len; -50: not open; -54: more than 1024 bytes or null (nothing is sent), a transfer failed or lasted
 * more than 1 second, or five reports did not suffice. */
QV_API int32_t COMM_Hid_WriteLinuxUsbLibHid(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Reads until end (may be null) says complete, nMax bytes have come, nTimeOut seconds are exceeded or a cancel comes.
 * buf: out, at least nMax bytes. nTimeOut: whole seconds, strictly exceeded; below 1 it waits 2000 seconds.
 * A full buffer ends the read without asking end. Length of the reply up to its last byte that is not zero, also of a
 * full buffer; 0 for a time-out, a cancel, or a device that is gone (until the time-out), what came before stays in
 * buf; -50: not open or null. The device must not be closed while it runs. */
QV_API int32_t COMM_Hid_ReadLinuxUsbLibHid(uint8_t *buf, uint32_t nMax, int32_t nTimeOut,
                                           EndConditionFn end) QV_NOEXCEPT;

/* Asks the running read to end; it does within about 1 s. May be called from any thread. 0; -57: not open. */
QV_API int32_t COMM_Hid_CancelLinuxUsbLibHid(void) QV_NOEXCEPT;

/* Sets g_bIsLinuxHidClearZero. Always 0. */
QV_API int32_t COMM_Hid_SetLinuxHidClearZero(uint32_t flag) QV_NOEXCEPT;

/* Steps of the open: learn the endpoints of an interface, of one of its settings, from two endpoints. Both return the
 * interface's number; 0 where there is not exactly one setting, or null is given. Other than two endpoints teach
 * nothing. Change g_inep and g_outep. */
QV_API uint8_t GetCommInfo(const struct libusb_interface *itf) QV_NOEXCEPT;
QV_API uint8_t GetInterfaceInfo(const struct libusb_interface_descriptor *alt) QV_NOEXCEPT;
QV_API void GetEndpointInfo(const struct libusb_endpoint_descriptor *ep1,
                            const struct libusb_endpoint_descriptor *ep2) QV_NOEXCEPT;

/* Steps of the read: copy a report of n bytes without its trailing zeros, or whole. out: at least n bytes. Bytes
 * copied; 0 for null or n below 1. */
QV_API int32_t GetLinuxDataClearZero(const uint8_t *report, int32_t n, uint8_t *out) QV_NOEXCEPT;
QV_API int32_t GetLinuxLibDataWithoutZero(const uint8_t *report, int32_t n, uint8_t *out) QV_NOEXCEPT;

/* Bytes of the first len ones up to the last that is not zero; 0 for null or a negative len. */
QV_API int32_t GetLinuxDataReallenth(const uint8_t *buf, int32_t len) QV_NOEXCEPT;

/* ---- USB HID through hidapi -------------------------------------------------------------------------------------
 *
 * Another way to the same readers, through the kernel's driver; no transport type leads here, call it directly. Needs
 * read and write access to the reader's /dev/hidraw node. */

typedef struct hid_device_ hid_device;

extern QV_API hid_device *m_pHidHanle;            /* null: closed (and at load) */
extern QV_API uint32_t g_bIsLinuxSrcHidClearZero; /* 1 at load; kept, but nothing asks it */

/* Opens the first device of these ids (their low 16 bits); one that is open is closed before. 0; -3 no such device, or
 * it would not open. Changes m_pHidHanle. */
QV_API int32_t COMM_Hid_OpenLinuxHid(uint32_t nVID, uint32_t nPID) QV_NOEXCEPT;

/* Closes the device; without one it does nothing. Always 0. Changes m_pHidHanle. */
QV_API int32_t COMM_Hid_CloseLinuxHid(void) QV_NOEXCEPT;

/* Writes a command as one output report with report id 0; what the device leaves of it goes out in up to four more.
 * len 0 sends the report id alone. len; -50: not open; -54: more than 1023 bytes or null (nothing is sent), a write
 * failed, or the device took other than len bytes. A failed write also prints a line on standard error. */
QV_API int32_t COMM_Hid_WriteLinuxHid(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* Reads as COMM_Hid_ReadLinuxUsbLibHid does, but takes the first run of bytes that are not zero from each report, and
 * nTimeOut as it is: a negative one ends the read after its first wait of 200 ms. Bytes received; -50: not open or
 * null; -55 the device could not be read (a signal that the host handles ends a read so too); -56 time-out; -57
 * cancelled. */
QV_API int32_t COMM_Hid_ReadLinuxHid(uint8_t *buf, uint32_t nMax, int32_t nTimeOut, EndConditionFn end) QV_NOEXCEPT;

/* Asks the running read to end; it does within about 0.2 s. May be called from any thread. 0; -57: not open. */
QV_API int32_t COMM_Hid_CancelLinuxRead(void) QV_NOEXCEPT;

/* Sets g_bIsLinuxSrcHidClearZero. Always 0. */
QV_API int32_t COMM_Hid_SetSrcLinuxHidClearZero(uint32_t flag) QV_NOEXCEPT;

/* Step of the read: copies the first run of bytes of a report of n bytes that are not zero. out: at least n bytes.
 * Bytes copied; 0 for null or n below 1. */
QV_API int32_t GetLinuxSrcDataWithoutZero(const uint8_t *report, int32_t n, uint8_t *out) QV_NOEXCEPT;

QV_END_DECLS

#endif
