#include "discovery.h"

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>

#include "discovery_report.h"
#include "frame_trace.h"
#include "hex_text.h"

namespace refhost {

namespace {

constexpr int kExitNothingAnswered = 3;
constexpr double kMsPerSecond = 1000.0;
// The word every try reads: word 0 of the first word area, which every PLC of the family has.
constexpr int kTryArea = korvan::kAreaFirstWord;
constexpr char kTryAddress[] = "0";

using Clock = std::chrono::steady_clock;

bool isGood(int code) {
    return code == korvan::kResultGood || code == korvan::kResultRemoteGood;
}

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The driver's side of the tries: one port record and one planned word, set for each try.
class Tries {
public:
    Tries(const DriverApi& api, Link& link, const HostOptions& options, DiscoveryReport& report)
        : api_(api), link_(link), options_(options), report_(report) {
        // No retry: a bad reply ends the try at once.
        record_.retryLimit = 0;
        record_.maxUnits = 1;
        record_.portId = kHostPortId;
        record_.hostTag = kHostTag;
        record_.writeMode = korvan::kWriteImageOnly;
        HOSTVAR word;
        word.area = static_cast<quint8>(kTryArea);
        word.addressText = QString::fromLatin1(kTryAddress);
        word.count = 1;
        word_.append(word);
    }
    ~Tries() { api_.setComInfo(nullptr); }
    Tries(const Tries&) = delete;
    Tries& operator=(const Tries&) = delete;

    // The time a try takes when nothing answers: its frames on the line, and the turnaround.
    double silentMs(const Try& t) {
        const Frame& frame = frameOf(t.family);
        const auto line = tools::lineTime(t.line, frame.sendLength + frame.replyLength);
        return std::chrono::duration<double, std::milli>(line).count() + options_.turnaroundMs;
    }

    // Makes the try, traced under `heading`; true when a good reply came, after `replyMs`.
    bool attempt(const Try& t, const std::string& heading, double& replyMs) {
        if (!lineSet_ || t.line != line_) {
            link_.setLine(t.line);
            line_ = t.line;
            lineSet_ = true;
        }
        link_.setFamily(t.family);
        const Protocol& request = plan(t);
        // DataCom replaces the request; keep what is needed afterwards.
        const QByteArray frame = request.frame.left(request.sendLength);
        const int replyLength = request.replyLength;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(frame.constData());
        const Clock::time_point sent = Clock::now();
        const tools::Bytes& reply = link_.exchange(bytes, frame.size(), replyLength, false);
        replyMs = msSince(sent);
        received_.resize(static_cast<int>(reply.size()));
        if (!reply.empty()) {
            memcpy(received_.data(), reply.data(), reply.size());
        }
        const int code = api_.handReply(&received_, received_.size())->result;
        if (options_.trace) {
            const std::string silence =
                "(nothing within " +
                std::to_string(link_.replyTimeoutMs(frame.size(), replyLength)) + " ms)";
            report_.trace(
                {heading,
                 "> " + tools::hexBytes(bytes, frame.size()) + "  | " +
                     describeRequest(bytes, frame.size(), t.family == tools::FrameFamily::Remote),
                 "< " + (reply.empty() ? silence
                                       : tools::hexBytes(reply.data(), reply.size()) + "  | " +
                                             describeReply(reply.data(), reply.size())),
                 "= " + std::to_string(code) + " " + describeResult(code)});
        }
        return isGood(code);
    }

private:
    struct Frame {
        std::size_t sendLength = 0;
        std::size_t replyLength = 0;
    };

    // The request of the try, from the driver.
    const Protocol& plan(const Try& t) {
        record_.defaultStation = t.station;
        record_.remoteMode = t.family == tools::FrameFamily::Remote ? 1 : 0;
        api_.setComInfo(&record_);
        api_.planReads(&word_);
        const Protocol* request = api_.nextRequest();
        if (request == nullptr || request->replyLength <= 0) {
            throw std::runtime_error("the driver planned no read of word " +
                                     std::string(kTryAddress) + " of area " +
                                     std::to_string(kTryArea));
        }
        return *request;
    }

    // The lengths of a family's frames, asked of the driver once: its request is built and then
    // given up as unanswered, without being sent.
    const Frame& frameOf(tools::FrameFamily family) {
        Frame& frame = family == tools::FrameFamily::Remote ? remoteFrame_ : localFrame_;
        if (frame.sendLength == 0) {
            Try t;
            t.family = family;
            const Protocol& request = plan(t);
            frame.sendLength = static_cast<std::size_t>(request.sendLength);
            frame.replyLength = static_cast<std::size_t>(request.replyLength);
            api_.handReply(nullptr, 0);
        }
        return frame;
    }

    const DriverApi& api_;
    Link& link_;
    const HostOptions& options_;
    DiscoveryReport& report_;
    ComInfo record_;
    QList<HOSTVAR> word_;
    tools::LineSettings line_;
    bool lineSet_ = false;
    QByteArray received_;
    Frame localFrame_;
    Frame remoteFrame_;
};

// The tries of the options in the order they are made: by baud rate, then stop bits, parity,
// station and frame family, each in the order of its list, so that the most common settings
// come first and the line is set anew only when they change.
std::vector<Try> discoveryTries(const HostOptions& options) {
    const DiscoveryOptions& d = options.discovery;
    std::vector<Try> tries;
    Try t;
    t.line.dataBits = options.line.dataBits;
    for (const int baud : d.bauds) {
        t.line.baud = baud;
        for (const int stopBits : d.stopBits) {
            t.line.stopBits = stopBits;
            for (const char parity : d.parities) {
                t.line.parity = parity;
                for (const int station : d.stations) {
                    t.station = station;
                    for (const tools::FrameFamily family : d.families) {
                        t.family = family;
                        tries.push_back(t);
                    }
                }
            }
        }
    }
    return tries;
}

}  // namespace

int discover(const DriverApi& api, Link& link, const HostOptions& options,
             const volatile std::sig_atomic_t& stop) {
    const DiscoveryOptions& d = options.discovery;
    DiscoveryReport report(options.format, isatty(STDERR_FILENO) != 0);
    Tries runner(api, link, options, report);
    const std::vector<Try> tries = discoveryTries(options);
    double estimateMs = 0.0;
    for (const Try& t : tries) {
        estimateMs += runner.silentMs(t);
    }
    report.start(link.place(), {tries.size(), d.bauds.size(), d.parities.size(), d.stopBits.size(),
                                d.stations.size(), d.families.size(), estimateMs / kMsPerSecond});
    const Clock::time_point started = Clock::now();
    std::size_t made = 0;
    std::size_t answered = 0;
    for (const Try& t : tries) {
        if (stop || (d.first && answered > 0)) {
            break;
        }
        const std::string heading = "try " + std::to_string(made + 1) + " of " +
                                    std::to_string(tries.size()) + ": " + describeTry(t);
        report.trying(heading, answered);
        double replyMs = 0.0;
        const bool good = runner.attempt(t, heading, replyMs);
        ++made;
        if (good) {
            ++answered;
            report.answered(t, replyMs);
        }
    }
    report.finish(made, tries.size(), answered, msSince(started) / kMsPerSecond);
    return answered > 0 ? 0 : kExitNothingAnswered;
}

}  // namespace refhost
