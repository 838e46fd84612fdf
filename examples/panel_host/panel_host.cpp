#include "panel_host.h"

#include <string.h>
#include <unistd.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QString>
#include <cstdio>

#include "line.h"

namespace {

const int kScanPeriodMs = 200;  // a scan starts at most this often
// Long enough for a PLC, or a simulator under an emulator; a missing reply costs it per retry.
const int kReplyTimeoutMs = 1000;
const int kMaxUnits = 64;   // words one request reads or writes at most
const int kRetryLimit = 2;  // bad replies tolerated before an exchange is abandoned
const int kPortId = 1;      // this port's number: variables carrying it are its own
const int kHostTag = 1;     // comes back as the first argument of onResult: tells ports apart
// The write's keys, handed back to onResult. The owner also picks the failure code of an
// abandoned exchange: korvan::failureCode(base, kWriteOwnerId).
const int kWriteOwnerId = 1;
const int kWriteItemId = 1;

const int kExitLineLost = 1;
const int kExitNoAnswer = 3;

// The callbacks carry no context pointer; this process has one port, so one object.
PanelHost* active = 0;

bool isBitArea(int area) {
    return area == korvan::kAreaBitOfWord ||
           (area >= korvan::kAreaFirstBit && area <= korvan::kAreaLastBit);
}

bool isGood(int result) {
    return result == korvan::kResultGood || result == korvan::kResultRemoteGood;
}

const char* causeOf(int result) {
    switch (korvan::failureBase(result)) {
        case korvan::kFailLocalInvalid:
        case korvan::kFailRemoteInvalid:
            return "bad station byte or check";
        case korvan::kFailLocalSilent:
        case korvan::kFailRemoteSilent:
            return "no reply";
        case korvan::kFailLocalLength:
        case korvan::kFailRemoteLength:
            return "reply of a wrong length";
        default:
            return "unknown";
    }
}

}  // namespace

PanelHost::PanelHost(int fd, bool connecting, int station, int scans, const QList<Tag>& tags,
                     const TagWrite& write)
    : fd_(fd),
      tags_(tags),
      write_(write),
      maxScans_(scans),
      cyclicReads_(0),
      readable_(new QSocketNotifier(fd, QSocketNotifier::Read, this)),
      connected_(new QSocketNotifier(fd, QSocketNotifier::Write, this)),
      awaitingReply_(false),
      scanning_(false),
      stopped_(false),
      expected_(0),
      readsThisScan_(0),
      scans_(0),
      writePending_(false),
      plcAnswered_(false) {
    // 1. The port record, which the driver keeps and works in; then the callbacks. No error
    //    callback: an abandoned exchange shows in DataCom's result as well.
    port_.maxUnits = kMaxUnits;
    port_.defaultStation = station;  // every variable's station, as perVarStation stays 0
    port_.retryLimit = kRetryLimit;
    port_.portId = kPortId;
    port_.writeMode = korvan::kWriteToPlc;  // host writes go to the PLC
    port_.hostTag = kHostTag;
    SetComInfo(&port_);
    active = this;
    RegistCallBackFuncIntf(onResult, 0);

    // 2. The cyclic read list, planned from the screens' tags into block reads.
    QList<HOSTVAR> list;
    for (int i = 0; i < tags_.size(); ++i) {
        HOSTVAR var;
        var.area = static_cast<quint8>(tags_[i].area);
        var.addressText = QString::fromLatin1(tags_[i].address);
        var.nameText = QString::fromLatin1(tags_[i].name);
        var.count = tags_[i].count;
        list.append(var);
    }
    cyclicReads_ = ReCreatReadVarList(&list);

    // 3. The line and the timers. Polling starts once the event loop runs (and the TCP
    //    connection is made).
    connect(readable_, SIGNAL(activated(int)), this, SLOT(lineReadable()));
    connect(connected_, SIGNAL(activated(int)), this, SLOT(connectionDone()));
    scanTimer_.setInterval(kScanPeriodMs);
    connect(&scanTimer_, SIGNAL(timeout()), this, SLOT(scanDue()));
    replyTimer_.setSingleShot(true);
    replyTimer_.setInterval(kReplyTimeoutMs);
    connect(&replyTimer_, SIGNAL(timeout()), this, SLOT(replyTimedOut()));
    readable_->setEnabled(!connecting);
    connected_->setEnabled(connecting);
    if (!connecting) {
        QTimer::singleShot(0, this, SLOT(startScanning()));
    }
}

