// Manifests: what is written, what is read back, and every damaged file.
#include "generics/bundles/bundle_manifest.h"

#include "generics/method_program_test.h"

namespace vesk::compiler {
namespace {

using MethodSpec = GenericMethodBundleManifest::MethodSpec;

const Str VERSION = "# @vesk-generic-method-bundle-version 7\n";
const Str OWNER = "# @vesk-generic-method-owner Box\n";
const Str ARG = "# @vesk-generic-method-arg Int\n";
const Str HEADER = VERSION + OWNER + ARG;

Str block(const Str& name, const Str& symbol, const Str& more = "") {
    Str text = "# @vesk-generic-method-spec-begin\n";
    if (!name.empty()) text += "# @vesk-generic-method-name " + name + "\n";
    if (!symbol.empty()) text += "# @vesk-generic-method-symbol " + symbol + "\n";
    return text + more + "# @vesk-generic-method-spec-end\n";
}

GenericMethodBundleManifest parsed(const Str& text) { return parseGenericMethodBundleManifestText("p", text); }

BundleMethodSpecialization specialization(const Str& name, const Str& symbol, std::size_t overload = 1) {
    BundleMethodSpecialization spec;
    spec.info.name = name;
    spec.info.overloadIndex = overload;
    spec.symbol = symbol;
    spec.paramTypes = {"Int", "vesk.collections.Map<String, Int>"};
    spec.returnType = "String";
    return spec;
}

TEST(Manifest, BareTextIsExact) {
    EXPECT_EQ(renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "", nullptr), HEADER + "\n");
    EXPECT_EQ(renderGenericMethodBundleManifestContent("Box", {"Int"}, {"Long"}, "/src/app/main.vk", nullptr),
              VERSION + OWNER + "# @vesk-generic-caller-source-unit /src/app/main.vk\n" + ARG +
                  "# @vesk-generic-method-param-type Long\n\n");
}

TEST(Manifest, BlockTextIsExact) {
    BundleMethodSpecialization spec = specialization("operator[]=", "sym", 12);
    spec.info.isStatic = spec.info.isVariadic = true;
    spec.variadicIndex = 1;
    const std::vector<BundleMethodSpecialization> specs{spec};
    EXPECT_EQ(renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "", &specs),
              HEADER +
                  "# @vesk-generic-method-spec-begin\n"
                  "# @vesk-generic-method-name operator[]=\n"
                  "# @vesk-generic-method-overload 12\n"
                  "# @vesk-generic-method-static 1\n"
                  "# @vesk-generic-method-variadic 1\n"
                  "# @vesk-generic-method-variadic-index 1\n"
                  "# @vesk-generic-method-named-variadic 0\n"
                  "# @vesk-generic-method-named-variadic-index -1\n"
                  "# @vesk-generic-method-return String\n"
                  "# @vesk-generic-method-symbol sym\n"
                  "# @vesk-generic-method-spec-param-type Int\n"
                  "# @vesk-generic-method-spec-param-type vesk.collections.Map<String, Int>\n"
                  "# @vesk-generic-method-spec-end\n\n");
}

TEST(Manifest, ReadsBackWhatWasWritten) {
    const std::vector<BundleMethodSpecialization> specs{specialization("map", "s1"), specialization("map", "s2", 2)};
    const auto manifest =
        parsed(renderGenericMethodBundleManifestContent("a.Box", {"Int", "T?"}, {"Long"}, "/x y.vk", &specs));
    EXPECT_TRUE(manifest.valid);
    EXPECT_EQ(manifest.path, "p");
    EXPECT_EQ(manifest.owner, "a.Box");
    EXPECT_EQ(manifest.callerSourceUnit, "/x y.vk");
    EXPECT_EQ(manifest.args, (StrVec{"Int", "T?"}));
    EXPECT_EQ(manifest.paramTypes, StrVec{"Long"});
    ASSERT_EQ(manifest.specs.size(), 2u);
    EXPECT_EQ(
        manifest.specs[1],
        (MethodSpec{
            "map", 2, false, false, -1, false, -1, "String", "s2", {"Int", "vesk.collections.Map<String, Int>"}}));
}

