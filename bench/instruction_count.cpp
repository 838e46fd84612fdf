// Runs one operation of the driver N times inside korvan_counted_loop, so that
//   valgrind --tool=callgrind --collect-atstart=no --toggle-collect=korvan_counted_loop
// counts the user-space instructions of exactly those N operations (bench/callgrind.sh).
//
//   korvan_instruction_count OPERATION N
//     OPERATION: an exchange of exchange_cases.h (read/2, write, ...), plan/VARIABLES,
//     host_read/WORDS or host_write
//   Prints "read_list N", the blocks of the driver's read list at the end.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "base/Communication_Protocol.h"
#include "exchange_cases.h"
#include "panel_variables.h"

namespace {

// Operations run before counting, so that first-time allocations are not counted.
constexpr int kWarmUp = 20;

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

int numberAfter(const std::string& s, char separator) {
    return std::stoi(s.substr(s.find(separator) + 1));
}

std::function<void()> operation(const std::string& name) {
    if (startsWith(name, "plan/")) {
        static ComInfo info;
        bench::usePlanningPort(info);
        auto list = std::make_shared<QList<HOSTVAR>>(bench::panelVariables(numberAfter(name, '/')));
        return [list] { ReCreatReadVarList(list.get()); };
    }
    if (startsWith(name, "host_read/")) {
        bench::resetDriver();
        for (int i = 0; i < 200; ++i) {
            PLC_driver.registerCache.insert(
                (1ull << 56) | (quint64(bench::kWordArea) << 48) | quint64(i), quint16(i));
        }
        const int words = numberAfter(name, '/');
        auto out = std::make_shared<QByteArray>();
        // Made once, as a panel keeps its address texts: the call alone is counted.
        const QString address = QString::fromLatin1("100");
        return [words, out, address] {
            GetRegisterData(QString(), bench::kWordArea, address, 1, out.get(), words);
        };
    }
    if (name == "host_write") {
        bench::resetDriver();
        bench::benchPort().writeMode = korvan::kWriteImageOnly;  // the write list would fill up
        auto value = std::make_shared<QByteArray>("\x34\x12", 2);
        const QString address = QString::fromLatin1("7");
        return [value, address] {
            SetRegisterData(QString(), bench::kWordArea, address, 1, value.get(), 1, 1, 1);
        };
    }
    auto exchange = std::make_shared<bench::ExchangeCase>(bench::ExchangeCase::named(name));
    return [exchange] { exchange->once(); };
}

}  // namespace

// The one function callgrind collects in; kept out of line and unmangled so it can be named.
extern "C" __attribute__((noinline)) void korvan_counted_loop(const std::function<void()>& op,
                                                              int n) {
    for (int i = 0; i < n; ++i) {
        op();
    }
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s OPERATION N\n", argv[0]);
        return 2;
    }
    const std::function<void()> op = operation(argv[1]);
    korvan_counted_loop(op, 0);  // resolves lazy bindings outside the count
    for (int i = 0; i < kWarmUp; ++i) {
        op();
    }
    korvan_counted_loop(op, std::atoi(argv[2]));
    // The number of blocks a planned list reads in turn, for the table's labels.
    std::printf("read_list %d\n", static_cast<int>(PLC_driver.readList.size()));
    return 0;
}
