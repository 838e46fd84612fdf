#include "exchange_cases.h"

#include <stdexcept>
#include <utility>

#include "base/Communication_Protocol.h"
#include "panel_variables.h"
#include "plc_model.h"
#include "wire_format.h"

namespace bench {

namespace {

constexpr int kRemotePort = 2;
constexpr std::size_t kSettlingRounds = 3;
constexpr int kChangingReplies = 16;
constexpr int kReplyDataOffset = 3;  // station, function, byte count, data..., CRC
constexpr int kValueStep = 0x11;     // 16 steps reach 0xFF and come back to 0: each differs

// Every station panelVariables() uses answers.
plcsim::PlcModel& plc() {
    static plcsim::PlcModel model({1, 2, 3, 4, 5, 6, 7, 8});
    return model;
}

// A read reply with every data byte set to step n of kChangingReplies, its CRC made again.
QByteArray withNewValues(const QByteArray& reply, int n) {
    QByteArray changed = reply;
    auto* bytes = reinterpret_cast<std::uint8_t*>(changed.data());
    const int crcAt = changed.size() - 2;
    // The byte count keeps only 8 bits of a long block's length.
    if (crcAt < kReplyDataOffset ||
        bytes[2] != static_cast<std::uint8_t>(crcAt - kReplyDataOffset)) {
        throw std::invalid_argument("not a local read reply");
    }
    for (int i = kReplyDataOffset; i < crcAt; ++i) {
        bytes[i] = static_cast<std::uint8_t>(n * kValueStep);
    }
    const std::uint16_t crc = plcsim::crc16(bytes, static_cast<std::size_t>(crcAt));
    bytes[crcAt] = static_cast<std::uint8_t>(crc);
    bytes[crcAt + 1] = static_cast<std::uint8_t>(crc >> 8);
    return changed;
}

}  // namespace

QByteArray replyTo(const Protocol* request) {
    const plcsim::Reply r =
        plc().handle(plcsim::Bytes(request->frame.begin(), request->frame.end()));
    return QByteArray(reinterpret_cast<const char*>(r.bytes.data()),
                      static_cast<int>(r.bytes.size()));
}

ComInfo& benchPort() {
    static ComInfo port;
    return port;
}

void resetDriver() {
    Communication_Protocol& d = PLC_driver;
    d.readList.clear();
    d.writeList.clear();
    d.onceReadList.clear();
    d.requestQueue.clear();
    d.registerCache.clear();
    d.commFailed = 0;
    ComInfo& port = benchPort();
    port = ComInfo();
    port.maxUnits = korvan::kMaxUnitsCap;
    port.defaultStation = 1;
    port.retryLimit = 3;
    port.portId = 1;
    port.writeMode = korvan::kWriteToPlc;
    SetComInfo(&port);
    RegistCallBackFuncIntf([](int, int, int, int) { return 0; },
                           [](QList<RW_VAR>*, int, int) { return 0; });
}

RW_VAR variable(int area, int address, int count, int port) {
    RW_VAR v;
    v.port = port;
    v.station = 1;
    v.area = area;
    v.address = address;
    v.count = count;
    return v;
}

ExchangeCase ExchangeCase::read(int words) {
    resetDriver();
    ExchangeCase c(Kind::Read);
    PLC_driver.readList.append(variable(kWordArea, 100, words));
    c.first_ = replyTo(ComCommunication());
    PLC_driver.requestQueue.clear();
    return c;
}

// Each reply changes every word: a changed value on every read, as on a busy machine.
ExchangeCase ExchangeCase::changingRead(int words) {
    ExchangeCase c = read(words);
    c.kind_ = Kind::Round;
    for (int n = 0; n < kChangingReplies; ++n) {
        c.round_.push_back(withNewValues(c.first_, n));
    }
    return c;
}

ExchangeCase ExchangeCase::write() {
    resetDriver();
    ExchangeCase c(Kind::Write);
    c.record_ = variable(kWordArea, 100, 1);
    c.record_.direction = korvan::kDirectionWrite;
    c.record_.data = QByteArray("\x34\x12", 2);
    PLC_driver.writeList.append(c.record_);
    c.first_ = replyTo(ComCommunication());
    PLC_driver.requestQueue.clear();
    PLC_driver.writeList.clear();
    return c;
}

ExchangeCase ExchangeCase::bitInWord() {
    resetDriver();
    ExchangeCase c(Kind::BitInWord);
    c.record_ = variable(korvan::kAreaBitOfWord, 163, 1);
    c.record_.direction = korvan::kDirectionWrite;
    c.record_.data = QByteArray(1, '\1');
    PLC_driver.writeList.append(c.record_);
    c.first_ = replyTo(ComCommunication());
    DataCom(&c.first_, c.first_.size());
    c.second_ = replyTo(ComCommunication());
    DataCom(&c.second_, c.second_.size());
    return c;
}

ExchangeCase ExchangeCase::remoteRead() {
    resetDriver();
    ExchangeCase c(Kind::Read);
    benchPort().remoteMode = 1;
    PLC_driver.readList.append(variable(kWordArea, 100, 2, kRemotePort));
    c.first_ = replyTo(ComCommunication());
    PLC_driver.requestQueue.clear();
    return c;
}

ExchangeCase ExchangeCase::panel(int tags) {
    resetDriver();
    ExchangeCase c(Kind::Round);
    static ComInfo planningPort;
    usePlanningPort(planningPort);
    QList<HOSTVAR> variables = panelVariables(tags);
    ReCreatReadVarList(&variables);
    for (int i = PLC_driver.readList.size(); i > 0; --i) {
        c.round_.push_back(replyTo(ComCommunication()));
        DataCom(&c.round_.back(), c.round_.back().size());
    }
    // A few more rounds, until the list's storage has settled to its size as it goes round.
    for (std::size_t i = 0; i < kSettlingRounds * c.round_.size(); ++i) {
        c.once();
    }
    return c;
}

// kChangingReplies rounds of the planned list, every word of a round changed from the round
// before; the driver is at the head of the list, where panel() left it.
ExchangeCase ExchangeCase::changingPanel(int tags) {
    ExchangeCase c = panel(tags);
    std::vector<QByteArray> rounds;
    rounds.reserve(kChangingReplies * c.round_.size());
    for (int n = 0; n < kChangingReplies; ++n) {
        for (const QByteArray& reply : c.round_) {
            rounds.push_back(withNewValues(reply, n));
        }
    }
    c.round_ = std::move(rounds);
    c.next_ = 0;
    return c;
}

ExchangeCase ExchangeCase::named(const std::string& name) {
    const std::string readPrefix = "read/";
    if (name.compare(0, readPrefix.size(), readPrefix) == 0) {
        return read(std::stoi(name.substr(readPrefix.size())));
    }
    const std::string changingPrefix = "changing/";
    if (name.compare(0, changingPrefix.size(), changingPrefix) == 0) {
        return changingRead(std::stoi(name.substr(changingPrefix.size())));
    }
    if (name == "write") {
        return write();
    }
    if (name == "bit_in_word") {
        return bitInWord();
    }
    if (name == "remote_read") {
        return remoteRead();
    }
    const std::string changingPanelPrefix = "panel_changing/";
    if (name.compare(0, changingPanelPrefix.size(), changingPanelPrefix) == 0) {
        return changingPanel(std::stoi(name.substr(changingPanelPrefix.size())));
    }
    const std::string panelPrefix = "panel/";
    if (name.compare(0, panelPrefix.size(), panelPrefix) == 0) {
        return panel(std::stoi(name.substr(panelPrefix.size())));
    }
    throw std::invalid_argument("no exchange named " + name);
}

RW_VAR* ExchangeCase::once() {
    switch (kind_) {
        case Kind::Read:
            ComCommunication();
            return DataCom(&first_, first_.size());
        case Kind::Write: {
            AddListWriteVar(&record_);
            ComCommunication();
            RW_VAR* result = DataCom(&first_, first_.size());
            PLC_driver.writeBurst = 0;  // the next write starts a burst of its own
            return result;
        }
        case Kind::BitInWord: {
            AddListWriteVar(&record_);
            ComCommunication();
            DataCom(&first_, first_.size());
            ComCommunication();
            RW_VAR* result = DataCom(&second_, second_.size());
            PLC_driver.writeBurst = 0;
            return result;
        }
        case Kind::Round: {
            ComCommunication();
            QByteArray& reply = round_[next_];
            next_ = next_ + 1 == round_.size() ? 0 : next_ + 1;
            return DataCom(&reply, reply.size());
        }
    }
    return nullptr;
}

}  // namespace bench
