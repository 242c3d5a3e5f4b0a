#include "platform/services.hpp"

namespace velk::updater::platform {

std::string addDriverPackageCommand(const std::string& infPath) {
    return "pnputil.exe /add-driver \"" + infPath + "\" /install";
}

}  // namespace velk::updater::platform
