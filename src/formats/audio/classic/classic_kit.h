// What the classic formats share: loops in whole frames, texts in fields of fixed length, blocks of samples
// put together from others.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/file_context.h"
#include "formats/codecs/coded_stream.h"
#include "model/sample_blocks.h"

namespace kv {

class Wave;

/// The first bytes of a file, fewer where it is shorter.
Bytes headOf(FileContext& file, std::size_t count);

/// Gives a wave a loop of frames; one that is empty or doesn't lie in the wave is left out.
void setLoop(Wave& wave, u64 start, u64 end, u16 flags);
/// Gives a wave a root key; one above 127 is left out.
void setRootKey(Wave& wave, u32 key);
/// Puts a text behind others of the wave, as a line of its own.
void addComment(Wave& wave, std::string_view text);

/// Windows-1252 text of a field, without what fills it up, as UTF-8.
std::string fieldText(ByteSpan field);
/// A text as Windows-1252 in exactly `size` bytes, filled up or cut.
void putField(ByteWriter& out, std::string_view text, std::size_t size, u8 fill = 0);

/// A wave's loop in whole frames of its length.
struct FrameLoop {
    u32 start = 0, end = 0; ///< end is exclusive, and beyond the start
    bool alternates = false;
};
/// None also for a loop in a direction that is not forward, or back and forth if `alternating` allows that.
std::optional<FrameLoop> frameLoop(const Wave& wave, bool alternating = false);

/// Sets the error pair and answers false for a rate above what the format's field holds.
bool rateFits(std::string_view context, const Wave& wave, u32 mostHz);
/// Sets the error pair and answers false when a file of so many bytes is too long for sizes of 32 bits.
bool sizeFits(std::string_view context, u64 bytes);

/// The next frames of other blocks, which must live on.
std::unique_ptr<SampleBlocks> nextFrames(SampleBlocks& whole, u32 frames);
/// One channel of two.
std::unique_ptr<SampleBlocks> oneChannel(std::unique_ptr<SampleBlocks> both, u32 channel);
/// Two channels of one each, as 16-bit samples.
std::unique_ptr<SampleBlocks> twoChannels(std::unique_ptr<SampleBlocks> left,
                                          std::unique_ptr<SampleBlocks> right);

/// Some frames of 16-bit samples; without blocks, silence.
struct SamplePart {
    std::unique_ptr<SampleBlocks> blocks;
    u32 frames = 0;
};
/// Parts one after the other, and silence up to `frames`.
std::unique_ptr<SampleBlocks> joinedParts(std::vector<SamplePart> parts, u32 channels, u32 frames);

/// Samples of a data format word for 16 bits as a coded stream.
CodedForm plainForm(u32 word, u32 channels);

} // namespace kv
