// qvreader-sim: start, run until told to stop, leave nothing behind.
#include "channels/device_link.h"
#include "control/client.h"
#include "control/commands.h"
#include "control/server.h"
#include "program/equip.h"
#include "program/from_log.h"
#include "program/options.h"
#include "program/tap.h"
#include "program/trace_file.h"
#include "program/usb_serve.h"
#include "system/process.h"
#include "system/text_output.h"

#include <cstdio>
#include <list>
#include <stdexcept>

namespace {

using namespace qvsim;

int serve(const Options &options)
{
    TextOutput out(STDOUT_FILENO);
    TextOutput err(STDERR_FILENO);
    const auto remark = [&](const std::string &text) {
        if (!options.quiet)
            err.line("qvreader-sim: " + text);
    };

    EventLoop loop;
    TraceFile trace(options.traceFile);
    Bench bench(loop, options.baud, options.cardPatience, trace);
    const StopSignals signals(loop, [&bench](int, bool) { bench.stop(); });
    if (const TerminalFamily *const family = findTerminalFamily(options.terminal))
        bench.putTerminal(*family, options.auxPort);

    for (const std::string &line : equip(bench, options))
        out.line(line);
    std::list<DeviceLink> links;
    for (const std::string &path : options.links) {
        links.emplace_back(path, bench.ptyPath());
        remark(path + " leads to " + bench.ptyPath());
    }
    const auto execute = [&bench](std::string_view line) { return runCommand(bench, line); };
    ControlInput input(loop, STDIN_FILENO, execute, out);
    std::optional<ControlServer> server;
    if (!options.controlPath.empty()) {
        server.emplace(loop, options.controlPath, execute);
        remark("control commands: qvreader-sim ctl " + options.controlPath + " help");
    }
    out.line("ready " + bench.ptyPath());
    const bool whole = bench.run();
    if (!whole)
        err.line("qvreader-sim: the pseudo-terminal broke down");
    const bool allPlayed = !options.expect || tellUnplayed(bench, err);
    return !whole ? 1 : allPlayed ? 0 : kExitNotPlayed;
}

int listen(const Options &options)
{
    TextOutput out(STDOUT_FILENO);
    TextOutput err(STDERR_FILENO);
    EventLoop loop;
    TraceFile trace(options.traceFile);
    Tap tap(loop, options.tapTty, options.baud, trace);
    const StopSignals signals(loop, [&tap](int, bool) { tap.stop(); });
    std::list<DeviceLink> links;
    for (const std::string &path : options.links)
        links.emplace_back(path, tap.ptyPath());
    out.line("ready " + tap.ptyPath());
    const bool whole = tap.run();
    if (!options.recordFile.empty() && !tap.record(options.recordFile) && !options.quiet)
        err.line("qvreader-sim: nothing recorded: no card has answered a power-on");
    if (!whole)
        err.line("qvreader-sim: the line broke down");
    return whole ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    qvsim::prepareProcess();
    try {
        const qvsim::ParsedOptions parsed = qvsim::parseOptions(argc, argv);
        if (parsed.done)
            return parsed.exitCode;
        if (parsed.options.isControlCall)
            return qvsim::callControl(parsed.options.controlCallPath, parsed.options.controlCallLine);
        if (!parsed.options.logFiles.empty())
            return qvsim::convertLogs(parsed.options);
        if (parsed.options.isTap)
            return listen(parsed.options);
        return parsed.options.isUsb ? qvsim::serveUsb(parsed.options) : serve(parsed.options);
    } catch (const std::exception &error) {
        qvsim::TextOutput(STDERR_FILENO).line(std::string("qvreader-sim: ") + error.what());
        return 1;
    }
}
