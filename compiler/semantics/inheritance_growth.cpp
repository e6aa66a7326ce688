// Bounding lineages, and circles of type parameters.
#include "semantics/inheritance_growth.h"

#include <algorithm>
#include <set>
#include <unordered_set>

#include "generics/generic_specializer.h"
#include "host/diagnostics.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

using Linking = ClassDeclaration::Linking;

// Lengths are estimated in doubles: they may double thousands of times.
using Lengths = std::vector<double>;  // of a constant part, then of each type parameter's uses

TokenPtr placeOfSuper(const ClassDeclaration& declaration, const Type* super) {
    const ClassNode& node = *declaration.node;
    std::size_t index = node.superType().empty() ? 0 : 1;
    if (super == declaration.superType) index = 0;
    for (std::size_t i = 0; i < declaration.interfaces.size(); i++)
        if (declaration.interfaces[i] == super) index += i;
    const TokenVec& tokens = node.superTokens();
    if (index < tokens.size() && tokens[index]) return tokens[index];
    return node.nameToken() ? node.nameToken() : node.token();
}

std::vector<const Type*> directSupersOf(const ClassDeclaration& declaration) {
    std::vector<const Type*> supers = declaration.interfaces;
    if (declaration.superType) supers.push_back(declaration.superType);
    return supers;
}

void addScaled(Lengths& to, const Lengths& from, double factor) {
    for (std::size_t i = 0; i < to.size(); i++) to[i] += factor * from[i];
}

// The length of a type's text in terms of the lengths of type parameters.
Lengths lengthsOf(const Type* type, const std::vector<std::string>& parameters) {
    Lengths lengths(parameters.size() + 1);
    if (type->isConcrete || (type->arguments.empty() && !type->result)) {
        const auto own = std::find(parameters.begin(), parameters.end(), type->text);
        if (type->kind == TypeKind::Parameter && own != parameters.end())
            lengths[static_cast<std::size_t>(own - parameters.begin()) + 1] = 1;
        else
            lengths[0] = type->wholeLength;
        return lengths;
    }
    double parts = 0;
    const auto add = [&](const Type* part) {
        addScaled(lengths, lengthsOf(part, parameters), 1);
        parts += part->wholeLength;
    };
    for (const Type* part : type->arguments) add(part);
    if (type->result) add(type->result);
    lengths[0] += type->wholeLength - parts;
    return lengths;
}

// No type in the lineage has longer arguments than this; usually it is their length.
Lengths boundOf(const ClassDeclaration& declaration) {
    Lengths bound(declaration.typeParameters.size() + 1);
    const auto raise = [&](const Lengths& other) {
        for (std::size_t i = 0; i < bound.size(); i++) bound[i] = std::max(bound[i], other[i]);
    };
    for (const Type* super : directSupersOf(declaration)) {
        if (super->kind != TypeKind::Class || super->arguments.empty()) continue;
        const Lengths& above = super->declaration->lineageLengths;
        Lengths here(bound.size()), farther(bound.size());
        if (!above.empty()) farther[0] = above[0];
        for (std::size_t i = 0; i < super->arguments.size(); i++) {
            const Lengths argument = lengthsOf(super->arguments[i], declaration.typeParameters);
            addScaled(here, argument, 1);
            if (i + 1 < above.size()) addScaled(farther, argument, above[i + 1]);
        }
        raise(here);
        raise(farther);
    }
    return bound;
}

double argumentsLength(const Type* type) {
    double length = 0;
    for (const Type* argument : type->arguments) length += argument->wholeLength;
    return length;
}

// Walks the lineage itself.
void findTooLong(CompileSession& session, const ClassDeclaration& declaration) {
    for (const Type* super : directSupersOf(declaration)) {
        std::vector<const Type*> order{super};
        std::unordered_set<const Type*> seen{super};
        for (std::size_t i = 0; i < order.size(); i++) {
            const Type* type = order[i];
            if (type->kind != TypeKind::Class) continue;
            if (argumentsLength(type) > MAX_TYPE_ARGUMENTS_TEXT)
                throw typeArgumentsTooLongError(type->declaration->name, placeOfSuper(declaration, super));
            for (const Type* next : directSupersOf(*type->declaration)) {
                next = session.types().substitute(next, type->declaration->typeParameters, type->arguments);
                if (seen.insert(next).second) order.push_back(next);
            }
        }
    }
}

