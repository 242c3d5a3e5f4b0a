// velk_update_server: serves published releases on loopback for the demo and the tests.
//
//   velk_update_server --root DIR [--port N] [--rule PATH=ACTION]... [--rules FILE]
//                      [--log FILE] [--stall-seconds N]
//
// GET /update/NAME reads DIR/NAME (the manifests); /cdn/P, /mirror/P, /origin/P and /P
// read DIR/P. A rule makes a path (or, when it ends in "/", every path below it) answer
// with an HTTP status ("404", "500", ...), "short" (announces the whole length, sends half
// and closes) or "stall" (sends a little, then nothing until --stall-seconds pass). Hostile
// actions need no file: "endless" (a chunked body that goes on until the client leaves, or
// 4 GiB), "bigbody:N" (N blanks with their length announced) and "zipbomb:N" (a zip whose
// one entry, named like the request without ".zip", inflates to N zero bytes). Files are
// sent with an ETag; a "Range: bytes=N-" whose If-Range names the file's current ETag gets
// the rest (206), any other the whole file. The rules file holds "PATH ACTION" lines and is read again on every request, so a test can change
// the server's behaviour while it runs.

#include <httplib.h>
#include <signal.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Rule {
    std::string path;
    std::string action;
};

struct Options {
    fs::path root;
    int port = VELK_LOOPBACK_PORT;
    std::vector<Rule> rules;
    std::string rulesFile;
    std::string logFile;
    int stallSeconds = 30;
};

std::optional<Rule> parseRule(const std::string& text, char separator) {
    const auto at = text.find(separator);
    if (at == std::string::npos || at == 0 || at + 1 == text.size()) return std::nullopt;
    return Rule{text.substr(0, at), text.substr(at + 1)};
}

bool parseArgs(int argc, char* argv[], Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        if (arg == "--root" && hasValue) {
            options.root = argv[++i];
        } else if (arg == "--port" && hasValue) {
            options.port = std::stoi(argv[++i]);
        } else if (arg == "--rule" && hasValue) {
            const auto rule = parseRule(argv[++i], '=');
            if (!rule) return false;
            options.rules.push_back(*rule);
        } else if (arg == "--rules" && hasValue) {
            options.rulesFile = argv[++i];
        } else if (arg == "--log" && hasValue) {
            options.logFile = argv[++i];
        } else if (arg == "--stall-seconds" && hasValue) {
            options.stallSeconds = std::stoi(argv[++i]);
        } else {
            return false;
        }
    }
    return !options.root.empty();
}

std::vector<Rule> currentRules(const Options& options) {
    std::vector<Rule> rules = options.rules;
    if (options.rulesFile.empty()) return rules;
    std::ifstream in(options.rulesFile);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        if (const auto rule = parseRule(line, ' ')) rules.push_back(*rule);
    }
    return rules;
}

// The last matching rule wins, so a rules file can override the command line.
std::optional<std::string> actionFor(const Options& options, const std::string& path) {
    std::optional<std::string> action;
    for (const auto& rule : currentRules(options)) {
        const bool prefix = rule.path.back() == '/';
        if (prefix ? path.rfind(rule.path, 0) == 0 : path == rule.path) action = rule.action;
    }
    return action;
}

// The file a request path names, or nothing when it names none or leaves the root.
std::optional<fs::path> resolve(const fs::path& root, const std::string& requestPath) {
    std::string rest = requestPath;
    for (const char* prefix : {"/update/", "/cdn/", "/mirror/", "/origin/"}) {
        if (rest.rfind(prefix, 0) == 0) {
            rest = rest.substr(std::string(prefix).size() - 1);
            break;
        }
    }
    const fs::path relative = fs::path(rest).relative_path();
    for (const auto& part : relative) {
        if (part == "..") return std::nullopt;
    }
    std::error_code error;
    const fs::path file = root / relative;
    if (!fs::is_regular_file(file, error)) return std::nullopt;
    return file;
}

