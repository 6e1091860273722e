/* stand_in_libusb.c - one reader that gives back the last report. It frees nothing: its descriptors are its own. */
#include "check.h"

#include <libusb.h>
#include <string.h>

enum { nReport = 64 };

struct libusb_device {
    int nUnused;
};
struct libusb_device_handle {
    int nUnused;
};

static struct libusb_device device;
static struct libusb_device_handle handle;
static libusb_device *list[] = {&device, NULL};
static unsigned char ucLast[nReport];

static const struct libusb_endpoint_descriptor endpoints[] = {{.bEndpointAddress = 0x81,
                                                               .bmAttributes = LIBUSB_TRANSFER_TYPE_INTERRUPT,
                                                               .wMaxPacketSize = nReport,
                                                               .bInterval = 1},
                                                              {.bEndpointAddress = 0x01,
                                                               .bmAttributes = LIBUSB_TRANSFER_TYPE_INTERRUPT,
                                                               .wMaxPacketSize = nReport,
                                                               .bInterval = 1}};
static const struct libusb_interface_descriptor setting = {.bNumEndpoints = 2, .endpoint = endpoints};
static const struct libusb_interface interface = {.altsetting = &setting, .num_altsetting = 1};
static struct libusb_config_descriptor config = {.bNumInterfaces = 1, .interface = &interface};

int libusb_init(libusb_context **ppContext)
{
    CHECK(ppContext == NULL);
    return 0;
}

void libusb_exit(libusb_context *pContext)
{
    CHECK(pContext == NULL);
}

ssize_t libusb_get_device_list(libusb_context *pContext, libusb_device ***pppList)
{
    CHECK(pContext == NULL);
    *pppList = list;
    return 1;
}

void libusb_free_device_list(libusb_device **ppList, int nUnreference)
{
    CHECK(ppList == list && nUnreference == 1);
}

int libusb_get_device_descriptor(libusb_device *pDevice, struct libusb_device_descriptor *pOut)
{
    CHECK(pDevice == &device);
    memset(pOut, 0, sizeof *pOut);
    pOut->idVendor = 0x2B46;
    pOut->idProduct = 0xBE11;
    return 0;
}

int libusb_open(libusb_device *pDevice, libusb_device_handle **ppHandle)
{
    CHECK(pDevice == &device);
    *ppHandle = &handle;
    return 0;
}

void libusb_close(libusb_device_handle *pHandle)
{
    CHECK(pHandle == &handle);
}

int libusb_reset_device(libusb_device_handle *pHandle)
{
    CHECK(pHandle == &handle);
    return 0;
}

int libusb_get_active_config_descriptor(libusb_device *pDevice, struct libusb_config_descriptor **ppConfig)
{
    CHECK(pDevice == &device);
    *ppConfig = &config;
    return 0;
}

int libusb_kernel_driver_active(libusb_device_handle *pHandle, int nInterface)
{
    CHECK(pHandle == &handle && nInterface == 0);
    return 1;
}

int libusb_detach_kernel_driver(libusb_device_handle *pHandle, int nInterface)
{
    CHECK(pHandle == &handle && nInterface == 0);
    return 0;
}

int libusb_claim_interface(libusb_device_handle *pHandle, int nInterface)
{
    CHECK(pHandle == &handle && nInterface == 0);
    return 0;
}

int libusb_release_interface(libusb_device_handle *pHandle, int nInterface)
{
    CHECK(pHandle == &handle && nInterface == 0);
    return 0;
}

int libusb_interrupt_transfer(libusb_device_handle *pHandle, unsigned char ucEndpoint, unsigned char *pData, int nLen,
                              int *pnMoved, unsigned int nTimeOut)
{
    CHECK(pHandle == &handle && nLen == nReport && nTimeOut > 0);
    if (ucEndpoint == 0x81)
        memcpy(pData, ucLast, nReport);
    else
        memcpy(ucLast, pData, nReport);
    *pnMoved = nLen;
    return 0;
}

int libusb_bulk_transfer(libusb_device_handle *pHandle, unsigned char ucEndpoint, unsigned char *pData, int nLen,
                         int *pnMoved, unsigned int nTimeOut)
{
    (void)pHandle, (void)ucEndpoint, (void)pData, (void)nLen, (void)pnMoved, (void)nTimeOut;
    return LIBUSB_ERROR_NOT_SUPPORTED; /* it has interrupt endpoints */
}
