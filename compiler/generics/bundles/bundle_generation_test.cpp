// Bundles through the driver: made, found again by later compilations, healed when damaged.
#include "generics/bundles/bundle_generation.h"

#include <chrono>
#include <map>

#include "generics/bundles/bundle_il.h"
#include "generics/bundles/bundle_lock.h"
#include "generics/bundles/bundle_names.h"
#include "generics/bundles/bundle_paths.h"
#include "generics/bundles/bundle_program_test.h"
#include "generics/candidate_cache.h"
#include "generics/method_program_test.h"
#include "generics/method_symbols.h"
#include "host/il_gen_context.h"
#include "il/unit_module.h"

namespace vesk::compiler {
namespace {

TEST_F(Bundles, ACallOfAnotherFilesMethodMakesOne) {
    Compilation compilation(folder.path(), "b.swap(\"x\")");
    const auto manifest = readGenericMethodBundleManifest(onlyBundle());
    EXPECT_TRUE(manifest.valid);
    EXPECT_EQ(structuredTypeText(manifest.owner), "lib.Box<Int>");
    EXPECT_EQ(manifest.args, StrVec{"String"});
    EXPECT_TRUE(manifest.paramTypes.empty());
    EXPECT_EQ(manifest.callerSourceUnit, compilation.program.pathOf("main.vk"));
    ASSERT_EQ(manifest.specs.size(), 1u);
    EXPECT_EQ(manifest.specs[0].name, "swap");
    EXPECT_EQ(manifest.specs[0].returnType, "String");
    EXPECT_EQ(manifest.specs[0].paramTypes, StrVec{"String"});
    EXPECT_EQ(manifest.specs[0].symbol, compilation.spec.symbol);
    EXPECT_EQ(ClassLoader::sourceFileForSymbol(compilation.spec.symbol), onlyBundle());
    EXPECT_TRUE(gGenericMethodBundleLockDepth.empty());
}

TEST_F(Bundles, ALaterCompilationFindsItAndWritesNothing) {
    Str symbol, text;
    {
        Compilation first(folder.path(), "b.swap(\"x\")");
        symbol = first.spec.symbol;
    }
    const Str path = onlyBundle();
    text = readFile(path);
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    for (const Str& file : {folder.path() + "/main.vk", folder.path() + "/lib/box.vk", path})
        std::filesystem::last_write_time(file, longAgo);
    {
        Compilation second(folder.path(), "b.swap(\"x\")");
        EXPECT_EQ(second.spec.symbol, symbol);
        EXPECT_EQ(second.spec.returnType, "String");
        // Nothing was parsed again: the lines of the library were not needed.
        EXPECT_FALSE(gSourceTextCache.contains(second.program.pathOf("lib/box.vk")));
        EXPECT_EQ(ClassLoader::sourceFileForSymbol(symbol), path);
    }
    EXPECT_EQ(readFile(path), text);
    EXPECT_EQ(std::filesystem::last_write_time(path), longAgo);
}

// What a person writes into a file is a comment: the unit specializes for itself.
TEST_F(Bundles, ACallerLineOfAnOrdinaryUnitIsAComment) {
    for (const char* caller : {"/one.vk", "/two.vk", "/one.vk"}) {
        MethodProgram program(folder.path());
        writeFile(program.pathOf("lib/box.vk"), LIBRARY);
        program.load("main.vk", Str("# @vesk-generic-caller-source-unit ") + caller + "\n" + mainWith("b.swap(\"x\")"));
        const GenericMethodSpec spec = program.specialize("main.vk", "run");
        const Str bundle = ClassLoader::sourceFileForSymbol(spec.symbol);
        EXPECT_EQ(readGenericMethodBundleManifest(bundle).callerSourceUnit, program.pathOf("main.vk"));
    }
    EXPECT_EQ(bundles().size(), 1u);
}

TEST_F(Bundles, AnInferredReturnTypeComesFromTheBundle) {
    { Compilation first(folder.path(), "b.open(2.5)"); }
    const auto manifest = readGenericMethodBundleManifest(onlyBundle());
    EXPECT_EQ(manifest.specs.at(0).returnType, "Double");
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    std::filesystem::last_write_time(folder.path() + "/main.vk", longAgo);
    std::filesystem::last_write_time(folder.path() + "/lib/box.vk", longAgo);
    Compilation second(folder.path(), "b.open(2.5)");
    EXPECT_EQ(second.spec.returnType, "Double");
    EXPECT_FALSE(gSourceTextCache.contains(second.program.pathOf("lib/box.vk")));
}

TEST_F(Bundles, AnotherMethodWithTheSameArgumentsJoins) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    { Compilation second(folder.path(), "b.open(\"x\")"); }
    const auto manifest = readGenericMethodBundleManifest(onlyBundle());
    ASSERT_EQ(manifest.specs.size(), 2u);
    EXPECT_EQ(manifest.specs[0].name, "swap");  // in the order of requests
    EXPECT_EQ(manifest.specs[1].name, "open");
    { Compilation third(folder.path(), "b.pair(\"x\", 1)"); }
    EXPECT_EQ(bundles().size(), 2u);
}

// Blocks are appended; what is compiled from them does not show who asked first.
TEST_F(Bundles, BlocksStandInTheOrderOfRequestsAndCodeDoesNot) {
    StrVec statements{"b.swap(\"x\")", "b.open(\"x\")", "b.outer(\"x\")"};
    std::sort(statements.begin(), statements.end());
    Str code;
    do {
        for (const Str& statement : statements) Compilation compilation(folder.path(), statement);
        const auto manifest = readGenericMethodBundleManifest(onlyBundle());
        ASSERT_EQ(manifest.specs.size(), statements.size());
        for (std::size_t i = 0; i < statements.size(); i++) {
            EXPECT_TRUE(statements[i].starts_with("b." + manifest.specs[i].name + "(")) << statements[i];
        }
        MethodProgram program(folder.path());
        program.load("main.vk");
        const Str il = buildGenericMethodBundleIL(onlyBundle(), program.root());
        EXPECT_EQ(program.messages(), StrVec{});
        if (code.empty()) code = il;
        EXPECT_EQ(il, code);
        std::filesystem::remove_all(folder.path() + "/cache");
    } while (std::next_permutation(statements.begin(), statements.end()));
}

// A block of an older compiler and one that was asked for now: the file is one of this version.
TEST_F(Bundles, AnAdditionMakesVersionSixVersionSeven) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    Str text = readFile(path);
    text.replace(text.find("version 7"), 9, "version 6");
    writeFile(path, text);
    { Compilation listed(folder.path(), "b.swap(\"x\")"); }
    EXPECT_EQ(readFile(path), text);  // nothing was added
    { Compilation added(folder.path(), "b.open(\"x\")"); }
    EXPECT_TRUE(readFile(path).starts_with("# @vesk-generic-method-bundle-version 7\n")) << readFile(path);
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 2u);
}

