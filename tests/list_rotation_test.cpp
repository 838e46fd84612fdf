// Rotating the cyclic read list: short lists shift in place, long ones go through an append; both
// must give the order of a plain rotation however many turns the list makes, and leave a copy
// held elsewhere as it was.
#include <gtest/gtest.h>

#include "driver/list_rotation.h"

TEST(ListRotation, EveryTurnMovesTheFirstEntryToTheEnd) {
    for (int size : {0, 1, 2, 3, 512, 513, 3000}) {
        QList<RW_VAR> list;
        for (int i = 0; i < size; ++i) {
            list.append(RW_VAR());
            list.last().address = i;
        }
        const QList<RW_VAR> copy = list;
        const int turns = 2 * size + 7;
        for (int t = 0; t < turns; ++t) {
            rotateFirstToEnd(list);
        }
        ASSERT_EQ(list.size(), size);
        for (int i = 0; i < size; ++i) {
            ASSERT_EQ(list.at(i).address, (turns + i) % size) << size << " " << i;
            ASSERT_EQ(copy.at(i).address, i) << size;
        }
    }
}
