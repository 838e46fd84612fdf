// Rotating the cyclic read list: short lists shift in place, long ones go through an append; both
// must give the order of a plain rotation however many turns the list makes, and leave a copy
// held elsewhere as it was.
#include <gtest/gtest.h>

#include "driver/list_rotation.h"

TEST(ListRotation, EveryTurnMovesTheFirstEntryToTheEnd) {
    for (int size : {0, 1, 2, 3, 512, 513, 3000}) {
        QList<RW_VAR> list, copy;
        for (int i = 0; i < size; ++i) {
            list.append(RW_VAR());
            list.last().address = i;
        }
        for (int t = 0, turns = 2 * size + 7; t < turns; ++t) {
            copy = list;
            rotateFirstToEnd(list);
            ASSERT_EQ(copy.size() + list.size(), 2 * size);
            for (int i = 0; i < size; ++i) {
                ASSERT_EQ(list.at(i).address, copy.at((i + 1) % size).address) << size << " " << t;
            }
        }
    }
}
