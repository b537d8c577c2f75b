#pragma once

#include "formats/banks/soundfont/sf_zone.h"
#include "formats/format_test.h"

namespace kv::test {

struct TestZone {
    std::vector<std::pair<u16, int>> generators;
    std::vector<SfModulator> modulators{};
};
struct TestGroup {
    std::string name;
    std::vector<TestZone> zones;
    u16 program = 0, bank = 0;
};
struct TestSample {
    std::string name;
    u32 start = 0, end = 0, loopStart = 0, loopEnd = 0;
    u8 rootKey = 60;
    i8 correction = 0;
    u16 link = 0, type = 1;
    u32 rate = 44100;
};

inline int range(int low, int high) {
    return low | high << 8;
}

/// A SoundFont put together by hand, so that readers are not tested with what our writer thinks.
struct TestBank {
    std::vector<TestGroup> presets, instruments;
    std::vector<TestSample> samples;
    std::vector<i16> points = std::vector<i16>(1000, 5);
    Bytes low{}; ///< sm24
    u16 major = 2;
    bool terminals = true, padding = true;

    /// One preset, one instrument, one sample, with the given zones.
    static TestBank simple(TestZone presetZone, std::vector<TestZone> instrumentZones) {
        presetZone.generators.emplace_back(41, 0);
        TestBank bank;
        bank.presets = {{"P", {presetZone}}};
        bank.instruments = {{"I", std::move(instrumentZones)}};
        bank.samples = {{"S", 0, 500, 10, 400}};
        return bank;
    }

    Bytes build() const {
        ByteWriter info, data, tables;
        chunk(info, "ifil", ByteWriter().u16le(major).u16le(1).view());
        chunk(info, "INAM", bytesOf("Bank\0\0"));
        ByteWriter smpl;
        for (const i16 point : points) smpl.u16le(static_cast<u16>(point));
        chunk(data, "smpl", smpl.view());
        if (!low.empty()) chunk(data, "sm24", low);
        groups(tables, presets, true);
        groups(tables, instruments, false);
        ByteWriter shdr;
        for (const TestSample& s : samples) {
            name(shdr, s.name);
            shdr.u32le(s.start).u32le(s.end).u32le(s.loopStart).u32le(s.loopEnd).u32le(s.rate);
            shdr.u8le(s.rootKey).u8le(static_cast<u8>(s.correction)).u16le(s.link).u16le(s.type);
        }
        if (terminals) {
            name(shdr, "EOS");
            shdr.fill(26);
        }
        chunk(tables, "shdr", shdr.view());
        ByteWriter lists;
        list(lists, "INFO", info);
        list(lists, "sdta", data);
        list(lists, "pdta", tables);
        return riff(lists.view(), "RIFF", "sfbk");
    }

private:
    void chunk(ByteWriter& out, std::string_view id, ByteSpan bytes) const {
        out.text(id).u32le(static_cast<u32>(bytes.size())).bytes(bytes).fill(padding ? bytes.size() % 2 : 0);
    }
    static void list(ByteWriter& out, std::string_view type, const ByteWriter& contents) {
        out.text("LIST").u32le(static_cast<u32>(contents.size() + 4)).text(type).bytes(contents.view());
    }
    static void name(ByteWriter& out, std::string_view text) { out.text(text).fill(20 - text.size()); }

    void groups(ByteWriter& tables, const std::vector<TestGroup>& list, bool presetTables) const {
        ByteWriter names, bags, mods, gens;
        u16 bagCount = 0, modCount = 0, genCount = 0;
        for (const TestGroup& group : list) {
            name(names, group.name);
            if (presetTables) names.u16le(group.program).u16le(group.bank);
            names.u16le(bagCount).fill(presetTables ? 12 : 0);
            for (const TestZone& zone : group.zones) {
                bags.u16le(genCount).u16le(modCount);
                ++bagCount;
                for (const auto& [number, amount] : zone.generators) {
                    gens.u16le(number).u16le(static_cast<u16>(amount));
                    ++genCount;
                }
                for (const SfModulator& m : zone.modulators) {
                    mods.u16le(m.source).u16le(m.destination).u16le(static_cast<u16>(m.amount));
                    mods.u16le(m.amountSource).u16le(m.transform);
                    ++modCount;
                }
            }
        }
        if (terminals) {
            name(names, presetTables ? "EOP" : "EOI");
            names.fill(presetTables ? 4 : 0).u16le(bagCount).fill(presetTables ? 12 : 0);
            bags.u16le(genCount).u16le(modCount);
            mods.fill(10);
            gens.fill(4);
        }
        chunk(tables, presetTables ? "phdr" : "inst", names.view());
        chunk(tables, presetTables ? "pbag" : "ibag", bags.view());
        chunk(tables, presetTables ? "pmod" : "imod", mods.view());
        chunk(tables, presetTables ? "pgen" : "igen", gens.view());
    }
};

} // namespace kv::test
