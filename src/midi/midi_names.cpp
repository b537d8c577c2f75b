#include "midi/midi_names.h"

#include <fmt/format.h>

#include <algorithm>

namespace kv {
namespace {

constexpr EventKind kEventKinds[] = {
    {0x80, "Note Off", "note-off", "Note:", "Velocity:"},
    {0x90, "Note On", "note-on", "Note:", "Velocity:"},
    {0xA0, "Poly Press", "poly-press", "Note:", "Pressure:"},
    {0xB0, "Control Chg", "control", "Control:", "Value:"},
    {0xC0, "Program Chg", "program", "Program:", ""},
    {0xD0, "Ch Pressure", "pressure", "Pressure:", ""},
    {0xE0, "Pitch Bend", "bend", "Bend fine:", "Bend coarse:"},
    {0xF0, "SysEx", "sysex", "", ""},
    {0xF7, "SysEx Cont", "sysex-cont", "", ""},
    {0xFF, "Meta event", "meta", "Meta type:", ""},
};

constexpr MetaKind kMetaKinds[] = {
    {0x00, "Sequence no", "sequence-no", 2},
    {0x01, "Text", "text", 0},
    {0x02, "Copyright", "copyright", 0},
    {0x03, "Track name", "track-name", 0},
    {0x04, "Instrument", "instrument", 0},
    {0x05, "Lyric", "lyric", 0},
    {0x06, "Marker", "marker", 0},
    {0x07, "Cue point", "cue-point", 0},
    {0x20, "Channel prefix", "channel-prefix", 1},
    {0x21, "Channel group", "channel-group", 1},
    {0x2F, "End of Track", "end-of-track", 0},
    {0x51, "Tempo", "tempo", 3},
    {0x54, "SMPTE Offset", "smpte-offset", 5},
    {0x58, "Time signature", "time-signature", 4},
    {0x59, "Key signature", "key-signature", 2},
    {0x7F, "Seq. specific", "seq-specific", 0},
};

struct ControllerRow {
    u8 key;
    std::string_view name;
};

// The first row of a key counts: the second 8 is a slip for 40 that users know, so 40 goes without a name.
constexpr ControllerRow kControllers[] = {
    {0, "Bank MSB"},
    {1, "Modulation"},
    {2, "Breath"},
    {4, "Foot pedal"},
    {5, "Porta. time"},
    {6, "Data MSB"},
    {7, "Volume"},
    {8, "Balance"},
    {10, "Pan"},
    {11, "Expression"},
    {32, "Bank LSB"},
    {33, "Modulation LSB"},
    {34, "Breath LSB"},
    {36, "Foot pedal LSB"},
    {37, "Porta. time LSB"},
    {38, "Data LSB"},
    {39, "Volume LSB"},
    {8, "Balance LSB"},
    {42, "Pan LSB"},
    {43, "Expression LSB"},
    {64, "Hold 1 Pedal"},
    {65, "Portamento Pedal"},
    {66, "Sostenuto Pedal"},
    {67, "Soft Pedal"},
    {68, "Legato Pedal"},
    {69, "Hold 2 Pedal"},
    {91, "Reverb level"},
    {92, "Tremolo level"},
    {93, "Chorus level"},
    {94, "Celeste level"},
    {95, "Phaser level"},
    {96, "Data Inc"},
    {97, "Data Dec"},
    {98, "NRPN LSB"},
    {99, "NRPN MSB"},
    {100, "RPN LSB"},
    {101, "RPN MSB"},
    {120, "All Sounds Off"},
    {121, "Reset All Ctrls"},
    {122, "Local keyboard"},
    {123, "All Notes Off"},
    {124, "Omni Off"},
    {125, "Omni On"},
    {126, "Monophonic"},
    {127, "Polyphonic"},
};

template <class Rows, class Key, class Member>
auto* findRow(const Rows& rows, Key key, Member member) {
    const auto found =
        std::find_if(std::begin(rows), std::end(rows), [&](const auto& row) { return row.*member == key; });
    return found == std::end(rows) ? nullptr : &*found;
}

} // namespace

std::span<const EventKind, 10> eventKinds() {
    return kEventKinds;
}

const EventKind* eventKind(u8 status) {
    return findRow(kEventKinds, status, &EventKind::status);
}

std::span<const MetaKind> metaKinds() {
    return kMetaKinds;
}

const MetaKind* metaKind(u8 type) {
    return findRow(kMetaKinds, type, &MetaKind::type);
}

std::string metaName(u8 type) {
    const MetaKind* kind = metaKind(type);
    return kind ? std::string(kind->name) : fmt::format("<id {}>", type);
}

std::string controllerName(u8 controller) {
    const ControllerRow* row = findRow(kControllers, controller, &ControllerRow::key);
    return row ? std::string(row->name) : fmt::format("CC{}", controller);
}

} // namespace kv