// A request that is listed waits for whoever is at the bundle, as one that is not.
TEST_F(Bundles, TheLockIsHeldForAListedRequestToo) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk");
    const auto manifest = readGenericMethodBundleManifest(path);
    BundleMethodSpecialization request;
    for (const GenericMethodInfo& info : scope->getGenericMethods(manifest.owner, "swap")) request.info = info;
    request.symbol = manifest.specs[0].symbol;
    request.typeArgs = manifest.args;
    request.paramTypes = {"String"};
    request.returnType = "String";
    const auto ensure = [&] {
        return ensureGenericMethodBundle(scope, manifest.owner, manifest.args, {}, "swap", false, {"#:String"}, {},
                                         nullptr, &request);
    };
    EXPECT_EQ(ensure(), path);
    // Where no lock can be had the request fails, although the file lists it.
    const std::filesystem::path locks = genericMethodBundleLockDirectory();
    std::filesystem::remove_all(locks);
    writeFile(locks.string(), "in the way");
    EXPECT_THROW(ensure(), std::runtime_error);
    EXPECT_TRUE(gGenericMethodBundleLockDepth.empty());
    std::filesystem::remove(locks);
    EXPECT_EQ(ensure(), path);
}

// A type whose flattened name is hashed is found again by a compilation that does not name it itself.
TEST_F(Bundles, HashedTypeNamesAreRecalled) {
    Str type = "Box<Int>";
    for (int i = 0; i < 40; i++) type = "Box<" + type + ">";
    writeFile(folder.path() + "/lib/box.vk", LIBRARY + "    def far<U>(x: U):\n        return null as " + type + "?\n");
    Str returnType;
    { returnType = Compilation(folder.path(), "b.far(\"x\")").spec.returnType; }
    const Str path = onlyBundle(), names = genericMethodBundleNamesPath(path);
    ASSERT_NE(returnType.find("_l_h"), Str::npos) << returnType;
    const Str text = readFile(names);
    EXPECT_NE(text.find("\tlib.Box<"), Str::npos) << text;
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char* file : {"/main.vk", "/lib/box.vk"})
        std::filesystem::last_write_time(folder.path() + file, longAgo);
    {
        Compilation again(folder.path(), "b.far(\"x\")");
        EXPECT_EQ(again.spec.returnType, returnType);
        EXPECT_FALSE(gSourceTextCache.contains(again.program.pathOf("lib/box.vk")));  // nothing was inferred again
        EXPECT_EQ(structuredTypeText(returnType).find("_h"), Str::npos) << structuredTypeText(returnType);
    }
    // Without the file, or with a wrong one, it is a miss, and the file is made whole.
    for (const Str& damaged : {Str(), Str("x"), text.substr(0, text.size() / 2), text + text,
                               Str(text).replace(text.find("__T__h") + 8, 4, "0000")}) {
        writeFile(names, damaged);
        {
            Compilation again(folder.path(), "b.far(\"x\")");
            EXPECT_EQ(again.spec.returnType, returnType) << damaged;
        }
        Compilation healed(folder.path(), "b.far(\"x\")");
        EXPECT_FALSE(gSourceTextCache.contains(healed.program.pathOf("lib/box.vk"))) << readFile(names);
    }
    std::filesystem::remove(names);
    std::filesystem::remove(path);
    { Compilation again(folder.path(), "b.far(\"x\")"); }
    EXPECT_EQ(readFile(names), text);
}

