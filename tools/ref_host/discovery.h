// Finding a PLC's line settings: the smallest harmless read, one word, tried at every
// combination of baud rate, stop bits, parity, station and frame family asked for. As in a
// normal run the driver builds each request and judges its reply; a try that meets silence or
// garbage costs one reply time.
#ifndef KORVAN_TOOLS_DISCOVERY_H
#define KORVAN_TOOLS_DISCOVERY_H

#include <csignal>

#include "driver_library.h"
#include "host_options.h"
#include "link.h"

namespace refhost {

// Makes the tries on `link`, the most common settings first, until they are done, the first one
// answers (with --first) or `stop` is set. Shows the plan and the progress on stderr and each
// combination that answered on stdout. Returns 0 when one answered, 3 when none did. Throws
// tools::LinkClosed and std::runtime_error.
int discover(const DriverApi& api, Link& link, const HostOptions& options,
             const volatile std::sig_atomic_t& stop);

}  // namespace refhost

#endif
