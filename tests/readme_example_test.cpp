// The README's minimal host, built from the README itself and run against the PLC model, linked
// to the shared library as a host links it.
#include <gtest/gtest.h>

#include "plc_model.h"
#include "readme_example.inc"

namespace {

class SimulatedLine : public Line {
public:
    explicit SimulatedLine(plcsim::PlcModel& plc) : plc_(plc) {}
    void send(const QByteArray& bytes) override {
        const plcsim::Reply r = plc_.handle(plcsim::Bytes(bytes.begin(), bytes.end()));
        pending_ = QByteArray(reinterpret_cast<const char*>(r.bytes.data()),
                              static_cast<int>(r.bytes.size()));
    }
    QByteArray receive(int length) override { return pending_.left(length); }

private:
    plcsim::PlcModel& plc_;
    QByteArray pending_;
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