TEST_F(Bundles, OwnersNeverShare) {
    Str ofInt, ofString;
    { ofInt = Compilation(folder.path(), "b.swap(true)").spec.symbol; }
    { ofString = Compilation(folder.path(), "s.swap(true)").spec.symbol; }
    EXPECT_NE(ofInt, ofString);
    EXPECT_EQ(bundles().size(), 2u);
}

TEST_F(Bundles, MemoryModesWriteNothing) {
    for (const CacheMode mode : {CacheMode::Memory, CacheMode::ReadOnly, CacheMode::Off}) {
        Compilation compilation(folder.path(), "b.swap(\"x\")", mode);
        EXPECT_TRUE(bundles().empty());
        const Str path = ClassLoader::sourceFileForSymbol(compilation.spec.symbol);
        EXPECT_TRUE(isGenericMethodBundleSource(path));
        EXPECT_FALSE(std::filesystem::exists(folder.path() + "/cache"));  // no lock either
    }
}

TEST_F(Bundles, ADifferentIdentityIsReplaced) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle();
    const Str good = readFile(path);
    const Str others[] = {
        "",
        "class X:\n",
        good.substr(0, good.size() / 2).substr(0, good.find("# @vesk-generic-method-arg")),
        Str(good).replace(good.find("version 7"), 9, "version 5"),
        Str(good).replace(good.find("arg String"), 10, "arg Double"),
        Str(good).replace(good.find("owner lib"), 9, "owner bib"),
    };
    for (const Str& other : others) {
        writeFile(path, other);
        Compilation again(folder.path(), "b.swap(\"x\")");
        EXPECT_EQ(readFile(path), good) << other;
    }
}

