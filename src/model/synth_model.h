// A sound of the synthesizer that a region plays in place of a wave.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "model/item.h"

namespace kv {

class SynthModel final : public Item {
public:
    static constexpr u32 kClass = kSynthModelClass;

    SynthModel(Store& store, ItemId request, std::string_view name = {});
    /// A copy that shares the children.
    SynthModel(Store& store, const SynthModel& source, ItemId request);

    u32 modelType = 0;
    std::vector<std::byte> modelData;
    std::array<u32, 4> modelParameters{};

    std::string Describe() const override { return "Synthesis model"; }
    bool HasSynthesis() const override { return true; }
    bool ConvertSynthesis(bool flag, Item* owner) override;
    void RevertSynthesis() override;
};

} // namespace kv
