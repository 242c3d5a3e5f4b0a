#include "delivery/partial_download.hpp"
#include "download_fixture.hpp"

namespace velk::updater {
namespace {

using Answer = test::HttpTestServer::Answer;
using Kind = test::HttpTestServer::Kind;

std::string bytes(std::size_t size) {
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
    return text;
}

Answer status(int code, const std::string& retryAfter = "") { return {code, "error page", Kind::Body, "", 0, retryAfter}; }
// The copy named `etag`, of which only `cutAt` bytes (when above 0) are sent.
Answer ranged(const std::string& content, const std::string& etag, std::size_t cutAt = 0) {
    return {200, content, Kind::Ranged, etag, cutAt, ""};
}

class TransferTest : public DownloadTest {
protected:
    void SetUp() override {
        DownloadTest::SetUp();
        config_.baseUrls = {server_.url("/cdn"), server_.url("/mirror")};
        config_.tryArchiveFirst = false;
    }
    // A later run: a new downloader, with what the last one left on disk.
    void nextRun() { downloader_.reset(); }
    std::size_t requestsFor(const std::string& path) { return std::ranges::count(server_.requests(), path); }
};

TEST(RetryJudgement, TransientFailuresAreRetriedOthersMoveOn) {
    const auto verdict = [](int status, bool transient = false, const std::string& error = "") {
        return judge(HttpResponse{.statusCode = status, .error = error, .body = "", .transient = transient, .retryAfter = ""});
    };
    for (const int status : {408, 429, 500, 502, 503, 504}) EXPECT_EQ(verdict(status), Verdict::Retry) << status;
    for (const int status : {301, 400, 403, 404, 410, 416, 501, 505}) EXPECT_EQ(verdict(status), Verdict::NextCandidate) << status;
    for (const int status : {200, 206, 299}) EXPECT_EQ(verdict(status), Verdict::Success) << status;
    EXPECT_EQ(verdict(0, true), Verdict::Retry);
    EXPECT_EQ(verdict(0), Verdict::NextCandidate);
    EXPECT_EQ(verdict(200, false, "Proxy authentication required (proxy)"), Verdict::NextCandidate);
}

// 404 moves on at once, and so do retries used up or past the run's wait budget.
TEST_F(TransferTest, TransientErrors) {
    const std::string content = bytes(3000);
    server_.queue("/cdn/files/VELK.dll", status(503, "30"));
    server_.queue("/cdn/files/VELK.dll", status(429));
    server_.queue("/cdn/files/VELK.dll", {200, content.substr(0, content.size() - 1), Kind::Short, "", 0, ""});  // all but the last byte
    server_.set("/cdn/files/VELK.dll", content);
    delivered(content);
    EXPECT_EQ(requestsFor("/cdn/files/VELK.dll"), 4u);
    EXPECT_EQ(requestsFor("/mirror/files/VELK.dll"), 0u);
    EXPECT_TRUE(log_.contains("[WARNING] Download attempt failed: " + server_.url("/cdn/files/VELK.dll") +
                              " =>  (503), retrying in 50 ms"));

    server_.clearRequests();
    server_.set("/cdn/files/VELK.dll", "not here", 404);
    server_.set("/mirror/files/VELK.dll", "busy", 503);
    EXPECT_FALSE(downloader().download(entry("VELK.dll", content)).success);
    EXPECT_EQ(requestsFor("/cdn/files/VELK.dll"), 1u);
    EXPECT_EQ(requestsFor("/mirror/files/VELK.dll"), 1u + config_.policy.maxRetries);

    config_.policy.retryBudget = std::chrono::milliseconds(0);
    nextRun();
    server_.clearRequests();
    EXPECT_FALSE(downloader().download(entry("VELK.dll", content)).success);
    EXPECT_EQ(requestsFor("/mirror/files/VELK.dll"), 1u);
}

// A source that refuses connections costs its retries once, then is skipped for the whole run.
TEST_F(TransferTest, UnreachableSourceIsSkippedForTheRestOfTheRun) {
    const test::Listener refusing(false);
    const std::string deadBase = "http://" + refusing.address() + "/cdn";
    config_.baseUrls = {deadBase, server_.url("/mirror")};
    server_.set("/mirror/files/VELK.dll", "one");
    server_.set("/mirror/files/VELK.exe", "two");
    EXPECT_TRUE(downloader().download(entry("VELK.dll", "one")).success);
    EXPECT_EQ(log_.count("[WARNING] Download attempt failed: " + deadBase + "/files/VELK.dll => Curl error: "
                         "Couldn't connect to server (0), retrying in "), 0u + config_.policy.maxRetries);
    EXPECT_TRUE(downloader().download(entry("VELK.exe", "two")).success);
    EXPECT_TRUE(log_.contains("[WARNING] Skipping unreachable source: " + deadBase + "/files/VELK.exe"));
}

// Cut halfway, the next attempt asks for and gets only the rest; a failed run leaves the partial to the next.
TEST_F(TransferTest, ConnectionCutMidFile) {
    const std::string content = bytes(1 << 20);
    const ManifestFile file = entry("VELK.dll", content);
    server_.queue("/cdn/files/VELK.dll", ranged(content, "\"v1\"", content.size() / 2));
    server_.set("/cdn/files/VELK.dll", content, 200, Kind::Ranged);
    EXPECT_EQ(downloader().keptDigestOf(delivered(content).path), file.sha256);
    EXPECT_EQ(server_.ranges(), (std::vector<std::string>{"", "bytes=" + std::to_string(content.size() / 2) + "-"}));
    EXPECT_LE(server_.rangedBytesSent(), content.size() + content.size() / 10);

    // No retry left in this run: the partial and its record wait for the next one.
    config_.policy.maxRetries = 0;
    config_.baseUrls = {server_.url("/cdn")};
    nextRun();
    server_.queue("/cdn/files/VELK.dll", ranged(content, "\"v1\"", content.size() / 4));
    EXPECT_FALSE(downloader().download(file).success);
    nextRun();
    server_.clearRequests();
    delivered(content);
    EXPECT_EQ(server_.ranges().back(), "bytes=" + std::to_string(content.size() / 4) + "-");
    EXPECT_TRUE(log_.contains("[INFO] Resuming download of VELK.dll at byte " + std::to_string(content.size() / 4)));
}

// The copy changed since the partial: If-Range fails and it starts over; another entry's partial is never continued.
TEST_F(TransferTest, ResumeAgainstChangedFile) {
    const std::string content = bytes(200000);
    config_.policy.maxRetries = 0;
    config_.baseUrls = {server_.url("/cdn")};
    server_.queue("/cdn/files/VELK.dll", ranged(content, "\"v1\"", 5000));
    EXPECT_FALSE(downloader().download(entry("VELK.dll", content)).success);
    nextRun();
    server_.queue("/cdn/files/VELK.dll", ranged(content, "\"v2\""));
    EXPECT_EQ(downloader().keptDigestOf(delivered(content).path), sha256Hex(content));

    std::string next = content;  // the same size, other bytes at its start
    next[0] = '#';
    server_.queue("/cdn/files/VELK.dll", ranged(content, "\"v1\"", 5000));
    nextRun();
    EXPECT_FALSE(downloader().download(entry("VELK.dll", content)).success);
    server_.clearRequests();
    server_.set("/cdn/files/VELK.dll", next, 200, Kind::Ranged);
    delivered(next);
    EXPECT_EQ(server_.ranges(), std::vector<std::string>{""});
}

// A source under the speed floor is left for the next; the last one keeps any speed.
TEST_F(TransferTest, SlowMirror) {
    const std::string content = bytes(3000);
    config_.policy.minBytesPerSecond = 32 * 1024;
    config_.policy.slowWindowSeconds = 1;
    config_.tryArchiveFirst = true;  // the mirror's plain file is then the last candidate
    server_.set("/cdn/files/VELK.dll", content, 200, Kind::Slow);
    server_.set("/mirror/files/VELK.dll", content, 200, Kind::Slow);
    delivered(content);
    EXPECT_EQ(log_.count("[WARNING] Download too slow: " + server_.url("/cdn/files/VELK.dll") + " ("), 1u);
    EXPECT_EQ(requestsFor("/cdn/files/VELK.dll"), 1u);
    EXPECT_TRUE(log_.contains("[INFO] Download succeeded from: " + server_.url("/mirror/files/VELK.dll")));
}

// Any other range, size or text that is no number would leave a hole or a tail.
TEST(PartialAnswer, TakenOnlyForExactlyTheRest) {
    const test::TempDir dir;
    const std::string path = (dir / "VELK.dll.tmp.partial").string();
    const PartialDownload::Target target{path, path + ".resume", "http://cdn/files/VELK.dll", 10, sha256Hex("x"), 10};
    const std::pair<std::string, bool> rows[] = {
        {"bytes 4-9/10", true},   {"bytes 4-8/10", false}, {"bytes 3-9/10", false},
        {"bytes 4-10/11", false}, {"bytes -9/10", false},  {"bytes 4-/10", false},
        {"bytes 4-9/", false},    {"bytes 4-9/1o", false}, {"bytes 4-9/00000000000000000010", false},
        {"", false},
    };
    for (const auto& [range, taken] : rows) {
        SCOPED_TRACE(range);
        std::string error;
        PartialDownload first(target);
        ASSERT_TRUE(first.open(error)) << error;
        ASSERT_TRUE(first.begin(HttpAnswer{200, "", "\"v1\"", "", ""}));
        ASSERT_TRUE(first.write("0123", 4));
        first.finish();
        PartialDownload next(target);
        ASSERT_TRUE(next.open(error)) << error;
        ASSERT_EQ(next.continuedFrom(), 4u);
        EXPECT_EQ(next.begin(HttpAnswer{206, range, "\"v1\"", "", ""}), taken);
        EXPECT_EQ(next.failure().empty(), taken) << next.failure();
        next.finish();
        next.discard();
    }
}

}  // namespace
}  // namespace velk::updater
