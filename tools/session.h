// session.h - one conversation with one card: open, power up, exchange, power down, close.
#pragma once

#include "exit_codes.h"
#include "hex.h"
#include "options.h"
#include "port.h"
#include "watch.h"

#include <cstdint>
#include <optional>
#include <string>

namespace qvtool {

struct Failure {
    Exit nCode;
    std::string sText;
    std::optional<int32_t> nResult; // of the library call that failed
};

struct Exchange {
    Bytes command;
    Bytes response; // data, SW1, SW2
    int64_t nMillis = 0;

    BytesView data() const { return BytesView(response).first(response.size() - 2); }
    uint32_t status() const;
};

class Session {
  public:
    Session(const Options &options, Port &port, Watch &watch);
    ~Session(); // as close()
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    std::optional<Failure> open();
    std::optional<Failure> powerUp(Bytes &atr);
    std::optional<Failure> exchange(const Bytes &command, Exchange &out);
    // Powers the card down and closes the port; whatever fails here changes nothing any more.
    void close();

    // What a negative result of an exchange means for the user.
    Failure failed(const std::string &sDoing, int32_t nResult);
    // The result of a call that reads: over USB the library reports silence as success with nothing.
    int32_t settled(int32_t nResult, size_t nLen) const;

  private:
    std::optional<Failure> cancelled() const;
    void powerDown();

    const Options &m_options;
    Port &m_port;
    Watch &m_watch;
    bool m_bOpen = false;
    bool m_bMayBePowered = false;
};

} // namespace qvtool
