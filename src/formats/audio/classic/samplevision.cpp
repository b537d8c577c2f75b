// Samples of the Samplevision editor: a header, 16-bit samples, and behind them loops, markers, key and rate.
#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "smp_Imp";
constexpr std::size_t kHeaderBytes = 116;
constexpr std::size_t kLoops = 8, kMarkers = 8, kMarkerNameBytes = 10;
constexpr std::size_t kTrailerBytes = 2 + kLoops * 11 + kMarkers * 14 + 13;
constexpr u32 kUnused = 0xFFFFFFFF;

struct Trailer {
    u32 rate = 0;
    u32 key = kUnused;
    FrameLoop loop; ///< the first that is on; empty for none
    std::vector<CuePoint> markers;
};

Trailer readTrailer(FileContext& file, u64 at) {
    Bytes bytes(kTrailerBytes);
    bytes.resize(file.source->readAt(at, bytes));
    ByteCursor in(bytes, at);
    in.skip(2);
    Trailer trailer;
    for (std::size_t i = 0; i < kLoops; ++i) {
        FrameLoop loop;
        loop.start = in.u32le();
        loop.end = in.u32le();
        const u8 type = in.u8le(); // 0 off, 1 forward, 2 back and forth
        loop.alternates = type == 2;
        in.skip(2); // how often
        if ((type == 1 || type == 2) && trailer.loop.end == 0) trailer.loop = loop;
    }
    for (std::size_t i = 0; i < kMarkers; ++i) {
        CuePoint marker;
        marker.label = fieldText(in.bytes(kMarkerNameBytes));
        marker.position = in.u32le();
        if (in.ok() && marker.position != kUnused) trailer.markers.push_back(marker);
    }
    const u32 key = in.u8le();
    const u32 rate = in.u32le();
    if (!in.ok()) return trailer;
    trailer.key = key;
    trailer.rate = rate;
    return trailer;
}

} // namespace

bool samplevision_Imp(Collection&, FileContext& file, u32) {
    const Bytes head = headOf(file, kHeaderBytes);
    ByteCursor in(head);
    const std::string_view magic = textOf(in.bytes(18));
    in.skip(4); // version
    const ByteSpan comments = in.bytes(60);
    const ByteSpan name = in.bytes(30);
    const u32 frames = in.u32le();
    if (!in.ok() || magic != "SOUND SAMPLE DATA ") return Fail(kContext, "Not a Samplevision file");

    const Trailer trailer = readTrailer(file, kHeaderBytes + u64{frames} * 2);
    SampleLayout layout;
    layout.word = kPcm16;
    if (trailer.rate != 0) layout.rate = trailer.rate;
    layout.offset = kHeaderBytes;
    layout.bytes = u64{frames} * 2;
    Wave* wave = importSamples(file, layout, kContext);
    if (!wave) return false;
    wave->SetName(fieldText(name));
    wave->comments = fieldText(comments);
    const u16 flags = static_cast<u16>(kLooped | (trailer.loop.alternates ? kLoopBidirectional : 0));
    setLoop(*wave, trailer.loop.start, trailer.loop.end, flags);
    setRootKey(*wave, trailer.key);
    for (const CuePoint& marker : trailer.markers) {
        if (marker.position <= wave->frames) wave->cuePoints.push_back(marker);
    }
    return true;
}

} // namespace kv
