/* local_load.c - a host that loads the library with local scope: local_load LIBRARY PORT */
#include "check.h"

#include <dlfcn.h>
#include <stdint.h>
#include <string.h>

static void *s_pLibrary;

/* Function pointers travel through an object pointer, as POSIX has it. */
static void lookUp(const char *pszName, void *ppFunction)
{
    void *pAddress = dlsym(s_pLibrary, pszName);
    if (pAddress == NULL) {
        fprintf(stderr, "%s: %s\n", pszName, dlerror());
        exit(1);
    }
    memcpy(ppFunction, &pAddress, sizeof pAddress);
}

int main(int nArgs, char **ppArgs)
{
    int32_t (*pfnOpen)(const char *, const uint8_t *, uint32_t, uint32_t, int32_t) = NULL;
    int32_t (*pfnPowerOnTime)(uint32_t) = NULL;
    int32_t (*pfnPowerOn)(uint8_t, uint8_t *, uint32_t *) = NULL;
    int32_t (*pfnTimeOut)(uint32_t) = NULL;
    int32_t (*pfnExchange)(const uint8_t *, uint32_t, uint8_t *, uint32_t *) = NULL;
    int32_t (*pfnClose)(void) = NULL;
    int32_t (*pfnKernelCall)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) = NULL;
    void *(*pfnParse)(const char *) = NULL;
    void (*pfnDelete)(void *) = NULL;
    static const uint8_t challenge[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    uint8_t response[1024];
    uint32_t nLen = 0;

    CHECK(nArgs == 3);
    s_pLibrary = dlopen(ppArgs[1], RTLD_NOW | RTLD_LOCAL);
    if (s_pLibrary == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    CHECK(dlsym(RTLD_DEFAULT, "Dev_Rdz_Ic_OpenPort") == NULL);
    lookUp("Dev_Rdz_Ic_OpenPort", &pfnOpen);
    lookUp("Dev_Rdz_SetPowerOnTime", &pfnPowerOnTime);
    lookUp("Dev_Rdz_IccPowerOn", &pfnPowerOn);
    lookUp("COMM_Rdz_ChageReadTimeOut", &pfnTimeOut);
    lookUp("ICC_CardCmdVisitCOS", &pfnExchange);
    lookUp("Dev_Rdz_Ic_ClosePort", &pfnClose);
    lookUp("Dev_Rdz_M1PowerOn", &pfnKernelCall);
    lookUp("cJSON_Parse", &pfnParse);
    lookUp("cJSON_Delete", &pfnDelete);

    CHECK(pfnOpen(ppArgs[2], NULL, 1, 0, 9600) == 0);
    pfnPowerOnTime(3);
    CHECK(pfnPowerOn('1', response, &nLen) == 0 && nLen == 12 && response[0] == 0x3B);
    pfnTimeOut(5);
    CHECK(pfnExchange(challenge, sizeof challenge, response, &nLen) == 0 && nLen == 10 && response[8] == 0x90);
    CHECK(pfnClose() == 0);
    CHECK(pfnKernelCall(0, 0, 0, 0, 0, 0, 0, 0) == -1); /* no kernel is loaded */

    void *pRoot = pfnParse("{}");
    CHECK(pRoot != NULL);
    pfnDelete(pRoot);
    CHECK(dlclose(s_pLibrary) == 0);
    puts("done");
    return 0;
}
