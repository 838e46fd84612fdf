// The simulator's memory files: loading initial memory and a fill pattern into the model, and
// dumping the model's memory by area index.
#ifndef KORVAN_TOOLS_SIM_MEMORY_H
#define KORVAN_TOOLS_SIM_MEMORY_H

#include <fstream>
#include <string>

#include "plc_model.h"
#include "sim_options.h"

namespace plcsim {

// Throws std::runtime_error for a bad file.
void loadMemory(PlcModel& plc, const SimOptions& options);
// Opens the dump file when the simulator starts, so that one that cannot be written fails then
// rather than at the end of a session. Throws std::runtime_error.
std::ofstream openDump(const std::string& path);
void dumpMemory(const PlcModel& plc, std::ofstream& out, const std::string& path);

}  // namespace plcsim

#endif
