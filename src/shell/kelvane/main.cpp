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
    app.add_option("--codec-bits", input.codecBits,
                   "Bits of a code, where a coded raw format has several widths")
        ->type_name("N")
        ->check(CLI::Range(2U, 8U));
    app.add_option("--raw-offset", input.rawOffset, "Bytes before the first raw sample")->type_name("BYTES");
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

    EditOptions edit;
    CLI::App* editCommand = app.add_subcommand("edit", "Change a collection as a whole");
    editCommand->add_option("INPUT", edit.inputs, "Files; several are merged")->required();
    editCommand->add_option("-o,--output", edit.output, "File to write")->required()->type_name("FILE");
    editCommand
        ->add_option(
            "--do", edit.operations,
            "Operation, repeated for more: auto-create, delete-unused, delete-duplicates, merge-stereo, "
            "split-stereo, unroll-loops, append-loop-tail, replace-waves=FILE")
        ->type_name("OPERATION")
        ->allow_extra_args(false);
    editCommand->add_option("--to", edit.to, "Format of the output, else by its extension")
        ->type_name("FORMAT");
    editCommand->add_flag("--force", edit.force, "Replace a file that exists");
    addInput(*editCommand, edit.input);

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
    convert.quiet = edit.quiet = globals.quiet;
    workspace().stateFolder = stateFolder();
    setting.file = globals.settingsFile;
    for (CLI::App* action : {list, get, set, reset, pset}) {
        if (action->parsed()) setting.action = action->get_name();
    }
    for (CLI::App* action : {show, extract, apply}) {
        if (action->parsed()) preset.action = action->get_name();
    }
    if (formatsCommand->parsed()) return runFormats(formats);
    if (detectCommand->parsed()) return runDetect(detect);
    if (infoCommand->parsed()) return runInfo(info, ui);
    if (convertCommand->parsed()) return runConvert(convert, ui);
    if (editCommand->parsed()) return runEdit(edit, ui);
    if (presetCommand->parsed()) return runPreset(preset, ui);
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
