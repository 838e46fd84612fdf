// Frames and result codes in words, for --trace.
#ifndef KORVAN_TOOLS_FRAME_TRACE_H
#define KORVAN_TOOLS_FRAME_TRACE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace refhost {

// The fields of a request frame: function, station, area, address, count.
std::string describeRequest(const std::uint8_t* frame, std::size_t length, bool remote);
// The fields of a reply: station, function, byte count, data.
std::string describeReply(const std::uint8_t* reply, std::size_t length);
// What a result code of DataCom means.
std::string describeResult(int code);

}  // namespace refhost

#endif
