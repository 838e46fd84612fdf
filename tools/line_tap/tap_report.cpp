#include "tap_report.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "hex_text.h"

namespace linetap {

namespace {

using Json = nlohmann::ordered_json;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int kStationWidth = 9;
constexpr int kCountWidth = 10;
constexpr int kTimeWidth = 15;

// Milliseconds to one decimal, as every output shows them.
double tenths(double ms) {
    return std::round(ms * 10.0) / 10.0;
}

std::string tenthsText(double ms) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << ms;
    return text.str();
}

std::string hex(const Bytes& bytes) {
    return tools::hexBytes(bytes.data(), bytes.size());
}

const char* resultName(Result result) {
    switch (result) {
        case Result::Good:
            return "ok";
        case Result::Bad:
            return "bad";
        case Result::Missing:
            return "missing";
        case Result::Broadcast:
            return "broadcast";
    }
    return "";
}

const char* familyName(tools::FrameFamily family) {
    return family == tools::FrameFamily::Remote ? "remote" : "local";
}

Json statsJson(const StationStats& s) {
    Json o;
    o["requests"] = s.requests;
    o["replies"] = s.replies;
    o["bad"] = s.bad;
    o["missing"] = s.missing;
    o["reply_ms_mean"] = tenths(s.replyMsMean());
    o["reply_ms_max"] = tenths(s.replyMsMax);
    return o;
}

void tableRow(std::ostream& out, const std::string& station, const StationStats& s,
              const char* end) {
    out << std::left << std::setw(kStationWidth) << station << std::right << std::setw(kCountWidth)
        << s.requests << std::setw(kCountWidth) << s.replies << std::setw(kCountWidth) << s.bad
        << std::setw(kCountWidth) << s.missing << std::setw(kTimeWidth)
        << tenthsText(s.replyMsMean()) << std::setw(kTimeWidth) << tenthsText(s.replyMsMax) << end;
}

}  // namespace

TapReport::TapReport(tools::OutputFormat format, bool terminal, Clock::time_point start)
    : format_(format), table_(terminal), start_(start) {}

void TapReport::listening(const std::string& what) const {
    std::cerr << "korvan_line_tap: listening to " << what << std::endl;
    if (format_ == tools::OutputFormat::Csv) {
        std::cout << "exchange,ms,station,family,request,reply,reply_ms,result" << std::endl;
    }
}

void TapReport::show(const std::vector<Exchange>& done) {
    if (format_ == tools::OutputFormat::Table || done.empty()) {
        return;
    }
    for (const Exchange& e : done) {
        const double ms = Milliseconds(e.request.at - start_).count();
        if (format_ == tools::OutputFormat::Csv) {
            std::cout << e.number << ',' << tenthsText(ms) << ',' << e.station << ','
                      << familyName(e.request.family) << ',' << hex(e.request.bytes) << ','
                      << (e.reply ? hex(e.reply->bytes) : "") << ','
                      << (e.reply ? tenthsText(e.replyMs()) : "") << ',' << resultName(e.result)
                      << '\n';
        } else {
            Json line;
            line["exchange"] = e.number;
            line["ms"] = tenths(ms);
            line["station"] = e.station;
            line["family"] = familyName(e.request.family);
            line["request"] = hex(e.request.bytes);
            line["reply"] = e.reply ? Json(hex(e.reply->bytes)) : Json();
            line["reply_ms"] = e.reply ? Json(tenths(e.replyMs())) : Json();
            line["result"] = resultName(e.result);
            std::cout << line.dump() << '\n';
        }
    }
    std::cout.flush();
}

void TapReport::refresh(const Exchanges& exchanges) {
    if (format_ == tools::OutputFormat::Table && table_.due()) {
        drawTable(exchanges);
    }
}

void TapReport::finish(const Exchanges& exchanges) {
    if (format_ == tools::OutputFormat::Table) {
        drawTable(exchanges);
    }
    const StationStats all = exchanges.total();
    std::cerr << "korvan_line_tap: " << all.requests << " requests, " << all.replies << " replies ("
              << all.bad << " bad), " << all.missing << " missing; reply time mean "
              << tenthsText(all.replyMsMean()) << " ms, max " << tenthsText(all.replyMsMax)
              << " ms; " << exchanges.bytesDropped() << " bytes dropped" << std::endl;
    if (format_ == tools::OutputFormat::Json) {
        Json stats = statsJson(all);
        stats["bytes_dropped"] = exchanges.bytesDropped();
        Json stations = Json::object();
        for (const auto& [station, s] : exchanges.stations()) {
            stations[std::to_string(station)] = statsJson(s);
        }
        stats["stations"] = stations;
        Json line;
        line["stats"] = stats;
        std::cout << line.dump() << std::endl;
    }
}

void TapReport::drawTable(const Exchanges& exchanges) {
    std::ostringstream out;
    const char* end = table_.lineEnd();
    out << std::left << std::setw(kStationWidth) << "station" << std::right
        << std::setw(kCountWidth) << "requests" << std::setw(kCountWidth) << "replies"
        << std::setw(kCountWidth) << "bad" << std::setw(kCountWidth) << "missing"
        << std::setw(kTimeWidth) << "reply ms mean" << std::setw(kTimeWidth) << "reply ms max"
        << end;
    for (const auto& [station, s] : exchanges.stations()) {
        tableRow(out, std::to_string(station), s, end);
    }
    tableRow(out, "all", exchanges.total(), end);
    out << "bytes dropped " << exchanges.bytesDropped() << end;
    table_.draw(out.str());
}

}  // namespace linetap
