// What is process-wide by nature, in one object: the store, the settings, the error pair, the counters.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>

#include "base/run_context.h"
#include "model/app_settings.h"
#include "model/store.h"

namespace kv {

class FormatTable;

/// What the user last said of a file without any header.
struct RawSource {
    u32 dataFormat = 0x4; ///< data format word
    u32 sampleRate = 22050;
    u32 channels = 1;
    u64 offset = 0;   ///< bytes before the first sample
    u32 codeBits = 0; ///< of coded samples whose format has several widths; 0: to be asked for
};

/// The last run of the audio wizard: its algorithm, and the range or -1.
struct LastAudioRun {
    std::string algorithm;
    i64 from = -1, to = -1; ///< frames
};

struct Workspace : RunContext {
    Store store;
    AppSettings settings;
    const FormatTable* formats = nullptr; ///< the formats that the drivers know
    RawSource rawSource;
    std::filesystem::path stateFolder; ///< of the saved states
    bool importInProgress = false;     ///< constructors of items tell the status line
    bool exportInProgress = false;
    /// While many items are saved, which do not change meanwhile: the files of samples that were written
    /// beside them, by path, with the wave and its data format word, so that the next item need not compare
    /// them.
    struct WrittenSample {
        ItemId wave;
        u32 word;
        friend bool operator==(const WrittenSample&, const WrittenSample&) = default;
    };
    std::optional<std::unordered_map<std::string, WrittenSample>> writtenSamples;
    LastAudioRun lastAudioRun;
    std::unordered_map<std::string, std::string> lastCalls; ///< of algorithms, by slug, with their values
    bool warnLongLoopSearch = true; ///< asks before the search for a loop in a long wave
    u32 wavFact = 0; ///< what the last WAV file that has frames to tell left for the next fact chunk
};

/// The current workspace of this thread; one of the thread's own when none is bound.
Workspace& workspace();

/// Makes a workspace the thread's current one for a block.
class WorkspaceScope {
public:
    explicit WorkspaceScope(Workspace& bound);
    ~WorkspaceScope();
    WorkspaceScope(const WorkspaceScope&) = delete;
    WorkspaceScope& operator=(const WorkspaceScope&) = delete;

private:
    Workspace* previous_;
    RunContextScope context_;
};

inline Store& store() {
    return workspace().store;
}
inline AppSettings& settings() {
    return workspace().settings;
}
inline Item* FindItem(ItemId id) {
    return store().FindItem(id);
}

} // namespace kv
