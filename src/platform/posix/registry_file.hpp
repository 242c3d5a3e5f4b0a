#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

// The emulated registry: one file, <system root>/registry.reg, in the text format of
// Windows' registry export. Values hold the bytes the narrow (A) calls see.
namespace velk::updater::platform {

struct RegistryValue {
    std::string name;  // empty for the default value ("@")
    std::uint32_t type = 0;
    std::string data;
};

struct RegistryKeyData {
    std::string path;  // full path, "HKEY_LOCAL_MACHINE\\SOFTWARE\\..."
    std::vector<RegistryValue> values;

    const RegistryValue* findValue(const std::string& name) const;
    void setValue(const std::string& name, std::uint32_t type, std::string data);

    // Value positions by lower-case name, so that reading a large file stays linear.
    std::unordered_map<std::string, std::size_t> valueIndex;
};

class RegistryFile {
public:
    static std::string filePath();
    // A missing file is an empty registry; nullopt when the file cannot be read or parsed.
    static std::optional<RegistryFile> load();
    static std::optional<RegistryFile> parse(const std::string& text);

    std::string serialize() const;
    // Replaces the file atomically (a sibling, then a rename); false on any failure.
    bool save() const;

    // Key names compare without regard to ASCII case, as on Windows.
    RegistryKeyData* findKey(const std::string& path);
    const RegistryKeyData* findKey(const std::string& path) const;
    RegistryKeyData& createKey(const std::string& path);

private:
    std::vector<RegistryKeyData> keys_;
    std::unordered_map<std::string, std::size_t> keyIndex_;  // by lower-case path
};

// "HKEY_LOCAL_MACHINE\\" + subKey.
std::string machineKeyPath(const std::string& subKey);

}  // namespace velk::updater::platform
