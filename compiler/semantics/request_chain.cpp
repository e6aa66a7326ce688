// Who asks for what: the requester of a thread, chains of requesters, and the two bounds.
#include "semantics/request_chain.h"

#include <algorithm>
#include <map>
#include <utility>

#include "generics/generic_specializer.h"
#include "generics/typetext/symbol_mangling.h"
#include "host/requested_specialization.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

// One specialization on its way through a driver. What it asks for needs a record as requester: that is made only when
// something is asked for.
struct ScopedSpecialization::Frame {
    FunctionInstance identity;
    FunctionInstance* record = nullptr;
    Frame* previous = nullptr;
};

namespace {

thread_local FunctionInstance* gRequester = nullptr;
thread_local TokenPtr gRequestToken;
// Set while this thread works for one specialization and has not entered a call inside of it.
thread_local ScopedSpecialization::Frame* gFrame = nullptr;

// Longer chains are cut off by the bounds; this keeps damaged ones from going round.
constexpr int MAX_STEPS = 2 * MAX_REQUEST_DEPTH;

FunctionInstance* recordOf(ScopedSpecialization::Frame& frame) {
    if (frame.record) return frame.record;
    SpecializationRegistry& registry = CompileSession::current().state().registry;
    std::lock_guard lock(registry.mutex);
    return frame.record = &registry.storage.emplace_back(frame.identity);
}

// Whether one type stands within another, whole or with more in between.
class Embedding {
public:
    bool holds(const Type* larger, const Type* smaller) {
        if (larger == smaller) return true;
        if (larger->wholeLength <= smaller->wholeLength) return false;
        const auto [known, isNew] = known_.try_emplace({larger, smaller}, false);
        if (!isNew) return known->second;
        const bool answer = holdsInside(larger, smaller) || holdsAlongside(larger, smaller);
        if (answer) known_[{larger, smaller}] = true;
        return answer;
    }

private:
    bool holdsInside(const Type* larger, const Type* smaller) {
        const auto isHolder = [&](const Type* part) { return holds(part, smaller); };
        return std::any_of(larger->arguments.begin(), larger->arguments.end(), isHolder) ||
               (larger->result && isHolder(larger->result));
    }
    bool holdsAlongside(const Type* larger, const Type* smaller) {
        const bool isSameHead = larger->kind == smaller->kind && larger->declaration == smaller->declaration &&
                                larger->arguments.size() == smaller->arguments.size() &&
                                !larger->result == !smaller->result;
        if (!isSameHead || (smaller->arguments.empty() && !smaller->result)) return false;
        for (std::size_t i = 0; i < larger->arguments.size(); i++)
            if (!holds(larger->arguments[i], smaller->arguments[i])) return false;
        return !larger->result || holds(larger->result, smaller->result);
    }

    std::map<std::pair<const Type*, const Type*>, bool> known_;
};

std::size_t wholeLength(const std::vector<const Type*>& types) {
    std::size_t length = 0;
    for (const Type* type : types) length += type->wholeLength;
    return length;
}

// The nearest specialization of the same declaration in front of one in its chain that it has grown from.
const FunctionInstance* grownFrom(const FunctionInstance& made) {
    int steps = 0;
    for (const FunctionInstance* each = made.requester; each && steps < MAX_STEPS; each = each->requester, steps++) {
        if (each->requestedDeclaration == made.requestedDeclaration && each != &made &&
            properlyHolds(made.requestedWith, each->requestedWith))
            return each;
    }
    return nullptr;
}

// A chain from its first request to its last.
std::vector<const FunctionInstance*> chainOf(const FunctionInstance& last) {
    std::vector<const FunctionInstance*> chain;
    for (const FunctionInstance* each = &last; each && each->requestToken && chain.size() < MAX_STEPS;
         each = each->requester)
        chain.push_back(each);
    std::reverse(chain.begin(), chain.end());
    return chain;
}

std::uint64_t identityHash(const FunctionInstance& made) {
    std::uint64_t hash = made.requestedDeclaration;
    for (const Type* type : made.requestedWith)
        hash = (hash ^ reinterpret_cast<std::uint64_t>(type)) * 0xff51afd7ed558ccdULL + (hash >> 31);
    return hash;
}

CompilerException growthWithoutEnd(const FunctionInstance& made) {
    const std::vector<const FunctionInstance*> chain = chainOf(made);
    CompilerException error = compileError(chain.empty() ? made.requestToken : chain.front()->requestToken,
                                           "Generic specialization grows without end");
    for (const FunctionInstance* each : chain) {
        const FunctionInstance* from = each->requestedDeclaration ? grownFrom(*each) : nullptr;
        if (!from) continue;
        error.addNote({each->shownName() + " asked for by " + from->shownName(), each->requestToken});
        break;
    }
    for (DiagnosticNote& note : requestChain(&made)) error.addNote(std::move(note));
    return error;
}

}  // namespace

