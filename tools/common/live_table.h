// A table on standard output that a terminal shows redrawn in place, at most ten times a second.
// Elsewhere each drawing is printed whole, below the last; the tools then draw once, at the end.
#ifndef KORVAN_TOOLS_LIVE_TABLE_H
#define KORVAN_TOOLS_LIVE_TABLE_H

#include <atomic>
#include <chrono>
#include <string>

namespace tools {

class LiveTable {
public:
    explicit LiveTable(bool terminal) : terminal_(terminal) {}

    bool terminal() const { return terminal_; }
    // Whether a drawing is due: on a terminal, once the last is a tenth of a second old. Any
    // thread may ask.
    bool due() const;
    // What ends each line of a drawing: on a terminal it also clears what the last drawing left
    // to the right.
    const char* lineEnd() const { return terminal_ ? "\x1b[K\n" : "\n"; }
    // Prints `text`, lines ended by lineEnd(), over the last drawing.
    void draw(const std::string& text);
    // Something else was printed after the table: the next drawing goes below it.
    void moveBelow() { drawnLines_ = 0; }

private:
    using Clock = std::chrono::steady_clock;

    bool terminal_;
    int drawnLines_ = 0;
    std::atomic<Clock::rep> lastDraw_{0};  // since the clock's epoch
};

}  // namespace tools

#endif
