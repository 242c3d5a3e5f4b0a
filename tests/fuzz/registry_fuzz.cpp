// libFuzzer target: any text through the emulated registry file's reader. Whatever the
// reader accepts, the writer must write back as text that reads to the same content.
#include "fuzz_support.hpp"
#include "platform/posix/registry_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using velk::updater::platform::RegistryFile;
    const auto file = RegistryFile::parse(velk::fuzz::text(data, size));
    if (!file) return 0;
    const std::string written = file->serialize();
    const auto again = RegistryFile::parse(written);
    if (!again || again->serialize() != written) __builtin_trap();
    return 0;
}
