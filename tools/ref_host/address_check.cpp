#include "address_check.h"

#include <cstdio>
#include <limits>
#include <string>

#include "command_line.h"
#include "plc_limits.h"
#include "text_escape.h"

namespace refhost {

namespace {

constexpr int kWordOfBitShift = 4;
constexpr long kLastBitOfWord = 15;

// The highest address, in the area's own units, that the frames of a family carry. A local frame
// has 24 bits for it: a bit area's bit address (a read starts at the first bit of a word), a word
// area's word address, and for a bit of a word (area 29) the word's. A remote frame has 32 bits,
// but the driver holds addresses in an int, and past its range they wrap.
long highestAddress(int area, bool remote) {
    if (remote) {
        return std::numeric_limits<int>::max();
    }
    return area == korvan::kAreaBitOfWord
               ? tools::kMaxWordAddress << kWordOfBitShift | kLastBitOfWord
               : tools::kMaxWordAddress;
}

// An address as the area's texts write it: octal, word.bit or decimal.
std::string addressText(int area, long address) {
    if (area <= korvan::kAreaLastOctal) {
        char octal[24];
        std::snprintf(octal, sizeof octal, "%lo", address);
        return octal;
    }
    if (area == korvan::kAreaBitOfWord) {
        return std::to_string(address >> kWordOfBitShift) + "." +
               std::to_string(address & kLastBitOfWord);
    }
    return std::to_string(address);
}

// `name` names the variable or write in a message; a tag file's name may hold any byte.
void check(const DriverApi& api, bool remote, int area, const std::string& address, long count,
           const std::string& name) {
    const std::string text = visibleText(name);
    const long first = api.addressOf(area, QString::fromStdString(address));
    if (first < 0) {
        throw tools::UsageError("bad variable text '" + text + "': '" + visibleText(address) +
                                "' is not an address of area " + std::to_string(area));
    }
    const long highest = highestAddress(area, remote);
    if (first + count - 1 > highest) {
        throw tools::UsageError("'" + text + "' reaches beyond " + addressText(area, highest) +
                                ", the highest address of area " + std::to_string(area) +
                                (remote ? " the driver holds" : " a local frame carries"));
    }
}

}  // namespace

void checkAddresses(const DriverApi& api, const HostOptions& options) {
    const bool remote = options.settings.remoteMode;
    for (const Variable& v : options.variables) {
        check(api, remote, v.area, v.address, v.count, v.name);
    }
    for (const Write& w : options.writes) {
        check(api, remote, w.area, w.address, static_cast<long>(w.values.size()), w.text);
    }
}

}  // namespace refhost
