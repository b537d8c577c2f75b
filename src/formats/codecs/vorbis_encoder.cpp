#include "formats/codecs/vorbis_encoder.h"

#include <ogg/ogg.h>
#include <vorbis/codec.h>
#include <vorbis/vorbisenc.h>

#include <algorithm>
#include <cmath>

#include "base/run_context.h"
#include "base/shared_library.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Ogg Vorbis";
constexpr std::size_t kStepFrames = 4096;

struct OggLibrary {
    SharedLibrary library{"libogg0", {"libogg.so.0"}};
    decltype(ogg_stream_init)* init = nullptr;
    decltype(ogg_stream_clear)* clear = nullptr;
    decltype(ogg_stream_packetin)* put = nullptr;
    decltype(ogg_stream_pageout)* fullPage = nullptr;
    decltype(ogg_stream_flush)* page = nullptr;

    OggLibrary() {
        library.bind(init, "ogg_stream_init")
            .bind(clear, "ogg_stream_clear")
            .bind(put, "ogg_stream_packetin")
            .bind(fullPage, "ogg_stream_pageout")
            .bind(page, "ogg_stream_flush");
    }
};

struct VorbisCore {
    SharedLibrary library{"libvorbis0a", {"libvorbis.so.0"}};
    decltype(vorbis_info_init)* initInfo = nullptr;
    decltype(vorbis_info_clear)* clearInfo = nullptr;
    decltype(vorbis_comment_init)* initComment = nullptr;
    decltype(vorbis_comment_add)* addComment = nullptr;
    decltype(vorbis_comment_clear)* clearComment = nullptr;
    decltype(vorbis_analysis_init)* initState = nullptr;
    decltype(vorbis_dsp_clear)* clearState = nullptr;
    decltype(vorbis_block_init)* initBlock = nullptr;
    decltype(vorbis_block_clear)* clearBlock = nullptr;
    decltype(vorbis_analysis_headerout)* headers = nullptr;
    decltype(vorbis_analysis_buffer)* buffer = nullptr;
    decltype(vorbis_analysis_wrote)* wrote = nullptr;
    decltype(vorbis_analysis_blockout)* nextBlock = nullptr;
    decltype(vorbis_analysis)* analyse = nullptr;
    decltype(vorbis_bitrate_addblock)* addBlock = nullptr;
    decltype(vorbis_bitrate_flushpacket)* nextPacket = nullptr;

    VorbisCore() {
        library.bind(initInfo, "vorbis_info_init")
            .bind(clearInfo, "vorbis_info_clear")
            .bind(initComment, "vorbis_comment_init")
            .bind(addComment, "vorbis_comment_add")
            .bind(clearComment, "vorbis_comment_clear")
            .bind(initState, "vorbis_analysis_init")
            .bind(clearState, "vorbis_dsp_clear")
            .bind(initBlock, "vorbis_block_init")
            .bind(clearBlock, "vorbis_block_clear")
            .bind(headers, "vorbis_analysis_headerout")
            .bind(buffer, "vorbis_analysis_buffer")
            .bind(wrote, "vorbis_analysis_wrote")
            .bind(nextBlock, "vorbis_analysis_blockout")
            .bind(analyse, "vorbis_analysis")
            .bind(addBlock, "vorbis_bitrate_addblock")
            .bind(nextPacket, "vorbis_bitrate_flushpacket");
    }
};

struct VorbisEncoderLibrary {
    OggLibrary ogg;
    VorbisCore core;
    SharedLibrary library{"libvorbisenc2", {"libvorbisenc.so.2"}};
    decltype(vorbis_encode_setup_managed)* setRate = nullptr;
    decltype(vorbis_encode_ctl)* control = nullptr;
    decltype(vorbis_encode_setup_init)* setUp = nullptr;

    VorbisEncoderLibrary() {
        library.bind(setRate, "vorbis_encode_setup_managed")
            .bind(control, "vorbis_encode_ctl")
            .bind(setUp, "vorbis_encode_setup_init");
    }
    bool ready() const {
        return ogg.library.ready(kContext) && core.library.ready(kContext) && library.ready(kContext);
    }
};

const VorbisEncoderLibrary& vorbis() {
    static const VorbisEncoderLibrary& library = *new VorbisEncoderLibrary;
    return library;
}

class VorbisEncoder final : public PackingSink {
public:
    VorbisEncoder(ByteSink& out, u32 channelCount) : PackingSink(kFloat32, channelCount), output_(out) {}
    /// In the order that the library asks for.
    ~VorbisEncoder() override {
        if (isOpen_) {
            vorbis().ogg.clear(&pages_);
            vorbis().core.clearBlock(&block_);
            vorbis().core.clearState(&state_);
            vorbis().core.clearComment(&comment_);
        }
        vorbis().core.clearInfo(&info_);
    }
    VorbisEncoder(const VorbisEncoder&) = delete;
    VorbisEncoder& operator=(const VorbisEncoder&) = delete;

