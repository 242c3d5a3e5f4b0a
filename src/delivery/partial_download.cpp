#include "delivery/partial_download.hpp"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// An error page is read only so far; what a server sends beyond it is no answer of interest.
constexpr std::uint64_t kErrorPageLimit = 64 * 1024;
// A record is four short lines; anything longer is not one of ours.
constexpr std::uint64_t kRecordLimit = 4096;

struct Record {
    std::string url;
    std::uint64_t size = 0;
    std::string sha256;
    std::string validator;
};

bool parseNumber(const std::string& text, std::uint64_t& value) {
    if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    value = std::stoull(text);
    return true;
}

std::optional<Record> readRecord(const std::string& path) {
    std::error_code error;
    if (path.empty() || fs::file_size(path, error) > kRecordLimit || error) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    Record record;
    std::string size;
    if (!std::getline(in, record.url) || !std::getline(in, size) || !std::getline(in, record.sha256) ||
        !std::getline(in, record.validator) || !parseNumber(size, record.size) || record.validator.empty()) {
        return std::nullopt;
    }
    return record;
}

// "bytes FIRST-LAST/TOTAL"
bool parseContentRange(const std::string& text, std::uint64_t& first, std::uint64_t& last, std::uint64_t& total) {
    if (!text.starts_with("bytes ")) return false;
    const auto dash = text.find('-', 6);
    const auto slash = text.find('/', 6);
    if (dash == std::string::npos || slash == std::string::npos || slash < dash) return false;
    return parseNumber(text.substr(6, dash - 6), first) && parseNumber(text.substr(dash + 1, slash - dash - 1), last) &&
           parseNumber(text.substr(slash + 1), total);
}

// Hashes what the kept part already holds, so that the digest covers the whole file.
bool hashPrefix(const std::string& path, std::uint64_t length, platform::Sha256& digest) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(1 << 20);
    while (length > 0 && in) {
        const auto want = static_cast<std::streamsize>(std::min<std::uint64_t>(length, block.size()));
        in.read(block.data(), want);
        if (in.gcount() != want || !digest.update(block.data(), static_cast<std::size_t>(want))) {
            return false;
        }
        length -= static_cast<std::uint64_t>(want);
    }
    return length == 0;
}

}  // namespace

PartialDownload::PartialDownload(Target target)
    : target_(std::move(target)), digest_(std::make_unique<platform::Sha256>()) {}

bool PartialDownload::open(std::string& error) {
    const std::optional<Record> record = readRecord(target_.recordPath);
    std::error_code absent;
    const std::uint64_t kept = fs::is_regular_file(fs::symlink_status(target_.path, absent)) ? fs::file_size(target_.path, absent) : 0;
    const bool matches = record && target_.size > 0 && record->url == target_.url && record->size == target_.size &&
                         record->sha256 == target_.sha256 && kept > 0 && kept < target_.size;
    if (matches && file_.open(target_.path, platform::OutputFile::Mode::Continue, error) &&
        hashPrefix(target_.path, kept, *digest_)) {
        continuedFrom_ = written_ = kept;
        validator_ = record->validator;
        return true;
    }
    file_.close();
    discard();
    digest_ = std::make_unique<platform::Sha256>();
    return file_.open(target_.path, platform::OutputFile::Mode::CreateNew, error);
}

HttpHeaders PartialDownload::requestHeaders() const {
    if (continuedFrom_ == 0) return {};
    return {{"Range", "bytes=" + std::to_string(continuedFrom_) + "-"}, {"If-Range", validator_}};
}

bool PartialDownload::begin(const HttpAnswer& answer) {
    if (answer.statusCode < 200 || answer.statusCode > 299) {
        errorPage_ = true;
        return true;
    }
    accepted_ = true;
    if (answer.statusCode == 206) {
        std::uint64_t first = 0, last = 0, total = 0;
        if (continuedFrom_ == 0 || !parseContentRange(answer.contentRange, first, last, total) ||
            first != continuedFrom_ || total != target_.size || last + 1 != total) {
            return stop("Unexpected partial answer (Content-Range: " + answer.contentRange + ")");
        }
        return true;
    }
    // The whole file again: the server's copy changed, or it does not serve ranges.
    if (continuedFrom_ > 0 && !startOver()) return stop("Cannot start the download again");
    writeRecord(!answer.etag.empty() ? answer.etag : answer.lastModified);
    return true;
}

bool PartialDownload::write(const char* data, std::size_t size) {
    if (errorPage_) {
        dropped_ += size;
        return dropped_ <= kErrorPageLimit;
    }
    if (!accepted_) return stop("Body before its answer");
    if (target_.limit > 0 && written_ + size > target_.limit) {
        return stop("Response larger than the expected " + std::to_string(target_.limit) + " bytes");
    }
    if (!file_.write(data, size)) return stop("File write error during download");
    digest_->update(data, size);
    written_ += size;
    return true;
}

std::optional<platform::Sha256Digest> PartialDownload::finish() {
    const bool closed = file_.close();
    if (!closed && failure_.empty()) failure_ = "File write error during download";
    if (!accepted_ || !failure_.empty()) return std::nullopt;
    return digest_->finish();
}

bool PartialDownload::continuable() const {
    return failure_.empty() && !validator_.empty() && written_ > 0 && !target_.recordPath.empty();
}

void PartialDownload::complete() {
    std::error_code ignored;
    if (!target_.recordPath.empty()) fs::remove(target_.recordPath, ignored);
}

void PartialDownload::discard() {
    std::error_code ignored;
    fs::remove(target_.path, ignored);
    if (!target_.recordPath.empty()) fs::remove(target_.recordPath, ignored);
    validator_.clear();
}

bool PartialDownload::stop(std::string reason) {
    failure_ = std::move(reason);
    return false;
}

bool PartialDownload::startOver() {
    if (!file_.truncate()) return false;
    digest_ = std::make_unique<platform::Sha256>();
    written_ = continuedFrom_ = 0;
    return true;
}

// Kept only when the server names its copy: without a validator a later answer could not
// show that the rest belongs to the same bytes.
void PartialDownload::writeRecord(const std::string& validator) {
    validator_.clear();
    if (target_.recordPath.empty() || validator.empty() || target_.size == 0) return;
    if ((validator + target_.url).find_first_of("\r\n") != std::string::npos || validator.size() > 512) return;
    std::error_code ignored;
    fs::remove(target_.recordPath, ignored);
    platform::OutputFile record;
    std::string error;
    const std::string text = target_.url + "\n" + std::to_string(target_.size) + "\n" + target_.sha256 + "\n" + validator + "\n";
    if (record.open(target_.recordPath, platform::OutputFile::Mode::CreateNew, error) &&
        record.write(text.data(), text.size()) && record.close()) {
        validator_ = validator;
    }
}

}  // namespace velk::updater
