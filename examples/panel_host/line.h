// The panel's end of the line to the PLC, opened with POSIX calls and set non-blocking, so that
// the event loop watches it and never waits on it.
#ifndef KORVAN_EXAMPLE_LINE_H
#define KORVAN_EXAMPLE_LINE_H

#include <QtCore/QByteArray>

// A serial device (a pseudo-terminal works too), raw 8N1 at kBaudRate. Returns the descriptor,
// or -1 after saying why on stderr.
int openSerial(const char* path);

// A TCP connection to HOST:PORT, started without waiting: the descriptor becomes writable once
// the connection is made or has failed (connectionError tells which). Returns the descriptor, or
// -1 after saying why on stderr.
int startTcpConnection(const char* hostAndPort);

// 0 once the connection started by startTcpConnection is made, otherwise its errno.
int connectionError(int fd);

// Appends every byte waiting on the line to `bytes` without waiting for more. False when the
// line is gone (the PLC's end closed, or a read error).
bool readWaiting(int fd, QByteArray& bytes);

// Sends the whole of `bytes`. False when the line does not take them at once: a frame is far
// smaller than any line's send buffer, so anything less is a line that has stopped.
bool sendAll(int fd, const QByteArray& bytes);

#endif
