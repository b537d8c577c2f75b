#include "model/wave_data.h"

#include <cstdlib>
#include <new>

#include "base/run_context.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/kernels.h"

namespace kv {

std::span<f32> GetFloatData(Wave& wave) {
    if (wave.frames == 0) return {};
    if (!wave.samplesFloat && wave.samples16) {
        if (!wave.samplesFloat.allocate(wave.samples16.size())) return {};
        int16ToFloat(wave.samples16.span(), wave.samplesFloat.span());
    }
    return wave.samplesFloat.span();
}

std::span<i16> GetInt16Data(Wave& wave) {
    if (wave.frames == 0) return {};
    if (!wave.samples16 && wave.samplesFloat) {
        if (!wave.samples16.allocate(wave.samplesFloat.size())) return {};
        floatToInt16(wave.samplesFloat.span(), wave.samples16.span());
    }
    return wave.samples16.span();
}

void DropInt16Data(Wave& wave, bool doIt) {
    if (doIt) wave.samples16.reset();
}

void DropFloatData(Wave& wave, bool doIt) {
    if (doIt) wave.samplesFloat.reset();
}

bool FreeData(Wave& wave, bool onlyIfReloadable) {
    if (!wave.resident()) return true;
    if (onlyIfReloadable && !wave.reloadable) return false;
    wave.samples16.reset();
    wave.samplesFloat.reset();
    return true;
}

Wave* FindWaveBySourceFile(const std::filesystem::path& path, const Wave* except) {
    for (Wave& wave : store().all<Wave>()) {
        if (&wave != except && equalIgnoringCase(wave.sourceFile.native(), path.native())) return &wave;
    }
    return nullptr;
}

bool PurgeReloadableWaves() {
    bool freed = false;
    for (Wave& wave : store().all<Wave>()) {
        if (wave.resident() && !wave.locked && FreeData(wave, true)) freed = true;
    }
    return freed;
}

namespace {

int outOfMemoryExitCode = 0;

void handleOutOfMemory() {
    if (PurgeReloadableWaves()) return;
    ShowMessage({}, "Out of memory - Kelvane Studio will terminate");
    std::_Exit(outOfMemoryExitCode);
}

} // namespace

void installMemoryHandlers(int exitCode) {
    outOfMemoryExitCode = exitCode;
    setMemoryPurge(PurgeReloadableWaves);
    std::set_new_handler(handleOutOfMemory);
}

} // namespace kv
