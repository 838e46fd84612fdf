// QList::move(0, size - 1) shifts every entry once the list's storage has no free slot at its
// end, and a list built by appending reaches that state after a few rotations and stays in it:
// every cyclic exchange would then cost a memmove of the whole list. Appending a copy of the first
// entry and removing the original lets QList make room at the end, which it does in amortized
// constant time; that costs an allocation, so short lists, whose shift is cheaper, keep the plain
// move.
#include "driver/list_rotation.h"

#include <new>

namespace {

// Entries up to which shifting the whole list (a 4 KB memmove) is cheaper than a copy.
constexpr int kLongestShiftedList = 512;

}  // namespace

void rotateFirstToEnd(QList<RW_VAR>& list) {
    const int size = list.size();
    if (size < 2) {
        return;
    }
    if (size > kLongestShiftedList) {
        try {
            list.append(list.first());
            list.removeFirst();
            return;
        } catch (const std::bad_alloc&) {
            // The append left the list as it was; the move below needs no memory.
        }
    }
    list.move(0, size - 1);
}
