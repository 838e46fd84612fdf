#include "panel_variables.h"

#include <iterator>
#include <random>

#include "base/Communication_Protocol.h"
#include "base/areas.h"

namespace bench {

namespace {

constexpr int kStations = 8;
constexpr int kAreas[] = {0, 2, 9, 14, 20, korvan::kAreaBitOfWord};
constexpr int kHighestWord = 20000;
constexpr int kLongestCount = 32;
constexpr unsigned kSeed = 12345;

}  // namespace

QList<HOSTVAR> panelVariables(int size) {
    std::mt19937 rng(kSeed);
    std::uniform_int_distribution<int> station(1, kStations);
    std::uniform_int_distribution<int> areaIndex(0, static_cast<int>(std::size(kAreas)) - 1);
    std::uniform_int_distribution<int> word(0, kHighestWord);
    std::uniform_int_distribution<int> bit(0, 15);
    std::uniform_int_distribution<int> count(1, kLongestCount);
    QList<HOSTVAR> list;
    list.reserve(size);
    for (int i = 0; i < size; ++i) {
        HOSTVAR var;
        var.area = static_cast<quint8>(kAreas[areaIndex(rng)]);
        var.station = static_cast<quint8>(station(rng));
        var.count = count(rng);
        if (var.area == korvan::kAreaBitOfWord) {
            var.addressText = QString::fromLatin1("%1.%2").arg(word(rng)).arg(bit(rng));
        } else {
            const int base = isOctalArea(var.area) ? 8 : 10;
            var.addressText = QString::number(word(rng), base);
        }
        list.append(var);
    }
    return list;
}

void usePlanningPort(ComInfo& info) {
    info = ComInfo();
    info.maxUnits = korvan::kMaxUnitsCap;
    info.perVarStation = 1;
    info.portId = 1;
    SetComInfo(&info);
}

}  // namespace bench
