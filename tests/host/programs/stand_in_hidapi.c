/* stand_in_hidapi.c - one reader that gives back the last report, without its id. */
#include "check.h"

#include <hidapi.h>
#include <string.h>

struct hid_device_ {
    unsigned char ucLast[64];
};

static struct hid_device_ device;

hid_device *hid_open(unsigned short nVendor, unsigned short nProduct, const wchar_t *pszSerial)
{
    return nVendor == 0x2B46 && nProduct == 0xBE11 && pszSerial == NULL ? &device : NULL;
}

int hid_write(hid_device *pDevice, const unsigned char *pData, size_t nLen)
{
    CHECK(pDevice == &device && nLen > 0 && nLen <= sizeof device.ucLast);
    memset(device.ucLast, 0, sizeof device.ucLast);
    memcpy(device.ucLast, pData + 1, nLen - 1);
    return (int)nLen;
}

int hid_read_timeout(hid_device *pDevice, unsigned char *pData, size_t nLen, int nMillis)
{
    CHECK(pDevice == &device && nLen >= sizeof device.ucLast && nMillis != 0);
    memcpy(pData, device.ucLast, sizeof device.ucLast);
    return (int)sizeof device.ucLast;
}

void hid_close(hid_device *pDevice)
{
    CHECK(pDevice == &device);
}
