#include "formats/audio/packed/amr.h"

#include <fmt/format.h>

#include "base/run_context.h"
#include "formats/audio/packed/packed_wave.h"
#include "formats/codecs/amr_encoder.h"
#include "formats/codecs/amr_frames.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/resampled_blocks.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr f32 kUsualRate = 12.2F;   // kbit/s
constexpr f32 kTypeByteRate = 0.4F; ///< what the bytes between the frames add to the rate of a file's own
constexpr int kResamplingQuality = 5;

bool exportAmr(std::string_view context, Item& item, FileContext& file, f32 kbps, AmrForm form) {
    SampleExport out = openExport(context, item, kMonoBit | kFloat32, false);
    if (!out) return false;
    const Wave& wave = *out.wave;
    reportLosses(wave, wave.sampleRate == kAmrSampleRate ? u32{kKeepsRate} : 0);
    out.blocks = resampled(std::move(out.blocks), wave.sampleRate, kAmrSampleRate, kResamplingQuality,
                           sourceBitsOf(wave));
    if (!out.blocks) return false;
    if (form == AmrForm::Storage && !file.write(bytesOf(kAmrMark)))
        return Fail(context, "Writing to file failed");
    const f32 rate = kbps > 0 ? kbps : chosenRate(0, wave, kUsualRate + kTypeByteRate) - kTypeByteRate;
    const std::unique_ptr<PackingSink> encoder = makeAmrEncoder(*file.sink, rate, form);
    return encoder && packSamples(*out.blocks, *encoder);
}

} // namespace

bool amr_Exp(Item& item, FileContext& file, u32, u32, bool, f32 bitRate) {
    return exportAmr("amr_Exp", item, file, bitRate, AmrForm::Storage);
}

bool cod_Exp(Item& item, FileContext& file, u32, u32, bool, f32 bitRate) {
    return exportAmr("cod_Exp", item, file, bitRate, AmrForm::InterfaceFormat2);
}

f32 amr_Options(int index, u32, std::string* label) {
    const std::span<const f32> rates = amrRates();
    if (index < 0 || static_cast<std::size_t>(index) >= rates.size()) return 0;
    const f32 rate = rates[static_cast<std::size_t>(index)];
    if (label) *label = fmt::format("AMR {} kbit/s", rate);
    return rate;
}

} // namespace kv
