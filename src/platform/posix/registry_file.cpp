#include "platform/posix/registry_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/posix/system_root.hpp"
#include "platform/registry.hpp"

namespace velk::updater::platform {
namespace {

constexpr const char* kHeader = "Windows Registry Editor Version 5.00";

// Names compare without regard to ASCII case, as on Windows.
std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// ---- text <-> bytes helpers --------------------------------------------------------------

void appendUtf8(std::string& out, std::uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// The export stores string types as UTF-16LE; the narrow calls see UTF-8.
std::optional<std::string> utf16leToNarrow(const std::string& bytes) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        std::uint32_t unit = static_cast<unsigned char>(bytes[i]) |
                             (static_cast<unsigned char>(bytes[i + 1]) << 8);
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < bytes.size()) {
            const std::uint32_t low = static_cast<unsigned char>(bytes[i + 2]) |
                                      (static_cast<unsigned char>(bytes[i + 3]) << 8);
            if (low >= 0xDC00 && low < 0xE000) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            }
        }
        appendUtf8(out, unit);
    }
    return out;
}

// Decodes UTF-8 where it is valid and takes any other byte as Latin-1.
std::string narrowToUtf16le(const std::string& text) {
    std::string out;
    auto put = [&out](std::uint32_t unit) {
        out += static_cast<char>(unit & 0xFF);
        out += static_cast<char>((unit >> 8) & 0xFF);
    };
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        bool valid = length > 0 && i + length <= text.size();
        std::uint32_t cp = length == 1 ? lead : length == 2 ? (lead & 0x1F) : length == 3 ? (lead & 0x0F) : (lead & 0x07);
        for (std::size_t k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            valid = (next & 0xC0) == 0x80;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (!valid) {
            put(lead);
            ++i;
            continue;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            put(0xD800 + (cp >> 10));
            put(0xDC00 + (cp & 0x3FF));
        } else {
            put(cp);
        }
        i += length;
    }
    return out;
}

std::optional<std::string> parseHexBytes(const std::string& text) {
    std::string out;
    std::stringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        item.erase(std::remove_if(item.begin(), item.end(), ::isspace), item.end());
        if (item.empty() && items.eof()) break;
        if (item.size() != 2 || !std::isxdigit(static_cast<unsigned char>(item[0])) ||
            !std::isxdigit(static_cast<unsigned char>(item[1]))) {
            return std::nullopt;
        }
        out += static_cast<char>(std::stoi(item, nullptr, 16));
    }
    return out;
}

std::string formatHexBytes(const std::string& bytes) {
    std::string out;
    char buffer[4];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(buffer, sizeof buffer, "%02x", static_cast<unsigned char>(bytes[i]));
        if (i > 0) out += ',';
        out += buffer;
    }
    return out;
}

