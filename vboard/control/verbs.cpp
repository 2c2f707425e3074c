#include "control/verbs.h"

#include <fmt/format.h>

namespace vb {

bool Verbs::add_for(const std::string& key, unsigned number, Verb verb) {
    const std::string name = verb.name;
    auto& acts = acts_[name];
    if (!acts.emplace(number, std::move(verb.act)).second) {
        return false;
    }
    Argument device = Argument::integer(key);
    device.of_board = true;
    for (const auto& [each, unused] : acts) {
        device.choices.push_back(each);
    }
    verb.arguments.insert(verb.arguments.begin(), std::move(device));
    verb.act = [&acts, key](const Json& arguments) {
        return acts.at(arguments[key].get<std::int64_t>())(arguments);
    };
    add(std::move(verb));
    return true;
}

Json Verbs::call(const std::string& name, const Json& arguments) const {
    const auto found = verbs_.find(name);
    if (found == verbs_.end()) {
        throw UsageError(fmt::format("this board has no verb \"{}\"", name));
    }
    return found->second.act(checked(found->second.arguments, arguments));
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
            arguments.push_back(argument.describe());
        }
        all.push_back({{"verb", name},
                       {"arguments", arguments},
                       {"help", verb.help},
                       {"follows", verb.follows}});
    }
    return all;
}

} // namespace vb
