// The communication-failure flag, shared between threads.
//
// The polling thread sets commFailed when an exchange is abandoned and clears it on the next good
// reply; host threads read it in SetRegisterData to decide whether a write is mirrored at once.
// The member is a plain byte of the exported object's fixed layout, so it is accessed through
// atomic builtins rather than changed into an atomic type.
#ifndef KORVAN_BASE_COMM_FAILED_H
#define KORVAN_BASE_COMM_FAILED_H

#include "base/Communication_Protocol.h"

inline bool isCommFailed(const Communication_Protocol& d) {
    return __atomic_load_n(&d.commFailed, __ATOMIC_RELAXED) != 0;
}

inline void setCommFailed(Communication_Protocol& d, bool failed) {
    __atomic_store_n(&d.commFailed, static_cast<unsigned char>(failed ? 1 : 0), __ATOMIC_RELAXED);
}

#endif