TEST(Manifest, IsValidByVersionOwnerAndArguments) {
    const struct {
        Str text;
        bool valid;
    } cases[] = {
        {HEADER, true},
        {"# @vesk-generic-method-bundle-version 6\n" + OWNER + ARG, true},
        {"# @vesk-generic-method-bundle-version 7abc\n" + OWNER + ARG, true},
        {"# @vesk-generic-method-bundle-version 8\n" + OWNER + ARG, false},
        {"# @vesk-generic-method-bundle-version 5\n" + OWNER + ARG, false},
        {"# @vesk-generic-method-bundle-version x\n" + OWNER + ARG, false},
        {"# @vesk-generic-method-bundle-version 99999999999999999999\n" + OWNER + ARG, false},
        {OWNER + ARG, false},
        {VERSION + ARG, false},
        {VERSION + OWNER, false},
        {"", false},
        {"class X:\n" + HEADER, false},
        {"\n   \n# a comment\n\t" + HEADER, true},
        {VERSION + "class X:\n" + OWNER + ARG, false},
        {HEADER + "# @vesk-generic-method-spec-begin\n# @vesk-generic-method-bundle-version 8\n", false},
        {"# @vesk-generic-method-bundle-version 8\n" + OWNER + ARG + "# @vesk-generic-method-spec-begin\n" + VERSION,
         true},
    };
    for (const auto& each : cases) EXPECT_EQ(parsed(each.text).valid, each.valid) << each.text;
    EXPECT_EQ(parsed(VERSION + OWNER).owner, "Box");
}

TEST(Manifest, LaterLinesWin) {
    const auto manifest =
        parsed(HEADER + "# @vesk-generic-method-owner   Other \n# @vesk-generic-caller-source-unit a\n" +
               "# @vesk-generic-caller-source-unit b\n");
    EXPECT_EQ(manifest.owner, "Other");
    EXPECT_EQ(manifest.callerSourceUnit, "b");
}

TEST(Manifest, DropsWhatIsNotComplete) {
    const struct {
        Str text;
        StrVec symbols;
    } cases[] = {
        {block("m", "s"), {"s"}},
        {block("", "s") + block("n", "t"), {"t"}},
        {block("m", "") + block("n", "t"), {"t"}},
        {"# @vesk-generic-method-spec-begin\n# @vesk-generic-method-name lost\n" + block("n", "t"), {"t"}},
        {"# @vesk-generic-method-spec-begin\n# @vesk-generic-method-name m\n# @vesk-generic-method-symbol s\n", {}},
        {"# @vesk-generic-method-spec-end\n" + block("n", "t"), {"t"}},
        {"# @vesk-generic-method-symbol s\n" + block("n", "t"), {"t"}},
        {block("m", "s") + "class X:\n" + block("n", "t"), {"s"}},
        {block("m", "s", "# @vesk-generic-method-symbol other\n"), {"other"}},
    };
    for (const auto& each : cases) {
        StrVec symbols;
        for (const MethodSpec& spec : parsed(HEADER + each.text).specs) symbols.push_back(spec.symbol);
        EXPECT_EQ(symbols, each.symbols) << each.text;
    }
}

TEST(Manifest, NumbersAreReadAsTheirBeginningSays) {
    const struct {
        Str value;
        std::uint64_t overload;
        std::int32_t index;
    } cases[] = {
        {"abc", 1, -1},
        {"12abc", 12, 12},
        {"-1", 18446744073709551615ull, -1},
        {"+3", 3, 3},
        {"0", 0, 0},
        {"99999999999999999999", 1, -1},
        {"2147483648", 2147483648u, -1},
    };
    for (const auto& each : cases) {
        const auto manifest =
            parsed(HEADER +
                   block("m", "s",
                         "# @vesk-generic-method-overload " + each.value + "\n# @vesk-generic-method-variadic-index " +
                             each.value + "\n# @vesk-generic-method-named-variadic-index " + each.value + "\n"));
        EXPECT_EQ(manifest.specs.at(0).overload, each.overload) << each.value;
        EXPECT_EQ(manifest.specs.at(0).variadicIndex, each.index) << each.value;
        EXPECT_EQ(manifest.specs.at(0).namedVariadicIndex, each.index) << each.value;
    }
}

