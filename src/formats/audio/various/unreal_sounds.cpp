// Packages of the Unreal engine: tables of names, of imported and of exported objects. The layout is that of
// the versions before 100, as Antonio Cordero Balcazar's "UT Package File Format" describes it.
#include <algorithm>
#include <string>
#include <vector>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/audio/wav_chunks.h"
#include "model/store.h"
#include "model/wave.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr u32 kSignature = 0x9E2A83C1;
constexpr u16 kFirstSizedNames = 64; ///< from this version on names have their length ahead
constexpr std::size_t kMostNameBytes = 256;
/// The WAV file of a sound stands behind its properties, of which there are few.
constexpr std::size_t kSearchedBytes = 1024;

/// Reads on through a source. What lies past the end is zeros, and not `ok()`.
class PackageCursor {
public:
    PackageCursor(ByteSource& source, u64 at) : source_(source), at_(at) {}

    u8 byte() {
        std::byte b{};
        if (source_.readAt(at_, {&b, 1}) != 1) ok_ = false;
        ++at_;
        return std::to_integer<u8>(b);
    }
    u32 word() {
        u32 value = 0;
        for (u32 shift = 0; shift < 32; shift += 8) value |= u32{byte()} << shift;
        return value;
    }
    /// A compact index: sign, "more" and 6 bits, then "more" and 7 bits up to four times.
    i32 index() {
        const u8 first = byte();
        u32 value = first & 0x3F;
        u32 shift = 6;
        for (bool more = (first & 0x40) != 0; more && shift < 32; shift += 7) {
            const u8 next = byte();
            value |= static_cast<u32>(next & 0x7F) << shift;
            more = (next & 0x80) != 0;
        }
        value &= 0x7FFFFFFF;
        return (first & 0x80) != 0 ? -static_cast<i32>(value) : static_cast<i32>(value);
    }
    std::string name(u16 version) {
        const i32 length = version >= kFirstSizedNames ? index() : static_cast<i32>(kMostNameBytes);
        std::string text;
        for (i32 i = 0; i < length && ok_; ++i) {
            const char c = static_cast<char>(byte());
            if (c == '\0') break;
            if (text.size() < kMostNameBytes) text += c;
        }
        return text;
    }
    bool ok() const { return ok_; }

private:
    ByteSource& source_;
    u64 at_;
    bool ok_ = true;
};

struct Table {
    u32 count = 0, offset = 0;
};

class Package {
public:
    explicit Package(ByteSource& source) : source_(source) {}

    bool read() {
        PackageCursor in(source_, 0);
        if (in.word() != kSignature) return Fail("uax_Imp", "Not an Unreal package");
        version_ = static_cast<u16>(in.word());
        (void)in.word(); // flags
        for (Table* table : {&names_, &exports_, &imports_}) *table = {in.word(), in.word()};
        // A name or an object takes some bytes at least.
        constexpr u64 kLeastBytes = 5;
        for (const Table& table : {names_, exports_, imports_}) {
            if (!in.ok() || table.count > source_.size() / kLeastBytes)
                return Fail("uax_Imp", "The header is damaged");
        }
        return readNames() && readImports();
    }

    struct Sound {
        std::string name;
        u64 offset = 0, bytes = 0;
    };
    /// The exported objects of the class "Sound".
    std::vector<Sound> sounds() {
        std::vector<Sound> found;
        PackageCursor in(source_, exports_.offset);
        for (u32 i = 0; i < exports_.count && in.ok(); ++i) {
            const i32 type = in.index();
            (void)in.index(); // parent class
            (void)in.word();  // group
            const i32 name = in.index();
            (void)in.word(); // flags
            const i32 size = in.index();
            const i32 offset = size > 0 ? in.index() : 0;
            if (in.ok() && isSound(type) && size > 0 && offset > 0 &&
                static_cast<u64>(offset) < source_.size())
                found.push_back({nameAt(name), static_cast<u64>(offset), static_cast<u64>(size)});
        }
        return found;
    }

private:
    bool readNames() {
        PackageCursor in(source_, names_.offset);
        for (u32 i = 0; i < names_.count; ++i) {
            texts_.push_back(in.name(version_));
            (void)in.word(); // flags
            if (!in.ok()) return Fail("uax_Imp", "The table of names is damaged");
        }
        return true;
    }
    bool readImports() {
        PackageCursor in(source_, imports_.offset);
        for (u32 i = 0; i < imports_.count; ++i) {
            (void)in.index(); // package of the class
            (void)in.index(); // class
            (void)in.word();  // package
            importNames_.push_back(in.index());
            if (!in.ok()) return Fail("uax_Imp", "The table of imports is damaged");
        }
        return true;
    }
    std::string nameAt(i32 index) const {
        const auto at = static_cast<std::size_t>(index);
        return index >= 0 && at < texts_.size() ? texts_[at] : std::string();
    }
    /// Classes of other packages have negative numbers.
    bool isSound(i32 type) const {
        const auto at = static_cast<std::size_t>(-(i64{type} + 1));
        return type < 0 && at < importNames_.size() && nameAt(importNames_[at]) == "Sound";
    }

    ByteSource& source_;
    u16 version_ = 0;
    Table names_, exports_, imports_;
    std::vector<std::string> texts_;
    std::vector<i32> importNames_;
};

} // namespace

bool uax_Imp(Collection&, FileContext& file, u32) {
    Package package(*file.source);
    if (!package.read()) return false;
    bool found = false;
    for (const Package::Sound& sound : package.sounds()) {
        if (CancelRequested()) return Fail("uax_Imp", "Cancelled");
        Bytes start(static_cast<std::size_t>(std::min<u64>(sound.bytes, kSearchedBytes)));
        start.resize(file.source->readAt(sound.offset, start));
        const std::size_t riff = textOf(start).find("RIFF");
        const bool isWave = riff != std::string_view::npos &&
                            wav_ImpEmbedded(file, kNextFreeNumber, sound.offset + riff,
                                            sound.offset + sound.bytes, AnsiToUtf8(sound.name));
        if (!isWave) runContext().diagnostics.warn(sound.offset, sound.name, "a sound that is no WAV file");
        found |= isWave;
    }
    return found || Fail("uax_Imp", "No sounds in the package");
}

} // namespace kv
