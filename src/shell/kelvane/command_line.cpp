// What the command line says, and who does it.
#include "shell/kelvane/command_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <utility>

#include "batch/batch_job.h"
#include "formats/framework/format_table.h"
#include "formats/table/format_table_rows.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/terminal_ui.h"
#include "shell/settings_store.h"

namespace kv {
namespace {

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
    app.add_option("--codec-bits", input.codecBits,
                   "Bits of a code, where a coded raw format has several widths")
        ->type_name("N")
        ->check(CLI::Range(2U, 8U));
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

/// An action of a command, which notes its own name when it was chosen.
CLI::App* addAction(CLI::App& command, std::string& action, const std::string& name,
                    const std::string& description) {
    CLI::App* added = command.add_subcommand(name, description);
    added->callback([&action, name] { action = name; });
    return added;
}

class CommandLine {
public:
    CommandLine();
    int run(int argc, char** argv);

private:
    using Run = std::function<int(TerminalUi& ui)>;

    CLI::App* add(const std::string& name, const std::string& description, Run run);
    void addFormats();
    void addDetect();
    void addInfo();
    void addConvert();
    void addEdit();
    void addProcess();
    void addAlgorithms();
    void addBatch();
    void addDraw();
    void addPlugins();
    void addPreset();
    void addMidi();
    void addSettings();

