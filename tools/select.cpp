// select: SELECT by name, and what the card says of itself.
#include "card_application.h"
#include "card_message.h"
#include "charset.h"
#include "report.h"
#include "texts.h"
#include "tlv_command.h"
#include "tlv_text.h"

#include <qvreader/icapp.h>

namespace qvtool {

namespace {

// The first or the next application of a name, as the library counts them.
constexpr int32_t nFirstMode = 1;
constexpr int32_t nNextMode = 2;

std::optional<Failure> select(const SelectOptions &select, Session &session, Exchange &exchange)
{
    const auto call = [&](uint8_t *pResponse, uint32_t *pnLength) {
        return Cmd_Ic_PbocSelect_Aid(select.bNext ? nNextMode : nFirstMode, select.aid.data(),
                                     static_cast<uint32_t>(select.aid.size()), pResponse, pnLength);
    };
    return session.exchange("SELECT", call, exchange);
}

void tell(const Options &options, const Exchange &exchange, Outcome &outcome)
{
    const uint32_t nStatus = exchange.status();
    const Bytes data(exchange.data().begin(), exchange.data().end());
    const TlvTree tree = parseTlv(data);
    outcome.sLines += "SELECT " + hexText(options.select.aid) + (options.select.bNext ? " (next)" : "") + " -> " +
                      statusLine(nStatus) + "\n" + forTerminal(tlvLines(tree));
    cJSON *pRoot = outcome.json.get();
    addText(pRoot, "sw", hexWord(nStatus));
    addText(pRoot, "meaning", cardStatusText(nStatus));
    addText(pRoot, "text", cardMessage(nStatus));
    addNumber(pRoot, "milliseconds", static_cast<double>(exchange.nMillis));
    addText(pRoot, "data", hexText(data));
    addTlv(pRoot, tree);
    if (!isCardSuccess(nStatus))
        outcome.nCode = Exit::cardError;
    if (tree.nFault)
        outcome.failure = Failure{Exit::cardError, "the card's answer is " + tlvFaultText(tree), std::nullopt};
}

} // namespace

void driveSelect(const Options &options, Port &port, Session &session, Outcome &outcome)
{
    cJSON *pRoot = outcome.json.get();
    addText(pRoot, "port", options.sPort);
    if (options.channel() != Channel::usb)
        addNumber(pRoot, "baud", options.nBaud);
    addNumber(pRoot, "slot", options.nSlot);
    addText(pRoot, "aid", hexText(options.select.aid));
    outcome.failure = session.open();
    if (!port.devicePath().empty())
        addText(pRoot, "device", port.devicePath());
    if (outcome.failure)
        return;
    Bytes atr;
    outcome.failure = session.powerUp(atr);
    if (outcome.failure)
        return;
    outcome.sLines = atrText(atr, false);
    addText(pRoot, "atr", hexText(atr));
    Exchange exchange;
    outcome.failure = select(options.select, session, exchange);
    if (!outcome.failure)
        tell(options, exchange, outcome);
}

} // namespace qvtool
