// What the program and its loadable module for media containers say to each other. Only plain types cross
// the border, nothing is thrown over it, and each side frees what it made.
#pragma once

#include <cstdint>

namespace kv {

/// Grows with every change of what stands below. A module of another number isn't used.
inline constexpr std::int32_t kMediaModuleVersion = 1;
inline constexpr const char* kMediaModuleEntry = "kelvaneMediaModule";

/// The bytes of a file, as the program hands them out.
struct MediaInput {
    void* client;
    std::int64_t size;
    /// Reads up to `count` bytes from `offset`; returns how many there were.
    std::int32_t (*read)(void* client, std::int64_t offset, std::uint8_t* to, std::int32_t count);
};

/// A file under way.
struct MediaOutput {
    void* client;
    /// Puts `count` bytes at `offset`, over what stands there or behind the end; false (0) on an error.
    std::int32_t (*write)(void* client, std::int64_t offset, const std::uint8_t* from, std::int32_t count);
};

/// How samples cross the border, always interleaved.
enum MediaForm : std::int32_t {
    kMediaInt16 = 0,
    kMediaFloat = 1, ///< full scale -1..1
};

/// Texts of a reader live as long as it does. None is null.
struct MediaTrack {
    const char* codec;     ///< short name, such as "aac"
    const char* title;     ///< may be empty
    std::int32_t rate;     ///< Hz
    std::int32_t channels; ///< 1 or 2: those that are decoded
    std::int32_t channelsInFile;
    std::int32_t bits;     ///< per sample before coding; 0: the coding has none of its own
    std::int32_t form;     ///< MediaForm that it decodes to
    std::int32_t lossless; ///< 1: decoding gives what was encoded
    double kbps;           ///< kbit/s on average; 0 until `scan`
    std::int64_t frames;   ///< that decoding gives; 0 until `scan`
};

struct MediaText {
    const char* key; ///< "title", "artist", "album", "comment", "copyright", "encoded_by"
    const char* value;
};

struct MediaChapter {
    double start; ///< seconds
    double end;   ///< seconds
    const char* title;
};

/// A file to be written: one track.
struct MediaTarget {
    const char* container;      ///< libavformat's name of a muxer
    const char* codec;          ///< libavcodec's name of an encoder
    const char* muxerOptions;   ///< "name=value:name=value", may be empty
    const char* encoderOptions; ///< likewise
    std::int32_t rate;          ///< Hz
    std::int32_t channels;      ///< 1 or 2
    std::int32_t bits;          ///< of a lossless encoder: 16, pushed as kMediaInt16, or 24; else 0
    double kbps;                ///< kbit/s of a lossy encoder
    std::int32_t edgeFrames;    ///< frames of silence ahead of the samples and behind them
    const MediaText* texts;
    std::int32_t textCount;
    const MediaChapter* chapters;
    std::int32_t chapterCount;
};

struct MediaReader;
struct MediaWriter;

/// The functions of the module. Where there is a `message`, it gets a text for the user on failure.
struct MediaModule {
    std::int32_t version;

    // Reading. `container` is libavformat's name of a demuxer; the input must outlive the reader.
    MediaReader* (*open)(const MediaInput* input, const char* container, char* message, std::int32_t room);
    void (*close)(MediaReader* reader);
    std::int32_t (*trackCount)(const MediaReader* reader);
    std::int32_t (*track)(const MediaReader* reader, std::int32_t index, MediaTrack* to);
    std::int32_t (*textCount)(const MediaReader* reader);
    std::int32_t (*text)(const MediaReader* reader, std::int32_t index, MediaText* to);
    std::int32_t (*chapterCount)(const MediaReader* reader);
    std::int32_t (*chapter)(const MediaReader* reader, std::int32_t index, MediaChapter* to);
    /// Goes through the whole file for the exact lengths of the tracks; nothing can be decoded afterwards.
    std::int32_t (*scan)(MediaReader* reader);
    /// Gets a track ready for decoding, once for a reader.
    std::int32_t (*start)(MediaReader* reader, std::int32_t track);
    /// Decodes the next frames of the started track; fewer than asked at the end or on an error.
    std::int64_t (*decode)(MediaReader* reader, void* to, std::int64_t frames);

    // Writing. The output must outlive the writer.
    MediaWriter* (*create)(const MediaOutput* output, const MediaTarget* target, char* message,
                           std::int32_t room);
    std::int32_t (*push)(MediaWriter* writer, const void* samples, std::int64_t frames);
    std::int32_t (*finish)(MediaWriter* writer);
    void (*discard)(MediaWriter* writer); ///< also after `finish`
};

using MediaModuleEntry = const MediaModule*();

} // namespace kv
