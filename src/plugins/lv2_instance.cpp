// LV2 effects: the list, and at work.
#include <lv2/atom/atom.h>
#include <lv2/resize-port/resize-port.h>
#include <lv2/state/state.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/run_context.h"
#include "plugins/effect.h"
#include "plugins/lv2_features.h"
#include "plugins/lv2_world.h"

namespace kv {
namespace {

constexpr f64 kListedRate = 44100;
constexpr std::size_t kAtomBytes = 65536, kMaxAtomBytes = std::size_t{1} << 24;

/// The world in use. Instances keep the one that they come from.
struct CurrentWorld {
    std::mutex mutex;
    std::string path; ///< for which it was made
    std::shared_ptr<const Lv2World> world;
};

/// The world of the bundles in LV2_PATH, made if there is none yet or `anew`. Null with the error pair set
/// without lilv.
std::shared_ptr<const Lv2World> lv2World(bool anew = false) {
    static CurrentWorld& current = *new CurrentWorld;
    if (!lilv().library.ready(kEffectContext)) return nullptr;
    const char* const variable = std::getenv("LV2_PATH");
    const std::string path = variable ? variable : "";
    const std::lock_guard lock(current.mutex);
    if (!current.world || anew || current.path != path) {
        current.world = std::make_shared<const Lv2World>();
        current.path = path;
    }
    return current.world;
}

/// A port for messages: what goes in is an empty sequence, what comes out is forgotten.
class AtomPort {
public:
    AtomPort(std::size_t bytes, bool output)
        : words_((bytes + sizeof(u64) - 1) / sizeof(u64)), output_(output) {
        reset();
    }
    void* place() { return words_.data(); }
    /// To be done before each block.
    void reset() {
        const LV2_Atom_Sequence empty{{sizeof(LV2_Atom_Sequence_Body), lv2Number(LV2_ATOM__Sequence)},
                                      {0, 0}};
        const auto room = static_cast<u32>(words_.size() * sizeof(u64) - sizeof(LV2_Atom));
        const LV2_Atom chunk{room, lv2Number(LV2_ATOM__Chunk)};
        std::memcpy(words_.data(), &empty, sizeof empty);
        if (output_) std::memcpy(words_.data(), &chunk, sizeof chunk);
    }

private:
    std::vector<u64> words_; ///< atoms start at multiples of 8 bytes
    bool output_;
};

class Lv2Instance final : public EffectInstance {
public:
    Lv2Instance(const EffectInfo& effect, std::shared_ptr<const Lv2World> world, const LilvPlugin& plugin,
                f64 sampleRate)
        : EffectInstance(effect, lilv().plugin_get_num_ports(&plugin)),
          effect_(effect),
          world_(std::move(world)),
          features_(sampleRate),
          instance_(lilv().plugin_instantiate(&plugin, sampleRate, features_.list())) {
        if (!instance_) return;
        connect(plugin);
        restoreState(plugin);
    }
    ~Lv2Instance() override {
        if (!instance_) return;
        if (started_) lilv_instance_deactivate(instance_);
        const std::lock_guard lock(world_->mutex);
        lilv().instance_free(instance_);
    }

    bool alive() const { return instance_ != nullptr; }
    void start() override {
        lilv_instance_activate(instance_);
        started_ = true;
    }
    void runBlock() override {
        for (const auto& port : atomPorts_) port->reset();
        lilv_instance_run(instance_, kEffectBlock);
    }

private:
    void connect(const LilvPlugin& plugin);
    void* connectionOf(const LilvPlugin& plugin, u32 port);
    void restoreState(const LilvPlugin& plugin);
    static void restorePort(const char* symbol, void* self, const void* value, u32 size, u32 type);

