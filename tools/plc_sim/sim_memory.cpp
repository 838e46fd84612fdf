#include "sim_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "word_file.h"

namespace plcsim {

namespace {

constexpr int kAreaIndexCount = 29;  // 0..28 have area codes of their own

std::map<int, int> indexOfCode() {
    std::map<int, int> index;
    for (int i = 0; i < kAreaIndexCount; ++i) {
        index[PlcModel::areaCodeOfIndex(i)] = i;
    }
    return index;
}

}  // namespace

void loadMemory(PlcModel& plc, const SimOptions& options) {
    const FillPattern fill = options.fill;
    plc.setFill([fill](int, int, std::uint32_t address) {
        return fill.ramp ? static_cast<std::uint16_t>(address) : fill.constant;
    });
    if (options.memoryFile.empty()) {
        return;
    }
    for (const tools::MemoryWord& w : tools::readWordFile(options.memoryFile)) {
        plc.setWord(w.station, PlcModel::areaCodeOfIndex(w.area), w.address, w.value);
    }
}

std::ofstream openDump(const std::string& path) {
    std::ofstream out(path);
    if (!out) {
        throw std::runtime_error("cannot write the dump file " + path + ": " +
                                 std::strerror(errno));
    }
    return out;
}

void dumpMemory(const PlcModel& plc, std::ofstream& out, const std::string& path) {
    const std::map<int, int> index = indexOfCode();
    std::vector<tools::MemoryWord> words;
    for (const auto& [key, value] : plc.memory()) {
        const auto& [station, code, address] = key;
        words.push_back({station, index.at(code), address, value});
    }
    std::sort(
        words.begin(), words.end(),
        [](const tools::MemoryWord& a, const tools::MemoryWord& b) { return a.key() < b.key(); });
    tools::writeWordFile(out, path, words, "PLC memory: every word loaded, read or written");
}

}  // namespace plcsim
