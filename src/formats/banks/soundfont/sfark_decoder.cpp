#include "formats/banks/soundfont/sfark_decoder.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <optional>

#include "base/run_context.h"
#include "formats/banks/soundfont/sfark_audio.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sfark_Imp";
constexpr std::string_view kMagic = "sfArk";
constexpr std::size_t kMagicAt = 26;
constexpr std::size_t kHeaderBytes = 42; ///< without the name
constexpr std::size_t kLongestName = 256;
constexpr std::size_t kSearchBytes = 128 << 10;
/// The most that a zlib block unpacks to.
constexpr std::size_t kBlockBytes = 256 << 10;
/// No byte of an archive stands for more: a silent block of method 4 is the densest, 8192 bytes from 17 bits.
constexpr u64 kDensest = 4096;

constexpr u32 kHasNotes = 1, kHasLicence = 2;

struct Header {
    u32 flags, size, check, headerCheck;
    u8 method;
    u32 audioStart, audioEnd; ///< in the unpacked file
};

u32 adler(u32 start, ByteSpan bytes) {
    if (bytes.empty()) return start; // zlib takes null for the wish to begin anew
    return static_cast<u32>(
        adler32(start, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

bool hasMagic(ByteSpan bytes) {
    return bytes.size() >= kHeaderBytes && textOf(bytes.subspan(kMagicAt, kMagic.size())) == kMagic;
}

/// `bytes` hold the magic.
Header readHeader(ByteSpan bytes) {
    ByteCursor in(bytes);
    Header header{};
    header.flags = in.u32le();
    header.size = in.u32le();
    in.skip(4); // size of the archive
    header.check = in.u32le();
    header.headerCheck = in.u32le();
    in.skip(11); // versions, magic
    header.method = in.u8le();
    in.skip(2);
    header.audioStart = in.u32le();
    header.audioEnd = in.u32le();
    return header;
}

/// Header and ended name; 0 without an end.
std::size_t headerSize(ByteSpan bytes) {
    const std::string_view name = textOf(bytes.subspan(kHeaderBytes)).substr(0, kLongestName + 1);
    const std::size_t end = name.find('\0');
    return end == name.npos ? 0 : kHeaderBytes + end + 1;
}

/// The header check starts at 0, other than usual, and takes its own place for 0.
bool headerAgrees(ByteSpan bytes) {
    constexpr std::size_t kCheckAt = 16, kBehindCheck = 20;
    constexpr std::array<std::byte, 4> kNothing{};
    const std::size_t size = headerSize(bytes);
    if (size == 0) return false;
    const u32 check = adler(adler(0, bytes.first(kCheckAt)), kNothing);
    return adler(check, bytes.first(size).subspan(kBehindCheck)) == readHeader(bytes).headerCheck;
}

/// The archive from its header on; empty if there is none. It stands at the start or, in a self-extracting
/// file, somewhere behind the program, which has the letters in its text too: so the search goes backwards
/// and wants the header check to agree. Only at the start a wrong one is overlooked.
ByteSpan findArchive(ByteSpan file) {
    const auto sound = [&](std::size_t at) {
        const ByteSpan bytes = file.subspan(at);
        return hasMagic(bytes) && headerAgrees(bytes);
    };
    if (sound(0)) return file;
    for (std::size_t at = std::min(kSearchBytes, file.size()); at > 0; --at) {
        if (sound(at)) return file.subspan(at);
    }
    return hasMagic(file) ? file : ByteSpan();
}

/// Null for the methods that are decoded.
const char* methodComplaint(u8 method) {
    if (method < 3) return "sfArk v1 files are not supported";
    if (method > 8) return "Unknown sfArk compression type";
    return sfarkMethod(method) ? nullptr : "Unsupported sfArk compression";
}

bool failed() {
    return Fail(kContext, "sfArk decompression failed");
}

/// Unpacks what follows the header.
class Unpacker {
public:
    Unpacker(const Header& header, ByteSpan body, ByteSink& to)
        : header_(header), in_(body), audio_(*sfarkMethod(header.method)), to_(to) {}

    bool run() {
        if (header_.audioStart > header_.audioEnd || header_.audioEnd > header_.size) return failed();
        for (const u32 text : {kHasLicence, kHasNotes}) {
            if ((header_.flags & text) != 0 && !skipText()) return failed();
        }
        bits_ = SfarkBits(in_.bytes(in_.left()));
        // Before the audio there is a block at least, be it of nothing.
        if (!copyPacked() || !copyPackedUntil(header_.audioStart)) return false;
        if (!copyAudio() || !copyPackedUntil(header_.size)) return false;
        return check_ == header_.check || failed();
    }

private:
    /// The inflated block, until the next one; null if it is damaged.
    std::optional<ByteSpan> inflated(ByteSpan packed) {
        uLongf size = kBlockBytes;
        const int result =
            uncompress(reinterpret_cast<Bytef*>(plain_.data()), &size,
                       reinterpret_cast<const Bytef*>(packed.data()), static_cast<uLong>(packed.size()));
        if (result != Z_OK) return {};
        const ByteSpan plain = ByteSpan(plain_).first(size);
        check_ = adler(check_, plain);
        return plain;
    }

    bool skipText() {
        const u32 size = in_.u32le();
        return inflated(in_.bytes(size)).has_value();
    }

    bool write(ByteSpan bytes) {
        if (bytes.size() > header_.size - written_) return failed();
        if (CancelRequested()) return Fail(kContext, "Cancelled");
        if (!to_.write(bytes)) return Fail(kContext, "Writing to file failed");
        written_ += static_cast<u32>(bytes.size());
        ShowProgress(written_, header_.size);
        return true;
    }

    bool copyPacked() {
        u32 size = 0;
        for (unsigned i = 0; i < 4; ++i) size |= bits_.bits(8) << 8 * i;
        if (!bits_.ok() || size > bits_.bytesLeft()) return failed();
        packed_.resize(size);
        for (std::byte& byte : packed_) byte = static_cast<std::byte>(bits_.bits(8));
        const std::optional<ByteSpan> plain = inflated(packed_);
        return plain ? write(*plain) : failed();
    }

    bool copyPackedUntil(u32 end) {
        while (written_ < end) {
            if (!copyPacked()) return false;
        }
        return written_ == end || failed();
    }

    /// As before the audio there is a block at least, if anything follows.
    bool copyAudio() {
        if (written_ == header_.size) return true;
        const std::size_t blockWords = sfarkMethod(header_.method)->blockWords;
        Bytes bytes;
        do {
            const std::size_t left = header_.audioEnd - written_;
            if (left == 1 || !audio_.decode(bits_, std::min(left / 2, blockWords), check_)) return failed();
            bytes.clear();
            for (const i16 word : audio_.words()) {
                bytes.push_back(static_cast<std::byte>(word));
                bytes.push_back(static_cast<std::byte>(word >> 8));
            }
            if (!write(bytes)) return false;
        } while (written_ < header_.audioEnd);
        return true;
    }

    const Header& header_;
    ByteCursor in_;
    SfarkBits bits_{ByteSpan()};
    SfarkAudio audio_;
    ByteSink& to_;
    Bytes packed_;
    Bytes plain_ = Bytes(kBlockBytes);
    u32 check_ = 0;
    u32 written_ = 0;
};

} // namespace

bool sfark_Unpack(ByteSpan archive, ByteSink& to) {
    const ByteSpan found = findArchive(archive);
    if (found.empty()) return Fail(kContext, "Not an sfArk file");
    const Header header = readHeader(found);
    if (const char* complaint = methodComplaint(header.method)) return Fail(kContext, complaint);
    const std::size_t start = headerSize(found);
    if (start == 0 || header.size > kDensest * found.size()) return failed();
    const bool whole = Unpacker(header, found.subspan(start), to).run();
    ShowProgress(0, 0);
    return whole;
}

} // namespace kv
