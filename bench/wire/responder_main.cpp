#include "responder_main.h"

#include <exception>
#include <iostream>

#include "serial_line.h"

namespace wire {

int serveOnPseudoTerminal(const char* name, const std::function<void(int fd)>& serve) {
    try {
        const tools::PseudoTerminal pty = tools::openPseudoTerminal(tools::LineSettings());
        std::cout << "pty " << pty.path << std::endl;
        serve(pty.master.get());
        return 0;
    } catch (const std::exception& e) {
        std::cerr << name << ": " << e.what() << std::endl;
        return 1;
    }
}

}  // namespace wire
