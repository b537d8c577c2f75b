#include "batch/batch_report.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "base/byte_sink.h"
#include "base/byte_source.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::string_view kContext = "batch";
constexpr std::string_view kStatusNames[] = {"done", "skipped", "failed"};
constexpr std::string_view kStarted = "started";
constexpr std::size_t kLongestLine = 64U << 20;

/// A path as JSON: one that isn't UTF-8 has its bytes beside it.
void putPath(Json& json, const char* key, std::string_view path) {
    json[key] = path;
    if (isUtf8(path)) return;
    std::string digits;
    for (const char c : path) digits += fmt::format("{:02x}", static_cast<u8>(c));
    json[fmt::format("{}Hex", key)] = digits;
}

std::string takePath(const Json& json, const char* key) {
    const std::string digits = json.value(fmt::format("{}Hex", key), std::string());
    if (digits.empty()) return json.value(key, std::string());
    std::string path;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        path += static_cast<char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16));
    return path;
}

/// A whole number of 64 bits; 0 for anything else.
template <class T>
T integerOf(const Json& json, const char* key) {
    const auto found = json.find(key);
    const bool whole = found != json.end() && found->is_number_integer() &&
                       (std::is_signed_v<T> || found->is_number_unsigned());
    return whole ? found->template get<T>() : T{0};
}

Json headOf(const ReportHead& head, std::string_view status) {
    Json json;
    json["index"] = head.index;
    putPath(json, "input", head.input);
    json["status"] = status;
    return json;
}

void putTail(Json& json, const ReportHead& head) {
    json["inputSize"] = head.state.bytes;
    json["inputChanged"] = head.state.changed;
    json["begun"] = head.begun;
    json["job"] = fmt::format("{:016x}", head.job);
}

std::string lineOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace

