#include "asn1gen/resolver.h"

#include <algorithm>
#include <set>

#include "asn1gen/naming.h"
#include "asn1gen/simple_types.h"

namespace asn1gen {
namespace {

struct ModuleState {
    const ModuleSyntax* syntax = nullptr;
    Module* module = nullptr;
    std::map<std::string, const AssignmentSyntax*> assignments;
    std::map<std::string, const ImportSyntax*> imports;
    std::map<std::string, Type*> types; ///< by the ASN.1 name
    std::map<std::string, Type*> lists; ///< shared lists by their full name
};

struct Scope;

struct Binding {
    const TypeSyntax* type = nullptr;
    const Scope* scope = nullptr;
};

/// Where names are looked up: a module and the parameters of the type being instantiated.
struct Scope {
    ModuleState* module = nullptr;
    std::map<std::string, Binding> parameters;
};

/// What is being defined, which decides whether a simple type gets a name and functions.
enum class Place {
    Assignment,
    Component,
    SizedListElement,
    SharedListElement, ///< the list is named after it, so any constraint gives it a name
};

struct Site {
    Place place = Place::Component;
    ModuleState* owner = nullptr; ///< the module that gets the type
    std::string name;             ///< the name, if the type gets one
};

bool mentions(const TypeSyntax& type, const std::string& name) {
    if (type.kind == SyntaxKind::Reference && type.name == name) {
        return true;
    }
    for (const auto& argument : type.arguments) {
        if (mentions(*argument, name)) {
            return true;
        }
    }
    for (const auto* list : {&type.root, &type.additions}) {
        for (const ComponentSyntax& component : *list) {
            if (mentions(*component.type, name)) {
                return true;
            }
        }
    }
    return type.element && mentions(*type.element, name);
}

class Resolver {
public:
    Resolver(const std::vector<ModuleSyntax>& syntax,
             const std::map<std::string, ModuleOptions>& options)
        : options(options) {
        for (const ModuleSyntax& module : syntax) {
            addModule(module);
        }
    }

    Model run(const std::vector<ModuleSyntax>& syntax) {
        for (const ModuleSyntax& module : syntax) {
            visit(module.name, module.position);
        }
        return std::move(model);
    }

private:
    // Modules.

    void addModule(const ModuleSyntax& syntax) {
        ModuleState& state = states[syntax.name];
        if (state.syntax != nullptr) {
            throw SourceError(syntax.position, "module " + syntax.name + " is defined twice");
        }
        state.syntax = &syntax;
        for (const AssignmentSyntax& assignment : syntax.assignments) {
            if (!state.assignments.emplace(assignment.name, &assignment).second) {
                throw SourceError(assignment.position, assignment.name + " is defined twice");
            }
        }
        for (const ImportSyntax& import : syntax.imports) {
            for (const std::string& name : import.names) {
                if (state.assignments.count(name) != 0 ||
                    !state.imports.emplace(name, &import).second) {
                    throw SourceError(import.position,
                                      name + " is imported here and imported or defined elsewhere");
                }
            }
        }
    }

    /// Makes the module's types, those of the modules that it imports from first.
    Module* visit(const std::string& name, const Position& position) {
        const auto found = states.find(name);
        if (found == states.end()) {
            throw SourceError(position, "module " + name + " is not among the files given");
        }
        ModuleState& state = found->second;
        if (state.module != nullptr) {
            return state.module;
        }
        if (!visiting.insert(name).second) {
            throw SourceError(position, "module " + name + " imports from itself in a circle");
        }
        auto module = std::make_unique<Module>();
        module->name = name;
        module->position = state.syntax->position;
        const auto option = options.find(name);
        if (option != options.end()) {
            module->options = option->second;
        }
        for (const ImportSyntax& import : state.syntax->imports) {
            module->imports.push_back(visit(import.module, import.position));
            for (const std::string& type : import.names) {
                if (states.at(import.module).assignments.count(type) == 0) {
                    throw SourceError(import.position,
                                      "module " + import.module + " does not define " + type);
                }
            }
        }
        state.module = module.get();
        model.modules.push_back(std::move(module));
        for (const AssignmentSyntax& assignment : state.syntax->assignments) {
            if (assignment.parameters.empty()) {
                named(state, assignment);
            }
        }
        return state.module;
    }

    // Names.

    std::pair<ModuleState*, const AssignmentSyntax*>
    find(ModuleState& module, const std::string& name, const Position& position) {
        const auto own = module.assignments.find(name);
        if (own != module.assignments.end()) {
            return {&module, own->second};
        }
        const auto import = module.imports.find(name);
        if (import == module.imports.end()) {
            throw SourceError(position, "the type " + name + " is not defined in module " +
                                            module.syntax->name + " and not imported");
        }
        ModuleState& source = states.at(import->second->module);
        return {&source, source.assignments.at(name)};
    }

