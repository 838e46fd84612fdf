#include "hex_text.h"

namespace tools {

std::string hexBytes(const std::uint8_t* data, std::size_t length) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        if (i != 0) {
            text += ' ';
        }
        text += kDigits[data[i] >> 4];
        text += kDigits[data[i] & 0xF];
    }
    return text;
}

}  // namespace tools
