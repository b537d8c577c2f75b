#pragma once

#include "model/collection.h"
#include "model/instrument.h"
#include "model/sample_blocks.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "test_support.h"

namespace kv::test {

/// A workspace with an empty collection named after `drums.wav`.
class WorkspaceTest : public testing::Test {
protected:
    WorkspaceTest() {
        space.ui = &ui;
        collection = store().Create<Collection>("/music/drums.wav");
    }
    Wave* addWave(std::string_view name, u32 frames = 1000, u32 channels = 1) {
        Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr, name);
        wave->frames = frames;
        wave->channels = channels;
        wave->sourceFile = kMemoryOnly;
        return wave;
    }
    /// A wave with 16-bit samples in memory only.
    Wave* addWaveWith(std::vector<i16> samples, u32 channels = 1) {
        Wave* wave = addWave("memory", static_cast<u32>(samples.size() / channels), channels);
        EXPECT_TRUE(wave->samples16.allocate(samples.size()));
        std::copy(samples.begin(), samples.end(), wave->samples16.data());
        wave->reloadable = false;
        return wave;
    }

    ScriptedUi ui;
    Workspace space;
    WorkspaceScope scope{space};
    Collection* collection = nullptr;
};

} // namespace kv::test
