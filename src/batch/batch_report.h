// The report of a batch: a line of JSON for each file, by which a run can be resumed.
//
// While a batch runs, lines stand in the order in which files came to an end, and a file in hand has a line
// that says so. In the end they stand in the order of the input.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "batch/batch_file.h"

namespace kv {

/// Size and time of change of a file, by which it is known to be the same.
struct FileState {
    u64 bytes = 0;
    i64 changed = 0; ///< ns since 1970
    friend bool operator==(const FileState&, const FileState&) = default;
};
/// Zeros for what isn't there.
FileState stateOf(const std::filesystem::path& path);

/// What of a line isn't in a `BatchResult`.
struct ReportHead {
    u64 index = 0;     ///< in the list
    std::string input; ///< path
    FileState state;   ///< of the input
    u64 job = 0;       ///< `fingerprint`
    i64 begun = 0;     ///< ns since 1970
    f64 seconds = 0;
};

/// With a line feed at the end.
std::string startedLine(const ReportHead& head);
std::string resultLine(const ReportHead& head, const BatchResult& result);

struct ReportEntry {
    ReportHead head;
    bool started = false; ///< no result
    BatchResult result;
};
/// False for what is no line of a report.
bool parseReportLine(std::string_view line, ReportEntry& entry);

/// Goes through a report, skipping what is no line of one: the last may be cut off. False with the error pair
/// set when the file can't be read.
bool readReport(const std::filesystem::path& file,
                const std::function<void(const ReportEntry& entry, std::string_view line)>& take);

/// A report under way.
class ReportFile {
public:
    ReportFile() = default;
    ~ReportFile();
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    /// Begins a new file beside `path`. False with the error pair set.
    bool create(const std::filesystem::path& path);
    /// Takes the place of an older report; from here on a cut-off run can be resumed.
    bool appear();
    void addStarted(const ReportHead& head);
    /// A line that is the last word on a file of the list.
    void addResult(u64 index, std::string_view line);
    /// Puts the lines in order. False with the error pair set when not all could be written.
    bool finish();

private:
    struct Place {
        u64 index, offset;
        u32 length;
    };
    bool write(std::string_view text);

    std::filesystem::path path_, temporary_;
    int file_ = -1;
    u64 size_ = 0;
    bool failed_ = false;
    std::vector<Place> places_;
};

/// Joins reports, such as those of shards, in the order of the list; of several lines on one file the last
/// result counts. False with the error pair set.
bool mergeReports(const std::vector<std::string>& reports, const std::filesystem::path& merged);

} // namespace kv