PanelHost::~PanelHost() {
    RegistCallBackFuncIntf(0, 0);
    SetComInfo(0);  // the driver forgets port_ before it goes
    active = 0;
    delete readable_;
    delete connected_;
    close(fd_);
}

void PanelHost::connectionDone() {
    connected_->setEnabled(false);
    const int error = connectionError(fd_);
    if (error != 0) {
        std::fprintf(stderr, "korvan_panel_host: cannot connect: %s\n", strerror(error));
        stop(kExitLineLost);
        return;
    }
    readable_->setEnabled(true);
    startScanning();
}

void PanelHost::startScanning() {
    scanTimer_.start();
    scanDue();
}

// A scan reads every block of the cyclic list once, after whatever writes are queued. One that
// outlasts the period ends before the next starts: the next tick after it starts the next one.
void PanelHost::scanDue() {
    if (scanning_ || stopped_) {
        return;
    }
    scanning_ = true;
    readsThisScan_ = 0;
    pollNext();
}

// Sends the next frame the driver has due and returns: its reply comes through lineReadable or
// replyTimedOut.
void PanelHost::pollNext() {
    while (!stopped_) {
        // Writes first, then once-reads, then the next cyclic read; the same frame again after a
        // bad reply. Null: nothing is due now (nothing registered, or every station switched
        // off), so the scan is over.
        Protocol* request = ComCommunication();
        if (request == 0) {
            endScan();
            return;
        }
        // Bytes already waiting are a late reply or noise, never this request's reply.
        QByteArray stale;
        if (!readWaiting(fd_, stale) || !sendAll(fd_, request->frame.left(request->sendLength))) {
            std::fprintf(stderr, "korvan_panel_host: the line closed\n");
            stop(kExitLineLost);
            return;
        }
        expected_ = request->replyLength;
        received_.clear();
        if (expected_ == korvan::kReplyNone) {
            // Nobody answers this frame (station 0): hand back nothing at once.
            if (!handReply()) {
                return;
            }
            continue;
        }
        // kReplyAnyLength, or a byte count: collect until that many came or the timer fires.
        awaitingReply_ = true;
        replyTimer_.start();
        return;
    }
}

void PanelHost::lineReadable() {
    QByteArray bytes;
    const bool open = readWaiting(fd_, bytes);
    if (stopped_) {
        return;
    }
    if (awaitingReply_) {
        received_.append(bytes);
    }  // otherwise a late reply or noise: dropped
    if (!open) {
        std::fprintf(stderr, "korvan_panel_host: the line closed\n");
        stop(kExitLineLost);
        return;
    }
    if (awaitingReply_ && expected_ > 0 && received_.size() >= expected_ && handReply()) {
        pollNext();
    }
}

void PanelHost::replyTimedOut() {
    // What came so far, maybe nothing: the driver judges it and retries or abandons.
    if (awaitingReply_ && !stopped_ && handReply()) {
        pollNext();
    }
}

// Hands the reply to DataCom. False when the scan ended with it (no more polling until the
// next tick).
bool PanelHost::handReply() {
    replyTimer_.stop();
    awaitingReply_ = false;
    // The reply is the first replyLength bytes; what came after them is noise.
    const int length = expected_ > 0 ? qMin(expected_, received_.size()) : received_.size();
    // The result callback, if this completes a write, runs inside this call.
    const RW_VAR* served = DataCom(&received_, length);
    const int result = served->result;
    if (isGood(result)) {
        plcAnswered_ = true;
    } else if (result != korvan::kResultRetry) {
        std::printf("exchange abandoned: code %d, %s\n", result, causeOf(result));
    }
    // A cyclic read is over, answered or abandoned: one more block of this scan read.
    const bool cyclicReadOver = result != korvan::kResultRetry &&
                                served->ownerId == korvan::kCyclicOwnerId &&
                                served->itemId == korvan::kCyclicItemId;
    if (cyclicReadOver && ++readsThisScan_ >= cyclicReads_) {
        endScan();
        return false;
    }
    return !stopped_;
}