FileState stateOf(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return {};
    return {static_cast<u64>(info.st_size), i64{info.st_mtim.tv_sec} * 1'000'000'000 + info.st_mtim.tv_nsec};
}

std::string startedLine(const ReportHead& head) {
    Json json = headOf(head, kStarted);
    putTail(json, head);
    return lineOf(json);
}

std::string resultLine(const ReportHead& head, const BatchResult& result) {
    Json json = headOf(head, kStatusNames[static_cast<std::size_t>(result.status)]);
    if (!result.reason.empty()) json["reason"] = result.reason;
    if (result.status == BatchStatus::Failed)
        json["error"] = {{"context", result.error.context}, {"message", result.error.message}};
    Json outputs = Json::array();
    for (const BatchResult::Output& output : result.outputs) {
        Json entry;
        putPath(entry, "path", output.path);
        entry["bytes"] = output.bytes;
        outputs.push_back(std::move(entry));
    }
    json["outputs"] = std::move(outputs);
    json["seconds"] = std::round(head.seconds * 1e6) / 1e6;
    if (!result.warnings.empty()) json["warnings"] = result.warnings;
    if (!result.losses.empty()) json["losses"] = result.losses;
    putTail(json, head);
    return lineOf(json);
}

bool parseReportLine(std::string_view line, ReportEntry& entry) {
    const Json json = Json::parse(line, nullptr, false);
    if (!json.is_object()) return false;
    entry = {};
    try { // a member of another type than ours
        entry.head.index = integerOf<u64>(json, "index");
        entry.head.input = takePath(json, "input");
        entry.head.state = {integerOf<u64>(json, "inputSize"), integerOf<i64>(json, "inputChanged")};
        entry.head.begun = integerOf<i64>(json, "begun");
        entry.head.seconds = std::clamp(json.value("seconds", 0.0), 0.0, 1e9);
        entry.head.job = std::strtoull(json.value("job", std::string()).c_str(), nullptr, 16);
        const std::string status = json.value("status", std::string());
        const auto name = std::find(std::begin(kStatusNames), std::end(kStatusNames), status);
        entry.started = status == kStarted;
        if (!entry.started && name == std::end(kStatusNames)) return false;
        if (!entry.started) entry.result.status = static_cast<BatchStatus>(name - std::begin(kStatusNames));
        entry.result.reason = json.value("reason", std::string());
        for (const Json& output : json.value("outputs", Json::array()))
            entry.result.outputs.push_back({takePath(output, "path"), integerOf<u64>(output, "bytes")});
        for (const Json& loss : json.value("losses", Json::array()))
            entry.result.losses.push_back(loss.get<std::string>());
        for (const Json& warning : json.value("warnings", Json::array()))
            entry.result.warnings.push_back(warning.get<std::string>());
        const Json error = json.value("error", Json::object());
        entry.result.error = {error.value("context", std::string()), error.value("message", std::string())};
    } catch (const Json::exception&) {
        return false;
    }
    return !entry.head.input.empty();
}

bool readReport(const fs::path& file,
                const std::function<void(const ReportEntry& entry, std::string_view line)>& take) {
    const std::shared_ptr<ByteSource> source = openFileSource(file);
    if (!source) return Fail(kContext, "Could not open the report \"{}\"", file.string());
    Bytes block(1U << 20);
    std::string line;
    ReportEntry entry;
    for (u64 at = 0; at < source->size();) {
        const std::size_t got = source->readAt(at, block);
        if (got == 0) return Fail(kContext, "Could not read the report \"{}\"", file.string());
        at += got;
        std::string_view rest = textOf(ByteSpan(block).first(got));
        for (std::size_t end = rest.find('\n'); end != std::string_view::npos; end = rest.find('\n')) {
            line += rest.substr(0, end);
            rest.remove_prefix(end + 1);
            if (parseReportLine(line, entry)) take(entry, line += '\n');
            line.clear();
        }
        if (line.size() + rest.size() <= kLongestLine) line += rest;
    }
    return true;
}

ReportFile::~ReportFile() {
    if (file_ >= 0) ::close(file_);
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

bool ReportFile::create(const fs::path& path) {
    path_ = path;
    temporary_ = path;
    temporary_ += ".new";
    file_ = ::open(temporary_.c_str(), O_CREAT | O_TRUNC | O_RDWR | O_CLOEXEC | O_APPEND, 0666);
    if (file_ >= 0) return true;
    temporary_.clear();
    return Fail(kContext, "Could not create the report \"{}\"", path.string());
}

bool ReportFile::appear() {
    if (::rename(temporary_.c_str(), path_.c_str()) != 0)
        return Fail(kContext, "Could not create the report \"{}\"", path_.string());
    temporary_.clear();
    return true;
}

bool ReportFile::write(std::string_view text) {
    while (!text.empty() && !failed_) {
        const ssize_t done = ::write(file_, text.data(), text.size());
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            failed_ = true;
            break;
        }
        size_ += static_cast<u64>(done);
        text.remove_prefix(static_cast<std::size_t>(done));
    }
    return !failed_;
}

void ReportFile::addStarted(const ReportHead& head) {
    if (file_ >= 0) write(startedLine(head));
}

void ReportFile::addResult(u64 index, std::string_view line) {
    if (file_ < 0) return;
    places_.push_back({index, size_, static_cast<u32>(line.size())});
    if (!write(line)) places_.pop_back();
}

bool ReportFile::finish() {
    if (file_ < 0) return true;
    const auto failure = [&] { return Fail(kContext, "Could not write the report \"{}\"", path_.string()); };
    const std::unique_ptr<SaveFile> ordered = SaveFile::create(path_);
    if (!ordered) return failure();
    std::stable_sort(places_.begin(), places_.end(),
                     [](const Place& a, const Place& b) { return a.index < b.index; });
    std::string block;
    for (std::size_t i = 0; i < places_.size(); ++i) {
        // What stands in order already is copied at once.
        std::size_t last = i;
        u64 bytes = places_[i].length;
        while (last + 1 < places_.size() && bytes < (1U << 20) &&
               places_[last + 1].offset == places_[last].offset + places_[last].length)
            bytes += places_[++last].length;
        block.resize(static_cast<std::size_t>(bytes));
        const ssize_t got = ::pread(file_, block.data(), block.size(), static_cast<off_t>(places_[i].offset));
        if (got != static_cast<ssize_t>(block.size()) || !ordered->write(bytesOf(block))) return failure();
        i = last;
    }
    ::close(file_);
    file_ = -1;
    return (ordered->commit() && !failed_) || failure();
}

bool mergeReports(const std::vector<std::string>& reports, const fs::path& merged) {
    ReportFile out;
    if (!out.create(merged)) return false;
    // The place of the last result on each file of the list: by index and input.
    struct Last {
        std::size_t report;
        u64 number; ///< of the line
    };
    std::unordered_map<u64, Last> last;
    const auto keyOf = [](const ReportEntry& entry) {
        return std::hash<std::string>()(entry.head.input) ^ entry.head.index * 0x9E3779B97F4A7C15;
    };
    for (const bool writing : {false, true}) {
        for (std::size_t i = 0; i < reports.size(); ++i) {
            u64 number = 0;
            const bool read = readReport(reports[i], [&](const ReportEntry& entry, std::string_view line) {
                const u64 key = keyOf(entry), at = number++;
                if (entry.started) return;
                if (!writing)
                    last[key] = {i, at};
                else if (last[key].report == i && last[key].number == at)
                    out.addResult(entry.head.index, line);
            });
            if (!read) return false;
        }
    }
    return out.appear() && out.finish();
}

} // namespace kv
