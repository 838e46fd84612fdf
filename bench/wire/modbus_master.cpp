// The peer's master: libmodbus reading 2 holding registers from station 1, over and over, on a
// pseudo-terminal's device (see master_loop.h for the command line).
#include <modbus/modbus.h>

#include <cerrno>
#include <cstdio>
#include <exception>

#include "master_loop.h"

namespace {

constexpr int kStation = 1;
constexpr int kFirstRegister = 100;
constexpr int kRegisters = 2;

}  // namespace

int main(int argc, char** argv) {
    try {
        const wire::MasterRun run = wire::parseMasterRun(argc, argv);
        modbus_t* ctx = modbus_new_rtu(run.device.c_str(), 9600, 'N', 8, 1);
        if (ctx == nullptr || modbus_set_slave(ctx, kStation) != 0 || modbus_connect(ctx) != 0) {
            std::fprintf(stderr, "%s: cannot open %s: %s\n", argv[0], run.device.c_str(),
                         modbus_strerror(errno));
            return 1;
        }
        uint16_t values[kRegisters];
        const int status = wire::timeExchanges(run, [&] {
            return modbus_read_registers(ctx, kFirstRegister, kRegisters, values) == kRegisters;
        });
        modbus_close(ctx);
        modbus_free(ctx);
        return status;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}
