/*
 * first_conversation.c - a small host: two cards in two slots, their answers to reset and a few commands each.
 *
 *     first_conversation PORT
 *
 * Slot 0 holds the simulator's debit-credit card, slot 1 a virtual ISO 7816 card. Every command and reply is shown, and a
 * table of all of them at the end. Exit code 0: every card answered as expected.
 */
#include <qvreader/qvreader.h>
#include <stdio.h>
#include <string.h>

enum {
    nSpeed = 9600,
    nCardSeconds = 20,  /* how long to wait for a card */
    nAnswerSeconds = 10 /* how long to wait for an answer */
};

typedef struct {
    int32_t nSlot;
    const char *pszWhat;
    const char *pszCommand; /* hexadecimal */
    uint32_t nExpected;     /* status word */
} Step;

static const Step steps[] = {
    {0, "SELECT payment directory", "00A404000E315041592E5359532E4444463031", 0x9000},
    {0, "READ RECORD 1", "00B2010C00", 0x9000},
    {0, "READ RECORD 2", "00B2020C00", 0x6A83},
    {0, "SELECT application", "00A4040008A000000333010101", 0x9000},
    {0, "GET PROCESSING OPTIONS", "80A800000B8309000000000001000156", 0x9000},
    {0, "READ RECORD, account", "00B2021400", 0x9000},
    {0, "GET CHALLENGE", "0084000008", 0x9000},
    {1, "SELECT master file", "00A4000C023F00", 0x9000},
    {1, "GET CHALLENGE", "0084000008", 0x9000},
    {1, "READ BINARY, no file", "00B0000000", 0x6986},
};

enum { nSteps = sizeof steps / sizeof steps[0] };

typedef struct {
    uint32_t nReplyLen; /* bytes, status word included */
    uint32_t nStatus;
    uint32_t nMillis;
} Row;

static void showBytes(const char *pszTitle, const uint8_t *pData, uint32_t nLen)
{
    printf("%s", pszTitle);
    for (uint32_t n = 0; n < nLen; ++n)
        printf(" %02X", pData[n]);
    printf("\n");
}

/* 0, or what the library returned. */
static int32_t powerUp(int32_t nSlot)
{
    uint8_t atr[512];
    uint32_t nLen = 0;
    Dev_Rdz_SetPowerOnTime(nCardSeconds);
    int32_t nResult = Dev_Rdz_IccPowerOnSlot(nSlot, atr, &nLen);
    if (nResult != 0) {
        printf("slot %d: no answer to reset, result %d\n", (int)nSlot, (int)nResult);
        return nResult;
    }
    printf("\nslot %d\n", (int)nSlot);
    showBytes("  ATR", atr, nLen);
    return Dev_Rdz_Ic_SetSlot(nSlot);
}

static int32_t exchange(const Step *pStep, Row *pRow)
{
    uint8_t command[261];
    uint8_t response[1024];
    uint32_t nLen = 0;
    int32_t nCommandLen = Str_localMergeBcdToHex(pStep->pszCommand, (int32_t)strlen(pStep->pszCommand), command);
    showBytes("  >", command, (uint32_t)nCommandLen);

    COMM_Rdz_ChageReadTimeOut(nAnswerSeconds); /* reads share a budget: renew it before each exchange */
    uint32_t nBegin = GetTickCount();
    int32_t nResult = ICC_CardCmdVisitCOS(command, (uint32_t)nCommandLen, response, &nLen);
    pRow->nMillis = GetTickCount() - nBegin;
    if (nResult != 0) {
        printf("  < nothing, result %d\n", (int)nResult);
        return nResult;
    }
    showBytes("  <", response, nLen);
    pRow->nReplyLen = nLen;
    pRow->nStatus = ICC_CardCmdGetErrCode();
    return 0;
}

/* Number of steps that went as expected, from the first one on. */
static int converse(Row *pRows)
{
    for (int n = 0; n < nSteps; ++n) {
        const Step *pStep = &steps[n];
        if (n == 0 || steps[n - 1].nSlot != pStep->nSlot) {
            if (n > 0)
                Dev_Rdz_Ic_PowerOffSlot(steps[n - 1].nSlot);
            if (powerUp(pStep->nSlot) != 0)
                return n;
        }
        if (exchange(pStep, &pRows[n]) != 0)
            return n;
        if (pRows[n].nStatus != pStep->nExpected) {
            printf("  expected %04X\n", (unsigned)pStep->nExpected);
            return n;
        }
    }
    Dev_Rdz_Ic_PowerOffSlot(steps[nSteps - 1].nSlot);
    return nSteps;
}

static void showTable(const Row *pRows, int nRows)
{
    printf("\n%-4s  %-26s  %-38s  %5s  %4s  %4s\n", "slot", "what", "command", "reply", "SW", "ms");
    for (int n = 0; n < nRows; ++n)
        printf("%-4d  %-26s  %-38s  %5u  %04X  %4u\n", (int)steps[n].nSlot, steps[n].pszWhat, steps[n].pszCommand,
               (unsigned)pRows[n].nReplyLen, (unsigned)pRows[n].nStatus, (unsigned)pRows[n].nMillis);
}

int main(int nArgs, char **ppArgs)
{
    static Row rows[nSteps];
    if (nArgs != 2) {
        fprintf(stderr, "first_conversation PORT\n");
        return 2;
    }
    initDriver(); /* today's log file, if the log is on */
    int32_t nResult = Dev_Rdz_Ic_OpenPort(ppArgs[1], NULL, 1, 0, nSpeed);
    if (nResult != 0) {
        printf("%s does not open, result %d\n", ppArgs[1], (int)nResult);
        return 1;
    }
    int nDone = converse(rows);
    Dev_Rdz_Ic_ClosePort();
    showTable(rows, nDone);
    printf("\n%d of %d exchanges went as expected\n", nDone, (int)nSteps);
    return nDone == nSteps ? 0 : 1;
}
