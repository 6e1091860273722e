// session.h - one conversation with one card: open, power up, exchange, power down, close.
#pragma once

#include "exit_codes.h"
#include "hex.h"
#include "options.h"
#include "port.h"
#include "watch.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace qvtool {

struct Failure {
    Exit nCode;
    std::string sText;
    std::optional<int32_t> nResult; // of the library call that failed
    std::string sMessage = {};      // the library's text for hosts, UTF-8; empty: none
};

struct Exchange {
    Bytes command;     // empty where the library makes the command
    std::string sName; // of such a command
    Bytes response;    // data, SW1, SW2
    int64_t nMillis = 0;

    BytesView data() const { return BytesView(response).first(response.size() - 2); }
    uint32_t status() const;
};

// A card command of the library: room for the answer, its length, the command's result.
using CardCall = std::function<uint32_t(uint8_t *pResponse, uint32_t *pnLength)>;

class Session {
  public:
    Session(const Options &options, Port &port, Watch &watch);
    ~Session(); // as close()
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    std::optional<Failure> open();
    // In the slot of the options / in another one, which then is the current one.
    std::optional<Failure> powerUp(Bytes &atr) { return powerUp(m_options.nSlot, atr); }
    std::optional<Failure> powerUp(int nSlot, Bytes &atr);
    // With the card in the current slot.
    std::optional<Failure> exchange(const Bytes &command, Exchange &out);
    // sName: how the command is told. An answer that the library keeps to itself is its status word alone.
    std::optional<Failure> exchange(const std::string &sName, const CardCall &call, Exchange &out);
    void useSlot(int nSlot);
    // Powers each card down and closes the port; whatever fails here changes nothing any more.
    void close();

    // What a negative result of an exchange means for the user.
    Failure failed(const std::string &sDoing, int32_t nResult);
    // The result of a call that reads: over USB the library reports silence as success with nothing.
    int32_t settled(int32_t nResult, size_t nLen) const;

  private:
    // One call of the library that asks the card and writes its answer.
    using AskCall = std::function<int32_t(uint8_t *pResponse, uint32_t *pnLength)>;

    std::optional<Failure> cancelled() const;
    std::optional<Failure> ask(const std::string &sWhat, size_t nCommand, const AskCall &call, Exchange &out);
    void powerDown();

    const Options &m_options;
    Port &m_port;
    Watch &m_watch;
    bool m_bOpen = false;
    std::vector<int> m_mayBePowered; // slots
};

} // namespace qvtool