    /// The type of an assignment, made when it is asked for the first time.
    Type* named(ModuleState& state, const AssignmentSyntax& assignment) {
        const auto known = state.types.find(assignment.name);
        if (known != state.types.end()) {
            if (known->second == nullptr) {
                throw SourceError(assignment.position,
                                  assignment.name + " is defined by nothing but itself");
            }
            if (unfinished.count(known->second) != 0) {
                known->second->recursive = true;
            }
            return known->second;
        }
        const Scope scope{&state, {}};
        return define(
            *assignment.type, scope,
            {Place::Assignment, &state, state.module->options.prefix + cName(assignment.name)},
            &state.types[assignment.name]);
    }

    // Types.

    Type* newType(Kind kind, const Position& position) {
        model.types.push_back(std::make_unique<Type>());
        Type* type = model.types.back().get();
        type->kind = kind;
        type->position = position;
        return type;
    }

    void give(Type* type, const Site& site) {
        type->module = site.owner->module;
        type->name = site.name;
        type->hasFunctions = true;
    }

    /// slot, when given, receives the type before its components are resolved, so that they can
    /// refer to it.
    Type* define(const TypeSyntax& syntax, const Scope& scope, const Site& site,
                 Type** slot = nullptr) {
        if (syntax.kind != SyntaxKind::Reference) {
            checkConstraints(syntax);
        }
        Type* type = nullptr;
        switch (syntax.kind) {
        case SyntaxKind::Reference:
            type = reference(syntax, scope, site, slot);
            break;
        case SyntaxKind::Sequence:
        case SyntaxKind::Choice:
            return record(syntax, scope, site, slot);
        case SyntaxKind::List:
            return list(syntax, scope, site, slot);
        default:
            type = simple(syntax, site);
        }
        if (slot != nullptr) {
            *slot = type;
        }
        return type;
    }

    Type* simple(const TypeSyntax& syntax, const Site& site) {
        if (syntax.kind == SyntaxKind::Null && site.place != Place::Component) {
            throw SourceError(syntax.position, "NULL is supported as a component only");
        }
        Type* type = newType(Kind::Null, syntax.position);
        describeSimple(syntax, *type);
        const bool sizedString =
            (type->kind == Kind::OctetString || type->kind == Kind::BitString) &&
            type->size.has_value();
        if (site.place == Place::Assignment || sizedString || type->kind == Kind::Enumerated ||
            (site.place == Place::SharedListElement && syntax.constraints.any())) {
            give(type, site);
            site.owner->module->types.push_back(type);
        }
        return type;
    }

    Type* record(const TypeSyntax& syntax, const Scope& scope, const Site& site, Type** slot) {
        const bool choice = syntax.kind == SyntaxKind::Choice;
        Type* type = newType(choice ? Kind::Choice : Kind::Sequence, syntax.position);
        give(type, site);
        if (slot != nullptr) {
            *slot = type;
        }
        unfinished.insert(type);
        type->extensible = syntax.extensible;
        std::set<std::string> identifiers;
        for (const auto* list : {&syntax.root, &syntax.additions}) {
            for (const ComponentSyntax& component : *list) {
                if (!identifiers.insert(component.name).second) {
                    throw SourceError(component.position, component.name + " is defined twice");
                }
                auto& components = list == &syntax.root ? type->root : type->additions;
                components.push_back(makeComponent(component, scope, site));
                components.back().addition = list == &syntax.additions;
            }
        }
        if (choice && type->root.empty()) {
            throw SourceError(syntax.position, "a CHOICE needs an alternative before \"...\"");
        }
        unfinished.erase(type);
        site.owner->module->types.push_back(type);
        return type;
    }

    Component makeComponent(const ComponentSyntax& syntax, const Scope& scope, const Site& site) {
        Component component;
        component.identifier = syntax.name;
        component.member = memberName(syntax.name);
        component.optional = syntax.optional;
        component.type =
            define(*syntax.type, scope,
                   {Place::Component, site.owner, site.name + "_" + cName(syntax.name)});
        return component;
    }

