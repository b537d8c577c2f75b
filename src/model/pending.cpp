#include "model/pending.h"

#include "base/run_context.h"

namespace kv {

bool renderSynthesis(Item&) {
    return Fail("Synthesis", "Synthesis models can't be rendered by this version yet");
}

Wave* renderSong(Item&, bool) {
    Fail("Synthesis", "Songs can't be rendered by this version yet");
    return nullptr;
}

void scanVoiceDumps(Track&) {}

} // namespace kv
