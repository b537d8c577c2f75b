#include "shell/kelvane/info_json.h"

#include "midi/song_summary.h"
#include "model/articulation_fields.h"
#include "model/collection.h"
#include "model/instrument.h"
#include "model/song.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "shell/kelvane/field_texts.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/wave_loudness.h"

namespace kv {
namespace {

std::string fieldJson(const ArticulationField& field, const Articulation& record) {
    const f64 value = field.get(record);
    if (field.unit == FieldUnit::Flag) return value != 0 ? "true" : "false";
    return fmt::format("{}", static_cast<f32>(value));
}

class StoreWriter {
public:
    StoreWriter(JsonWriter& json, WaveLoudness* loudness) : json_(json), loudness_(loudness) {}

    void collection(const Collection& collection);
    void instrument(const Instrument& instrument);
    void wave(const Wave& wave);
    void song(const Song& song);
    void model(const SynthModel& model);

    template <class T>
    void all(std::string_view key, void (StoreWriter::*write)(const T&)) {
        json_.beginArray(key);
        for (T& one : store().all<T>()) object(one, write);
        json_.endArray();
    }

private:
    template <class T>
    void object(const T& item, void (StoreWriter::*write)(const T&)) {
        json_.beginObject();
        json_.value("id", item.id());
        json_.value("name", item.name().view());
        json_.value("describe", item.Describe());
        json_.value("dataSize", item.dataSize);
        (this->*write)(item);
        json_.endObject();
    }
    template <class T>
    void children(std::string_view key, const Item& item, void (StoreWriter::*write)(const T&)) {
        json_.beginArray(key);
        for (const ItemId id : item.childIds) {
            if (const T* child = store().Find<T>(id)) object(*child, write);
        }
        json_.endArray();
    }
    void layer(const Layer& layer);
    void region(const Region& region);
    void track(const Track& track);
    void summary(const SongSummary& s);
    void params(const SampleParams& p);
    void articulation(const Articulation& record);
    void loudness(const Wave& wave);

