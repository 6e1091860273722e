/*
 * icapp.h - the IC application layer.
 */
#ifndef QVREADER_ICAPP_H
#define QVREADER_ICAPP_H

#include "qvreader/icreader.h"

QV_BEGIN_DECLS

/* Which callbacks of the application layer work; 0 switches one off. */
typedef struct {
    int32_t nOpen, nClose, nPowerUp, nPowerDown, nCommRW;
} StCallBackFunc;

extern QV_API StCallBackFunc g_stCallBackFunc; /* all 1 at load */

/* Dev_Rdz_SetPowerOnTime, unless g_stCallBackFunc.nPowerUp is 0. seconds: see there. Always 0. */
QV_API int32_t QV_APP_SetDevPowerOnTimeout(uint32_t seconds) QV_NOEXCEPT;

QV_END_DECLS

#endif
