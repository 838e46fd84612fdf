// Address texts in every area through PLCAddressChangeIntef, GetRegisterData and
// SetRegisterData, with arbitrary stations, counts and values. Besides crashes, a host read
// must agree with the parse on validity and return a buffer of the size its form defines.
#include <cstdlib>

#include "fuzz_input.h"

namespace {

bool bitForm(int area) {
    return (area >= 0 && area <= 13) || area == 29;
}

// The buffer size a host read promises: the length it had for a negative count, empty for no
// units or more than a byte array holds.
qint64 expectedSize(bool valid, int area, int count, qint64 before) {
    if (count < 0) {
        return before;
    }
    if (count == 0) {
        return 0;
    }
    const qint64 size = static_cast<qint64>(count) * (valid && bitForm(area) ? 1 : 2);
    return size > INT_MAX - 64 ? 0 : size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ComInfo info;
    resetDriverForFuzzing(&info);
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
    QByteArray out("stale");
    const qint64 before = out.size();
    const int result = GetRegisterData(QString(), area, text, station, &out, count);
    if (result != (valid ? 1 : 0)) {
        abort();
    }
    // A buffer that cannot be allocated comes back empty; otherwise it has the promised size.
    if (!out.isEmpty() && out.size() != expectedSize(valid, area, count, before)) {
        abort();
    }
    return 0;
}
