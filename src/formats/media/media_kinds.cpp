#include "formats/media/media_kinds.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "samples/data_format.h"

namespace kv {
namespace {

constexpr MediaKindRow movie(std::string_view importContext, std::string_view exportContext,
                             const char* muxer) {
    return {.importContext = importContext,
            .exportContext = exportContext,
            .demuxer = "mov",
            .muxer = muxer,
            .encoder = "aac",
            .keepsTexts = true,
            .keepsCues = true};
}

constexpr MediaKindRow withLossless(MediaKindRow row, const char* encoder16, const char* encoder24) {
    row.encoder16 = encoder16;
    row.encoder24 = encoder24;
    return row;
}

constexpr MediaKindRow readOnly(std::string_view context, const char* demuxer) {
    return {.importContext = context, .exportContext = {}, .demuxer = demuxer};
}

constexpr MediaKindRow adts(const char* encoderOptions) {
    return {.importContext = {},
            .exportContext = "aac_Exp",
            .muxer = "adts",
            .encoder = "aac",
            .encoderOptions = encoderOptions};
}

constexpr MediaKindRow kKinds[] = {
    withLossless(movie("m4a_Imp", "m4a_Exp", "ipod"), "alac", "alac"),
    movie("m4r_Imp", "m4r_Exp", "ipod"),
    movie("mp4_Imp", "mp4_Exp", "mp4"),
    withLossless(movie("mov_Imp", "mov_Exp", "mov"), "pcm_s16le", "pcm_s24le"),
    movie("3gp_Imp", "3gp_Exp", "3gp"),
    movie("3g2_Imp", "3g2_Exp", "3g2"),
    readOnly("mka_Imp", "matroska"),
    readOnly("avi_Imp", "avi"),
    readOnly("mpeg_Imp", "mpeg"),
    readOnly("asf_Imp", "asf"),
    {.importContext = "wma_Imp",
     .exportContext = "wma_Exp",
     .demuxer = "asf",
     .muxer = "asf",
     .encoder = "wmav2",
     .leastKbps = 24,
     .keepsTexts = true,
     .keepsEngineer = true,
     .edgeFrames = 2048},
    readOnly("amr_Imp", "amr"),
    readOnly("cod_Imp", "amr"),
    readOnly("ape_Imp", "ape"),
    readOnly("aif_Imp", "aiff"),
    readOnly("caf_Imp", "caf"),
    readOnly("ogg_Imp", "ogg"),
    adts("profile=aac_low"),
    adts("profile=aac_main"),
    adts("profile=mpeg2_aac_low:aac_pns=0"),
    adts("profile=aac_main:aac_pns=0"),
};
static_assert(std::size(kKinds) == kMediaKindCount);

constexpr u32 kAacRates[] = {7350,  8000,  11025, 12000, 16000, 22050, 24000,
                             32000, 44100, 48000, 64000, 88200, 96000}; // ISO/IEC 14496-3
constexpr u32 kWmaRates[] = {8000, 11025, 16000, 22050, 32000, 44100, 48000};

bool isWma(const MediaKindRow& kind) {
    return kind.encoder && std::string_view(kind.encoder) == "wmav2";
}

} // namespace

const MediaKindRow& mediaKind(u32 kind) {
    return kKinds[kind < kMediaKindCount ? kind : 0];
}

u32 encoderRate(const MediaKindRow& kind, u32 rate) {
    const std::span<const u32> rates = isWma(kind) ? std::span<const u32>(kWmaRates) : kAacRates;
    const auto found = std::lower_bound(rates.begin(), rates.end(), rate);
    return found == rates.end() ? rates.back() : *found;
}

f32 media_Options(int index, u32 subType, std::string* label) {
    constexpr u32 kLeast = 32, kMost = 320;
    const u32 most = isWma(mediaKind(subType)) ? 192 : kMost;
    for (const u32 rate : compressedRates()) {
        if (rate < kLeast || rate > most || index-- > 0) continue;
        if (label) *label = fmt::format("{} kbit/s", rate);
        return static_cast<f32>(rate);
    }
    return 0;
}

} // namespace kv
