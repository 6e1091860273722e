// results.h - where results go: standard output, or a file; standard error where standard output is the reader's line.
#pragma once

#include "console.h"
#include "options.h"

#include <fstream>
#include <string>

namespace qvtool {

class Results {
  public:
    // Throws std::runtime_error when the file cannot be written.
    Results(const Options &options, Console &console);

    void put(const std::string &sText);

  private:
    Console &m_console;
    bool m_bConsole; // standard output belongs to the reader
    std::string m_sFile;
    std::ofstream m_file;
};

} // namespace qvtool
