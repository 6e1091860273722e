/*
 * support.h - result codes, diagnostic log and configuration, codecs and text helpers, time, DES, SHA-1, hashes, files.
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

/* Creates log/ beside the library, chooses today's log file in it, QV_yyyymmdd.log, and deletes old files there as
 * DelOutTimeLogFile does (also while logging is off). A process that runs past midnight keeps to the file of the day of
 * this call. Always 0. Changes: the log file; the buffer of pGetLogPath; the process umask becomes 0. */
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
 * none, or its year, month or day is 0, it is deleted. Looks at no more than 100 files a call. */
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
 * line feed is not seen. A null section, key or file: pszDefault. */
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

/* The same with kind and type labels. nKind: 0 information, 1 error, others have no label. nType: 1 to 11 (see
 * StDebugTip), others repeat the kind's label; 0 is never written. */
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

/* Local date as YYMMDD, local time as hhmmss. pOut: out, 6 bytes, no NUL is written; nothing happens for null. Both
 * overwrite the buffer of Time_GetLocalTime. */
QV_API void GetTransDate(char *pOut) QV_NOEXCEPT;
QV_API void GetTransTime(char *pOut) QV_NOEXCEPT;

/* Checks a date of three BCD bytes YY MM DD; years 00 to 49 are 2000 to 2049, others 19xx. pBcd: in, 3 bytes.
 * 0 valid, -1 invalid or null. */
QV_API int32_t time_Valid_YYMMDD(const uint8_t *pBcd) QV_NOEXCEPT;

/* Milliseconds since the epoch, cut to 32 bits; 0 if the clock cannot be read. */
QV_API uint32_t GetTickCount(void) QV_NOEXCEPT;

/* Stores the time in g_stStartTime / g_stEndTime (milliseconds since the epoch; 0 if the clock cannot be read) and
 * returns it. */
QV_API int64_t GetTickCountStartTime(void) QV_NOEXCEPT;
QV_API int64_t GetTickCountEndTime(void) QV_NOEXCEPT;

/* g_stEndTime less g_stStartTime, milliseconds. */
QV_API int64_t GetTickCountTimeOut(void) QV_NOEXCEPT;

/* Sleeps n / 200 whole seconds; below 200 it returns at once. */
QV_API void GeneralSleep(int32_t n) QV_NOEXCEPT;

/* The same generator as Str_GetRandom. */
QV_API int32_t GetRandom(int32_t n, uint8_t *pOut) QV_NOEXCEPT;

/* ---- DES and triple DES (FIPS 46-3), electronic code book ------------------------------------------------------
 *
 * pKey: in, nKeyLen bytes: 8 DES; 16 triple DES with two keys; 24 with three. Parity bits are ignored. With any other
 * length nothing is written. Input and output may be the same buffer. Null pointers: nothing is written. */

/* One block with a key of 8 bytes. pIn: in, pOut: out, 8 bytes each. */
QV_API void EnDES(const uint8_t *pKey, const uint8_t *pIn, uint8_t *pOut) QV_NOEXCEPT;
QV_API void DeDES(const uint8_t *pKey, const uint8_t *pIn, uint8_t *pOut) QV_NOEXCEPT;

/* One block. pIn: in, pOut: out, 8 bytes each. */
QV_API void EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut) QV_NOEXCEPT;
QV_API void DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, uint8_t *pOut) QV_NOEXCEPT;

/* One block to upper-case hexadecimal text, which ends before the first zero byte of the enciphered block. pIn: in, 8
 * bytes. pText: out, at least 16 bytes, no NUL is written: clear it first. 0; -2 null. */
QV_API int32_t EncryptDES_HEX(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, char *pText) QV_NOEXCEPT;

/* Deciphers a block of zeros: the text does not count (see HexToByte). A host that has hexadecimal text converts it
 * with Str_AscToHex and uses DecryptDES_BYTE. pOut: out, 8 bytes. 0; -2 null key or output. */
QV_API int32_t DecryptDES_HEX(const uint8_t *pKey, int32_t nKeyLen, const char *pszText, uint8_t *pOut) QV_NOEXCEPT;

/* Block after block, unpadded. nLen: bytes; when it is no multiple of 8, the last block is read and written whole, so
 * that pIn and pOut need room for it. The key is read anew for each block. The first: 0; -2 null. The second: bytes
 * written, a multiple of 8, and the same number when the key's length is unknown; 0 null. */
QV_API int32_t QV_EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                                  uint8_t *pOut) QV_NOEXCEPT;
QV_API int32_t QV_DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                                  uint8_t *pOut) QV_NOEXCEPT;

