/*
 * support.h - result codes, diagnostic log and configuration, codecs and text helpers, time.
 *
 * The log is one plain-text file that every layer appends to. It is off unless the file "QVConfig.ini" in the
 * directory of the loaded library file says otherwise:
 *
 *     [QuorvanLog]
 *     LogFlag=1
 *
 * The file is read anew on every log call, so that switching takes effect at once; its last line counts only when
 * it ends in a line feed. A log holds card numbers and PIN blocks: switch it off again when done.
 * No result of any function depends on whether a log line could be written.
 */
#ifndef QVREADER_SUPPORT_H
#define QVREADER_SUPPORT_H

#include "qvreader/export.h"

QV_BEGIN_DECLS

/* ---- result codes of the transports and of the packet layer ------------------------------------------------- */

enum {
    RET_PUB_FAIL = -1,        /* refused by the device or by the system */
    RET_PUB_INVAL_PARAM = -2, /* bad argument, or no port is open */
    RET_PUB_OPEN_FAIL = -3,   /* the device would not open */
    RET_PUB_PACKET_ERR = -4,  /* a reply that is no valid frame */
    RET_PUB_SEND_FAIL = -54,  /* a command could not be sent */
    RET_PUB_READ_FAIL = -55,  /* the channel failed while reading */
    RET_PUB_TIMEOUT = -56,    /* no complete reply in time */
    RET_PUB_CANCEL = -57      /* the read was cancelled, or there is nothing to cancel */
};

enum {
    TYPE_USBLIB_HID = 7 /* transport type: USB HID through libusb */
};

/* ---- log switches ------------------------------------------------------------------------------------------- */

/* Log types: 1 Public, 2 Comm, 3 CommDev, 4 Instr, 5 Loginc, 6 BusiId, 7 BusiIc, 8 BusiMsg, 9 AppId, 10 AppIc,
 * 11 AppMsg. Entry i of nEnable belongs to log type i + 1; 0 suppresses that type. */
typedef struct {
    int32_t nEnable[11];
} StDebugTip;

extern QV_API int32_t g_DbgSetFlag;    /* 0 at load; 1: the switches in g_stDebugTip take effect */
extern QV_API StDebugTip g_stDebugTip; /* all 0 at load */

/* Copies *pTip into g_stDebugTip; g_DbgSetFlag stays as it is. Returns the address of g_stDebugTip; null changes
 * nothing. */
QV_API StDebugTip *Dbg_SetDebugLevel(const StDebugTip *pTip) QV_NOEXCEPT;

/* ---- log files ---------------------------------------------------------------------------------------------- */

/* Chooses today's log file, log/QV_yyyymmdd.log beside the library, and deletes log files older than 15 days (also
 * while logging is off). A process that runs past midnight keeps to the file of the day of this call. Always 0.
 * Changes: the log file; the process umask becomes 0. */
QV_API int32_t initDriver(void) QV_NOEXCEPT;

/* Sets the version text at the head of every log line. pszVersion: at most 127 characters are kept; null or empty
 * clears it. Always 0. */
QV_API int32_t QV_DebugSetVersion(const char *pszVersion) QV_NOEXCEPT;

/* Sets the log file. pszPath: full path, at most 511 characters are kept; null or empty: Alg_debug.log beside the
 * library. */
QV_API void QV_DPritLogSetFileName(const char *pszPath) QV_NOEXCEPT;

/* Path of the file that the next log line goes to, in a buffer of the library that the next call overwrites. Creates
 * the library's directory (mode 0755) if it is gone and no file was set. Never null. */
QV_API char *getLogFilePath(void) QV_NOEXCEPT;

/* Creates the log directory beside the library and returns the path of today's log file, in a buffer of the library
 * (256 bytes, longer paths are cut) that the next call overwrites. Changes: the process umask becomes 0. */
QV_API char *pGetLogPath(void) QV_NOEXCEPT;

/* Local time of day as "mm-dd hh:mm:ss(mmm)", in a buffer of the library that the next call overwrites. */
QV_API char *GetLogTime(void) QV_NOEXCEPT;