    bool open(const VorbisSettings& settings) {
        if (!chooseQuality(settings))
            return Fail(kContext, "libvorbisenc can't pack {} channels of {} Hz", settings.channels,
                        settings.sampleRate);
        vorbis().core.initComment(&comment_);
        for (const std::string& comment : settings.comments)
            vorbis().core.addComment(&comment_, comment.c_str());
        vorbis().core.initState(&state_, &info_);
        vorbis().core.initBlock(&state_, &block_);
        vorbis().ogg.init(&pages_, static_cast<int>(settings.serial));
        isOpen_ = true;
        ogg_packet id{}, comments{}, codebooks{};
        vorbis().core.headers(&state_, &comment_, &id, &comments, &codebooks);
        for (ogg_packet* packet : {&id, &comments, &codebooks}) vorbis().ogg.put(&pages_, packet);
        return writePages(vorbis().ogg.page) || Fail(kContext, "Writing to file failed");
    }

    bool finish() override {
        vorbis().core.wrote(&state_, 0);
        return (writePackets() && writePages(vorbis().ogg.page)) || Fail(kContext, "Writing to file failed");
    }

protected:
    bool pack(ByteSpan frames) override {
        std::span<const f32> samples = floatsOf(frames, floats_);
        while (!samples.empty()) {
            const std::size_t count = std::min(samples.size() / channels(), kStepFrames);
            f32** const planes = vorbis().core.buffer(&state_, static_cast<int>(count));
            for (u32 channel = 0; channel < channels(); ++channel) {
                for (std::size_t i = 0; i < count; ++i)
                    planes[channel][i] = samples[i * channels() + channel];
            }
            vorbis().core.wrote(&state_, static_cast<int>(count));
            if (!writePackets()) return false;
            samples = samples.subspan(count * channels());
        }
        return true;
    }

private:
    /// The possible average nearest to the wanted one, with a quality that stays the same throughout.
    bool chooseQuality(const VorbisSettings& settings) {
        std::vector<f32> rates;
        for (const u32 rate : compressedRates()) rates.push_back(static_cast<f32>(rate));
        rates.push_back(settings.kbps);
        std::ranges::sort(rates, {}, [&](f32 rate) { return std::abs(rate - settings.kbps); });
        vorbis().core.initInfo(&info_);
        for (const f32 rate : rates) {
            const long bits = std::lround(rate * 1000);
            if (vorbis().setRate(&info_, static_cast<long>(settings.channels),
                                 static_cast<long>(settings.sampleRate), -1, bits, -1) == 0 &&
                vorbis().control(&info_, OV_ECTL_RATEMANAGE2_SET, nullptr) == 0 &&
                vorbis().setUp(&info_) == 0)
                return true;
            vorbis().core.clearInfo(&info_);
            vorbis().core.initInfo(&info_);
        }
        return false;
    }

    bool writePackets() {
        while (vorbis().core.nextBlock(&state_, &block_) == 1) {
            vorbis().core.analyse(&block_, nullptr);
            vorbis().core.addBlock(&block_);
            ogg_packet packet{};
            while (vorbis().core.nextPacket(&state_, &packet) == 1) {
                vorbis().ogg.put(&pages_, &packet);
                if (!writePages(vorbis().ogg.fullPage)) return false;
            }
        }
        return true;
    }

    bool writePages(decltype(ogg_stream_flush)* next) {
        ogg_page page{};
        while (next(&pages_, &page) != 0) {
            if (!output_.write(page.header, static_cast<std::size_t>(page.header_len)) ||
                !output_.write(page.body, static_cast<std::size_t>(page.body_len)))
                return false;
        }
        return true;
    }

    PackedOutput output_;
    bool isOpen_ = false;
    vorbis_info info_{};
    vorbis_comment comment_{};
    vorbis_dsp_state state_{};
    vorbis_block block_{};
    ogg_stream_state pages_{};
    std::vector<f32> floats_;
};

} // namespace

std::unique_ptr<PackingSink> makeVorbisEncoder(ByteSink& out, const VorbisSettings& settings) {
    if (!vorbis().ready()) return nullptr;
    auto encoder = std::make_unique<VorbisEncoder>(out, settings.channels);
    if (!encoder->open(settings)) return nullptr;
    return encoder;
}

} // namespace kv
