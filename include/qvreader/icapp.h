/*
 * icapp.h - the IC application layer: BER-TLV (ISO 7816-4) toolkit, card data as lettered text, card commands by name,
 * sessions with a card, and the steps of a debit-credit transaction.
 */
#ifndef QVREADER_ICAPP_H
#define QVREADER_ICAPP_H

#include "qvreader/icreader.h"

QV_BEGIN_DECLS

/* ---- BER-TLV: search through templates ------------------------------------------------------------------------
 *
 * Buffers: in. nBufLen: bytes; 0: the buffer is trusted to end by itself (a byte 00 or FF where a tag should start, and
 * two-byte tags at most). With a length nothing behind it is read: a head or value that is cut off counts as absent.
 * Length forms are one byte, 81 and 82; any other first byte is itself the length. */

/* Finds a tag (nTagLen bytes), also inside constructed templates. A byte FF where a tag should start ends the data.
 * What stands behind the tag that is found is not looked at. Where its first byte stands in pBuf; null: absent, null
 * arguments or a negative length. */
QV_API uint8_t *quorvan_find_tag(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pBuf,
                                 int32_t nBufLen) QV_NOEXCEPT;

/* The value of a tag. pOut: out, room for the longest value that is expected (at most 65535 bytes); pnOutLen: out,
 * bytes. A value with the length form 81 is copied with the length that stands in the second byte of pBuf.
 * 0; -1 absent, cut off or null (outputs stay). */
QV_API int32_t quorvan_get_tag_value(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pBuf, int32_t nBufLen,
                                     uint8_t *pOut, int32_t *pnOutLen) QV_NOEXCEPT;

/* The value whose length field starts nOffset bytes into pBuf, which is trusted. pOut: out, at least 255 bytes;
 * pucOutLen: out, bytes (of a length of two bytes the low one). 0; -1 null. */
QV_API int32_t quorvan_get_tag_data(int32_t nOffset, const uint8_t *pBuf, uint8_t *pOut,
                                    uint8_t *pucOutLen) QV_NOEXCEPT;

/* Looks a tag up in a table of tags with one type byte behind each; nTableLen: bytes. The type byte; 0 absent or
 * null. */
QV_API int32_t quorvan_get_tag_type(const uint8_t *pTag, int32_t nTagLen, const uint8_t *pTable,
                                    int32_t nTableLen) QV_NOEXCEPT;

/* Takes out of a list of tags (one or two bytes each; in and out, nListLen bytes) every tag that pBuf holds. The new
 * length of the list in bytes; -1 null, or a length below 0. */
QV_API int32_t quorvan_findapptag(const uint8_t *pBuf, int32_t nBufLen, uint8_t *pList, int32_t nListLen) QV_NOEXCEPT;

/* ---- BER-TLV: items of one level ------------------------------------------------------------------------------
 *
 * A template is one item. Tags have one or two bytes and are given as NUL-terminated bytes, so that a tag with a byte
 * 00 cannot be asked for. Bytes 00 and FF where a tag is expected are filler. Length forms are one byte, 81, 82 and 83.
 * Items point into the caller's buffer. An output buffer has to have room for the longest value that is expected.
 * Nothing behind nBufLen bytes is read; outputs stay when a call fails. */

/* One item. */
typedef struct {
    int32_t nTagLen;       /* 1 or 2 */
    const uint8_t *pTag;   /* its first byte */
    uint32_t nValueLen;    /* bytes */
    const uint8_t *pValue; /* null when the length byte is 00 */
} TlvItem;

/* The tail of an item, from its third field on. */
typedef struct {
    uint32_t nValueLen;
    const uint8_t *pValue;
} TlvValue;

/* Takes the tag at pTag: length and place. */
QV_API void Ex_TLV_Parse_Tag(TlvItem *pItem, const uint8_t *pTag) QV_NOEXCEPT;

/* Takes the length field at pLength, up to 4 bytes. 0; -1 another length form, or null. */
QV_API int32_t Ex_TLV_Parse_Length(TlvValue *pPair, const uint8_t *pLength) QV_NOEXCEPT;

/* Takes the item at pTlv, of at most nAvail bytes. 0; -1 another length form, longer than nAvail, or null. */
QV_API int32_t TLV_Parser(TlvItem *pItem, const uint8_t *pTlv, int32_t nAvail) QV_NOEXCEPT;

/* Finds a tag. ppValue, pnValueLen: out, its value inside pBuf. 0; -1 absent, a malformed item before it, or null. */
QV_API int32_t TLV_GetData(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, uint8_t **ppValue,
                           uint32_t *pnValueLen) QV_NOEXCEPT;

