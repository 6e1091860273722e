/*
 * emv_kernel.h - what the EMV/PBOC kernel offers to the driver library and takes from it. For authors of kernels.
 *
 * The kernel is a library of its own (or part of the host program). The driver library needs none of these functions to
 * load or to be linked: it looks each of them up whenever it is used - as bound by the loader, in the process's global
 * scope, in every loaded library - and a step that needs one which is absent fails with -1. Without TY_ConvertErr
 * results stay as they are.
 *
 * All results are 0 for success unless a line says otherwise. No function may throw. The kernel also uses the objects
 * stICOp, g_stProc, stICS, pszEmvData, g_szEmvbuf and g_nIcAlgorithm of icapp.h, none of which it defines, and asks for
 * options (QV_APP_GetPpseSelect, QV_APP_GetNoGac2Flag, tfunc_GetIcType and so on). It reaches the card only through the
 * table that Emv_SetFunP gets.
 */
#ifndef QVREADER_EMV_KERNEL_H
#define QVREADER_EMV_KERNEL_H

#include "qvreader/export.h"

#include <stdint.h>

/* A kernel that is built with hidden visibility offers these all the same. */
#if defined(__GNUC__)
#define QV_KERNEL __attribute__((visibility("default")))
#else
#define QV_KERNEL
#endif

QV_BEGIN_DECLS

/* ---- process record (g_stProc): where its fields stand, in bytes --------------------------------------------------
 *
 * Card data, the AID list, a selection and a log begin with a cleared record. What goes on from there keeps what
 * stands in it, but for: GPO kind, card type and detail; record reading kind and detail; both the buffer and its size
 * where the pointer is null; completion the fields from EMV_PROC_HAS_ONLINE on. The ARQC changes nothing. */
enum {
    EMV_PROC_KIND = 0,           /* 32 bits: call kind, below */
    EMV_PROC_PPSE = 4,           /* 32 bits: 1 select through PPSE; written for card data only */
    EMV_PROC_CARD_TYPE = 8,      /* 8 bits: the host's card-interface character */
    EMV_PROC_DETAIL = 9,         /* 8 bits: 0; 0x0A transaction log, 0x0B load log */
    EMV_PROC_BUFFER = 16,        /* pointer: the kernel's data buffer */
    EMV_PROC_BUFFER_SIZE = 24,   /* 32 bits: its size, 8192 bytes */
    EMV_PROC_MODE = 32,          /* 8 bits: the character "1" for card data, the AID list and logs, 0 for a selection */
    EMV_PROC_HAS_ONLINE = 60,    /* 32 bits: 1 the online result is there (completion) */
    EMV_PROC_ONLINE_RESULT = 64, /* 32 bits: 0 the issuer answered, -1 it did not */
    EMV_PROC_ISSUER_DATA = 68,   /* up to 2048 bytes: the issuer's answer, binary */
    EMV_PROC_ISSUER_LEN = 2116,  /* 32 bits: its length in bytes */
    EMV_PROC_NO_GAC2 = 3148,     /* 32 bits: 1 no second GENERATE AC */
    EMV_PROC_ARC = 3156,         /* 2 bytes: authorisation response code (tag 8A) */
    EMV_PROC_SIZE = 3168
};

/* Call kinds. */
enum {
    EMV_KIND_INFO = 0,
    EMV_KIND_AID_LIST = 1,
    EMV_KIND_SELECT = 2,
    EMV_KIND_READ_RECORD = 3,
    EMV_KIND_SELECT_NO_GPO = 4,
    EMV_KIND_GPO = 5
};

/* ---- functions -------------------------------------------------------------------------------------------------- */

/* Takes the device operation table (ten slots, see QV_APP_SetFuncP) and stores it in stICOp. zero: 0. */
QV_KERNEL int32_t Emv_SetFunP(int32_t zero, void *const table[10]);

/* Runs selection and reading as the record's kind says. kind: the kind again; for card data 1 when PPSE is wanted, else
 * the card-interface character; for the AID list 1; for a log 0. */
QV_KERNEL int32_t Emv_QV_Start(void *proc, int32_t kind);

/* Runs the transaction up to the first GENERATE AC (EMV Book 3). */
QV_KERNEL int32_t Emv_QV_Trans(void *proc);

/* Completes it with the online result: issuer authentication, scripts, second GENERATE AC. */
QV_KERNEL int32_t EMV_Final(void *proc);

/* Ends the transaction and gives the kernel's state back. lastResult: the result so far. */
QV_KERNEL int32_t Emv_QV_End(int32_t lastResult);

/* Translates a result of the library or the kernel into the host's standard code, which it writes to standardCode. */
QV_KERNEL int32_t TY_ConvertErr(int32_t result, int32_t *standardCode);

/* Sets the list of candidate applications; null and 0 clears it. len: characters. */
QV_KERNEL int32_t TY_DealAidList(const char *list, int32_t len);

/* Writes the stored list of applications. out1024: out, 1024 bytes, cleared, NUL-terminated. */
QV_KERNEL int32_t PackAidList(char *out1024);

/* Writes the card's application list (text first) / the wanted card data as lettered text (length first). */
QV_KERNEL int32_t TY_SaveAidListInfo(char *text, uint32_t *len);
QV_KERNEL int32_t TY_SaveInfoTag(const char *tagList, uint32_t *len, char *text);

/* Stores amount, date and the terminal's other data of a transaction. */
QV_KERNEL int32_t TY_SaveData(const char *txData);

/* Sets a bit of the TVR (0x80: first byte, bit 8). */
QV_KERNEL int32_t SetTVR(uint32_t v);

/* 1: reading may stop once tag 5A is read. It is not taken back; the kernel forgets it after the reading. */
QV_KERNEL int32_t SetRead5AFlag(int32_t v);

/* Packs data for the issuer. out: out, 8192 bytes. kind: 2 ARQC, 1 completion. Bytes written; 0 or below: failed. */
QV_KERNEL int32_t Pack_Data_Emv_Trance(uint8_t *out, int32_t kind);

/* Stores a data object. tag: NUL-terminated bytes. len: bytes in value. source: 49. */
QV_KERNEL int32_t Emv_SaveData(const uint8_t *tag, const uint8_t *value, int32_t len, int32_t source);

/* Reads a data object. tag: NUL-terminated bytes. out: out, 400 bytes. len: out, bytes. */
QV_KERNEL int32_t Emv_GetData(const uint8_t *tag, uint8_t *out, uint32_t *len);

/* Writes the transaction log (kind 1) or the load log (kind 2). out, outLen: the host's. one: 1. */
QV_KERNEL int32_t EMV_GetPbocDetail(int32_t kind, char *out, uint32_t *outLen, int32_t one);

/* Takes a pointer that the host hands over. */
QV_KERNEL int32_t Emv_Set_TranseData(void *data);

/* Powers up an M1 card; all arguments are the host's (Dev_Rdz_M1PowerOn). */
QV_KERNEL int32_t Instr_IC_M1PowerOn(uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6,
                                     uint64_t a7, uint64_t a8);

QV_END_DECLS

#endif
