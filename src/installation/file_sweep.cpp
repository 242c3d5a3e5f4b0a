#include "installation/file_sweep.hpp"

namespace velk::updater {

int sweepFiles(const std::filesystem::path& directory, const FileSweep& sweep) {
    int removed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        try {
            if (!entry.is_regular_file()) continue;
            const std::string name = entry.path().filename().string();
            if (sweep.matches(name) && sweep.remove(entry.path(), name)) ++removed;
        } catch (const std::exception& error) {
            sweep.failed(entry.path(), error);
        }
    }
    return removed;
}

}  // namespace velk::updater