    CLI::App app_{
        "Kelvane Studio: opens samples, sampled instruments, modules and songs of four decades, and "
        "converts them.",
        "kelvane"};
    std::vector<std::pair<CLI::App*, Run>> commands_;
    Globals globals_;
    FormatsOptions formats_;
    DetectOptions detect_;
    InfoOptions info_;
    ConvertOptions convert_;
    ChangeOptions edit_;
    ProcessOptions process_;
    AlgorithmsOptions algorithms_;
    BatchOptions batch_;
    DrawOptions draw_;
    PluginsOptions plugins_;
    PresetOptions preset_;
    MidiOptions midi_;
    SettingsOptions setting_;
};

CommandLine::CommandLine() {
    app_.set_version_flag("--version", "kelvane 11.4");
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.footer(
        "Exit status: 0 done, 1 failed, 2 usage, 3 some of several failed, 4 something lost (--strict), 130 "
        "interrupted.");
    addGlobals(app_, globals_);
    addFormats();
    addDetect();
    addInfo();
    addConvert();
    addEdit();
    addProcess();
    addAlgorithms();
    addBatch();
    addDraw();
    addPlugins();
    addPreset();
    addMidi();
    addSettings();
}

CLI::App* CommandLine::add(const std::string& name, const std::string& description, Run run) {
    CLI::App* command = app_.add_subcommand(name, description);
    commands_.emplace_back(command, std::move(run));
    return command;
}

int CommandLine::run(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app_.exit(error) == 0 ? kDone : kUsage;
    }
    workspace().formats = &formatTable();
    if (!prepareSettings(globals_)) {
        reportFailure();
        return kUsage;
    }
    setting_.file = globals_.settingsFile;
    TerminalUi ui(progressStyle(globals_), globals_.quiet);
    if (globals_.yes || globals_.no) ui.yes = globals_.yes;
    workspace().ui = &ui;
    workspace().stateFolder = stateFolder();
    for (const auto& [command, runCommand] : commands_) {
        if (command->parsed()) return runCommand(ui);
    }
    return kUsage;
}

// ---- The commands

void CommandLine::addFormats() {
    CLI::App* command = add("formats", "List the formats that are known",
                            [this](TerminalUi&) { return runFormats(formats_); });
    command->add_flag("--import", formats_.importOnly, "Only those that are read");
    command->add_flag("--export", formats_.exportOnly, "Only those that are written");
    command->add_flag("--json", formats_.json, "As JSON");
}

void CommandLine::addDetect() {
    CLI::App* command =
        add("detect", "Tell what files are", [this](TerminalUi&) { return runDetect(detect_); });
    command->add_option("PATH", detect_.paths, "Files")->required();
    command->add_flag("--json", detect_.json, "As JSON");
}

void CommandLine::addInfo() {
    CLI::App* command =
        add("info", "Show what a file holds", [this](TerminalUi& ui) { return runInfo(info_, ui); });
    command->add_option("PATH", info_.path, "File")->required();
    command->add_flag("--json", info_.json, "As JSON");
    command->add_flag("--warnings", info_.warnings, "Also what was odd or could not be kept");
    command->add_flag("--loudness", info_.loudness, "Measure the waves: loudness and true peak (EBU R 128)");
    addInput(*command, info_.input);
}

void CommandLine::addConvert() {
    CLI::App* command = add("convert", "Convert files to another format",
                            [this](TerminalUi& ui) { return runConvert(convert_, ui); });
    command
        ->add_option("INPUT OUTPUT", convert_.paths,
                     "Inputs, then the output: a file, a folder, or - for standard output")
        ->required()
        ->expected(2, -1);
    command
        ->add_option("--to", convert_.to,
                     "Format: row number, extension or description; else by OUTPUT's extension")
        ->type_name("FORMAT");
    command->add_option("--data", convert_.data, "Data format, as \"PCM 24-bit\", or auto")
        ->type_name("NAME");
    command->add_option("--channels", convert_.channels, "auto, mono or stereo")
        ->check(CLI::IsMember({"auto", "mono", "stereo"}));
    command->add_option("--bit-rate", convert_.bitRate, "Bit rate of compressed formats")->type_name("KBPS");
    command
        ->add_option("--item", convert_.item,
                     "Only this item: wave:N, wave:\"NAME\", instrument:N, song:N ... as info shows them")
        ->type_name("ITEM");
    command->add_option("--name-mode", convert_.nameMode, "How files of a folder are named")
        ->check(CLI::IsMember({"number", "base-name", "name", "source", "bank"}));
    command
        ->add_option("--parameter-set", convert_.parameterSet,
                     "Keep only what this set of parameters has, as \"SoundFont 2.1 set (.SF2)\"")
        ->type_name("NAME");
    command->add_flag("--sub-dirs", convert_.subDirs, "Each file in a folder of its own name");
    command
        ->add_option_function<std::string>(
            "--report", [&](const std::string& file) { convert_.report = file == "-" ? "" : file; },
            "Tell what the target could not hold, field by field: counts on standard output for -, or all of "
            "it as "
            "JSON into FILE")
        ->type_name("FILE");
    command->add_flag("--strict", convert_.strict, "Exit with status 4 when anything was lost");
    command->add_flag("--force", convert_.force, "Replace files that exist");
    addInput(*command, convert_.input);
}

void CommandLine::addEdit() {
    CLI::App* command =
        add("edit", "Change a collection as a whole", [this](TerminalUi& ui) { return runEdit(edit_, ui); });
    addChange(*command, edit_);
    command
        ->add_option(
            "--do", edit_.steps,
            "Operation, repeated for more: auto-create, delete-unused, delete-duplicates, merge-stereo, "
            "split-stereo, unroll-loops, append-loop-tail, replace-waves=FILE")
        ->type_name("OPERATION")
        ->allow_extra_args(false);
}

void CommandLine::addProcess() {
    CLI::App* command = add("process", "Run algorithms on waves and songs",
                            [this](TerminalUi& ui) { return runProcess(process_, ui); });
    addChange(*command, process_);
    command
        ->add_option("--do", process_.steps,
                     "Algorithm with its parameters, repeated for more, as "
                     "\"transpose-notes:semitones=3,exclude-drums=1\"; `kelvane algorithms` lists them")
        ->type_name("ALGORITHM")
        ->required()
        ->allow_extra_args(false);
    command
        ->add_option("--items,--waves", process_.items,
                     "Only these: wave:N, wave:\"NAME\", song:N, track:N ... as info shows them")
        ->type_name("ITEM")
        ->allow_extra_args(false);
    command->add_option("--range", process_.range, "Only these frames of a wave")->type_name("FROM:TO");
}

void CommandLine::addBatch() {
    CLI::App* command = add("batch", "Convert many files, unattended, on all cores",
                            [this](TerminalUi& ui) { return runBatchCommand(batch_, ui); });
    command->add_option("INPUT", batch_.inputs,
                        "Files, folders, patterns, @FILE for a list of them, or a job file (.toml) first");
    command->add_option("--mode", batch_.mode, "What is taken out of each file and saved")
        ->check(CLI::IsMember({"waves", "instruments", "collections", "songs"}));
    command
        ->add_option("--to", batch_.to,
                     "Format, up to five: FORMAT[,data=NAME][,channels=mono|stereo][,bit-rate=KBPS]")
        ->type_name("FORMAT")
        ->allow_extra_args(false);
    command->add_option("-o,--output", batch_.outputDir, "Folder to write to")->type_name("DIR");
    for (const BatchOption& option : batchOptions()) {
        const std::string name(option.name), help(option.help);
        if (std::holds_alternative<bool BatchJob::*>(option.member)) {
            command->add_flag_function(
                fmt::format("--{},!--no-{}", name, name),
                [this, name](std::int64_t count) { batch_.job[name] = count > 0 ? "true" : "false"; }, help);
        } else {
            command
                ->add_option_function<i64>(
                    "--" + name, [this, name](i64 value) { batch_.job[name] = std::to_string(value); }, help)
                ->type_name("N")
                ->check(CLI::Range(option.least, option.most));
        }
    }
    command->add_option("--silence-threshold", batch_.threshold, "Level of silence, as 1%, -40dB or 0.01")
        ->type_name("LEVEL");
    command
        ->add_option("--do", batch_.algorithms,
                     "Algorithm with its parameters, repeated for more; `kelvane algorithms` lists them")
        ->type_name("ALGORITHM")
        ->allow_extra_args(false);
    command
        ->add_option(
            "--effect", batch_.effects,
            "Audio effect as NAME[,SYMBOL=VALUE SYMBOL=VALUE], up to four; `kelvane plugins` lists them")
        ->type_name("EFFECT")
        ->allow_extra_args(false);
    command->add_option("-j,--jobs", batch_.workers, "Processes; else one a core")
        ->type_name("N")
        ->check(CLI::Range(1U, 1024U));
    command->add_option("--timeout", batch_.timeout, "Seconds that a file may take; 0: any")
        ->type_name("S")
        ->check(CLI::Range(0.0, 1e6));
    command->add_option("--memory", batch_.memory, "Megabytes that a process may take; 0: any")
        ->type_name("MB");
    command
        ->add_option("--existing", batch_.existing,
                     "What happens to outputs that exist: fail, skip, replace or rename (the new one)")
        ->check(CLI::IsMember({"fail", "skip", "replace", "rename"}));
    command->add_option("--report", batch_.report, "A line of JSON for each file")->type_name("FILE");
    command
        ->add_option("--resume", batch_.resume,
                     "Go on where the run of this report stopped, and report there")
        ->type_name("FILE");
    command->add_option("--shard", batch_.shard, "Only part I of N of the list")->type_name("I/N");
    command
        ->add_option("--merge-reports", batch_.mergeReports,
                     "Join the reports that stand in place of INPUT to this file")
        ->type_name("FILE");
    command->add_option("--save-job", batch_.saveJob, "Write the job to a file and stop")->type_name("FILE");
    command->add_flag("--dry-run", batch_.dryRun, "Tell what would be written");
    command->add_flag("--no-sandbox", batch_.noSandbox, "Let the processes keep all rights");
    addInput(*command, batch_.input);
}

void CommandLine::addAlgorithms() {
    CLI::App* command = add("algorithms", "List the algorithms and their parameters",
                            [this](TerminalUi&) { return runAlgorithms(algorithms_); });
    command->add_flag("--audio", algorithms_.audio, "Those for waves");
    command->add_flag("--midi", algorithms_.midi, "Those for songs");
    command->add_flag("--instrument", algorithms_.instrument, "Those for instruments");
    command->add_flag("--json", algorithms_.json, "As JSON");
}

void CommandLine::addDraw() {
    CLI::App* command =
        add("draw", "Draw waves as pictures", [this](TerminalUi& ui) { return runDraw(draw_, ui); });
    command->add_option("INPUT", draw_.path, "File")->required();
    command
        ->add_option("-o,--output", draw_.output,
                     "PNG file, or - for standard output; several pictures get numbers")
        ->required()
        ->type_name("FILE");
    CLI::Option_group* kind = command->add_option_group("Kind");
    kind->add_flag("--waveform", draw_.waveform, "Level over time, with loop and cue points (the default)");
    kind->add_flag("--spectrum", draw_.spectrum, "Mean level by frequency");
    kind->add_flag("--spectrogram", draw_.spectrogram, "Level by time and frequency");
    CLI::Option* loop = kind->add_flag("--loop", draw_.loop, "What is played around the seam of the loop");
    kind->require_option(0, 1);
    command
        ->add_option("--waves", draw_.waves, "wave:N or wave:\"NAME\" as info shows them, or all; repeatable")
        ->type_name("WAVE")
        ->allow_extra_args(false);
    command->add_option("--range", draw_.range, "Only these frames")->type_name("FROM:TO")->excludes(loop);
    command->add_option("--size", draw_.size, "Pixels, from 160x120 to 16384x16384; else 1200x600")
        ->type_name("WIDTHxHEIGHT");
    command->add_flag("--dark", draw_.dark, "Light on dark");
    command->add_flag("--force", draw_.force, "Replace files that exist");
    addInput(*command, draw_.input);
}

void CommandLine::addPlugins() {
    CLI::App* command = add("plugins", "List the audio effects that are installed, or what can be set of one",
                            [this](TerminalUi& ui) { return runPlugins(plugins_, ui); });
    command->add_option("NAME", plugins_.name, "An effect by its id, name or label");
    command->add_flag("--json", plugins_.json, "As JSON");
}

void CommandLine::addPreset() {
    CLI::App* command = add("preset", "Articulation presets (.dlsa)",
                            [this](TerminalUi& ui) { return runPreset(preset_, ui); });
    command->require_subcommand(1);
    CLI::App* show = addAction(*command, preset_.action, "show", "Print a preset");
    show->add_option("PRESET", preset_.paths, "Preset file")->required()->expected(1);
    show->add_flag("--json", preset_.json, "As JSON");
    CLI::App* extract = addAction(*command, preset_.action, "extract", "Save what an instrument sounds with");
    extract->add_option("INPUT PRESET", preset_.paths, "Bank, then the preset file to make")
        ->required()
        ->expected(2);
    CLI::App* apply = addAction(*command, preset_.action, "apply", "Give instruments of a bank a preset");
    apply->add_option("PRESET INPUT OUTPUT", preset_.paths, "Preset file, bank, and the bank to make")
        ->required()
        ->expected(3);
    apply->add_option("--to", preset_.to, "Format of the output, else by its extension")->type_name("FORMAT");
    for (CLI::App* action : {extract, apply}) {
        action
            ->add_option("--item", preset_.item,
                         "This instrument, layer or region; else the first one's sound is saved, and all "
                         "instruments take the preset")
            ->type_name("ITEM");
        action->add_flag("--force", preset_.force, "Replace a file that exists");
        addInput(*action, preset_.input);
    }
}

void CommandLine::addMidi() {
    CLI::App* command =
        add("midi", "Events of MIDI songs", [this](TerminalUi& ui) { return runMidi(midi_, ui); });
    command->require_subcommand(1);
    CLI::App* events = addAction(*command, midi_.action, "events", "List the events of all tracks");
    events->add_option("FILE", midi_.path, "File with a song")->required();
    events->add_option("--track", midi_.track, "Only this track, as info counts them")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    CLI::Option* eventsJson = events->add_flag("--json", midi_.json, "As JSON");
    events->add_flag("--notation", midi_.notation, "As `midi edit` takes them")->excludes(eventsJson);
    addInput(*events, midi_.input);
    CLI::App* editEvents =
        addAction(*command, midi_.action, "edit", "Change, insert and delete events of a track");
    editEvents->add_option("FILE", midi_.path, "File with a song")->required();
    editEvents->add_option("-o,--output", midi_.output, "File to write")->required()->type_name("FILE");
    editEvents->add_option("--track", midi_.track, "The track, as info counts them")
        ->required()
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    editEvents->add_option("--insert", midi_.inserts, "New event in its place in time; may be repeated")
        ->type_name("EVENT")
        ->allow_extra_args(false);
    editEvents
        ->add_option("--modify", midi_.modifications,
                     "Replace the event of this number; it moves when its time does")
        ->type_name("\"INDEX EVENT\"")
        ->allow_extra_args(false);
    editEvents->add_option("--delete", midi_.deletions, "Delete the event of this number")
        ->type_name("INDEX")
        ->check(CLI::PositiveNumber)
        ->allow_extra_args(false);
    editEvents->add_option("--to", midi_.to, "Format of the output, else by its extension")
        ->type_name("FORMAT");
    editEvents->add_flag("--force", midi_.force, "Replace a file that exists");
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
    addInput(*editEvents, midi_.input);
}

void CommandLine::addSettings() {
    CLI::App* command =
        add("settings", "Show or change settings", [this](TerminalUi&) { return runSettings(setting_); });
    command->require_subcommand(1);
    CLI::App* list = addAction(*command, setting_.action, "list", "All settings with their values");
    list->add_flag("--json", setting_.json, "As JSON");
    CLI::App* get = addAction(*command, setting_.action, "get", "One value");
    get->add_option("NAME", setting_.name)->required();
    CLI::App* set = addAction(*command, setting_.action, "set", "Change a value");
    set->add_option("NAME", setting_.name)->required();
    set->add_option("VALUE", setting_.value)->required();
    CLI::App* reset = addAction(*command, setting_.action, "reset", "One value, or all, to the default");
    reset->add_option("NAME", setting_.name);
    addAction(*command, setting_.action, "pset", "The parameter sets, and the active one's switches");
}

} // namespace

int runCommandLine(int argc, char** argv) {
    return CommandLine().run(argc, argv);
}

} // namespace kv
