// What a large song costs: parsing, merging to format 0, writing back; and many small songs in a row.
#include <benchmark/benchmark.h>

#include <random>

#include "formats/songs/smf.h"
#include "midi/midi_song.h"
#include "midi/midi_track_writer.h"
#include "midi/song_summary.h"
#include "model/collection.h"
#include "model/workspace.h"

namespace {

using namespace kv;

/// A file of `tracks` tracks that hold `notes` notes together, without running status for every other one,
/// so that a note takes about ten bytes.
Bytes songFile(std::size_t tracks, std::size_t notes) {
    std::mt19937 random(1);
    ByteWriter file;
    file.text("MThd").u32be(6).u16be(1).u16be(static_cast<u16>(tracks)).u16be(480);
    Song& song = *store().Create<Song>(kNextFreeNumber);
    Track& track = *store().Create<Track>(kNextFreeNumber);
    song.AddChild(track.id());
    for (std::size_t t = 0; t < tracks; ++t) {
        MidiTrackWriter out(&track);
        const u8 channel = static_cast<u8>(t % 16);
        for (std::size_t i = 0; i < notes / tracks; ++i) {
            const u8 key = static_cast<u8>(random() % 128);
            out.time += random() % 2 * 240;
            out.channelMessage(kNoteOn, channel, key, 100);
            out.time += 130 + random() % 300;
            out.channelMessage(kNoteOff, channel, key, 64);
        }
        out.endOfTrack();
        out.finish();
        file.text("MTrk").u32be(static_cast<u32>(track.events.size())).bytes(track.events);
    }
    return file.take();
}

class SongBench {
public:
    SongBench(std::size_t tracks, std::size_t notes) {
        Workspace making;
        const WorkspaceScope scope(making);
        bytes_ = songFile(tracks, notes);
    }
    const Bytes& bytes() const { return bytes_; }
    Song* parse(Workspace& space) const {
        FileContext file;
        file.source = std::make_shared<MemorySource>(ByteSpan(bytes_));
        Song* song = nullptr;
        mid_Parse(file, song, 0, bytes_.size(), *space.store.Create<Collection>("bench.mid"));
        return song;
    }

private:
    Bytes bytes_;
};

/// With the walks that the import and export drivers add: each counts the events once.
void parseMergeWrite(benchmark::State& state) {
    const SongBench bench(static_cast<std::size_t>(state.range(0)), 1000000);
    for (auto _ : state) {
        Workspace space;
        const WorkspaceScope scope(space);
        Song* song = bench.parse(space);
        song->Recount();
        changeFileFormat(*song, 0);
        song->Recount();
        MemorySink sink;
        FileContext out;
        out.sink = &sink;
        mid_Exp(*song, out, 0, static_cast<u32>(-1), false, 0);
        benchmark::DoNotOptimize(sink.view().data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<i64>(bench.bytes().size()));
}
BENCHMARK(parseMergeWrite)->Arg(1)->Arg(16)->Arg(64)->Arg(10000)->Unit(benchmark::kMillisecond);

enum Step { kParse, kCount, kMerge, kSplitChannels, kRate, kSummary };

template <Step step>
void one(benchmark::State& state) {
    const SongBench bench(16, 1000000);
    Workspace space;
    const WorkspaceScope scope(space);
    Song* song = bench.parse(space);
    if (step == kSplitChannels) changeFileFormat(*song, 0);
    for (auto _ : state) {
        if constexpr (step == kParse) {
            state.PauseTiming();
            space.store.DeleteAllItems();
            state.ResumeTiming();
            song = bench.parse(space);
        }
        if constexpr (step == kCount) song->Recount();
        if constexpr (step == kMerge) space.store.Delete(kvGetFormat0Track(*song));
        if constexpr (step == kRate) changeTickRate(*song, song->division == 480 ? 481 : 480);
        if constexpr (step == kSummary) benchmark::DoNotOptimize(summarize(*song).seconds);
        if constexpr (step == kSplitChannels) {
            Song copy(space.store, *song, kNextFreeNumber);
            changeFileFormat(copy, 1);
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<i64>(bench.bytes().size()));
}
BENCHMARK(one<kParse>)->Name("parse")->Unit(benchmark::kMillisecond);
BENCHMARK(one<kCount>)->Name("count")->Unit(benchmark::kMillisecond);
BENCHMARK(one<kMerge>)->Name("merge")->Unit(benchmark::kMillisecond);
BENCHMARK(one<kSplitChannels>)->Name("channels")->Unit(benchmark::kMillisecond);
BENCHMARK(one<kRate>)->Name("tickRate")->Unit(benchmark::kMillisecond);
BENCHMARK(one<kSummary>)->Name("summary")->Unit(benchmark::kMillisecond);

/// Songs of 16 tracks and 50 KB, parsed and counted.
void smallSongs(benchmark::State& state) {
    const SongBench bench(16, 5000);
    for (auto _ : state) {
        Workspace space;
        const WorkspaceScope scope(space);
        bench.parse(space)->Recount();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<i64>(bench.bytes().size()));
}
BENCHMARK(smallSongs)->Unit(benchmark::kMicrosecond);

} // namespace
