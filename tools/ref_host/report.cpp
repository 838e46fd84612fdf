#include "report.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "text_escape.h"

namespace refhost {

namespace {

constexpr int kNameWidth = 16;
constexpr int kColumnWidth = 8;
constexpr int kStateWidth = 12;
constexpr int kPortWidth = 10;

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

using Json = nlohmann::ordered_json;

// One JSON line. A name or address from a tag file may hold bytes that are not UTF-8: they come
// out as U+FFFD, so that every line parses.
std::string jsonLine(const Json& line) {
    return line.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

// Milliseconds to one decimal, as the text statistics show them.
double tenths(double ms) {
    return std::round(ms * 10.0) / 10.0;
}

double meanScanMs(const RunStats& s) {
    return s.scans == 0 ? 0.0 : s.scanMsTotal / static_cast<double>(s.scans);
}

}  // namespace

Report::Report(Format format, bool terminal, std::vector<std::string> ports)
    : format_(format), table_(terminal), ports_(std::move(ports)), rows_(ports_.size()) {}

std::string Report::prefix(int port) const {
    return named() ? "port " + ports_.at(static_cast<std::size_t>(port)) + ": " : "";
}

void Report::start(int port, const std::string& link) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::cerr << "korvan_ref_host: " << prefix(port) << "polling " << link << std::endl;
    if (format_ == Format::Csv && !headerShown_) {
        std::cout << (named() ? "port," : "") << "scan,ms,name,station,area,address,values,state"
                  << std::endl;
        headerShown_ = true;
    }
}

void Report::error(int port, const std::string& what) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::cerr << "korvan_ref_host: " << prefix(port) << what << std::endl;
    table_.moveBelow();
}

void Report::trace(int port, const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += prefix(port) + line + '\n';
    }
    std::lock_guard<std::mutex> lock(mutex_);
    std::cerr << text << std::flush;
}

// Asked by every polling thread after every scan, so without the lock: the table keeps the time
// of its last drawing in an atomic.
bool Report::showsScan() const {
    return format_ != Format::Table || table_.due();
}

void Report::scan(int port, long number, long elapsedMs, std::vector<VariableValues> rows) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::string name = named() ? ports_.at(static_cast<std::size_t>(port)) : "";
    switch (format_) {
        case Format::Table:
            rows_.at(static_cast<std::size_t>(port)) = std::move(rows);
            if (showsScan()) {
                drawTable();
            }
            break;
        case Format::Csv:
            for (const VariableValues& r : rows) {
                std::cout << (named() ? csvField(name) + "," : "") << number << ',' << elapsedMs
                          << ',' << csvField(r.variable->name) << ',' << r.station << ','
                          << r.variable->area << ',' << csvField(r.variable->address) << ','
                          << valueText(r) << ',' << r.state << '\n';
            }
            std::cout.flush();
            break;
        case Format::Json:
            for (const VariableValues& r : rows) {
                Json line;
                if (named()) {
                    line["port"] = name;
                }
                line["scan"] = number;
                line["ms"] = elapsedMs;
                line["name"] = r.variable->name;
                line["station"] = r.station;
                line["area"] = r.variable->area;
                line["address"] = r.variable->address;
                line["values"] = r.values;
                line["state"] = r.state;
                std::cout << jsonLine(line);
            }
            std::cout.flush();
            break;
    }
}

void Report::writeResult(int port, const std::string& write, bool done) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (format_ == Format::Json) {
        Json line;
        if (named()) {
            line["port"] = ports_.at(static_cast<std::size_t>(port));
        }
        line["write"] = write;
        line["status"] = done ? "done" : "failed";
        std::cout << jsonLine(line) << std::flush;
    } else {
        std::cerr << prefix(port) << "write " << visibleText(write) << ": "
                  << (done ? "done" : "failed") << std::endl;
        // The message went below the table; draw it anew underneath.
        table_.moveBelow();
    }
}

void Report::finish(const std::vector<std::vector<VariableValues>>& rows,
                    const std::vector<const RunStats*>& stats) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (format_ == Format::Table) {
        rows_ = rows;
        drawTable();
    }
    for (std::size_t port = 0; port < stats.size(); ++port) {
        if (stats[port] == nullptr) {
            continue;  // the port never ran
        }
        printStatsText(static_cast<int>(port), *stats[port]);
        if (format_ == Format::Json) {
            printStatsJson(static_cast<int>(port), *stats[port]);
        }
    }
}

void Report::printStatsText(int port, const RunStats& s) const {
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
    const std::string indent(named() ? 12 + prefix(port).size() : 12, ' ');
    std::cerr << std::fixed << std::setprecision(1) << prefix(port) << "statistics: " << s.exchanges
              << " exchanges, " << s.good << " good, " << s.retries << " retries, " << abandoned
              << " abandoned" << byCode << "\n"
              << indent << s.scans << " scans, scan time mean " << meanScanMs(s) << " ms, max "
              << s.scanMsMax << " ms; writes " << s.writesDone << " done, " << s.writesFailed
              << " failed" << std::endl;
    if (s.writesIssued > s.writesDone + s.writesFailed || s.writesRepeated > 0) {
        std::cerr << indent << "writes issued " << s.writesIssued << ", unanswered "
                  << s.writesUnanswered << ", answered twice " << s.writesRepeated << std::endl;
    }
    if (s.bytesDropped > 0) {
        std::cerr << indent << s.bytesDropped << " bytes received and dropped" << std::endl;
    }
}

void Report::printStatsJson(int port, const RunStats& s) const {
    Json abandoned = Json::object();
    for (const auto& [code, count] : s.abandoned) {
        abandoned[std::to_string(code)] = count;
    }
    Json stats;
    stats["exchanges"] = s.exchanges;
    stats["good"] = s.good;
    stats["retries"] = s.retries;
    stats["abandoned"] = abandoned;
    stats["scans"] = s.scans;
    stats["scan_ms_mean"] = tenths(meanScanMs(s));
    stats["scan_ms_max"] = tenths(s.scanMsMax);
    stats["writes_done"] = s.writesDone;
    stats["writes_failed"] = s.writesFailed;
    stats["writes_issued"] = s.writesIssued;
    stats["writes_unanswered"] = s.writesUnanswered;
    stats["writes_repeated"] = s.writesRepeated;
    stats["bytes_dropped"] = s.bytesDropped;
    stats["rss_kb_warm"] = s.rssKbWarm;
    stats["rss_kb_end"] = s.rssKbEnd;
    stats["cpu_ms"] = tenths(s.cpuMs);
    Json line;
    if (named()) {
        line["port"] = ports_.at(static_cast<std::size_t>(port));
    }
    line["stats"] = stats;
    std::cout << jsonLine(line) << std::flush;
}

void Report::drawTable() {
    std::ostringstream out;
    const char* end = table_.lineEnd();
    out << std::left;
    if (named()) {
        out << std::setw(kPortWidth) << "port";
    }
    out << std::setw(kNameWidth) << "variable" << std::setw(kColumnWidth) << "station"
        << std::setw(kStateWidth) << "state"
        << "value" << end;
    for (std::size_t port = 0; port < rows_.size(); ++port) {
        for (const VariableValues& r : rows_[port]) {
            if (named()) {
                out << std::setw(kPortWidth) << ports_[port];
            }
            out << std::setw(kNameWidth) << visibleText(r.variable->name) << std::setw(kColumnWidth)
                << r.station << std::setw(kStateWidth) << r.state << valueText(r) << end;
        }
    }
    table_.draw(out.str());
}

}  // namespace refhost
