// The simulator's memory files: loading initial memory and a fill pattern into the model, and
// dumping the model's memory by area index.
#ifndef KORVAN_TOOLS_SIM_MEMORY_H
#define KORVAN_TOOLS_SIM_MEMORY_H

#include <string>

#include "plc_model.h"
#include "sim_options.h"

namespace plcsim {

// Throws std::runtime_error for a bad file.
void loadMemory(PlcModel& plc, const SimOptions& options);
void dumpMemory(const PlcModel& plc, const std::string& path);

}  // namespace plcsim

#endif
