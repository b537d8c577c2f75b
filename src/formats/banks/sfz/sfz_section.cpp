#include "formats/banks/sfz/sfz_section.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <unordered_map>

#include "base/text.h"

namespace kv {
namespace {

using S = SfzSection;

#define KV_PLAIN(name, ...)                        \
    SfzOpcode {                                    \
#name, &S::name __VA_OPT__(, ) __VA_ARGS__ \
    }
#define KV_KEY(name)    \
    SfzOpcode {         \
#name, SfzKey { \
            &S::name    \
        }               \
    }
#define KV_UNUSED(name)            \
    SfzOpcode {                    \
#name, &S::name, {}, false \
    }
#define KV_EG_PART(group, part)        \
    SfzOpcode {                        \
#group "_" #part, SfzEgPlace { \
            &S::group, &SfzEg::part    \
        }                              \
    }
#define KV_EG(group)                                                                                        \
    KV_EG_PART(group, delay), KV_EG_PART(group, start), KV_EG_PART(group, attack), KV_EG_PART(group, hold), \
        KV_EG_PART(group, decay), KV_EG_PART(group, sustain), KV_EG_PART(group, release), SfzOpcode {       \
#group "_vel2attack", SfzEgPlace{&S::group, &SfzEg::vel2attack }, {}, false                         \
    }
#define KV_LFO_PART(group, part, ...)                                                       \
    SfzOpcode {                                                                             \
#group "_" #part, SfzLfoPlace{&S::group, &SfzLfo::part } __VA_OPT__(, ) __VA_ARGS__ \
    }
#define KV_LFO(group)                                                                   \
    KV_LFO_PART(group, delay), KV_LFO_PART(group, fade), KV_LFO_PART(group, freq),      \
        KV_LFO_PART(group, depth), KV_LFO_PART(group, depthcc1, #group "_depth_oncc1"), \
        KV_LFO_PART(group, depthchanaft), KV_LFO_PART(group, depthpolyaft)
#define KV_EQ(band)                                                                                \
    KV_PLAIN(band##_freq), KV_PLAIN(band##_bw), KV_PLAIN(band##_gain), KV_UNUSED(band##_vel2freq), \
        KV_UNUSED(band##_vel2gain)

// clang-format off
const SfzOpcode kOpcodes[] = {
    KV_PLAIN(sample),
    KV_KEY(lokey), KV_KEY(hikey), KV_PLAIN(lovel), KV_PLAIN(hivel), KV_PLAIN(locc64), KV_PLAIN(hicc64),
    KV_PLAIN(group), KV_PLAIN(off_by, "offby"),
    KV_PLAIN(trigger), KV_PLAIN(seq_length),
    KV_PLAIN(offset), KV_PLAIN(end),
    KV_PLAIN(loop_mode, "loopmode"), KV_PLAIN(loop_start, "loopstart"), KV_PLAIN(loop_end, "loopend"),
    KV_PLAIN(transpose), KV_PLAIN(tune), KV_KEY(pitch_keycenter), KV_PLAIN(pitch_keytrack),
    KV_PLAIN(bend_up, "bendup"), KV_PLAIN(bend_down, "benddown"),
    KV_EG(pitcheg), KV_PLAIN(pitcheg_depth), KV_LFO(pitchlfo),
    KV_PLAIN(fil_type, "filtype"), KV_PLAIN(cutoff), KV_PLAIN(resonance),
    KV_PLAIN(cutoff_cc1, "cutoff_oncc1"), KV_PLAIN(cutoff_chanaft), KV_PLAIN(cutoff_polyaft),
    KV_PLAIN(fil_keytrack), KV_PLAIN(fil_veltrack), KV_KEY(fil_keycenter),
    KV_EG(fileg), KV_PLAIN(fileg_depth), KV_LFO(fillfo),
    KV_EQ(eq1), KV_EQ(eq2), KV_EQ(eq3),
    KV_PLAIN(volume), KV_PLAIN(pan), KV_PLAIN(amp_keytrack), KV_PLAIN(amp_veltrack), KV_PLAIN(amp_keycenter),
    KV_EG(ampeg), KV_LFO(amplfo),
    KV_PLAIN(gain_cc129, "gain_oncc129"), KV_PLAIN(gain_cc130, "gain_oncc130"),
    KV_PLAIN(effect1), KV_PLAIN(effect2),
};
// clang-format on
#undef KV_PLAIN
#undef KV_KEY
#undef KV_UNUSED
#undef KV_EG_PART
#undef KV_EG
#undef KV_LFO_PART
#undef KV_LFO
#undef KV_EQ

constexpr f64 kMostNumber = 1e30;

u8 sevenBits(f64 value) {
    return static_cast<u8>(std::clamp(value, 0.0, 127.0));
}

/// Semitones above C of a note letter; -1 for any other.
int semitoneOf(char letter) {
    constexpr int kSemitones[] = {9, 11, 0, 2, 4, 5, 7}; // A to G
    const int index = (static_cast<u8>(letter) & 0xDF) - 'A';
    return index >= 0 && index < 7 ? kSemitones[index] : -1;
}

/// How each kind of place takes a value and gives it back.
struct Setter {
    SfzSection& section;
    std::string_view text;

    void operator()(std::string S::*member) const {
        constexpr std::size_t kLongestText = 4096;
        section.*member = text.substr(0, kLongestText);
    }
    void operator()(SfzKey key) const { section.*key.member = sfzKey(text, section.*key.member); }
    void operator()(u8 S::*member) const {
        if (f64 value = 0; sfzNumber(text, value)) section.*member = sevenBits(value);
    }
    void operator()(i32 S::*member) const {
        if (f64 value = 0; sfzNumber(text, value)) section.*member = saturate<i32>(value);
    }
    void operator()(f32 S::*member) const { real(section.*member); }
    void operator()(SfzEgPlace at) const { real(section.*at.group.*at.member); }
    void operator()(SfzLfoPlace at) const { real(section.*at.group.*at.member); }
    void real(f32& to) const {
        if (f64 value = 0; sfzNumber(text, value)) to = static_cast<f32>(value);
    }
};

struct Getter {
    const SfzSection& section;

    f64 operator()(std::string S::*) const { return 0; }
    f64 operator()(SfzKey key) const { return section.*key.member; }
    f64 operator()(u8 S::*member) const { return section.*member; }
    f64 operator()(i32 S::*member) const { return section.*member; }
    f64 operator()(f32 S::*member) const { return static_cast<f64>(section.*member); }
    f64 operator()(SfzEgPlace at) const { return static_cast<f64>(section.*at.group.*at.member); }
    f64 operator()(SfzLfoPlace at) const { return static_cast<f64>(section.*at.group.*at.member); }
};

} // namespace

bool sfzNumber(std::string_view text, f64& value) {
    if (text.starts_with('+')) text.remove_prefix(1);
    f64 read = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), read);
    if (error == std::errc::invalid_argument || !std::isfinite(read)) return false;
    if (error == std::errc::result_out_of_range) {
        const std::string_view number(text.data(), static_cast<std::size_t>(end - text.data()));
        const bool tiny = number.find("e-") != number.npos || number.find("E-") != number.npos ||
                          number.starts_with("0.") || number.starts_with("-0.");
        read = tiny ? 0 : number.starts_with('-') ? -kMostNumber : kMostNumber;
    }
    value = std::clamp(read, -kMostNumber, kMostNumber);
    return true;
}

