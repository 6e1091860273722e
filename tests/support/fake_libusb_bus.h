// fake_libusb_bus.h - what the faked bus is made of; the two halves of fake_libusb share it.
#pragma once

#include "fake_libusb.h"

#include <deque>
#include <functional>
#include <libusb.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

struct libusb_device {
    size_t nIndex;
};
struct libusb_device_handle {
    size_t nIndex;
};

namespace qvtest {

// A configuration as libusb hands it out: records that point at each other.
struct Config {
    libusb_config_descriptor head{};
    std::vector<libusb_interface> interfaces;
    std::vector<std::vector<libusb_interface_descriptor>> settings;
    std::vector<std::vector<libusb_endpoint_descriptor>> endpoints;
};

struct Scripted {
    int nResult;
    std::optional<int> nMoved; // none: all bytes (OUT), as many as there are (IN)
    bool bUntouched;
    int nErrno;
    Bytes data;
    int nMillis;
};

struct Bus {
    std::mutex guard;
    std::vector<UsbDevice> devices;
    std::map<std::string, std::deque<int>> results;
    std::optional<size_t> nFailAt;
    int nFailResult = 0;
    std::deque<Scripted> out, in;
    std::function<void(const Bytes &)> onOut;
    std::function<void(size_t)> onIn;
    std::function<void()> onInit;
    std::function<void()> onSilence;
    std::function<void(const std::string &)> onCall;
    std::vector<std::string> calls;
    std::vector<Bytes> sent;
    size_t nReads = 0;

    int nContexts = 0;
    std::map<libusb_device **, std::vector<std::unique_ptr<libusb_device>>> lists;
    std::map<libusb_device_handle *, std::unique_ptr<libusb_device_handle>> handles;
    std::map<libusb_config_descriptor *, std::unique_ptr<Config>> configs;
};

Bus &bus();

} // namespace qvtest
