// qvreader: power a card up, send it commands, show what it answers.
#include "console.h"
#include "options.h"
#include "port.h"
#include "report.h"
#include "session.h"
#include "trace.h"
#include "watch.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>

namespace {

using namespace qvtool;

void print(const std::string &sText)
{
    std::fwrite(sText.data(), 1, sText.size(), stdout);
    std::fflush(stdout);
}

std::optional<Failure> converse(Session &session, Report &report)
{
    const Options &options = report.options;
    if (std::optional<Failure> failure = session.powerUp(report.atr))
        return failure;
    if (!options.bJson)
        print(atrText(report.atr, options.bDecodeAtr));
    for (const Bytes &command : options.apdus) {
        Exchange exchange;
        if (std::optional<Failure> failure = session.exchange(command, exchange))
            return failure;
        report.exchanges.push_back(exchange);
        if (!options.bJson)
            print(exchangeText(exchange));
    }
    return std::nullopt;
}

int run(const Options &options)
{
    Report report;
    report.options = options;
    Console console;
    {
        Port port;
        Watch watch(console, [&port] { port.restoreSettings(); });
        std::optional<Trace> trace;
        if (options.bTrace)
            trace.emplace(console);
        Session session(options, port, watch);
        report.failure = session.open();
        report.sDevice = port.devicePath();
        if (!report.failure)
            report.failure = converse(session, report);
        session.close();
    }
    if (options.bJson)
        print(jsonText(report));
    if (report.failure)
        console.line("qvreader: " + report.failure->sText);
    return report.exitCode();
}

int refuse(const ParsedOptions &parsed)
{
    if (parsed.sError.empty())
        return static_cast<int>(Exit::ok);
    if (parsed.options.bJson)
        print(usageJson(parsed.sError));
    Console().line("qvreader: " + parsed.sError + "\nqvreader --help shows how it is used");
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
