/*
 * card_session.c - a small host: powers a bank card in one call, then talks to it on an open port.
 *
 *     card_session PORT
 *
 * The application is selected, its label, languages and log are taken out of the answer, a challenge is asked for, and a
 * record that the card does not have. Exit code 0: the card answered as expected, the last command with its refusal.
 */
#include <iconv.h>
#include <qvreader/qvreader.h>
#include <stdio.h>
#include <string.h>

enum {
    nSpeed = 9600,
    nCardSeconds = 20,    /* how long to wait for a card */
    nAnswerSeconds = 10,  /* how long to wait for an answer */
    nAtrTextSize = 1025,  /* characters, with the NUL */
    nResponseSize = 1024, /* the least that every exchange wants */
    nTextSize = 1024,
    nDone = 0x9000,
    nNoRecord = 0x6A83
};

static const uint8_t aid[] = {0xA0, 0x00, 0x00, 0x03, 0x33, 0x01, 0x01, 0x01};

/* Reads share a budget: renew it before each exchange. */
static void renewTime(void)
{
    COMM_Rdz_ChageReadTimeOut(nAnswerSeconds);
}

/* What a builder returned: the card's status word with its meaning, which the library keeps in GBK, or the reader's
 * failure, which brings no answer. */
static void showStatus(const char *pszWhat, uint32_t nStatus, uint32_t nLen)
{
    char gbk[nTextSize] = {0}, utf8[2 * nTextSize] = {0};
    char *pIn = gbk, *pOut = utf8;
    size_t nIn, nOut = sizeof utf8 - 1;
    if (nLen == 0) {
        printf("%s: no answer, result %d\n", pszWhat, (int)nStatus);
        return;
    }
    iconv_t converter = iconv_open("UTF-8", "GBK");
    strncpy(gbk, ICC_CardCmdShowErrMsg(nStatus), sizeof gbk - 1);
    nIn = strlen(gbk);
    if (converter != (iconv_t)-1) {
        iconv(converter, &pIn, &nIn, &pOut, &nOut);
        iconv_close(converter);
    }
    printf("%s: %s\n", pszWhat, utf8);
}

/* 1: the answer to a selection has all that is shown. */
static int showApplication(const uint8_t *pAnswer, uint32_t nLen)
{
    static const uint8_t languages[] = {0x5F, 0x2D}, logEntry[] = {0x9F, 0x4D};
    uint8_t value[nResponseSize];
    int32_t nBuf = (int32_t)nLen - 2; /* without the status word */
    uint32_t nValue = 0;
    int32_t nFound = 0;

    /* A path of templates from the outside in, one byte a tag. */
    if (Ex_TLV_GetDataByTagandTmplt("\x50", "\x6F\xA5", pAnswer, nBuf, value, &nValue) != 0)
        return 0;
    printf("label: %.*s\n", (int)nValue, (const char *)value);
    /* Or a search through all of them. */
    if (quorvan_get_tag_value(languages, sizeof languages, pAnswer, nBuf, value, &nFound) != 0)
        return 0;
    printf("languages: %.*s\n", (int)nFound, (const char *)value);
    if (quorvan_get_tag_value(logEntry, sizeof logEntry, pAnswer, nBuf, value, &nFound) != 0 || nFound != 2)
        return 0;
    printf("log: file %d, %d records\n", value[0], value[1]);
    return 1;
}

/* The session call opens the reader, powers the card up, and closes again; the card stays powered. */
static int32_t powerUp(const char *pszPort)
{
    char atr[nAtrTextSize];
    uint32_t nLen = 0;
    QV_APP_SetPowerOnTimeout(nCardSeconds);
    int32_t nResult = QV_APP_PowerOn(pszPort, NULL, nSpeed, "1", &nLen, atr);
    if (nResult == 0)
        printf("ATR: %s\n", atr);
    else
        printf("no answer to reset, result %d\n", (int)nResult);
    return nResult;
}

/* On the open port. 1: as expected. */
static int converse(void)
{
    static const uint8_t challenge[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    uint8_t response[nResponseSize];
    uint32_t nLen = 0;

    renewTime();
    uint32_t nStatus = Cmd_Ic_PbocSelect_Aid(0, aid, sizeof aid, response, &nLen);
    showStatus("select", nStatus, nLen);
    if (nStatus != nDone || !showApplication(response, nLen))
        return 0;

    /* Any other command goes out as bytes. */
    renewTime();
    int32_t nResult = QV_APP_SendCommandOnly("1", sizeof challenge, challenge, &nLen, response);
    if (nResult != 0 || nLen != 8 + 2) {
        printf("no challenge, result %d\n", (int)nResult);
        return 0;
    }
    printf("challenge: ");
    for (uint32_t n = 0; n < nLen - 2; ++n)
        printf("%02X", response[n]);
    printf("\n");

    renewTime();
    nLen = 0; /* stays as it is when there is no answer */
    nStatus = Cmd_Ic_PbocReadRecord(2, 3, response, &nLen);
    showStatus("record 3", nStatus, nLen);
    return nStatus == nNoRecord;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: card_session PORT\n");
        return 2;
    }
    if (powerUp(argv[1]) != 0)
        return 1;
    int32_t nResult = QV_APP_OpenPort(argv[1], NULL, nSpeed);
    if (nResult != 0) {
        printf("%s does not open, result %d\n", argv[1], (int)nResult);
        return 1;
    }
    int bDone = converse();
    renewTime();
    Dev_Rdz_Ic_PowerOff();
    QV_APP_ClosePort(argv[1], NULL, nSpeed);
    return bDone ? 0 : 1;
}
