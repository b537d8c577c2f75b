#include "base/run_context.h"
#include "formats/banks/soundfont/sf_reader.h"
#include "formats/banks/soundfont/sfark_decoder.h"
#include "model/collection.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sfark_Imp";

/// Memory that an archive can fill no further than sampled music packs: silence alone would fill it all.
class BoundedSink final : public ByteSink {
public:
    explicit BoundedSink(u64 archiveSize) : most_(archiveSize * 32 + (u64{64} << 20)) {}
    bool write(ByteSpan bytes) override {
        return memory_.position() + bytes.size() <= most_ && memory_.write(bytes);
    }
    bool patch(u64 offset, ByteSpan bytes) override { return memory_.patch(offset, bytes); }
    u64 position() const override { return memory_.position(); }
    Bytes take() { return memory_.take(); }

private:
    MemorySink memory_;
    u64 most_;
};

/// Waves can't be read again from an archive, so all of them come into memory now.
bool loadWaves(const FileContext& bank, const std::filesystem::path& archive) {
    for (Wave& wave : store().all<Wave>()) {
        FileContext file = bank;
        file.position = wave.sourceOffset;
        if (!wave.reader->load(wave, file)) return false;
        wave.reloadable = false;
        wave.sourceFile = archive;
    }
    return true;
}

} // namespace

bool sfark_Imp(Collection& collection, FileContext& file, u32) {
    constexpr u64 kLargest = u64{1} << 31; // archives hold 32-bit sizes
    if (!file.source || file.size() > kLargest) return Fail(kContext, "Reading from file failed");
    BoundedSink sink(file.size());
    {
        Bytes archive(static_cast<std::size_t>(file.size()));
        if (file.source->readAt(0, archive) != archive.size())
            return Fail(kContext, "Reading from file failed");
        PostStatus("Decompressing sfArk");
        if (!sfark_Unpack(archive, sink)) return false;
    }
    PostStatus("Reading SF2");
    FileContext bank;
    bank.path = file.path;
    bank.source = std::make_shared<MemorySource>(sink.take());
    return sf2_Imp(collection, bank, 0) && loadWaves(bank, file.path);
}

} // namespace kv