    EffectInfo effect_;
    std::shared_ptr<const Lv2World> world_;
    Lv2Features features_;
    std::vector<std::unique_ptr<AtomPort>> atomPorts_;
    LilvInstance* instance_;
    bool started_ = false;
};

void* Lv2Instance::connectionOf(const LilvPlugin& plugin, u32 index) {
    using Role = Lv2World::PortRole;
    const LilvPort& port = *lilv().plugin_get_port_by_index(&plugin, index);
    const Role role = world_->roleOf(plugin, port);
    if (role == Role::Unconnected || role == Role::Unknown) return nullptr;
    if (role != Role::AtomIn && role != Role::AtomOut) return placeOf(index);
    const LilvNodePtr wanted(
        lilv().port_get(&plugin, &port, world_->node(LV2_RESIZE_PORT__minimumSize).get()));
    std::size_t bytes = kAtomBytes;
    if (wanted && lilv().node_is_int(wanted.get()))
        bytes = std::clamp(saturate<std::size_t>(lilv().node_as_int(wanted.get())), bytes, kMaxAtomBytes);
    atomPorts_.push_back(std::make_unique<AtomPort>(bytes, role == Role::AtomOut));
    return atomPorts_.back()->place();
}

void Lv2Instance::connect(const LilvPlugin& plugin) {
    for (u32 port = 0; port < lilv().plugin_get_num_ports(&plugin); ++port)
        lilv_instance_connect_port(instance_, port, connectionOf(plugin, port));
}

void Lv2Instance::restorePort(const char* symbol, void* self, const void* value, u32 size, u32 type) {
    f32 number = 0;
    if (size != sizeof number || type != lv2Number(LV2_ATOM__Float)) return;
    std::memcpy(&number, value, sizeof number);
    auto& instance = *static_cast<Lv2Instance*>(self);
    for (const EffectParameter& parameter : instance.effect_.parameters) {
        if (parameter.symbol == symbol && std::isfinite(number))
            instance.setControl(parameter.port, parameter.limited(number));
    }
}

/// Plug-ins with the feature describe in their bundle the state that they want to start from.
void Lv2Instance::restoreState(const LilvPlugin& plugin) {
    if (!lilv().plugin_has_feature(&plugin, world_->node(LV2_STATE__loadDefaultState).get())) return;
    LilvState* const state =
        lilv().state_new_from_world(world_->get(), &lv2Map(), lilv().plugin_get_uri(&plugin));
    if (!state) return;
    lilv().state_restore(state, instance_, restorePort, this, 0, features_.list());
    lilv().state_free(state);
}

} // namespace

EffectList scanLv2() {
    EffectList list;
    const std::shared_ptr<const Lv2World> world = lv2World(true);
    if (!world) {
        list.problems.push_back(runContext().error.message);
        return list;
    }
    const std::lock_guard lock(world->mutex);
    for (const LilvPlugin* plugin : world->plugins()) {
        std::optional<EffectInfo> effect = world->describe(*plugin, kListedRate);
        if (effect) list.effects.push_back(std::move(*effect));
    }
    return list;
}

std::optional<EffectInfo> lv2AtRate(const std::string& uri, u32 sampleRate) {
    const std::shared_ptr<const Lv2World> world = lv2World();
    if (!world) return {};
    const std::lock_guard lock(world->mutex);
    const LilvPlugin* const plugin = world->find(uri);
    if (plugin) return world->describe(*plugin, sampleRate);
    Fail(kEffectContext, "There is no LV2 effect \"{}\"", uri);
    return {};
}

std::unique_ptr<EffectInstance> startLv2(const EffectInfo& effect, u32 sampleRate) {
    const std::shared_ptr<const Lv2World> world = lv2World();
    if (!world) return nullptr;
    std::unique_ptr<Lv2Instance> instance;
    {
        const std::lock_guard lock(world->mutex);
        const LilvPlugin* const plugin = world->find(effect.id);
        if (plugin) instance = std::make_unique<Lv2Instance>(effect, world, *plugin, sampleRate);
    }
    if (instance && instance->alive()) return instance;
    Fail(kEffectContext, "\"{}\" could not be started", effect.name);
    return nullptr;
}

} // namespace kv
