// The file that the store was read from.
#pragma once

#include <filesystem>

#include "model/item.h"

namespace kv {

class Collection final : public Item {
public:
    static constexpr u32 kClass = kCollectionClass;

    /// Named after the file, or "Unnamed".
    explicit Collection(Store& store, const std::filesystem::path& path = {});

    Text<128> engineer, copyright;
    Text<1500> comments;
    std::filesystem::path fileName;
    int sourceFormat = -1; ///< row of the format table, -1 none

    void FixUp() override;
    bool LoadData() override;
    std::string Describe() const override;
    bool HasSynthesis() const override;
    bool HasWave() const override;
    bool ConvertSynthesis(bool flag, Item* owner) override;
    void RevertSynthesis() override;

    /// Takes the name of a file as the collection's.
    void nameAfter(const std::filesystem::path& path);
};

} // namespace kv
