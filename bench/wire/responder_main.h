// What the responders of the wire comparison share: a new pseudo-terminal, whose device path is
// the first line of output ("pty PATH", as the PLC simulator says it), served until the process
// is killed.
#ifndef KORVAN_BENCH_WIRE_RESPONDER_MAIN_H
#define KORVAN_BENCH_WIRE_RESPONDER_MAIN_H

#include <functional>

namespace wire {

// Runs `serve` on the pseudo-terminal's master side; returns non-zero if it could not start.
int serveOnPseudoTerminal(const char* name, const std::function<void(int fd)>& serve);

}  // namespace wire

#endif