/* Deletes old files from the directory log/ beside the library: those dated more than 15 days ago, and all of another
 * year or of a later month. A file with another name counts with the date of the name listed before it; where there is
 * none it is deleted. Looks at no more than 100 files a call. */
QV_API void DelOutTimeLogFile(void) QV_NOEXCEPT;

/* Lists a directory, "." and ".." left out, in the order in which the system gives the names.
 * pszDir: in. pNames: out, room for 100 names of 256 bytes. pnCount: out, number of names, at most 100.
 * 0, or -1 when the directory cannot be opened (or for a null argument). */
QV_API int32_t GetLogList(const char *pszDir, char (*pNames)[256], int32_t *pnCount) QV_NOEXCEPT;

/* Creates a directory with mode 0777. 0, or -1 as mkdir(2). Changes: the process umask becomes 0 and stays so. */
QV_API int32_t mkdir_s(const char *pszPath) QV_NOEXCEPT;

/* Directory of the loaded library file, without a trailing slash; "." when its name has no directory.
 * pszPath: out, at least 512 bytes; a longer path is cut. */
QV_API void getSoLocationPath(char *pszPath) QV_NOEXCEPT;

/* ---- configuration ------------------------------------------------------------------------------------------ */

/* Looks a key up in an INI file. Returns the text behind the first "=" of the first line after the header
 * "[pszSection]" that contains pszKey anywhere, in a buffer of the library (at most 1022 characters) that the next
 * call overwrites; pszDefault itself when there is no such line. Lines that start with "#" or "//" are comments; blanks
 * and a carriage return stay part of the value; later section headers do not end the search; a last line without a
 * line feed is not seen. */
QV_API char *GetIniKeyString(const char *pszSection, const char *pszKey, const char *pszDefault,
                             const char *pszFile) QV_NOEXCEPT;

/* The same, as a number (atoi). 0 for a null default. */
QV_API int32_t GetIniKeyInt(const char *pszSection, const char *pszKey, const char *pszDefault,
                            const char *pszFile) QV_NOEXCEPT;

/* 1 when the INI file switches logging on at this moment, else 0. */
QV_API int32_t isWriteLog(void) QV_NOEXCEPT;

/* ---- log lines ---------------------------------------------------------------------------------------------- */

/* Appends one line: version, time, text. The text is formatted as printf does and cut at 4095 bytes. */
QV_API void DPrintLogToFile(const char *pszFormat, ...) QV_NOEXCEPT QV_PRINTF(1, 2);

/* The same with kind and type labels. nKind: 0 information, 1 error. nType: 1 to 11 (see StDebugTip); 0 is never
 * written. */
QV_API void DPrintLogToFileAddType(int32_t nKind, int32_t nType, const char *pszFormat, ...) QV_NOEXCEPT
    QV_PRINTF(3, 4);

/* Appends one line: version, time, title (may be null), length and the bytes in upper-case hexadecimal.
 * nLen: bytes; below 1, or null data, writes no bytes. */
