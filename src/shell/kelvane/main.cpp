// `kelvane`: what the command line says, and who does it.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "formats/framework/format_table.h"
#include "formats/table/format_table_rows.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/terminal_ui.h"
#include "shell/settings_store.h"

namespace {

using namespace kv;

struct Globals {
    bool quiet = false, yes = false, no = false;
    std::string progress = "auto";
    std::string settingsFile;
    std::vector<std::string> set;
};

void addGlobals(CLI::App& app, Globals& globals) {
    app.add_flag("-q,--quiet", globals.quiet, "Print nothing but results and failures");
    CLI::Option* yes = app.add_flag("-y,--yes", globals.yes, "Answer questions with yes");
    app.add_flag("--no", globals.no, "Answer questions with no")->excludes(yes);
    app.add_option("--progress", globals.progress,
                   "Progress on standard error: auto, none, or json (one line an event)")
        ->check(CLI::IsMember({"auto", "none", "json"}));
    app.add_option("--settings", globals.settingsFile, "Use this settings file")->type_name("FILE");
    app.add_option("--set", globals.set, "A setting for this run; may be repeated")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
}

void addInput(CLI::App& app, InputOptions& input) {
    app.add_option("--as", input.as, "Read as this format: row number, extension or description")
        ->type_name("ROW");
    app.add_option("--raw-rate", input.rawRate, "Sample rate of raw samples")
        ->type_name("HZ")
        ->check(CLI::Range(1U, 0xFFFFFFFFU));
    app.add_option("--raw-channels", input.rawChannels, "Channels of raw samples")->check(CLI::Range(1U, 2U));
    app.add_option("--raw-format", input.rawFormat, "Data format of raw samples, as \"PCM 16-bit\"")
        ->type_name("NAME");
    app.add_flag("--raw-big-endian", input.rawBigEndian, "Raw samples stand most significant byte first");
    app.add_flag("--raw-unsigned", input.rawUnsigned, "Raw samples are unsigned");
    app.add_option("--raw-offset", input.rawOffset, "Bytes before the first raw sample")->type_name("BYTES");
}

void addChange(CLI::App& app, ChangeOptions& options) {
    app.add_option("INPUT", options.inputs, "Files; several are merged, for a folder as output not")
        ->required();
    app.add_option("-o,--output", options.output, "File or folder to write, or - for standard output")
        ->required()
        ->type_name("OUTPUT");
    app.add_option("--to", options.to, "Format of the output, else by its extension")->type_name("FORMAT");
    app.add_option("--data", options.data, "Data format, as \"PCM 24-bit\", or auto")->type_name("NAME");
    app.add_flag("--force", options.force, "Replace files that exist");
    addInput(app, options.input);
}

ProgressStyle progressStyle(const Globals& globals) {
    if (globals.progress == "json") return ProgressStyle::Json;
    const bool shown = globals.progress == "auto" && !globals.quiet && isatty(STDERR_FILENO);
    return shown ? ProgressStyle::Line : ProgressStyle::None;
}

bool prepareSettings(Globals& globals) {
    if (globals.settingsFile.empty()) globals.settingsFile = defaultSettingsFile().string();
    const std::string complaint = LoadSettings(globals.settingsFile, settings()).complaint;
    if (!complaint.empty()) fmt::print(stderr, "{}\n", complaint);
    for (const std::string& assignment : globals.set) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos) return Fail("Settings", "\"{}\" is not NAME=VALUE", assignment);
        if (!setSetting(settings(), assignment.substr(0, equals), assignment.substr(equals + 1)))
            return false;
    }
    return true;
}

