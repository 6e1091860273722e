/* layout.h - size and offsets of every record that crosses the boundary, on 64-bit machines; in C and in C++. */
#include "qvreader/qvreader.h"

#include <stddef.h>

#if defined(__cplusplus)
#define QV_HOLDS(expression) static_assert(expression, #expression)
#define QV_FIELD_SIZE(type, field) sizeof(type::field)
#else
#define QV_HOLDS(expression) _Static_assert(expression, #expression)
#define QV_FIELD_SIZE(type, field) sizeof(((type *)0)->field)
#endif
#define QV_SIZE(type, nBytes) QV_HOLDS(sizeof(type) == (nBytes))
#define QV_FIELD(type, field, nOffset, nBytes)                                                                         \
    QV_HOLDS(offsetof(type, field) == (nOffset) && QV_FIELD_SIZE(type, field) == (nBytes))

QV_SIZE(EndConditionFn, 8);

QV_SIZE(Sha1Context, 92);
QV_FIELD(Sha1Context, nTotal, 0, 8);
QV_FIELD(Sha1Context, nState, 8, 20);
QV_FIELD(Sha1Context, ucBuffer, 28, 64);

QV_SIZE(HashSlot, 12);
QV_FIELD(HashSlot, ucKey, 0, 3);
QV_FIELD(HashSlot, ucKeyLen, 3, 1);
QV_FIELD(HashSlot, nData, 4, 4);
QV_FIELD(HashSlot, nValue, 8, 4);

QV_SIZE(HashTable, 24);
QV_FIELD(HashTable, pSlot, 0, 8);
QV_FIELD(HashTable, nCount, 8, 4);
QV_FIELD(HashTable, nSizeIndex, 12, 4);
QV_FIELD(HashTable, pfnHash, 16, 8);

QV_SIZE(TransPortParam, 440);
QV_FIELD(TransPortParam, nWord1, 0, 4);
QV_FIELD(TransPortParam, nType, 4, 4);
QV_FIELD(TransPortParam, nTermType, 8, 4);
QV_FIELD(TransPortParam, nWord4, 12, 4);
QV_FIELD(TransPortParam, nPID, 16, 4);
QV_FIELD(TransPortParam, nVID, 20, 4);
QV_FIELD(TransPortParam, nPort, 24, 4);
QV_FIELD(TransPortParam, nBaud, 28, 4);
QV_FIELD(TransPortParam, nAuxPort, 32, 4);
QV_FIELD(TransPortParam, bAuxPrefix, 36, 4);
QV_FIELD(TransPortParam, szTermPath, 40, 384);
QV_FIELD(TransPortParam, nTimeOut, 424, 4);
QV_FIELD(TransPortParam, pfnEndCondition, 432, 8);

QV_SIZE(BackUpParam, 32);
QV_FIELD(BackUpParam, nTimeOut, 0, 4);
QV_FIELD(BackUpParam, pfnEndCondition, 8, 8);
QV_FIELD(BackUpParam, nType, 16, 4);
QV_FIELD(BackUpParam, bAuxPrefix, 20, 4);
QV_FIELD(BackUpParam, nAuxMode, 24, 4);

QV_SIZE(AuxOp, 8204);
QV_FIELD(AuxOp, nTermType, 0, 4);
QV_FIELD(AuxOp, szPrefix, 4, 4096);
QV_FIELD(AuxOp, nPrefixLen, 4100, 4);
QV_FIELD(AuxOp, szSuffix, 4104, 4096);
QV_FIELD(AuxOp, nSuffixLen, 8200, 4);

QV_SIZE(EndpointInfo, 5);
QV_FIELD(EndpointInfo, cEpaddress, 0, 1);
QV_FIELD(EndpointInfo, cTransferType, 1, 1);
QV_FIELD(EndpointInfo, cTimeInterval, 2, 1);
QV_FIELD(EndpointInfo, cMaxPackeSize, 3, 2);

QV_SIZE(RDZ73xx, 8);
QV_FIELD(RDZ73xx, nType, 0, 4);
QV_FIELD(RDZ73xx, gStatus, 4, 4);

QV_SIZE(StCallBackFunc, 20);
QV_FIELD(StCallBackFunc, nOpen, 0, 4);
QV_FIELD(StCallBackFunc, nClose, 4, 4);
QV_FIELD(StCallBackFunc, nPowerUp, 8, 4);
QV_FIELD(StCallBackFunc, nPowerDown, 12, 4);
QV_FIELD(StCallBackFunc, nCommRW, 16, 4);

QV_SIZE(IcOpenRecord, 696);
QV_FIELD(IcOpenRecord, stParam, 0, 440);
QV_FIELD(IcOpenRecord, szPcscReader, 440, 256);

QV_SIZE(IcCardReader, 12);
QV_FIELD(IcCardReader, nReaderMode, 0, 4);
QV_FIELD(IcCardReader, nTimeOut, 4, 4);
QV_FIELD(IcCardReader, nCardSlot, 8, 4);

QV_SIZE(IcHidId, 16);
QV_FIELD(IcHidId, nPID, 0, 8);
QV_FIELD(IcHidId, nVID, 8, 8);

QV_SIZE(IccCardCmd, 2060);
QV_FIELD(IccCardCmd, cla, 0, 1);
QV_FIELD(IccCardCmd, ins, 1, 1);
QV_FIELD(IccCardCmd, p1, 2, 1);
QV_FIELD(IccCardCmd, p2, 3, 1);
QV_FIELD(IccCardCmd, lc, 4, 1);
QV_FIELD(IccCardCmd, data, 5, 1024);
QV_FIELD(IccCardCmd, lePresent, 1029, 1);
QV_FIELD(IccCardCmd, le, 1030, 1);
QV_FIELD(IccCardCmd, response, 1031, 1024);
QV_FIELD(IccCardCmd, responseLen, 2056, 4);

QV_SIZE(StCardCmdParam, 4);
QV_FIELD(StCardCmdParam, nErrorCode, 0, 4);

QV_SIZE(StDebugTip, 44);
QV_FIELD(StDebugTip, nEnable, 0, 44);

QV_SIZE(g_Hid, 160);
QV_SIZE(g_szPcscReader, 256);

QV_SIZE(g_MsgParam, 440);
QV_SIZE(g_MsgHid, 160);
QV_SIZE(ucTableTrack1, 128);
QV_SIZE(ucTableTrack23, 32);

QV_SIZE(TlvItem, 32);
QV_FIELD(TlvItem, nTagLen, 0, 4);
QV_FIELD(TlvItem, pTag, 8, 8);
QV_FIELD(TlvItem, nValueLen, 16, 4);
QV_FIELD(TlvItem, pValue, 24, 8);

QV_SIZE(TlvValue, 16);
QV_FIELD(TlvValue, nValueLen, 0, 4);
QV_FIELD(TlvValue, pValue, 8, 8);
