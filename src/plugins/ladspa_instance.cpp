#include "plugins/ladspa_instance.h"

#include "base/run_context.h"
#include "plugins/effect.h"
#include "plugins/ladspa_description.h"

namespace kv {
namespace {

class LadspaInstance final : public EffectInstance {
public:
    LadspaInstance(const EffectInfo& effect, const LADSPA_Descriptor& descriptor, LADSPA_Handle handle)
        : EffectInstance(effect, descriptor.PortCount), descriptor_(descriptor), handle_(handle) {
        for (u32 port = 0; port < descriptor.PortCount; ++port)
            descriptor_.connect_port(handle_, port, placeOf(port));
    }
    ~LadspaInstance() override {
        if (started_ && descriptor_.deactivate) descriptor_.deactivate(handle_);
        descriptor_.cleanup(handle_);
    }
    void start() override {
        if (descriptor_.activate) descriptor_.activate(handle_);
        started_ = true;
    }
    void runBlock() override { descriptor_.run(handle_, kEffectBlock); }

private:
    const LADSPA_Descriptor& descriptor_;
    LADSPA_Handle handle_;
    bool started_ = false;
};

const LADSPA_Descriptor* descriptorOf(const EffectInfo& effect) {
    const LADSPA_Descriptor_Function descriptorAt = openLadspa(effect.library);
    return descriptorAt ? descriptorAt(effect.index) : nullptr;
}

} // namespace

std::optional<EffectInfo> ladspaAtRate(const EffectInfo& listed, u32 sampleRate) {
    const LADSPA_Descriptor* const descriptor = descriptorOf(listed);
    std::optional<EffectInfo> effect;
    if (descriptor) effect = describeLadspa(*descriptor, listed.library, listed.index, sampleRate);
    if (effect && effect->parameters.size() == listed.parameters.size()) return effect;
    Fail(kEffectContext, "The library {} has changed or can't be opened", listed.library);
    return {};
}

std::unique_ptr<EffectInstance> startLadspa(const EffectInfo& effect, u32 sampleRate) {
    const LADSPA_Descriptor* const descriptor = descriptorOf(effect);
    const LADSPA_Handle handle = descriptor ? descriptor->instantiate(descriptor, sampleRate) : nullptr;
    if (handle) return std::make_unique<LadspaInstance>(effect, *descriptor, handle);
    Fail(kEffectContext, "\"{}\" could not be started", effect.name);
    return nullptr;
}

} // namespace kv
