#include "korvan_qa_qb_series_port.h"

// Kept for hosts that ask whether the driver has finished a job: it always has.
int QueryFinishFlag() {
    return 1;
}