/* Finds a tag. pnOff: out, the bytes of the items before it, filler not counted; pnLen: out, bytes of the whole item.
 * Prints a line on standard error when it is found. 0; -1 as TLV_GetData. */
QV_API int32_t TLV_GetTagOff(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, int32_t *pnOff,
                             int32_t *pnLen) QV_NOEXCEPT;

/* Copies the value of a tag; pnOutLen: out, bytes. 0; -1 as TLV_GetData. */
QV_API int32_t Ex_TLV_GetDataByTag(const char *pszTag, const uint8_t *pBuf, int32_t nBufLen, uint8_t *pOut,
                                   uint32_t *pnOutLen) QV_NOEXCEPT;

/* The same inside nested templates. pszTemplates: their tags, one byte each, from the outside in; may be null. */
QV_API int32_t Ex_TLV_GetDataByTagandTmplt(const char *pszTag, const char *pszTemplates, const uint8_t *pBuf,
                                           int32_t nBufLen, uint8_t *pOut, uint32_t *pnOutLen) QV_NOEXCEPT;

/* Counts the items. 0; -1 a malformed one, or null. */
QV_API int32_t Ex_TLV_Count(const uint8_t *pBuf, int32_t nBufLen, int32_t *pnCount) QV_NOEXCEPT;

/* All items as an array, which the host releases with free(), also when it has none. ppItems, pnCount: out.
 * 0; -1 a malformed item, no memory, or null (*ppItems is null then). */
QV_API int32_t Tlv_Unpack_Data(TlvItem **ppItems, const uint8_t *pBuf, int32_t nBufLen, int32_t *pnCount) QV_NOEXCEPT;

/* Writes one item. pOut: out, at least nValueLen + 6 bytes; pnOutLen: out, bytes. 0; -1 a tag that is not whole, more
 * than 16,777,215 bytes, or null. */
QV_API int32_t Tlv_Pack_Data(uint8_t *pOut, const char *pszTag, const uint8_t *pValue, uint32_t nValueLen,
                             uint32_t *pnOutLen) QV_NOEXCEPT;

/* Finds a tag among nCount items and copies its value; pnOutLen: out, bytes; pnIndex: out, its place from 0. 0; -1
 * absent or null. */
QV_API int32_t Ex_TLV_GetDataFromTlv(const TlvItem *pItems, int32_t nCount, const char *pszTag, uint8_t *pOut,
                                     uint32_t *pnOutLen, int32_t *pnIndex) QV_NOEXCEPT;
QV_API int32_t TLV_GetDataFromTlv(const TlvItem *pItems, int32_t nCount, const char *pszTag, uint8_t *pOut,
                                  uint32_t *pnOutLen, int32_t *pnIndex) QV_NOEXCEPT;

/* How many of nCount items have that tag; -1 null. */
QV_API int32_t Ex_TLV_IsDuplicates(const TlvItem *pItems, int32_t nCount, const char *pszTag) QV_NOEXCEPT;
QV_API int32_t TLV_IsDuplicates(const TlvItem *pItems, int32_t nCount, const char *pszTag) QV_NOEXCEPT;

/* ---- lettered text ---------------------------------------------------------------------------------------------
 *
 * Fields of a letter ("A" to "J", "P" to "W"), three decimal digits with the length of the value in characters, and the
 * value. The text ends at its NUL. nTextLen is ignored. */

/* Finds a field by its letter (nTagLen characters). Where it stands; null: absent, null or below 0. */
QV_API char *quorvan_find_tag_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen) QV_NOEXCEPT;

/* The value of a field. pOut: out, at least 999 bytes, no NUL is written; pnOutLen: out, characters. 0; -1 absent, cut
 * off by the text's end, null, or a letter count below 0 (outputs stay). */
QV_API int32_t quorvan_get_tag_value_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen,
                                         char *pOut, int32_t *pnOutLen) QV_NOEXCEPT;

/* ---- card commands ----------------------------------------------------------------------------------------------
 *
 * PBOC debit and credit (EMV Book 3, ISO 7816-4) and the electronic deposit and purse (JR/T 0025.1 and .2, edition of
 * 2005), one function a command. A card is powered; the command goes through the command exchange of stICOp, within the
 * read time-out that is left: renew it before each command (COMM_Rdz_ChageReadTimeOut).
 *
 * resp: out, at least 1024 bytes, the card's whole answer with SW1 SW2. respLen: out, bytes. When either is null, and
 * when the exchange fails, nothing is copied. Lengths in bytes; a data field has at most 255.
 * Result of each: the card's status word, 0x9000 for done; 0 when the answer had fewer than 2 bytes; the exchange's
 * failure (the last card status word is 0xAAAA then); 0xFFFFFFFF (-1) with nothing sent for a wrong argument, a null
 * data pointer with a length, or more than 255 bytes. */

