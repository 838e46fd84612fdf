// The panel's communication side: one PLC port driven from Qt's event loop.
#ifndef KORVAN_EXAMPLE_PANEL_HOST_H
#define KORVAN_EXAMPLE_PANEL_HOST_H

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include "korvan_qa_qb_series_port.h"

// One PLC variable a screen shows, as a panel project lists it.
struct Tag {
    const char* name;
    int area;             // korvan::Area
    const char* address;  // address text in that area: "100", "110.0" for a bit of a word
    int count;            // units: bits for bit areas, words for word areas
};

// The one write a screen makes once the first values are shown: `value` into the first unit of
// tags[tag]. tag < 0: none.
struct TagWrite {
    int tag;
    int value;
};

// Owns the line (a non-blocking descriptor), its notifiers and the two timers, and makes every
// polling call. Polling happens on this object's thread only; it is also the thread the driver's
// callbacks run on. A panel's screens may read and write values from other threads.
class PanelHost : public QObject {
    Q_OBJECT

public:
    // `connecting`: a TCP connection is still being made on `fd`. `scans` 0: run until killed.
    PanelHost(int fd, bool connecting, int station, int scans, const QList<Tag>& tags,
              const TagWrite& write);
    ~PanelHost();

private slots:
    void connectionDone();
    void startScanning();
    void scanDue();
    void lineReadable();
    void replyTimedOut();

private:
    void pollNext();
    bool handReply();
    void endScan();
    void showValues() const;
    void issueWrite();
    void stop(int status);

    static int onResult(int hostTag, int ownerId, int itemId, int status);

    int fd_;
    ComInfo port_;  // the driver works in it in place for as long as this object lives
    QList<Tag> tags_;
    TagWrite write_;
    int maxScans_;
    int cyclicReads_;  // block reads the driver planned: one scan reads each once

    QSocketNotifier* readable_;
    QSocketNotifier* connected_;
    QTimer scanTimer_;
    QTimer replyTimer_;

    bool awaitingReply_;
    bool scanning_;
    bool stopped_;
    int expected_;  // reply length of the request on the line
    QByteArray received_;
    int readsThisScan_;
    int scans_;
    bool writePending_;
    bool plcAnswered_;
};

#endif