TEST_F(Bundles, BlocksOfOthersStayWordForWord) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const Str path = onlyBundle();
    const Str block =
        "# @vesk-generic-method-spec-begin\n# @vesk-generic-method-name zzz\n# @vesk-generic-method-overload 9x\n"
        "# @vesk-generic-method-symbol other\n# @vesk-generic-method-spec-end\n";
    Str text = readFile(path);
    text.insert(text.size() - 1, block);
    writeFile(path, text);
    { Compilation second(folder.path(), "b.open(\"x\")"); }
    EXPECT_NE(readFile(path).find(block), Str::npos);
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 3u);
}

TEST_F(Bundles, AnOutdatedBundleIsNotPreloaded) {
    { Compilation first(folder.path(), "b.swap(\"x\")"); }
    const auto now = std::filesystem::file_time_type::clock::now();
    std::filesystem::last_write_time(onlyBundle(), now - std::chrono::hours(2));
    std::filesystem::last_write_time(folder.path() + "/lib/box.vk", now - std::chrono::hours(1));
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk");
    const auto owner = readGenericMethodBundleManifest(onlyBundle()).owner;
    preloadGenericMethodManifestsForOwner(scope, owner, nullptr);
    EXPECT_TRUE(gGenericMethodSpecCache.empty());
    resetGenericSpecializerSession();
    std::filesystem::last_write_time(folder.path() + "/lib/box.vk", now - std::chrono::hours(3));
    std::filesystem::last_write_time(folder.path() + "/main.vk", now - std::chrono::hours(3));
    preloadGenericMethodManifestsForOwner(scope, owner, nullptr);
    EXPECT_EQ(gGenericMethodSpecCache.size(), 2u);  // with and without explicit type arguments
    EXPECT_EQ(gPreloadedGenericMethodManifestOwners.size(), 1u);
}

// Every damage to a bundle costs time and nothing else: the next compilation has the right answer and a right bundle.
TEST_F(Bundles, DamageIsHealed) {
    Str symbol;
    { symbol = Compilation(folder.path(), "b.swap(\"x\")").spec.symbol; }
    const Str path = onlyBundle();
    const Str good = readFile(path);
    const auto check = [&](const Str& damaged) {
        writeFile(path, damaged);
        Compilation again(folder.path(), "b.swap(\"x\")");
        EXPECT_EQ(again.spec.returnType, "String") << damaged;
        EXPECT_EQ(again.spec.paramTypes, StrVec{"String"}) << damaged;
        const StrVec listed = genericMethodBundleDeclaredSymbols(ClassLoader::sourceFileForSymbol(again.spec.symbol));
        EXPECT_TRUE(std::find(listed.begin(), listed.end(), again.spec.symbol) != listed.end()) << damaged;
    };
    for (std::size_t length = 0; length < good.size(); length++) check(good.substr(0, length));
    for (std::size_t at = 0; at < good.size(); at++) {
        Str damaged = good;
        damaged[at] = static_cast<char>(damaged[at] ^ (1 << (at % 7)));
        check(damaged);
    }
}

TEST_F(Bundles, AFolderInTheWayFailsWithTheSystemsMessage) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    std::filesystem::remove(path);
    std::filesystem::create_directories(path + "/x");
    const CompilerException error = errorOf([&] { Compilation second(folder.path(), "b.swap(\"x\")"); });
    EXPECT_TRUE(Str(error.what()).starts_with("Failed to generate generic method bundle for lib.Box"));
    EXPECT_EQ(error.getKind(), CompilerErrorKind::DeclarationLoad);
    EXPECT_EQ(error.getToken()->getText(), "swap");
}

TEST_F(Bundles, ALockThatCannotBeMadeFails) {
    writeFile(folder.path() + "/cache/branches/.artifact-locks", "in the way");
    try {
        Compilation compilation(folder.path(), "b.swap(\"x\")");
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(Str(error.what()).starts_with("Unable to create generic-method cache lock directory '"));
    }
    EXPECT_TRUE(gGenericMethodBundleLockDepth.empty());
}