// Streams a file in pieces; `limit` bytes at most, then a stall or an abort if asked.
void serveFile(httplib::Response& res, const fs::path& file, const std::string& action,
               int stallSeconds) {
    const auto size = static_cast<std::size_t>(fs::file_size(file));
    const std::size_t limit = action == "short"   ? size / 2
                              : action == "stall" ? std::min<std::size_t>(size / 2, 4096)
                                                  : size;
    auto stream = std::make_shared<std::ifstream>(file, std::ios::binary);
    const std::string type =
        file.extension() == ".json" ? "application/json" : "application/octet-stream";
    res.set_content_provider(
        size, type,
        [stream, limit, action, stallSeconds](std::size_t offset, std::size_t length,
                                              httplib::DataSink& sink) {
            if (offset >= limit) {
                if (action == "stall") {
                    const auto until =
                        std::chrono::steady_clock::now() + std::chrono::seconds(stallSeconds);
                    while (sink.is_writable() && std::chrono::steady_clock::now() < until) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    }
                }
                return false;  // closes the connection before the announced length
            }
            std::vector<char> buffer(std::min<std::size_t>({length, limit - offset, 1 << 20}));
            stream->seekg(static_cast<std::streamoff>(offset));
            stream->read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
            return sink.write(buffer.data(), static_cast<std::size_t>(stream->gcount()));
        });
}

// An endless body still stops somewhere, so a client without a bound cannot fill the disk.
constexpr std::uint64_t kEndlessCap = 4ull << 30;

void serveEndless(httplib::Response& res) {
    auto sent = std::make_shared<std::uint64_t>(0);
    res.set_chunked_content_provider(
        "application/octet-stream", [sent](std::size_t, httplib::DataSink& sink) {
            static const std::string block(64 * 1024, 'A');
            if (*sent >= kEndlessCap) {
                sink.done();
                return true;
            }
            *sent += block.size();
            return sink.write(block.data(), block.size());  // false once the client has gone
        });
}

void serveBigBody(httplib::Response& res, std::uint64_t size) {
    res.set_content_provider(size, "application/json",
                             [](std::size_t, std::size_t length, httplib::DataSink& sink) {
                                 static const std::string block(1 << 20, ' ');
                                 return sink.write(block.data(), std::min(length, block.size()));
                             });
}

// Raw deflate of `size` zero bytes, flushed so that copies of it can follow one another.
std::string deflateZeros(std::size_t size) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY);
    std::vector<unsigned char> in(size, 0);
    std::string out(deflateBound(&stream, size) + 16, '\0');
    stream.next_in = in.data();
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = reinterpret_cast<unsigned char*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, size == 0 ? Z_FINISH : Z_FULL_FLUSH);
    out.resize(out.size() - stream.avail_out);
    deflateEnd(&stream);
    return out;
}

void putLe(std::string& out, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
}

// A zip of one entry that inflates to `size` zero bytes from about size / 1000 bytes.
std::string zipBomb(const std::string& entryName, std::uint32_t size) {
    constexpr std::uint32_t kBlock = 1 << 20;
    const std::string fullBlock = deflateZeros(kBlock);
    const std::vector<unsigned char> zeros(kBlock, 0);
    const uLong blockCrc = crc32(0, zeros.data(), kBlock);
    std::string data;
    uLong crc = crc32(0, nullptr, 0);
    for (std::uint32_t left = size; left > 0;) {
        const std::uint32_t piece = std::min(left, kBlock);
        data += piece == kBlock ? fullBlock : deflateZeros(piece);
        crc = crc32_combine(crc, piece == kBlock ? blockCrc : crc32(0, zeros.data(), piece), piece);
        left -= piece;
    }
    data += deflateZeros(0);  // the closing block

    const auto header = [&](std::uint32_t signature, bool central) {
        std::string h;
        putLe(h, signature, 4);
        if (central) putLe(h, 20, 2);  // made by
        for (const auto& [value, bytes] : std::initializer_list<std::pair<std::uint32_t, int>>{
                 {20, 2},
                 {0, 2},
                 {8, 2},
                 {0, 2},
                 {0x21, 2},
                 {static_cast<std::uint32_t>(crc), 4},
                 {static_cast<std::uint32_t>(data.size()), 4},
                 {size, 4},
                 {static_cast<std::uint32_t>(entryName.size()), 2},
                 {0, 2}}) {
            putLe(h, value, bytes);
        }
        if (central) {
            for (int bytes : {2, 2, 2, 4, 4})
                putLe(h, 0, bytes);  // comment, disk, attributes, offset
        }
        return h + entryName;
    };
    const std::string local = header(0x04034b50, false) + data;
    const std::string central = header(0x02014b50, true);
    std::string end;
    for (const auto& [value, bytes] : std::initializer_list<std::pair<std::uint32_t, int>>{
             {0x06054b50, 4},
             {0, 2},
             {0, 2},
             {1, 2},
             {1, 2},
             {static_cast<std::uint32_t>(central.size()), 4},
             {static_cast<std::uint32_t>(local.size()), 4},
             {0, 2}}) {
        putLe(end, value, bytes);
    }
    return local + central + end;
}

