// The simulator and the reference host as separate processes, for the end-to-end tests: every
// run is bounded in time, and a process still running when its test ends is killed.
#ifndef KORVAN_TESTS_TOOL_PROCESSES_H
#define KORVAN_TESTS_TOOL_PROCESSES_H

#include <gtest/gtest.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QProcess>
#include <QtCore/QStringList>

#include <map>
#include <string>
#include <tuple>

#include "word_file.h"

constexpr int kRunTimeoutMs = 30000;
constexpr int kStartTimeoutMs = 5000;

using Memory = std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t>;

inline Memory readMemory(const QString& path) {
    Memory memory;
    for (const tools::MemoryWord& w : tools::readWordFile(path.toStdString())) {
        memory[w.key()] = w.value;
    }
    return memory;
}

// A simulator started for one test; `endpoint()` is its pseudo-terminal or TCP address.
class Simulator {
public:
    explicit Simulator(const QStringList& args) {
        process_.start(KORVAN_PLC_SIM, args);
        if (process_.waitForReadyRead(kStartTimeoutMs)) {
            const QList<QByteArray> line = process_.readLine().trimmed().split(' ');
            endpoint_ = line.value(1);
        }
    }
    ~Simulator() {
        if (process_.state() != QProcess::NotRunning) {
            process_.kill();
            process_.waitForFinished();
        }
    }

    QString endpoint() const { return endpoint_; }

    // Stops it as SIGTERM does; true when it exited cleanly (its dump is then written).
    bool stop() {
        process_.terminate();
        return process_.waitForFinished(kStartTimeoutMs) &&
               process_.exitStatus() == QProcess::NormalExit && process_.exitCode() == 0;
    }

private:
    QProcess process_;
    QString endpoint_;
};

// What a host run printed with --format json: the last scan's rows by variable name, the
// write results and the statistics.
struct HostRun {
    int exitCode = -1;
    QByteArray errors;
    QMap<QString, QJsonObject> lastScan;
    QMap<QString, QString> writes;
    QJsonObject stats;

    QJsonArray values(const QString& name) const {
        return lastScan.value(name)["values"].toArray();
    }
    QString state(const QString& name) const { return lastScan.value(name)["state"].toString(); }
    QMap<QString, QVariant> abandoned() const {
        return stats["abandoned"].toObject().toVariantMap();
    }
};

inline HostRun runHost(const QStringList& args) {
    QProcess host;
    host.start(KORVAN_REF_HOST, args);
    HostRun run;
    if (!host.waitForFinished(kRunTimeoutMs)) {
        host.kill();
        host.waitForFinished();
        ADD_FAILURE() << "the host did not finish: " << args.join(' ').toStdString();
        return run;
    }
    run.exitCode = host.exitStatus() == QProcess::NormalExit ? host.exitCode() : -1;
    run.errors = host.readAllStandardError();
    for (const QByteArray& line : host.readAllStandardOutput().split('\n')) {
        const QJsonObject o = QJsonDocument::fromJson(line).object();
        if (o.contains("scan")) {
            run.lastScan[o["name"].toString()] = o;
        } else if (o.contains("write")) {
            run.writes[o["write"].toString()] = o["status"].toString();
        } else if (o.contains("stats")) {
            run.stats = o["stats"].toObject();
        }
    }
    return run;
}

inline QJsonArray words(std::initializer_list<int> values) {
    QJsonArray a;
    for (int v : values) {
        a.append(v);
    }
    return a;
}

#endif
