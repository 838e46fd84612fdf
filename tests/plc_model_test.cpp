// The PLC model answers literal frames of the wire format from its own memory. It shares no code
// with the driver, so its agreement with the driver's frames means both follow the format.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "plc_model.h"

namespace {

using plcsim::Bytes;

constexpr int kCode14 = 0x80;  // the PLC's code of area 14

// Frames written down as spaced hex, both ways.
Bytes bytesOf(const char* hex) {
    Bytes bytes;
    std::istringstream in(hex);
    for (std::string pair; in >> pair;) {
        bytes.push_back(static_cast<std::uint8_t>(std::strtoul(pair.c_str(), nullptr, 16)));
    }
    return bytes;
}
std::string hex(const Bytes& bytes) {
    std::string text;
    char pair[4];
    for (std::uint8_t b : bytes) {
        std::snprintf(pair, sizeof pair, "%02X", b);
        text += (text.empty() ? "" : " ") + std::string(pair);
    }
    return text;
}

}  // namespace

TEST(PlcModel, AnswersFramesFromItsMemory) {
    plcsim::PlcModel plc({1, 2, 3});
    plc.setWord(1, kCode14, 100, 0x1234);
    plc.setWord(1, kCode14, 101, 0x5678);
    plc.setBit(1, 0x01, 32, true);
    plc.setBit(1, 0x01, 47, true);
    const struct {
        const char* request;
        const char* reply;  // empty: the line stays silent
    } cases[] = {
        {"01 20 80 00 00 64 00 02 7F DB", "01 20 04 12 34 56 78 86 54"},
        {"01 1E 01 00 00 20 00 10 7E 11", "01 1E 02 01 80 BE 18"},  // bits low byte first
        {"16 00 00 01 01 00 0E 00 00 00 64 00 02 00 00 00 00 00 00 00 00 8C",
         "01 20 04 12 34 56 78 86 54"},
        {"01 21 80 00 00 64 00 02 04 AB CD 56 78 AD 74", "01 21 80 00 00 64 00 02 6F 1B"},
        {"01 21 80 00 00 0A 00 01 02 00 08 92 21", "01 21 80 00 00 0A 00 01 4E C7"},
        {"00 21 80 00 00 05 00 01 02 AB CD 00 00", ""},  // bad CRC: ignored
        {"00 21 80 00 00 05 00 01 02 AB CD 29 41", ""},  // a broadcast is carried out silently
        {"04 20 80 00 00 00 00 01 BE 3A", ""},           // a station not served
        {"", ""},
        {"FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF", ""},
    };
    for (const auto& c : cases) {
        const plcsim::Reply r = plc.handle(bytesOf(c.request));
        EXPECT_EQ(r.answered, *c.reply != 0) << c.request;
        EXPECT_EQ(hex(r.bytes), c.reply) << c.request;
    }
    EXPECT_EQ(plc.stats().ignored, 4);
    EXPECT_EQ(plc.word(1, kCode14, 100), 0xABCD);
    EXPECT_EQ(plc.word(1, kCode14, 10), 0x0008);
    EXPECT_EQ(plc.word(1, kCode14, 5), 0xABCD);
    EXPECT_EQ(plc.word(3, kCode14, 5), 0xABCD);
    // A remote word payload is low byte first.
    EXPECT_EQ(hex(plc.handle(bytesOf("18 00 01 01 01 00 0E 00 00 00 64 00 01 00 00 00 00 00 00 "
                                     "00 00 34 12 D4"))
                      .bytes),
              "01 21 00 0E 00 00 00 64 D8 EF");
    EXPECT_EQ(plc.word(1, kCode14, 100), 0x1234);
}
