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

bool Verbs::add_for(const std::string& key, unsigned number, Verb verb) {
    if (!acts_[verb.name].emplace(number, std::move(verb.act)).second) {
        return false;
    }
    verb.arguments.insert(verb.arguments.begin(), {key});
    verb.act = [this, name = verb.name, key](const Json& arguments) {
        return call_one(name, key, arguments);
    };
    add(std::move(verb));
    return true;
}

Json Verbs::call_one(const std::string& name, const std::string& key, const Json& arguments) const {
    const auto& acts = acts_.at(name);
    const auto found = acts.find(arguments[key].get<std::int64_t>());
    if (found == acts.end()) {
        std::string numbers;
        for (const auto& [number, unused] : acts) {
            numbers += fmt::format(" {}", number);
        }
        throw VerbError(fmt::format("{}: on this board \"{}\" is one of{}", name, key, numbers));
    }
    return found->second(arguments);
}

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