TEST_F(Bundles, ValuesThatBreakALineAreRefused) {
    MethodProgram program(folder.path());
    writeFile(program.pathOf("lib/box.vk"), LIBRARY);
    const ContextPtr scope = program.load("main.vk", mainWith("b.swap(1)"));
    const auto refusal = [&](const Str& owner, const StrVec& args, const StrVec& params,
                             const BundleMethodSpecialization* spec) {
        return Str(errorOf([&] {
                       ensureGenericMethodBundle(scope, owner, args, params, "m", false, {}, {}, nullptr, spec);
                   }).what());
    };
    const Str owner = "lib.Box", failure = "Failed to generate generic method bundle for ";
    EXPECT_EQ(refusal(owner, {"a\nb"}, {}, nullptr), failure + owner);
    EXPECT_EQ(refusal(owner, {"Int"}, {"a\rb"}, nullptr), failure + owner);
    EXPECT_EQ(refusal(owner, {"Int"}, {"a "}, nullptr), failure + owner);
    EXPECT_EQ(refusal(owner, {""}, {}, nullptr), failure + owner);
    EXPECT_EQ(refusal("../../x", {"Int"}, {}, nullptr), failure + "../../x");
    BundleMethodSpecialization spec;
    spec.info.name = "m";
    spec.symbol = "s";
    for (const StrVec& types : {StrVec{""}, StrVec{"a\nb"}}) {
        spec.paramTypes = types;
        EXPECT_EQ(refusal(owner, {"Int"}, {}, &spec), failure + owner);
    }
    spec.paramTypes.clear();
    spec.returnType = "a\n# @vesk-generic-method-symbol x";
    EXPECT_EQ(refusal(owner, {"Int"}, {}, &spec), failure + owner);
    EXPECT_TRUE(bundles().empty());
}

TEST_F(Bundles, ARequestThatNoMethodFitsIsRefused) {
    MethodProgram program(folder.path());
    writeFile(program.pathOf("lib/box.vk"), LIBRARY);
    const ContextPtr scope = program.load("main.vk", mainWith("b.swap(1)"));
    BundleMethodSpecialization spec;
    spec.info.name = "swap";
    spec.symbol = "s";
    spec.paramTypes = {"Int"};
    spec.returnType = "Int";
    const auto ensure = [&](const Str& name, const StrVec& keys) {
        return ensureGenericMethodBundle(scope, "lib.Box<Int>", {"Int"}, {}, name, false, keys, {}, nullptr, &spec);
    };
    const Str owner = canonicalOwnerClassName(scope, nullptr, "lib.Box<Int>");
    for (const auto& [name, keys] :
         {std::pair<Str, StrVec>{"none", {"#:Int"}}, {"swap", {}}, {"swap", {"#:String"}}, {"swap", {"q=Int"}}}) {
        const CompilerException error = errorOf([&, n = name, k = keys] { ensure(n, k); });
        EXPECT_EQ(Str(error.what()), "Generic method bundle has no requested specialization for " + owner);
        EXPECT_EQ(error.getKind(), CompilerErrorKind::DeclarationLoad);
    }
    // A bare bundle stays; the right request then goes in.
    const Str path = ensure("swap", {"other=Int"});
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 1u);
}

TEST_F(Bundles, PopulatingTakesOverWhatIsListed) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk");
    const auto manifest = readGenericMethodBundleManifest(path);
    populateGenericMethodBundleCache(scope, manifest.owner, manifest.args, {}, "swap", false, {}, {}, path, nullptr,
                                     nullptr);
    const Str key =
        genericMethodBundleCacheKey(manifest.owner, "swap", false, {"String"}, {"String"}, manifest.callerSourceUnit);
    ASSERT_TRUE(gGenericMethodSpecCache.contains(key));
    const CachedGenericMethodSpec& cached = gGenericMethodSpecCache[key];
    EXPECT_EQ(cached.spec.symbol, manifest.specs[0].symbol);
    EXPECT_EQ(cached.sourcePath, path);
    EXPECT_EQ(cached.callerSourceUnit, manifest.callerSourceUnit);
    EXPECT_TRUE(gPreparedGenericMethodBundles.contains(path));
    const auto& candidates = gGenericMethodCandidateCache[genericMethodCandidateCacheKey(manifest.owner, "swap", false,
                                                                                         manifest.callerSourceUnit)];
    EXPECT_EQ(candidates.size(), 1u);
    populateGenericMethodBundleCache(scope, manifest.owner, manifest.args, {}, "swap", false, {}, {}, path, nullptr,
                                     nullptr);
    EXPECT_EQ(candidates.size(), 1u);
}

