// Methods of bundles that were compiled without a mistake: a command that is about one file does not compile them again.
// They are lists on disk:
//
//   <cache>/branches/<id>/objects/checked-methods             of shared bundles
//   <cache>/apps/<hash>/objects/checked-methods-<command>     of the application's; it holds as long as its sources stay
//
// A list that is damaged or does not fit is none; a method that is not listed is compiled. Lists are replaced as a whole.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "driver/application_inputs.h"
#include "semantics/compile_session.h"

namespace vesk::compiler {

class CheckedMethods {
public:
    // `givenFiles` are those of the command, in order.
    CheckedMethods(CompileSession& session, const std::vector<std::string>& givenFiles);

    bool contains(const std::string& bundle, const std::string& symbol);
    void add(const std::string& bundle, const std::vector<std::string>& symbols);
    // Writes what was added. Trouble goes to the session's CacheTrouble.
    void keep();

private:
    struct List {
        std::string path;
        bool isRead = false;
        std::unordered_set<std::string> symbols;
        std::vector<std::string> added;
    };
    List& listOf(const std::string& bundle);
    std::optional<StoredUnit> read(const List& list);
    void keep(List& list);
    bool isApplications(const List& list) const { return &list == &application_; }

    CompileSession& session_;
    ApplicationInputs inputs_;
    std::string branch_, environment_;
    List shared_, application_;
};

}  // namespace vesk::compiler
