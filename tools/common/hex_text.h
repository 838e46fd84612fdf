#ifndef KORVAN_TOOLS_HEX_TEXT_H
#define KORVAN_TOOLS_HEX_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tools {

// "01 20 80": bytes in hexadecimal, separated by spaces, for traces.
std::string hexBytes(const std::uint8_t* data, std::size_t length);

}  // namespace tools

#endif
