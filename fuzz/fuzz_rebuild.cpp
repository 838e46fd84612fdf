// Arbitrary host lists into ReCreatReadVarList. Besides crashes: the result is the size of
// readList, and under the span rule every block reads between 1 and the block length words.
#include <cstdlib>

#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ComInfo& info = resetDriverForFuzzing();
    FuzzInput in(data, size);
    info.maxUnits = static_cast<std::int8_t>(in.byte());
    info.perVarStation = in.byte() % 2;
    info.defaultStation = in.byte() % 3;
    QList<HOSTVAR> list;
    while (!in.empty() && list.size() < 128) {
        HOSTVAR h;
        h.area = static_cast<quint8>(in.area());
        h.station = in.byte() % 4;
        h.count = in.count() % 4096;
        h.addressText = in.text();
        h.nameText = QString::fromLatin1("v");
        list.append(h);
    }
    if (ReCreatReadVarList(&list) != PLC_driver.readList.size()) {
        abort();
    }
    for (const RW_VAR& block : PLC_driver.readList) {
        if (info.maxUnits >= 2 && (block.count < 1 || block.count > info.maxUnits)) {
            abort();
        }
    }
    return 0;
}