bool properlyHolds(const std::vector<const Type*>& larger, const std::vector<const Type*>& smaller) {
    if (smaller.empty() || wholeLength(larger) <= wholeLength(smaller)) return false;
    Embedding embedding;
    return std::all_of(smaller.begin(), smaller.end(), [&](const Type* small) {
        return std::any_of(larger.begin(), larger.end(),
                           [&](const Type* large) { return embedding.holds(large, small); });
    });
}

void admitRequest(CompileSession& session, FunctionInstance& made) {
    if (made.requestedDeclaration == 0 || !made.requester || !grownFrom(made)) return;
    made.isGrowing = true;
    const std::vector<const FunctionInstance*> chain = chainOf(made);
    const TokenPtr begin = chain.empty() ? made.requestToken : chain.front()->requestToken;
    GrowthTable& table = session.state().growth;
    {
        std::lock_guard lock(table.mutex);
        std::unordered_set<std::uint64_t>& growing = table.growing[begin ? begin->getFilename() : std::string()];
        growing.insert(identityHash(made));
        if (growing.size() <= MAX_GROWING_SPECIALIZATIONS) return;
    }
    table.hasEnded = true;
    throw growthWithoutEnd(made);
}

void identifyMember(FunctionInstance& member) {
    if (member.requestedDeclaration != 0 || !member.owner) return;
    const void* declaration =
        member.node ? static_cast<const void*>(member.node.get()) : static_cast<const void*>(member.owner->declaration);
    member.requestedDeclaration = reinterpret_cast<std::uint64_t>(declaration);
    member.requestedWith = member.owner->arguments;
}

bool takeRequestUnderWay(FunctionInstance& made) {
    if (!gFrame) return false;
    const FunctionInstance& identity = gFrame->identity;
    made.requester = identity.requester;
    made.requestToken = identity.requestToken;
    made.requestDepth = identity.requestDepth;
    made.requestedDeclaration = identity.requestedDeclaration;
    made.requestedWith = identity.requestedWith;
    made.isGrowing = identity.isGrowing;
    return true;
}

RequestPlace requestUnderWay() {
    if (gFrame) {
        const FunctionInstance& identity = gFrame->identity;
        return {identity.requester, identity.requestToken, identity.requestDepth};
    }
    FunctionInstance* requester = ScopedRequester::current();
    return {requester, ScopedRequester::currentToken(), requester ? requester->requestDepth + 1 : 0};
}

void noteImplicitRequest(CompileSession& session, FunctionInstance& member, FunctionInstance* user) {
    if (!user || user == &member || !member.owner || member.owner->arguments.empty()) return;
    std::lock_guard lock(session.modelMutex());
    if (member.requester || member.requestToken) return;
    const FunctionInstance* known = user;
    for (int steps = 0; known && steps < MAX_STEPS; known = known->requester, steps++)
        if (known == &member) return;
    member.requester = user;
    member.requestToken = user->requestToken;
    if (user->node) member.requestToken = user->node->nameToken() ? user->node->nameToken() : user->node->token();
    member.requestDepth = user->requestDepth + 1;
    identifyMember(member);
    admitRequest(session, member);
}

// ------------------------------------------------------------------------------------- the requester of a thread

ScopedRequester::ScopedRequester(FunctionInstance* function, TokenPtr token)
    : previous_(gRequester), previousToken_(gRequestToken), previousFrame_(std::exchange(gFrame, nullptr)) {
    gRequester = function;
    if (token) gRequestToken = std::move(token);
}

ScopedRequester::~ScopedRequester() {
    gRequester = previous_;
    gRequestToken = std::move(previousToken_);
    gFrame = previousFrame_;
}

FunctionInstance* ScopedRequester::current() { return gFrame ? recordOf(*gFrame) : gRequester; }
TokenPtr ScopedRequester::currentToken() { return gRequestToken; }

ScopedSpecialization::ScopedSpecialization(RequestedSpecialization requested, const ContextPtr& scope)
    : frame_(std::make_unique<Frame>()) {
    CompileSession& session = CompileSession::current();
    FunctionInstance& identity = frame_->identity;
    identity.requester = ScopedRequester::current();
    identity.displayName = std::move(requested.displayName);
    identity.requestToken = std::move(requested.token);
    identity.requestedDeclaration = fnv1a64(requested.declaration) | 1;
    identity.requestedWith.reserve(requested.typeArgs.size());
    for (const Str& type : requested.typeArgs) identity.requestedWith.push_back(resolveType(type, scope));
    {
        std::lock_guard lock(session.modelMutex());
        identity.requestDepth = identity.requester ? identity.requester->requestDepth + 1 : 1;
        if (identity.requestDepth > MAX_REQUEST_DEPTH) {
            session.state().growth.hasEnded = true;
            CompilerException error = nestedTooDeeplyError(identity.requestToken);
            for (DiagnosticNote& note : requestChain(identity.requester)) error.addNote(std::move(note));
            throw error;
        }
        admitRequest(session, identity);
    }
    frame_->previous = std::exchange(gFrame, frame_.get());
}

ScopedSpecialization::~ScopedSpecialization() { gFrame = frame_->previous; }

std::size_t wholeTypeTextLength(const Str& type, const ContextPtr& scope) {
    return resolveType(type, scope)->wholeLength;
}

}  // namespace vesk::compiler
