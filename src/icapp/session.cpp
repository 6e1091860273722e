// session.cpp - the application session: which callbacks work.

#include "qvreader/icapp.h"

StCallBackFunc g_stCallBackFunc = {1, 1, 1, 1, 1};

int32_t QV_APP_SetDevPowerOnTimeout(uint32_t seconds) noexcept
{
    if (g_stCallBackFunc.nPowerUp != 0)
        Dev_Rdz_SetPowerOnTime(seconds);
    return 0;
}