/* The same two without a result. */
QV_API void QV_TY_EncryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                                  uint8_t *pOut) QV_NOEXCEPT;
QV_API void QV_TY_DecryptDES_BYTE(const uint8_t *pKey, int32_t nKeyLen, const uint8_t *pIn, int32_t nLen,
                                  uint8_t *pOut) QV_NOEXCEPT;

/* nLen bytes to upper-case hexadecimal text. pText: out, at least 2 * nLen bytes, no NUL is written. Characters
 * written; 0 null. */
QV_API int32_t ByteToHex(const uint8_t *pData, int32_t nLen, char *pText) QV_NOEXCEPT;

/* Does nothing. Always 0. */
QV_API int32_t HexToByte(const char *pText, int32_t nLen, uint8_t *pOut) QV_NOEXCEPT;

/* ---- SHA-1 (FIPS 180-1) ------------------------------------------------------------------------------------------ */

/* A digest under way. */
typedef struct {
    uint32_t nTotal[2]; /* bytes so far, low word first */
    uint32_t nState[5];
    uint8_t ucBuffer[64]; /* the block that is not full yet */
} Sha1Context;

/* Begins a digest. / Appends nLen bytes. / Compresses one block of 64 bytes. / Ends it; pDigest: out, 20 bytes; the
 * record has to begin anew then. Null pointers: nothing happens. */
QV_API void sha1_starts(Sha1Context *pCtx) QV_NOEXCEPT;
QV_API void sha1_update(Sha1Context *pCtx, const uint8_t *pData, uint32_t nLen) QV_NOEXCEPT;
QV_API void sha1_process(Sha1Context *pCtx, const uint8_t *pBlock) QV_NOEXCEPT;
QV_API void sha1_finish(Sha1Context *pCtx, uint8_t *pDigest) QV_NOEXCEPT;

/* The digest of nLen bytes. pDigest: out, 20 bytes. 0; -1 null (also with nLen 0). */
QV_API int32_t xn_sha1(const uint8_t *pData, uint32_t nLen, uint8_t *pDigest) QV_NOEXCEPT;

/* ---- string hashes and hash table --------------------------------------------------------------------------------
 *
 * Hashes of NUL-terminated bytes, at most 0x7FFFFFFF; 0 for null. */
typedef uint32_t (*HashFn)(const char *pszKey);
QV_API uint32_t BKDRHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t SDBMHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t RSHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t JSHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t PJWHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t ELFHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t DJBHash(const char *psz) QV_NOEXCEPT;
QV_API uint32_t APHash(const char *psz) QV_NOEXCEPT;

/* A slot. An element that is inserted is its first 8 bytes, as they lie in memory, in one 64-bit value. */
typedef struct {
    uint8_t ucKey[3];
    uint8_t ucKeyLen; /* 0: the slot is free */
    uint32_t nData;
    uint32_t nValue;
} HashSlot;

/* A table, the host's record. */
typedef struct {
    HashSlot *pSlot; /* made by InitHashTable only: every table owns as many slots as the largest has */
    int32_t nCount;  /* elements, and once more for each replacement; growth begins anew with the elements it keeps */
    int32_t nSizeIndex;
    HashFn pfnHash;
} HashTable;

/* Is shown one slot: its place from 0, its first 8 bytes as InsertHash takes them, its value. It must not change the
 * table. */
typedef void (*HashVisitor)(int32_t nSlot, uint64_t ullElement, uint32_t nValue);

/* Slots of the table that was made or has grown last; all tables are probed over that many, so use one at a time. 0 at
 * load. */
extern QV_API uint32_t nHashLenth;

/* Makes a table. nSizeIndex: 0 to 3 for 127, 179, 229, 277 slots. 0; -1 other index, no memory, null. What the record
 * held is not released, and a refused index clears nCount. Changes nHashLenth, unless the index or a pointer is
 * refused. */
QV_API int32_t InitHashTable(HashTable *pTable, HashFn pfnHash, int32_t nSizeIndex) QV_NOEXCEPT;

/* Inserts an element (key of 1 to 3 bytes; one that holds a zero byte is searched only up to it, so that it is not
 * found again). nMode: 0x31 replaces the element of an equal key.
 * 0; -1 other key length, the key is there already, a table that was not made, or too many collisions: the table has
 * grown then; insert the element again. The table does not grow, and -1 is final, where nSizeIndex is 3 already or
 * memory is short. Growth drops elements whose value is 0, and one for each time that it has to grow once more. Changes
 * nHashLenth when the table grows. */
