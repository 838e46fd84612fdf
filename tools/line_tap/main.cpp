// korvan_line_tap: listens to a PLC line and never writes to it. Recovers the frames of both
// directions from one device that hears the whole line or two that hear a direction each, pairs
// requests with replies, counts them per station and captures them.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>

#include "byte_io.h"
#include "exchanges.h"
#include "receivers.h"
#include "serial_line.h"
#include "tap_options.h"
#include "tap_report.h"
#include "tool_main.h"

namespace {

using linetap::Clock;

constexpr auto kCheckStopEvery = std::chrono::milliseconds(200);
// What one read takes of a device that never pauses, so that the loop goes on telling frames.
constexpr std::size_t kLongestRead = 4096;

// Waits for bytes on any device until `deadline`; signals end the wait early.
void waitFor(std::vector<pollfd>& polled, Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    poll(polled.data(), polled.size(), static_cast<int>(std::max<long>(0, left.count())));
}

// Reads what each device that woke has; throws tools::LinkClosed naming the one that went away.
void receive(std::vector<pollfd>& polled, const std::vector<std::string>& paths,
             linetap::Receivers& receivers) {
    for (std::size_t i = 0; i < polled.size(); ++i) {
        if (polled[i].revents == 0) {
            continue;
        }
        tools::Bytes bytes;
        try {
            if (tools::readAvailable(polled[i].fd, bytes, kLongestRead) == 0 &&
                (polled[i].revents & (POLLHUP | POLLERR)) != 0) {
                throw tools::LinkClosed("it hung up");
            }
        } catch (const tools::LinkClosed& e) {
            throw tools::LinkClosed(paths[i] + ": " + e.what());
        }
        receivers.feed(i, bytes.data(), bytes.size(), Clock::now());
    }
}

int run(const linetap::TapOptions& options) {
    // The capture file first: one that cannot be written ends the run before it listens.
    tools::LineCapture capture(options.pcapFile, tools::CaptureSide::Tap);
    const std::vector<std::string> paths =
        options.apart() ? std::vector<std::string>{options.requestsDevice, options.repliesDevice}
                        : std::vector<std::string>{options.device};
    std::vector<tools::UniqueFd> devices;
    std::vector<pollfd> polled;
    for (const std::string& path : paths) {
        devices.push_back(
            tools::openSerialDevice(path, options.line, tools::DeviceAccess::ReadOnly));
        polled.push_back({devices.back().get(), POLLIN, 0});
    }
    const volatile std::sig_atomic_t& stop = tools::stopOnSignals();
    const Clock::time_point start = Clock::now();
    linetap::Receivers receivers(options.apart(), options.remoteMode, options.gap());
    linetap::Exchanges exchanges(capture);
    linetap::TapReport report(options.format, isatty(STDOUT_FILENO) != 0, start);
    report.listening(
        (options.apart() ? "requests on " + paths[0] + ", replies on " + paths[1] : paths[0]) +
        " at " + tools::describeLine(options.line));

    const Clock::time_point end = options.seconds > 0
                                      ? start + std::chrono::duration_cast<Clock::duration>(
                                                    std::chrono::duration<double>(options.seconds))
                                      : Clock::time_point::max();
    std::optional<std::string> failure;
    try {
        while (!stop && Clock::now() < end) {
            waitFor(polled,
                    std::min({Clock::now() + kCheckStopEvery, receivers.nextDecision(), end}));
            receive(polled, paths, receivers);
            report.show(exchanges.record(receivers.take(Clock::now())));
            report.refresh(exchanges);
        }
        // What came before the stop is heard too.
        waitFor(polled, Clock::now());
        receive(polled, paths, receivers);
    } catch (const tools::LinkClosed& e) {
        failure = e.what();
    }
    report.show(exchanges.record(receivers.finish()));
    report.show(exchanges.finish());
    report.finish(exchanges);
    if (failure) {
        throw std::runtime_error("lost the line: " + *failure);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return tools::runTool("korvan_line_tap", [&] {
        const linetap::TapOptions options = linetap::parseTapOptions(argc, argv);
        if (options.help) {
            std::cout << linetap::tapUsage();
            return 0;
        }
        return run(options);
    });
}
