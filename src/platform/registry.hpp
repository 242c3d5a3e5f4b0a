#pragma once

#include <cstdint>
#include <string>

// The registry below HKEY_LOCAL_MACHINE, in the program's native view, shaped like the
// Win32 calls so that callers follow the same steps on every platform. Status codes are
// the Win32 error numbers.
namespace velk::updater::platform {

inline constexpr long kErrorSuccess = 0;
inline constexpr long kErrorFileNotFound = 2;
inline constexpr long kErrorAccessDenied = 5;
inline constexpr long kErrorMoreData = 234;
inline constexpr long kErrorBadDatabase = 1009;
inline constexpr long kErrorRegistryCorrupt = 1015;
inline constexpr long kErrorUnsupportedType = 1630;

inline constexpr std::uint32_t kRegNone = 0;
inline constexpr std::uint32_t kRegSz = 1;
inline constexpr std::uint32_t kRegExpandSz = 2;
inline constexpr std::uint32_t kRegBinary = 3;
inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kRegMultiSz = 7;
inline constexpr std::uint32_t kRegQword = 11;

enum class RegistryAccess { Read, SetValue };

// An open key of HKEY_LOCAL_MACHINE; closed when destroyed. Never creates keys.
class RegistryKey {
public:
    RegistryKey() = default;
    ~RegistryKey();
    RegistryKey(RegistryKey&& other) noexcept;
    RegistryKey& operator=(RegistryKey&& other) noexcept;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    // RegOpenKeyExA on HKEY_LOCAL_MACHINE\subKey.
    long open(const std::string& subKey, RegistryAccess access);
    // RegQueryValueExA: `data` may be null to learn the size; `size` is in and out.
    long queryValue(const std::string& name, std::uint32_t* type, void* data,
                    std::uint32_t* size) const;
    // RegSetValueExA.
    long setValue(const std::string& name, std::uint32_t type, const void* data,
                  std::uint32_t size);
    void close();

private:
    void* handle_ = nullptr;  // the Windows key handle
    std::string subKey_;      // the key as opened, where no handle exists
    RegistryAccess access_ = RegistryAccess::Read;
    bool open_ = false;
};

// RegGetValueA on HKEY_LOCAL_MACHINE\subKey restricted to string data (RRF_RT_REG_SZ):
// `data` may be null to learn the size in bytes, terminating NUL included.
long getStringValue(const std::string& subKey, const std::string& name, void* data,
                    std::uint32_t* size);

// The registry itself cannot be read, as opposed to a key or value that does not exist.
inline bool isRegistryUnreadable(long status) {
    return status == kErrorBadDatabase || status == kErrorRegistryCorrupt;
}

// A one-line description of a registry status, for messages.
std::string describeRegistryError(long status);

}  // namespace velk::updater::platform