void PanelHost::endScan() {
    scanning_ = false;
    ++scans_;
    showValues();
    if (scans_ == 1 && write_.tag >= 0) {
        issueWrite();
    }
    if (maxScans_ > 0 && scans_ >= maxScans_ && !writePending_) {
        if (!plcAnswered_) {
            std::fprintf(stderr, "korvan_panel_host: the PLC never answered\n");
        }
        stop(plcAnswered_ ? 0 : kExitNoAnswer);
    }
}

// What a screen does with the register image: read its tags. Any thread may; the image holds
// what the last reads brought (zeros before a word was ever read).
void PanelHost::showValues() const {
    QByteArray line = "scan " + QByteArray::number(scans_) + ":";
    for (int i = 0; i < tags_.size(); ++i) {
        const Tag& tag = tags_[i];
        QByteArray units;  // one byte per bit (0 or 1); words two bytes each, low byte first
        GetRegisterData(QString(), tag.area, QString::fromLatin1(tag.address), port_.defaultStation,
                        &units, tag.count);
        line += ' ';
        line += tag.name;
        line += '=';
        if (isBitArea(tag.area)) {
            for (int b = 0; b < units.size(); ++b) {
                line += units.at(b) != 0 ? '1' : '0';
            }
        } else {
            for (int w = 0; w + 1 < units.size(); w += 2) {
                line += w == 0 ? "" : ",";
                line += QByteArray::number(quint8(units.at(w)) | quint8(units.at(w + 1)) << 8);
            }
        }
    }
    std::printf("%s\n", line.constData());
}

// What a screen does when the operator sets a value: write it. Any thread may; it goes out
// first in the next scan, and its result comes through onResult.
void PanelHost::issueWrite() {
    const Tag& tag = tags_[write_.tag];
    QByteArray values;  // the layout GetRegisterData gives
    if (isBitArea(tag.area)) {
        values.append(static_cast<char>(write_.value != 0 ? 1 : 0));
    } else {
        values.append(static_cast<char>(write_.value & 0xFF));
        values.append(static_cast<char>((write_.value >> 8) & 0xFF));
    }
    // It returns the writes pending, at least this one under kWriteToPlc: 0 is an address that
    // did not parse.
    if (SetRegisterData(QString::fromLatin1(tag.name), tag.area, QString::fromLatin1(tag.address),
                        port_.defaultStation, &values, 1, kWriteOwnerId,
                        kWriteItemId) == korvan::kAddressNotParsed) {
        std::printf("write %s=%d refused\n", tag.name, write_.value);
        return;
    }
    writePending_ = true;
}

void PanelHost::stop(int status) {
    stopped_ = true;
    scanTimer_.stop();
    replyTimer_.stop();
    QCoreApplication::exit(status);
}

// Runs on the polling thread inside DataCom, while the driver holds its list lock: it may note
// and show the result, but must not call into the driver (no SetRegisterData, no registration,
// no polling call); a panel queues such work for after DataCom returns.
int PanelHost::onResult(int hostTag, int ownerId, int itemId, int status) {
    if (active != 0 && hostTag == kHostTag && ownerId == kWriteOwnerId && itemId == kWriteItemId) {
        const Tag& tag = active->tags_[active->write_.tag];
        std::printf("write %s=%d %s\n", tag.name, active->write_.value,
                    status == korvan::kStatusDone ? "done" : "failed");
        active->writePending_ = false;
    }
    return 0;
}
