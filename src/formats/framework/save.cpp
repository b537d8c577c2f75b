#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "formats/framework/drivers.h"
#include "formats/framework/export_item.h"
#include "formats/framework/format_table.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

std::string sizeText(u64 bytes) {
    if (bytes < 1024) return fmt::format("({} Bytes)", bytes);
    if (bytes < 0x100000) return fmt::format("({:.1f} KB)", static_cast<f64>(bytes) / 1024);
    return fmt::format("({:.1f} MB)", static_cast<f64>(bytes) / 0x100000);
}

/// The store's items of one class.
std::vector<ItemId> itemsOf(u32 classBit) {
    std::vector<ItemId> ids;
    for (Item* item = store().FirstItem(classBit); item && classOf(item->id()) == classBit;
         item = store().NextItem(*item)) {
        ids.push_back(item->id());
    }
    return ids;
}

/// A stem in a folder, shortened behind a whole character to what file systems take.
fs::path join(const fs::path& folder, std::string_view stem, std::string_view extension) {
    constexpr std::size_t kLongestStem = 200; // bytes
    std::size_t characters = stem.size();
    while (stem.size() > kLongestStem) stem = cutToCharacters(stem, --characters);
    return folder / fmt::format("{}.{}", stem, extension);
}

} // namespace

std::string fileNameFor(std::string_view itemName) {
    std::string name;
    for (const char c : itemName) {
        const bool refused =
            std::string_view("*/:<>?\\\x7F|").find(c) != std::string_view::npos || static_cast<u8>(c) < 32;
        if (!refused)
            name += c == '"' ? '\'' : c;
        else if (!name.empty())
            name += '_';
    }
    const std::size_t point = name.rfind('.');
    if (point != std::string::npos && point > 0 &&
        workspace().formats->knowsExtension(name.substr(point + 1))) {
        name.resize(point);
    }
    return name.empty() ? "noname" : name;
}

bool SaveItemAs(const fs::path& path, Item* item, int row, u32 wantedFormat, f32 bitRate,
                bool updateCollection) {
    PostStatus("Wait - Saving...");
    if (!Export(row, path, item, wantedFormat, bitRate, false)) {
        PostStatus("Failed: Save failed.", StatusKind::Failure);
        return false;
    }
    if (updateCollection && classOf(item->id()) == kCollectionClass) {
        auto& collection = static_cast<Collection&>(*item);
        collection.fileName = path;
        collection.sourceFormat = row;
    }
    std::error_code ignored;
    const u64 size = fs::file_size(path, ignored);
    PostStatus(fmt::format("Saved: {} {}", path.string(), sizeText(ignored ? 0 : size)));
    return true;
}

bool SaveCollection(const AskSaveTarget& ask) {
    Collection* collection = store().First<Collection>();
    if (!collection) return Fail("Save collection", "No collection found");
    SaveTarget target{collection->fileName, collection->sourceFormat};
    if (!workspace().formats->RowCanExport(target.row, kCollectionClass)) {
        const std::optional<SaveTarget> answer = ask(collection);
        if (!answer) return true;
        target = *answer;
    }
    if (!collection->LoadData()) return false;
    return SaveItemAs(target.path, collection, target.row, target.wantedFormat, target.bitRate, true);
}

namespace {

/// One run over all items of a kind.
class SaveAllRun {
public:
    SaveAllRun(const SaveAllJob& job, const FormatRow& row, SaveAllResult& result)
        : job_(job), row_(row), result_(result) {}

    void run(const std::vector<ItemId>& ids);

private:
    void save(Item& item, int index);
    std::optional<SaveTarget> target(const Item& item, int index);
    std::string stem(const Item& item, int index) const;
    ExistingFile askExisting(const fs::path& path, const Item& item) const;
    bool settleExisting(SaveTarget& target, const Item& item);

