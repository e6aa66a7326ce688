// One way for programs and for interactive sessions.
#include "driver/bundle_registration.h"

#include <stdexcept>

#include "generics/generic_specializer.h"
#include "host/diagnostics.h"

namespace vesk::compiler {

namespace {

std::string registerBundle(CompileSession& session, const std::string& path, const std::vector<std::string>& symbols) {
    std::vector<CompilerException> mistakes;
    std::string unit = registerGenericMethodBundle(path, session.rootContext(), symbols, mistakes);
    for (const CompilerException& mistake : mistakes) session.report(mistake);
    return unit;
}

}  // namespace

std::string registerBundleOrAnew(CompileSession& session, const std::string& path, std::vector<std::string>& symbols,
                                 const std::function<std::vector<std::string>()>& wanted) {
    try {
        return registerBundle(session, path, symbols);
    } catch (const CompilerException&) {
        throw;
    } catch (const std::runtime_error&) {
        // Damaged, or older than its sources: what was asked for is put there anew.
        if (!regenerateGenericMethodBundle(path, session.rootContext())) throw;
    }
    symbols = wanted();
    return registerBundle(session, path, symbols);
}

}  // namespace vesk::compiler
