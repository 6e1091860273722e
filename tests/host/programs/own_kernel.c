/* own_kernel.c - a host that is its own kernel: own_kernel PORT. The library calls its functions, and it and the library
 * use the same objects, here the host's. The kernel reads the card through the table that it got. */
#include "check.h"

#include <qvreader/qvreader.h>
#include <string.h>

void *stICOp[10];
uint8_t g_stProc[EMV_PROC_SIZE];
uint8_t stICS[200];
char *pszEmvData;

static int s_nStarts;
static uint8_t s_response[1024];
static uint32_t s_nResponse;

typedef int32_t (*PowerUp)(uint8_t, uint8_t *, uint32_t *);
typedef int32_t (*Exchange)(const uint8_t *, uint32_t, uint8_t *, uint32_t *);

int32_t Emv_SetFunP(int32_t zero, void *const table[10])
{
    CHECK(zero == 0);
    memcpy(stICOp, table, sizeof stICOp);
    return 0;
}

int32_t Emv_QV_Start(void *proc, int32_t kind)
{
    static const uint8_t challenge[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    PowerUp pfnPowerUp = NULL;
    Exchange pfnExchange = NULL;
    void *pBuffer = NULL;

    CHECK(proc == g_stProc && kind == EMV_KIND_SELECT);
    CHECK(g_stProc[EMV_PROC_CARD_TYPE] == '1');
    memcpy(&pBuffer, g_stProc + EMV_PROC_BUFFER, sizeof pBuffer);
    CHECK(pBuffer == g_szEmvbuf);
    memcpy(&pfnPowerUp, &stICOp[3], sizeof pfnPowerUp);
    memcpy(&pfnExchange, &stICOp[7], sizeof pfnExchange);
    CHECK(pfnPowerUp('1', s_response, &s_nResponse) == 0);
    COMM_Rdz_ChageReadTimeOut(10);
    CHECK(pfnExchange(challenge, sizeof challenge, s_response, &s_nResponse) == 0);
    ++s_nStarts;
    return 0;
}

int32_t TY_DealAidList(const char *list, int32_t len)
{
    CHECK(len == (int32_t)strlen(list));
    return 0;
}

int32_t SetTVR(uint32_t v)
{
    CHECK(v == 0x80);
    return 0;
}

int32_t TY_SaveData(const char *txData)
{
    CHECK(strcmp(txData, "T") == 0);
    return 0;
}

int32_t Emv_QV_Trans(void *proc)
{
    CHECK(proc == g_stProc);
    return 0;
}

int32_t Pack_Data_Emv_Trance(uint8_t *out, int32_t kind)
{
    CHECK(kind == 2);
    out[0] = 0xAB;
    return 1;
}

int32_t TY_ConvertErr(int32_t result, int32_t *standardCode)
{
    *standardCode = result == 0 ? 0 : result - 9000;
    return 0;
}

int main(int nArgs, char **ppArgs)
{
    static char szTransaction[] = "mine";
    char szArqc[20000];
    uint32_t nArqc = 0;

    CHECK(nArgs == 2);
    CHECK(QV_APP_SetEmvFunc('0') == 0);
    CHECK(stICOp[0] == NULL && stICOp[1] != NULL && stICOp[8] != NULL && stICOp[9] == NULL);
    QV_APP_SetPowerOnTimeout(5);
    CHECK(QV_APP_SelectAid(ppArgs[1], "", 9600, "1", "A000000333010101") == 0);
    CHECK(s_nStarts == 1 && s_nResponse == 10 && s_response[8] == 0x90 && s_response[9] == 0x00);
    CHECK(QV_APP_SelectAid(ppArgs[1], "", 9600, "1", "") == -9002);

    CHECK(QV_APP_genARQC(ppArgs[1], "", 9600, "", "T", &nArqc, szArqc) == -9001); /* no transaction data yet */
    pszEmvData = szTransaction;
    CHECK(QV_APP_genARQC(ppArgs[1], "", 9600, "", "T", &nArqc, szArqc) == 0);
    CHECK(nArqc == 2 && strcmp(szArqc, "AB") == 0);
    puts("done");
    return 0;
}