/* The sender behind the others: CLA INS P1 P2, Lc and data unless lc is 0, Le if leFlag is 1. */
QV_API uint32_t Cmd_Ic_PbocSendAPDU(uint8_t cla, uint8_t ins, uint8_t p1, uint8_t p2, uint8_t lc, const uint8_t *data,
                                    uint8_t leFlag, uint8_t le, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* SELECT 00 A4 p1 p2. */
QV_API uint32_t Cmd_Ic_PbocSelectFile(uint8_t p1, uint8_t p2, const uint8_t *data, uint8_t lc, uint8_t *resp,
                                      uint32_t *respLen) QV_NOEXCEPT;

/* SELECT by name 00 A4 04 00; mode 2: the next application of that name (P2 02). */
QV_API uint32_t Cmd_Ic_PbocSelect_Aid(int32_t mode, const uint8_t *aid, uint32_t aidLen, uint8_t *resp,
                                      uint32_t *respLen) QV_NOEXCEPT;

/* READ RECORD 00 B2 record, P2 from the SFI (0: the current file). */
QV_API uint32_t Cmd_Ic_PbocReadRecord(uint8_t sfi, uint8_t record, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* An issuer script command: CLA INS P1 P2 Lc data, totalLen bytes. Lc goes out as totalLen - 4 and the data from the
 * fifth byte of command on, so that command holds no Lc of its own. 4 to 259 bytes. */
QV_API uint32_t Cmd_Ic_PbocWriteScript(const uint8_t *command, uint32_t totalLen, uint8_t *resp,
                                       uint32_t *respLen) QV_NOEXCEPT;

/* GET PROCESSING OPTIONS 80 A8 00 00. */
QV_API uint32_t Cmd_Ic_PbocGetProcessOptions(const uint8_t *pdolData, uint32_t len, uint8_t *resp,
                                             uint32_t *respLen) QV_NOEXCEPT;

/* VERIFY 00 20 00: kind '0' plain PIN (P2 80), any other enciphered (P2 88); Le is FF. */
QV_API uint32_t Cmd_Ic_PbocPinVerify(char kind, const uint8_t *pinBlock, uint32_t len) QV_NOEXCEPT;

/* GET CHALLENGE 00 84 00 00 le. The length of the answer is not told. */
QV_API uint32_t Cmd_Ic_PbocGetChallenge(uint8_t *resp, uint8_t le) QV_NOEXCEPT;

/* GET DATA 80 CA. tag: in, 2 bytes. */
QV_API uint32_t Cmd_Ic_PbocGetData(const uint8_t *tag, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* INTERNAL AUTHENTICATE 00 88 00 00. */
QV_API uint32_t Cmd_Ic_PbocInternalAuth(const uint8_t *data, uint32_t len, uint8_t *resp,
                                        uint32_t *respLen) QV_NOEXCEPT;

/* GENERATE AC 80 AE. type: 1 ARQC (P1 80), 2 TC (P1 40), other AAC (P1 00). */
QV_API uint32_t Cmd_Ic_PbocGenerateAC(int32_t type, const uint8_t *cdolData, uint32_t len, uint8_t *resp,
                                      uint32_t *respLen) QV_NOEXCEPT;

/* EXTERNAL AUTHENTICATE 00 82 00 00; the card's data are dropped. */
QV_API uint32_t Cmd_Ic_PbocExternalAuthenticate(const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* GET BALANCE 80 5C 00 kind. kind: 1 deposit, 2 purse; any other is refused. Answer: 4 bytes. */
QV_API uint32_t Cmd_Ic_EpEdGetBalance(uint8_t kind, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* INITIALIZE FOR LOAD 80 50 00 kind. kind: as above. data11: key index, amount (4), terminal number (6). Answer: 16
 * bytes: old balance (4), counter (2), key version, algorithm, random (4), MAC1 (4). */
QV_API uint32_t Cmd_Ic_EpEdInitializeForLoad(uint8_t kind, const uint8_t *data11, uint8_t *resp,
                                             uint32_t *respLen) QV_NOEXCEPT;

/* CREDIT FOR LOAD 80 52 00 00. data11: date (4), time (3), MAC2 (4). Answer: TAC (4). */
QV_API uint32_t Cmd_Ic_EpEdCreditForLoad(const uint8_t *data11, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* INITIALIZE FOR UNLOAD 80 50 05 kind; kind, data11 and answer as for the load. */
QV_API uint32_t Cmd_Ic_EpEdInitializeForUnLoad(uint8_t kind, const uint8_t *data11, uint8_t *resp,
                                               uint32_t *respLen) QV_NOEXCEPT;

/* DEBIT FOR UNLOAD 80 54 03 00. data11: date (4), time (3), MAC2 (4). Answer: MAC3 (4). */
QV_API uint32_t Cmd_Ic_EpEdDebitForUnLoad(const uint8_t *data11, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* INITIALIZE FOR PURCHASE 80 50 01 kind; data11 as for the load, kind is not checked. The answer (15 bytes) is dropped;
 * a host that needs it for MAC1 sends the command with Cmd_Ic_PbocSendAPDU. */
QV_API uint32_t Cmd_Ic_EpEdInitializeForPurchase(uint8_t kind, const uint8_t *data11) QV_NOEXCEPT;

/* DEBIT FOR PURCHASE / CASH WITHDRAW 80 54 01 00. data15: terminal's serial number (4), date (4), time (3), MAC1 (4).
 * The answer (TAC and MAC2, 8 bytes) is dropped, as above. */
QV_API uint32_t Cmd_Ic_EpEdDebitForPurchaseOrCashWithdraw(const uint8_t *data15) QV_NOEXCEPT;

/* READ BINARY 00 B0, P1 from the low five bits of sfi, P2 offset. le: bytes wanted; 0: no Le is sent. */
QV_API uint32_t Cmd_Ic_EpEdReadBinary(uint8_t sfi, uint8_t offset, uint8_t le, uint8_t *resp,
                                      uint32_t *respLen) QV_NOEXCEPT;

/* READ RECORD 00 B2 as purse cards take it: the file in P1 as above, the record's number in P2. */
QV_API uint32_t Cmd_Ic_EpEdRead(uint8_t sfi, uint8_t record, uint8_t le, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;

/* UPDATE BINARY 00 D6, P1 and P2 as for READ BINARY. */
QV_API uint32_t Cmd_Ic_EpEdUpdateBinary(uint8_t sfi, uint8_t offset, const uint8_t *data, uint32_t len) QV_NOEXCEPT;

/* What a card's status word means: "ErrCode: 6A82: ..." in GBK, NUL-terminated, in a buffer of the library that the
 * next call overwrites. The words 63Cx, 6Cxx and 61xx get the text of 9000; 63Cx ("0x63C2") with the tries that are
 * left, 6Cxx with the right length. The second: of the last card status word. */
QV_API const char *ICC_CardCmdShowErrMsg(uint32_t code) QV_NOEXCEPT;
QV_API const char *ICC_CardCmdShowLastErrMsg(void) QV_NOEXCEPT;

/* ---- objects shared with the EMV kernel ---------------------------------------------------------------------------
 *
 * What a kernel offers stands in emv_kernel.h. */

/* The device operation table. Only the kernel writes it; slots as in QV_APP_SetFuncP. Each call reads it anew. While
 * all slots are null, opening, closing, powering down and exchanging go straight to the reader, whatever
 * g_stCallBackFunc says. With a table, a null slot 2 or 3 means that opening or closing does nothing and succeeds, a
 * null slot 6 that powering down does nothing and the result so far stays, a null slot 8 that every exchange fails. All
 * null at load. */
extern QV_API void *stICOp[10];

extern QV_API uint8_t g_stProc[3168];   /* the kernel's process record; fields: emv_kernel.h */
extern QV_API uint8_t stICS[200];       /* the kernel's */
extern QV_API char *pszEmvData;         /* the kernel's transaction data; null: none */
extern QV_API uint8_t g_szEmvbuf[8192]; /* the kernel's data buffer, to which the process record points */
extern QV_API uint32_t g_nIcAlgorithm;  /* read by the kernel; QV_APP_SetIcAlgorithm */

/* Which of the library's own callbacks work; 0 switches one off, so that it does nothing and gives 0. nCommRW is only
 * kept. */
typedef struct {
    int32_t nOpen, nClose, nPowerUp, nPowerDown, nCommRW;
} StCallBackFunc;

extern QV_API StCallBackFunc g_stCallBackFunc; /* all 1 at load */

/* ---- options: process-wide, 0 at load unless said otherwise ------------------------------------------------------ */

/* 1: the kernel has already made the first cryptogram; QV_APP_genARQC only stores the transaction data. */
QV_API int32_t QV_APP_SetArqcExeFlag(uint32_t flag) QV_NOEXCEPT;
QV_API uint32_t QV_APP_GetArqcExeFlag(void) QV_NOEXCEPT;

/* 1 (at load): card data are selected through PPSE. */
QV_API int32_t QV_APP_SetPpseSelect(uint32_t flag) QV_NOEXCEPT;
QV_API uint32_t QV_APP_GetPpseSelect(void) QV_NOEXCEPT;

/* 1: no second GENERATE AC at completion. */
QV_API int32_t QV_APP_SetNoGac2Flag(uint32_t flag) QV_NOEXCEPT;
QV_API uint32_t QV_APP_GetNoGac2Flag(void) QV_NOEXCEPT;

/* 1: a request of card data for "A" alone (the card number) may stop at the card number. */
QV_API int32_t QV_APP_SetFastReadFlag(uint32_t flag) QV_NOEXCEPT;

/* 1: the host has registered a list of tags (QV_APP_SaveTlvTag). */
QV_API int32_t QV_APP_SetTlvTagFlag(uint32_t flag) QV_NOEXCEPT;
QV_API uint32_t QV_APP_GetTlvTagFlag(void) QV_NOEXCEPT;

/* 1: QV_APP_getIcInfo, _GetIcAidList, _SelectGpo and _ReadRecord power the card down also after a success. */
QV_API int32_t QV_APP_SetInfoPowerOffFlag(uint32_t flag) QV_NOEXCEPT;

/* Sets g_nIcAlgorithm. */
QV_API int32_t QV_APP_SetIcAlgorithm(uint32_t flag) QV_NOEXCEPT;

/* Sets / reads the card-interface character of the last call. type: out, one byte. The second: -2 null. */
QV_API int32_t tfunc_SetIcType(uint8_t type) QV_NOEXCEPT;
QV_API int32_t tfunc_GetIcType(uint8_t *type) QV_NOEXCEPT;

/* ---- callbacks for the kernel ------------------------------------------------------------------------------------ */

/* Hands the library's own callbacks to the kernel. type: the character '0': all of them work; any other: only the
 * exchange does, and slot 9 stays null. Emv_SetFunP's result; -1 no kernel. Changes g_stCallBackFunc; the kernel
 * changes stICOp. */
QV_API int32_t QV_APP_SetEmvFunc(uint8_t type) QV_NOEXCEPT;

/* Hands the host's own callbacks to the kernel. table: ten slots, copied, null where the host has none, with the
 * prototypes of the functions below: reserved; DevOpenPort; DevClosePort; DevPowerOn; DevPowerOnSlot; DevPowerOff;
 * DevPowerOffSlot; DevSendCmd; DevSendCmdSlot; reserved. Emv_SetFunP's result; -1 no kernel; -2 null.
 * Changes g_stCallBackFunc (0 for what the host has no function for, else 1); the kernel changes stICOp. */
QV_API int32_t QV_APP_SetFuncP(void *const table[10]) QV_NOEXCEPT;

/* Dev_Rdz_Ic_ClosePort, whatever the flags say. */
QV_API int32_t CloseDev(void) QV_NOEXCEPT;

/* Dev_Rdz_Ic_OpenPort and Dev_Rdz_Ic_ClosePort: as these; 0 and nothing done while nOpen / nClose is 0.
 * parameter: the switch box's port. */
QV_API int32_t DevOpenPort(const char *port, const char *parameter, uint32_t type, uint32_t reserved,
                           int32_t baud) QV_NOEXCEPT;
QV_API int32_t DevClosePort(void) QV_NOEXCEPT;

/* Dev_Rdz_IccPowerOn and Dev_Rdz_IccPowerOnSlot: as these; 0 and nothing done while nPowerUp is 0. atr: out, at least
 * 512 bytes; atrLen: out, bytes. The second leaves the current slot as it is. */
QV_API int32_t DevPowerOn(uint8_t slotChar, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;
QV_API int32_t DevPowerOnSlot(int32_t slot, uint8_t *atr, uint32_t *atrLen) QV_NOEXCEPT;

/* COMM_Icc_CardReaderPowerOff of the current slot / of that slot: as this; 0 and nothing done while nPowerDown is 0. */
QV_API int32_t DevPowerOff(void) QV_NOEXCEPT;
QV_API int32_t DevPowerOffSlot(int32_t slot) QV_NOEXCEPT;

/* ICC_CardCmdVisitCOS: as this, whatever the flags say. resp: out, at least 1024 bytes; respLen: out, bytes (a host's
 * own function finds the room there is in it). The second makes the slot current first. */
QV_API int32_t DevSendCmd(const uint8_t *command, uint32_t len, uint8_t *resp, uint32_t *respLen) QV_NOEXCEPT;
QV_API int32_t DevSendCmdSlot(int32_t slot, const uint8_t *command, uint32_t len, uint8_t *resp,
                              uint32_t *respLen) QV_NOEXCEPT;

/* Dev_Rdz_SetPowerOnTime, unless g_stCallBackFunc.nPowerUp is 0. seconds: see there. Always 0. */
QV_API int32_t QV_APP_SetDevPowerOnTimeout(uint32_t seconds) QV_NOEXCEPT;

/* ---- session calls ------------------------------------------------------------------------------------------------
 *
 * Calls with a port open the reader, do one thing and close it again: _OpenPort, _ClosePort, _PowerOn, _PowerOff, LEDs,
 * buzzer, device record and _DetectMulCard through the table of stICOp, _SendCommand, _SendCommandDirect, _DetectCard
 * and _ChkDevPresent by themselves. They change what Dev_Rdz_Ic_OpenPort changes. Calls without a port open nothing.
 * port: the reader's name as for Dev_Rdz_Ic_OpenPort. parameter: the switch box's port ("A", "B", "C", "K"; may be
 * null). baud: bits per second. icFlag, cardType: a text whose first character counts.
 * "Converted": the result, whatever it is, goes through the kernel's TY_ConvertErr, so that it is the kernel's standard
 * code; without a kernel it stays as it is. The codes below are those before the conversion.
 * -2 stands for a null port or another null pointer of the host, before anything is opened. */

/* Opens / closes the reader; the arguments of the second are ignored. As Dev_Rdz_Ic_OpenPort and _ClosePort. */
QV_API int32_t QV_APP_OpenPort(const char *port, const char *parameter, int32_t baud) QV_NOEXCEPT;
QV_API int32_t QV_APP_ClosePort(const char *port, const char *parameter, int32_t baud) QV_NOEXCEPT;

/* Powers up a card. icFlag: the card type of Dev_Rdz_IccPowerOn. atrText: out, at least 1025 characters: the ATR in
 * hexadecimal with a NUL; atrLen: out, its characters. They are "" and 0 after every failure, -2 too, and when the
 * other one is null, which leaves the ATR out. Converted. -2; the codes of opening and of Dev_Rdz_IccPowerOn; 0
 * without an ATR while g_stCallBackFunc.nPowerUp is 0. Set the power-up time first (QV_APP_SetPowerOnTimeout): with
 * 0, as at load, a read may wait 1000 seconds. Changes the current slot, the read time-out and, for " ", "!" and
 * types that name no slot, g_nPowerOnModule. */
QV_API int32_t QV_APP_PowerOn(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                              uint32_t *atrLen, char *atrText) QV_NOEXCEPT;

/* Powers down a card. icFlag: "1" contact slot 0; "2" contactless; "3" contact slot 0, then, if that failed, slot 0
 * again, or if the reader's status after it is not 0, contactless; other: the current slot. Converted. -2; minus the
 * reader's status word; the codes of opening and of COMM_Icc_CardReaderPowerOff. Changes the current slot. */
QV_API int32_t QV_APP_PowerOff(const char *port, const char *parameter, int32_t baud, const char *icFlag) QV_NOEXCEPT;

/* Dev_Rdz_Ic_SendCommand, _SendCommandOnly, _SendCommandDirect and _SendCommandOnlyDirect with the same arguments; all
 * converted but the second. */
QV_API int32_t QV_APP_SendCommand(const char *port, const char *parameter, int32_t baud, const char *cardType,
                                  uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen, uint8_t *out) QV_NOEXCEPT;
QV_API int32_t QV_APP_SendCommandOnly(const char *cardType, uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                      uint8_t *out) QV_NOEXCEPT;
QV_API int32_t QV_APP_SendCommandDirect(const char *port, const char *parameter, int32_t baud, uint32_t cmdLen,
                                        const uint8_t *cmd, uint32_t *outLen, uint8_t *out) QV_NOEXCEPT;
QV_API int32_t QV_APP_SendCommandOnlyDirect(uint32_t cmdLen, const uint8_t *cmd, uint32_t *outLen,
                                            uint8_t *out) QV_NOEXCEPT;

/* Dev_Rdz_Ic_DetectCard. state: in, the mode of DealCardSlot in its first byte. Converted. */
QV_API int32_t QV_APP_DetectCard(const char *port, const char *parameter, int32_t baud, uint8_t *state) QV_NOEXCEPT;

/* Dev_Rdz_Ic_ChkDevPresent. Converted. */
QV_API int32_t QV_APP_ChkDevPresent(const char *port, const char *parameter, int32_t baud) QV_NOEXCEPT;

/* Dev_Rdz_SetPowerOnTime. 0; -2 below 0 or above 120 seconds (nothing changes). */
QV_API int32_t QV_APP_SetPowerOnTimeout(int32_t seconds) QV_NOEXCEPT;

/* COMM_IC_MulModuleReset on an open port. Converted. */
QV_API int32_t QV_APP_MulModuleReset(void) QV_NOEXCEPT;

/* LEDs, buzzer, device record: COMM_Icc_SetLEDStatus, _SetLEDStatusEx, _SetBeepStatus and _GetDeviceInfo, whose
 * arguments and results they have. -2; a negative code of opening; after any other result than 0 the reader stays open.
 * The device record ignores its parameter. out: out, at least 1024 bytes. */
QV_API int32_t QV_APP_SetLEDStatu(const char *port, const char *parameter, int32_t baud, uint8_t state) QV_NOEXCEPT;
QV_API int32_t QV_APP_SetLEDStatuEx(const char *port, int32_t baud, uint8_t state, uint8_t mode) QV_NOEXCEPT;
QV_API int32_t QV_APP_SetBeepStatu(const char *port, const char *parameter, int32_t baud, int32_t a,
                                   uint8_t b) QV_NOEXCEPT;
QV_API int32_t QV_APP_GetDeviceInfo(const char *port, const char *parameter, int32_t baud, uint8_t *out) QV_NOEXCEPT;

/* Waits for a card of any kind: COMM_Icc_detectMulCard. kind: seconds to wait. out1, out2: out, at least 512 bytes
 * each, may be null: tracks 2 and 3. The kind that was found (1 to 4); otherwise as the LEDs. */
QV_API int32_t QV_APP_DetectMulCard(const char *port, const char *parameter, int32_t baud, int32_t kind, char *out1,
                                    char *out2) QV_NOEXCEPT;

/* Dev_Rdz_IcGetPcScList, Dev_Rdz_Ic_SetPcscReader, Dev_Rdz_Ic_SetSlot, COMM_Icc_CardReaderGetCardSlot,
 * Dev_Rdz_Ic_AddHid (kind: its index) and Dev_Rdz_Ic_RaiseBaundFlag, as they are. */
QV_API int32_t QV_APP_GetPcscList(char *out) QV_NOEXCEPT;
QV_API int32_t QV_APP_SetPcscReader(const char *name) QV_NOEXCEPT;
QV_API int32_t QV_APP_SetSlot(int32_t slot) QV_NOEXCEPT;
QV_API int32_t QV_APP_GetCardSlot(void) QV_NOEXCEPT;
QV_API int32_t QV_APP_AddHID(int32_t kind, uint64_t pid, uint64_t vid) QV_NOEXCEPT;
QV_API int32_t QV_APP_Ic_RaiseBaundFlag(uint32_t flag) QV_NOEXCEPT;

/* Hands a pointer to the kernel (Emv_Set_TranseData): its result; -1 no kernel. */
QV_API int32_t QV_APP_SetTranseData(void *data) QV_NOEXCEPT;

/* ---- card data and transactions -----------------------------------------------------------------------------------
 *
 * One step of a PBOC debit-credit conversation (EMV Books 3 and 4) each; the kernel keeps what lies between. Arguments
 * and conversion as above; all of them open and close through stICOp. A kernel function that is missing is a failure,
 * -1. When the kernel fails to run a step the card is powered down (exceptions stand with the calls); begin again with
 * the selection then. Outputs are written as far as a step comes: clear them first. outLen: out, characters. The calls
 * with an icFlag change the card-interface character and g_stProc; those that begin a selection clear g_stProc and
 * g_szEmvbuf. After an open that failed, QV_APP_ReadRecord, _genARQC, _CtlScriptData and _GetTranDetail close all the
 * same, the others do not. A function of a kernel or a host must not throw. */

/* Reads card data. tagList: the wanted fields, a letter each; empty: -2. out: out, lettered text, as long as the
 * kernel writes it (a field has at most 1003 characters). */
QV_API int32_t QV_APP_getIcInfo(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                const char *tagList, uint32_t *outLen, char *out) QV_NOEXCEPT;

/* Lists the card's applications. out: out, as long as the kernel writes it. */
QV_API int32_t QV_APP_GetIcAidList(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                   uint32_t *outLen, char *out) QV_NOEXCEPT;

/* Selects an application with / without GET PROCESSING OPTIONS; the card stays powered after a success. aid:
 * hexadecimal text; empty: -2. */
QV_API int32_t QV_APP_SelectAid(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                const char *aid) QV_NOEXCEPT;
QV_API int32_t QV_APP_SelectAidNoGpo(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                     const char *aid) QV_NOEXCEPT;

/* GET PROCESSING OPTIONS for the selected application. */
QV_API int32_t QV_APP_SelectGpo(const char *port, const char *parameter, int32_t baud, const char *icFlag) QV_NOEXCEPT;

/* Reads the selected application's records. tagList, out: as QV_APP_getIcInfo; an empty list is handed on. When
 * reading failed while the info power-off flag is 0, the card stays powered and the result is that of saving what was
 * read. */
QV_API int32_t QV_APP_ReadRecord(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                 const char *tagList, uint32_t *outLen, char *out) QV_NOEXCEPT;

/* Makes the ARQC. unused: ignored. txData: amount, date and so on, as the kernel takes them. arqc: out, up to 16,384
 * hexadecimal characters and a NUL; arqcLen: out, characters.
 * -1 the kernel has no transaction data (pszEmvData is null). When opening, the transaction or the packing failed, the
 * card is powered down and the result is the power-down's: it may be 0, so clear arqcLen first and look at it. (Where
 * the table has no power-down, the failure stays.)
 * While the ARQC-executed flag is 1 only txData are stored and nothing is opened: 0, -2 without transaction data, -1
 * without a kernel; not converted. */
QV_API int32_t QV_APP_genARQC(const char *port, const char *parameter, int32_t baud, const char *unused,
                              const char *txData, uint32_t *arqcLen, char *arqc) QV_NOEXCEPT;
QV_API int32_t QV_APP_GenerateARQC(const char *port, const char *parameter, int32_t baud, const char *unused,
                                   const char *txData, uint32_t *arqcLen, char *arqc) QV_NOEXCEPT;

/* Completes the transaction with the issuer's answer. unused, txData: ignored. arpc: hexadecimal text, at most 2048
 * bytes (more: -2), an odd last character is dropped; null or empty: the issuer did not answer. completion: out, up to
 * 16,384 hexadecimal characters and a NUL; completionLen: out, characters. scriptResult: out, at least 807 characters:
 * "DF3105", the script result in hexadecimal, a NUL. The reader is closed, the card not powered down.
 * The result of reading the script result after a completion, else that of the completion; -1 the kernel has no
 * transaction data. Changes g_stProc. */
QV_API int32_t QV_APP_CtlScriptData(const char *port, const char *parameter, int32_t baud, const char *unused,
                                    const char *txData, const char *arpc, uint32_t *completionLen, char *completion,
                                    char *scriptResult) QV_NOEXCEPT;
QV_API int32_t QV_APP_CloseTransAction(const char *port, const char *parameter, int32_t baud, const char *unused,
                                       const char *txData, const char *arpc, uint32_t *completionLen, char *completion,
                                       char *scriptResult) QV_NOEXCEPT;

/* Reads a log of the card. detailKind: 1 transactions, 2 loads; others are handed on. outLen, out: handed to the
 * kernel. The card is powered down and the reader closed in every case. */
QV_API int32_t QV_APP_GetTranDetail(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                    int32_t detailKind, uint32_t *outLen, char *out) QV_NOEXCEPT;

/* Says that the host has registered a list of tags, which ends with the character end. Sets the TLV-tag flag; the tags
 * themselves go to the kernel by its own means. Converted: -2, although it worked, since no separator stands behind the
 * last tag (0 when end is the separator too); -1 no memory (the flag is set); -2 also for null and for a list without
 * its end (the flag stays). */
QV_API int32_t QV_APP_SaveTlvTag(const char *tagList, char separator, char end) QV_NOEXCEPT;

/* QV_APP_getIcInfo with arguments that are ignored between. */
QV_API int32_t QV_APP_GetIccInfo(const char *port, const char *parameter, int32_t baud, const char *icFlag,
                                 const char *unused5, const char *unused6, const char *tagList, const char *unused8,
                                 uint32_t *outLen, char *out) QV_NOEXCEPT;

QV_END_DECLS

#endif
