// Arbitrary sequences of host calls against one driver, and polling rounds answered by the PLC
// model, by damaged copies of its replies, or not at all.
#include "fuzz_input.h"
#include "plc_model.h"

namespace {

enum Op { kAnswered, kDamaged, kSilent, kWrite, kRead, kOnceRead, kRebuild, kSwitch, kConfigure };

// The most units the PLC model is asked for in one frame, more than any block a panel plans. A
// frame asking for more (a negative count reaches the wire as up to 65,535 units, each a lookup
// in the model) goes unanswered: the driver could never take the reply's length anyway.
constexpr int kMostUnitsAnswered = 255;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ComInfo& info = resetDriverForFuzzing();
    plcsim::PlcModel plc({1, 2});
    FuzzInput in(data, size);
    for (int step = 0; step < 200 && !in.empty(); ++step) {
        const auto op = static_cast<Op>(in.byte() % (kConfigure + 1));
        Protocol* p = op <= kSilent ? ComCommunication() : nullptr;
        if (p != nullptr) {
            QByteArray reply;
            if (op != kSilent && p->var.count >= 0 && p->var.count <= kMostUnitsAnswered) {
                const int sent = qBound(0, p->sendLength, p->frame.size());
                const plcsim::Bytes r =
                    plc.handle(plcsim::Bytes(p->frame.begin(), p->frame.begin() + sent)).bytes;
                reply = QByteArray(reinterpret_cast<const char*>(r.data()), int(r.size()));
            }
            if (op == kDamaged && !reply.isEmpty()) {
                reply[in.byte() % reply.size()] = static_cast<char>(in.byte());
                reply.truncate(reply.size() - in.byte() % 3);
            }
            DataCom(&reply, reply.size());
        } else if (op == kWrite) {
            QByteArray values = in.bytes(in.byte() % 8);
            SetRegisterData(QString(), in.area(), in.text(), in.byte() % 4, &values,
                            in.byte() % 20 - 2, in.byte() % 3, in.byte() % 3);
        } else if (op == kRead) {
            QByteArray out;
            GetRegisterData(QString(), in.area(), in.text(), in.byte() % 4, &out,
                            in.byte() % 40 - 2);
        } else if (op == kOnceRead) {
            RW_VAR v;
            v.area = in.area();
            v.addressText = in.text();
            v.count = in.byte() % 40 - 2;
            v.station = in.byte() % 4;
            v.port = in.byte() % 3;
            AddListOnceReadVar(&v, in.byte() % 3);
        } else if (op == kRebuild) {
            QList<HOSTVAR> list;
            for (int n = in.byte() % 6; n > 0; --n) {
                HOSTVAR h;
                h.area = static_cast<quint8>(in.area());
                h.station = in.byte() % 4;
                h.addressText = in.text();
                h.count = in.byte() % 64 - 2;
                list.append(h);
            }
            ReCreatReadVarList(&list);
        } else if (op == kSwitch) {
            EnCommStation(in.byte() % 5 - 1, in.byte() % 3);
        } else if (op == kConfigure) {
            info.maxUnits = static_cast<std::int8_t>(in.byte());
            info.retryLimit = in.byte() % 4;
            info.perVarStation = in.byte() % 2;
            info.remoteMode = in.byte() % 2;
            info.writeMode = in.byte() % 3;
        }
    }
    return 0;
}
