/* host.c - a C11 host: opens the reader, powers the card up, exchanges APDUs in both forms, closes. */
#include "check.h"

#include <cjson/cJSON.h>
#include <qvreader/qvreader.h>
#include <string.h>

static const uint8_t atrOfTheCard[] = {0x3B, 0x68, 0, 0, 'Q', 'V', 'S', 'I', 'M', '-', 'D', 'C'};

static void powerUp(void)
{
    uint8_t atr[512];
    uint32_t nLen = 0;
    CHECK(Dev_Rdz_SetPowerOnTime(3) == 0);
    CHECK(g_nPowerOnTimeout == 3);
    CHECK(Dev_Rdz_IccPowerOn('1', atr, &nLen) == 0);
    CHECK(nLen == sizeof atrOfTheCard && memcmp(atr, atrOfTheCard, nLen) == 0);
}

static void plainApdu(void)
{
    static const uint8_t challenge[] = {0x00, 0x84, 0x00, 0x00, 0x08};
    static const uint8_t expected[] = {0x3A, 0x91, 0x5C, 0xE7, 0x08, 0x4D, 0xB2, 0xF6, 0x90, 0x00};
    uint8_t response[1024];
    uint32_t nLen = 0;
    CHECK(COMM_Rdz_ChageReadTimeOut(5) == 0);
    CHECK(ICC_CardCmdVisitCOS(challenge, sizeof challenge, response, &nLen) == 0);
    CHECK(nLen == sizeof expected && memcmp(response, expected, nLen) == 0);
    CHECK(ICC_CardCmdGetErrCode() == 0x9000 && stCardCmdParam.nErrorCode == 0x9000);
}

/* The record, and what stands in it at the offsets that other languages use. */
static void apduInARecord(void)
{
    static IccCardCmd record;
    record.ins = 0xA4;
    record.p1 = 0x04;
    record.lc = 5;
    memcpy(record.data, "\xA0\x00\x00\x03\x33", 5);
    record.lePresent = 1;
    CHECK(COMM_Rdz_ChageReadTimeOut(5) == 0);
    CHECK(ICC_CardCmd(&record) == 0);
    CHECK(record.responseLen == 0x48 + 4);
    CHECK(record.response[0] == 0x6F && record.response[1] == 0x48);
    CHECK(record.response[record.responseLen - 2] == 0x90 && record.response[record.responseLen - 1] == 0x00);

    const unsigned char *pRaw = (const unsigned char *)&record;
    uint32_t nLen = 0;
    memcpy(&nLen, pRaw + 2056, sizeof nLen);
    CHECK(nLen == record.responseLen);
    CHECK(pRaw[1031] == 0x6F && pRaw[1029] == 1 && pRaw[5] == 0xA0);
}

static void jsonOfThePackage(void)
{
    cJSON *pRoot = cJSON_Parse("{\"n\":1}");
    CHECK(pRoot != NULL && cJSON_GetObjectItem(pRoot, "n")->valueint == 1);
    cJSON_Delete(pRoot);
}

int main(int nArgs, char **ppArgs)
{
    CHECK(nArgs == 2);
    CHECK(Dev_Rdz_Ic_OpenPort(ppArgs[1], NULL, 1, 0, 9600) == 0);
    CHECK(stRDZ73xx.nType == 1 && stBackUpParam.nType == 1 && g_AuxFd >= 0);
    CHECK(strcmp(g_sParam.stParam.szTermPath, ppArgs[1]) == 0);
    powerUp();
    plainApdu();
    apduInARecord();
    CHECK(Dev_Rdz_Ic_PowerOff() == 0);
    CHECK(Dev_Rdz_Ic_ClosePort() == 0);
    CHECK(g_AuxFd == -2);
    jsonOfThePackage();
    puts("done");
    return 0;
}
