#include "image_values.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "unique_fd.h"
#include "word_file.h"

namespace refhost {

namespace {

// The bits of area 29 are bits of words of the first word area.
constexpr int kBitOfWordHostArea = korvan::kAreaFirstWord;
constexpr int kBitsPerWord = 16;

QString addressText(int area, long address) {
    return QString::number(address, area <= korvan::kAreaLastOctal ? 8 : 10);
}

// The 16 bits of one word of a bit area, packed.
std::uint16_t bitWord(const DriverApi& api, int area, long word, int station) {
    QByteArray bits;
    api.readImage(QString(), area, addressText(area, word * kBitsPerWord), station, &bits,
                  kBitsPerWord);
    std::uint16_t value = 0;
    for (int i = 0; i < bits.size(); ++i) {
        if (bits.at(i) != 0) {
            value = static_cast<std::uint16_t>(value | 1u << i);
        }
    }
    return value;
}

std::uint16_t word(const DriverApi& api, int area, long address, int station) {
    QByteArray bytes;
    api.readImage(QString(), area, addressText(area, address), station, &bytes, 1);
    return bytes.size() < 2 ? 0
                            : static_cast<std::uint16_t>(static_cast<std::uint8_t>(bytes[0]) |
                                                         static_cast<std::uint8_t>(bytes[1]) << 8);
}

}  // namespace

int stationOf(const Variable& v, const PortSettings& settings) {
    return settings.perVarStation && v.station != kNoStation ? v.station : settings.station;
}

std::vector<long> readValues(const DriverApi& api, const Variable& v, int station) {
    QByteArray buffer;
    api.readImage(QString(), v.area, QString::fromStdString(v.address), station, &buffer, v.count);
    std::vector<long> values;
    if (isWordArea(v.area)) {
        for (int i = 0; i + 1 < buffer.size(); i += 2) {
            values.push_back(static_cast<std::uint8_t>(buffer[i]) |
                             static_cast<std::uint8_t>(buffer[i + 1]) << 8);
        }
    } else {
        for (char bit : buffer) {
            values.push_back(bit != 0 ? 1 : 0);
        }
    }
    return values;
}

void createImageDump(const std::string& path) {
    const tools::UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd.valid()) {
        throw std::runtime_error("cannot write the image dump " + path + ": " +
                                 std::strerror(errno));
    }
}

void dumpImage(const DriverApi& api, const std::vector<Variable>& variables,
               const PortSettings& settings, const std::string& path) {
    std::map<std::tuple<int, int, std::uint32_t>, std::uint16_t> words;
    for (const Variable& v : variables) {
        const int station = stationOf(v, settings);
        const auto& off = settings.offStations;
        if (std::find(off.begin(), off.end(), station) != off.end()) {
            continue;
        }
        const long first = api.addressOf(v.area, QString::fromStdString(v.address));
        if (isWordArea(v.area)) {
            for (long a = first; a < first + v.count; ++a) {
                words[{station, v.area, static_cast<std::uint32_t>(a)}] =
                    word(api, v.area, a, station);
            }
            continue;
        }
        const int area = v.area == korvan::kAreaBitOfWord ? kBitOfWordHostArea : v.area;
        for (long w = first / kBitsPerWord; w <= (first + v.count - 1) / kBitsPerWord; ++w) {
            words[{station, area, static_cast<std::uint32_t>(w)}] =
                area == kBitOfWordHostArea ? word(api, area, w, station)
                                           : bitWord(api, area, w, station);
        }
    }
    std::vector<tools::MemoryWord> list;
    for (const auto& [key, value] : words) {
        list.push_back({std::get<0>(key), std::get<1>(key), std::get<2>(key), value});
    }
    tools::writeWordFile(path, list, "driver register image");
}

}  // namespace refhost
