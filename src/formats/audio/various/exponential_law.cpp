#include <algorithm>
#include <array>
#include <cmath>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/codecs/coded_stream.h"
#include "formats/codecs/sample_pieces.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr u32 kRateHz = 8000;
constexpr u32 kMagnitudes = 128;
constexpr u32 kSign = 0x80; ///< of a byte, all of whose bits are stored inverted, as in G.711

/// The samples of the magnitudes: |x| = (256^y - 1) / 255 for y from 0 to 1 (ITU-T G.711's law of mu = 255,
/// before it was laid in segments).
const std::array<i32, kMagnitudes>& magnitudes() {
    static const std::array<i32, kMagnitudes> table = [] {
        std::array<i32, kMagnitudes> samples{};
        for (u32 m = 0; m < kMagnitudes; ++m) {
            const f64 y = static_cast<f64>(m) / (kMagnitudes - 1);
            samples[m] = roundHalf((std::pow(256.0, y) - 1) / 255 * 32767);
        }
        return samples;
    }();
    return table;
}

i16 decodeByte(std::byte byte) {
    const u32 code = ~std::to_integer<u32>(byte) & 0xFF;
    const i32 magnitude = magnitudes()[code & (kSign - 1)];
    return static_cast<i16>((code & kSign) != 0 ? -magnitude : magnitude);
}

/// The nearest code.
std::byte encodeSample(i16 sample) {
    const auto& table = magnitudes();
    const i32 wanted = std::abs(i32{sample});
    auto at = static_cast<u32>(std::lower_bound(table.begin(), table.end(), wanted) - table.begin());
    if (at == kMagnitudes || (at > 0 && wanted - table[at - 1] < table[at] - wanted)) --at;
    return static_cast<std::byte>(~(at | (sample < 0 ? kSign : 0)));
}

CodedForm lawForm(u32 channels) {
    return {channels,
            channels,
            1,
            [](ByteSpan from, std::span<i16> to) {
                std::transform(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(to.size()),
                               to.begin(), decodeByte);
                return to.size();
            },
            {}};
}

std::unique_ptr<SampleBlocks> openLaw(const Wave& wave, FileContext& file) {
    return openCoded(file.source, file.position, file.size(), wave.frames, lawForm(wave.channels));
}

const WaveReader lawReader{"u255law_ImpWave", loadThroughBlocks, openLaw};

} // namespace

bool u255law_Imp(Collection&, FileContext& file, u32) {
    Wave* wave = importSamples(file, {kMuLaw, 1, kRateHz, 0, file.size(), 0}, "u255law_Imp");
    if (!wave) return false;
    wave->reader = &lawReader;
    wave->preferredFormat = kPcm16; // its values are not those of G.711
    return true;
}

bool u255law_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("u255law_Exp", item, formatWord, perWave);
    if (!out) return false;
    reportLosses(*out.wave, out.wave->sampleRate == kRateHz && out.channels == 1 ? u32{kKeepsRate} : 0);
    Bytes bytes;
    return writePieces<i16>(*out.blocks, out.channels, 65536, "u255law_Exp", [&](std::span<const i16> from) {
        bytes.resize(from.size());
        std::transform(from.begin(), from.end(), bytes.begin(), encodeSample);
        return file.write(bytes) || Fail("u255law_Exp", "Writing to file failed");
    });
}

} // namespace kv
