// Switching stations off and on, and the lookup the scheduler uses.
//
// stationMap holds the stations whose communication is switched off; an empty map serves every
// station. Both switch entry points act on the one map under stationMutex, so any thread may
// call them while the polling loop runs.
#include "base/Communication_Protocol.h"
#include "base/mutex_lock.h"

namespace {

void switchStation(int station, int enable) {
    MutexLock lock(PLC_driver.stationMutex);
    if (station < 0) {
        PLC_driver.stationMap.clear();  // every station is served again
    } else if (enable == korvan::kStationOff) {
        PLC_driver.stationMap.insert(station, 0);
    } else if (enable == korvan::kStationOn) {
        PLC_driver.stationMap.remove(station);
    }
}

}  // namespace

void EnCommStation(int station, int enable) {
    switchStation(station, enable);
}

void EnableEthernet(int station, int enable) {
    switchStation(station, enable);
}

int Ethernetcontains(int station) {
    MutexLock lock(PLC_driver.stationMutex);
    return PLC_driver.stationMap.contains(station) ? 1 : 0;
}
