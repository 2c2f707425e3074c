#include "core/verbs.h"

#include <fmt/format.h>

namespace vb {

namespace {

const char* name_of(Argument::Type type) {
    switch (type) {
    case Argument::Type::integer:
        return "integer";
    case Argument::Type::number:
        return "number";
    case Argument::Type::text:
        return "text";
    }
    return "?";
}

bool fits(Argument::Type type, const Json& value) {
    switch (type) {
    case Argument::Type::integer:
        return value.is_number_integer();
    case Argument::Type::number:
        return value.is_number();
    case Argument::Type::text:
        return value.is_string();
    }
    return false;
}

} // namespace

Json Verbs::call(const std::string& name, const Json& arguments) const {
    const auto found = verbs_.find(name);
    if (found == verbs_.end()) {
        throw VerbError(fmt::format("unknown verb \"{}\"", name));
    }
    for (const Argument& argument : found->second.arguments) {
        const auto value = arguments.find(argument.name);
        if (value == arguments.end()) {
            if (!argument.optional) {
                throw VerbError(fmt::format("{} wants \"{}\"", name, argument.name));
            }
        } else if (!fits(argument.type, *value)) {
            throw VerbError(
                fmt::format("{}: \"{}\" is no {}", name, argument.name, name_of(argument.type)));
        }
    }
    return found->second.act(arguments);
}

bool Verbs::follows(const std::string& name) const {
    const auto found = verbs_.find(name);
    return found != verbs_.end() && found->second.follows;
}

Json Verbs::describe() const {
    Json all = Json::array();
    for (const auto& [name, verb] : verbs_) {
        Json arguments = Json::array();
        for (const Argument& argument : verb.arguments) {
            arguments.push_back({{"name", argument.name},
                                 {"type", name_of(argument.type)},
                                 {"optional", argument.optional}});
        }
        all.push_back({{"verb", name},
                       {"arguments", arguments},
                       {"help", verb.help},
                       {"follows", verb.follows}});
    }
    return all;
}

} // namespace vb
