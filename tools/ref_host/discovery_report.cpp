#include "discovery_report.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace refhost {

namespace {

constexpr char kClearLine[] = "\r\x1b[K";
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);
// Off a terminal, a line now and then shows that a long scan goes on.
constexpr auto kProgressLineEvery = std::chrono::seconds(10);
constexpr int kSecondsPerMinute = 60;
constexpr int kSecondsPerHour = 3600;
// Table columns: baud, data bits, parity, stop bits, family, station; then the reply time.
constexpr int kWidths[] = {8, 6, 8, 6, 8, 9};

using Json = nlohmann::ordered_json;

std::string parityName(char parity) {
    switch (parity) {
        case 'E':
            return "even";
        case 'O':
            return "odd";
        default:
            return "none";
    }
}

std::string familyName(tools::FrameFamily family) {
    return family == tools::FrameFamily::Remote ? "remote" : "local";
}

// Tenths of a unit, as the host shows times.
double tenths(double value) {
    return std::round(value * 10.0) / 10.0;
}

std::string tenthsText(double value) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << tenths(value);
    return text.str();
}

// "about 5 min 20 s"
std::string estimate(double seconds) {
    const long s = std::lround(seconds);
    if (s < 1) {
        return "under a second";
    }
    if (s < kSecondsPerMinute) {
        return "about " + std::to_string(s) + " s";
    }
    if (s < kSecondsPerHour) {
        return "about " + std::to_string(s / kSecondsPerMinute) + " min " +
               std::to_string(s % kSecondsPerMinute) + " s";
    }
    return "about " + std::to_string(s / kSecondsPerHour) + " h " +
           std::to_string(s % kSecondsPerHour / kSecondsPerMinute) + " min";
}

std::string counted(std::size_t n, const std::string& one, const std::string& many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string row(const std::vector<std::string>& cells) {
    std::ostringstream line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (i < std::size(kWidths)) {
            line << std::left << std::setw(kWidths[i]) << cells[i];
        } else {
            line << cells[i];
        }
    }
    return line.str();
}

}  // namespace

std::string describeTry(const Try& t) {
    return tools::describeLine(t.line) + ", station " + std::to_string(t.station) + ", " +
           familyName(t.family);
}

void DiscoveryReport::start(const std::string& place, const DiscoveryPlan& plan) {
    std::cerr << "korvan_ref_host: finding the line settings on " << place << ": "
              << counted(plan.tries, "try", "tries") << " ("
              << counted(plan.bauds, "baud rate", "baud rates") << " x "
              << counted(plan.parities, "parity", "parities") << " x "
              << counted(plan.stopBits, "stop-bit setting", "stop-bit settings") << " x "
              << counted(plan.stations, "station", "stations") << " x "
              << counted(plan.families, "frame family", "frame families") << "), "
              << estimate(plan.estimateSeconds) << " if nothing answers" << std::endl;
    switch (format_) {
        case Format::Table:
            std::cout << row({"baud", "bits", "parity", "stop", "family", "station", "reply ms"})
                      << std::endl;
            break;
        case Format::Csv:
            std::cout << "baud,data_bits,parity,stop_bits,family,station,reply_ms" << std::endl;
            break;
        case Format::Json:
            break;
    }
}

void DiscoveryReport::trying(const std::string& heading, std::size_t answered) {
    const Clock::time_point now = Clock::now();
    const std::string text = heading + "; " + std::to_string(answered) + " answered";
    if (terminal_) {
        if (!progressShown_ || now - lastProgress_ >= kRedrawEvery) {
            std::cerr << kClearLine << text << std::flush;
            progressShown_ = true;
            lastProgress_ = now;
        }
    } else if (now - lastProgress_ >= kProgressLineEvery) {
        std::cerr << "korvan_ref_host: " << text << std::endl;
        lastProgress_ = now;
    }
}

void DiscoveryReport::clearProgress() {
    if (progressShown_) {
        std::cerr << kClearLine << std::flush;
        progressShown_ = false;
    }
}

void DiscoveryReport::answered(const Try& t, double replyMs) {
    clearProgress();
    const std::string baud = std::to_string(t.line.baud);
    const std::string dataBits = std::to_string(t.line.dataBits);
    const std::string stopBits = std::to_string(t.line.stopBits);
    const std::string station = std::to_string(t.station);
    switch (format_) {
        case Format::Table:
            std::cout << row({baud, dataBits, parityName(t.line.parity), stopBits,
                              familyName(t.family), station, tenthsText(replyMs)})
                      << std::endl;
            break;
        case Format::Csv:
            std::cout << baud << ',' << dataBits << ',' << parityName(t.line.parity) << ','
                      << stopBits << ',' << familyName(t.family) << ',' << station << ','
                      << tenthsText(replyMs) << std::endl;
            break;
        case Format::Json:
            std::cout << Json{{"baud", t.line.baud},
                              {"data_bits", t.line.dataBits},
                              {"parity", parityName(t.line.parity)},
                              {"stop_bits", t.line.stopBits},
                              {"family", familyName(t.family)},
                              {"station", t.station},
                              {"reply_ms", tenths(replyMs)}}
                             .dump()
                      << std::endl;
            break;
    }
}

void DiscoveryReport::trace(const std::vector<std::string>& lines) {
    clearProgress();
    std::string text;
    for (const std::string& line : lines) {
        text += line + '\n';
    }
    std::cerr << text << std::flush;
}

void DiscoveryReport::finish(std::size_t made, std::size_t total, std::size_t answered,
                             double seconds) {
    clearProgress();
    std::cerr << "korvan_ref_host: "
              << (answered == 0 ? std::string("nothing answered")
                                : counted(answered, "combination", "combinations") + " answered")
              << "; " << made << " of " << counted(total, "try", "tries") << " made in "
              << tenthsText(seconds) << " s" << std::endl;
    if (format_ == Format::Json) {
        std::cout << Json{{"summary",
                           {{"tries", made},
                            {"combinations", total},
                            {"answered", answered},
                            {"seconds", tenths(seconds)}}}}
                         .dump()
                  << std::endl;
    }
}

}  // namespace refhost