    Type* list(const TypeSyntax& syntax, const Scope& scope, const Site& site, Type** slot) {
        Type* type = newType(Kind::List, syntax.position);
        type->size = syntax.constraints.size;
        type->setOf = syntax.setOf;
        if (slot != nullptr) {
            *slot = type;
            give(type, site);
            unfinished.insert(type);
        }
        const Place place = type->size ? Place::SizedListElement : Place::SharedListElement;
        type->element = define(*syntax.element, scope, {place, site.owner, site.name + "_element"});
        unfinished.erase(type);

        const bool shared =
            site.place != Place::Assignment && !type->size && !type->element->name.empty();
        if (shared) {
            Site named = site;
            named.name =
                listName(site.owner->module->options.prefix, syntax.setOf, type->element->name);
            Type*& known = site.owner->lists[named.name];
            if (known != nullptr) {
                return known;
            }
            known = type;
            give(type, named);
        } else {
            give(type, site);
            // The list of an outer type's own values is coded inside that type.
            type->hasFunctions = unfinished.count(type->element) == 0;
        }
        site.owner->module->types.push_back(type);
        return type;
    }

    Type* reference(const TypeSyntax& syntax, const Scope& scope, const Site& site, Type** slot) {
        if (syntax.constraints.any()) {
            return constrained(syntax, scope, site, slot);
        }
        const auto parameter = scope.parameters.find(syntax.name);
        if (parameter != scope.parameters.end()) {
            return define(*parameter->second.type, *parameter->second.scope, site, slot);
        }
        const auto [module, assignment] = find(*scope.module, syntax.name, syntax.position);
        if (assignment->parameters.size() != syntax.arguments.size()) {
            throw SourceError(syntax.position, syntax.name + " takes " +
                                                   std::to_string(assignment->parameters.size()) +
                                                   " parameter(s), not " +
                                                   std::to_string(syntax.arguments.size()));
        }
        bool instantiate = false;
        Scope inner{module, {}};
        for (size_t i = 0; i < assignment->parameters.size(); ++i) {
            inner.parameters[assignment->parameters[i]] = {syntax.arguments[i].get(), &scope};
            instantiate = instantiate || mentions(*assignment->type, assignment->parameters[i]);
        }
        if (instantiate) {
            constexpr int deepest = 64;
            if (++instances > deepest) {
                throw SourceError(syntax.position,
                                  syntax.name + " contains itself by its parameters, without end");
            }
            Type* type = define(*assignment->type, inner, site, slot);
            --instances;
            return type;
        }
        Type* target = named(*module, *assignment);
        return site.place == Place::Assignment ? makeAlias(target, syntax.position, site) : target;
    }

    /// A reference with constraints of its own is a simple type with those of both.
    Type* constrained(const TypeSyntax& syntax, const Scope& scope, const Site& site, Type** slot) {
        if (scope.parameters.count(syntax.name) != 0) {
            failConstrained(syntax);
        }
        std::vector<const TypeSyntax*> chain = {&syntax};
        ModuleState* module = scope.module;
        while (chain.back()->kind == SyntaxKind::Reference) {
            const auto [source, assignment] =
                find(*module, chain.back()->name, chain.back()->position);
            const TypeSyntax* next = assignment->type.get();
            if (!assignment->parameters.empty() ||
                std::find(chain.begin(), chain.end(), next) != chain.end()) {
                failConstrained(syntax);
            }
            module = source;
            chain.push_back(next);
        }
        const TypeSyntax& base = *chain.back();
        if (base.kind != SyntaxKind::Integer && base.kind != SyntaxKind::OctetString &&
            base.kind != SyntaxKind::BitString && base.kind != SyntaxKind::CharacterString) {
            failConstrained(syntax);
        }
        TypeSyntax merged;
        merged.kind = base.kind;
        merged.position = syntax.position;
        merged.name = base.name;
        for (auto part = chain.rbegin(); part != chain.rend(); ++part) {
            merged.constraints.intersect((*part)->constraints, syntax.position);
        }
        return define(merged, scope, site, slot);
    }

    [[noreturn]] static void failConstrained(const TypeSyntax& syntax) {
        throw SourceError(syntax.position, "a constraint on the reference to " + syntax.name +
                                               " is not supported: it is no INTEGER or string");
    }

    Type* makeAlias(Type* target, const Position& position, const Site& site) {
        if (unfinished.count(target) != 0) {
            throw SourceError(position, site.name + " is another name of a type that contains it");
        }
        Type* type = newType(target->kind, position);
        type->alias = target;
        give(type, site);
        site.owner->module->types.push_back(type);
        return type;
    }

    const std::map<std::string, ModuleOptions>& options;
    std::map<std::string, ModuleState> states;
    std::set<std::string> visiting;
    std::set<const Type*> unfinished;
    int instances = 0; ///< of parameterised types, one inside the other
    Model model;
};

} // namespace

Model resolve(const std::vector<ModuleSyntax>& modules,
              const std::map<std::string, ModuleOptions>& options) {
    return Resolver(modules, options).run(modules);
}

} // namespace asn1gen