    const SaveAllJob& job_;
    const FormatRow& row_;
    SaveAllResult& result_;
};

std::string SaveAllRun::stem(const Item& item, int index) const {
    const std::string base = job_.base.path.stem().string();
    std::string name = fileNameFor(item.name());
    switch (job_.mode) {
        case NameMode::Number:
            return fmt::format("{} - {}{}", base, index / 10, index % 10);
        case NameMode::BaseName:
            return fmt::format("{} - {}", base, name);
        case NameMode::Source: {
            const Collection* collection = store().First<Collection>();
            fs::path source = collection ? collection->fileName : fs::path();
            if (classOf(item.id()) == kWaveClass) source = static_cast<const Wave&>(item).sourceFile;
            return fileNameFor(source.stem().string());
        }
        case NameMode::Bank: {
            if (classOf(item.id()) != kInstrumentClass) return name;
            const auto& instrument = static_cast<const Instrument&>(item);
            return fmt::format("{}{}-{}-{} - {}", instrument.drumKit() ? "d" : "", instrument.bankMsb(),
                               instrument.bankLsb(), instrument.program(), name);
        }
        default:
            return name;
    }
}

std::optional<SaveTarget> SaveAllRun::target(const Item& item, int index) {
    if (job_.mode == NameMode::Prompt) return job_.ask ? job_.ask(&item) : std::nullopt;
    SaveTarget target = job_.base;
    const std::string first = stem(item, index);
    const auto place = [&](const std::string& name) {
        fs::path folder = job_.base.path.parent_path();
        if (job_.subDirs) folder /= name;
        return join(folder, name, row_.extension);
    };
    target.path = place(first);
    // Two items of one name must not overwrite each other.
    for (int n = 2; result_.written.contains(target.path); ++n)
        target.path = place(fmt::format("{} {}", first, n));
    return target;
}

ExistingFile SaveAllRun::askExisting(const fs::path& path, const Item& item) const {
    if (job_.onExisting) return job_.onExisting(path, item);
    static constexpr std::string_view kButtons[] = {"Overwrite", "Skip this", "Rename it", "Cancel all"};
    const std::string question = fmt::format(
        "The auto-named file \"{}\" already exists!\nWhat do you want to do with it?", path.string());
    return static_cast<ExistingFile>(Ask(item.name(), question, kButtons, 1));
}

/// False when the item is not to be saved.
bool SaveAllRun::settleExisting(SaveTarget& target, const Item& item) {
    std::error_code ignored;
    while (fs::exists(target.path, ignored)) {
        switch (askExisting(target.path, item)) {
            case ExistingFile::Overwrite:
                return true;
            case ExistingFile::Skip:
                return false;
            case ExistingFile::Rename: {
                const std::optional<SaveTarget> renamed = job_.ask ? job_.ask(&item) : std::nullopt;
                if (!renamed) return false;
                target = *renamed;
                break;
            }
            case ExistingFile::Cancel:
                result_.cancelled = true;
                return false;
        }
    }
    return true;
}

void SaveAllRun::save(Item& item, int index) {
    std::optional<SaveTarget> to = target(item, index);
    if (!to || !settleExisting(*to, item)) return;
    PostStatus(to->path.string());
    std::error_code ignored;
    if (job_.subDirs) fs::create_directories(to->path.parent_path(), ignored);
    const FormatRow* row = exportRow(to->row, &item);
    if (row && exportToFile(*row, to->path, &item, to->wantedFormat, to->bitRate, false)) {
        result_.written.insert(to->path);
        ++result_.saved;
        if (job_.onSaved) job_.onSaved(to->path, item);
        return;
    }
    ++result_.failed;
    PostStatus("Failed: Save failed.", StatusKind::Failure);
    ShowLastError();
}

void SaveAllRun::run(const std::vector<ItemId>& ids) {
    for (const ItemId id : ids) {
        Item* item = FindItem(id);
        if (!item) continue;
        ShowProgress(static_cast<u64>(result_.walked), ids.size());
        const int index = result_.walked++;
        if (CancelRequested()) result_.cancelled = true;
        if (!result_.cancelled) {
            const bool wasResident = classOf(id) == kWaveClass && static_cast<Wave&>(*item).resident();
            save(*item, index);
            // One item's samples at a time are enough.
            if (classOf(id) == kWaveClass && !wasResident && !item->locked) {
                FreeData(static_cast<Wave&>(*item), true);
            }
        }
        if (result_.cancelled) {
            PostStatus(fmt::format("Failed: Save all cancelled after {} files.", index), StatusKind::Failure);
            return;
        }
    }
    PostStatus(fmt::format("Done: Saved {} files.", result_.walked));
}

} // namespace

WrittenSamplesScope::WrittenSamplesScope() {
    workspace().writtenSamples.emplace();
}
WrittenSamplesScope::~WrittenSamplesScope() {
    workspace().writtenSamples.reset();
}

bool SaveAll(const SaveAllJob& job, SaveAllResult& result) {
    constexpr std::string_view kContext = "Save all in multiple files";
    const FormatRow* row = workspace().formats->row(job.base.row);
    if (!row || !row->exportFn) return Fail(kContext, "Can't 'Save all...' with this file format!");
    FixUpAll(0);
    const WrittenSamplesScope remember;
    SaveAllRun run(job, *row, result);
    if ((row->typeFlags & kCollectionClass) != 0) {
        run.run(itemsOf(kCollectionClass));
        PostStatus("Saved 1 collection!");
        return true;
    }
    struct Kind {
        u32 classBit;
        std::string_view none;
    };
    constexpr Kind kKinds[] = {{kInstrumentClass, "No instruments to save!"},
                               {kWaveClass, "No waveforms to save!"}};
    for (const Kind& kind : kKinds) {
        if ((row->typeFlags & kind.classBit) == 0) continue;
        const std::vector<ItemId> ids = itemsOf(kind.classBit);
        if (ids.empty()) return Fail(kContext, kind.none);
        run.run(ids);
        return true;
    }
    return Fail(kContext, "Can't 'Save all...' with this file format!");
}

bool ReadTextLine(FileContext& file, std::string& line, std::size_t limit) {
    line.clear();
    std::byte byte{};
    while (line.size() < limit && file.read({&byte, 1}) == 1) {
        const char c = static_cast<char>(byte);
        if (c == '\n') break;
        if (c != '\r') line += c;
    }
    return !line.empty();
}

bool WriteTextLine(FileContext& file, std::string_view text) {
    return file.write(bytesOf(fmt::format("{}\r\n", text)));
}

} // namespace kv
