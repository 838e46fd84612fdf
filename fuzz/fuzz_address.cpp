// Address texts in every area, with any station, count and values, into PLCAddressChangeIntef,
// SetRegisterData and GetRegisterData: the read agrees with the parse, at the defined size.
#include <cstdlib>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ComInfo& info = resetDriverForFuzzing();
    FuzzInput in(data, size);
    info.perVarStation = in.byte() % 2;
    info.writeMode = in.byte() % 3;
    info.maxUnits = static_cast<std::int8_t>(in.byte());
    const int area = in.area();
    const int station = static_cast<std::int8_t>(in.byte());
    const int count = in.count();
    const QString text = in.text();
    QByteArray values = in.rest();

    const bool valid = PLCAddressChangeIntef(area, text) >= 0;
    SetRegisterData(QString(), area, text, station, &values, count, 1, 2);
    const QByteArray stale("stale");
    QByteArray out = stale;
    if (GetRegisterData(QString(), area, text, station, &out, count) !=
        (valid ? korvan::kReadDone : korvan::kAddressNotParsed)) {
        abort();
    }
    // The buffer as it was for a negative count; a byte a unit for a bit form (areas 0..13, 29),
    // else two; empty for no units, more than a byte array holds, or a failed allocation.
    const bool bitForm =
        valid && ((area >= korvan::kAreaFirstBit && area <= korvan::kAreaLastBit) ||
                  area == korvan::kAreaBitOfWord);
    const qint64 units = static_cast<qint64>(count) * (bitForm ? 1 : 2);
    const qint64 expected = count < 0 ? stale.size() : units > INT_MAX - 64 ? 0 : units;
    if (!out.isEmpty() && out.size() != expected) {
        abort();
    }
    return 0;
}
