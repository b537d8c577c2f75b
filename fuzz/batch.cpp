// Any text as a job file and as a line of a report: what is understood is written as it is read.
#include "batch/batch_job.h"
#include "batch/batch_report.h"
#include "formats/table/format_table_rows.h"
#include "model/workspace.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

void readJob(std::string_view text) {
    BatchJobFile file, back;
    if (!parseJobFile(text, file)) return;
    const std::string written = jobFileText(file);
    require(parseJobFile(written, back), "a job that was written can be read");
    require(jobFileText(back) == written, "and is the same");
}

void readReportLine(std::string_view line) {
    ReportEntry entry, back;
    if (!parseReportLine(line, entry) || entry.started) return;
    const std::string written = resultLine(entry.head, entry.result);
    require(parseReportLine(written, back), "a line that was written can be read");
    require(back.head.input == entry.head.input, "with its input");
    require(resultLine(back.head, back.result) == written, "and is the same");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    Workspace space;
    const WorkspaceScope scope(space);
    space.formats = &formatTable();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    readJob(text);
    readReportLine(text);
    return 0;
}
