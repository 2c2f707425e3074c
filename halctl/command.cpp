#include "command.h"

#include "hex.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace halctl {

namespace {

// "a, b or c"
std::string listed(const std::vector<std::string>& words) {
    std::string text = words.front();
    for (std::size_t i = 1; i < words.size(); ++i) {
        text += (i + 1 == words.size() ? " or " : ", ") + words[i];
    }
    return text;
}

Complaint is_not(const std::string& word, const std::string& kind) {
    return fmt::format("{} is not {}", in_quotes(word), kind);
}

Complaint is_no_number(const std::string& word) {
    return fmt::format("{} is no number", in_quotes(word));
}

} // namespace

Parameter& Parameter::otherwise(std::string words) {
    fallback = std::move(words);
    return *this;
}

// --- the tree ---

Command& Command::add(const std::string& name, const std::string& about) {
    below_.push_back(std::make_unique<Command>(path() + " ", name, about));
    return *below_.back();
}

Command& Command::group(const std::string& name, const std::string& about) {
    return add(name, about);
}

Command& Command::verb(const std::string& name, const std::string& about,
                       const std::string& example) {
    Command& command = add(name, about);
    command.example_ = example;
    return command;
}

const Command* Command::find(std::string_view name) const {
    const auto found = std::find_if(below_.begin(), below_.end(),
                                    [&](const auto& each) { return each->name_ == name; });
    return found == below_.end() ? nullptr : found->get();
}

void Command::on_run(Run run, LibraryPrints prints) {
    run_ = std::move(run);
    prints_ = prints;
}

// --- parameters ---

Parameter& Command::add_parameter(const std::string& name, const std::string& about) {
    Parameter parameter;
    parameter.about = about;
    if (name.starts_with('-')) {
        const std::size_t space = name.find(' ');
        parameter.name = name.substr(0, space);
        parameter.value = space == std::string::npos ? "" : name.substr(space + 1);
    } else {
        parameter.required = !name.starts_with('[');
        parameter.many = name.find("...") != std::string::npos;
        parameter.name = name;
        std::erase_if(parameter.name, [](char c) { return c == '[' || c == ']' || c == '.'; });
    }
    parameters_.push_back(std::move(parameter));
    return parameters_.back();
}

Parameter& Command::add_whole(const std::string& name, const std::string& about,
                              std::uint64_t least, std::uint64_t most, const std::string& fallback,
                              std::function<void(std::uint64_t)> store) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = most - least == 1 ? fmt::format("{} or {}", least, most)
                                       : fmt::format("a number from {} to {}", least, most);
    parameter.fallback = parameter.required ? "" : fallback;
    parameter.take = [least, most, kind = parameter.kind,
                      store = std::move(store)](const std::string& word) -> Complaint {
        const std::optional<std::uint64_t> number = whole_number(word);
        if (!number && !real_number(word)) {
            return is_no_number(word);
        }
        if (!number || *number < least || *number > most) {
            return is_not(word, kind);
        }
        store(*number);
        return "";
    };
    return parameter;
}

Parameter& Command::number(const std::string& name, int& target, const std::string& about,
                           int least, int most) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = fmt::format("a number from {} to {}", least, most);
    parameter.fallback = parameter.required ? "" : std::to_string(target);
    parameter.take = [least, most, kind = parameter.kind,
                      &target](const std::string& word) -> Complaint {
        const bool negative = word.starts_with('-');
        const auto number = whole_number(std::string_view(word).substr(negative ? 1 : 0));
        if (!number && !real_number(word)) {
            return is_no_number(word);
        }
        const bool fits = number && *number <= std::numeric_limits<int>::max();
        const int value = fits ? static_cast<int>(*number) * (negative ? -1 : 1) : 0;
        if (!fits || value < least || value > most) {
            return is_not(word, kind);
        }
        target = value;
        return "";
    };
    return parameter;
}

Parameter& Command::real(const std::string& name, double& target, const std::string& about,
                         double least, double most) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = fmt::format("a number from {} to {}", least, most);
    parameter.fallback = parameter.required ? "" : fmt::format("{}", target);
    parameter.take = [least, most, kind = parameter.kind,
                      &target](const std::string& word) -> Complaint {
        const std::optional<double> number = real_number(word);
        if (!number) {
            return is_no_number(word);
        }
        if (*number < least || *number > most) {
            return is_not(word, kind);
        }
        target = *number;
        return "";
    };
    return parameter;
}

Parameter& Command::word(const std::string& name, std::string& target, const std::string& about,
                         std::vector<std::string> words) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = listed(words);
    parameter.fallback = parameter.required ? "" : target;
    parameter.take = [words = std::move(words), kind = parameter.kind,
                      &target](const std::string& word) -> Complaint {
        if (std::find(words.begin(), words.end(), word) == words.end()) {
            return is_not(word, kind);
        }
        target = word;
        return "";
    };
    return parameter;
}

Parameter& Command::text(const std::string& name, std::string& target, const std::string& about,
                         const std::string& kind, const Check& check) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = kind;
    parameter.fallback = parameter.required ? "" : target;
    parameter.take = [check, &target](const std::string& word) -> Complaint {
        target = word;
        return check ? check(word) : "";
    };
    return parameter;
}

Parameter& Command::text(const std::string& name, std::optional<std::string>& target,
                         const std::string& about, const std::string& kind, const Check& check) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = kind;
    parameter.take = [check, &target](const std::string& word) -> Complaint {
        target = word;
        return check ? check(word) : "";
    };
    return parameter;
}

Parameter& Command::texts(const std::string& name, std::vector<std::string>& target,
                          const std::string& about, const std::string& kind, const Check& check) {
    Parameter& parameter = add_parameter(name, about);
    parameter.kind = kind;
    parameter.take = [check, &target](const std::string& word) -> Complaint {
        target.push_back(word);
        return check(word);
    };
    return parameter;
}

Parameter& Command::flag(const std::string& name, bool& target, const std::string& about) {
    Parameter& parameter = add_parameter(name, about);
    parameter.take = [&target](const std::string&) -> Complaint {
        target = true;
        return "";
    };
    return parameter;
}

Parameter& Command::hex(const std::string& name, std::vector<std::uint8_t>& target,
                        const std::string& about, std::size_t least, std::size_t most) {
    Parameter& parameter = add_parameter(name, about);
    const std::string bytes =
        least == most ? fmt::format("{}", least) : fmt::format("{} to {}", least, most);
    parameter.kind =
        fmt::format("{} byte{} as pairs of hexadecimal digits", bytes, most == 1 ? "" : "s");
    parameter.fallback = parameter.required ? "" : to_hex(target);
    parameter.take = [least, most, kind = parameter.kind,
                      &target](const std::string& word) -> Complaint {
        const std::optional<Bytes> given = from_hex(word);
        if (!given || given->size() < least || given->size() > most) {
            return is_not(word, kind);
        }
        target = *given;
        return "";
    };
    return parameter;
}

} // namespace halctl