TEST_F(Bundles, PopulatingAddsTheRequestOnce) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk");
    const auto manifest = readGenericMethodBundleManifest(path);
    BundleMethodSpecialization request;
    request.symbol = "one_more";
    request.typeArgs = manifest.args;
    request.paramTypes = {"String"};
    request.returnType = "String";
    const auto populate = [&](const Str& name) {
        for (const GenericMethodInfo& info : scope->getGenericMethods(manifest.owner, "open")) request.info = info;
        populateGenericMethodBundleCache(scope, manifest.owner, manifest.args, {}, name, false, {"#:String"}, {}, path,
                                         nullptr, &request);
    };
    const CompilerException error = errorOf([&] { populate("missing"); });
    EXPECT_EQ(Str(error.what()), "Generic method bundle has no requested specialization for " + manifest.owner);
    EXPECT_EQ(error.getKind(), CompilerErrorKind::DeclarationLoad);
    EXPECT_EQ(readGenericMethodBundleManifest(path).specs.size(), 1u);

    populate("open");
    const auto added = readGenericMethodBundleManifest(path);
    ASSERT_EQ(added.specs.size(), 2u);
    EXPECT_EQ(added.specs[0], manifest.specs[0]);
    EXPECT_EQ(added.specs[1].symbol, "one_more");
    EXPECT_EQ(ClassLoader::sourceFileForSymbol("one_more"), path);
    const Str key =
        genericMethodBundleCacheKey(manifest.owner, "open", false, {"String"}, {"String"}, manifest.callerSourceUnit);
    EXPECT_TRUE(gGenericMethodSpecCache.contains(key));
    const Str text = readFile(path);
    populate("open");
    EXPECT_EQ(readFile(path), text);
}

TEST_F(Bundles, PopulatingABundleThatIsGoneMakesIt) {
    MethodProgram program(folder.path());
    writeFile(program.pathOf("lib/box.vk"), LIBRARY);
    const ContextPtr scope = program.load("main.vk", mainWith("b.swap(1)"));
    const Str owner = canonicalOwnerClassName(scope, nullptr, "lib.Box<Int>");
    const Str path = genericMethodBundleSourcePath(owner, {"Int"}, {}, scope, nullptr, nullptr);
    BundleMethodSpecialization request;
    for (const GenericMethodInfo& info : scope->getGenericMethods(owner, "swap")) request.info = info;
    request.symbol = "made_anew";
    request.typeArgs = request.paramTypes = {"Int"};
    request.returnType = "Int";
    populateGenericMethodBundleCache(scope, owner, {"Int"}, {}, "swap", false, {"#:Int"}, {}, path, nullptr, &request);
    const auto manifest = readGenericMethodBundleManifest(path);
    EXPECT_TRUE(manifest.valid);
    EXPECT_EQ(manifest.owner, owner);
    ASSERT_EQ(manifest.specs.size(), 1u);
    EXPECT_EQ(manifest.specs[0].symbol, "made_anew");
}

