// Values out of the driver's register image, for the display and for the image dump.
#ifndef KORVAN_TOOLS_IMAGE_VALUES_H
#define KORVAN_TOOLS_IMAGE_VALUES_H

#include <string>
#include <vector>

#include "driver_library.h"
#include "host_options.h"
#include "variables.h"

namespace refhost {

// The station the driver uses for the variable: its own only with per-variable stations.
int stationOf(const Variable& v, const PortSettings& settings);

// One value per bit (0 or 1) or per word (0..65535), as the image holds them now.
std::vector<long> readValues(const DriverApi& api, const Variable& v, int station);

// Creates (or empties) the dump file, so that a path that cannot be written stops the run before
// it polls. Throws std::runtime_error naming the cause.
void createImageDump(const std::string& path);

// Writes every word that the variables of stations not switched off cover, in the format of
// the simulator's memory files. Throws std::runtime_error.
void dumpImage(const DriverApi& api, const std::vector<Variable>& variables,
               const PortSettings& settings, const std::string& path);

}  // namespace refhost

#endif
