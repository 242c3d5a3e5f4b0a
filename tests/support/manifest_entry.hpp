#pragma once

#include <string>

#include "release/manifest.hpp"
#include "support/digest.hpp"

namespace velk::test {

// A manifest entry for `content` named `name`, installed at its name and found at
// "files/<name>" below a download base unless another URL is given.
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