TEST(Manifest, FlagsAreOneOrNothing) {
    for (const Str value : {"1", "0", "true", "11", "yes"}) {
        const auto spec =
            parsed(HEADER + block("m", "s",
                                  "# @vesk-generic-method-static " + value + "\n# @vesk-generic-method-variadic " +
                                      value + "\n# @vesk-generic-method-named-variadic " + value + "\n"))
                .specs.at(0);
        EXPECT_EQ(spec.isStatic, value == "1") << value;
        EXPECT_EQ(spec.isVariadic, value == "1") << value;
        EXPECT_EQ(spec.isNamedVariadic, value == "1") << value;
    }
}

TEST(Manifest, EmptyValuesAreComments) {
    const auto spec = parsed(HEADER + block("m", "s",
                                            "# @vesk-generic-method-return \n# @vesk-generic-method-spec-param-type \n"
                                            "# @vesk-generic-method-overload \n"))
                          .specs.at(0);
    EXPECT_EQ(spec.returnType, "");
    EXPECT_TRUE(spec.paramTypes.empty());
    EXPECT_EQ(spec.overload, 1u);
}

TEST(Manifest, CarriageReturnsAreBlanks) {
    Str text = HEADER + block("m", "s");
    for (std::size_t at = 0; (at = text.find('\n', at)) != Str::npos; at += 2) text.insert(at, "\r");
    EXPECT_TRUE(parsed(text).valid);
    EXPECT_EQ(parsed(text).specs.at(0).symbol, "s");
}

TEST(Manifest, EveryTruncationAndEveryFlippedByteIsRead) {
    const std::vector<BundleMethodSpecialization> specs{specialization("map", "s1"), specialization("fold", "s2", 2)};
    const Str text = renderGenericMethodBundleManifestContent("a.Box", {"Int"}, {}, "/u.vk", &specs);
    for (std::size_t length = 0; length <= text.size(); length++) {
        const auto manifest = parsed(text.substr(0, length));
        EXPECT_LE(manifest.specs.size(), 2u);
        for (const MethodSpec& spec : manifest.specs) EXPECT_TRUE(!spec.name.empty() && !spec.symbol.empty());
    }
    for (std::size_t at = 0; at < text.size(); at++) {
        for (int bit = 0; bit < 8; bit++) {
            Str damaged = text;
            damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
            const auto manifest = parsed(damaged);
            EXPECT_LE(manifest.specs.size(), 2u);
            EXPECT_LE(manifest.args.size(), 1u);
        }
    }
}

TEST(Manifest, RecordedBlocksAreWrittenWordForWord) {
    BundleMethodSpecialization variadic = specialization("of", "s4", 3);
    variadic.info.isStatic = variadic.info.isVariadic = variadic.info.isNamedVariadic = true;
    variadic.variadicIndex = 1;
    variadic.namedVariadicIndex = 2;
    const std::vector<BundleMethodSpecialization> all{specialization("zip", "s3"), variadic,
                                                      specialization("map", "s1")};
    const Str whole = renderGenericMethodBundleManifestContent("Box", {"Int"}, {"Long"}, "/a.vk", &all);
    const auto recorded = recordedGenericMethodBundleSpecs(parsed(whole));
    EXPECT_EQ(renderGenericMethodBundleManifestContent("Box", {"Int"}, {"Long"}, "/a.vk", &recorded), whole);
}

TEST(Manifest, BlocksThatStayAreNotTouched) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str path = folder.path() + "/Box__GM_5.vk";
    const Str odd = block("aaa", "x", "# @vesk-generic-method-overload 12abc\n# a remark\n");
    const Str head = block("bbb", "y", VERSION);
    writeFile(path, HEADER + block("ccc", "z") + odd + head + "\nclass X:\n    pass\n");
    auto specs = recordedGenericMethodBundleSpecs(readGenericMethodBundleManifest(path));
    ASSERT_EQ(specs.size(), 3u);
    specs.erase(specs.begin());
    specs.push_back(specialization("map", "s2"));
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, specs);
    const std::vector<BundleMethodSpecialization> rewritten{specs[1], specs[2]};
    Str expected = renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "", &rewritten);
    expected.insert(HEADER.size(), odd);
    EXPECT_EQ(readFile(path), expected);
}

