// The command line's spelling, in terms of CLI11: the one file that includes it.
#include "driver/command_line.h"

#include <CLI/CLI.hpp>
#include <thread>

#ifndef VESK_VERSION
#define VESK_VERSION "unknown"
#endif

namespace vesk::compiler {
namespace {

// Options that CLI11 has no spelling for, under the long names it knows.
std::string longSpelling(const std::string& word) {
    if (word == "-MD") return "--write-dependencies";
    if (word == "-MF") return "--dependency-file";
    return word;
}

// Takes the words given and nothing else; an enumeration's numbers are no words.
template <class T>
CLI::Validator choice(std::vector<std::pair<std::string, T>> names) {
    return CLI::Validator(
        [names = std::move(names)](std::string& word) -> std::string {
            std::string expected;
            for (const auto& [name, value] : names) {
                if (name == word) {
                    word = std::to_string(static_cast<int>(value));
                    return {};
                }
                expected += (expected.empty() ? "" : ", ") + name;
            }
            return "'" + word + "' is none of " + expected;
        },
        "");
}

void addCommonOptions(CLI::App& app, CommandLine& line) {
    app.add_option("--source-path", line.sourcePaths, "a further source root; may be given several times")
        ->type_name("DIR")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);  // what follows its one value is a file
    app.add_option("--cache-dir", line.cacheDirectory,
                   "where the cache lies (else VESK_CACHE_DIR, else the XDG folder)")
        ->type_name("DIR");
    app.add_option("--cache", line.cache, "on, memory, readonly or off")
        ->transform(choice<CacheMode>({{"on", CacheMode::On},
                                       {"memory", CacheMode::Memory},
                                       {"readonly", CacheMode::ReadOnly},
                                       {"off", CacheMode::Off}}))
        ->type_name("MODE");
    app.add_option("-j,--jobs", line.jobs, "threads to use")->check(CLI::Range(1U, 1024U))->type_name("N");
    app.add_option("-O", line.optimization, "optimization, 0 to 3")->check(CLI::Range(0, 3))->type_name("LEVEL");
    app.add_flag("--write-dependencies", line.writeDependencies, "(also -MD) write the files read, as a make rule");
    app.add_option("--dependency-file", line.dependencyFile, "(also -MF) the file that -MD writes")->type_name("FILE");
    app.add_option("--color", line.color, "auto, always or never")
        ->transform(
            choice<ColorMode>({{"auto", ColorMode::Auto}, {"always", ColorMode::Always}, {"never", ColorMode::Never}}))
        ->type_name("WHEN");
    app.add_option("--diagnostics", line.diagnostics, "text or json (one object a line)")
        ->transform(choice<DiagnosticForm>({{"text", DiagnosticForm::Text}, {"json", DiagnosticForm::Json}}))
        ->type_name("FORM");
    app.add_flag("--all-notes", line.allNotes, "show every request of a long chain, not its ends alone");
    app.add_option("--time-trace", line.timeTrace, "write how long the stages took, as a Chrome trace")
        ->type_name("FILE");
    app.add_flag("--stats", line.stats, "print counts and times to standard error at the end");
}

void addInputs(CLI::App& app, CommandLine& line, const std::string& text) {
    app.add_option("FILE", line.inputs, text)->required();
}

}  // namespace

CommandLineResult parseCommandLine(const std::vector<std::string>& words) {
    CommandLineResult result;
    CommandLine line;
    line.jobs = std::max(1U, std::thread::hardware_concurrency());

    CLI::App app{"The vesk compiler.", "veskc"};
    app.set_version_flag("--version", "veskc " VESK_VERSION);
    app.require_subcommand(1);
    const std::string files = "a source file, several, or a folder";

    CLI::App* run = app.add_subcommand("run", "compile a program and run it at once; its arguments follow `--`");
    CLI::App* build = app.add_subcommand("build", "make an executable");
    CLI::App* check = app.add_subcommand("check", "report mistakes only");
    CLI::App* emit = app.add_subcommand("emit", "write what a stage makes of the main file");
    CLI::App* explain = app.add_subcommand("explain", "tell how the generic calls at a place were resolved");
    CLI::App* repl = app.add_subcommand("repl", "an interactive session");
    CLI::App* cache = app.add_subcommand("cache", "look after the cache");
    for (CLI::App* command : {run, build, check, emit, explain, repl, cache}) addCommonOptions(*command, line);
    for (CLI::App* command : {run, build, check, emit}) addInputs(*command, line, files);
    build->add_option("-o", line.output, "the executable")->required()->type_name("OUT");
    emit->add_option("-o", line.output, "a file, or a folder for one file per unit; else standard output")
        ->type_name("OUT");
    emit->add_option("--emit", line.emit, "il, asm, obj, tokens or ast")
        ->required()
        ->transform(choice<EmitKind>({{"il", EmitKind::IL},
                                      {"asm", EmitKind::Assembly},
                                      {"obj", EmitKind::Object},
                                      {"tokens", EmitKind::Tokens},
                                      {"ast", EmitKind::Tree}}))
        ->type_name("KIND");
    cache->add_option("VERB", line.cacheVerb, "stats, verify or clear")
        ->required()
        ->check(CLI::IsMember({"stats", "verify", "clear"}));

    std::string place;
    explain->add_option("PLACE", place, "FILE:LINE or FILE:LINE:COLUMN")->required();
    explain->add_option("FILE", line.inputs, "further files of the program");
    for (CLI::App* command : {run, build, check, emit}) {
        command
            ->add_flag("--print-specializations{text}", line.specializations,
                       "list what was specialized, for whom and at what cost, to standard error; =json for tools")
            ->transform(
                choice<SpecializationList>({{"text", SpecializationList::Text}, {"json", SpecializationList::Json}}));
    }

    std::vector<std::string> arguments;
    auto word = words.begin();
    for (; word != words.end() && *word != "--"; ++word) arguments.push_back(longSpelling(*word));
    const bool hasProgramArguments = word != words.end();
    if (hasProgramArguments) line.programArguments.assign(word + 1, words.end());
    std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them from the end

    try {
        app.parse(arguments);
        if (hasProgramArguments && !run->parsed()) throw CLI::ExtrasError({"--"});
    } catch (const CLI::ParseError& error) {
        std::ostringstream out, err;
        const bool isHelp = app.exit(error, out, err) == 0;
        result.text = isHelp ? out.str() : "veskc: " + err.str();
        result.status = isHelp ? 0 : 2;
        return result;
    }
    if (explain->parsed()) {
        const std::optional<SourcePlace> found = parseSourcePlace(place);
        if (!found) {
            result.text = "veskc: '" + place + "' is no place: write FILE:LINE or FILE:LINE:COLUMN\n";
            result.status = 2;
            return result;
        }
        line.place = *found;
        line.inputs.insert(line.inputs.begin(), found->file);
    }
    line.command = run->parsed()       ? Command::Run
                   : build->parsed()   ? Command::Build
                   : check->parsed()   ? Command::Check
                   : emit->parsed()    ? Command::Emit
                   : explain->parsed() ? Command::Explain
                   : repl->parsed()    ? Command::Repl
                                       : Command::Cache;
    result.command = std::move(line);
    return result;
}

}  // namespace vesk::compiler
