// The PLC variables a host run reads and the values it writes, as typed on the command line
// or listed in a tag file.
#ifndef KORVAN_TOOLS_VARIABLES_H
#define KORVAN_TOOLS_VARIABLES_H

#include <string>
#include <vector>

namespace refhost {

constexpr int kNoStation = 0;  // the port's default station

struct Variable {
    std::string name;
    int area = 0;
    std::string address;  // as the driver parses it: octal in areas 0 and 1, word.bit in 29
    int count = 1;        // bits in areas 0..13 and 29, words in 14..28
    int station = kNoStation;
};

struct Write {
    std::string text;
    int area = 0;
    std::string address;
    int station = kNoStation;
    std::vector<long> values;  // one per bit or word
};

bool isWordArea(int area);

// AREA:ADDRESS[:COUNT][@STATION], e.g. 14:100:2, 29:10.3, 2:35:20@3. Throws tools::UsageError.
Variable parseVariable(const std::string& text);
// AREA:ADDRESS[@STATION]=VALUE[,VALUE...], e.g. 14:100=0x1234, 29:10.3=1.
Write parseWrite(const std::string& text);
// CSV lines "name,area,address,station,count"; station and count may be left empty; a first
// line starting with "name" and lines starting with # are skipped. Throws std::runtime_error
// for a file that is not a regular file, cannot be read or holds a bad line.
std::vector<Variable> readTagFile(const std::string& path);

}  // namespace refhost

#endif
