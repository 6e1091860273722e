/* own_names.c - a host that has functions and objects of the library's names.
 *
 * Its functions must not take the place of the library's own ones: each counts its calls, and none may come. Its
 * object g_nPowerOnTimeout must be the one that the library uses, and so must stCardReader, which it only reads. */
#include "check.h"

#include <dlfcn.h>
#include <qvreader/qvreader.h>
#include <string.h>

static int s_nCaptured;

uint32_t g_nPowerOnTimeout = 41;

uint32_t GetTickCount(void)
{
    ++s_nCaptured;
    return 0;
}

char *getLogFilePath(void)
{
    static char szPath[] = "host.log";
    ++s_nCaptured;
    return szPath;
}

char *GetLogTime(void)
{
    static char szTime[] = "host";
    ++s_nCaptured;
    return szTime;
}

int32_t isWriteLog(void)
{
    ++s_nCaptured;
    return 0;
}

int32_t mkdir_s(const char *pszPath)
{
    (void)pszPath;
    ++s_nCaptured;
    return -1;
}

int32_t Str_GetDataLRC(const uint8_t *pData, int32_t nLen)
{
    (void)pData;
    (void)nLen;
    ++s_nCaptured;
    return 0;
}

int32_t WriteBlock(int32_t fd, const uint8_t *buf, int32_t len)
{
    (void)fd;
    (void)buf;
    (void)len;
    ++s_nCaptured;
    return -1;
}

uint32_t COMM_Rdz_GetRecStatus(void)
{
    ++s_nCaptured;
    return 0;
}

int32_t COMM_Dev_ReadDataFromTransPort(uint8_t *buf, uint32_t maxLen)
{
    (void)buf;
    (void)maxLen;
    ++s_nCaptured;
    return -1;
}

static void objectsAreShared(void)
{
    CHECK(dlsym(RTLD_DEFAULT, "g_nPowerOnTimeout") == (void *)&g_nPowerOnTimeout);
    CHECK(Dev_Rdz_SetPowerOnTime(2) == 0);
    CHECK(g_nPowerOnTimeout == 2);
    CHECK(COMM_Icc_CardReaderSetCardSlot(5) == 0);
    CHECK(stCardReader.nCardSlot == 5);
    stCardReader.nCardSlot = 7;
    CHECK(COMM_Icc_CardReaderGetCardSlot() == 7);
    stCardReader.nReaderMode = 1;
    CHECK(Dev_Rdz_Ic_PowerOffSlot(0) == -50);
    stCardReader.nReaderMode = 0;
}

static void theLibraryCallsItself(const char *pszPort)
{
    static const uint8_t challenge[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    uint8_t response[1024];
    uint32_t nLen = 0;
    CHECK(Dev_Rdz_Ic_OpenPort(pszPort, NULL, 1, 0, 9600) == 0);
    CHECK(Dev_Rdz_IccPowerOn('1', response, &nLen) == 0 && nLen == 12);
    CHECK(Dev_Rdz_IccPowerOnSlot(3, response, &nLen) == -0x1005); /* nobody there: after the 2 seconds of above */
    CHECK(COMM_Rdz_ChageReadTimeOut(5) == 0);
    CHECK(ICC_CardCmdVisitCOS(challenge, sizeof challenge, response, &nLen) == 0 && nLen == 10);
    CHECK(Dev_Rdz_Ic_ClosePort() == 0);
    CHECK(s_nCaptured == 0);
}

int main(int nArgs, char **ppArgs)
{
    CHECK(nArgs == 2);
    /* The host's functions stand where a library's calls would look first. */
    uint32_t (*pfnTick)(void) = NULL;
    void *pAddress = dlsym(RTLD_DEFAULT, "GetTickCount");
    memcpy(&pfnTick, &pAddress, sizeof pfnTick);
    CHECK(pfnTick == GetTickCount);
    objectsAreShared();
    theLibraryCallsItself(ppArgs[1]);
    puts("done");
    return 0;
}
