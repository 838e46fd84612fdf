#include "text_escape.h"

#include <cstdint>
#include <cstdio>

namespace refhost {

namespace {

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kDelete = 0x7F;
constexpr std::uint32_t kFirstC1 = 0x80;
constexpr std::uint32_t kLastC1 = 0x9F;
constexpr std::uint32_t kFirstSurrogate = 0xD800;
constexpr std::uint32_t kLastSurrogate = 0xDFFF;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

bool isControl(unsigned char c) {
    return c < kFirstPrintable || c == kDelete;
}

// A UTF-8 lead byte: the length of its sequence, the bits it carries and the least code point
// that needs the length. Length 0: not a lead byte.
struct Lead {
    std::size_t length;
    unsigned char bits;
    std::uint32_t least;
};

Lead leadOf(unsigned char c) {
    if ((c & 0xE0) == 0xC0) {
        return {2, 0x1F, 0x80};
    }
    if ((c & 0xF0) == 0xE0) {
        return {3, 0x0F, 0x800};
    }
    if ((c & 0xF8) == 0xF0) {
        return {4, 0x07, 0x10000};
    }
    return {0, 0, 0};
}

// The length of the character at `at` when it is printable UTF-8, else 0.
std::size_t printableLength(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(at) < kFirstC1) {
        return isControl(byte(at)) ? 0 : 1;
    }
    const Lead lead = leadOf(byte(at));
    if (lead.length == 0 || at + lead.length > text.size()) {
        return 0;
    }
    std::uint32_t point = byte(at) & lead.bits;
    for (std::size_t i = 1; i < lead.length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) {
            return 0;
        }
        point = point << 6 | (byte(at + i) & 0x3F);
    }
    const bool valid = point >= lead.least && point <= kLastCodePoint &&
                       (point < kFirstSurrogate || point > kLastSurrogate);
    const bool c1 = point >= kFirstC1 && point <= kLastC1;
    return valid && !c1 ? lead.length : 0;
}

}  // namespace

std::string csvField(const std::string& text) {
    bool quoted = false;
    for (char c : text) {
        quoted = quoted || c == ',' || c == '"' || isControl(static_cast<unsigned char>(c));
    }
    if (!quoted) {
        return text;
    }
    std::string out = "\"";
    for (char c : text) {
        out += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return out + "\"";
}

std::string visibleText(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = printableLength(text, at);
        if (length > 0) {
            out.append(text, at, length);
            at += length;
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(text[at]));
            out += escaped;
            ++at;
        }
    }
    return out;
}

}  // namespace refhost
