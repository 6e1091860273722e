/* kernel_free.c - a host without a kernel: kernel_free PORT. What needs one fails with -1, the reader closed. */
#include "check.h"

#include <dirent.h>
#include <qvreader/qvreader.h>
#include <string.h>

static int openDescriptors(void)
{
    int nCount = 0;
    DIR *pFolder = opendir("/proc/self/fd");
    CHECK(pFolder != NULL);
    while (readdir(pFolder) != NULL)
        ++nCount;
    closedir(pFolder);
    return nCount;
}

static void everyStepFails(const char *pszPort)
{
    static char szOut[17000], szScript[810];
    uint32_t nLen = 0;
    CHECK(QV_APP_getIcInfo(pszPort, "", 9600, "1", "A", &nLen, szOut) == -1);
    CHECK(QV_APP_GetIcAidList(pszPort, "", 9600, "1", &nLen, szOut) == -1);
    CHECK(QV_APP_SelectAid(pszPort, "", 9600, "1", "A000000333010101") == -1);
    CHECK(QV_APP_SelectAidNoGpo(pszPort, "", 9600, "1", "A000000333010101") == -1);
    CHECK(QV_APP_SelectGpo(pszPort, "", 9600, "1") == -1);
    CHECK(QV_APP_ReadRecord(pszPort, "", 9600, "1", "A", &nLen, szOut) == -1);
    CHECK(QV_APP_genARQC(pszPort, "", 9600, "", "", &nLen, szOut) == -1);
    CHECK(QV_APP_CtlScriptData(pszPort, "", 9600, "", "", "", &nLen, szOut, szScript) == -1);
    CHECK(QV_APP_GetTranDetail(pszPort, "", 9600, "1", 1, &nLen, szOut) == -1);
    CHECK(QV_APP_getIcInfo(pszPort, "", 9600, "1", "", &nLen, szOut) == -2);
}

int main(int nArgs, char **ppArgs)
{
    static char szAtr[1100];
    uint32_t nAtr = 0;
    int nBefore = openDescriptors();
    void *table[10] = {NULL};

    CHECK(nArgs == 2);
    CHECK(QV_APP_SetEmvFunc('0') == -1);
    CHECK(QV_APP_SetFuncP(table) == -1);
    CHECK(QV_APP_SetEmvFunc('0') == -1); /* the library's callbacks work again */
    CHECK(QV_APP_SetTranseData(table) == -1);
    everyStepFails(ppArgs[1]);
    CHECK(openDescriptors() == nBefore);

    /* What needs no kernel works. */
    CHECK(QV_APP_SetPowerOnTimeout(5) == 0);
    CHECK(QV_APP_PowerOn(ppArgs[1], "", 9600, "1", &nAtr, szAtr) == 0);
    CHECK(nAtr == 24 && strncmp(szAtr, "3B68", 4) == 0 && strlen(szAtr) == 24);
    CHECK(openDescriptors() == nBefore);
    puts("done");
    return 0;
}