TEST_F(Bundles, BlocksBecomeNodesAgain) {
    const Str path = bundleLeftBy("b.open(\"x\")");
    MethodProgram program(folder.path());
    const ContextPtr scope = program.load("main.vk");
    auto manifest = readGenericMethodBundleManifest(path);
    std::vector<BundleMethodSpecialization> specs;
    const auto append = [&] {
        appendManifestDeclaredSpecializations(scope, manifest.owner, manifest.args, manifest, nullptr, path, specs);
        return specs.size();
    };
    EXPECT_EQ(append(), 1u);
    EXPECT_EQ(append(), 1u);  // nothing twice
    ASSERT_TRUE(specs[0].declaration);
    EXPECT_FALSE(specs[0].declaration->getBody().empty());
    EXPECT_EQ(specs[0].declaration->getParams()[0].type, "String");
    EXPECT_EQ(specs[0].declaration->getReturnType(), "String");
    EXPECT_EQ(specs[0].typeArgs, StrVec{"String"});
    // What no longer fits a declaration is left out.
    manifest.specs[0].symbol = "a";
    for (const auto change : {+[](GenericMethodBundleManifest::MethodSpec& s) { s.name = "gone"; },
                              +[](GenericMethodBundleManifest::MethodSpec& s) { s.overload = 7; },
                              +[](GenericMethodBundleManifest::MethodSpec& s) { s.isStatic = true; },
                              +[](GenericMethodBundleManifest::MethodSpec& s) { s.name = "pair"; },
                              +[](GenericMethodBundleManifest::MethodSpec& s) { s.paramTypes = {"Int"}; },
                              +[](GenericMethodBundleManifest::MethodSpec& s) { s.paramTypes = {}; }}) {
        GenericMethodBundleManifest changed = manifest;
        change(changed.specs[0]);
        appendManifestDeclaredSpecializations(scope, manifest.owner, manifest.args, changed, nullptr, path, specs);
        EXPECT_EQ(specs.size(), 1u);
    }
    // Nor is what bears the symbol of another of the owner's methods.
    manifest.specs[0].symbol = genericMethodBundleSymbol(scope, manifest.owner, "swap", 1, manifest.args, nullptr);
    EXPECT_EQ(append(), 1u);
}

// ------------------------------------------------------------------------------------------------------------ IL

