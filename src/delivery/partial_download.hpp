#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "http/http_client.hpp"
#include "platform/private_files.hpp"
#include "platform/sha256.hpp"

// One candidate's body on its way into the private download folder. A plain file's partial
// is kept with a record of what it is (URL, expected size and digest, the server's validator),
// so that another attempt, or a later run, asks only for the rest.
namespace velk::updater {

class PartialDownload : public DownloadSink {
public:
    struct Target {
        std::string path;        // the file the body goes into
        std::string recordPath;  // beside it; empty when the body is never continued (archives)
        std::string url;
        std::uint64_t size = 0;  // the whole file's size, or 0 when the entry gives none
        std::string sha256;      // the entry's digest: a partial of another release is not continued
        std::uint64_t limit = 0;  // bound of the whole body, 0 for none
    };

    explicit PartialDownload(Target target);

    // Opens the file: continues a kept partial whose record matches this target, otherwise
    // starts empty (throwing the old partial away). False with the reason in `error`.
    bool open(std::string& error);
    // The Range and If-Range headers when a partial is continued.
    HttpHeaders requestHeaders() const;
    std::uint64_t continuedFrom() const { return continuedFrom_; }

    bool begin(const HttpAnswer& answer) override;
    bool write(const char* data, std::size_t size) override;

    // Closes the file. The digest of everything it holds, when a 2xx body went into it and
    // the receiver did not stop it (whether the transfer finished is the client's to say).
    std::optional<platform::Sha256Digest> finish();
    // Why the receiver stopped the transfer; empty when it did not.
    const std::string& failure() const { return failure_; }
    // The body is kept for another attempt only while it can be continued.
    bool continuable() const;
    // The transfer finished: the record has served its purpose.
    void complete();
    // Removes the file and its record.
    void discard();

private:
    bool stop(std::string reason);
    bool startOver();
    void writeRecord(const std::string& validator);

    Target target_;
    platform::OutputFile file_;
    std::unique_ptr<platform::Sha256> digest_;
    std::string validator_;
    std::uint64_t continuedFrom_ = 0;
    std::uint64_t written_ = 0;  // bytes in the file
    bool accepted_ = false;     // a 2xx body goes into the file
    bool errorPage_ = false;    // any other body is read and dropped
    std::uint64_t dropped_ = 0;
    std::string failure_;
};

}  // namespace velk::updater
