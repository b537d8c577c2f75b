// LADSPA effects to test the host with. Each `Label` stands in the table below.
#include <ladspa.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <vector>

namespace {

constexpr unsigned long kMaxPorts = 6;
constexpr int kDelay = 100; ///< frames, of the effect that tells its latency

struct Effect {
    LADSPA_Data* ports[kMaxPorts] = {};
    std::vector<LADSPA_Data> line = std::vector<LADSPA_Data>(kDelay);
    std::size_t place = 0;
};

LADSPA_Handle instantiate(const LADSPA_Descriptor*, unsigned long) {
    return new Effect;
}
void connectPort(LADSPA_Handle handle, unsigned long port, LADSPA_Data* data) {
    static_cast<Effect*>(handle)->ports[port] = data;
}
void cleanup(LADSPA_Handle handle) {
    delete static_cast<Effect*>(handle);
}

// Ports: in, out, gain, latency.
void runGain(LADSPA_Handle handle, unsigned long frames) {
    Effect& effect = *static_cast<Effect*>(handle);
    for (unsigned long i = 0; i < frames; ++i) {
        effect.ports[1][i] = effect.line[effect.place] * *effect.ports[2];
        effect.line[effect.place] = effect.ports[0][i];
        effect.place = (effect.place + 1) % kDelay;
    }
    *effect.ports[3] = kDelay;
}
// Ports: two ins, two outs. Swaps the sides and halves the right output.
void runSwap(LADSPA_Handle handle, unsigned long frames) {
    const Effect& effect = *static_cast<Effect*>(handle);
    for (unsigned long i = 0; i < frames; ++i) {
        effect.ports[2][i] = effect.ports[1][i];
        effect.ports[3][i] = effect.ports[0][i] / 2;
    }
}
// Ports: in, two outs. The signal goes to the left, its negative to the right.
void runWiden(LADSPA_Handle handle, unsigned long frames) {
    const Effect& effect = *static_cast<Effect*>(handle);
    for (unsigned long i = 0; i < frames; ++i) {
        effect.ports[1][i] = effect.ports[0][i];
        effect.ports[2][i] = -effect.ports[0][i];
    }
}
LADSPA_Handle instantiateAloud(const LADSPA_Descriptor*, unsigned long) {
    std::puts("starting");
    return new Effect;
}
// Ports: in, out. No numbers after 2000 frames.
void runNan(LADSPA_Handle handle, unsigned long frames) {
    Effect& effect = *static_cast<Effect*>(handle);
    for (unsigned long i = 0; i < frames; ++i)
        effect.ports[1][i] = ++effect.place < 2000 ? effect.ports[0][i] : std::nanf("");
}
// Ports: in, out. Sounds on, by half less each frame.
void runDecay(LADSPA_Handle handle, unsigned long frames) {
    Effect& effect = *static_cast<Effect*>(handle);
    for (unsigned long i = 0; i < frames; ++i)
        effect.ports[1][i] = effect.line[0] = std::max(effect.ports[0][i], effect.line[0] * 0.5F);
}

constexpr int kIn = LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO, kOut = LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO;
constexpr int kSetting = LADSPA_PORT_INPUT | LADSPA_PORT_CONTROL;
constexpr int kMeter = LADSPA_PORT_OUTPUT | LADSPA_PORT_CONTROL;
constexpr int kBounded = LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE;

const LADSPA_PortDescriptor gainPorts[] = {kIn, kOut, kSetting, kMeter};
const char* const gainNames[] = {"In", "Out", "Gain (x)", "latency"};
const LADSPA_PortRangeHint gainHints[] = {{}, {}, {kBounded | LADSPA_HINT_DEFAULT_1, 0, 4}, {}};
const LADSPA_PortDescriptor stereoPorts[] = {kIn, kIn, kOut, kOut};
const LADSPA_PortDescriptor widePorts[] = {kIn, kOut, kOut};
const LADSPA_PortDescriptor monoPorts[] = {kIn, kOut};
const char* const plainNames[] = {"A", "B", "C", "D"};
const LADSPA_PortRangeHint plainHints[4] = {};
// One of each rule for defaults; see `describesParameters`.
const LADSPA_PortDescriptor hintedPorts[] = {kSetting, kSetting, kSetting, kSetting, kIn, kOut};
const char* const hintedNames[] = {"Cutoff", "Mode", "Mode", "Mix!", "In", "Out"};
const LADSPA_PortRangeHint hintedHints[] = {
    {kBounded | LADSPA_HINT_SAMPLE_RATE | LADSPA_HINT_LOGARITHMIC | LADSPA_HINT_DEFAULT_MIDDLE, 0.0001F,
     0.01F},
    {kBounded | LADSPA_HINT_INTEGER | LADSPA_HINT_DEFAULT_HIGH, 0, 10},
    {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_1, 0, 0},
    {LADSPA_HINT_BOUNDED_BELOW, 3, 0},
    {},
    {}};
const LADSPA_PortDescriptor sourcePorts[] = {kOut};

LADSPA_Descriptor describe(const char* label, const char* name, unsigned long ports,
                           const LADSPA_PortDescriptor* kinds, const char* const* names,
                           const LADSPA_PortRangeHint* hints, void (*run)(LADSPA_Handle, unsigned long)) {
    LADSPA_Descriptor made{};
    made.Label = label;
    made.Name = name;
    made.Maker = "Kelvane\nStudio";
    made.PortCount = ports;
    made.PortDescriptors = kinds;
    made.PortNames = names;
    made.PortRangeHints = hints;
    made.instantiate = run == runNan ? instantiateAloud : instantiate;
    made.connect_port = connectPort;
    made.run = run;
    made.cleanup = cleanup;
    return made;
}

} // namespace

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(
    unsigned long index) {
    static const LADSPA_Descriptor kAll[] = {
        describe("gain", "Late gain", 4, gainPorts, gainNames, gainHints, runGain),
        describe("swap", "Swap", 4, stereoPorts, plainNames, plainHints, runSwap),
        describe("widen", "Widen", 3, widePorts, plainNames, plainHints, runWiden),
        describe("nan", "No numbers", 2, monoPorts, plainNames, plainHints, runNan),
        describe("decay", "Decay", 2, monoPorts, plainNames, plainHints, runDecay),
        describe("hinted", "Hinted", 6, hintedPorts, hintedNames, hintedHints, runNan),
        describe("twin1", "Twin", 2, monoPorts, plainNames, plainHints, runNan),
        describe("twin2", "Twin", 2, monoPorts, plainNames, plainHints, runNan),
        describe("source", "Tone", 1, sourcePorts, plainNames, plainHints, runNan),
        describe(nullptr, "Incomplete", 2, monoPorts, plainNames, plainHints, runNan),
    };
    return index < std::size(kAll) ? &kAll[index] : nullptr;
}
