#include "formats/framework/losses.h"

#include "base/run_context.h"
#include "model/wave.h"

namespace kv {

void reportLosses(const Wave& wave, u32 keeps) {
    const SampleParams& params = wave.params;
    const bool tuned = params.rootKey != 60 || params.fineTune != 0 || params.gainDb != 0;
    const bool texts = !wave.artist.empty() || !wave.album.empty() || !wave.engineer.empty() ||
                       !wave.copyright.empty() || !wave.comments.empty();
    struct Row {
        u32 keeps;
        bool present;
        std::string_view field;
    };
    const Row rows[] = {
        {kKeepsRate, wave.sampleRate != 0, "sampleRate"},   {kKeepsLoop, params.looped(), "loop"},
        {kKeepsTuning, tuned, "rootKey, fineTune, gainDb"}, {kKeepsTexts, texts, "texts"},
        {kKeepsCues, !wave.cuePoints.empty(), "cuePoints"},
    };
    for (const Row& row : rows) {
        if (!row.present || (keeps & row.keeps) != 0) continue;
        runContext().diagnostics.add(
            {Severity::Loss, 0, wave.name().str(), std::string(row.field), "the format has no place for it"});
    }
}

} // namespace kv
