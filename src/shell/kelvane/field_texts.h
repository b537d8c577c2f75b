// Articulation fields as text, for many records in a row.
#pragma once

#include <bit>
#include <string>
#include <vector>

#include "model/articulation_fields.h"

namespace kv {

/// Keeps each field's last value with its text: neighbours mostly have the same.
class FieldTexts {
public:
    using Format = std::string (*)(const ArticulationField& field, const Articulation& record);
    explicit FieldTexts(Format format) : format_(format), known_(articulationFields().size()) {}

    /// The text of the index-th field; stands until the next call for that field.
    std::string_view text(std::size_t index, const Articulation& record) {
        const ArticulationField& field = articulationFields()[index];
        const u64 bits = std::bit_cast<u64>(field.get(record));
        Known& known = known_[index];
        if (known.text.empty() || known.bits != bits) known = {bits, format_(field, record)};
        return known.text;
    }

private:
    struct Known {
        u64 bits = 0;
        std::string text;
    };
    Format format_;
    std::vector<Known> known_;
};

} // namespace kv
