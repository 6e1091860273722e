/* usb_host.c - a host of a USB reader that gives back what it is sent: usb_host libusb|hidapi. */
#include "check.h"

#include <qvreader/qvreader.h>
#include <string.h>

enum { nVendor = 0x2B46, nProduct = 0xBE11 };

static const uint8_t ucCommand[] = {'c', 'a', 'r', 'd'};

int main(int nArgs, char **ppArgs)
{
    uint8_t ucReply[sizeof ucCommand] = {0};
    int32_t nRead = 0;
    CHECK(nArgs == 2);
    if (strcmp(ppArgs[1], "libusb") == 0) {
        CHECK(COMM_Hid_OpenLinuxUsbLibHid(nVendor, nProduct + 1) == -50);
        for (int i = 0; i < 2; ++i) {
            CHECK(COMM_Hid_OpenLinuxUsbLibHid(nVendor, nProduct) == 0);
            CHECK(COMM_Hid_WriteLinuxUsbLibHid(ucCommand, sizeof ucCommand) == sizeof ucCommand);
            nRead = COMM_Hid_ReadLinuxUsbLibHid(ucReply, sizeof ucReply, 5, NULL);
            CHECK(COMM_Hid_CloseLinuxUsbLibHid() == 0);
        }
    } else {
        CHECK(COMM_Hid_OpenLinuxHid(nVendor, nProduct + 1) != 0);
        CHECK(COMM_Hid_OpenLinuxHid(nVendor, nProduct) == 0);
        CHECK(COMM_Hid_WriteLinuxHid(ucCommand, sizeof ucCommand) == sizeof ucCommand);
        nRead = COMM_Hid_ReadLinuxHid(ucReply, sizeof ucReply, 5, NULL);
        CHECK(COMM_Hid_CloseLinuxHid() == 0);
    }
    CHECK(nRead == sizeof ucReply);
    CHECK(memcmp(ucReply, ucCommand, sizeof ucCommand) == 0);
    return 0;
}
