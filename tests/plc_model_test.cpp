// The PLC model, the simulator's core and the tests' oracle: it answers literal frames of the wire
// format from its own memory, and shares no code with the driver.
#include <gtest/gtest.h>

#include <QtCore/QByteArray>

#include "plc_model.h"

TEST(PlcModel, AnswersFramesFromItsMemory) {
    const auto bytesOf = [](const char* hex) {
        const QByteArray b = QByteArray::fromHex(hex);
        return plcsim::Bytes(b.begin(), b.end());
    };
    plcsim::PlcModel plc({1, 2, 3});
    plc.setWord(1, 0x80, 100, 0x1234);
    plc.setWord(1, 0x80, 101, 0x5678);
    plc.setBit(1, 0x01, 32, true);
    plc.setBit(1, 0x01, 47, true);
    const std::pair<const char*, const char*> cases[] = {
        // request, reply (none: silent)
        {"01 20 80 00 00 64 00 02 7F DB", "01 20 04 12 34 56 78 86 54"},
        {"01 1E 01 00 00 20 00 10 7E 11", "01 1E 02 01 80 BE 18"},  // bits low byte first
        {"16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C",
         "01 20 04 12 34 56 78 86 54"},
        {"01 21 80 00 00 64 00 02 04 AB CD 56 78 AD 74", "01 21 80 00 00 64 00 02 6F 1B"},
        {"00 21 80 00 00 05 00 01 02 AB CD 00 00", ""},  // bad CRC: ignored
        {"00 21 80 00 00 05 00 01 02 AB CD 29 41", ""},  // a broadcast is carried out silently
        {"04 20 80 00 00 00 00 01 BE 3A", ""},           // a station not served
        {"18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 00 00 34 12 D4",
         "01 21 00 0E 00 00 00 64 D8 EF"},  // a remote word payload is low byte first
    };
    for (const auto& [request, reply] : cases) {
        const plcsim::Reply r = plc.handle(bytesOf(request));
        EXPECT_TRUE(r.answered == (*reply != 0) && r.bytes == bytesOf(reply)) << request;
    }
    EXPECT_EQ(plc.stats().ignored, 2);  // the broadcast was carried out
    EXPECT_EQ(
        std::vector<int>({plc.word(1, 0x80, 100), plc.word(1, 0x80, 5), plc.word(3, 0x80, 5)}),
        std::vector<int>({0x1234, 0xABCD, 0xABCD}));
}
