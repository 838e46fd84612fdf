// The tools' text format for PLC memory: the simulator's initial memory and its dump on exit,
// and the reference host's dump of the driver's register image, so the two can be compared.
//
// One word per line, "station area address value": the area index (0..28), the word address
// (for a bit area, the 16-bit group: word 2 holds bits 32..47) and the value, decimal or 0x hex.
// Blank lines and lines starting with # are ignored.
#ifndef KORVAN_TOOLS_WORD_FILE_H
#define KORVAN_TOOLS_WORD_FILE_H

#include <cstdint>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

namespace tools {

struct MemoryWord {
    int station = 0;
    int area = 0;
    std::uint32_t address = 0;
    std::uint16_t value = 0;

    std::tuple<int, int, std::uint32_t> key() const { return {station, area, address}; }
};

// Throws std::runtime_error naming the file and line of a bad entry, or the file when it is
// not a regular file or cannot be read to its end.
std::vector<MemoryWord> readWordFile(const std::string& path);
// Writes the words in the order given, after a comment line `title`. Throws on failure.
void writeWordFile(const std::string& path, const std::vector<MemoryWord>& words,
                   const std::string& title);
// The same to `out`, the file `path` opened already.
void writeWordFile(std::ofstream& out, const std::string& path,
                   const std::vector<MemoryWord>& words, const std::string& title);

}  // namespace tools

#endif
