#include "formats/table/format_table_rows.h"

#include <iterator>

#include "formats/audio/chunked/aiff.h"
#include "formats/audio/chunked/au.h"
#include "formats/audio/chunked/caf.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/packed/aac.h"
#include "formats/audio/packed/amr.h"
#include "formats/audio/packed/flac.h"
#include "formats/audio/packed/mpeg.h"
#include "formats/audio/packed/ogg.h"
#include "formats/audio/packed/wavpack.h"
#include "formats/audio/raw.h"
#include "formats/audio/raw_coded.h"
#include "formats/audio/various/various_files.h"
#include "formats/audio/wav_reader.h"
#include "formats/audio/wav_writer.h"
#include "formats/audio/wave64.h"
#include "formats/banks/dls/dls_reader.h"
#include "formats/banks/dls/dls_writer.h"
#include "formats/banks/dls/rmid.h"
#include "formats/banks/sfz/sfz_reader.h"
#include "formats/banks/sfz/sfz_writer.h"
#include "formats/banks/soundfont/sf_reader.h"
#include "formats/banks/soundfont/sf_writer.h"
#include "formats/codecs/sndfile_stream.h"
#include "formats/media/media_export.h"
#include "formats/media/media_import.h"
#include "formats/media/media_kinds.h"
#include "formats/songs/smf.h"
#include "formats/table/signatures.h"
#include "model/item_id.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr auto R = RowUse::Read, W = RowUse::Write, RW = RowUse::ReadWrite;

// What the rows hold.
constexpr u32 kWave = kWaveClass;
constexpr u32 kInstrument = kInstrumentClass;
constexpr u32 kSong = kSongClass;
constexpr u32 kSongTracks = kSongClass | kTrackClass;
constexpr u32 kOwn = kCollectionClass; // modules, images, banks: only as a whole
constexpr u32 kInstruments = kCollectionClass | kInstrumentClass;
constexpr u32 kChipSong = kCollectionClass | kSongClass | kInstrumentClass; // a song with its FM voices
constexpr u32 kWaveOrInstrument = kInstrumentClass | kWaveClass;
constexpr u32 kLayerOrInstrument = kInstrumentClass | kLayerClass;
constexpr u32 kWaveToInstrument = kInstrumentClass | kLayerClass | kWaveClass;
constexpr u32 kFullInstrument = kInstrumentClass | kLayerClass | kRegionClass | kWaveClass;
constexpr u32 kWaveBank = kCollectionClass | kInstrumentClass | kWaveClass;
constexpr u32 kLayerBank = kCollectionClass | kInstrumentClass | kLayerClass;
constexpr u32 kFullBank = kCollectionClass | kFullInstrument;
constexpr u32 kAnyItem = kAllClasses;

constexpr u32 negative(u32 value) {
    return 0 - value;
}

/// The header's size and the bits of a sample, which are always the same.
constexpr DetectFn kSoundDesigner = magicPair<"\x05\x38", "\x00\x10", 1028, 0>;
constexpr DetectFn kSampledVoice = eitherForm<"FORM", "8SVX", "16SV">;
constexpr u32 kMediaMask = kCompressed | kMonoBit | kStereoBit;

constexpr DetectFn kAsf = magic<"\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C">;

