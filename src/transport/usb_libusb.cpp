// usb_libusb.cpp - what the device layer sets for USB readers.

#include "qvreader/transport.h"

uint32_t g_bIsLinuxHidClearZero = 1;

int32_t COMM_Hid_SetLinuxHidClearZero(uint32_t flag) noexcept
{
    g_bIsLinuxHidClearZero = flag;
    return 0;
}
