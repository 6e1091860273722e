// The command runs with the standard descriptors of the simulator, which therefore leaves input and output to it.
#include "program/usb_serve.h"

#include "control/commands.h"
#include "control/server.h"
#include "program/equip.h"
#include "program/trace_file.h"
#include "system/process.h"
#include "system/text_output.h"
#include "usb/launch.h"

#include <poll.h>
#include <signal.h>

#include <stdexcept>

namespace qvsim {

namespace {

constexpr std::chrono::seconds kGrace{5}; // for a command that is asked to end because the simulator is
constexpr int kCannotStart = 127;         // as shells have it

// Until the command has ended. Its end is the bench's; a bench that was told to stop asks the command to end.
int runHost(EventLoop &loop, Bench &bench, UsbCommand &command)
{
    bool ended = false;
    loop.watch(command.endEvent(), POLLIN, [&](short) {
        ended = true;
        bench.stop();
    });
    bench.run();
    if (!ended)
        command.signal(SIGTERM);
    const TimePoint patience = std::chrono::steady_clock::now() + kGrace;
    while (!ended && std::chrono::steady_clock::now() < patience)
        loop.runOnce(patience);
    loop.forget(command.endEvent());
    if (!ended)
        command.signal(SIGKILL);
    return command.wait();
}

} // namespace

int serveUsb(const Options &options)
{
    TextOutput out(STDOUT_FILENO);
    TextOutput err(STDERR_FILENO);
    if (const std::string trouble = preloadTrouble(); !trouble.empty())
        throw std::runtime_error(trouble);

    EventLoop loop;
    TraceFile trace(options.traceFile);
    Bench bench(loop, options.usbDevices, options.cardPatience, trace);
    for (const std::string &setting : options.usbSettings) {
        std::vector<std::string> told;
        if (const Trouble trouble = bench.setUsb(setting, told))
            throw std::runtime_error("--usb-set " + setting + ": " + *trouble);
    }
    for (const std::string &line : equip(bench, options))
        err.line(line); // standard output is the command's
    const auto execute = [&bench](std::string_view line) { return runCommand(bench, line); };
    std::optional<ControlServer> server;
    if (!options.controlPath.empty())
        server.emplace(loop, options.controlPath, execute);

    const auto leave = [&](int exitCode) {
        const bool allPlayed = !options.expect || tellUnplayed(bench, err);
        return exitCode != 0 || allPlayed ? exitCode : kExitNotPlayed;
    };
    if (options.command.empty()) {
        const StopSignals signals(loop, [&bench](int, bool) { bench.stop(); });
        std::string line = "ready";
        for (const std::string &variable : usbHostEnvironment(bench.usbDirectory()))
            line += " " + variable;
        out.line(line);
        bench.run();
        return leave(0);
    }
    std::optional<UsbCommand> command;
    try {
        command.emplace(options.command, bench.usbDirectory());
    } catch (const std::runtime_error &error) {
        err.line(std::string("qvreader-sim: ") + error.what());
        return kCannotStart;
    }
    const StopSignals signals(loop, [&command](int signal, bool fromTerminal) {
        if (!fromTerminal)
            command->signal(signal);
    });
    return leave(runHost(loop, bench, *command));
}

} // namespace qvsim
