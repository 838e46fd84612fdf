// Switching stations off and on, and the lookup the scheduler uses.
//
// stationMap holds the stations whose communication is switched off; an empty map serves every
// station. Both switch entry points act on the one map under stationMutex, so any thread may
// call them while the polling loop runs.
#include "base/Communication_Protocol.h"
#include "base/mutex_lock.h"

namespace {

void switchStation(Communication_Protocol& d, int station, int enable) {
    MutexLock lock(d.stationMutex);
    if (station < 0) {
        d.stationMap.clear();  // every station is served again
    } else if (enable == korvan::kStationOff) {
        d.stationMap.insert(station, 0);
    } else if (enable == korvan::kStationOn) {
        d.stationMap.remove(station);
    }
}

}  // namespace

void EnCommStation(int station, int enable) {
    switchStation(PLC_driver, station, enable);
}

void EnableEthernet(int station, int enable) {
    switchStation(PLC_driver, station, enable);
}

int Ethernetcontains(int station) {
    Communication_Protocol& d = PLC_driver;
    MutexLock lock(d.stationMutex);
    return d.stationMap.contains(station) ? 1 : 0;
}
