// The peer's slave: libmodbus answering as station 1 from its own registers, on a new
// pseudo-terminal (see responder_main.h). Runs until killed.
#include <modbus/modbus.h>

#include <stdexcept>

#include "responder_main.h"

namespace {

constexpr int kStation = 1;
constexpr int kRegisters = 1000;

}  // namespace

int main(int, char** argv) {
    return wire::serveOnPseudoTerminal(argv[0], [](int fd) {
        modbus_t* ctx = modbus_new_rtu("/dev/null", 9600, 'N', 8, 1);  // the device is not opened
        modbus_mapping_t* registers = modbus_mapping_new(0, 0, kRegisters, 0);
        if (ctx == nullptr || registers == nullptr || modbus_set_slave(ctx, kStation) != 0 ||
            modbus_set_socket(ctx, fd) != 0) {
            throw std::runtime_error("cannot set up the libmodbus slave");
        }
        uint8_t request[MODBUS_RTU_MAX_ADU_LENGTH];
        for (;;) {
            const int length = modbus_receive(ctx, request);
            if (length > 0) {
                modbus_reply(ctx, request, length, registers);
            }
        }
    });
}
