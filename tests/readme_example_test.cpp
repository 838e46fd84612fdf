// The README's minimal host, built from the README itself and run against the PLC model, linked
// to the shared library as a host links it.
#include <gtest/gtest.h>

#include "plc_model.h"
#include "readme_example.inc"

namespace {

// A line whose far end is the PLC model: each frame sent is answered at once.
struct SimulatedLine : Line {
    explicit SimulatedLine(plcsim::PlcModel& model) : plc(model) {}
    void send(const QByteArray& bytes) override {
        const plcsim::Bytes r = plc.handle(plcsim::Bytes(bytes.begin(), bytes.end())).bytes;
        pending = QByteArray(reinterpret_cast<const char*>(r.data()), static_cast<int>(r.size()));
    }
    QByteArray receive(int length) override { return pending.left(length); }
    plcsim::PlcModel& plc;
    QByteArray pending;
};

}  // namespace

TEST(ReadmeExample, ReadsAndWritesASimulatedPlc) {
    plcsim::PlcModel plc({1});
    plc.setWord(1, 0x80, 100, 41);
    SimulatedLine line(plc);
    startDriver();
    ASSERT_TRUE(pollOnce(line));  // the cyclic read of words 100 and 101
    EXPECT_EQ(showAndBump(), 41);
    for (int i = 0; i < 3; ++i) {
        pollOnce(line);  // the write first, then cyclic reads
    }
    EXPECT_EQ(plc.word(1, 0x80, 100), 42);
    EXPECT_EQ(showAndBump(), 42);
}
