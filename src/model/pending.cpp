#include "model/pending.h"

#include "base/run_context.h"
#include "model/sample_blocks.h"

namespace kv {

bool renderSynthesis(Item&) {
    return Fail("Synthesis", "Synthesis models can't be rendered by this version yet");
}

Wave* renderSong(Item&, bool) {
    Fail("Synthesis", "Songs can't be rendered by this version yet");
    return nullptr;
}

void scanVoiceDumps(Track&) {}

std::unique_ptr<SampleBlocks> resampled(std::unique_ptr<SampleBlocks> blocks, u32 fromHz, u32 toHz, u32) {
    if (!blocks || fromHz == toHz) return blocks;
    Fail("Resample", "Resampling is not available yet");
    return nullptr;
}

} // namespace kv
