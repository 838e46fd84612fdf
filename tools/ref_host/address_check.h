// The addresses of a host run, checked before anything is sent: the driver judges each address
// text, and the host whether the frames of the port's family can carry the whole variable or
// write. The driver's frame builders take what they are given: an address wider than its field
// would lose its upper bits and reach another word.
#ifndef KORVAN_TOOLS_ADDRESS_CHECK_H
#define KORVAN_TOOLS_ADDRESS_CHECK_H

#include "driver_library.h"
#include "host_options.h"

namespace refhost {

// Throws tools::UsageError naming the first variable or write refused.
void checkAddresses(const DriverApi& api, const HostOptions& options);

}  // namespace refhost

#endif