// extension, description, use, classes, data mask, sub-type, detect, import, export, streams, options,
// per wave: a row ends behind the last field that isn't the default.
//
// Settled are the extensions, descriptions, uses and order of all rows; the sub-types that stand here; the
// masks of the PCM, law and float rows, wav, w64, g726, sfz, sf2, xi, iti and s3i; the classes of wav, sf2,
// dls w, sfz w, xi, iti, s3i, mid, rmi w and of the text descriptions. All else is inferred from what such
// files hold and may change when a format is built: the other masks and classes, the per-wave flags, and
// which rows without a known signature are headerless (detectAlways2) rather than not described yet.
// clang-format off
constexpr FormatRow kRows[] = {
    {"*", "Unrecognized", R, kWave, 0, 0, detectAlways2, unrecognized_Imp},

    {"32", "Raw Yamaha DX7 voice", R, kInstrument, 0, 0, detectAlways2},
    {"3g2", "3GPP project 2", RW, kWave, kMediaMask, kMedia3g2, magic<"ftyp3g2", 4>, media_Imp, media_Exp, false, media_Options},
    {"3gp", "3GPP", RW, kWave, kMediaMask, kMedia3gp, magic<"ftyp3gp", 4>, media_Imp, media_Exp, false, media_Options},

    {"404", "Muon DS404 bank", RW, kInstruments, 0xC000004},
    {"404", "Muon DS404 patch", RW, kInstrument, 0xC000004},

    {"669", "669 module", R, kOwn, 0, 0, eitherMagic<"if", "JN">},

    {"a3s", "Yamaha A3000 sample", R, kWave},
    {"aac", "MPEG 2/4 AAC", R, kWave, 0, 0, aacStream, aac_Imp},
    {"aac", "MPEG 2 AAC - Low Complexity", W, kWave, kMediaMask, kMediaAacMpeg2, nullptr, nullptr, media_Exp, true, media_Options},
    {"aac", "MPEG 2 AAC - Main Profile", W, kWave, kMediaMask, kMediaAacMpeg2Main, nullptr, nullptr, media_Exp, true, media_Options},
    {"aac", "MPEG 4 AAC - Low Complexity", W, kWave, kMediaMask, kMediaAac, nullptr, nullptr, media_Exp, true, media_Options},
    {"aac", "MPEG 4 AAC - Main Profile", W, kWave, kMediaMask, kMediaAacMain, nullptr, nullptr, media_Exp, true, media_Options},
    {"afc", "Compressed AIFF", R, kWave, 0, 0, form<"FORM", "AIFC">, aif_Imp},
    {"aif", "Audio interchange", RW, kWave, 0xC0003F5, 0, aiffForm, aif_Imp, aif_Exp, true},
    {"aiff", "Audio interchange", RW, kWave, 0xC0003F5, 0, aiffForm, aif_Imp, aif_Exp, true},
    {"aifc", "Compressed AIFF", R, kWave, 0, 0, form<"FORM", "AIFC">, aif_Imp},
    {"ais", "Velvet Studio instrument", R, kInstrument},
    {"akai", "AKAI S-series disk image", R, kOwn},
    {"akp", "AKAI S5000 program", RW, kFullInstrument, 0xC000014, 0, form<"RIFF", "APRG">},
    {"alaw", "G.711 A-law", RW, kWave, 0xC080200, 0, detectAlways2, raw_Imp<kALaw>, raw_Exp, true},
    {"alw", "G.711 A-law", RW, kWave, 0xC080200, 0, detectAlways2, raw_Imp<kALaw>, raw_Exp, true},
    {"amr", "MIME AMR file storage", RW, kWave, 0x5000000, kMediaAmr, magic<"#!AMR">, media_Imp,
     amr_Exp, true, amr_Options},
    {"ams", "Extreme Tracker module", R, kOwn, 0, 0, magic<"Extreme">},
    {"ams", "Velvet Studio module", R, kOwn, 0, 0, magic<"AMShdr\x1A">},
    {"ape", "Monkey Audio lossless", RW, kWave, 0xC000015, kMediaApe, magic<"MAC ">, media_Imp},
    {"apex", "AVM Sample Studio bank", RW, kInstruments, 0xC000004},
    {"arl", "Aureal 'Aspen' bank", RW, kWaveBank, 0x4000005},
    {"ase", "Velvet Studio sample", R, kWave},
    {"asf", "ActiveMovie streaming", R, kWave, 0, kMediaAsf, kAsf, media_Imp},
    {"atak??", "Soundscape audio-take", R, kWave},
    {"atak1a", "Soundscape audio-take", W, kWave, 0x4000004},
    {"au", "Sun/NeXT/DEC audio", RW, kWave, 0xC0003F5, 0, sunAudio, au_Imp, au_Exp, true},
    {"avi", "Audio video interleave", R, kWave, 0, kMediaAvi, form<"RIFF", "AVI ">, media_Imp},
    {"avr", "Audio Visual Research", R, kWave, 0, 0, magic<"2BIT">, avr_Imp},

    {"bn4", "Yamaha DX100/DX21/DX27 voice SysEx", R, kInstruments},
    {"bnk", "AdLib bank", R, kOwn},
    {"bnk", "Yamaha DX100/DX21/DX27 voice SysEx", R, kInstruments},
    {"bnk", "Yamaha DX11/TX81z voice SysEx", R, kInstruments},
    {"bwf", "Broadcast wave", R, kWave, 0, 0, broadcastWave, wav_Imp},

    {"c01", "Typhoon wave", R, kWave},
    {"caf", "Apple CoreAudio", RW, kWave, 0xC0003F5, 0, magic<"caff">, caf_Imp, caf_Exp, true},
    {"caff", "Apple CoreAudio", R, kWave, 0, 0, magic<"caff">, caf_Imp},
    {"cda", "Audio CD track", R, kWave, 0, 0, form<"RIFF", "CDDA">},
    {"cdr", "Audio CD raw data", R, kWave, 0, 0, detectAlways2, fixed_Imp<FixedLayout::CdRaw>},
    {"cmf", "Creative Labs music", R, kChipSong, 0, 0, magic<"CTMF">},
    {"cod", "3GPP AMR if-format 2'", RW, kWave, 0x5000000, kMediaAmrIf2, detectAlways2, media_Imp,
     cod_Exp, true, amr_Options},

    {"dcm", "DCM module", R, kOwn, 0, 0, magicPair<"WUFF", "DCMw", 4, kWeakSignature>},
    {"dvd-16-44", "LPCM 16-bit 44kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<16, 44100>},
    {"dvd-16-48", "LPCM 16-bit 48kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<16, 48000>},
    {"dvd-16-96", "LPCM 16-bit 96kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<16, 96000>},
    {"dvd-16-192", "LPCM 16-bit 192kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<16, 192000>},
    {"dvd-24-44", "LPCM 24-bit 44kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<24, 44100>},
    {"dvd-24-48", "LPCM 24-bit 48kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<24, 48000>},
    {"dvd-24-96", "LPCM 24-bit 96kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<24, 96000>},
    {"dvd-24-192", "LPCM 24-bit 192kHz stereo", R, kWave, 0, 0, detectAlways2, dvd_Imp<24, 192000>},
    {"dewf", "SoundCap/SoundEdit", R, kWave},
    {"dig", "Digilink", R, kWave},
    {"dig", "Sound Designer I", R, kWave, 0, 0, kSoundDesigner, sd1_Imp},
    {"dlp", "DirectMusic Producer", R, kOwn},
    {"dls", "DownLoadable Sounds", R, kOwn, 0, 0, form<"RIFF", "DLS ">, dls_Imp},
    {"dls", "DownLoadable Sounds level 1", W, kFullBank, 0x4000005, 1, nullptr, nullptr, dls_Exp, true},
    {"dls", "DownLoadable Sounds level 2", W, kFullBank, 0x4000005, 2, nullptr, nullptr, dls_Exp, true},
    {"dls", "DownLoadable Sounds level 2+", W, kFullBank, 0x5007F75, 3, nullptr, nullptr, dls_Exp, true, nullptr, true},
    {"dls", "DownLoadable Sounds level 2++", W, kFullBank, 0xD007F75, 4, nullptr, nullptr, dls_Exp, true, nullptr, true},
    {"dls", "Mobile DLS - 'minimal' device caps", W, kFullBank, 0x4000005, negative(2), nullptr, nullptr, dls_Exp, true},
    {"dls", "Mobile DLS - 'full' device caps", W, kFullBank, 0x4000005, negative(3), nullptr, nullptr, dls_Exp, true},
    {"dmf", "XTracker module", R, kOwn, 0, 0, magic<"DDMF">},
    {"dmg", "ChkSys AKAI S-series", R, kOwn},
    {"dr8", "FXpansion DR-008 drums", R, kInstrument},
    {"dr8", "FXpansion DR-008 drums, Embedded WAVs", W, kInstrument, 0xC000014},
    {"dr8", "FXpansion DR-008 drums, External WAVs", W, kInstrument, 0xC000014},
    {"dro", "DOSBox Raw OP", R, kChipSong, 0, 0, magic<"DBRAWOPL">},
    {"dsf", "XTracker sample", R, kWave},
    {"dsm", "Digital Sound Module", R, kOwn, 0, 0, form<"RIFF", "DSMF">},
    {"dtm", "DigiTrekker module", R, kOwn, 0, 0, magic<"SONG", 0, kWeakSignature>},
    {"dwd", "DiamondWare digitized", RW, kWave, 0xC000005, 0, magic<"DiamondWare Digitized">, dwd_Imp, dwd_Exp, true},
    {"dx7", "Yamaha DX7 voice SysEx", R, kInstruments, 0, 0, sysEx<0x43, 0x09>},
    {"dx7", "Raw Yamaha DX7 32-voice", R, kInstruments, 0, 0, detectAlways2},

    {"eda", "Ensoniq ASR disk image", R, kOwn},
    {"ede", "Ensoniq EPS disk image", R, kOwn},
    {"edk", "Ensoniq KT disk image", R, kOwn},
    {"edm", "Ensoniq Mirage disk image", R, kOwn},
    {"edq", "Ensoniq SQ1/SQ2/KS32 disk image", R, kOwn},
    {"edv", "Ensoniq VFX-SD disk image", R, kOwn},
    {"edx", "Ensoniq disk image", R, kOwn},
    {"efa", "Ensoniq ASR instrument", R, kInstrument},
    {"efe", "Ensoniq EPS instrument", RW, kInstrument, 0x4000004},
    {"efk", "Ensoniq KT instrument", R, kInstrument},
    {"efq", "Ensoniq SQ1/SQ2/KS32 instrument", R, kInstrument},
    {"efs", "Ensoniq SQ80 instrument", R, kInstrument},
    {"efv", "Ensoniq VFX-SD instrument", R, kInstrument},
    {"efx", "Ensoniq instrument", R, kInstrument},
    {"emb", "Everest embedded bank", R, kOwn},
    {"emd", "ABT extended module", R, kOwn, 0, 0, magic<"EMOD">},
    {"emy", "EMelody ring-tone", RW, kSongTracks, 0x2000000, 0, magic<"BEGIN:EMELODY">},
    {"emy", "EMelody simplified", W, kSongTracks, 0x2000000},
    {"esps", "ESPS", R, kWave},
    {"eui", "Ensoniq EPS/ASR-10 disk image", R, kOwn},
    {"exs", "Logic EXS24 instrument", RW, kFullInstrument, 0xC000035},

    {"f2r", "Farandoyle linear module", R, kOwn, 0, 0, magic<"F2R">},
    {"f32", "Floating point (32-bit)", RW, kWave, 0xC000040, 0, detectAlways2, raw_Imp<kFloat32>, raw_Exp, true},
    {"f3r", "Farandole blocked linear module", R, kOwn, 0, 0, magic<"F3R">},
    {"f64", "Floating point (64-bit)", RW, kWave, 0xC000080, 0, detectAlways2, raw_Imp<kFloat64>, raw_Exp, true},
    {"far", "Farandoyle module", R, kOwn, 0, 0, magic<"FAR\xFE">},
    {"fff", "Gravis UltraSound PnP", RW, kWaveBank, 0x4000005},
    {"flac", "Free lossless audio codec", R, kWave, 0, 0, flacStream, flac_Imp},
    {"flac", "Free lossless audio codec (default)", W, kWave, 0xC000015, kFlacDefault, nullptr, nullptr, flac_Exp, true},
    {"flac", "Free lossless audio codec (max comp)", W, kWave, 0xC000015, kFlacMost, nullptr, nullptr, flac_Exp, true},
    {"fnk", "FunkTracker module", R, kOwn, 0, 0, magic<"Funk">},
    {"for", "Kurzweil Forte", R, kOwn},
    {"fsb", "FMOD SoundSystem bank", R, kOwn, 0, 0, magic<"FSB">},
    {"fse", "Kurzweil Forte SE", R, kOwn},
    {"fsm", "Farandoyle sample", R, kWave},
    {"fzb", "Casio FZ-1 bank dump", RW, kInstruments, 0x4000004},
    {"fzf", "Casio FZ-1 full dump", RW, kWaveBank, 0x4000004},
    {"fzv", "Casio FZ-1 voice dump", RW, kWaveOrInstrument, 0x4000004},

    {"g721", "G.721 ADPCM", R, kWave, 0, 4, detectAlways2, coded_Imp<RawCoding::G721>},
    {"g721", "G.721 ADPCM - Big Endian", W, kWave, 0x4002000, 0x104, nullptr, nullptr, coded_Exp<RawCoding::G721>, true},
    {"g721", "G.721 ADPCM - Little Endian", W, kWave, 0x4002000, 4, nullptr, nullptr, coded_Exp<RawCoding::G721>, true},
    {"g721-4", "G.721 4-bit ADPCM", R, kWave, 0, 4, detectAlways2, coded_Imp<RawCoding::G721>},
    {"g721-4", "G.721 ADPCM - Big Endian", W, kWave, 0x4002000, 0x104, nullptr, nullptr, coded_Exp<RawCoding::G721>, true},
    {"g721-4", "G.721 ADPCM - Little Endian", W, kWave, 0x4002000, 4, nullptr, nullptr, coded_Exp<RawCoding::G721>, true},
    {"g722", "G.726 ADPCM", R, kWave, 0, 0, detectAlways2, coded_Imp<RawCoding::G722>},
    {"g722", "G.726 ADPCM - Big Endian", W, kWave, 0x5000000, 0x100, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722", "G.726 ADPCM - Little Endian", W, kWave, 0x5000000, 0, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722-6", "G.726 48 kbit/s ADPCM", R, kWave, 0, 6, detectAlways2, coded_Imp<RawCoding::G722>},
    {"g722-6", "G.726 48 kbit/s ADPCM - Big Endian", W, kWave, 0x5000000, 0x106, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722-6", "G.726 48 kbit/s ADPCM - Little Endian", W, kWave, 0x5000000, 6, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722-7", "G.726 56 kbit/s ADPCM", R, kWave, 0, 7, detectAlways2, coded_Imp<RawCoding::G722>},
    {"g722-7", "G.726 56 kbit/s ADPCM - Big Endian", W, kWave, 0x5000000, 0x107, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722-7", "G.726 56 kbit/s ADPCM - Little Endian", W, kWave, 0x5000000, 7, nullptr, nullptr, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g722-8", "G.726 64 kbit/ ADPCM", RW, kWave, 0x5000000, 8, detectAlways2, coded_Imp<RawCoding::G722>, coded_Exp<RawCoding::G722>, true, g722_Options},
    {"g723", "G.723 ADPCM", R, kWave, 0, 0, detectAlways2, coded_Imp<RawCoding::G723>},
    {"g723", "G.723 ADPCM - Big Endian", W, kWave, 0x4005000, 0x100, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g723", "G.723 ADPCM - Little Endian", W, kWave, 0x4005000, 0, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g723-3", "G.723 3-bit ADPCM", R, kWave, 0, 3, detectAlways2, coded_Imp<RawCoding::G723>},
    {"g723-3", "G.723 3-bit ADPCM - Big Endian", W, kWave, 0x4001000, 0x103, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g723-3", "G.723 3-bit ADPCM - Little Endian", W, kWave, 0x4001000, 3, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g723-5", "G.723 5-bit ADPCM", R, kWave, 0, 5, detectAlways2, coded_Imp<RawCoding::G723>},
    {"g723-5", "G.723 5-bit ADPCM - Big Endian", W, kWave, 0x4004000, 0x105, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g723-5", "G.723 5-bit ADPCM - Little Endian", W, kWave, 0x4004000, 5, nullptr, nullptr, coded_Exp<RawCoding::G723>, true},
    {"g726", "G.726 ADPCM", R, kWave, 0, 0, detectAlways2, coded_Imp<RawCoding::G726>},
    {"g726", "G.726 ADPCM - Big Endian", W, kWave, 0x4007800, 0x100, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726", "G.726 ADPCM - Little Endian", W, kWave, 0x4007800, 0, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-2", "G.726 2-bit ADPCM", R, kWave, 0, 2, detectAlways2, coded_Imp<RawCoding::G726>},
    {"g726-2", "G.726 2-bit ADPCM - Big Endian", W, kWave, 0x4000800, 0x102, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-2", "G.726 2-bit ADPCM - Little Endian", W, kWave, 0x4000800, 2, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-3", "G.726 3-bit ADPCM", R, kWave, 0, 3, detectAlways2, coded_Imp<RawCoding::G726>},
    {"g726-3", "G.726 3-bit ADPCM - Big Endian", W, kWave, 0x4001000, 0x103, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-3", "G.726 3-bit ADPCM - Little Endian", W, kWave, 0x4001000, 3, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-4", "G.726 4-bit ADPCM", R, kWave, 0, 4, detectAlways2, coded_Imp<RawCoding::G726>},
    {"g726-4", "G.726 4-bit ADPCM - Big Endian", W, kWave, 0x4002000, 0x104, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-4", "G.726 4-bit ADPCM - Little Endian", W, kWave, 0x4002000, 4, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-5", "G.726 5-bit ADPCM", R, kWave, 0, 5, detectAlways2, coded_Imp<RawCoding::G726>},
    {"g726-5", "G.726 5-bit ADPCM - Big Endian", W, kWave, 0x4004000, 0x105, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"g726-5", "G.726 5-bit ADPCM - Little Endian", W, kWave, 0x4004000, 5, nullptr, nullptr, coded_Exp<RawCoding::G726>, true},
    {"gdm", "Bells, Whistles, Sound Boards module", R, kOwn, 0, 0, magicPair<"GDM\xFE", "GMFS", 71, kNotRuledOut>},
    {"gig", "GigaStudio/GigaSampler", R, kOwn, 0, 0, form<"RIFF", "DLS ", kWeakSignature>},
    {"gig", "GigaStudio v1 - Normal", W, kWaveBank, 0xC000004},
    {"gig", "GigaStudio v1 - Compressed", W, kWaveBank, 0xC000004},
    {"gig", "GigaStudio v3 - Normal", W, kWaveBank, 0xC000014},
    {"gig", "GigaStudio v3 - Compressed", W, kWaveBank, 0xC000014},
    {"gi!", "GigaStudio/GSImport split", R, kOwn},
    {"gkh", "Ensoniq EPS disk image", R, kOwn},
    {"gsm", "Raw GSM 06.10", RW, kWave, 0x4000400, 0, detectAlways2, coded_Imp<RawCoding::GsmDouble>, coded_Exp<RawCoding::GsmDouble>, true},
    {"gsm", "Raw GSM 06.10 'byte aligned'", RW, kWave, 0x4000400, 0, detectAlways2, coded_Imp<RawCoding::GsmPlain>, coded_Exp<RawCoding::GsmPlain>, true},
    {"gsm", "USR GSM without header", RW, kWave, 0x4000400, 0, detectAlways2, coded_Imp<RawCoding::UsrGsm>, coded_Exp<RawCoding::UsrGsm>, true},
    {"gsm", "USR GSM without header (alternative)", W, kWave, 0x4000400, 0, nullptr, nullptr, coded_Exp<RawCoding::UsrGsmB>, true},
    {"gsm", "USR GSM with header", RW, kWave, 0x4000400, kWavSubUsrGsm, waveOfTag<0x0303>, wav_Imp, wav_Exp, true},

    {"hcom", "Sound Tools HCOM", R, kWave, 0, 0, magicAtEither<"HCOM", 0, 128>, hcom_Imp},
    {"hd", "PlayStation 2 SCEI set", R, kOwn},

    {"ibk", "Creative FM bank", R, kOwn, 0, 0, magic<"IBK\x1A">},
    {"iff", "Interchange file format", RW, kWave, 0xC000001, 0, kSampledVoice, svx_Imp, svx_Exp, true},
    {"imf", "id Software Music Format (560Hz)", R, kChipSong, 0, 0, detectAlways2},
    {"img", "Ensoniq EPS/ASR-10 disk image", R, kOwn},
    {"imy", "iMelody ring-tone format", R, kSong, 0, 0, magic<"BEGIN:IMELODY">},
    {"imy", "iMelody ring-tone - Full v1.2", W, kSongTracks, 0x2000000},
    {"imy", "iMelody - Simplified v1.0", W, kSongTracks, 0x2000000},
    {"ini", "Gravis ini bank setup + .PAT's", RW, kWaveBank, 0x4000005},
    {"ini", "IBM MWave DSP synth", R, kInstruments},
    {"inrs", "INRS-Telecommunications", R, kWave},
    {"ins", "Ad Lib instrument", R, kInstrument},
    {"ins", "Ensoniq EPS intrument", RW, kInstrument, 0x4000004},
    {"ins", "Sample Cell II Mac", RW, kInstrument, 0xC000004},
    {"ins", "Sample Cell II PC", RW, kInstrument, 0xC000004},
    {"ins", "Cakewalk instrument definition", W, kInstruments},
    {"ist", "Digitrakker insrument", R, kInstrument},
    {"it", "Impulse Tracker module", R, kOwn, 0, 0, impulseTracker},
    {"iti", "Impulse Tracker instrument", RW, kWaveOrInstrument, 0xC000005, 0, impulseTracker},
    {"its", "Impulse Tracker sample", RW, kWave, 0xC000005, 0, impulseTracker},

    {"kawai12", "KAWAI R-series ROM-dump", RW, kWave, 0x4000002, 0, detectAlways2},
    {"k25", "Kurzweil K2500", R, kOwn},
    {"k26", "Kurzweil K2600", R, kOwn},
    {"kdt", "Konami KDT1 song", R, kSong},
    {"kft", "Korg T-series wave", R, kWave},
    {"kit", "NI Battery v1 drums", RW, kInstrument, 0xC000035},
    {"kmp", "Korg keymap", R, kInstrument, 0, 0, magic<"MSP1">},
    {"kmp", "Korg Trinity keymap", W, kLayerOrInstrument, 0xC000005, 0x3B},
    {"kmp", "Korg Triton keymap", W, kLayerOrInstrument, 0xC000005, 0x50},
    {"kmp", "Korg M3 keymap", W, kLayerOrInstrument, 0xC000005, 0x75},
    {"kmp", "Korg Kronos keymap", W, kLayerOrInstrument, 0xC000005, 0x68},
    {"kr1", "Kurzweil K2000/K2500/K2600 split", RW, kLayerBank, 0xC000004},
    {"krz", "Kurzweil K2000 file", R, kOwn, 0, 0, magic<"PRAM">},
    {"krz", "Kurzweil K2000/K2500/K2600", W, kLayerBank, 0xC000004},
    {"ksc", "Korg script", R, kOwn, 0, 0, magic<"#KORG Script Version 1.0">},
    {"ksc", "Korg Trinity script", W, kInstruments, 0xC000005, 0x3B},
    {"ksc", "Korg Triton script", W, kInstruments, 0xC000005, 0x50},
    {"ksc", "Korg M3 script", W, kInstruments, 0xC000005, 0x75},
    {"ksc", "Korg Kronos script", W, kInstruments, 0xC000005, 0x68},
    {"ksf", "Korg sample", R, kWave, 0, 0, magic<"SMP1">},
    {"ksf", "Korg Trinity sample", W, kWave, 0xC000005, 0x3B},
    {"ksf", "Korg Triton sample", W, kWave, 0xC000005, 0x50},
    {"ksf", "Korg M3 sample", W, kWave, 0xC000005, 0x75},
    {"ksf", "Korg Kronos sample", W, kWave, 0xC000005, 0x68},

    {"m4a", "iTunes MPEG-4 audio", RW, kWave, kMediaMask | kPcm16 | kPcm24, kMediaM4a, magic<"ftypM4A", 4>, media_Imp, media_Exp, false, media_Options},
    {"m4r", "iPhone ring-tone", RW, kWave, kMediaMask, kMediaM4r, magic<"ftypM4A", 4>, media_Imp, media_Exp, false, media_Options},
    {"map", "NI Reaktor", R, kInstrument},
    {"map", "NI Reaktor - Embedded", W, kInstrument, 0xC000014},
    {"map", "NI Reaktor - Linked", W, kInstrument, 0xC000014},
    {"mat", "Matlab binary vars", RW, kWave, 0xC0000E4, 0, matlabAudio, sndfile_Imp, sndfile_Exp<SndfileFormat::Mat5>},
    {"maud", "MAUD sample", R, kWave, 0, 0, form<"FORM", "MAUD">, maud_Imp},
    {"mdl", "Digitrakker module", R, kOwn, 0, 0, magic<"DMDL">},
    {"med", "OctaMED module", R, kOwn, 0, 0, magic<"MMD">},
    {"mid", "Standard MIDI", RW, kSongTracks, 0x2000000, negative(1), magic<"MThd">, mid_Imp, mid_Exp, true},
    {"mka", "Matriska audio", R, kWave, 0, kMediaMatroska, magic<"\x1A\x45\xDF\xA3">, media_Imp},
    {"mkv", "Matriska video", R, kWave, 0, kMediaMatroska, magic<"\x1A\x45\xDF\xA3">, media_Imp},
    {"mld", "i-Melody", R, kSong, 0, 0, magic<"melo">},
    {"mls", "Miles Sound System", R, kOwn},
    {"mmf", "Synthetic music mobile", R, kSong, 0, 0, magic<"MMMD">},
    {"mod", "Tracker module", R, kOwn, 0, 0, protrackerModule},
    {"mov", "Apple QuickTime movie", RW, kWave, kMediaMask | kPcm16 | kPcm24, kMediaMov, quickTime, media_Imp, media_Exp, false, media_Options},
    {"mp1", "MPEG layer I", R, kWave, 0, 0, mpegLayer<1>, mpeg_Imp},
    {"mp2", "MPEG layer II", R, kWave, 0, 0, mpegLayer<2>, mpeg_Imp},
    {"mp2", "MPEG layer II - CBR", W, kWave, 0xD000000, 0, nullptr, nullptr, mp2_Exp, true, mp2_Options},
    {"mp3", "MPEG layer III", R, kWave, 0, 0, mpegLayer<3>, mpeg_Imp},
    {"mp3", "MPEG layer III - CBR", W, kWave, 0xD000000, kMp3Constant, nullptr, nullptr, mp3_Exp, true, mp3_Options},
    {"mp3", "MPEG layer III - ABR", W, kWave, 0xD000000, kMp3Average, nullptr, nullptr, mp3_Exp, true, mp3_Options},
    {"mp3", "MPEG layer III - VBR", W, kWave, 0xD000000, kMp3Variable, nullptr, nullptr, mp3_Exp, true, mp3_Options},
    {"mp4", "MPEG-4 base media", RW, kWave, kMediaMask, kMediaMp4, magic<"ftyp", 4, kWeakSignature>, media_Imp, media_Exp, false, media_Options},
    {"mpa", "MPEG audio", R, kWave, 0, 0, mpegLayer<0>, mpeg_Imp},
    {"mpg", "MPEG audio", R, kWave, 0, 0, mpegLayer<0>, mpeg_Imp},
    {"mpeg", "MPEG system stream", R, kWave, 0, kMediaMpeg, magic<"\0\0\1\xBA">, media_Imp},
    {"mpg", "MPEG system stream", R, kWave, 0, kMediaMpeg, magic<"\0\0\1\xBA">, media_Imp},
    {"mss", "MSS DLS 1 + XMI", RW, kSongTracks, 0x2000000},
    {"mt2", "MadTracker 2 module", R, kOwn, 0, 0, magic<"MT20">},
    {"mti", "MadTracker 2 instrument", RW, kWaveOrInstrument, 0xC000005},
    {"mtm", "MultiTracker module", R, kOwn, 0, 0, magic<"MTM">},
    {"mus", "Doom/Heretic music", R, kSong, 0, 0, magic<"MUS\x1A">},
    {"mus", "Musifile MPEG layer II", R, kWave},
    {"mus10", "Mus10", R, kWave},
    {"mws", "IBM MWave DSP synth extract", W, kInstruments, 0x4000004},

    {"nist", "NIST Sphere", RW, kWave, 0xC000335, 0, magic<"NIST_1A">, sndfile_Imp, sndfile_Exp<SndfileFormat::Nist>},
    {"nki", "NI Kontakt 3 Instrument", R, kInstrument},
    {"nki", "NI Kontakt 4 Instrument", R, kInstrument},
    {"nkm", "NI Kontakt 3 Bank", R, kOwn},
    {"nkm", "NI Kontakt 4 Bank", R, kOwn},
    {"nvf", "Creative Labs Nomad", RW, kWave, 0x4002000, 0, magicPair<"NVF ", "VFMT", 12, 0>, nvf_Imp, nvf_Exp, true},

    {"o01", "Typhoon voice", R, kWave},
    {"ogg", "Ogg Vorbis", RW, kWave, 0xD000000, 0, oggStream, ogg_Imp, ogg_Exp, true, ogg_Options},
    {"okt", "Oktalyzer module", R, kOwn, 0, 0, magicPair<"OKTA", "SONG", 4, kNotRuledOut>},
    {"opus", "Opus", R, kWave, 0, 0, magicPair<"OggS", "OpusHead", 28, 0>, opus_Imp},
    {"opus", "Opus (Music)", W, kWave, 0xD000000, kOpusMusic, nullptr, nullptr, opus_Exp, true, opus_Options},
    {"opus", "Opus (Voice)", W, kWave, 0xD000000, kOpusVoice, nullptr, nullptr, opus_Exp, true, opus_Options},
    {"osp", "Orion Sampler program", RW, kFullInstrument, 0xC000014},
    {"out", "Roland S-5xx series floppy disk image", R, kOwn},
    {"out", "Roland S-7xx series floppy disk image", R, kOwn},

    {"p", "AKAI S900/S950 program", R, kInstrument, 0, 0, akaiS900Program},
    {"p", "AKAI S1000 program", RW, kFullInstrument, 0x4000004, 1, akaiS1000Program},
    {"p", "AKAI S3000 program", RW, kFullInstrument, 0x4000004, 3, akaiS1000Program},
    {"p3k", "Kurzweil PC3K", R, kOwn},
    {"pac", "SB Studio II", R, kOwn},
    {"paf", "Ensoniq PARIS", RW, kWave, 0xC000015, 0, eitherMagic<" paf", "fap ">, sndfile_Imp, sndfile_Exp<SndfileFormat::Paf>},
    {"pat", "Gravis Ultrasound patch", RW, kFullInstrument, 0x4000005, 0, magic<"GF1PATCH1">},
    {"pbf", "TB Pinnacle bank", RW, kInstruments, 0x4000004},
    {"pcg", "Korg Trinity bank", R, kLayerBank, 0, 0x3B, korgBank},
    {"pcg", "Korg Triton bank", R, kLayerBank, 0, 0x50, korgBank},
    {"pcg", "Korg Triton LE bank", R, kLayerBank, 0, 0x63, korgBank},
    {"pcg", "Korg M3 bank", R, kLayerBank, 0, 0x75, korgBank},
    {"pcg", "Korg M50 bank", R, kLayerBank, 0, 0x85, korgBank},
    {"pcg", "Korg Oasys bank", R, kLayerBank, 0, 0x70, korgBank},
    {"pcg", "Korg Kronos bank", R, kLayerBank, 0, 0x68, korgBank},
    {"pcg", "Korg Trinity bank - Bank A..D", W, kLayerBank, 0xC000005, 0x3B},
    {"pcg", "Korg Trinity bank - Bank C..D", W, kLayerBank, 0xC000005, 0x23B},
    {"pcg", "Korg Triton bank - Bank A..E", W, kLayerBank, 0xC000005, 0x50},
    {"pcg", "Korg Triton bank - Bank C..E", W, kLayerBank, 0xC000005, 0x250},
    {"pcg", "Korg Triton LE file - Bank A..D", W, kLayerBank, 0xC000005, 0x63},
    {"pcg", "Korg Triton LE file - Bank C..D", W, kLayerBank, 0xC000005, 0x263},
    {"pcg", "Korg M3 bank - Bank A..G", W, kLayerBank, 0xC000005, 0x75},
    {"pcg", "Korg M3 bank - Bank D..G", W, kLayerBank, 0xC000005, 0x375},
    {"pcg", "Korg M50 bank - Bank A..E", W, kLayerBank, 0xC000005, 0x85},
    {"pcg", "Korg M50 bank - Bank C..E", W, kLayerBank, 0xC000005, 0x285},
    {"pcg", "Korg Kronos bank", W, kLayerBank, 0xC000005, 0x1020068},
    {"pcg", "Korg New Kronos bank", W, kLayerBank, 0xC000005, 0x2020068},
    {"pcm", "Korg PA sample", R, kWave},
    {"pcm", "OKI MSM6376 PCM", R, kWave, 0, 0, detectAlways2},
    {"pgm", "Akai MPC1000/2500 drums + WAV's", RW, kInstrument, 0xC000004, 0, mpc1000Program},
    {"pgm", "Akai MPC2000/2000XL drums", R, kInstrument, 0, 0, mpc2000Program},
    {"pgm", "Akai MPC2000XL drums + WAV's", W, kInstrument, 0xC000004},
    {"pgm", "Akai MPC2000 drums + SND's", W, kInstrument, 0xC000004},
    {"pgm", "Akai MPC3000 drums + SND's", RW, kInstrument, 0xC000004, 0, mpc3000Program},
    {"plm", "DisorderTracker2 module", R, kOwn, 0, 0, magic<"PLM\x1A">},
    {"pls", "DisorderTracker2 sample", R, kWave},
    {"ppf", "TB Pinnacle program", R, kInstrument},
    {"prg", "WAVmaker program", RW, kInstrument, 0xC000004},
    {"psb", "TB Pinnacle bank", R, kOwn},
    {"psion", "PSION A-law", R, kWave, 0, 0, magic<"ALawSoundFile**">, fixed_Imp<FixedLayout::Psion>},
    {"psm", "Protracker Studio module", R, kOwn, 0, 0, magic<"PSM\xFE">},
    {"ptm", "Poly Tracker module", R, kOwn, 0, 0, magic<"PTMF", 44>},

    {"raw", "Signed 8-bit PCM", R, kWave, 0, 0, detectAlways2, raw_Imp<kPcm8>},
    {"raw", "Rdos Raw OPL capture", R, kChipSong, 0, 0, magic<"RAWADATA">},
    {"rif", "Rockwell ADPCM (HotFax/Quicklink)", R, kWave, 0, 0, waveOfTag<0x0300>, wav_Imp},
    {"rol", "AdLib Visual Composer song", R, kChipSong},
    {"rom", "Roland MT-32 ROM dumps", R, kOwn},
    {"rmi", "RIFF-MIDI (DLS optional)", R, kSongTracks, 0, 0, form<"RIFF", "RMID">, rmid_Imp},
    {"rmi", "RIFF-MIDI w no instruments", W, kSongTracks, 0x2000000, 0, nullptr, nullptr, rmid_Exp, true},
    {"rmi", "RIFF-MIDI w DLS level 1 instruments", W, kSongTracks, 0x2000000, 1, nullptr, nullptr, rmid_Exp, true},
    {"rmi", "RIFF-MIDI w DLS level 2 instruments", W, kSongTracks, 0x2000000, 2, nullptr, nullptr, rmid_Exp, true},
    {"rockwell", "Rockwell ADPCM", RW, kWave, 0x4003800, 0, detectAlways2, coded_Imp<RawCoding::Rockwell>, coded_Exp<RawCoding::Rockwell>, true},
    {"rockwell-2", "Rockwell 2-bit ADPCM", RW, kWave, 0x4000800, 2, detectAlways2, coded_Imp<RawCoding::Rockwell>, coded_Exp<RawCoding::Rockwell>, true},
    {"rockwell-3", "Rockwell 3-bit ADPCM", RW, kWave, 0x4001000, 3, detectAlways2, coded_Imp<RawCoding::Rockwell>, coded_Exp<RawCoding::Rockwell>, true},
    {"rockwell-4", "Rockwell 4-bit ADPCM", RW, kWave, 0x4002000, 4, detectAlways2, coded_Imp<RawCoding::Rockwell>, coded_Exp<RawCoding::Rockwell>, true},

    {"s", "Akai S900/S950 sample", RW, kWave, 0x4000002, 0, akaiS900Sample},
    {"s", "Akai S1000 sample", RW, kWave, 0x4000004, 1, akaiS1000Sample},
    {"s", "Akai S3000 sample", RW, kWave, 0x4000004, 3, akaiS1000Sample},
    {"s1a", "Yamaha EX5 all", R, kOwn},
    {"s1m", "Yamaha EX5 waves", RW, kWave, 0xC000004},
    {"s1v", "Yamaha EX5 voices", R, kWaveBank},
    {"s1v", "Yamaha EX5 voices (RAM samples)", W, kLayerBank, 0x4000004},
    {"s1v", "Yamaha EX5 voices (FLASH samples)", W, kLayerBank, 0x4000004},
    {"s3i", "ScreamTracker v3 sample", RW, kWave, 0xC000005, 0, magic<"SCRS", 76>},
    {"s3m", "ScreamTracker v3 module", R, kOwn, 0, 0, magic<"SCRM", 44>},
    {"s3p", "AKAI MESA II/PC S-series program", RW, kFullInstrument, 0x4000004},
    {"sam", "Signed 8-bit PCM", R, kWave, 0, 0, detectAlways2, raw_Imp<kPcm8>},
    {"sb", "Signed bytes (8-bit)", RW, kWave, 0xC008001, 0, detectAlways2, raw_Imp<kPcm8>, raw_Exp, true},
    {"sbk", "SoundFont v1", RW, kFullBank, 0x4000004, 0, soundFont1, sbk_Imp, sbk_Exp, true},
    {"sbi", "Creative FM instrument", R, kInstrument, 0, 0, magic<"SBI\x1A">},
    {"sd", "Sound Designer I", RW, kWave, 0x4000004, 0, kSoundDesigner, sd1_Imp, sd1_Exp, true},
    {"sc2", "Sample Cell II PC", R, kInstrument},
    {"sd2", "Sound Designer II data", RW, kWave, 0xC000015, 0, detectAlways2, sd2_Imp, sd2_Exp, true},
    {"sd2", "Sound Designer II flat", RW, kWave, 0xC000015, kSd2Flat, magic<"Sd2f", 65>, sd2_Imp, sd2_Exp, true},
    {"sdk", "Roland S-5xx disk image", R, kOwn},
    {"sdk", "Roland S-7xx disk image", R, kOwn},
    {"sds", "MIDI SDS", RW, kWave, 0x400001F, 0, sampleDump, sds_Imp, sds_Exp, true},
    {"sds", "SmartSound SDS", R, kWave, 0, 0, form<"SDSS", "WAVE", kWeakSignature>, wav_Imp},
    {"sdw", "Signed dwords (32-bit)", R, kWave, 0, 0, detectAlways2, raw_Imp<kPcm32>},
    {"seq", "PlayStation music", RW, kSongTracks, 0x2000000, 0, magic<"pQES">},
    {"sdx", "SDX compact MIDI SDS", R, kWave, 0, 0, magic<"SDX:">, sdx_Imp},
    {"sf", "IRCAM / MTU sound", RW, kWave, 0xC000364, 0, ircamSound, sndfile_Imp, sndfile_Exp<SndfileFormat::Ircam>},
    {"sf2", "SoundFont v2 bank", RW, kFullBank, 0x4000014, 0, soundFont2, sf2_Imp, sf2_Exp, true},
    {"sf2pack", "MIDI Converter Studio", R, kOwn, 0, 0, soundFontPack, sf2_Imp},
    {"sfark", "Melody Machine SF", R, kOwn, 0, 0, magic<"sfArk", 26>, sfark_Imp},
    {"sfd", "SoundStage data", R, kWave, 0, 0, detectAlways2},
    {"sfi", "SoundStage info", R, kWave},
    {"sfr", "Sonic Foundry sample", R, kWave},
    {"sfz", "rgc:audio SFZ bank", R, kInstrument, 0, 0, sfzText, sfz_Imp},
    {"sfz", "rgc:audio SFZ (samples in same folder)", W, kWaveOrInstrument, 0xD000035, 0, nullptr, nullptr, sfz_Exp, true, nullptr, true, true},
    {"sfz", "rgc:audio SFZ (samples in sub-folder)", W, kWaveOrInstrument, 0xD000035, 1, nullptr, nullptr, sfz_Exp, true, nullptr, true, true},
    {"shn", "Shorten lossless", RW, kWave, 0xC000105, 0, magic<"ajkg">, shn_Imp, shn_Exp, true},
    {"smd", "J-Phone / SmdEd song", R, kSong},
    {"smp", "AdLib Gold sample", R, kWave},
    {"smp", "Samplevision", R, kWave, 0, 0, magic<"SOUND SAMPLE DATA ">, samplevision_Imp},
    {"smp", "Avalon sample", RW, kWave, 0x4000004},
    {"snd", "Unsigned 8-bit PCM", R, kWave, 0, 0x20000000, detectAlways2, raw_Imp<kPcm8>},
    {"snd", "AKAI MPC sample", R, kWave, 0, 0, mpcSound},
    {"snd", "AKAI MPC 60 'type 0' sample", W, kWave, 0x4000002},
    {"snd", "AKAI MPC 60 'type 2' sample", W, kWave, 0x4000002, 2},
    {"snd", "AKAI MPC 2000 'type 4' sample", W, kWave, 0xC000004, 4},
    {"snd", "AKAI MPC 3000 'type 2' sample", W, kWave, 0xC000004, 2},
    {"sndr", "Sounder", R, kWave, 0, 0, sounderSound, fixed_Imp<FixedLayout::Sounder>},
    {"sndt", "Sndtool", R, kWave, 0, 0, magic<"SOUND\x1A">, fixed_Imp<FixedLayout::Sndtool>},
    {"sou", "SB Studio II", R, kWave},
    {"spd", "Speech data", R, kWave},
    {"spl", "Digitrakker sample", R, kWave},
    {"sppack", "SPPack sample", RW, kWave, 0xC000004},
    {"sq", "PlayStation 2 SCEI sequence", R, kSong},
    {"stm", "ScreamTracker v2 module", R, kOwn, 0, 0, magic<"!Scream!", 20>},
    {"sts", "Creamware STS program", RW, kFullInstrument, 0x4000004, 5},
    {"svq", "Roland Sequencer v0", R, kSong},
    {"svq", "Roland Sequencer v1", R, kSong},
    {"svq", "Roland Sequencer v2", R, kSong},
    {"svq", "Roland Sequencer v3", R, kSong},
    {"svq", "Roland Sequencer v4", R, kSong},
    {"svq", "Roland Sequencer v4c", R, kSong},
    {"svx", "Interchange file format", R, kWave, 0, 0, kSampledVoice, svx_Imp},
    {"sw", "Signed words (16-bit) - Little Endian", RW, kWave, 0xC010004, 0, detectAlways2, raw_Imp<kPcm16>, raw_Exp, true},
    {"sw", "Signed words (16-bit) - Big Endian", W, kWave, 0xC000004, 0x40000000, nullptr, nullptr, raw_Exp, true},
    {"sxt", "Propellerheads Reason 2 NN-XT", RW, kFullInstrument, 0xC000014},
    {"syx", "Yamaha DX100/DX21/DX27 voice SysEx", R, kInstruments},
    {"syx", "Yamaha DX11/TX81z voice SysEx", R, kInstruments},
    {"syx", "Yamaha DX7 voice SysEx", R, kInstruments, 0, 0, sysEx<0x43, 0x09>},
    {"syx", "Yamaha DX7II/DX200 voice SysEx", R, kInstruments},
    {"syx", "Roland D-50 patch SysEx", R, kInstruments, 0, 0, sysEx<0x41, 0x14>},
    {"syx", "Roland MT-32 SysEx", R, kInstruments, 0, 0, sysEx<0x41, 0x16>},

    {"tvd", "Yamaha Tyros 2 drums", RW, kWaveBank, 0x4000004},
    {"tvn", "Yamaha Tyros 2 voices", RW, kWaveBank, 0x4000004},
    {"txt", "Ascii text parameter descriptions", W, kAnyItem, 0x2000000},
    {"txt", "Ascii text audio", RW, kWave, 0xC100000, 0, detectAlways2, asciiAudio_Imp, asciiAudio_Exp, true},
    {"txt", "Nokring ring-tone", RW, kSongTracks, 0x2000000},
    {"txt", "Steinberg LM-4 bank", RW, kLayerOrInstrument, 0xC000014},

    {"u255law", "Exponential mu-law", RW, kWave, 0xC000100, 0, detectAlways2, u255law_Imp, u255law_Exp, true},
    {"uax", "Unreal Tournament", R, kOwn, 0, 0, magic<"\xC1\x83\x2A\x9E">, uax_Imp},
    {"ub", "Unsigned bytes (8-bit)", RW, kWave, 0xC008001, 0x20000000, detectAlways2, raw_Imp<kPcm8>, raw_Exp, true},
    {"udw", "Unsigned dwords (32-bit)", R, kWave, 0, 0x20000000, detectAlways2, raw_Imp<kPcm32>},
    {"ulaw", "G.711 mu-law", RW, kWave, 0xC040100, 0, detectAlways2, raw_Imp<kMuLaw>, raw_Exp, true},
    {"ult", "UltraTracker module", R, kOwn, 0, 0, magic<"MAS">},
    {"ulw", "G.711 mu-law", RW, kWave, 0xC040100, 0, detectAlways2, raw_Imp<kMuLaw>, raw_Exp, true},
    {"umx", "Unreal Tournament music", R, kOwn, 0, 0, magic<"\xC1\x83\x2A\x9E">},
    {"uni", "MikMod Unimod", R, kOwn, 0, 0, magic<"UN0">},
    {"uvd", "Yamaha Tyros 3 drums", RW, kWaveBank, 0x4000004},
    {"uvn", "Yamaha Tyros 3 voices", RW, kWaveBank, 0x4000004},
    {"uw", "Unsigned words (16-bit) - Little Endian", RW, kWave, 0xC010004, 0x20000000, detectAlways2, raw_Imp<kPcm16>, raw_Exp, true},
    {"uw", "Unsigned words (16-bit) - Bit Endian", W, kWave, 0xC000004, 0x60000000, nullptr, nullptr, raw_Exp, true},
    {"uwf", "UltraTracker wave", R, kWave},

    {"v8", "Covox 8-bit", R, kWave, 0, 0, magic<"\xFF\x55\xFF\xAA\xFF\x55\xFF\xAA">, v8_Imp},
    {"vab", "PlayStation bank", RW, kWaveBank, 0x4002001, 0, magic<"pBAV">},
    {"vag", "PlayStation sound", RW, kWave, 0x4002000, 0, magic<"VAGp">, vag_Imp, vag_Exp, true},
    {"vap", "Annotated speech", RW, kWave, 0x4002000, 0, promptIndex, vap_Imp, vap_Exp, true},
    {"vm1", "Panasonic voice", R, kWave},
    {"voc", "SoundBlaster voice", RW, kWave, 0xC000305, 0, magic<"Creative Voice File\x1A">, voc_Imp, voc_Exp, true},
    {"voc", "SoundBlaster voice - Old Style", W, kWave, 0xC000001, kVocOldStyle, nullptr, nullptr, voc_Exp, true},
    {"vox", "Dialogic 4-bit ADPCM", RW, kWave, 0x4002305, 0, detectAlways2, coded_Imp<RawCoding::Dialogic>, coded_Exp<RawCoding::Dialogic>, true},
    {"vox-6k", "Dialogic 4-bit ADPCM (6000 Hz)", RW, kWave, 0x4002305, 6000, detectAlways2, coded_Imp<RawCoding::Dialogic>, coded_Exp<RawCoding::Dialogic>, true},
    {"vox-8k", "Dialogic 4-bit ADPCM (8000 Hz)", RW, kWave, 0x4002305, 8000, detectAlways2, coded_Imp<RawCoding::Dialogic>, coded_Exp<RawCoding::Dialogic>, true},
    {"vox", "Talking Technology Inc", R, kWave},
    {"vsb", "Virtual Sampler bank", RW, kFullInstrument, 0xC000004},

    {"w??", "Yamaha TX16W wave", R, kWave, 0, 0, magic<"LM8953">, tx16w_Imp},
    {"w01", "Yamaha TX16W wave", W, kWave, 0x4000002, 0, nullptr, nullptr, tx16w_Exp, true},
    {"w??", "Yamaha SY wave", R, kWave, 0, 0, magic<"SY80 WAVE1">, sy_Imp},
    {"w01", "Yamaha SY wave", W, kWave, 0x4000006},
    {"w2a", "Yamaha Motif 6/7/8 all", R, kOwn},
    {"w2v", "Yamaha Motif 6/7/8 voices", RW, kWaveBank, 0xC000004},
    {"w2w", "Yamaha Motif 6/7/8 waves", RW, kWave, 0xC000004},
    {"w3v", "Yamaha Motif 6/7/8 data", R, kOwn},
    {"w4ksnd", "Wusik 4000 instrument", RW, kLayerOrInstrument, 0xC000014},
    {"w7a", "Yamaha Motif ES all", R, kOwn},
    {"w7v", "Yamaha Motif ES voices", RW, kWaveBank, 0xC000004},
    {"w7w", "Yamaha Motif ES waves", RW, kWave, 0xC000004},
    {"w8v", "Yamaha Motif ES data", R, kOwn},
    {"w64", "Wave-64", RW, kWave, 0xC000375, 0, wave64, w64_Imp, w64_Exp, true},
    {"wav", "Microsoft wave", RW, kWave, 0xD007F75, 0, waveForm, wav_Imp, wav_Exp, true},
    {"wav", "Broadcast wave", R, kWave, 0, 0, broadcastWave, wav_Imp},
    {"wa!", "GigaStudio compr wave", RW, kWave, 0xC000014},
    {"wfb", "TB WaveFront bank", RW, kInstruments, 0x4000004},
    {"wfd", "TB WaveFront drums", R, kLayerOrInstrument},
    {"wfp", "TB WaveFront program", RW, kLayerOrInstrument, 0x4000004},
    {"wlf", "iD music (700Hz)", R, kChipSong, 0, 0, detectAlways2},
    {"wma", "Windows Media audio", R, kWave, 0, kMediaAsf, kAsf, media_Imp},
    {"wma", "Windows Media audio 4", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 CBR", W, kWave, kMediaMask, kMediaWma, nullptr, nullptr, media_Exp, false, media_Options},
    {"wma", "Windows Media audio 9 ABR", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 VBR", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 Voice", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 Lossless", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 Pro CBR 24-bit", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 Pro ABR 24-bit", W, kWave, 0xD000000},
    {"wma", "Windows Media audio 9 Pro VBR 24-bit", W, kWave, 0xD000000},
    {"wmv", "Windows Media video", R, kWave, 0, kMediaAsf, kAsf, media_Imp},
    {"wrf", "Westacott WinRanX", RW, kLayerOrInstrument, 0xC000004},
    {"wrk", "CakeWalk work", R, kSong, 0, 0, magic<"CAKEWALK">},
    {"wusikpack", "Wusikstation pack", R, kOwn},
    {"wusiksnd", "Wusikstation v3 sound", RW, kLayerOrInstrument, 0xC000014},
    {"wusiksnd", "Wusikstation v4 sound", W, kLayerOrInstrument, 0xC000014},
    {"wusiksnd", "Wusikstation v5 sound", W, kLayerOrInstrument, 0xC000014},

    {"x0a", "Yamaha Motif XS all", R, kOwn},
    {"x0v", "Yamaha Motif XS voices", RW, kWaveBank, 0xC000004},
    {"x0w", "Yamaha Motif XS waves", RW, kWave, 0xC000004},
    {"x3a", "Yamaha Motif XF all", R, kOwn},
    {"x3v", "Yamaha Motif XF voices", RW, kWaveBank, 0xC000004},
    {"x3w", "Yamaha Motif XF waves", RW, kWave, 0xC000004},

    {"wv", "WavPack lossless", RW, kWave, 0xC000075, 0, magic<"wvpk">, wv_Imp, wv_Exp, true},

    {"xi", "Fast Tracker 2 instrument", RW, kWaveToInstrument, 0x4018000, 0, magic<"Extended Instrument: ">},
    {"xm", "Fast Tracker 2 module", R, kOwn, 0, 0, magic<"Extended Module: ">},
    {"xmi", "MSS extended MIDI", RW, kSongTracks, 0x2000000, 0, form<"FORM", "XDIR">},

    {"yadpcm", "Raw Yamaha 4-bit ADPCM", RW, kWave, 0x4002000, 0, detectAlways2, coded_Imp<RawCoding::Yamaha>, coded_Exp<RawCoding::Yamaha>, true},
};
// clang-format on

template <class Predicate>
constexpr int count(Predicate wanted) {
    int found = 0;
    for (const FormatRow& row : kRows) found += wanted(row) ? 1 : 0;
    return found;
}
constexpr int holding(u32 classes) {
    return count([=](const FormatRow& row) { return row.typeFlags == classes; });
}

static_assert(std::size(kRows) == 475);
static_assert(count([](const FormatRow& row) { return row.reads(); }) == 361);
static_assert(count([](const FormatRow& row) { return row.writes(); }) == 240);
static_assert(count([](const FormatRow& row) { return !row.reads(); }) == 114);
static_assert(count([](const FormatRow& row) { return row.detectFn == detectAlways2; }) == 61);
static_assert(holding(kWave) == 227 && holding(kInstrument) == 36 && holding(kOwn) == 78);
static_assert(holding(kSong) == 14 && holding(kSongTracks) == 13);
static_assert(holding(kWaveBank) == 18 && holding(kLayerBank) == 23 && holding(kFullBank) == 8);
static_assert(holding(kFullInstrument) == 10 && kRows[396].typeFlags == kAnyItem);
static_assert(count([](const FormatRow& row) { return (row.typeFlags & kSynthModelClass) != 0; }) == 1);
static_assert(count([](const FormatRow& row) { return (row.typeFlags & ~kAllClasses) != 0; }) == 0);
static_assert(count([](const FormatRow& row) { return !row.writes() && row.dataMask != 0; }) == 0);
static_assert(count([](const FormatRow& row) {
                  return (!row.reads() && (row.importFn || row.detectFn)) || (!row.writes() && row.exportFn);
              }) == 0);

} // namespace

std::span<const FormatRow> formatRows() {
    return kRows;
}

const FormatTable& formatTable() {
    static const FormatTable table(kRows);
    return table;
}

} // namespace kv
