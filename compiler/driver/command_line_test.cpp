#include "driver/command_line.h"

#include <gtest/gtest.h>

namespace vesk::compiler {
namespace {

CommandLine parsed(const std::vector<std::string>& words) {
    const CommandLineResult result = parseCommandLine(words);
    EXPECT_TRUE(result.command) << result.text;
    return result.command.value_or(CommandLine{});
}

TEST(CommandLine, EveryCommand) {
    EXPECT_EQ(parsed({"run", "a.vk"}).command, Command::Run);
    EXPECT_EQ(parsed({"build", "a.vk", "-o", "a"}).command, Command::Build);
    EXPECT_EQ(parsed({"check", "a.vk", "b.vk"}).inputs, (std::vector<std::string>{"a.vk", "b.vk"}));
    EXPECT_EQ(parsed({"emit", "a.vk", "--emit=il"}).command, Command::Emit);
    EXPECT_EQ(parsed({"repl"}).command, Command::Repl);
    EXPECT_EQ(parsed({"cache", "stats"}).cacheVerb, "stats");
}

TEST(CommandLine, WordsBehindTheSeparatorBelongToTheProgram) {
    const CommandLine line = parsed({"run", "a.vk", "-O2", "--", "-x", "--help", "--", "b"});
    EXPECT_EQ(line.inputs, std::vector<std::string>{"a.vk"});
    EXPECT_EQ(line.programArguments, (std::vector<std::string>{"-x", "--help", "--", "b"}));
    EXPECT_EQ(line.optimization, 2);
}

TEST(CommandLine, CommonOptions) {
    const CommandLine line = parsed({"check", "--source-path", "lib", "--source-path=more", "--cache-dir=c",
                                     "--cache=readonly", "-j", "3", "-O1", "-MD", "-MF", "deps", "--color=never",
                                     "--diagnostics=json", "--time-trace=t.json", "--stats", "--all-notes", "a.vk"});
    EXPECT_EQ(line.sourcePaths, (std::vector<std::string>{"lib", "more"}));
    EXPECT_EQ(line.inputs, std::vector<std::string>{"a.vk"});
    EXPECT_EQ(line.cacheDirectory, "c");
    EXPECT_EQ(line.cache, CacheMode::ReadOnly);
    EXPECT_EQ(line.jobs, 3U);
    EXPECT_EQ(line.optimization, 1);
    EXPECT_TRUE(line.writeDependencies);
    EXPECT_EQ(line.dependencyFile, "deps");
    EXPECT_EQ(line.color, ColorMode::Never);
    EXPECT_EQ(line.diagnostics, DiagnosticForm::Json);
    EXPECT_EQ(line.timeTrace, "t.json");
    EXPECT_TRUE(line.stats);
    EXPECT_TRUE(line.allNotes);
}

TEST(CommandLine, EmitKindsAndCacheModes) {
    const std::pair<const char*, EmitKind> kinds[] = {{"il", EmitKind::IL},
                                                      {"asm", EmitKind::Assembly},
                                                      {"obj", EmitKind::Object},
                                                      {"tokens", EmitKind::Tokens},
                                                      {"ast", EmitKind::Tree}};
    for (const auto& [name, kind] : kinds)
        EXPECT_EQ(parsed({"emit", std::string("--emit=") + name, "a.vk"}).emit, kind) << name;
    const std::pair<const char*, CacheMode> modes[] = {{"on", CacheMode::On},
                                                       {"memory", CacheMode::Memory},
                                                       {"readonly", CacheMode::ReadOnly},
                                                       {"off", CacheMode::Off}};
    for (const auto& [name, mode] : modes)
        EXPECT_EQ(parsed({"run", std::string("--cache=") + name, "a.vk"}).cache, mode) << name;
}

TEST(CommandLine, WrongUseEndsWithTwo) {
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"walk"},
        {"run"},
        {"run", "a.vk", "--cache=sometimes"},
        {"run", "a.vk", "-O4"},
        {"run", "a.vk", "-j0"},
        {"run", "a.vk", "--unknown"},
        {"emit", "a.vk"},
        {"emit", "a.vk", "--emit=bytes"},
        {"build", "a.vk"},
        {"check", "a.vk", "--", "x"},
        {"cache", "polish"},
    };
    for (const auto& words : wrong) {
        const CommandLineResult result = parseCommandLine(words);
        EXPECT_FALSE(result.command) << testing::PrintToString(words);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(words);
        EXPECT_TRUE(result.text.starts_with("veskc: ")) << result.text;
    }
}

TEST(CommandLine, HelpAndVersionEndWithZero) {
    for (const auto& words : std::vector<std::vector<std::string>>{{"--help"}, {"--version"}, {"run", "--help"}}) {
        const CommandLineResult result = parseCommandLine(words);
        EXPECT_FALSE(result.command);
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(result.text.empty());
    }
}

}  // namespace
}  // namespace vesk::compiler
