// qvreader: power a card up, send it commands, show what it answers.
#include "card_application.h"
#include "channel.h"
#include "charset.h"
#include "codes.h"
#include "console.h"
#include "device.h"
#include "doctor.h"
#include "json.h"
#include "log_switch.h"
#include "options.h"
#include "port.h"
#include "report.h"
#include "results.h"
#include "session.h"
#include "stripe.h"
#include "stripe_results.h"
#include "stripe_texts.h"
#include "tlv_command.h"
#include "trace.h"
#include "watch.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

namespace {

using namespace qvtool;

// What every run with a reader has around it, in the order in which it is to be taken down.
class Bench {
  public:
    Bench(const Options &options, Console &console)
        : m_console(console), m_watch(
                                  console, [this, &options] { abandon(options); }, !options.aux),
          m_session(options, m_port, m_watch)
    {
        if (sharesTerminal(options))
            console.hold();
        if (options.bTrace && options.command == Command::stripe)
            m_trace.emplace(console, StripeWire(options.stripe.bShow));
        else if (options.bTrace)
            m_trace.emplace(console);
    }
    ~Bench()
    {
        m_session.close();
        m_trace.reset();
        m_console.release();
    }
    Bench(const Bench &) = delete;
    Bench &operator=(const Bench &) = delete;

    Port &port() { return m_port; }
    Watch &watch() { return m_watch; }
    Session &session() { return m_session; }

  private:
    void abandon(const Options &options)
    {
        abandonChannel(options, m_port);
        m_console.release();
    }

    Console &m_console;
    Port m_port;
    Watch m_watch;
    std::optional<Trace> m_trace;
    Session m_session;
};

std::optional<Failure> converse(Session &session, Report &report, Results &results)
{
    const Options &options = report.options;
    if (std::optional<Failure> failure = session.powerUp(report.atr))
        return failure;
    if (!options.bJson)
        results.put(atrText(report.atr, options.bDecodeAtr));
    for (const Bytes &command : options.apdus) {
        Exchange exchange;
        if (std::optional<Failure> failure = session.exchange(command, exchange))
            return failure;
        report.exchanges.push_back(exchange);
        if (!options.bJson)
            results.put(exchangeText(exchange));
    }
    return std::nullopt;
}

// What the library says of a code to hosts, where it has something to say.
void tellMessages(Explanation &explanation)
{
    for (Meaning &meaning : explanation.meanings)
        if (meaning.tyCode)
            meaning.sMessage = tyMessage(*meaning.tyCode);
}

Outcome explainAll(const Options &options)
{
    Outcome outcome;
    cJSON *pList = cJSON_AddArrayToObject(outcome.json.get(), "codes");
    for (const std::string &sCode : options.codes) {
        Explanation explanation = explain(sCode);
        if (!explanation.bNumber) {
            outcome.failure =
                Failure{Exit::usage, "\"" + sCode + "\" is no code: write -56, 0x1005 or 6A82", std::nullopt};
            return outcome;
        }
        cJSON *pItem = appendObject(pList);
        addText(pItem, "code", sCode);
        cJSON *pMeanings = cJSON_AddArrayToObject(pItem, "meanings");
        tellMessages(explanation);
        outcome.sLines += sCode + (explanation.meanings.empty() ? ": nothing is known about this code\n" : "\n");
        for (const Meaning &meaning : explanation.meanings) {
            outcome.sLines += "  " + meaning.sReading + "  " + meaning.sText +
                              (meaning.sMessage.empty() ? "" : " (\"" + forTerminal(meaning.sMessage) + "\")") + "  [" +
                              meaning.sSet + "]\n";
            cJSON *pMeaning = appendObject(pMeanings);
            addText(pMeaning, "reading", meaning.sReading);
            addText(pMeaning, "set", meaning.sSet);
            addText(pMeaning, "meaning", meaning.sText);
            if (!meaning.sMessage.empty())
                addText(pMeaning, "message", meaning.sMessage);
        }
    }
    return outcome;
}

// What can be looked at before anything is opened. Standard input is read here, where a signal still ends the tool.
bool prepared(Options &options, Console &console, Outcome &outcome)
{
    if (options.command != Command::stripe || !options.stripe.bWrite)
        return true;
    outcome.failure = prepareTexts(options, outcome.warnings);
    for (const std::string &sWarning : outcome.warnings)
        console.line("qvreader: note: " + sWarning);
    return !outcome.failure;
}

void runWithReader(const Options &options, Console &console, Outcome &outcome)
{
    Bench bench(options, console);
    if (options.command == Command::doctor)
        examine(options, bench.port(), bench.watch(), outcome);
    else if (options.command == Command::stripe)
        driveStripe(options, console, bench.port(), bench.watch(), outcome);
    else if (options.command == Command::select)
        driveSelect(options, bench.port(), bench.session(), outcome);
    else if (options.command == Command::purse)
        drivePurse(options, bench.port(), bench.session(), outcome);
    else
        driveDevice(options, bench.port(), bench.watch(), bench.session(), outcome);
}

// For a line to be read.
std::string failureText(const Failure &failure)
{
    return "qvreader: " + failure.sText +
           (failure.sMessage.empty() ? "" : "  \"" + forTerminal(failure.sMessage) + "\"");
}

// Commands that tell all they have to say at the end.
int runToOutcome(Options options)
{
    Console console;
    Results results(options, console);
    Outcome outcome;
    if (options.command == Command::explain)
        outcome = explainAll(options);
    else if (options.command == Command::log)
        outcome = switchLog(options);
    else if (options.command == Command::tlv)
        outcome = showTlv(options);
    else if (prepared(options, console, outcome))
        runWithReader(options, console, outcome);
    if (options.bJson) {
        addText(outcome.json.get(), "command", commandName(options.command));
        results.put(outcome.document());
    } else {
        results.put(outcome.sLines);
    }
    if (outcome.failure)
        console.line(failureText(*outcome.failure));
    return outcome.exitCode();
}

int run(const Options &options)
{
    if (options.command != Command::atr && options.command != Command::apdu)
        return runToOutcome(options);
    Report report;
    report.options = options;
    Console console;
    Results results(options, console);
    {
        Bench bench(options, console);
        report.failure = bench.session().open();
        report.sDevice = bench.port().devicePath();
        if (!report.failure)
            report.failure = converse(bench.session(), report, results);
    }
    if (options.bJson)
        results.put(jsonText(report));
    if (report.failure)
        console.line("qvreader: " + report.failure->sText);
    return report.exitCode();
}

int refuse(const ParsedOptions &parsed)
{
    if (parsed.sError.empty())
        return static_cast<int>(Exit::ok);
    if (parsed.options.bJson)
        std::fputs(usageJson(parsed.sError).c_str(), stdout);
    Console().line("qvreader: " + parsed.sError + "\nqvreader " +
                   (parsed.sCommand.empty() ? "" : parsed.sCommand + " ") + "--help shows how it is used");
    return static_cast<int>(Exit::usage);
}

} // namespace

int main(int nArgs, char **ppArgs)
{
    std::signal(SIGPIPE, SIG_IGN); // a closed pipe behind standard output must not leave the port as it is
    try {
        ParsedOptions parsed = parseOptions(nArgs, ppArgs);
        return parsed.bDone ? refuse(parsed) : run(parsed.options);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qvreader: %s\n", error.what());
        return static_cast<int>(Exit::system);
    }
}