Str ilFailure(const Str& path) {
    try {
        buildGenericMethodBundleIL(path, CompileSession::current().rootContext());
    } catch (const CompilerException& error) {
        return Str("compiler exception: ") + error.what();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST_F(Bundles, IsCompiledAsAUnitOfItsOwn) {
    Str path, symbol;
    {
        Compilation first(folder.path(), "b.outer(\"x\")");
        path = onlyBundle();
        symbol = first.spec.symbol;
    }
    MethodProgram program(folder.path());
    const Str il = buildGenericMethodBundleIL(path, program.root());
    EXPECT_EQ(program.messages(), StrVec{});
    const auto module = parseIL(il, "bundle");
    EXPECT_EQ(verifyModule(*module), "");
    const StrVec defined = definedSymbols(*module);
    EXPECT_TRUE(std::find(defined.begin(), defined.end(), symbol) != defined.end());
    EXPECT_NE(il.find("define linkonce_odr"), Str::npos);
    // The method of the same owner that the body asks for lies in the same unit, and is not listed.
    EXPECT_EQ(bundles().size(), 1u);
    EXPECT_EQ(genericMethodBundleDeclaredSymbols(path), StrVec{symbol});
    EXPECT_NE(il.find("Box__T_Int_swap__T_"), Str::npos);
    EXPECT_TRUE(gActiveSpecializationUnit.empty());
}

TEST_F(Bundles, ILFailuresHaveTheirMessages) {
    const Str path = bundleLeftBy("b.swap(\"x\")");
    const Str good = readFile(path);
    const auto failureOf = [&](const Str& text) {
        writeFile(path, text);
        MethodProgram program(folder.path());
        return ilFailure(path);
    };
    EXPECT_EQ(failureOf(""), "Invalid generic method bundle source: " + path);
    EXPECT_EQ(failureOf(good.substr(0, good.find("# @vesk-generic-method-spec-begin")) + "\n"),
              "Generic method bundle has no declared specialization: " + path);
    const auto lost = [](const Str& symbol) {
        return "# @vesk-generic-method-spec-begin\n# @vesk-generic-method-name gone\n# @vesk-generic-method-symbol " +
               symbol + "\n# @vesk-generic-method-spec-end\n";
    };
    const Str message = "Generic method bundle could not materialize its declared specialization";
    EXPECT_EQ(failureOf(good.substr(0, good.size() - 1) + lost("a") + "\n"), message + ": a");
    EXPECT_EQ(failureOf(good.substr(0, good.size() - 1) + lost("b") + lost("a") + "\n"), message + "s: b, a");
    EXPECT_EQ(failureOf(good), "");
    std::filesystem::remove(folder.path() + "/main.vk");
    EXPECT_EQ(failureOf(good), "Stale generic method bundle caller source: " + folder.path() + "/main.vk");
    // Without a caller nothing is loaded for it.
    Str shared = good;
    shared.erase(shared.find("# @vesk-generic-caller"),
                 shared.find("# @vesk-generic-method-arg") - shared.find("# @vesk-generic-caller"));
    EXPECT_EQ(failureOf(shared), "");
}

TEST_F(Bundles, MissingSymbolTextsAreExact) {
    EXPECT_EQ(missingBundleSymbolsMessage({"a"}),
              "Generic method bundle could not materialize its declared specialization: a");
    EXPECT_EQ(missingBundleSymbolsMessage({"a", "b"}),
              "Generic method bundle could not materialize its declared specializations: a, b");
    EXPECT_EQ(genericMethodBundleUnitName("/c/g/Box__GM_19.vk"), "__vesk_generic_method_bundle_497ff718dd0b597");
}

TEST_F(Bundles, FreshCachedAndStoredSpecializationsAreTheSame) {
    const struct {
        Str statement, other;  // `other` joins the bundle first
    } cases[] = {
        {"b.swap(\"x\")", ""},      {"b.pair(\"x\", 1)", ""},
        {"b.open(2.5)", ""},        {"Box.make(true)", ""},
        {"b.outer(\"x\")", ""},     {"s.outer(3L)", ""},
        {"b.open(b)", ""},          {"b.outer(\"x\")", "b.swap(\"x\")"},
        {"b.swap(s)", "b.open(s)"}, {"b.pair<Object, Int>(1, 2)", ""},
    };
    for (const auto& [statement, other] : cases) {
        SCOPED_TRACE(statement);
        std::filesystem::remove_all(folder.path() + "/cache");
        if (!other.empty()) Compilation compilation(folder.path(), other);
        Str path, fresh, symbol;
        {
            Compilation compilation(folder.path(), statement);
            path = onlyBundle();
            symbol = compilation.spec.symbol;
            fresh = buildGenericMethodBundleIL(path, compilation.program.root());
            EXPECT_EQ(compilation.program.specialize("main.vk", "run").symbol, symbol);
            EXPECT_EQ(buildGenericMethodBundleIL(path, compilation.program.root()), fresh);  // the caches answer
        }
        {
            Compilation compilation(folder.path(), statement);
            EXPECT_EQ(buildGenericMethodBundleIL(path, compilation.program.root()), fresh);
        }
        MethodProgram program(folder.path());
        EXPECT_EQ(buildGenericMethodBundleIL(path, program.root()), fresh);
        EXPECT_NE(fresh.find(symbol), Str::npos);
    }
}

TEST_F(Bundles, ABundleThatCannotBeBuiltIsMadeAgain) {
    Compilation compilation(folder.path(), "b.swap(\"x\")");
    const Str path = onlyBundle();
    const Str good = readFile(path);
    const auto heals = [&] {
        EXPECT_TRUE(regenerateGenericMethodBundle(path, compilation.program.root()));
        EXPECT_EQ(readFile(path), good);
    };
    writeFile(path, "");
    heals();
    std::filesystem::remove(path);
    heals();
    writeFile(
        path,
        good.substr(0, good.size() - 1) +
            "# @vesk-generic-method-spec-begin\n# @vesk-generic-method-name gone\n# @vesk-generic-method-symbol a\n"
            "# @vesk-generic-method-spec-end\n\n");
    heals();
    EXPECT_FALSE(regenerateGenericMethodBundle(path + "x", compilation.program.root()));
}

TEST_F(Bundles, PreloadingFindsAThousandAgainAndAgain) {
    constexpr std::size_t COUNT = ManyBundles::CLASSES;
    const ManyBundles many(folder.path());
    many.make(0, COUNT);
    ASSERT_EQ(bundles().size(), COUNT);
    for (int round = 0; round < 2; round++) {
        many.preload();
        EXPECT_EQ(gGenericMethodSpecCache.size(), 2u * COUNT);
    }
}

}  // namespace
}  // namespace vesk::compiler