    JsonWriter& json_;
    WaveLoudness* loudness_;
    FieldTexts texts_{fieldJson};
};

void StoreWriter::params(const SampleParams& p) {
    json_.beginLineObject("params");
    json_.value("override", p.override);
    json_.value("rootKey", p.rootKey);
    json_.value("fineTune", p.fineTune);
    json_.value("gainDb", p.gainDb);
    json_.beginLineObject("loop");
    json_.value("start", p.loopStart);
    json_.value("end", p.loopEnd);
    json_.value("flags", p.loopFlags);
    json_.endObject();
    json_.value("dontTruncate", p.dontTruncate);
    json_.value("dontCompress", p.dontCompress);
    json_.value("startOffset", p.startOffset);
    json_.value("endOffset", p.endOffset);
    json_.endObject();
}

/// In the units of the field table; null for a level without a record of its own.
void StoreWriter::articulation(const Articulation& record) {
    if (!record.enabled) return json_.null("articulation");
    json_.beginLineObject("articulation");
    for (std::size_t i = 0; i < articulationFields().size(); ++i) {
        json_.raw(articulationFields()[i].name, texts_.text(i, record));
    }
    json_.endObject();
}

void StoreWriter::collection(const Collection& c) {
    json_.value("id", c.id());
    json_.value("name", c.name().view());
    json_.value("describe", c.Describe());
    json_.value("dataSize", c.dataSize);
    json_.value("fileName", c.fileName.native());
    json_.value("sourceFormat", c.sourceFormat);
    json_.value("engineer", c.engineer.view());
    json_.value("copyright", c.copyright.view());
    json_.value("comments", c.comments.view());
}

void StoreWriter::instrument(const Instrument& i) {
    json_.value("patch", i.patch);
    json_.value("bankMsb", i.bankMsb());
    json_.value("bankLsb", i.bankLsb());
    json_.value("program", i.program());
    json_.value("drumKit", i.drumKit());
    json_.value("comment", i.comment.view());
    articulation(i.articulation);
    children<Layer>("layers", i, &StoreWriter::layer);
}

void StoreWriter::layer(const Layer& l) {
    json_.value("drum", l.drum);
    articulation(l.articulation);
    children<Region>("regions", l, &StoreWriter::region);
}

void StoreWriter::region(const Region& r) {
    json_.beginArray("childIds");
    for (const ItemId id : r.childIds) json_.value({}, id);
    json_.endArray();
    json_.value("keyLow", r.keyLow);
    json_.value("keyHigh", r.keyHigh);
    json_.value("velLow", r.velLow);
    json_.value("velHigh", r.velHigh);
    json_.value("keyGroup", r.keyGroup);
    json_.value("phaseGroup", r.phaseGroup);
    json_.value("phaseMaster", r.phaseMaster);
    json_.value("trigger", r.trigger);
    json_.value("pedalUp", r.pedalUp);
    json_.value("pedalDown", r.pedalDown);
    json_.value("selfNonExclusive", r.selfNonExclusive);
    params(r.params);
    articulation(r.articulation);
}

void StoreWriter::wave(const Wave& w) {
    std::string_view format;
    FormatCodeInfo(w.preferredFormat, &format, nullptr);
    json_.value("channels", w.channels);
    json_.value("frames", w.frames);
    json_.value("sampleRate", w.sampleRate);
    json_.value("bits", w.bits);
    json_.value("dataFormat", w.dataFormat);
    json_.value("preferredFormat", format);
    json_.value("compressedKbps", w.compressedKbps);
    params(w.params);
    json_.beginArray("cuePoints");
    for (const CuePoint& cue : w.cuePoints) {
        json_.beginObject();
        json_.value("position", cue.position);
        json_.value("length", cue.length);
        json_.value("label", cue.label.view());
        json_.value("note", cue.note.view());
        json_.endObject();
    }
    json_.endArray();
    json_.value("artist", w.artist.view());
    json_.value("album", w.album.view());
    json_.value("engineer", w.engineer.view());
    json_.value("copyright", w.copyright.view());
    json_.value("comments", w.comments.view());
    json_.value("sourceFile", w.sourceFile.native());
    json_.value("sourceOffset", w.sourceOffset);
    json_.value("reader", w.reader ? w.reader->name : std::string_view());
    json_.value("reloadable", w.reloadable);
    json_.value("resident", w.resident());
    if (loudness_) loudness(w);
}

/// Null for what could not be measured, and for silence.
void StoreWriter::loudness(const Wave& wave) {
    const std::optional<EbuLoudness> measured = loudness_->of(wave);
    if (!measured) return json_.null("loudness");
    json_.beginLineObject("loudness");
    json_.value("integratedLufs", measured->integrated);
    json_.value("rangeLu", measured->range);
    json_.value("truePeakDbtp", measured->truePeak);
    json_.value("momentaryMaxLufs", measured->momentary);
    json_.value("shortTermMaxLufs", measured->shortTerm);
    json_.endObject();
}

void StoreWriter::track(const Track& t) {
    json_.value("eventCount", t.eventCount);
    json_.value("channelGroup", t.channelGroup);
}

void StoreWriter::summary(const SongSummary& s) {
    json_.value("ticks", s.ticks);
    json_.value("seconds", s.seconds);
    json_.value("notes", s.notes);
    json_.beginArray("channels");
    for (const ChannelUse& use : s.channels) {
        json_.beginObject();
        json_.value("port", use.port);
        json_.value("channel", use.channel + 1);
        json_.value("notes", use.notes);
        json_.beginArray("programs");
        for (const u32 program : use.programs) {
            json_.beginLineObject({});
            json_.value("bankMsb", program >> 14);
            json_.value("bankLsb", program >> 7 & 0x7F);
            json_.value("program", program & 0x7F);
            json_.endObject();
        }
        json_.endArray();
        json_.endObject();
    }
    json_.endArray();
}

void StoreWriter::song(const Song& s) {
    json_.value("smfFormat", s.smfFormat);
    json_.value("division", s.division);
    json_.value("eventCount", s.eventCount);
    json_.value("artist", s.artist.view());
    json_.value("engineer", s.engineer.view());
    json_.value("copyright", s.copyright.view());
    json_.value("product", s.product.view());
    json_.value("comments", s.comments.view());
    summary(summarize(s));
    children<Track>("tracks", s, &StoreWriter::track);
}

void StoreWriter::model(const SynthModel& m) {
    json_.value("modelType", m.modelType);
}

} // namespace

void writeStore(JsonWriter& json, WaveLoudness* loudness) {
    StoreWriter writer(json, loudness);
    if (const Collection* collection = store().First<Collection>()) {
        json.beginObject("collection");
        writer.collection(*collection);
        json.endObject();
    } else {
        json.null("collection");
    }
    writer.all<Instrument>("instruments", &StoreWriter::instrument);
    writer.all<Wave>("waves", &StoreWriter::wave);
    writer.all<Song>("songs", &StoreWriter::song);
    writer.all<SynthModel>("models", &StoreWriter::model);
}

} // namespace kv