// ------------------------------------------------------------------------------------------- circles of parameters

struct Parameter {
    ClassDeclaration* declaration;
    std::size_t index;
    auto operator<=>(const Parameter&) const = default;
};

struct Step {
    Parameter from, to;
    bool grows;
    const Type* super;  // the one of the header that it belongs to
};

bool mentions(const Type* type, const std::string& parameter) {
    if (type->isConcrete) return false;
    if (type->kind == TypeKind::Parameter) return type->text == parameter;
    return std::any_of(type->arguments.begin(), type->arguments.end(),
                       [&](const Type* part) { return mentions(part, parameter); }) ||
           (type->result && mentions(type->result, parameter));
}

void addSteps(ClassDeclaration& declaration, const Type* type, const Type* super, std::vector<Step>& steps) {
    if (type->isConcrete) return;
    if (type->kind == TypeKind::Class) {
        for (std::size_t i = 0; i < type->arguments.size(); i++) {
            const Type* argument = type->arguments[i];
            for (std::size_t p = 0; p < declaration.typeParameters.size(); p++) {
                if (!mentions(argument, declaration.typeParameters[p])) continue;
                steps.push_back(
                    {{&declaration, p}, {type->declaration, i}, argument->kind != TypeKind::Parameter, super});
            }
        }
    }
    for (const Type* part : type->arguments) addSteps(declaration, part, super, steps);
    if (type->result) addSteps(declaration, type->result, super, steps);
}

std::vector<Step> stepsOf(ClassDeclaration& declaration) {
    std::vector<Step> steps;
    for (const Type* super : directSupersOf(declaration)) addSteps(declaration, super, super, steps);
    return steps;
}

void linkForSteps(CompileSession& session, ClassDeclaration& declaration) {
    if (declaration.linking != Linking::NotYet) return;
    try {
        session.linkSuperTypes(declaration);
    } catch (const CompilerException&) {
        // Its own header's mistake, reported when that is checked.
    }
}

bool leadsTo(CompileSession& session, const Parameter& from, const Parameter& wanted) {
    std::vector<Parameter> order{from};
    std::set<Parameter> seen{from};
    for (std::size_t i = 0; i < order.size(); i++) {
        const Parameter at = order[i];
        if (at == wanted) return true;
        linkForSteps(session, *at.declaration);
        for (const Step& step : stepsOf(*at.declaration))
            if (step.from == at && seen.insert(step.to).second) order.push_back(step.to);
    }
    return false;
}

}  // namespace

void checkLineageLength(CompileSession& session, ClassDeclaration& declaration) {
    declaration.lineageLengths.clear();
    if (!declaration.isGeneric()) return;  // its arguments are concrete, and have short names
    Lengths bound = boundOf(declaration);
    double length = bound[0];
    for (std::size_t i = 1; i < bound.size(); i++)
        length += bound[i] * static_cast<double>(declaration.typeParameters[i - 1].size());
    if (length > static_cast<double>(MAX_TYPE_ARGUMENTS_TEXT)) findTooLong(session, declaration);
    declaration.lineageLengths = std::move(bound);
}

void checkHeaderEnds(CompileSession& session, ClassDeclaration& declaration) {
    for (const Step& step : stepsOf(declaration)) {
        if (!step.grows || !leadsTo(session, step.to, step.from)) continue;
        const std::string& name =
            step.super->kind == TypeKind::Class ? step.super->declaration->name : declaration.name;
        CompilerException error = typeArgumentsTooLongError(name, placeOfSuper(declaration, step.super));
        error.addNote({"the super types of " + declaration.name + " lead back to it with ever larger type arguments",
                       declaration.node->nameToken() ? declaration.node->nameToken() : declaration.node->token()});
        session.report(error);
        return;
    }
}

}  // namespace vesk::compiler
