// What holds for every format that is both read and written: its own files are known again, come back as they
// were, are written alike from then on, and do no harm when they are damaged.
#include <map>
#include <random>

#include "formats/audio/packed/amr.h"
#include "formats/format_test.h"
#include "formats/framework/detection.h"
#include "formats/framework/format_table.h"
#include "formats/media/media_import.h"
#include "formats/media/media_library.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/store.h"

namespace kv {
namespace {

using test::FormatTest;

class Conformance : public FormatTest {
protected:
    /// A collection of two instruments over three waves, looped and tuned, and a song of two tracks.
    void makeCollection() {
        store().DeleteAllItems();
        store().Create<Collection>(folder / "made.wav")->engineer = "somebody";
        std::vector<u32> waves;
        for (const char* name : {"one", "two", "three"}) {
            Wave* wave = store().Create<Wave>(kNextFreeNumber, nullptr, name);
            wave->frames = 300;
            wave->sampleRate = 44100;
            wave->sourceFile = kMemoryOnly;
            wave->reloadable = false;
            ASSERT_TRUE(wave->samples16.allocate(300));
            for (u32 i = 0; i < 300; ++i) wave->samples16.data()[i] = static_cast<i16>(i * 97);
            wave->params.rootKey = 65;
            wave->params.fineTune = -12;
            wave->params.loopFlags = kLooped;
            wave->params.loopStart = 100;
            wave->params.loopEnd = 290;
            waves.push_back(numberOf(wave->id()));
        }
        for (u32 i = 0; i < 2; ++i) {
            Instrument* instrument = store().Create<Instrument>(kNextFreeNumber, waves[i], 1U, "instrument");
            instrument->patch = i == 0 ? 3 : 7 | Instrument::kDrumKit;
            Layer* layer = store().Find<Layer>(instrument->childIds[0]);
            Region* first = store().Find<Region>(layer->childIds[0]);
            first->keyHigh = 59;
            Region* second = store().Create<Region>(kNextFreeNumber, waves[2], u8{60}, u8{127});
            second->articulation.enabled = true;
            second->articulation.eg1Attack = 0.5F;
            layer->AddChild(second->id());
        }
        Song* song = store().Create<Song>(kNextFreeNumber, "song");
        for (const char key : {'<', '='}) {
            Track* track = store().Create<Track>(kNextFreeNumber, "track");
            const std::string events{0, '\x90', key, 100, 96, key, 0, 0, '\xFF', 0x2F, 0};
            track->events.assign(bytesOf(events).begin(), bytesOf(events).end());
            song->AddChild(track->id());
        }
    }
    /// The item of the made collection that a row takes, or null.
    static Item* itemFor(const FormatRow& row) {
        for (const u32 bit : {kCollectionClass, kInstrumentClass, kWaveClass, kSongClass}) {
            if ((row.typeFlags & bit) != 0) return store().FirstItem(bit);
        }
        return nullptr;
    }
    bool write(int row, Item* item, const std::filesystem::path& path) {
        return item && Export(row, path, item, kAnyFormat, 0, false);
    }
};

TEST_F(Conformance, OfAllRowsThatReadAndWrite) {
    const FormatTable& formats = formatTable();
    std::size_t tried = 0;
    for (int row = 0; formats.row(row); ++row) {
        const FormatRow& format = *formats.row(row);
        if (!format.importFn || !format.exportFn || !format.detectFn || format.extension == "*") continue;
        if (format.importFn == media_Imp && !mediaModule("test")) continue; // not built here
        SCOPED_TRACE(format.description);
        makeCollection();
        Item* made = itemFor(format);
        if (!made) continue;
        const std::string extension = "." + std::string(format.extension);
        const auto path = [&](int generation) {
            return folder / ("g" + std::to_string(generation) + extension);
        };
        // Rows that write one rate only, as long as nothing is resampled.
        static const std::map<std::string_view, u32> kRates{
            {"rockwell", 7200},   {"rockwell-2", 7200}, {"rockwell-3", 7200},
            {"rockwell-4", 7200}, {"vox", 8000},        {"amr", 8000},
            {"cod", 8000},        {"vox-6k", 6000},     {"vox-8k", 8000}};
        const auto rate = kRates.find(format.extension);
        if (rate != kRates.end()) static_cast<Wave*>(made)->sampleRate = rate->second;
        ASSERT_TRUE(write(row, made, path(0))) << failure();
        ++tried;

        FileContext file;
        file.path = path(0);
        file.source = openFileSource(path(0));
        int confidence = 0;
        const int found = DetectFile(formats, path(0), file, confidence);
        EXPECT_EQ(formats.row(found)->extension, format.extension) << formats.row(found)->description;

        // A reader that needs more than the file has nothing to be compared.
        for (int generation = 1; generation < 4; ++generation) {
            ASSERT_TRUE(Import(path(generation - 1), true, row)) << failure();
            Item* item = itemFor(format);
            ASSERT_TRUE(item) << "nothing came back";
            ASSERT_TRUE(write(row, item, path(generation))) << failure();
        }
        const Wave* last = store().First<Wave>();
        const bool coded = last && last->reader && (last->bits < 8 || last->reader->name == "coded_ImpWave");
        const bool isAmr = format.exportFn == amr_Exp || format.exportFn == cod_Exp;
        if (last && last->dataFormat == kCompressed)      // loses each time, and its size varies
            EXPECT_EQ(last->frames, isAmr ? 480U : 300U); // whole frames of 160
        else if (coded)                                   // loses each time
            EXPECT_EQ(test::readFile(path(2)).size(), test::readFile(path(3)).size());
        else
            EXPECT_EQ(test::readFile(path(2)), test::readFile(path(3))) << "the third writing is the second";

        const Bytes whole = test::readFile(path(0));
        std::minstd_rand random(1);
        const auto hurt = folder / ("hurt" + extension);
        for (int i = 0; i < 60; ++i) {
            Bytes bytes = whole;
            if (i % 2 == 0) bytes.resize(random() % bytes.size());
            for (int n = 0; i % 2 == 1 && n < 4; ++n)
                bytes[random() % bytes.size()] = static_cast<std::byte>(random());
            test::writeFile(hurt, bytes);
            if (!Import(hurt, true, row)) continue;
            for (Wave& wave : store().all<Wave>()) wave.LoadData();
        }
    }
    EXPECT_GE(tried, 5U);
}

} // namespace
} // namespace kv
