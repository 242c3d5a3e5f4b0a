#pragma once

#include <string>

#include "release/manifest.hpp"
#include "support/digest.hpp"

namespace velk::test {

// An entry for `content`, installed at `name`, found at "files/<name>" unless `url` is given.
inline updater::ManifestFile entry(const std::string& name, const std::string& content, const std::string& url = "") {
    updater::ManifestFile file;
    file.name = name;
    file.url = url.empty() ? "files/" + name : url;
    file.size = content.size();
    file.sha256 = sha256Hex(content);
    file.target_path = name;
    return file;
}

}  // namespace velk::test
