// The commands as pages of steps: find the sources, load them, compile their units, then run or write what came out.
#include "driver/commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

#include "cache/trusted_cache.h"
#include "driver/build_graph.h"
#include "driver/cache_command.h"
#include "driver/command_line.h"
#include "driver/dependency_file.h"
#include "driver/diagnostic_renderer.h"
#include "driver/executable.h"
#include "driver/program_sources.h"
#include "driver/repl.h"
#include "driver/specialization_report.h"
#include "driver/time_trace.h"
#include "generics/generic_specializer.h"
#include "host/compiler_sources.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "host/tokens.h"
#include "host/tree_generator.h"
#include "il/executable_parts.h"
#include "il/jit.h"
#include "il/shown_text.h"
#include "semantics/namesakes.h"
#include "syntax/tree_printer.h"

namespace vesk::compiler {
namespace {

constexpr int STATUS_MISTAKES = 1;
constexpr int STATUS_WRONG_USE = 2;
constexpr int STATUS_INTERNAL = 70;
constexpr std::size_t MOST_DIAGNOSTICS = CompileSession::MOST_DIAGNOSTICS;

void complain(const std::string& message) { std::cerr << "veskc: " << withControlsShown(message) << "\n"; }

// What other programs say may have several lines.
void complainInLines(const std::string& message) {
    std::string shown;
    for (std::size_t begin = 0; begin <= message.size();) {
        const std::size_t end = std::min(message.find('\n', begin), message.size());
        shown += (begin ? "\n" : "") + withControlsShown(std::string_view(message).substr(begin, end - begin));
        begin = end + 1;
    }
    std::cerr << "veskc: " << shown << "\n";
}

std::string workingFolder() {
    std::error_code ignored;
    return std::filesystem::current_path(ignored).string();
}

bool useColor(ColorMode mode) {
    if (mode != ColorMode::Auto) return mode == ColorMode::Always;
    const char* refused = std::getenv("NO_COLOR");
    return (!refused || !*refused) && isatty(STDERR_FILENO) == 1;
}

// One command at work: what was asked, the program's sources, and the session that compiles them.
// The program has to be compiled with a stand-in for its default package.
struct NamesakesFound {};

// What a command that starts again without the cache takes over from the first attempt.
struct FirstAttempt {
    std::shared_ptr<CacheTrouble> trouble;
    // What of the cache the failure may come from.
    std::shared_ptr<TrustedCache> cache;
    std::vector<std::string> suspects;
};

class Work {
public:
    // `defaultPackage`: what stands in for the default one, "" = nothing yet. The suspects of a first attempt are removed
    // when this command, which does without them, comes to its end.
    Work(const CommandLine& line, std::string defaultPackage, FirstAttempt first)
        : line_(line),
          first_(std::move(first)),
          sources_(findProgramSources(line.inputs)),
          defaultPackage_(std::move(defaultPackage)),
          session_(sessionOptions()),
          scope_(session_),
          renderer_({useColor(line.color), workingFolder(), &session_.types(), line.allNotes,
                     [this](const std::string& text) { return withoutStandInPackage(session_, text); }}) {}

    // Whether a failure may come from the cache, and nothing has happened yet that could be seen. An explanation starts
    // only once: it tells what the cache has answered.
    bool canStartAgain() const {
        return line_.cache != CacheMode::Off && !isRunning_ && line_.command != Command::Explain;
    }
    FirstAttempt failed() const {
        FirstAttempt attempt{cacheTrouble_, nullptr, {}};
        if (line_.cache != CacheMode::On) return attempt;
        attempt.cache = session_.cache();
        if (attempt.cache) attempt.suspects = {Runtime::getGenericsPath(), Runtime::getInstance().getAppGenericsPath()};
        return attempt;
    }

    // Throws UnreadableInput when some source is there and cannot be read.
    void checkAllWasReadable() const;

