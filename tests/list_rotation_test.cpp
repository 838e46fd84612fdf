// Rotating the cyclic read list: short lists shift in place, long ones go through an append; both
// must give the order of a plain rotation, however many turns the list makes.
#include <gtest/gtest.h>

#include "driver/list_rotation.h"

namespace {

QList<RW_VAR> numbered(int size) {
    QList<RW_VAR> list;
    for (int i = 0; i < size; ++i) {
        RW_VAR v;
        v.address = i;
        v.addressText = QString::number(i);
        list.append(v);
    }
    return list;
}

TEST(ListRotation, EveryTurnMovesTheFirstEntryToTheEnd) {
    for (int size : {0, 1, 2, 3, 100, 512, 513, 3000}) {
        QList<RW_VAR> list = numbered(size);
        const int turns = 3 * size + 7;
        for (int t = 1; t <= turns; ++t) {
            rotateFirstToEnd(list);
            if (size == 0) {
                continue;
            }
            ASSERT_EQ(list.first().address, t % size) << size << " " << t;
            ASSERT_EQ(list.last().address, (t + size - 1) % size) << size << " " << t;
        }
        ASSERT_EQ(list.size(), size);
        for (int i = 0; i < size; ++i) {
            ASSERT_EQ(list.at(i).address, (turns + i) % size) << size << " " << i;
            ASSERT_EQ(list.at(i).addressText, QString::number(list.at(i).address));
        }
    }
}

TEST(ListRotation, ACopyHeldElsewhereKeepsItsOrder) {
    QList<RW_VAR> list = numbered(600);
    const QList<RW_VAR> copy = list;
    rotateFirstToEnd(list);
    EXPECT_EQ(copy.first().address, 0);
    EXPECT_EQ(list.first().address, 1);
    EXPECT_EQ(list.last().address, 0);
}

}  // namespace
