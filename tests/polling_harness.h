// Whole exchanges between the driver and the PLC model, as a host runs them: ComCommunication,
// send, the PLC's answer (or silence), DataCom. Callbacks are recorded.
#ifndef KORVAN_TESTS_POLLING_HARNESS_H
#define KORVAN_TESTS_POLLING_HARNESS_H

#include <string>
#include <vector>

#include "driver_fixture.h"
#include "plc_model.h"

struct ResultCall {
    int hostTag;
    int ownerId;
    int itemId;
    int status;
    bool operator==(const ResultCall& o) const {
        return hostTag == o.hostTag && ownerId == o.ownerId && itemId == o.itemId &&
               status == o.status;
    }
};

struct ErrorCall {
    int listSize;
    int ownerId;
    int flag;
};

inline std::vector<ResultCall>& resultCalls() {
    static std::vector<ResultCall> calls;
    return calls;
}

inline std::vector<ErrorCall>& errorCalls() {
    static std::vector<ErrorCall> calls;
    return calls;
}

inline int recordResult(int hostTag, int ownerId, int itemId, int status) {
    resultCalls().push_back({hostTag, ownerId, itemId, status});
    return 0;
}

inline int recordError(QList<RW_VAR>* list, int ownerId, int flag) {
    errorCalls().push_back({list != nullptr ? list->size() : -1, ownerId, flag});
    return 0;
}

inline QByteArray toQt(const plcsim::Bytes& b) {
    return QByteArray(reinterpret_cast<const char*>(b.data()), static_cast<int>(b.size()));
}

class PollingTest : public DriverTest {
protected:
    void SetUp() override {
        DriverTest::SetUp();
        info.hostTag = 77;
        resultCalls().clear();
        errorCalls().clear();
        RegistCallBackFuncIntf(recordResult, recordError);
    }

    // One polling round. Returns the result code, or -1 when there was nothing to send.
    int poll() {
        Protocol* p = ComCommunication();
        if (p == nullptr) {
            return -1;
        }
        sent.push_back(p->frame.left(p->sendLength));
        const plcsim::Reply r =
            plc.handle(plcsim::Bytes(p->frame.begin(), p->frame.begin() + p->sendLength));
        QByteArray reply = r.answered ? toQt(r.bytes) : QByteArray();
        return DataCom(&reply, reply.size())->result;
    }

    // Polls until nothing is left to send (at most `limit` rounds); returns the codes.
    std::vector<int> pollAll(int limit = 1000) {
        std::vector<int> codes;
        for (int code; limit-- > 0 && (code = poll()) != -1;) {
            codes.push_back(code);
        }
        return codes;
    }

    // Where the exchange just started comes from: W write, O once-read, R cyclic read.
    char source() const {
        switch (PLC_driver.currentSource) {
            case kSourceWriteList:
                return 'W';
            case kSourceOnceReadList:
                return 'O';
            case kSourceReadList:
                return 'R';
            default:
                return '?';
        }
    }

    static RW_VAR writeVar(int area, int address, int count, QByteArray data, int owner = 1,
                           int item = 1) {
        RW_VAR v;
        v.ownerId = owner;
        v.itemId = item;
        v.direction = 1;
        v.port = 1;
        v.station = 1;
        v.area = area;
        v.address = address;
        v.count = count;
        v.data = data;
        return v;
    }

    static RW_VAR readVar(int area, int address, int count, int station = 1) {
        RW_VAR v;
        v.port = 1;
        v.station = station;
        v.area = area;
        v.address = address;
        v.count = count;
        return v;
    }

    plcsim::PlcModel plc{{1, 2, 3}};
    std::vector<QByteArray> sent;
};

#endif
