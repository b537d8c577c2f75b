// The road of a file in and out: what all formats share, so that a reader or writer does only what its
// format is about.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <set>

#include "base/byte_sink.h"
#include "formats/framework/format_row.h"

namespace kv {

class Wave;

inline constexpr u32 kAnyFormat = 0xFFFFFFF; ///< as a wanted format: what suits the item best
inline constexpr int kDetectRow = -1;

/// What `Import` says of a file that no row fits.
inline constexpr std::string_view kNotDetected = "Not detected as any supported file type";

/// Replaces the store's contents by those of a file. The row is found by detection unless one is given.
/// A failure leaves an "Empty collection" and the reason in the error pair, unless the store was not
/// touched: the file can't be opened, isn't recognised, or items are locked.
bool Import(const std::filesystem::path& path, bool allowUnrecognized, int row = kDetectRow);

/// The data format word that an item is written with.
struct FormatChoice {
    u32 word = 0;         ///< channel bits and at most one code
    bool perWave = false; ///< no code: each wave in its own preferred format
};
/// Chooses among what the row can write and the user wants. `midiToWave`: a song is to be rendered.
FormatChoice chooseFormat(const FormatRow& row, const Item& item, u32 wantedFormat, bool midiToWave);

/// Writes one item to a file, which appears only when it is complete. `wantedFormat` is a mask of data
/// format codes and channel bits; `bitRate` is in kbit/s.
bool Export(int row, const std::filesystem::path& path, Item* item, u32 wantedFormat, f32 bitRate,
            bool allowEmpty);
/// The same into any sink; `path` only names it.
bool ExportTo(ByteSink& sink, int row, const std::filesystem::path& path, Item* item, u32 wantedFormat,
              f32 bitRate, bool allowEmpty);

/// Saves an item, over an existing file too: that stays whole until the new one is complete. With
/// `updateCollection`, a collection takes the path as its own.
bool SaveItemAs(const std::filesystem::path& path, Item* item, int row, u32 wantedFormat, f32 bitRate,
                bool updateCollection);

/// Where and how to save, as a save dialog answers.
struct SaveTarget {
    std::filesystem::path path;
    int row = -1;
    u32 wantedFormat = kAnyFormat;
    f32 bitRate = 0;
};
/// Shows a save dialog for an item (null: for a base name); nothing when it was cancelled.
using AskSaveTarget = std::function<std::optional<SaveTarget>(const Item* item)>;

/// Saves the collection where it came from, asking when its format can't be written. True when cancelled.
bool SaveCollection(const AskSaveTarget& ask);

/// How save-all builds names; values as settings store them.
enum class NameMode : int {
    Number = 210,   ///< "foo - 00.bar"
    BaseName = 211, ///< "foo - name.bar"
    Name = 212,     ///< "name.bar"
    Source = 213,   ///< "source file's name.bar"
    Prompt = 214,   ///< asks for each
    Bank = 216,     ///< "0-0-12 - name.bar"
};
enum class ExistingFile : u8 { Overwrite, Skip, Rename, Cancel };

struct SaveAllJob {
    SaveTarget base; ///< folder, base name ("foo.bar"), row and format
    NameMode mode = NameMode::Name;
    bool subDirs = false; ///< each file in a folder of its own name
    /// Asked for a file that exists; without one the user interface is.
    std::function<ExistingFile(const std::filesystem::path& path, const Item& item)> onExisting;
    std::function<void(const std::filesystem::path& path, const Item& item)> onSaved;
    AskSaveTarget ask; ///< for names; without one Prompt and Rename skip the item
};
struct SaveAllResult {
    int walked = 0; ///< items gone over, skipped ones too
    int saved = 0, failed = 0;
    bool cancelled = false;
    std::set<std::filesystem::path> written; ///< never written to again: items of one name get numbers
};
/// Saves all items of the kind that the row holds. False when there was nothing to begin with; failures of
/// single items are shown and counted.
bool SaveAll(const SaveAllJob& job, SaveAllResult& result);

/// Takes the samples of the first wave in a file over into a wave, with its loop if it has one. The store
/// holds what it held before. False with the error pair set on failure; the wave is as it was then.
bool ReplaceWaveFromFile(Wave& wave, const std::filesystem::path& path);

/// A name as part of a file name: characters that file systems refuse are replaced, an extension that a
/// format has is removed, "noname" when nothing is left.
std::string fileNameFor(std::string_view itemName);

/// Reads a line of text at `file.position`: up to a line feed or `limit` characters, without carriage
/// returns. False when there was no character.
bool ReadTextLine(FileContext& file, std::string& line, std::size_t limit);
/// Writes a line with "\r\n" behind it.
bool WriteTextLine(FileContext& file, std::string_view text);

} // namespace kv
