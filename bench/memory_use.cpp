// Heap bytes the driver holds for a panel of 100,000 variables (see panel_variables.h): per
// entry of the planned read list, and per word of the register image once every block has been
// read. Measured as the growth of malloc's in-use bytes (mallinfo2: arena and mmapped blocks,
// chunk headers included) across the rebuild and across one round of exchanges.
//
//   korvan_memory_use [VARIABLES]   prints "key value" lines
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/Communication_Protocol.h"
#include "exchange_cases.h"
#include "panel_variables.h"

namespace {

constexpr int kDefaultVariables = 100000;

long long heapInUse() {
    const struct mallinfo2 m = mallinfo2();
    return static_cast<long long>(m.uordblks + m.hblkhd);
}

// One round of the read list with the PLC's replies; returns them in the order they came.
std::vector<QByteArray> readRound() {
    std::vector<QByteArray> replies;
    for (int i = PLC_driver.readList.size(); i > 0; --i) {
        replies.push_back(bench::replyTo(ComCommunication()));
        DataCom(&replies.back(), replies.back().size());
    }
    return replies;
}

}  // namespace

int main(int argc, char** argv) {
    const int variables = argc > 1 ? std::atoi(argv[1]) : kDefaultVariables;
    bench::resetDriver();
    ComInfo port;
    bench::usePlanningPort(port);
    QList<HOSTVAR> panel = bench::panelVariables(variables);

    const long long beforePlan = heapInUse();
    ReCreatReadVarList(&panel);
    const long long planBytes = heapInUse() - beforePlan;
    const int entries = PLC_driver.readList.size();

    // The first round fills the image and gives the replies; the image is then emptied and
    // filled again by the same replies, so that only the image's growth is counted.
    const std::vector<QByteArray> replies = readRound();
    PLC_driver.registerCache = QHash<quint64, quint16>();
    const long long beforeImage = heapInUse();
    for (const QByteArray& reply : replies) {
        ComCommunication();
        QByteArray bytes = reply;
        DataCom(&bytes, bytes.size());
    }
    const long long imageBytes = heapInUse() - beforeImage;
    const int words = PLC_driver.registerCache.size();

    std::printf("variables %d\n", variables);
    std::printf("read_entries %d\nread_entry_bytes %.1f\n", entries,
                static_cast<double>(planBytes) / entries);
    std::printf("image_words %d\nimage_word_bytes %.1f\n", words,
                static_cast<double>(imageBytes) / words);
    return 0;
}
