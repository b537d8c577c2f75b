// What filters share that work through many stretches of input at once.
#pragma once

#include <numeric>

#include "dsp/history.h"
#include "dsp/resample_engine.h"

namespace kv {

/// How a filter's input is cut into blocks, in frames. Blocks follow each other `hopIn` frames apart, look at
/// `span` frames, and give `hopOut` output frames each.
struct BlockCut {
    std::size_t hopIn, hopOut, span;
    std::size_t lead; ///< zeros ahead of the first input frame
};

/// Runs a filter on `slots` blocks at once: as many blocks of each channel as fill them.
template <class T>
class BatchEngine : public ResampleEngine {
public:
    BatchEngine(const BlockCut& cut, std::size_t slots, std::size_t channels)
        : cut_(cut),
          slots_(slots),
          channels_(channels),
          blocks_(slots / std::gcd(slots, channels)),
          history_(channels),
          done_(channels, std::vector<f32>(blocks_ * cut.hopOut)),
          read_(done_[0].size()),
          from_(slots),
          to_(slots) {
        history_.appendZeros(cut.lead);
    }

    void push(std::span<const f32* const> planes, std::size_t frames) final {
        history_.append(planes, frames);
    }
    void pushZeros(std::size_t frames) final { history_.appendZeros(frames); }
    std::size_t lookAhead() const final { return batchFrames(); }

    std::size_t pull(std::span<f32* const> planes, std::size_t frames) final {
        std::size_t count = 0;
        while (count < frames) {
            if (read_ == done_[0].size() && !runBatch()) break;
            const std::size_t part = std::min(frames - count, done_[0].size() - read_);
            for (std::size_t c = 0; c < channels_; ++c)
                std::copy_n(done_[c].data() + read_, part, planes[c] + count);
            count += part;
            read_ += part;
        }
        return count;
    }

protected:
    /// Filters one block for each slot: `span` frames each, that may be read for `History::kOverrun` more,
    /// to `hopOut` frames.
    virtual void filter(std::span<const T* const> from, std::span<f32* const> to) = 0;

private:
    /// Input frames that a batch looks at.
    std::size_t batchFrames() const { return (blocks_ - 1) * cut_.hopIn + cut_.span; }

    bool runBatch() {
        if (history_.end() < next_ + batchFrames()) return false;
        for (std::size_t first = 0; first < blocks_ * channels_; first += slots_) {
            for (std::size_t i = 0; i < slots_; ++i) {
                const std::size_t channel = (first + i) % channels_, block = (first + i) / channels_;
                from_[i] = history_.at(channel, next_ + block * cut_.hopIn);
                to_[i] = done_[channel].data() + block * cut_.hopOut;
            }
            filter(from_, to_);
        }
        next_ += blocks_ * cut_.hopIn;
        history_.dropBefore(next_);
        read_ = 0;
        return true;
    }

    BlockCut cut_;
    std::size_t slots_, channels_, blocks_; // blocks of each channel in a batch
    History<T> history_;
    u64 next_ = 0; // the next batch's first frame in the history
    std::vector<std::vector<f32>> done_;
    std::size_t read_;
    std::vector<const T*> from_;
    std::vector<f32*> to_;
};

} // namespace kv
