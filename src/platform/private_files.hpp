#pragma once

#include <cstddef>
#include <memory>
#include <string>

// The updater's own download folder and the files in it. Downloads run as administrator and
// end in a kernel driver's folder, so nothing another account can create, swap or change may
// lie on their way.
namespace velk::updater::platform {

// Creates `path` as a folder that only the administrator can enter, or checks the one an
// earlier run created: it must be a real folder (not a link), owned by this account, and is
// closed to everyone else again. False with the reason in `error` otherwise.
bool preparePrivateFolder(const std::string& path, std::string& error);

// A file moved out of the private folder takes the access of the folder it now lies in
// (Windows: the access list inherited there; Linux: the mode of `replaced`, or rw-r--r--
// when there is none), so that the installed product stays readable by its users.
bool adoptFolderAccess(const std::string& path, const std::string& replaced, std::string& error);

// A file written by the updater: created exclusively, or reopened to be continued, never
// through a link. Closed when it goes out of scope.
class OutputFile {
public:
    enum class Mode { CreateNew, Continue };

    OutputFile();
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // CreateNew fails when anything lies at `path` already; Continue opens an existing
    // regular file at its end. False with the system's text in `error`.
    bool open(const std::string& path, Mode mode, std::string& error);
    bool write(const void* data, std::size_t size);
    // Empties the file, for a transfer that starts again from its first byte.
    bool truncate();
    // False when a late write error shows up.
    bool close();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater::platform