    int run();
    int build();
    int check();
    int emit();
    int explain();
    // Ends the command with a mistake that a step threw, beside those reported before.
    int fail(const CompilerException& error) {
        session_.report(error);
        return finish(STATUS_MISTAKES);
    }

private:
    SessionOptions sessionOptions() const {
        SessionOptions options;
        options.sourceRoots = sources_.roots;
        for (const std::string& path : line_.sourcePaths)
            options.sourceRoots.push_back(SourceManager::normalizePath(path));
        options.cacheDirectory = line_.cacheDirectory;
        options.cache = line_.cache;
        options.defaultPackage = defaultPackage_;
        options.isOptimized = level() != OptimizationLevel::O0;
        options.cacheTrouble = cacheTrouble_;
        options.programRoot = sources_.roots.empty() ? "" : sources_.roots.front();
        return options;
    }

    bool load();
    FileDeclaration* mainFile() const;
    bool compile(BuildGraph& graph);
    // All that a program is made of, optimized.
    struct Program {
        std::vector<CompiledUnit> units;
        ProgramStart start;
    };
    void checkMain(FileDeclaration& main);
    std::optional<Program> compileProgram();
    bool mayWrite(const std::string& output) const;
    void addUnits(Jit& jit, std::vector<CompiledUnit>& units);
    void optimize(std::vector<CompiledUnit>& units);
    int finish(int status);
    void report(const CompilerException& error);
    void reportAll();

    int emitTokens();
    int emitTree();
    int emitUnits(const std::vector<CompiledUnit>& units);
    bool emitsToFolder() const;
    void emitUnit(UnitModule& module, std::ostream& out) const;
    std::string unitFileName(const std::string& path) const;
    bool writeFile(const std::string& path, const std::string& bytes) const;

    OptimizationLevel level() const { return static_cast<OptimizationLevel>(line_.optimization); }

