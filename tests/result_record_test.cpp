// The result record is filled from list entries without their payload.
#include <gtest/gtest.h>

#include "driver/Communication_Protocol.h"

TEST(DriverObject, PassRetValueCopiesEverythingButThePayload) {
    RW_VAR from;
    from.ownerId = 1;
    from.itemId = 2;
    from.direction = 3;
    from.remoteMode = 4;
    from.port = 5;
    from.result = 6;
    from.nameText = QStringLiteral("name");
    from.addressText = QStringLiteral("10.3");
    from.area = 7;
    from.address = 8;
    from.station = 9;
    from.count = 10;
    from.mark = -1;
    from.extra = 12;
    from.data = QByteArray("payload");
    RW_VAR to;
    to.data = QByteArray("old");
    passRetValue(from, to);
    EXPECT_EQ(to.ownerId + to.itemId + to.direction + to.remoteMode + to.port + to.result, 21);
    EXPECT_EQ(to.nameText, from.nameText);
    EXPECT_EQ(to.addressText, from.addressText);
    EXPECT_EQ(to.area + to.address + to.station + to.count + to.mark + to.extra, 45);
    EXPECT_TRUE(to.data.isEmpty());
}
