#include "platform/clean_text.hpp"

#include <cstdint>

namespace velk::updater::platform {
namespace {

// A backslash is deliberately left as it is: it neither ends a line nor starts a
// terminal sequence, and Windows paths stay readable. The escapes are for a reader,
// not meant to be decoded again.

constexpr char kHex[] = "0123456789abcdef";

bool isControlByte(std::uint8_t byte) { return (byte < 0x20 && byte != '\t') || byte == 0x7F; }

// Length of the valid UTF-8 sequence starting at `at`, or 0 when there is none.
std::size_t utf8Length(std::string_view text, std::size_t at) {
    const auto lead = static_cast<std::uint8_t>(text[at]);
    std::size_t length = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
    } else {
        return 0;
    }
    if (at + length > text.size()) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<std::uint8_t>(text[at + i]) & 0xC0) != 0x80) return 0;
    }
    return length;
}

// U+0080..U+009F, encoded as 0xC2 0x80..0x9F.
bool isC1Control(std::string_view text, std::size_t at) {
    return static_cast<std::uint8_t>(text[at]) == 0xC2 &&
           static_cast<std::uint8_t>(text[at + 1]) <= 0x9F;
}

void appendByteEscape(std::string& out, std::uint8_t byte) {
    switch (byte) {
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        default:
            out += "\\x";
            out += kHex[byte >> 4];
            out += kHex[byte & 0x0F];
    }
}

}  // namespace

bool hasControlCharacters(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<std::uint8_t>(text[at]);
        if (byte < 0x80) {
            if (isControlByte(byte)) return true;
            ++at;
            continue;
        }
        const std::size_t length = utf8Length(text, at);
        if (length == 0 || (length == 2 && isC1Control(text, at))) return true;
        at += length;
    }
    return false;
}

std::string escapeControlCharacters(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<std::uint8_t>(text[at]);
        if (byte < 0x80) {
            if (isControlByte(byte)) {
                appendByteEscape(out, byte);
            } else {
                out += static_cast<char>(byte);
            }
            ++at;
            continue;
        }
        const std::size_t length = utf8Length(text, at);
        if (length == 0) {
            appendByteEscape(out, byte);
            ++at;
            continue;
        }
        if (length == 2 && isC1Control(text, at)) {
            const auto second = static_cast<std::uint8_t>(text[at + 1]);
            out += "\\u00";
            out += kHex[second >> 4];
            out += kHex[second & 0x0F];
        } else {
            out.append(text.substr(at, length));
        }
        at += length;
    }
    return out;
}

}  // namespace velk::updater::platform
