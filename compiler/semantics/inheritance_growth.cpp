// Bounding lineages, and circles of type parameters.
#include "semantics/inheritance_growth.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "generics/generic_specializer.h"
#include "host/diagnostics.h"
#include "semantics/session_tables.h"

namespace vesk::compiler {

namespace {

using Linking = ClassDeclaration::Linking;

// Lengths are estimated in doubles: they may double thousands of times.
using Lengths = std::vector<double>;                         // of a constant part, then of each type parameter's uses
using FewLengths = std::unordered_map<std::size_t, double>;  // the same, of those places that are not zero

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

// Adds the length of a type's text in terms of the lengths of type parameters.
void addLengthOf(const Type* type, double factor, const TypeParameterIndex& parameters, FewLengths& to) {
    if (type->isConcrete || (type->arguments.empty() && !type->result)) {
        const std::size_t own =
            type->kind == TypeKind::Parameter ? parameters.positionOf(type->text) : TypeParameterIndex::NONE;
        if (own != TypeParameterIndex::NONE)
            to[own + 1] += factor;
        else
            to[0] += factor * type->wholeLength;
        return;
    }
    double parts = 0;
    const auto add = [&](const Type* part) {
        addLengthOf(part, factor, parameters, to);
        parts += part->wholeLength;
    };
    for (const Type* part : type->arguments) add(part);
    if (type->result) add(type->result);
    to[0] += factor * (type->wholeLength - parts);
}

// No type in the lineage has longer arguments than this; usually it is their length.
Lengths boundOf(const ClassDeclaration& declaration) {
    Lengths bound(declaration.typeParameters.size() + 1);
    const auto raise = [&](const FewLengths& other) {
        for (const auto& [place, length] : other) bound[place] = std::max(bound[place], length);
    };
    for (const Type* super : directSupersOf(declaration)) {
        if (super->kind != TypeKind::Class || super->arguments.empty()) continue;
        const Lengths& above = super->declaration->lineageLengths;
        FewLengths here, farther;
        if (!above.empty()) farther[0] = above[0];
        for (std::size_t i = 0; i < super->arguments.size(); i++) {
            addLengthOf(super->arguments[i], 1, declaration.typeParameterIndex, here);
            if (i + 1 < above.size() && above[i + 1] > 0)
                addLengthOf(super->arguments[i], above[i + 1], declaration.typeParameterIndex, farther);
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
                next = session.types().substitute(next, environmentOf(type));
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

// Adds the places of the parameters that a type mentions.
void addMentioned(const Type* type, const TypeParameterIndex& parameters, std::set<std::size_t>& mentioned) {
    if (type->isConcrete) return;
    if (type->kind == TypeKind::Parameter) {
        if (const std::size_t place = parameters.positionOf(type->text); place != TypeParameterIndex::NONE)
            mentioned.insert(place);
        return;
    }
    for (const Type* part : type->arguments) addMentioned(part, parameters, mentioned);
    if (type->result) addMentioned(type->result, parameters, mentioned);
}

void addSteps(ClassDeclaration& declaration, const Type* type, const Type* super, std::vector<Step>& steps) {
    if (type->isConcrete) return;
    if (type->kind == TypeKind::Class) {
        for (std::size_t i = 0; i < type->arguments.size(); i++) {
            const Type* argument = type->arguments[i];
            std::set<std::size_t> mentioned;
            addMentioned(argument, declaration.typeParameterIndex, mentioned);
            for (const std::size_t p : mentioned)
                steps.push_back(
                    {{&declaration, p}, {type->declaration, i}, argument->kind != TypeKind::Parameter, super});
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