QV_API int32_t InsertHash(HashTable *pTable, uint64_t ullElement, uint32_t nValue, int32_t nMode) QV_NOEXCEPT;

/* Finds a key. pnSlot: out, its slot. 0; -1 absent or null (pnSlot stays). */
QV_API int32_t FindHash(HashTable *pTable, const char *pszKey, int32_t *pnSlot) QV_NOEXCEPT;

/* Logs the number of the last slot, nHashLenth - 1, and shows every used slot below nHashLenth to pfnVisit, in order.
 * nHashLenth; 0 for null or a table that was not made, after the log line. */
QV_API int32_t TraverseHash(HashTable *pTable, HashVisitor pfnVisit) QV_NOEXCEPT;

/* Releases the slots and clears the record. */
QV_API void DestroyHashTable(HashTable *pTable) QV_NOEXCEPT;

/* Steps of the above. SearchHash: pnSlot: out, the key's slot, the free one to insert it at, or the last one probed
 * when nHashLenth collisions are reached; pnCollisions: in and out, the collisions so far, 0 at first. 0; -1 absent;
 * -1 with pnSlot untouched for null, a table that was not made, and while nHashLenth is 0. collision: moves *pnSlot (in
 * and out) on by nCount slots, modulo nHashLenth; not for null or while that is 0. RecreateHashTable: grows the table
 * as InsertHash does; it stays as it is where it has the largest size already, or memory is short. Changes nHashLenth.
 */
QV_API int32_t SearchHash(HashTable *pTable, const char *pszKey, int32_t *pnSlot, int32_t *pnCollisions) QV_NOEXCEPT;
QV_API void collision(int32_t *pnSlot, int32_t nCount) QV_NOEXCEPT;
QV_API void RecreateHashTable(HashTable *pTable) QV_NOEXCEPT;

/* ---- files ------------------------------------------------------------------------------------------------------- */

/* Size of a file in bytes; -1 when it cannot be told. */
QV_API int64_t get_file_size(const char *pszPath) QV_NOEXCEPT;

/* Reads a file. pnLen: in, size of pBuf in bytes; stays. 0; -1 no such file, or it cannot be read, or null pnLen; -2
 * pBuf is null or too small: *pnLen is the file's size then (at most 4,294,967,295). */
QV_API int32_t ReadFileData(const char *pszPath, uint8_t *pBuf, uint32_t *pnLen) QV_NOEXCEPT;

/* Writes nothing but a log line. Always -1. */
QV_API int32_t WriteDataToFile(int32_t nUnused, const char *pszName, const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* Writes a file anew (0666 less the umask, which is 0 once the log has made a folder). nLen: bytes. 1; 0 when it could
 * not be opened or not all could be written; null data (unless nLen is 0) or a negative length: 0, the file stays. */
QV_API int32_t WriteFileData(const char *pszPath, const uint8_t *pData, int32_t nLen) QV_NOEXCEPT;

/* Copies a file, as WriteFileData writes one. nOverwrite: 0 leaves a target that can be read as it is. 1 copied; 0 not,
 * or not all of it (what was written stays). A file is never copied onto itself: 0. */
QV_API int32_t CopyFile(const char *pszSource, const char *pszTarget, int32_t nOverwrite) QV_NOEXCEPT;

/* 1 for a path that ends in "/", there or not, and for a directory that can be read; else 0. */
QV_API int32_t PathIsDirectory(const char *pszPath) QV_NOEXCEPT;

/* Empties a file (a missing one is made) and removes it, or removes an empty directory. 0; -1 it could not be removed,
 * or null. */
QV_API int32_t Remove_Img(const char *pszPath) QV_NOEXCEPT;

/* A file's contents as Base64 text with a NUL. pszText: out, at least (size + 2) / 3 * 4 + 1 bytes. 0; -1 an empty
 * file, one that cannot be read, more than 1,610,612,733 bytes, or no memory; -2 it cannot be opened, or null. */
QV_API int32_t GetBase64DataEx(const char *pszPath, char *pszText) QV_NOEXCEPT;

/* The same with a size. pnLen: in, size of pText in bytes; out, characters of the text. The rest of pText is cleared;
 * a text that fills it has no NUL. 0; -1 no such file, it cannot be read, no memory, or null pnLen; -2 pText is null or
 * too small (*pnLen is what it takes then), or an empty or too large file (pText is cleared). */
QV_API int32_t GetBase64FromFile(const char *pszPath, char *pText, uint32_t *pnLen) QV_NOEXCEPT;

/* Does nothing. */
QV_API void GetTempFilePath(char *p1, char *p2, int32_t n) QV_NOEXCEPT;

QV_END_DECLS

#endif
