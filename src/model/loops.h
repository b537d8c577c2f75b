// Loops turned into plain forward ones, and room behind them.
#pragma once

namespace kv {

class Wave;

/// Lays a wave's reverse or bi-directional loop out as a forward one, by a copy of it that runs backwards.
/// False with the error pair set when the samples can't be read or there is no memory; the loop is as it was.
bool unrollWaveLoop(Wave& wave, bool bidirectional, bool reverse);
/// The same for all waves.
void UnrollLoops(bool bidirectional, bool reverse);

/// Gives each looped wave 32 frames of the loop's repetition where fewer stand behind its end. With
/// `withRegions` loops of regions count too.
void AppendLoopTail(bool withRegions);

} // namespace kv
