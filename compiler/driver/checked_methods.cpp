// Reading and writing the lists.
#include "driver/checked_methods.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "generics/generic_specializer.h"
#include "host/compiler_sources.h"
#include "host/runtime.h"
#include "host/source_manager.h"

namespace vesk::compiler {

namespace {

constexpr const char* LIST_NAME = "checked-methods";

}  // namespace

CheckedMethods::CheckedMethods(CompileSession& session, const std::vector<std::string>& givenFiles)
    : session_(session), inputs_(session, givenFiles) {
    const ScopedCompileSession scope(session);
    const std::filesystem::path branch = Runtime::getInstance().getCacheBranchPath();
    const std::filesystem::path application = Runtime::getInstance().getAppGenericsPath();
    branch_ = branch.native();
    environment_ = branch.filename().native() + "\n" + session.standardLibrary();
    shared_.path = (branch / "objects" / LIST_NAME).native();
    application_.path = (application.parent_path() / "objects" / LIST_NAME).native() + "-" + inputs_.commandHash();
    if (session.options().cache == CacheMode::Off) shared_.isRead = application_.isRead = true;
}

CheckedMethods::List& CheckedMethods::listOf(const std::string& bundle) {
    return bundle.starts_with(branch_ + "/") ? shared_ : application_;
}

std::optional<StoredUnit> CheckedMethods::read(const List& list) {
    const std::shared_ptr<const Str> bytes = SourceManager::instance().contents(list.path);
    if (!bytes) return std::nullopt;
    std::optional<StoredUnit> found = parseStoredUnit(*bytes);
    if (!found || found->name != LIST_NAME || found->environment != environment_) return std::nullopt;
    if (isApplications(list) && !inputs_.areCurrent(found->inputs)) return std::nullopt;
    return found;
}

bool CheckedMethods::contains(const std::string& bundle, const std::string& symbol) {
    List& list = listOf(bundle);
    if (!list.isRead) {
        list.isRead = true;
        if (auto found = read(list)) {
            for (std::string& each : found->defines) list.symbols.insert(std::move(each));
        }
    }
    return list.symbols.contains(symbol);
}

void CheckedMethods::add(const std::string& bundle, const std::vector<std::string>& symbols) {
    List& list = listOf(bundle);
    for (const std::string& symbol : symbols) {
        if (!contains(bundle, symbol)) list.added.push_back(symbol);
    }
}

void CheckedMethods::keep() {
    if (!session_.writesCache()) return;
    for (List* list : {&shared_, &application_}) {
        if (!list->added.empty()) keep(*list);
    }
}

// Other processes may add to the same list.
void CheckedMethods::keep(List& list) {
    StoredUnit made;
    made.name = LIST_NAME;
    made.environment = environment_;
    if (isApplications(list)) {
        auto inputs = inputs_.collect();
        if (!inputs) return;
        made.inputs = std::move(*inputs);
    }
    const GenericMethodBundleArtifactLock lock(list.path);
    std::set<std::string> all(list.added.begin(), list.added.end());
    if (auto present = read(list)) all.insert(present->defines.begin(), present->defines.end());
    made.defines.assign(all.begin(), all.end());
    Str error;
    if (!Compiler::replaceFile(list.path, renderStoredUnit(made), error)) Compiler::goesOnAfterCacheTrouble(error);
}

}  // namespace vesk::compiler
