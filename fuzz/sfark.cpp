// Any bytes as an sfArk archive. The sink takes 4 MB at most: a small archive may stand for much.
#include "formats/banks/soundfont/sfark_decoder.h"
#include "require.h"

namespace {

class LimitedSink final : public kv::ByteSink {
public:
    bool write(kv::ByteSpan bytes) override {
        position_ += bytes.size();
        return position_ <= 4U << 20;
    }
    bool patch(kv::u64, kv::ByteSpan) override { return false; }
    kv::u64 position() const override { return position_; }

private:
    kv::u64 position_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LimitedSink sink;
    const bool whole = kv::sfark_Unpack(std::as_bytes(std::span(data, size)), sink);
    kv::fuzz::require(!whole || sink.position() <= 4096 * size, "an archive has no more than it can hold");
    return 0;
}
