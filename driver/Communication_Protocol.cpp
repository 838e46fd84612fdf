// The global driver object and the host's local-area pointers.
//
// PLC_driver is constructed by the library's static initialiser when the library is loaded and
// destroyed when it is unloaded; destruction only releases storage (no callback, no frame).
#include "driver/Communication_Protocol.h"

#include "base/Communication_Protocol.h"
#include "base/areas.h"
#include "codec/area_codes.h"
#include "lists/word_units.h"

Communication_Protocol PLC_driver;

void* LB = nullptr;
void* LW = nullptr;
void* RWI = nullptr;

namespace {

// `to` takes the value of `from`; a text it already shares (the same list entry completed again,
// as a cyclic read is every round) is left alone, which saves two atomic reference count changes.
void assignShared(QString& to, const QString& from) {
    if (!to.isSharedWith(from)) {
        to = from;
    }
}

}  // namespace

void passRetValue(const RW_VAR& from, RW_VAR& to) {
    to.ownerId = from.ownerId;
    to.itemId = from.itemId;
    to.direction = from.direction;
    to.remoteMode = from.remoteMode;
    to.port = from.port;
    to.result = from.result;
    assignShared(to.nameText, from.nameText);
    assignShared(to.addressText, from.addressText);
    to.area = from.area;
    to.address = from.address;
    to.station = from.station;
    to.count = from.count;
    to.mark = from.mark;
    to.extra = from.extra;
    if (!to.data.isNull()) {
        to.data.clear();
    }
}

// The three member operations use no member data.

int Communication_Protocol::get_plc_reg(int area) {
    return imageArea(area);
}

void Communication_Protocol::update_rw_var(RW_VAR* var) {
    if (var != nullptr) {
        toWordUnits(var->area, var->address, var->count);
    }
}

unsigned char Communication_Protocol::register_identifier(unsigned char area) {
    return areaCode(area);
}