u8 sfzKey(std::string_view text, u8 fallback) {
    if (text.empty()) return fallback;
    if (f64 number = 0; sfzNumber(text, number)) return sevenBits(number);
    if (text[0] < 'A') return fallback;
    int key = semitoneOf(text[0]);
    if (key < 0) return 60;
    text.remove_prefix(1);
    if (text.starts_with('#') || text.starts_with('b')) {
        key += text[0] == '#' ? 1 : -1;
        text.remove_prefix(1);
    }
    int octave = 4;
    if (text.starts_with("-1"))
        octave = -1;
    else if (!text.empty() && text[0] >= '0' && text[0] <= '9')
        octave = text[0] - '0';
    return sevenBits((octave + 1) * 12 + key);
}

void SfzOpcode::set(SfzSection& section, std::string_view value) const {
    std::visit(Setter{section, value}, place);
}

f64 SfzOpcode::get(const SfzSection& section) const {
    return std::visit(Getter{section}, place);
}

bool SfzOpcode::isWhole() const {
    return std::holds_alternative<i32 SfzSection::*>(place) || std::holds_alternative<SfzKey>(place) ||
           std::holds_alternative<u8 SfzSection::*>(place);
}

std::span<const SfzOpcode> sfzOpcodes() {
    return kOpcodes;
}

const SfzOpcode* findSfzOpcode(std::string_view name) {
    static const auto kByName = [] {
        std::unordered_map<std::string_view, const SfzOpcode*> names;
        for (const SfzOpcode& row : kOpcodes) {
            names.emplace(row.name, &row);
            if (!row.alias.empty()) names.emplace(row.alias, &row);
        }
        return names;
    }();
    const auto found = kByName.find(name);
    return found == kByName.end() ? nullptr : found->second;
}

} // namespace kv
