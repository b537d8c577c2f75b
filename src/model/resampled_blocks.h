// Blocks of samples at another rate.
#pragma once

#include <memory>

#include "model/sample_blocks.h"

namespace kv {

/// Samples of `fromHz` as float samples of `toHz`, as many as `resampledLength` tells; what has that rate
/// already is handed back as it is. `quality` and `sourceBits` are those of `ResamplerSettings`. Only the
/// ratio of the rates matters, so two lengths will do as well. Passes a null on; null with the error pair set
/// for rates or a quality that can't be had, and when the result would be too long.
std::unique_ptr<SampleBlocks> resampled(std::unique_ptr<SampleBlocks> blocks, u32 fromHz, u32 toHz,
                                        int quality, int sourceBits = 16);

/// Bits of a wave's samples in its source, as the choice of a filter counts them.
int sourceBitsOf(const Wave& wave);

} // namespace kv
