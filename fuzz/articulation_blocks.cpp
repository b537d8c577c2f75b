// The input is a preset, or else the contents of an articulation chunk. Whatever is read can be written at
// any level in as many bytes as announced; and after one round at the highest level the record is what
// blocks can hold, so that another round moves no field by more than its rounding.
#include "model/articulation_blocks.h"

#include <cmath>

#include "model/articulation_fields.h"
#include "model/articulation_preset.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

Bytes written(const Articulation& record, const Articulation* parent, int level) {
    ByteWriter to;
    writeArticulationBlocks(to, record, parent, level);
    require(to.size() == articulationBlocksSize(record, parent, level), "the list has the announced size");
    return to.take();
}

Articulation onceMore(const Articulation& record) {
    Articulation again;
    const Bytes list = written(record, nullptr, kAllArticulationBlocks);
    require(readArticulationBlocks(ByteSpan(list).subspan(20), again), "what is written is read");
    return again;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ByteSpan input = std::as_bytes(std::span(data, size));
    MemorySource file(input);
    Articulation record;
    if (!loadArticulationPreset(record, file) && !readArticulationBlocks(input, record)) {
        require(record == Articulation(), "a failed reading leaves the record");
        return 0;
    }
    const Articulation plain;
    for (const int level : {0, 1, 2, 3, 4}) {
        written(record, &plain, level);
        written(plain, &record, level);
    }
    const Articulation once = onceMore(record), twice = onceMore(once);
    for (const ArticulationField& field : articulationFields()) {
        require(std::isfinite(field.get(record)), "fields are finite");
        const f64 value = field.get(once);
        require(std::abs(field.get(twice) - value) <= 2e-6 + 1e-6 * std::abs(value), field.name.data());
    }
    return 0;
}
