#include "word_file.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "command_line.h"
#include "input_file.h"
#include "plc_limits.h"

namespace tools {

std::vector<MemoryWord> readWordFile(const std::string& path) {
    std::ifstream in = openInputFile(path);
    std::vector<MemoryWord> words;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream fields(line);
        std::string station, area, address, value, extra;
        if (!(fields >> station) || station[0] == '#') {
            continue;
        }
        try {
            if (!(fields >> area >> address >> value) || (fields >> extra)) {
                throw UsageError("expected 'station area address value'");
            }
            MemoryWord w;
            w.station = static_cast<int>(parseInteger(station, 0, kMaxStation, "station"));
            w.area = static_cast<int>(parseInteger(area, 0, kMaxAreaWithCode, "area"));
            w.address =
                static_cast<std::uint32_t>(parseInteger(address, 0, kMaxWordAddress, "address"));
            w.value = static_cast<std::uint16_t>(parseInteger(value, 0, kMaxWordValue, "value"));
            words.push_back(w);
        } catch (const UsageError& e) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + e.what());
        }
    }
    checkReadToEnd(in, path);
    return words;
}

void writeWordFile(const std::string& path, const std::vector<MemoryWord>& words,
                   const std::string& title) {
    std::ofstream out(path);
    writeWordFile(out, path, words, title);
}

void writeWordFile(std::ofstream& out, const std::string& path,
                   const std::vector<MemoryWord>& words, const std::string& title) {
    out << "# " << title << "\n# station area address value\n";
    char value[8];
    for (const MemoryWord& w : words) {
        std::snprintf(value, sizeof value, "0x%04X", w.value);
        out << w.station << ' ' << w.area << ' ' << w.address << ' ' << value << '\n';
    }
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

}  // namespace tools