std::optional<std::uint64_t> sizeArgument(const std::string& action, const std::string& name) {
    const std::string prefix = name + ":";
    if (action.rfind(prefix, 0) != 0 || action.size() == prefix.size()) return std::nullopt;
    const std::string digits = action.substr(prefix.size());
    if (!std::all_of(digits.begin(), digits.end(), ::isdigit) || digits.size() > 12)
        return std::nullopt;
    return std::stoull(digits);
}

// Answers the hostile actions, which need no file; false for any other action.
bool serveGenerated(httplib::Response& res, const std::string& action, const std::string& path) {
    if (action == "endless") {
        serveEndless(res);
    } else if (const auto bodySize = sizeArgument(action, "bigbody")) {
        serveBigBody(res, *bodySize);
    } else if (const auto bombSize = sizeArgument(action, "zipbomb");
               bombSize && *bombSize < (1ull << 32)) {
        std::string name = fs::path(path).filename().string();
        if (fs::path(name).extension() == ".zip") name = fs::path(name).stem().string();
        res.set_content(zipBomb(name, static_cast<std::uint32_t>(*bombSize)), "application/zip");
    } else {
        return false;
    }
    res.status = 200;
    return true;
}

class RequestLog {
  public:
    explicit RequestLog(const std::string& path) {
        if (!path.empty()) out_.open(path, std::ios::app);
    }
    void add(const std::string& method, const std::string& path, int status) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (out_.is_open()) out_ << method << ' ' << path << ' ' << status << std::endl;
    }

  private:
    std::mutex mutex_;
    std::ofstream out_;
};

void handle(const Options& options, const httplib::Request& req, httplib::Response& res) {
    const auto action = actionFor(options, req.path).value_or("");
    if (!action.empty() && std::all_of(action.begin(), action.end(), ::isdigit)) {
        res.status = std::stoi(action);
        res.set_content("injected " + action + " for " + req.path + "\n", "text/plain");
        return;
    }
    if (serveGenerated(res, action, req.path)) return;
    const auto file = resolve(options.root, req.path);
    if (!file) {
        res.status = 404;
        res.set_content("not found: " + req.path + "\n", "text/plain");
        return;
    }
    // Files carry a validator, and a Range is served only for the copy its If-Range names.
    const auto written = static_cast<std::uint64_t>(fs::last_write_time(*file).time_since_epoch().count());
    const std::string etag = "\"" + std::to_string(fs::file_size(*file)) + "-" + std::to_string(written) + "\"";
    res.set_header("ETag", etag);
    if (req.get_header_value("If-Range") != etag) const_cast<httplib::Request&>(req).ranges.clear();
    res.status = req.ranges.empty() ? 200 : 206;
    serveFile(res, *file, action, options.stallSeconds);
}

}  // namespace

int main(int argc, char* argv[]) {
    Options options;
    if (!parseArgs(argc, argv, options)) {
        std::cerr << "usage: velk_update_server --root DIR [--port N] [--rule PATH=ACTION]... "
                     "[--rules FILE] [--log FILE] [--stall-seconds N]\n";
        return 2;
    }

    // Stop cleanly on SIGINT and SIGTERM: wait for them on a thread of our own.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    httplib::Server server;
    RequestLog log(options.logFile);
    server.Get(".*", [&](const httplib::Request& req, httplib::Response& res) {
        handle(options, req, res);
    });
    server.set_logger([&](const httplib::Request& req, const httplib::Response& res) {
        log.add(req.method, req.path, res.status);
    });

    const int port = options.port == 0
                         ? server.bind_to_any_port("127.0.0.1")
                         : (server.bind_to_port("127.0.0.1", options.port) ? options.port : -1);
    if (port <= 0) {
        std::cerr << "velk_update_server: cannot listen on 127.0.0.1:" << options.port << "\n";
        return 1;
    }
    std::thread stopper([&] {
        int signal = 0;
        sigwait(&stopSignals, &signal);
        server.stop();
    });
    std::cout << "VELK update server listening on http://127.0.0.1:" << port << std::endl;
    server.listen_after_bind();
    // Ending by itself (not by a signal): let the waiting thread go.
    pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
    return 0;
}
