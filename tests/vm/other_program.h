// other_program.h - another program's hold on the reader, through libusb.
#pragma once

#include <cstdint>

struct libusb_context;
struct libusb_device_handle;

namespace qvvm {

class OtherProgram {
  public:
    // Throws std::runtime_error when there is no such device.
    OtherProgram(uint16_t nVendor, uint16_t nProduct);
    ~OtherProgram();
    OtherProgram(const OtherProgram &) = delete;
    OtherProgram &operator=(const OtherProgram &) = delete;

    // libusb's results.
    int claim(int nInterface);
    int detach(int nInterface);
    int attach(int nInterface);

  private:
    libusb_context *m_pContext = nullptr;
    libusb_device_handle *m_pHandle = nullptr;
};

} // namespace qvvm
