#include "core/faults.h"

#include "core/number.h"

#include <fmt/format.h>
#include <fnmatch.h>

#include <cstring>
#include <vector>

namespace vb {

namespace {

constexpr double kLongestDelayMs = 1e9; // eleven days of board time

[[noreturn]] void refuse(const std::string& why) {
    throw std::invalid_argument(why);
}

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> words(1);
    for (const char letter : text) {
        if (letter == at) {
            words.emplace_back();
        } else {
            words.back().push_back(letter);
        }
    }
    return words;
}

// "times=3" -> {"times", "3"}; "once" -> {"once", ""}
std::pair<std::string, std::string> key_and_value(const std::string& word) {
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
        return {word, ""};
    }
    return {word.substr(0, equals), word.substr(equals + 1)};
}

template <class Number>
Number number_of(const std::string& key, const std::string& text,
                 Number most = std::numeric_limits<Number>::max()) {
    const auto number = number_in<Number>(text);
    if (!number || *number < 0 || *number > most) {
        const bool bounded = most != std::numeric_limits<Number>::max();
        refuse(fmt::format("{}= wants a number from 0{}, not \"{}\"", key,
                           bounded ? fmt::format(" to {}", most) : "", text));
    }
    return *number;
}

} // namespace

namespace {

constexpr Operation kOperations[] = {Operation::open,
                                     Operation::request,
                                     Operation::read,
                                     Operation::write,
                                     Operation::sync,
                                     Operation::make_directory,
                                     Operation::remove_directory,
                                     Operation::make_link,
                                     Operation::remove_link};

} // namespace

const char* name_of(Operation operation) {
    switch (operation) {
    case Operation::open:
        return "open";
    case Operation::request:
        return "ioctl";
    case Operation::read:
        return "read";
    case Operation::write:
        return "write";
    case Operation::sync:
        return "fsync";
    case Operation::make_directory:
        return "mkdir";
    case Operation::remove_directory:
        return "rmdir";
    case Operation::make_link:
        return "symlink";
    case Operation::remove_link:
        return "unlink";
    }
    return "?";
}

std::string error_name(int error) {
    const char* name = strerrorname_np(error);
    return name == nullptr ? fmt::format("E{}", error) : name;
}

std::optional<int> error_number(std::string_view name) {
    constexpr int kHighest = 511; // the kernel takes no more from a file system
    for (int error = 1; error <= kHighest; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return std::nullopt;
}

void Faults::Rule::take_operation(const std::string& word) {
    const auto [key, value] = key_and_value(word);
    request = value;
    for (const Operation known : kOperations) {
        if (key == name_of(known)) {
            operation = known;
            return;
        }
    }
    if (key != "any") {
        refuse(fmt::format(
            "unknown operation \"{}\": open, ioctl, ioctl=NAME, read, write, fsync, mkdir, rmdir, "
            "symlink, unlink or any",
            word));
    }
}

void Faults::Rule::take_action(const std::string& word) {
    const auto [key, value] = key_and_value(word);
    action.text = word;
    if (key == "delay") {
        action.kind = FaultAction::Kind::delay;
        action.delay_ns =
            static_cast<std::int64_t>(number_of<double>(key, value, kLongestDelayMs) * 1e6);
    } else if (key == "hold" && !value.empty()) {
        action.kind = FaultAction::Kind::hold;
        action.tag = value;
    } else if (word == "garble") {
        action.kind = FaultAction::Kind::garble;
    } else if (key == "short") {
        action.kind = FaultAction::Kind::shorten;
        action.size = number_of<std::size_t>(key, value);
    } else if (word == "vanish") {
        action.kind = FaultAction::Kind::vanish;
    } else if (const auto error = error_number(word)) {
        action.error = *error;
    } else {
        refuse(fmt::format("unknown action \"{}\": an errno's name, delay=MS, hold=TAG, garble, "
                           "short=N or vanish",
                           word));
    }
}

void Faults::Rule::take_condition(const std::string& word) {
    const auto [key, value] = key_and_value(word);
    if (word == "once") {
        times = 1;
    } else if (key == "times") {
        times = number_of<std::uint64_t>(key, value);
    } else if (key == "after") {
        after = number_of<std::uint64_t>(key, value);
    } else if (key == "probability") {
        probability = number_of<double>(key, value, 1.0);
    } else if (key == "seed") {
        random.seed(number_of<std::uint64_t>(key, value));
    } else {
        refuse(fmt::format(
            "unknown condition \"{}\": once, times=N, after=N, probability=P or seed=S", word));
    }
}

int Faults::add(const std::string& text) {
    const std::vector<std::string> words = split(text, ':');
    if (words.size() < 3) {
        refuse(fmt::format("\"{}\" is no fault: NODE:OPERATION:ACTION[:CONDITION...]", text));
    }
    Rule rule;
    rule.text = text;
    rule.node = words[0];
    rule.take_operation(words[1]);
    rule.take_action(words[2]);
    for (std::size_t i = 3; i < words.size(); ++i) {
        rule.take_condition(words[i]);
    }
    rules_.emplace(next_, std::move(rule));
    return next_++;
}

bool Faults::Rule::covers(const std::string& struck_node, Operation struck_operation,
                          const std::string& struck_request, std::uint32_t code) const {
    if (operation && *operation != struck_operation) {
        return false;
    }
    if (!request.empty() && request != struck_request && request != fmt::format("{:#x}", code)) {
        return false;
    }
    return fnmatch(node.c_str(), struck_node.c_str(), 0) == 0;
}

std::optional<FaultAction> Faults::strike(const std::string& node, Operation operation,
                                          const std::string& request, std::uint32_t code) {
    for (auto& [id, rule] : rules_) {
        if (!rule.covers(node, operation, request, code)) {
            continue;
        }
        const bool early = rule.seen++ < rule.after;
        if (early || rule.struck >= rule.times) {
            continue;
        }
        if (rule.probability < 1.0 &&
            std::uniform_real_distribution<double>(0.0, 1.0)(rule.random) >= rule.probability) {
            continue;
        }
        ++rule.struck;
        FaultAction action = rule.action;
        action.noise = rule.random();
        return action;
    }
    return std::nullopt;
}

Json Faults::list() const {
    Json all = Json::array();
    for (const auto& [id, rule] : rules_) {
        all.push_back(
            {{"id", id}, {"fault", rule.text}, {"seen", rule.seen}, {"struck", rule.struck}});
    }
    return all;
}

} // namespace vb
