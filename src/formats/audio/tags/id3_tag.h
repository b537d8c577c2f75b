// Tags around packed audio: ID3v1, ID3v2 (2.2, 2.3, 2.4: id3.org's informal standards) and APE tags.
#pragma once

#include "formats/audio/tags/tag_texts.h"
#include "formats/codecs/packed_stream.h"

namespace kv {

/// The part of a source between its tags. Large tags cost nothing but their headers.
PackedPlace betweenTags(ByteSource& source);
/// The texts of all tags, those ahead of the audio first: text frames of up to 64 KB each.
void takeTags(ByteSource& source, TextTaker& texts);

/// The size of an ID3v2 tag by its first 10 bytes, all told; 0 when it is none.
u64 id3v2Bytes(ByteSpan start);

/// An ID3v2.3 tag of a wave's texts; empty without any.
Bytes id3v2Tag(const Wave& wave);
/// An APE tag (version 2) of a wave's texts, for the end of a file; empty without any.
Bytes apeTag(const Wave& wave);

} // namespace kv
