#include <algorithm>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "ReplaceWaveFromFile";

/// Keeps the store's items aside for a block.
class ListsAside {
public:
    ListsAside() : pushed_(store().PushLists()) {}
    ~ListsAside() {
        if (pushed_) store().PopAndDiscard();
    }
    ListsAside(const ListsAside&) = delete;
    ListsAside& operator=(const ListsAside&) = delete;
    explicit operator bool() const { return pushed_; }

private:
    bool pushed_;
};

bool hasLoop(const Wave& wave) {
    const SampleParams& p = wave.params;
    const bool whole = p.loopEnd == 0 || p.loopEnd == static_cast<f64>(wave.frames);
    return p.loopFlags != 0 || p.loopStart != 0 || !whole;
}

template <class T>
bool copySamples(std::span<const T> from, SampleBuffer<T>& to) {
    if (!to.allocate(from.size())) return Fail(kContext, "Out of memory");
    std::copy(from.begin(), from.end(), to.data());
    return true;
}

} // namespace

bool ReplaceWaveFromFile(Wave& wave, const std::filesystem::path& path) {
    const ListsAside aside;
    if (!aside) return Fail(kContext, "Too many files are open at once");
    if (!Import(path, true)) return false;
    Wave* fresh = store().First<Wave>();
    if (!fresh) return Fail(kContext, "Missing data in wave file?");
    if (!fresh->LoadData()) return false;

    SampleBuffer<f32> floats;
    SampleBuffer<i16> integers;
    const bool copied = fresh->samplesFloat ? copySamples<f32>(fresh->samplesFloat.span(), floats)
                                            : copySamples<i16>(fresh->samples16.span(), integers);
    if (!copied) return false;
    FreeData(wave, false);
    wave.samplesFloat = std::move(floats);
    wave.samples16 = std::move(integers);
    wave.reloadable = false;
    wave.frames = fresh->frames;
    wave.channels = fresh->channels;
    wave.sampleRate = fresh->sampleRate;
    wave.dataFormat = fresh->dataFormat;
    wave.bits = fresh->bits;
    const bool samePoints =
        wave.params.loopStart == fresh->params.loopStart && wave.params.loopEnd == fresh->params.loopEnd;
    if (hasLoop(*fresh) && !samePoints) {
        wave.params.loopFlags = fresh->params.loopFlags;
        wave.params.loopStart = fresh->params.loopStart;
        wave.params.loopEnd = fresh->params.loopEnd;
    }
    wave.FixUp();
    return true;
}

} // namespace kv
