// HCOM: 8-bit samples of the Macintosh, or their differences, in a Huffman code. The tree stands in the
// header as pairs; a pair whose first number is negative is a leaf. Bits come in 32-bit words, highest first.
#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/kernels.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "hcom_Imp";
constexpr std::size_t kMacBinaryBytes = 128;
constexpr u32 kMostNodes = 1024; // a full tree of bytes has 511
constexpr u32 kBaseRate = 22050;

struct Node {
    i16 zero = 0, one = 0; ///< where a bit leads; in a leaf -1 and the value
};

struct HcomHeader {
    u32 frames = 0;
    bool differences = false;
    u32 divisor = 1; ///< of the base rate
    std::vector<Node> tree;
    u64 firstSample = 0; ///< place of a byte; the words follow it
};

u64 hcomStart(FileContext& file) {
    const Bytes head = headOf(file, 4);
    return textOf(head) == "HCOM" ? 0 : kMacBinaryBytes;
}

bool readHeader(ByteSource& source, u64 start, HcomHeader& header) {
    Bytes bytes(22 + kMostNodes * 4);
    bytes.resize(source.readAt(start, bytes));
    ByteCursor in(bytes, start);
    const bool right = textOf(in.bytes(4)) == "HCOM";
    header.frames = in.u32be();
    in.skip(4); // checksum
    const u32 type = in.u32be();
    header.divisor = in.u32be();
    const u32 nodes = in.u16be();
    if (!right) return Fail(kContext, "Not an HCOM file");
    if (type > 1) return Fail(kContext, "Unsupported compression type");
    if (header.divisor < 1 || header.divisor > 4) return Fail(kContext, "No sample rate");
    if (nodes == 0 || nodes > kMostNodes) return Fail(kContext, "Invalid code table");
    header.differences = type == 1;
    for (u32 i = 0; i < nodes; ++i) {
        Node node;
        node.zero = in.s16be();
        node.one = in.s16be();
        const auto leads = [nodes](i16 to) { return to >= 0 && static_cast<u32>(to) < nodes; };
        if (node.zero >= 0 && (!leads(node.zero) || !leads(node.one)))
            return Fail(kContext, "Invalid code table");
        header.tree.push_back(node);
    }
    in.skip(1);
    header.firstSample = in.offset();
    return in.ok() || Fail(kContext, "Invalid code table");
}

class HcomBlocks final : public SampleBlocks {
public:
    HcomBlocks(std::shared_ptr<ByteSource> source, HcomHeader header, u32 frames)
        : SampleBlocks(1, frames, false),
          source_(std::move(source)),
          header_(std::move(header)),
          at_(header_.firstSample + 1) {
        Bytes first(1);
        if (source_->readAt(header_.firstSample, first) == 1) value_ = std::to_integer<u8>(first[0]);
    }

protected:
    bool readNative(std::span<i16> to) override {
        bytes_.resize(to.size());
        for (std::byte& sample : bytes_) {
            if (!begun_)
                begun_ = true;
            else if (!ended_)
                decodeOne();
            sample = ended_ ? std::byte{0x80} : std::byte{value_};
        }
        bytesToInt16(bytes_, true, to);
        return true;
    }

private:
    void decodeOne() {
        std::size_t node = 0;
        // The way to a leaf is shorter than the tree is large, unless the tree runs in circles.
        for (std::size_t steps = 0; steps <= header_.tree.size(); ++steps) {
            if (header_.tree[node].zero < 0 && steps > 0) {
                const auto leaf = static_cast<u8>(header_.tree[node].one);
                value_ = static_cast<u8>(header_.differences ? value_ + leaf : leaf);
                return;
            }
            if (bitsLeft_ == 0 && !nextWord()) break;
            const bool one = (word_ >> --bitsLeft_ & 1) != 0;
            const i16 next = one ? header_.tree[node].one : header_.tree[node].zero;
            if (next < 0 || static_cast<std::size_t>(next) >= header_.tree.size()) break;
            node = static_cast<std::size_t>(next);
        }
        ended_ = true;
    }

    bool nextWord() {
        if (ready_.left() < 4) {
            buffer_.resize(65536);
            buffer_.resize(source_->readAt(at_, buffer_) / 4 * 4);
            at_ += buffer_.size();
            ready_ = ByteCursor(buffer_);
            if (buffer_.empty()) return false;
        }
        word_ = ready_.u32be();
        bitsLeft_ = 32;
        return true;
    }

    std::shared_ptr<ByteSource> source_;
    HcomHeader header_;
    u64 at_; ///< of the next word
    u8 value_ = 0x80;
    bool begun_ = false, ended_ = false;
    u32 word_ = 0, bitsLeft_ = 0;
    Bytes buffer_, bytes_;
    ByteCursor ready_{ByteSpan()};
};

std::unique_ptr<SampleBlocks> openHcom(const Wave& wave, FileContext& file) {
    HcomHeader header;
    if (!file.source || !readHeader(*file.source, file.position, header)) return nullptr;
    return std::make_unique<HcomBlocks>(file.source, std::move(header), wave.frames);
}
const WaveReader hcomReader{"hcom_ImpWave", loadThroughBlocks, openHcom};

} // namespace

bool hcom_Imp(Collection&, FileContext& file, u32) {
    HcomHeader header;
    const u64 start = hcomStart(file);
    if (!readHeader(*file.source, start, header)) return false;
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &hcomReader);
    wave->dataFormat = kCompressed;
    wave->preferredFormat = kPcm8;
    wave->bits = 8;
    wave->sampleRate = (kBaseRate + header.divisor / 2) / header.divisor;
    wave->sourceOffset = start;
    // A sample takes a bit or more, but for the first.
    const u64 rest = file.size() - std::min(file.size(), header.firstSample);
    const u64 most = rest == 0 ? 0 : 1 + (rest - 1) / 4 * 32;
    wave->frames = static_cast<u32>(std::min<u64>(header.frames, most));
    return true;
}

} // namespace kv
