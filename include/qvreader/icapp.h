/*
 * icapp.h - the IC application layer: BER-TLV (ISO 7816-4) toolkit, card data as lettered text.
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
 * length of the list in bytes; -1 null. */
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

/* Finds a field by its letter (nTagLen characters). Where it stands; null: absent or null. */
QV_API char *quorvan_find_tag_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen) QV_NOEXCEPT;

/* The value of a field. pOut: out, at least 999 bytes, no NUL is written; pnOutLen: out, characters. 0; -1 absent, cut
 * off by the text's end, or null (outputs stay). */
QV_API int32_t quorvan_get_tag_value_app(const char *pTag, int32_t nTagLen, const char *pszText, int32_t nTextLen,
                                         char *pOut, int32_t *pnOutLen) QV_NOEXCEPT;

/* ---- callbacks ------------------------------------------------------------------------------------------------- */

/* Which callbacks of the application layer work; 0 switches one off. */
typedef struct {
    int32_t nOpen, nClose, nPowerUp, nPowerDown, nCommRW;
} StCallBackFunc;

extern QV_API StCallBackFunc g_stCallBackFunc; /* all 1 at load */

/* Dev_Rdz_SetPowerOnTime, unless g_stCallBackFunc.nPowerUp is 0. seconds: see there. Always 0. */
QV_API int32_t QV_APP_SetDevPowerOnTimeout(uint32_t seconds) QV_NOEXCEPT;

QV_END_DECLS

#endif
