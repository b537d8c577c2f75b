// The file of a DLS bank, written from front to end.
// Documents: "Downloadable Sounds Level 1, version 1.1b" and "Level 2.2" (MIDI Manufacturers Association).
#pragma once

#include <unordered_map>
#include <vector>

#include "base/byte_sink.h"
#include "formats/audio/wav_writer.h"
#include "formats/framework/bank_contents.h"

namespace kv {

class DlsBankFile {
public:
    /// What is written, and how.
    struct Plan {
        const BankContents& contents;
        const Item& item;                   ///< what is saved
        int level;                          ///< sub-type of the row
        u32 formatWord;                     ///< data format of the samples; without a code: each wave's own
        std::size_t mostMelodic, mostDrums; ///< regions of an instrument
    };
    explicit DlsBankFile(const Plan& plan) : plan_(plan) {}

    /// Lays out the file. False with the error pair set when the data format can't be written, or the bank is
    /// too large for its form.
    bool prepare();
    /// Bytes of the file.
    u64 size() const { return head_.size() + poolBytes_ + tail_.size(); }
    /// Bytes of all samples as they will be written.
    u64 sampleBytes() const;
    /// False with the error pair set when samples can't be read or not all could be written.
    bool write(ByteSink& sink) const;

private:
    /// A wave's list: the data stands between head and tail, and a pad byte behind it.
    struct PoolWave {
        const Wave* wave;
        WavEncoding encoding{};
        u64 dataBytes = 0, listBytes = 0;
    };

    bool full() const;
    bool isStereo(const Wave& wave) const;
    ByteWriter waveHead(const PoolWave& entry) const;
    ByteWriter waveTail(const PoolWave& entry) const;
    bool writeWave(ByteSink& sink, const PoolWave& entry) const;
    void addInstrument(ByteWriter& to, const Instrument& instrument) const;
    void addRegion(ByteWriter& to, const Instrument& instrument, const Layer& layer, std::size_t layerIndex,
                   const Region& region, const Wave& wave) const;
    void addLayers(ByteWriter& to, const Instrument& instrument) const;
    void addArticulation(ByteWriter& to, Articulation record, const Articulation* parent) const;
    void addCueTable(ByteWriter& to) const;
    ByteWriter texts() const;
    bool addSongs(ByteWriter& to) const;
    bool preparePool();

    Plan plan_;
    std::vector<PoolWave> pool_;
    ByteWriter head_, tail_; ///< all but the contents of the wave pool
    u64 poolBytes_ = 0;
    std::unordered_map<ItemId, u32> cues_; ///< of the waves
};

} // namespace kv
