// The part of the command line that is about USB.
#pragma once

#include "program/options.h"

namespace CLI {
class App;
}

namespace qvsim {

class UsbOptions {
  public:
    void addTo(CLI::App &app, Options &options);
    // Behind the parsing. Throws CLI's error with the reason.
    void finish(const CLI::App &app, Options &options) const;

  private:
    std::vector<std::string> ids_{"2B46:BE11"};
    std::string endpoints_ = "in,out";
    bool noDriver_ = false;
    UsbDeviceOptions device_;
};

// The place of the first "--" behind --usb, or argc; what follows it is the command.
int findUsbCommand(int argc, char **argv);

} // namespace qvsim
