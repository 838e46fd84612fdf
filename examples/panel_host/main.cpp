// An example panel host: the driver linked into a QtCore program that polls one PLC from its
// event loop, over a serial line or TCP, shows its tags once per scan and writes one of them.
//
//   korvan_panel_host (--device PATH | --tcp HOST:PORT) [--station N] [--scans N]
//                     [--write TAG=VALUE]
//
// Built as a panel's SDK builds a host: C++98 against Qt 4, C++11 against Qt 5.
#include <signal.h>
#include <string.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QString>
#include <cstdio>

#include "korvan_qa_qb_series_port.h"
#include "line.h"
#include "panel_host.h"

namespace {

// The panel project's tags. Area 14 is the first word area; area 29 holds bits of its words, as
// "word.bit". The driver plans them into two block reads: words 100-110 and 300-301.
const Tag kTags[] = {
    {"counter", korvan::kAreaFirstWord, "100", 1},
    {"setpoint", korvan::kAreaFirstWord, "110", 1},
    {"flags", korvan::kAreaBitOfWord, "110.0", 4},
    {"ramp", korvan::kAreaFirstWord, "300", 2},
};
const int kTagCount = sizeof kTags / sizeof kTags[0];

const int kMaxStation = 255;
const int kMaxWord = 0xFFFF;
const int kMaxScans = 1000000;
const int kExitUsage = 2;
const int kExitLine = 1;

const char kUsage[] =
    "usage: korvan_panel_host (--device PATH | --tcp HOST:PORT) [--station N] [--scans N]\n"
    "                         [--write TAG=VALUE]\n"
    "  --device PATH      a serial line (or pseudo-terminal), 9600 8N1\n"
    "  --tcp HOST:PORT    a TCP connection\n"
    "  --station N        the PLC's station, 1..255 (default 1)\n"
    "  --scans N          stop after N scans (default: run until killed)\n"
    "  --write TAG=VALUE  after the first scan, write VALUE into the first unit of TAG\n"
    "tags: counter, setpoint, flags, ramp\n";

struct Options {
    const char* device;
    const char* tcp;
    int station;
    int scans;
    TagWrite write;
};

bool parseNumber(const char* text, int low, int high, int* value) {
    bool ok = false;
    *value = QString::fromLocal8Bit(text).toInt(&ok);
    return ok && *value >= low && *value <= high;
}

bool parseWrite(const char* text, TagWrite* write) {
    const char* equals = strchr(text, '=');
    for (int i = 0; equals != 0 && i < kTagCount; ++i) {
        const Tag& tag = kTags[i];
        if (strncmp(text, tag.name, equals - text) == 0 && tag.name[equals - text] == '\0') {
            write->tag = i;
            const bool word =
                tag.area >= korvan::kAreaFirstWord && tag.area <= korvan::kAreaLastWord;
            const int high = word ? kMaxWord : 1;
            return parseNumber(equals + 1, 0, high, &write->value);
        }
    }
    return false;
}

bool parseOptions(int argc, char** argv, Options* o) {
    o->device = 0;
    o->tcp = 0;
    o->station = 1;
    o->scans = 0;
    o->write.tag = -1;
    o->write.value = 0;
    // Every option takes a value.
    for (int i = 1; i < argc; i += 2) {
        const char* value = i + 1 < argc ? argv[i + 1] : 0;
        bool ok = value != 0;
        if (strcmp(argv[i], "--device") == 0) {
            o->device = value;
        } else if (strcmp(argv[i], "--tcp") == 0) {
            o->tcp = value;
        } else if (strcmp(argv[i], "--station") == 0) {
            ok = ok && parseNumber(value, 1, kMaxStation, &o->station);
        } else if (strcmp(argv[i], "--scans") == 0) {
            ok = ok && parseNumber(value, 1, kMaxScans, &o->scans);
        } else if (strcmp(argv[i], "--write") == 0) {
            ok = ok && parseWrite(value, &o->write);
        } else {
            ok = false;
        }
        if (!ok) {
            std::fprintf(stderr, "korvan_panel_host: bad option '%s%s%s'\n", argv[i],
                         value != 0 ? " " : "", value != 0 ? value : "");
            return false;
        }
    }
    return (o->device != 0) != (o->tcp != 0);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    Options options;
    if (!parseOptions(argc, argv, &options)) {
        std::fputs(kUsage, stderr);
        return kExitUsage;
    }
    // A TCP peer that closes shows as a failed write, not as a signal that ends the process.
    signal(SIGPIPE, SIG_IGN);
    // A line at a time, also into a pipe.
    std::setvbuf(stdout, 0, _IOLBF, BUFSIZ);

    const int fd =
        options.device != 0 ? openSerial(options.device) : startTcpConnection(options.tcp);
    if (fd < 0) {
        return kExitLine;
    }
    QList<Tag> tags;
    for (int i = 0; i < kTagCount; ++i) {
        tags.append(kTags[i]);
    }
    PanelHost host(fd, options.tcp != 0, options.station, options.scans, tags, options.write);
    return app.exec();
}
