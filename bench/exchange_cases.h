// The driver prepared for one kind of exchange, with the PLC's replies computed beforehand, so
// that each call of once() is one complete exchange and nothing else: no line, no PLC.
//
//   read/N       one cyclic read of N words: ComCommunication, then DataCom with the correct
//                reply, storing N words
//   changing/N   the same, each reply carrying other values than the one before
//   write        one queued word write and its exchange
//   bit_in_word  one bit-in-word write: read frame, reply, write frame, reply
//   remote_read  one remote read of 2 words
//   panel/TAGS   the next cyclic read of the list planned from TAGS panel variables (see
//                panel_variables.h): the read list goes round, so every block is read in turn;
//                each block's reply repeats its values round after round
//   panel_changing/TAGS
//                the same, each round's replies carrying other values than the round before
#ifndef KORVAN_BENCH_EXCHANGE_CASES_H
#define KORVAN_BENCH_EXCHANGE_CASES_H

#include <QtCore/QByteArray>
#include <string>
#include <vector>

#include "korvan_qa_qb_series_port.h"

namespace bench {

// The port record the benchmarks use, and a driver emptied of lists, queue and image.
ComInfo& benchPort();
void resetDriver();

// Area of the words every exchange reads or writes.
constexpr int kWordArea = 14;

// A record of the driver's own port, station 1.
RW_VAR variable(int area, int address, int count, int port = 1);

// The simulated PLC's reply to a request (station 1 answers from its own memory).
QByteArray replyTo(const Protocol* request);

class ExchangeCase {
public:
    static ExchangeCase read(int words);
    static ExchangeCase changingRead(int words);
    static ExchangeCase write();
    static ExchangeCase bitInWord();
    static ExchangeCase remoteRead();
    static ExchangeCase panel(int tags);
    static ExchangeCase changingPanel(int tags);
    // One of the names above ("read/2", "write", ...); throws std::invalid_argument otherwise.
    static ExchangeCase named(const std::string& name);

    // One complete exchange; returns DataCom's last result record.
    RW_VAR* once();

private:
    enum class Kind { Read, Write, BitInWord, Round };  // Round: the replies of round_ in turn
    explicit ExchangeCase(Kind kind) : kind_(kind) {}

    Kind kind_;
    RW_VAR record_;                  // queued again before every write exchange
    QByteArray first_;               // the reply to the first (or only) frame
    QByteArray second_;              // the reply to the write frame of a bit-in-word write
    std::vector<QByteArray> round_;  // replies given in turn: to one or more rounds of a
                                     // planned read list, or the changing replies of one read
    std::size_t next_ = 0;
};

}  // namespace bench

#endif