    const CommandLine& line_;
    const FirstAttempt first_;
    std::shared_ptr<CacheTrouble> cacheTrouble_ = first_.trouble ? first_.trouble : std::make_shared<CacheTrouble>();
    ProgramSources sources_;
    std::string defaultPackage_;
    CompileSession session_;
    ScopedCompileSession scope_;
    DiagnosticRenderer renderer_;
    TimeTrace trace_;
    std::vector<ResolutionReport> resolutions_;  // recorded for those who ask
    std::vector<FileDeclaration*> files_;
    std::vector<std::string> units_;  // paths of all compiled units
    std::unique_ptr<ObjectCache> objects_;
    bool isRunning_ = false;
};

void Work::report(const CompilerException& error) {
    const bool asJson = line_.diagnostics == DiagnosticForm::Json;
    std::cerr << (asJson ? renderer_.json(error) : renderer_.text(error));
}

void Work::reportAll() {
    const std::vector<CompilerException> all = session_.diagnostics();
    for (std::size_t i = 0; i < std::min(all.size(), MOST_DIAGNOSTICS); i++) report(all[i]);
    if (all.size() > MOST_DIAGNOSTICS) complain(std::to_string(all.size() - MOST_DIAGNOSTICS) + " more errors");
}

// Without a source that is there, neither mistakes nor their absence mean anything.
void Work::checkAllWasReadable() const {
    if (const auto found = session_.unreadable())
        throw UnreadableInput("cannot read '" + renderer_.displayPath(found->path) + "': " + found->reason);
}

// All files given, before anything is checked: together they are the program's default package.
bool Work::load() {
    StageTimer timer(trace_, "load");
    const bool hasLibrary = session_.classNamed("vesk.Object") != nullptr;
    checkAllWasReadable();
    if (!hasLibrary)
        throw UnreadableInput("cannot find the standard library: set VESK_STDLIB to the folder that holds 'vesk/'");
    for (const std::string& path : sources_.files) {
        if (FileDeclaration* file = session_.loadFile(path)) files_.push_back(file);
    }
    Runtime::getInstance().getCacheBranchPath();  // looks at the whole library
    checkAllWasReadable();
    if (defaultPackage_.empty() && hasNamesakes(session_, files_)) throw NamesakesFound();
    return !session_.hasErrors();
}

// The first of the files given that declares a function `main`, else the first.
FileDeclaration* Work::mainFile() const {
    for (FileDeclaration* file : files_) {
        const auto& functions = file->functions;
        if (std::any_of(functions.begin(), functions.end(), [](auto* function) { return function->name == "main"; }))
            return file;
    }
    return files_.front();
}

bool Work::compile(BuildGraph& graph) {
    std::optional<ScopedResolutionRecording> recording;
    if (line_.command == Command::Explain || line_.specializations != SpecializationList::None)
        recording.emplace(resolutions_);
    for (FileDeclaration* file : files_) graph.open(*file);
    const bool isSound = graph.compile();
    units_ = graph.unitPaths();
    return isSound;
}

void Work::optimize(std::vector<CompiledUnit>& units) {
    if (level() == OptimizationLevel::O0) return;
    for (auto& unit : units) {
        if (!unit.module) continue;
        StageTimer timer(trace_, "optimize", unit.path);
        optimizeModule(*unit.module, level());
    }
}

// What every command ends with: its diagnostics, and the files and figures that options ask for.
int Work::finish(int status) {
    checkAllWasReadable();
    // A mistake may be one of a bundle that its sources have left behind: it counts when it is there without bundles too.
    if (session_.hasErrors() && canStartAgain() && specializationCounts().methodsFromBundles > 0)
        throw std::runtime_error("mistakes beside bundles");
    if (!session_.hasErrors()) {
        FileProblem ignored;
        for (const std::string& folder : first_.suspects) first_.cache->remove(folder, ignored);
    }
    session_.tidyCache();
    reportAll();
    if (cacheTrouble_->isThere()) complain("warning: " + cacheTrouble_->text());
    if (session_.hasErrors()) status = STATUS_MISTAKES;
    if (line_.specializations != SpecializationList::None) {
        const auto entries = specializationsOf(session_, resolutions_);
        const bool asJson = line_.specializations == SpecializationList::Json;
        std::cerr << withoutStandInPackage(
            session_, asJson ? specializationsAsJson(entries, renderer_) : specializationsAsText(entries, renderer_));
    }
    if (line_.writeDependencies || !line_.dependencyFile.empty()) {
        const std::string main = std::filesystem::path(sources_.files.front()).stem().string();
        const std::string target = line_.output.empty() ? main : line_.output;
        const std::string path = line_.dependencyFile.empty() ? target + ".d" : line_.dependencyFile;
        std::vector<std::string> files;
        for (const FileDeclaration* file : session_.allFiles()) {
            if (!file->isGenerated) files.push_back(renderer_.displayPath(file->path));
        }
        if (!writeFile(path, dependencyRule(target, files))) return STATUS_WRONG_USE;
    }
    if (!line_.timeTrace.empty() && !mayWrite(line_.timeTrace)) return STATUS_WRONG_USE;
    if (!line_.timeTrace.empty() && !trace_.write(line_.timeTrace)) {
        complain("cannot write '" + line_.timeTrace + "': " + std::strerror(errno));
        return STATUS_WRONG_USE;
    }
    if (line_.stats) {
        std::size_t specializations = 0;
        for (const std::string& unit : units_) specializations += session_.registrationCount(unit);
        std::cerr << "files: " << session_.allFiles().size() << "\nunits: " << units_.size()
                  << "\nspecializations: " << specializations << "\n"
                  << specializationCountLines();
        if (objects_)
            std::cerr << "objects: " << objects_->foundCount() << " found, " << objects_->madeCount() << " made\n";
        for (const TimeTrace::Stage& stage : trace_.stages()) {
            const auto time = std::chrono::duration_cast<std::chrono::microseconds>(stage.end - stage.begin).count();
            std::cerr << stage.name << (stage.detail.empty() ? "" : " " + renderer_.shownPath(stage.detail)) << ": "
                      << time << " us\n";
        }
    }
    return status;
}

// Objects that hold for all programs are linked first; the program's own code refers to them.
void Work::addUnits(Jit& jit, std::vector<CompiledUnit>& units) {
    const auto isShared = [](const CompiledUnit& unit) { return unit.stored && unit.stored->inputs.empty(); };
    std::vector<std::string_view> shared;
    for (const CompiledUnit& unit : units) {
        if (isShared(unit)) shared.push_back(unit.stored->object);
    }
    StageTimer timer(trace_, "link");
    const bool areLinked = shared.empty() || jit.link(shared);
    for (CompiledUnit& unit : units) {
        if (unit.stored && areLinked && isShared(unit)) continue;
        if (unit.stored) {
            jit.preferLinked(unit.stored->defines);
            jit.addObject(unit.path, unit.stored->object);
        } else {
            jit.add(std::move(unit.module));
        }
    }
}

// Its mistakes hide no others.
void Work::checkMain(FileDeclaration& main) {
    try {
        session_.checkDeclarations(main);
        mainFunctionOf(session_, main);
    } catch (const CompilerException& error) {
        session_.report(error);
    }
}

// Nothing when there are mistakes.
std::optional<Work::Program> Work::compileProgram() {
    if (!load()) return std::nullopt;
    FileDeclaration& main = *mainFile();
    checkMain(main);
    if (line_.cache != CacheMode::Off) objects_ = std::make_unique<ObjectCache>(session_, level(), sources_.files);
    BuildGraph graph(session_, trace_, BuildGraph::Reach::Program, objects_.get());
    if (!compile(graph)) return std::nullopt;

    Program program;
    program.units = graph.finish();
    checkAllWasReadable();
    program.start = programStart(session_, main, program.units);
    optimize(program.units);
    if (objects_) objects_->keepObjects(program.units);
    return program;
}

int Work::run() {
    std::optional<Program> program = compileProgram();
    if (!program) return finish(STATUS_MISTAKES);
    Jit& jit = *new Jit(level());  // like the session: the process ends without taking it apart
    addUnits(jit, program->units);
    jit.add(makeStartModule(program->start));
    {
        StageTimer timer(trace_, "generate code");
        jit.lookup("vesk_start");
    }
    if (const int status = finish(0)) return status;
    isRunning_ = true;
    return jit.run(line_.programArguments);
}

// False, with a complaint, where writing a file would take away what was compiled.
bool Work::mayWrite(const std::string& output) const {
    std::error_code ignored;
    const auto isOutput = [&](const std::string& path) { return std::filesystem::equivalent(path, output, ignored); };
    const auto& loaded = session_.allFiles();
    const bool isSource =
        std::any_of(sources_.files.begin(), sources_.files.end(), isOutput) ||
        std::any_of(loaded.begin(), loaded.end(), [&](const FileDeclaration* file) { return isOutput(file->path); });
    if (isSource) complain("cannot write '" + output + "': it is a source of the program");
    return !isSource;
}

int Work::build() {
    std::optional<Program> program = compileProgram();
    if (!program) return finish(STATUS_MISTAKES);
    if (!mayWrite(line_.output)) return STATUS_WRONG_USE;
    Executable executable(line_.output);
    {
        StageTimer timer(trace_, "generate code");
        executable.addObject(emitOpeningObject(program->start, level()));
        for (CompiledUnit& unit : program->units) {
            executable.addObject(unit.stored ? unit.stored->object : emitObject(*unit.module, level()));
            unit.module.reset();
        }
        executable.addObject(emitClosingObject(level()));
    }
    {
        StageTimer timer(trace_, "link");
        executable.link();
    }
    {
        StageTimer timer(trace_, "write traces");
        const std::string table = traceTableOf(executable.linkedFile());
        if (table.empty())
            complain("warning: the linker has removed debug information: panics of this program have no traces");
        executable.append(table);
    }
    executable.publish();
    return finish(0);
}

int Work::check() {
    if (!load()) return finish(STATUS_MISTAKES);
    CheckedMethods checked(session_, sources_.files);
    BuildGraph graph(session_, trace_, BuildGraph::Reach::Application, checked);
    return finish(compile(graph) ? 0 : STATUS_MISTAKES);
}

int Work::emit() {
    if (line_.emit == EmitKind::Tokens) return emitTokens();
    if (line_.emit == EmitKind::Tree) return emitTree();
    if (!load()) return finish(STATUS_MISTAKES);
    const bool toFolder = emitsToFolder();
    CheckedMethods checked(session_, sources_.files);
    auto graph = toFolder ? std::make_unique<BuildGraph>(session_, trace_, BuildGraph::Reach::Program)
                          : std::make_unique<BuildGraph>(session_, trace_, BuildGraph::Reach::Application, checked);
    if (!compile(*graph)) return finish(STATUS_MISTAKES);
    auto& units = *new std::vector<CompiledUnit>(graph->finish());  // like the session: left to the system
    checkAllWasReadable();
    if (!toFolder) std::erase_if(units, [&](const CompiledUnit& unit) { return unit.path != mainFile()->path; });
    optimize(units);
    const int status = emitUnits(units);
    return status ? status : finish(0);
}

int Work::explain() {
    if (!load()) return finish(STATUS_MISTAKES);
    BuildGraph graph(session_, trace_, BuildGraph::Reach::GivenFiles);
    compile(graph);
    SourcePlace place = line_.place;
    place.file = SourceManager::normalizePath(place.file);
    const std::string text = explainCalls(place, resolutions_, renderer_);
    if (text.empty()) {
        complain("there is no generic call at " + line_.place.text());
        return finish(STATUS_WRONG_USE);
    }
    return writeFile("", text) ? finish(0) : STATUS_WRONG_USE;
}

int Work::emitTokens() {
    const std::string& path = sources_.files.front();
    std::string text;
    try {
        UnreadReason reason;
        const auto source = SourceManager::contents(path, reason);
        if (!source) throw UnreadableInput("cannot read '" + renderer_.displayPath(path) + "': " + reason.text);
        text = printTokens(Tokenizer(*source, path).tokens());
    } catch (const CompilerException& error) {
        return fail(error);
    }
    return writeFile(line_.output, text) ? finish(0) : STATUS_WRONG_USE;
}

int Work::emitTree() {
    if (!load()) return finish(STATUS_MISTAKES);
    return writeFile(line_.output, printTree(files_.front()->node)) ? finish(0) : STATUS_WRONG_USE;
}

void Work::emitUnit(UnitModule& module, std::ostream& out) const {
    switch (line_.emit) {
        case EmitKind::Assembly: out << emitAssembly(module, level()); break;
        case EmitKind::Object: out << emitObject(module, level()); break;
        default: printIL(module, out); break;
    }
}

// Closes a file; false, and a complaint, when some of it could not be written.
bool isWritten(std::ofstream& out, const std::string& path) {
    out.close();
    if (!out.good()) complain("cannot write '" + path + "': " + std::strerror(errno));
    return out.good();
}

// A unit's file in an output folder: its path below its source root, flat.
std::string Work::unitFileName(const std::string& path) const {
    std::string name = std::filesystem::path(path).filename().string();
    for (const std::string& root : session_.options().sourceRoots) {
        if (path.starts_with(root + "/")) {
            name = path.substr(root.size() + 1);
            break;
        }
    }
    if (const FileDeclaration* file = session_.loadedFile(path); file && file->isStandardLibrary) {
        name = file->package + "." + std::filesystem::path(path).filename().string();
    }
    std::replace(name.begin(), name.end(), '/', '.');
    if (name.ends_with(".vk")) name.resize(name.size() - 3);
    return name + (line_.emit == EmitKind::Assembly ? ".s" : line_.emit == EmitKind::Object ? ".o" : ".ll");
}

// Every unit then has a file of its own; else the main one is all.
bool Work::emitsToFolder() const {
    std::error_code ignored;
    return line_.output.ends_with('/') || std::filesystem::is_directory(line_.output, ignored);
}

int Work::emitUnits(const std::vector<CompiledUnit>& units) {
    StageTimer timer(trace_, "write");
    const bool toFolder = emitsToFolder();
    if (toFolder) {
        std::error_code error;
        std::filesystem::create_directories(line_.output, error);
        if (error) {
            complain("cannot make folder '" + line_.output + "': " + error.message());
            return STATUS_WRONG_USE;
        }
    }
    for (const CompiledUnit& unit : units) {
        if (!toFolder && (line_.output.empty() || line_.output == "-")) {
            emitUnit(*unit.module, std::cout);
            std::cout.flush();
            continue;
        }
        const std::string path =
            toFolder ? (std::filesystem::path(line_.output) / unitFileName(unit.path)).string() : line_.output;
        if (!mayWrite(path)) return STATUS_WRONG_USE;
        // Straight into the file: the text of a large unit need not stand in memory as well.
        std::ofstream out(path, std::ios::binary);
        emitUnit(*unit.module, out);
        if (!isWritten(out, path)) return STATUS_WRONG_USE;
    }
    return 0;
}

// To standard output for "" and "-".
bool Work::writeFile(const std::string& path, const std::string& bytes) const {
    if (path.empty() || path == "-") {
        std::cout << bytes << std::flush;
        return true;
    }
    if (!mayWrite(path)) return false;
    std::ofstream out(path, std::ios::binary);
    out << bytes;
    return isWritten(out, path);
}

int perform(const CommandLine& line, const FirstAttempt& first = {}, const std::string& defaultPackage = {}) {
    if (line.command == Command::Repl) return runRepl(line, useColor(line.color));
    if (line.command == Command::Cache) return runCacheCommand(line);
    // Taking a large program's trees and types apart one by one would only delay the end of the process.
    Work* work = new Work(line, defaultPackage, first);
    try {
        try {
            switch (line.command) {
                case Command::Run: return work->run();
                case Command::Build: return work->build();
                case Command::Check: return work->check();
                case Command::Explain: return work->explain();
                default: return work->emit();
            }
        } catch (const CompilerException& error) {
            return work->fail(error);
        }
    } catch (const NamesakesFound&) {
        resetGenericSpecializerSession();
        return perform(line, first, STAND_IN_PACKAGE);
    } catch (const UnreadableInput&) {
        throw;
    } catch (const ExecutableTrouble&) {
        throw;
    } catch (const std::runtime_error&) {
        work->checkAllWasReadable();
        if (!work->canStartAgain()) throw;
    }
    // Parts of the cache that belong together may have been cleared, damaged or left behind by their sources: the program
    // is compiled without it.
    static CommandLine again;
    again = line;
    again.cache = CacheMode::Off;
    resetGenericSpecializerSession();
    return perform(again, work->failed(), defaultPackage);
}

}  // namespace

namespace {

// The status, unless standard output could not take all that was written to it.
int withWrittenOutput(int status) {
    std::cout.flush();
    if (std::cout.good() || status != 0) return status;
    complain(std::string("cannot write to standard output: ") + std::strerror(errno));
    return STATUS_WRONG_USE;
}

}  // namespace

int runCommandLine(const std::vector<std::string>& words) {
    CommandLineResult parsed = parseCommandLine(words);
    if (!parsed.command) {
        (parsed.status == 0 ? std::cout : std::cerr) << parsed.text << std::flush;
        return withWrittenOutput(parsed.status);
    }
    static const CommandLine line = std::move(*parsed.command);
    // A file that may grow no further is a write that fails.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return withWrittenOutput(perform(line));
    } catch (const UnreadableInput& error) {
        complain(error.what());
        return STATUS_WRONG_USE;
    } catch (const ExecutableTrouble& error) {
        complain(error.what());
        return STATUS_WRONG_USE;
    } catch (const LinkFailure& error) {
        complainInLines(error.what());
        return STATUS_WRONG_USE;
    } catch (const OutOfResources& error) {
        complain(error.what());
        return STATUS_INTERNAL;
    } catch (const std::bad_alloc&) {
        complain("out of memory");
        return STATUS_INTERNAL;
    } catch (const std::exception& error) {
        complain(std::string("internal failure: ") + error.what());
        return STATUS_INTERNAL;
    }
}

}  // namespace vesk::compiler
