// Once-reads registered by address text, planned in pieces of the block length.
#include "lists/once_read_planning.h"

#include "base/wrapping.h"
#include "lists/address_text.h"
#include "lists/word_units.h"

namespace {

// Two once-reads ask for the same words for the same host item. The texts, the payload and the
// remaining fields do not matter.
bool sameOnceRead(const RW_VAR& a, const RW_VAR& b) {
    return a.ownerId == b.ownerId && a.itemId == b.itemId && a.station == b.station &&
           a.area == b.area && a.address == b.address && a.count == b.count && a.port == b.port;
}

bool containsOnceRead(const QList<RW_VAR>& list, const RW_VAR& var) {
    for (const RW_VAR& entry : list) {
        if (sameOnceRead(entry, var)) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool normaliseOnceRead(RW_VAR& var, const ComInfo& info) {
    const int address = parseAddress(var.area, var.addressText);
    if (address < 0) {
        return false;
    }
    var.station = info.perVarStation == 0 ? info.defaultStation : var.station;
    var.address = address;
    var.mark = 0;
    var.extra = 0;
    if (var.station == 0) {
        return false;
    }
    toWordUnits(var.area, var.address, var.count);
    return true;
}

// Once the list is full no later piece can be taken, so offering the rest one by one would
// change nothing.
void appendOnceReadPieces(QList<RW_VAR>& list, RW_VAR& var, int max) {
    const int total = var.count;
    if (total <= 0) {
        return;
    }
    const int start = var.address;
    for (int remaining = total; remaining > 0 && list.size() < korvan::kListCapacity;) {
        const int piece = remaining >= max ? max : remaining;
        var.count = piece;
        if (!containsOnceRead(list, var)) {
            list.append(var);
        }
        remaining -= piece;
        var.address = wrapAdd(var.address, piece);
    }
    var.address = wrapAdd(start, total);
    var.count = total % max == 0 ? max : total % max;
}