int run(int argc, char** argv) {
    CLI::App app(
        "Kelvane Studio: opens samples, sampled instruments, modules and songs of four decades, and converts "
        "them.",
        "kelvane");
    app.set_version_flag("--version", "kelvane 11.4");
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "Exit status: 0 done, 1 failed, 2 usage, 3 some of several failed, 4 something lost (--strict), 130 "
        "interrupted.");
    Globals globals;
    addGlobals(app, globals);

    FormatsOptions formats;
    CLI::App* formatsCommand = app.add_subcommand("formats", "List the formats that are known");
    formatsCommand->add_flag("--import", formats.importOnly, "Only those that are read");
    formatsCommand->add_flag("--export", formats.exportOnly, "Only those that are written");
    formatsCommand->add_flag("--json", formats.json, "As JSON");

    DetectOptions detect;
    CLI::App* detectCommand = app.add_subcommand("detect", "Tell what files are");
    detectCommand->add_option("PATH", detect.paths, "Files")->required();
    detectCommand->add_flag("--json", detect.json, "As JSON");

    InfoOptions info;
    CLI::App* infoCommand = app.add_subcommand("info", "Show what a file holds");
    infoCommand->add_option("PATH", info.path, "File")->required();
    infoCommand->add_flag("--json", info.json, "As JSON");
    infoCommand->add_flag("--warnings", info.warnings, "Also what was odd or could not be kept");
    addInput(*infoCommand, info.input);

    ConvertOptions convert;
    CLI::App* convertCommand = app.add_subcommand("convert", "Convert files to another format");
    convertCommand
        ->add_option("INPUT OUTPUT", convert.paths,
                     "Inputs, then the output: a file, a folder, or - for standard output")
        ->required()
        ->expected(2, -1);
    convertCommand
        ->add_option("--to", convert.to,
                     "Format: row number, extension or description; else by OUTPUT's extension")
        ->type_name("FORMAT");
    convertCommand->add_option("--data", convert.data, "Data format, as \"PCM 24-bit\", or auto")
        ->type_name("NAME");
    convertCommand->add_option("--channels", convert.channels, "auto, mono or stereo")
        ->check(CLI::IsMember({"auto", "mono", "stereo"}));
    convertCommand->add_option("--bit-rate", convert.bitRate, "Bit rate of compressed formats")
        ->type_name("KBPS");
    convertCommand
        ->add_option("--item", convert.item,
                     "Only this item: wave:N, wave:\"NAME\", instrument:N, song:N ... as info shows them")
        ->type_name("ITEM");
    convertCommand->add_option("--name-mode", convert.nameMode, "How files of a folder are named")
        ->check(CLI::IsMember({"number", "base-name", "name", "source", "bank"}));
    convertCommand
        ->add_option("--parameter-set", convert.parameterSet,
                     "Keep only what this set of parameters has, as \"SoundFont 2.1 set (.SF2)\"")
        ->type_name("NAME");
    convertCommand->add_flag("--sub-dirs", convert.subDirs, "Each file in a folder of its own name");
    convertCommand
        ->add_option_function<std::string>(
            "--report", [&](const std::string& file) { convert.report = file == "-" ? "" : file; },
            "Tell what the target could not hold, field by field: counts on standard output for -, or all of "
            "it as "
            "JSON into FILE")
        ->type_name("FILE");
    convertCommand->add_flag("--strict", convert.strict, "Exit with status 4 when anything was lost");
    convertCommand->add_flag("--force", convert.force, "Replace files that exist");
    addInput(*convertCommand, convert.input);

    ChangeOptions edit;
    CLI::App* editCommand = app.add_subcommand("edit", "Change a collection as a whole");
    addChange(*editCommand, edit);
    editCommand
        ->add_option(
            "--do", edit.steps,
            "Operation, repeated for more: auto-create, delete-unused, delete-duplicates, merge-stereo, "
            "split-stereo, unroll-loops, append-loop-tail, replace-waves=FILE")
        ->type_name("OPERATION")
        ->allow_extra_args(false);

    ProcessOptions process;
    CLI::App* processCommand = app.add_subcommand("process", "Run algorithms on waves and songs");
    addChange(*processCommand, process);
    processCommand
        ->add_option("--do", process.steps,
                     "Algorithm with its parameters, repeated for more, as "
                     "\"transpose-notes:semitones=3,exclude-drums=1\"; `kelvane algorithms` lists them")
        ->type_name("ALGORITHM")
        ->required()
        ->allow_extra_args(false);
    processCommand
        ->add_option("--items,--waves", process.items,
                     "Only these: wave:N, wave:\"NAME\", song:N, track:N ... as info shows them")
        ->type_name("ITEM")
        ->allow_extra_args(false);
    processCommand->add_option("--range", process.range, "Only these frames of a wave")->type_name("FROM:TO");

    AlgorithmsOptions algorithms;
    CLI::App* algorithmsCommand =
        app.add_subcommand("algorithms", "List the algorithms and their parameters");
    algorithmsCommand->add_flag("--audio", algorithms.audio, "Those for waves");
    algorithmsCommand->add_flag("--midi", algorithms.midi, "Those for songs");
    algorithmsCommand->add_flag("--instrument", algorithms.instrument, "Those for instruments");
    algorithmsCommand->add_flag("--json", algorithms.json, "As JSON");

    PresetOptions preset;
    CLI::App* presetCommand = app.add_subcommand("preset", "Articulation presets (.dlsa)");
    presetCommand->require_subcommand(1);
    CLI::App* show = presetCommand->add_subcommand("show", "Print a preset");
    show->add_option("PRESET", preset.paths, "Preset file")->required()->expected(1);
    show->add_flag("--json", preset.json, "As JSON");
    CLI::App* extract = presetCommand->add_subcommand("extract", "Save what an instrument sounds with");
    extract->add_option("INPUT PRESET", preset.paths, "Bank, then the preset file to make")
        ->required()
        ->expected(2);
    CLI::App* apply = presetCommand->add_subcommand("apply", "Give instruments of a bank a preset");
    apply->add_option("PRESET INPUT OUTPUT", preset.paths, "Preset file, bank, and the bank to make")
        ->required()
        ->expected(3);
    apply->add_option("--to", preset.to, "Format of the output, else by its extension")->type_name("FORMAT");
    for (CLI::App* command : {extract, apply}) {
        command
            ->add_option("--item", preset.item,
                         "This instrument, layer or region; else the first one's sound is saved, and all "
                         "instruments take the preset")
            ->type_name("ITEM");
        command->add_flag("--force", preset.force, "Replace a file that exists");
        addInput(*command, preset.input);
    }

    MidiOptions midi;
    CLI::App* midiCommand = app.add_subcommand("midi", "Events of MIDI songs");
    midiCommand->require_subcommand(1);
    CLI::App* events = midiCommand->add_subcommand("events", "List the events of all tracks");
    events->add_option("FILE", midi.path, "File with a song")->required();
    events->add_option("--track", midi.track, "Only this track, as info counts them")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    CLI::Option* eventsJson = events->add_flag("--json", midi.json, "As JSON");
    events->add_flag("--notation", midi.notation, "As `midi edit` takes them")->excludes(eventsJson);
    addInput(*events, midi.input);
    CLI::App* editEvents = midiCommand->add_subcommand("edit", "Change, insert and delete events of a track");
    editEvents->add_option("FILE", midi.path, "File with a song")->required();
    editEvents->add_option("-o,--output", midi.output, "File to write")->required()->type_name("FILE");
    editEvents->add_option("--track", midi.track, "The track, as info counts them")
        ->required()
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    editEvents->add_option("--insert", midi.inserts, "New event in its place in time; may be repeated")
        ->type_name("EVENT")
        ->allow_extra_args(false);
    editEvents
        ->add_option("--modify", midi.modifications,
                     "Replace the event of this number; it moves when its time does")
        ->type_name("\"INDEX EVENT\"")
        ->allow_extra_args(false);
    editEvents->add_option("--delete", midi.deletions, "Delete the event of this number")
        ->type_name("INDEX")
        ->check(CLI::PositiveNumber)
        ->allow_extra_args(false);
    editEvents->add_option("--to", midi.to, "Format of the output, else by its extension")
        ->type_name("FORMAT");
    editEvents->add_flag("--force", midi.force, "Replace a file that exists");
    editEvents->footer(
        "INDEX counts the events of the track from 1, as `midi events` shows them before any change.\n"
        "EVENT is a time in ticks and one of (ch=1 may be left out):\n"
        "  note-on ch=1 KEY VELOCITY      note-off ch=1 KEY VELOCITY    poly-press ch=1 KEY PRESSURE\n"
        "  control ch=1 CONTROLLER VALUE  program ch=1 PROGRAM          pressure ch=1 PRESSURE\n"
        "  bend ch=1 -8192..8191          sysex HEX (without its F0)    sysex-cont HEX\n"
        "  meta TYPE VALUE\n"
        "TYPE is a number or sequence-no, text, copyright, track-name, instrument, lyric, marker, "
        "cue-point,\n"
        "channel-prefix, channel-group, tempo, smpte-offset, time-signature, key-signature, seq-specific.\n"
        "VALUE is a text for 1 to 7; a number for sequence-no, channel-prefix, channel-group and tempo\n"
        "(microseconds per quarter note); hexadecimal for all others.\n"
        "Examples: \"480 note-on ch=1 60 100\", \"0 meta tempo 500000\", \"0 meta text 'abc'\",\n"
        "\"0 sysex 7E7F0901F7\", and for --modify \"12 480 note-on ch=1 60 64\".");
    addInput(*editEvents, midi.input);

    SettingsOptions setting;
    CLI::App* settingsCommand = app.add_subcommand("settings", "Show or change settings");
    settingsCommand->require_subcommand(1);
    CLI::App* list = settingsCommand->add_subcommand("list", "All settings with their values");
    list->add_flag("--json", setting.json, "As JSON");
    CLI::App* get = settingsCommand->add_subcommand("get", "One value");
    get->add_option("NAME", setting.name)->required();
    CLI::App* set = settingsCommand->add_subcommand("set", "Change a value");
    set->add_option("NAME", setting.name)->required();
    set->add_option("VALUE", setting.value)->required();
    CLI::App* reset = settingsCommand->add_subcommand("reset", "One value, or all, to the default");
    reset->add_option("NAME", setting.name);
    CLI::App* pset =
        settingsCommand->add_subcommand("pset", "The parameter sets, and the active one's switches");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }

    workspace().formats = &formatTable();
    if (!prepareSettings(globals)) {
        reportFailure();
        return kUsage;
    }
    TerminalUi ui(progressStyle(globals), globals.quiet);
    if (globals.yes || globals.no) ui.yes = globals.yes;
    workspace().ui = &ui;
    convert.quiet = edit.quiet = process.quiet = midi.quiet = globals.quiet;
    workspace().stateFolder = stateFolder();
    setting.file = globals.settingsFile;
    for (CLI::App* action : {list, get, set, reset, pset}) {
        if (action->parsed()) setting.action = action->get_name();
    }
    for (CLI::App* action : {events, editEvents}) {
        if (action->parsed()) midi.action = action->get_name();
    }
    for (CLI::App* action : {show, extract, apply}) {
        if (action->parsed()) preset.action = action->get_name();
    }
    if (formatsCommand->parsed()) return runFormats(formats);
    if (detectCommand->parsed()) return runDetect(detect);
    if (infoCommand->parsed()) return runInfo(info, ui);
    if (convertCommand->parsed()) return runConvert(convert, ui);
    if (editCommand->parsed()) return runEdit(edit, ui);
    if (processCommand->parsed()) return runProcess(process, ui);
    if (algorithmsCommand->parsed()) return runAlgorithms(algorithms);
    if (presetCommand->parsed()) return runPreset(preset, ui);
    if (midiCommand->parsed()) return runMidi(midi, ui);
    return runSettings(setting);
}

} // namespace

int main(int argc, char** argv) {
    kv::Workspace own;
    const kv::WorkspaceScope scope(own);
    kv::installMemoryHandlers(kv::kFailed);
    kv::catchInterrupts();
    return run(argc, argv);
}
