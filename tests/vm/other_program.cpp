#include "other_program.h"

#include <libusb.h>
#include <stdexcept>

namespace qvvm {

OtherProgram::OtherProgram(uint16_t nVendor, uint16_t nProduct)
{
    if (libusb_init(&m_pContext) != 0)
        throw std::runtime_error("libusb_init");
    m_pHandle = libusb_open_device_with_vid_pid(m_pContext, nVendor, nProduct);
    if (m_pHandle == nullptr) {
        libusb_exit(m_pContext);
        throw std::runtime_error("no device for the other program");
    }
}

OtherProgram::~OtherProgram()
{
    libusb_close(m_pHandle);
    libusb_exit(m_pContext);
}

int OtherProgram::claim(int nInterface)
{
    return libusb_claim_interface(m_pHandle, nInterface);
}

int OtherProgram::detach(int nInterface)
{
    return libusb_detach_kernel_driver(m_pHandle, nInterface);
}

int OtherProgram::attach(int nInterface)
{
    return libusb_attach_kernel_driver(m_pHandle, nInterface);
}

} // namespace qvvm
