// LV2 effects to test the host with, described in lv2_effects.ttl.
#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <cstring>

namespace {

constexpr char kGain[] = "urn:kelvane:test:gain";

struct Gain {
    const float* in = nullptr;
    const float* gain = nullptr;
    float* out = nullptr;
    float* latency = nullptr;
    const LV2_Atom_Sequence* messages = nullptr;
    LV2_Atom* answers = nullptr;
    LV2_URID sequence = 0, chunk = 0;
    unsigned blockLength = 0;
    float last = 0;
};

const void* feature(const LV2_Feature* const* features, const char* uri) {
    for (; *features; ++features) {
        if (std::strcmp((*features)->URI, uri) == 0) return (*features)->data;
    }
    return nullptr;
}

/// Refuses to start when a feature isn't what it should be.
LV2_Handle instantiate(const LV2_Descriptor*, double rate, const char*, const LV2_Feature* const* features) {
    const auto* map = static_cast<const LV2_URID_Map*>(feature(features, LV2_URID__map));
    const auto* unmap = static_cast<const LV2_URID_Unmap*>(feature(features, LV2_URID__unmap));
    const auto* option = static_cast<const LV2_Options_Option*>(feature(features, LV2_OPTIONS__options));
    if (!map || !unmap || !option) return nullptr;
    const LV2_URID longest = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    if (std::strcmp(unmap->unmap(unmap->handle, longest), LV2_BUF_SIZE__maxBlockLength) != 0) return nullptr;
    auto* made = new Gain;
    made->sequence = map->map(map->handle, LV2_ATOM__Sequence);
    made->chunk = map->map(map->handle, LV2_ATOM__Chunk);
    float statedRate = 0;
    for (; option->key != 0; ++option) {
        if (option->key == longest) std::memcpy(&made->blockLength, option->value, option->size);
        if (option->type == map->map(map->handle, LV2_ATOM__Float))
            std::memcpy(&statedRate, option->value, option->size);
    }
    if (static_cast<double>(statedRate) == rate) return made;
    delete made;
    return nullptr;
}

void connectPort(LV2_Handle handle, uint32_t port, void* data) {
    Gain& gain = *static_cast<Gain*>(handle);
    switch (port) {
        case 0:
            gain.in = static_cast<const float*>(data);
            break;
        case 1:
            gain.out = static_cast<float*>(data);
            break;
        case 2:
            gain.gain = static_cast<const float*>(data);
            break;
        case 3:
            gain.latency = static_cast<float*>(data);
            break;
        case 4:
            gain.messages = static_cast<const LV2_Atom_Sequence*>(data);
            break;
        case 5:
            gain.answers = static_cast<LV2_Atom*>(data);
            break;
        default:
            break;
    }
}

/// One frame late, and silent when the host doesn't keep to what it says.
void run(LV2_Handle handle, uint32_t frames) {
    Gain& gain = *static_cast<Gain*>(handle);
    const bool good = frames <= gain.blockLength && gain.messages->atom.type == gain.sequence &&
                      gain.messages->atom.size == sizeof(LV2_Atom_Sequence_Body) &&
                      gain.answers->type == gain.chunk && gain.answers->size >= 100000;
    for (uint32_t i = 0; i < frames; ++i) {
        gain.out[i] = good ? gain.last * *gain.gain : 0;
        gain.last = gain.in[i];
    }
    gain.answers->size = 0;
    *gain.latency = 1;
}

void cleanup(LV2_Handle handle) {
    delete static_cast<Gain*>(handle);
}

const LV2_Descriptor descriptor{kGain, instantiate, connectPort, nullptr, run, nullptr, cleanup, nullptr};

} // namespace

extern "C" __attribute__((visibility("default"))) const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &descriptor : nullptr;
}