TEST(Manifest, AnUpdateOfVersionSixWritesVersionSeven) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str path = folder.path() + "/Box__GM_6.vk";
    const Str blocks = block("map", "s1");
    writeFile(path, "# @vesk-generic-method-bundle-version 6\n" + OWNER + ARG + blocks);
    auto specs = recordedGenericMethodBundleSpecs(readGenericMethodBundleManifest(path));
    specs.push_back(specialization("map", "s2"));
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, specs);
    EXPECT_TRUE(readFile(path).starts_with(HEADER));
    EXPECT_EQ(readFile(path).find("version 6"), Str::npos);
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 2u);
}

TEST(Manifest, UpdatingWritesOnlyWhatIsNew) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    const Str path = folder.path() + "/bundles/Box__GM_1.vk";
    const std::vector<BundleMethodSpecialization> specs{specialization("map", "s1")};
    writeFile(path, VERSION + OWNER + "# @vesk-generic-caller-source-unit /u.vk\n" + ARG);
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, specs);
    EXPECT_EQ(readFile(path), renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "/u.vk", &specs));

    const auto time = std::filesystem::last_write_time(path);
    std::filesystem::last_write_time(path, time - std::chrono::hours(1));
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, specs);
    EXPECT_EQ(std::filesystem::last_write_time(path), time - std::chrono::hours(1));  // not written again
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, {});
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 1u);  // never emptied

    // A missing file is made, with its folder.
    const Str fresh = folder.path() + "/new/deep/Box__GM_2.vk";
    updateGenericMethodBundleManifestSpecs(fresh, "Box", {"Int"}, {}, {});
    EXPECT_EQ(readFile(fresh), HEADER + "\n");
    // A path that cannot be written: the host's words.
    writeFile(folder.path() + "/file", "");
    EXPECT_THROW(
        updateGenericMethodBundleManifestSpecs(folder.path() + "/file/Box__GM_3.vk", "Box", {"Int"}, {}, specs),
        std::runtime_error);
}

TEST(Manifest, MemoryModeWritesNothing) {
    TemporaryFolder folder;
    MethodProgram program(folder.path(), CacheMode::Memory);
    const Str path = folder.path() + "/Box__GM_1.vk";
    updateGenericMethodBundleManifestSpecs(path, "Box", {"Int"}, {}, {specialization("map", "s1")});
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 1u);
}

TEST(Manifest, MissingFilesAndFoldersAreNotValid) {
    TemporaryFolder folder;
    MethodProgram program(folder.path());
    EXPECT_FALSE(readGenericMethodBundleManifest(folder.path() + "/none.vk").valid);
    EXPECT_EQ(readGenericMethodBundleManifest(folder.path() + "/none.vk").path, folder.path() + "/none.vk");
    std::filesystem::create_directory(folder.path() + "/Box__GM_1.vk");
    EXPECT_FALSE(readGenericMethodBundleManifest(folder.path() + "/Box__GM_1.vk").valid);
    EXPECT_FALSE(isGenericMethodBundleSource(folder.path() + "/Box__GM_1.vk"));
}

// Only of a text as it is written; of all others the whole manifest has to tell.
TEST(BundleManifest, TheCallerStandsAtTheHead) {
    const Str version = "# @vesk-generic-method-bundle-version 7\n", owner = "# @vesk-generic-method-owner Box\n",
              caller = "# @vesk-generic-caller-source-unit /a b.vk\n", arg = "# @vesk-generic-method-arg Int\n";
    EXPECT_EQ(callerInGenericMethodBundleHead(
                  renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "/a b.vk", nullptr)),
              "/a b.vk");
    EXPECT_EQ(
        callerInGenericMethodBundleHead(renderGenericMethodBundleManifestContent("Box", {"Int"}, {}, "", nullptr)), "");
    const std::vector<std::pair<Str, Str>> texts{
        {version + owner + caller, "/a b.vk"},
        {version + owner + caller.substr(0, caller.size() - 1), "/a b.vk"},
        {version + owner + caller + arg + caller, ""},
        {version + owner + arg + caller, ""},
        {version + caller + owner, ""},
        {version + owner + "x\n" + caller, ""},
        {" " + version + owner + caller, ""},
        {version + owner, ""},
        {version, ""},
        {"", ""},
    };
    for (const auto& [text, expected] : texts) EXPECT_EQ(callerInGenericMethodBundleHead(text), expected) << text;
}

}  // namespace
}  // namespace vesk::compiler
