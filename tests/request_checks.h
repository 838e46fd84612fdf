// Checks of a queued request as the host sees it.
#ifndef KORVAN_TESTS_REQUEST_CHECKS_H
#define KORVAN_TESTS_REQUEST_CHECKS_H

#include <gtest/gtest.h>

#include "hex.h"
#include "korvan_qa_qb_series_port.h"

// The frame and lengths of `request`; the whole frame is sent and the reserved words are 0.
inline void expectRequest(const Protocol& request, const char* frame, int replyLength,
                          int dataOffset, int dataLength) {
    EXPECT_EQ(hex(request.frame), frame);
    EXPECT_EQ(request.sendLength, request.frame.size());
    EXPECT_EQ(request.replyLength, replyLength);
    EXPECT_EQ(request.dataOffset, dataOffset);
    EXPECT_EQ(request.dataLength, dataLength);
    EXPECT_EQ(request.reserved[0] | request.reserved[1] | request.reserved[2], 0);
}

#endif