bool isStringType(std::uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

// Reads a "quoted" text with \\ and \" escapes from `pos`; leaves `pos` after the quote.
std::optional<std::string> readQuoted(const std::string& line, std::size_t& pos) {
    if (pos >= line.size() || line[pos] != '"') return std::nullopt;
    std::string out;
    for (++pos; pos < line.size(); ++pos) {
        const char c = line[pos];
        if (c == '"') {
            ++pos;
            return out;
        }
        if (c == '\\') {
            if (++pos >= line.size()) return std::nullopt;
            if (line[pos] != '\\' && line[pos] != '"') return std::nullopt;
        }
        out += line[pos];
    }
    return std::nullopt;
}

std::string quote(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::optional<RegistryValue> parseValueData(std::string name, const std::string& data) {
    RegistryValue value{std::move(name), kRegSz, {}};
    if (!data.empty() && data.front() == '"') {
        std::size_t pos = 0;
        auto text = readQuoted(data, pos);
        if (!text || pos != data.size()) return std::nullopt;
        value.data = *text + '\0';
        return value;
    }
    if (data.rfind("dword:", 0) == 0) {
        const std::string digits = data.substr(6);
        if (digits.empty() || digits.size() > 8 ||
            !std::all_of(digits.begin(), digits.end(), ::isxdigit)) {
            return std::nullopt;
        }
        const auto number = static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
        value.type = kRegDword;
        for (int shift = 0; shift < 32; shift += 8) value.data += static_cast<char>((number >> shift) & 0xFF);
        return value;
    }
    std::size_t colon = data.find(':');
    if (colon == std::string::npos) return std::nullopt;
    const std::string kind = data.substr(0, colon);
    if (kind == "hex") {
        value.type = kRegBinary;
    } else if (kind.size() > 5 && kind.rfind("hex(", 0) == 0 && kind.back() == ')') {
        // A type is 32 bits; longer digits would overflow the conversion.
        const std::string digits = kind.substr(4, kind.size() - 5);
        if (digits.size() > 8 || !std::all_of(digits.begin(), digits.end(), ::isxdigit)) return std::nullopt;
        value.type = static_cast<std::uint32_t>(std::stoul(digits, nullptr, 16));
    } else {
        return std::nullopt;
    }
    auto bytes = parseHexBytes(data.substr(colon + 1));
    if (!bytes) return std::nullopt;
    if (isStringType(value.type)) {
        bytes = utf16leToNarrow(*bytes);
        if (!bytes) return std::nullopt;
    }
    value.data = std::move(*bytes);
    return value;
}

std::string formatValue(const RegistryValue& value) {
    const std::string name = value.name.empty() ? "@" : quote(value.name);
    const std::string& data = value.data;
    if (value.type == kRegSz && !data.empty() && data.find('\0') == data.size() - 1 &&
        std::none_of(data.begin(), data.end() - 1, [](unsigned char c) { return c < 0x20; })) {
        return name + "=" + quote(data.substr(0, data.size() - 1));
    }
    if (value.type == kRegDword && data.size() == 4) {
        std::uint32_t number = 0;
        for (int i = 3; i >= 0; --i) number = (number << 8) | static_cast<unsigned char>(data[i]);
        char buffer[16];
        std::snprintf(buffer, sizeof buffer, "dword:%08x", number);
        return name + "=" + buffer;
    }
    const std::string bytes = isStringType(value.type) ? narrowToUtf16le(data) : data;
    if (value.type == kRegBinary) return name + "=hex:" + formatHexBytes(bytes);
    char kind[24];
    std::snprintf(kind, sizeof kind, "hex(%x):", value.type);
    return name + "=" + kind + formatHexBytes(bytes);
}

// Splits into logical lines: strips CR, joins continuation lines that end in a backslash.
std::vector<std::string> logicalLines(std::string text) {
    if (text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);
    std::vector<std::string> lines;
    std::stringstream stream(text);
    std::string line;
    bool continuing = false;
    while (std::getline(stream, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (continuing) {
            const std::size_t start = line.find_first_not_of(" \t");
            lines.back() += start == std::string::npos ? "" : line.substr(start);
        } else {
            lines.push_back(line);
        }
        continuing = !lines.back().empty() && lines.back().back() == '\\' &&
                     lines.back().find("=hex") != std::string::npos;
        if (continuing) lines.back().pop_back();
    }
    return lines;
}

}  // namespace

const RegistryValue* RegistryKeyData::findValue(const std::string& name) const {
    const auto found = valueIndex.find(lowerCase(name));
    return found == valueIndex.end() ? nullptr : &values[found->second];
}

void RegistryKeyData::setValue(const std::string& name, std::uint32_t type, std::string data) {
    const auto [found, added] = valueIndex.try_emplace(lowerCase(name), values.size());
    if (added) {
        values.push_back({name, type, std::move(data)});
        return;
    }
    values[found->second].type = type;
    values[found->second].data = std::move(data);
}

std::string machineKeyPath(const std::string& subKey) { return "HKEY_LOCAL_MACHINE\\" + subKey; }

std::string RegistryFile::filePath() { return systemRoot() + "/registry.reg"; }

std::optional<RegistryFile> RegistryFile::load() {
    std::error_code error;
    if (!std::filesystem::exists(filePath(), error)) {
        return error ? std::nullopt : std::optional<RegistryFile>(RegistryFile{});
    }
    std::ifstream in(filePath(), std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return parse(text.str());
}

std::optional<RegistryFile> RegistryFile::parse(const std::string& text) {
    RegistryFile file;
    RegistryKeyData* current = nullptr;
    bool sawHeader = false;
    for (const std::string& raw : logicalLines(text)) {
        const std::size_t start = raw.find_first_not_of(" \t");
        if (start == std::string::npos || raw[start] == ';') continue;
        const std::string line = raw.substr(start, raw.find_last_not_of(" \t") - start + 1);
        if (!sawHeader) {
            if (line != kHeader) return std::nullopt;
            sawHeader = true;
            continue;
        }
        if (line.front() == '[') {
            // "[-KEY]" is a deletion request of an import file, not registry content.
            if (line.back() != ']' || line.size() < 3 || line[1] == '-') return std::nullopt;
            current = &file.createKey(line.substr(1, line.size() - 2));
            continue;
        }
        if (current == nullptr) return std::nullopt;
        std::string name;
        std::size_t pos = 0;
        if (line.front() == '@') {
            pos = 1;
        } else {
            auto quoted = readQuoted(line, pos);
            if (!quoted) return std::nullopt;
            name = *quoted;
        }
        if (pos >= line.size() || line[pos] != '=') return std::nullopt;
        auto value = parseValueData(name, line.substr(pos + 1));
        if (!value) return std::nullopt;
        current->setValue(value->name, value->type, std::move(value->data));
    }
    if (!sawHeader && !text.empty()) return std::nullopt;
    return file;
}

std::string RegistryFile::serialize() const {
    std::string out = std::string(kHeader) + "\r\n";
    for (const auto& key : keys_) {
        out += "\r\n[" + key.path + "]\r\n";
        for (const auto& value : key.values) out += formatValue(value) + "\r\n";
    }
    return out;
}

bool RegistryFile::save() const {
    namespace fs = std::filesystem;
    const fs::path target = filePath();
    std::error_code error;
    fs::create_directories(target.parent_path(), error);
    const fs::path sibling = target.string() + ".tmp." + std::to_string(::getpid());
    const std::string text = serialize();

    const int fd = ::open(sibling.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n <= 0) break;
        written += static_cast<std::size_t>(n);
    }
    const bool complete = written == text.size() && ::fsync(fd) == 0;
    if (::close(fd) != 0 || !complete || ::rename(sibling.c_str(), target.c_str()) != 0) {
        fs::remove(sibling, error);
        return false;
    }
    return true;
}

RegistryKeyData* RegistryFile::findKey(const std::string& path) {
    const auto found = keyIndex_.find(lowerCase(path));
    return found == keyIndex_.end() ? nullptr : &keys_[found->second];
}

const RegistryKeyData* RegistryFile::findKey(const std::string& path) const {
    return const_cast<RegistryFile*>(this)->findKey(path);
}

RegistryKeyData& RegistryFile::createKey(const std::string& path) {
    const auto [found, added] = keyIndex_.try_emplace(lowerCase(path), keys_.size());
    if (added) keys_.push_back({path, {}, {}});
    return keys_[found->second];
}

}  // namespace velk::updater::platform
