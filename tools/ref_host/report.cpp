#include "report.h"

#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace refhost {

namespace {

constexpr auto kRedrawEvery = std::chrono::milliseconds(100);
constexpr char kCursorUp[] = "\x1b[%dA";
constexpr char kClearLine[] = "\x1b[K";
constexpr int kNameWidth = 16;
constexpr int kColumnWidth = 8;
constexpr int kStateWidth = 12;

// Words space-separated; bits as a run of 0 and 1, first bit first.
std::string valueText(const VariableValues& row) {
    std::string text;
    const bool words = isWordArea(row.variable->area);
    for (long v : row.values) {
        if (words && !text.empty()) {
            text += ' ';
        }
        text += std::to_string(v);
    }
    return text;
}

std::string jsonString(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"") == std::string::npos) {
        return s;
    }
    std::string out = "\"";
    for (char c : s) {
        out += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return out + "\"";
}

std::string jsonValues(const std::vector<long>& values) {
    std::string text = "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        text += (i == 0 ? "" : ",") + std::to_string(values[i]);
    }
    return text + "]";
}

double meanScanMs(const RunStats& s) {
    return s.scans == 0 ? 0.0 : s.scanMsTotal / static_cast<double>(s.scans);
}

void printStatsText(const RunStats& s) {
    long abandoned = 0;
    std::string byCode;
    for (const auto& [code, count] : s.abandoned) {
        abandoned += count;
        byCode += (byCode.empty() ? " (" : ", ") + std::string("code ") + std::to_string(code) +
                  ": " + std::to_string(count);
    }
    if (!byCode.empty()) {
        byCode += ")";
    }
    std::cerr << std::fixed << std::setprecision(1) << "statistics: " << s.exchanges
              << " exchanges, " << s.good << " good, " << s.retries << " retries, " << abandoned
              << " abandoned" << byCode << "\n"
              << "            " << s.scans << " scans, scan time mean " << meanScanMs(s)
              << " ms, max " << s.scanMsMax << " ms; writes " << s.writesDone << " done, "
              << s.writesFailed << " failed" << std::endl;
    if (s.writesIssued > s.writesDone + s.writesFailed || s.writesRepeated > 0) {
        std::cerr << "            writes issued " << s.writesIssued << ", unanswered "
                  << s.writesUnanswered << ", answered twice " << s.writesRepeated << std::endl;
    }
}

void printStatsJson(const RunStats& s) {
    std::string abandoned;
    for (const auto& [code, count] : s.abandoned) {
        abandoned += (abandoned.empty() ? "\"" : ",\"") + std::to_string(code) +
                     "\":" + std::to_string(count);
    }
    std::cout << std::fixed << std::setprecision(1) << "{\"stats\":{\"exchanges\":" << s.exchanges
              << ",\"good\":" << s.good << ",\"retries\":" << s.retries << ",\"abandoned\":{"
              << abandoned << "},\"scans\":" << s.scans << ",\"scan_ms_mean\":" << meanScanMs(s)
              << ",\"scan_ms_max\":" << s.scanMsMax << ",\"writes_done\":" << s.writesDone
              << ",\"writes_failed\":" << s.writesFailed << ",\"writes_issued\":" << s.writesIssued
              << ",\"writes_unanswered\":" << s.writesUnanswered
              << ",\"writes_repeated\":" << s.writesRepeated << ",\"rss_kb_warm\":" << s.rssKbWarm
              << ",\"rss_kb_end\":" << s.rssKbEnd << "}}" << std::endl;
}

}  // namespace

Report::Report(Format format, bool terminal) : format_(format), terminal_(terminal) {}

void Report::start(const std::string& link) {
    std::cerr << "korvan_ref_host: polling " << link << std::endl;
    if (format_ == Format::Csv) {
        std::cout << "scan,ms,name,station,area,address,values,state" << std::endl;
    }
}

bool Report::showsScan() const {
    return format_ != Format::Table ||
           (terminal_ && std::chrono::steady_clock::now() - lastDraw_ >= kRedrawEvery);
}

void Report::scan(long number, long elapsedMs, const std::vector<VariableValues>& rows) {
    switch (format_) {
        case Format::Table:
            if (showsScan()) {
                drawTable(rows);
            }
            break;
        case Format::Csv:
            for (const VariableValues& r : rows) {
                std::cout << number << ',' << elapsedMs << ',' << csvField(r.variable->name) << ','
                          << r.station << ',' << r.variable->area << ','
                          << csvField(r.variable->address) << ',' << valueText(r) << ',' << r.state
                          << '\n';
            }
            std::cout.flush();
            break;
        case Format::Json:
            for (const VariableValues& r : rows) {
                std::cout << "{\"scan\":" << number << ",\"ms\":" << elapsedMs
                          << ",\"name\":" << jsonString(r.variable->name)
                          << ",\"station\":" << r.station << ",\"area\":" << r.variable->area
                          << ",\"address\":" << jsonString(r.variable->address)
                          << ",\"values\":" << jsonValues(r.values)
                          << ",\"state\":" << jsonString(r.state) << "}\n";
            }
            std::cout.flush();
            break;
    }
}

void Report::writeResult(const std::string& write, bool done) {
    if (format_ == Format::Json) {
        std::cout << "{\"write\":" << jsonString(write) << ",\"status\":\""
                  << (done ? "done" : "failed") << "\"}" << std::endl;
    } else {
        std::cerr << "write " << write << ": " << (done ? "done" : "failed") << std::endl;
        // The message went below the table; draw it anew underneath.
        drawnLines_ = 0;
    }
}

void Report::finish(const std::vector<VariableValues>& rows, const RunStats& stats) {
    if (format_ == Format::Table) {
        drawTable(rows);
    }
    printStatsText(stats);
    if (format_ == Format::Json) {
        printStatsJson(stats);
    }
}

void Report::drawTable(const std::vector<VariableValues>& rows) {
    std::ostringstream out;
    if (terminal_ && drawnLines_ > 0) {
        char up[16];
        std::snprintf(up, sizeof up, kCursorUp, drawnLines_);
        out << up;
    }
    const char* clear = terminal_ ? kClearLine : "";
    out << std::left << std::setw(kNameWidth) << "variable" << std::setw(kColumnWidth) << "station"
        << std::setw(kStateWidth) << "state"
        << "value" << clear << '\n';
    for (const VariableValues& r : rows) {
        out << std::setw(kNameWidth) << r.variable->name << std::setw(kColumnWidth) << r.station
            << std::setw(kStateWidth) << r.state << valueText(r) << clear << '\n';
    }
    std::cout << out.str() << std::flush;
    drawnLines_ = static_cast<int>(rows.size()) + 1;
    lastDraw_ = std::chrono::steady_clock::now();
}

}  // namespace refhost
