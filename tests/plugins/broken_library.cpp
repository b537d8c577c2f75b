// Libraries that do what no library should when they are opened or asked; KV_FAULT says what.
#include <ladspa.h>

#include <cstdio>
#include <cstdlib>

#define KV_ABORT 1
#define KV_HANG 2
#define KV_FLOOD 3

#if KV_FAULT == KV_ABORT
namespace {
struct Abort {
    Abort() {
        std::puts("about to abort");
        std::abort();
    }
} abortWhenOpened;
} // namespace
#endif

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(unsigned long) {
#if KV_FAULT == KV_HANG
    for (volatile bool forever = true; forever;) {
    }
#endif
#if KV_FAULT == KV_FLOOD // an endless list of effects
    static const LADSPA_PortDescriptor kPorts[] = {LADSPA_PORT_INPUT | LADSPA_PORT_AUDIO,
                                                   LADSPA_PORT_OUTPUT | LADSPA_PORT_AUDIO};
    static const char* const kNames[] = {"In", "Out"};
    static const LADSPA_PortRangeHint kHints[2] = {};
    static char name[65536];
    for (char& c : name) c = 'x';
    name[sizeof name - 1] = 0;
    static LADSPA_Descriptor made{};
    made.Label = made.Name = name;
    made.PortCount = 2;
    made.PortDescriptors = kPorts;
    made.PortNames = kNames;
    made.PortRangeHints = kHints;
    made.instantiate = [](const LADSPA_Descriptor*, unsigned long) -> LADSPA_Handle { return nullptr; };
    made.connect_port = [](LADSPA_Handle, unsigned long, LADSPA_Data*) {};
    made.run = [](LADSPA_Handle, unsigned long) {};
    made.cleanup = [](LADSPA_Handle) {};
    return &made;
#else
    return nullptr;
#endif
}