QV_API void DPrintDataHexToFile(const char *pszTitle, const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* The same with kind and type labels; written only for a kind other than 0, and whatever the type switches say. */
QV_API void DPrintDataHexToFileAddType(int32_t nKind, int32_t nType, const char *pszTitle, const uint8_t *pData,
                                       int32_t nLen) QV_NOEXCEPT;

/* Accepted and ignored; kept so that older hosts link. */
QV_API void DPrintTlvToFileAddType(int32_t nKind, int32_t nType, const char *pszTitle, const uint8_t *pData,
                                   int32_t nLen) QV_NOEXCEPT;
QV_API void GetFullPath(const char *pszIn, char *pszOut, int32_t nLen) QV_NOEXCEPT;

/* Writes the label of an information kind, two blanks and a NUL. pszOut: out, at least 12 bytes; kinds other than 0
 * and 1 leave it untouched. */
QV_API void MapDebugInfoType(int32_t nKind, char *pszOut) QV_NOEXCEPT;

/* Writes the label of a log type over the start of pszOut, without a NUL. pszOut: in/out, at least 8 bytes; an unknown
 * type leaves it untouched. */
QV_API void MapDebugLevelType(int32_t nType, char *pszOut) QV_NOEXCEPT;

/* ---- codecs: checks and the half-byte characters of the wire ------------------------------------------------- */

/* Exclusive-or of nLen bytes, starting from 0. -1 for null data. */
QV_API int32_t Str_GetDataLRC(const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* The same as a byte; 0 for null data. */
QV_API uint8_t Str_CalcLrc(const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* Half-byte encoding: each of nLen bytes becomes two characters, 0x30 + high half and 0x30 + low half.
 * pOut: out, at least 2 * nLen bytes, no NUL is written. Does nothing for a null pointer or nLen below 1. */
QV_API void Str_RdzModeSplitData(const uint8_t *pIn, int32_t nLen, uint8_t *pOut) QV_NOEXCEPT;

/* The reverse: nLen characters become nLen / 2 bytes; only the low half of each character counts.
 * pOut: out, at least nLen / 2 bytes. Does nothing for a null pointer or an odd nLen. */
QV_API void Str_RdzModeMergeData(const uint8_t *pIn, int32_t nLen, uint8_t *pOut) QV_NOEXCEPT;

/* ---- codecs: hexadecimal text -------------------------------------------------------------------------------- */

/* Bytes to upper-case hexadecimal text. nNibbles: characters to write, not bytes; an odd count ends with a high half.
 * pszOut: out, at least nNibbles + 1 bytes. 0, or -1 for a null pointer. */
QV_API int32_t Str_HexToAsc(const uint8_t *pData, int32_t nNibbles, char *pszOut) QV_NOEXCEPT;

/* nLen bytes to 2 * nLen upper-case characters. pOut: out, at least 2 * nLen bytes, no NUL is written.
 * nLen as given; 0 when a pointer is null. */
QV_API int32_t Str_SplitHexToBCD(const uint8_t *pData, int32_t nLen, char *pOut) QV_NOEXCEPT;

/* nLen bytes to 2 * nLen lower-case characters and a NUL. pszOut: out, at least 2 * nLen + 1 bytes.
 * 0, or -1 for a null pointer. */
QV_API int32_t Str_localSplitHexToBCD(const uint8_t *pData, int32_t nLen, char *pszOut) QV_NOEXCEPT;

/* nLen hexadecimal characters to bytes; a character outside 0-9 and A-F counts as its code less 0x57, unchecked.
 * pOut: out, at least nLen / 2 bytes. Bytes written; 0 for an odd nLen (nothing is written); -1 for null. */
QV_API int32_t Str_MergeBcdToHex(const char *pText, int32_t nLen, uint8_t *pOut) QV_NOEXCEPT;

/* nLen hexadecimal characters of either case to bytes; a bad character counts as all ones.
 * pOut: out, at least nLen / 2 bytes. Bytes written; -1 for null or when a single character is left over (the pairs
 * before it are written). */
QV_API int32_t Str_localMergeBcdToHex(const char *pText, int32_t nLen, uint8_t *pOut) QV_NOEXCEPT;

/* Value 0 to 15 of a hexadecimal character of either case, -1 for any other. */
QV_API int32_t Str_localHexCharToNum(char c) QV_NOEXCEPT;

/* One byte to its two half-byte characters. pHi, pLo: out, one byte each. 0; -1 for null. */
QV_API int32_t Str_localSplitHex2Asc(uint8_t uc, uint8_t *pHi, uint8_t *pLo) QV_NOEXCEPT;

/* Two half-byte characters to one byte: ((cHi & 0x0F) << 4) + (cLo - 0x30). pOut: out, one byte. 0; -1 for null. */
QV_API int32_t Str_localMergeAsc2Hex(uint8_t *pOut, char cHi, char cLo) QV_NOEXCEPT;

/* nChars hexadecimal characters of either case to bytes, unchecked; an odd count leaves a zero low half at the end.
 * The character 0xAC in a first half is skipped. pOut: out, at least (nChars + 1) / 2 bytes. 0, or -1 for null. */
QV_API int32_t Str_AscToHex(const char *pText, int32_t nChars, uint8_t *pOut) QV_NOEXCEPT;

/* Hexadecimal text to exactly nOut bytes; a short text is filled up with "F" on the right.
 * nLen: characters, nOut: bytes, both cut at an area of 4096 characters. pOut: out, at least nOut bytes.
 * Bytes written; -1 for null. */
QV_API int32_t Str_AsciiToCn(const char *pText, int32_t nLen, uint8_t *pOut, uint32_t nOut) QV_NOEXCEPT;

/* The same, filled up with "0" on the left; a longer text keeps its first 2 * nOut characters. */
QV_API int32_t Str_AsciiToBcd(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nOut) QV_NOEXCEPT;

/* ---- codecs: BCD and numbers --------------------------------------------------------------------------------- */

/* One BCD byte. pOut: out, one byte. 0; -1 outside 0 to 99 or for null, nothing written. */
QV_API int32_t Str_ByteToBcd(int32_t nValue, uint8_t *pOut) QV_NOEXCEPT;

/* Decimal value of nLen bytes of packed BCD, high half first, digits unchecked. 0 for null or nLen below 1. */
QV_API uint64_t Str_BcdtoUint64(const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* Four BCD bytes of a value below 10,000. From 10,000 on the third byte, and from 1,000,000 on the second as well,
 * stays unwritten and the result is still 0. pOut: out, 4 bytes. pnOutLen: out, 4.
 * 0; -1 outside 0 to 99,999,999 or for null. */
QV_API int32_t Str_IntTo4Bcd(int32_t nValue, uint8_t *pOut, uint32_t *pnOutLen) QV_NOEXCEPT;

/* Four big-endian bytes to a number. pnOut: out. Returns pnOut; null for a null pointer. */
QV_API uint32_t *Str_Char4ToInt(uint32_t *pnOut, const uint8_t *pData) QV_NOEXCEPT;

/* The low nBytes bytes of nValue, most significant first. nBytes: 0 to 4. pOut: out, at least nBytes bytes.
 * 0; -1 for null or nBytes above 4. */
QV_API int32_t Str_DesNumtoHex(int32_t nValue, uint8_t *pOut, uint32_t nBytes) QV_NOEXCEPT;

/* Exclusive-or of two blocks of 8 bytes. pOut: out, 8 bytes. 8; -1 for null. */
QV_API int32_t Str_localXor(const uint8_t *pA, const uint8_t *pB, uint8_t *pOut) QV_NOEXCEPT;

/* Check digit with the weights 7, 3, 1 of a text of digits and upper-case letters (A = 10 ... Z = 35).
 * 0 to 9; -1 for any other character or null. */
QV_API int32_t Str_Math731(const char *pszText) QV_NOEXCEPT;

/* n bytes for fillers, from the C library's generator seeded with the time: the same within one second, no secret.
 * pOut: out, at least n bytes. 0; -1 for null. Changes: the seed of rand(). */
QV_API int32_t Str_GetRandom(int32_t n, uint8_t *pOut) QV_NOEXCEPT;

/* ---- text ---------------------------------------------------------------------------------------------------- */

/* First position of uc within nLen bytes, or null. */
QV_API uint8_t *Str_localFindMsgSign(const uint8_t *pData, uint32_t nLen, uint8_t uc) QV_NOEXCEPT;

/* Length without the run of uc at the end. 0 for nLen below 1; -1 for null. */
QV_API int32_t Str_GetDataDeleteChar(const uint8_t *pData, int32_t nLen, uint8_t uc) QV_NOEXCEPT;

/* Removes every blank, tab, line feed and carriage return, in place. Returns pszText. */
QV_API char *Str_strsTrim(char *pszText) QV_NOEXCEPT;

/* Trims white space at both ends: returns the first kept character and writes a NUL behind the last. A text of white
 * space only becomes empty. Null for null. */
QV_API char *strim(char *pszText) QV_NOEXCEPT;

/* Copies the part of pszIn before the first pszSplit, without a NUL. pOut: out, at least the length of pszIn.
 * 0; -2 when pszSplit does not occur, or for null. */
QV_API int32_t Str_GetSplitData(const char *pszIn, const char *pszSplit, char *pOut) QV_NOEXCEPT;

/* Finds a tag in a run of items "letter, three-digit decimal length, value". pTag, nTagLen: the tag and its characters.
 * pszText: NUL-terminated. nTextLen: ignored. The tag's position in the text, or null. */
QV_API char *Str_FindTagApp(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen) QV_NOEXCEPT;

/* Value of such an item. pOut: out, room for the value (at most 999 bytes), no NUL is written. pnOutLen: out, bytes.
 * 0; -1 when the tag is not found or its value is not whole (outputs untouched). */
QV_API int32_t Str_GetTagValueApp(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen, char *pOut,
                                  uint32_t *pnOutLen) QV_NOEXCEPT;

/* ---- Base64 (RFC 4648, section 4) ----------------------------------------------------------------------------- */

/* nLen bytes to Base64 text, padded, without a NUL. nCap: size of pOut in bytes, at least (nLen + 2) / 3 * 4.
 * Characters written; -1 when nCap is too small, or for null. */
QV_API int32_t Base64_EncData(const uint8_t *pData, uint32_t nLen, char *pOut, int32_t nCap) QV_NOEXCEPT;

/* nLen characters of Base64 text to bytes. A "=" ends the decoding, up to 3 trailing characters are ignored, a
 * character outside the alphabet counts as all ones. nCap: bytes; pOut must hold nCap + 1.
 * Bytes written; -1 when more than nCap + 1 would be, or for null. */
QV_API int32_t Base64_DecData(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nCap) QV_NOEXCEPT;

/* Value 0 to 63 of a Base64 character, 0 for "=", -1 for any other. */
QV_API int32_t GetIndexFromTable(char c) QV_NOEXCEPT;

/* The same three under their older names. */
QV_API int32_t EncryptBase64(const uint8_t *pData, uint32_t nLen, char *pOut, int32_t nCap) QV_NOEXCEPT;
QV_API int32_t DecryptBase64(const char *pText, uint32_t nLen, uint8_t *pOut, uint32_t nCap) QV_NOEXCEPT;
QV_API int32_t GetIndexFromBase64Table(char c) QV_NOEXCEPT;

/* Prepares the older codec's alphabet. The codec works without it. */
QV_API void IniBase64Table(void) QV_NOEXCEPT;

/* ---- time ------------------------------------------------------------------------------------------------------ */

extern QV_API int64_t g_stStartTime; /* milliseconds since the epoch, set by GetTickCountStartTime; 0 at load */
extern QV_API int64_t g_stEndTime;   /* milliseconds since the epoch, set by GetTickCountEndTime; 0 at load */

/* Local time as yy mm dd hh mm ss and milliseconds, with pszSep between the fields (null: none, 15 characters), in a
 * buffer of the library (128 bytes, longer texts are cut) that the next call overwrites. */
QV_API char *Time_GetLocalTime(const char *pszSep) QV_NOEXCEPT;

/* Local date as YYMMDD, local time as hhmmss. pOut: out, 6 bytes, no NUL is written. Both overwrite the buffer of
 * Time_GetLocalTime. */
QV_API void GetTransDate(char *pOut) QV_NOEXCEPT;
QV_API void GetTransTime(char *pOut) QV_NOEXCEPT;

/* Checks a date of three BCD bytes YY MM DD; years 00 to 49 are 2000 to 2049, others 19xx. pBcd: in, 3 bytes.
 * 0 valid, -1 invalid or null. */
QV_API int32_t time_Valid_YYMMDD(const uint8_t *pBcd) QV_NOEXCEPT;

/* Milliseconds since the epoch, cut to 32 bits; 0 if the clock cannot be read. */
QV_API uint32_t GetTickCount(void) QV_NOEXCEPT;

/* Stores the time in g_stStartTime / g_stEndTime (milliseconds since the epoch) and returns it. */
QV_API int64_t GetTickCountStartTime(void) QV_NOEXCEPT;
QV_API int64_t GetTickCountEndTime(void) QV_NOEXCEPT;

/* g_stEndTime less g_stStartTime, milliseconds. */
QV_API int64_t GetTickCountTimeOut(void) QV_NOEXCEPT;

/* Sleeps n / 200 whole seconds; below 200 it returns at once. */
QV_API void GeneralSleep(int32_t n) QV_NOEXCEPT;

/* The same generator as Str_GetRandom. */
QV_API int32_t GetRandom(int32_t n, uint8_t *pOut) QV_NOEXCEPT;

QV_END_DECLS

#endif
