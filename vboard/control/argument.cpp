#include "control/argument.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace vb {

namespace {

const char* type_name(Argument::Type type) {
    switch (type) {
    case Argument::Type::integer:
        return "integer";
    case Argument::Type::number:
        return "number";
    case Argument::Type::text:
        return "text";
    case Argument::Type::object:
        return "object";
    }
    return "?";
}

const char* type_in_words(Argument::Type type) {
    switch (type) {
    case Argument::Type::integer:
        return "a whole number";
    case Argument::Type::number:
        return "a number";
    case Argument::Type::text:
        return "text";
    case Argument::Type::object:
        return "a JSON object";
    }
    return "?";
}

bool has_type(Argument::Type type, const Json& value) {
    switch (type) {
    case Argument::Type::integer:
        return value.is_number_integer() &&
               (!value.is_number_unsigned() ||
                value.get<std::uint64_t>() <=
                    std::uint64_t{std::numeric_limits<std::int64_t>::max()});
    case Argument::Type::number:
        return value.is_number() && std::isfinite(value.get<double>());
    case Argument::Type::text:
        return value.is_string();
    case Argument::Type::object:
        return value.is_object();
    }
    return false;
}

std::string bare(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

// For a complaint: nobody wants to read all of a long one again.
std::string shortened(const Json& value) {
    constexpr std::size_t kEnough = 60;
    const std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
    return text.size() <= kEnough ? text : text.substr(0, kEnough) + "...";
}

// "0, 1 or 2"
std::string listed(const Json& choices) {
    std::string text;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        const char* before = i == 0 ? "" : i + 1 < choices.size() ? ", " : " or ";
        text += before + bare(choices[i]);
    }
    return text;
}

} // namespace

std::string in_capitals(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    });
    return name;
}

Argument Argument::integer(std::string name, std::int64_t least, std::int64_t most) {
    using Limits = std::numeric_limits<std::int64_t>;
    Argument row;
    row.name = std::move(name);
    row.least = least == Limits::min() ? Json() : Json(least);
    row.most = most == Limits::max() ? Json() : Json(most);
    return row;
}

Argument Argument::index(std::string name, std::size_t count) {
    Argument row = integer(std::move(name), 0, static_cast<std::int64_t>(count) - 1);
    row.of_board = true;
    return row;
}

Argument Argument::number(std::string name, double least, double most) {
    Argument row;
    row.name = std::move(name);
    row.type = Type::number;
    row.least = least;
    row.most = most;
    return row;
}

Argument Argument::text(std::string name) {
    Argument row;
    row.name = std::move(name);
    row.type = Type::text;
    return row;
}

Argument Argument::word(std::string name, const std::vector<std::string>& choices) {
    Argument row = text(std::move(name));
    row.choices = choices;
    return row;
}

Argument Argument::object(std::string name) {
    Argument row;
    row.name = std::move(name);
    row.type = Type::object;
    return row;
}

Argument Argument::or_else(Json value) && {
    optional = true;
    otherwise = std::move(value);
    return std::move(*this);
}

Argument Argument::or_none(std::string meaning) && {
    optional = true;
    without = std::move(meaning);
    return std::move(*this);
}

std::string Argument::wanted() const {
    if (!choices.is_null()) {
        return listed(choices);
    }
    if (type == Type::integer && !least.is_null() && !most.is_null()) {
        const auto gap = most.get<std::int64_t>() - least.get<std::int64_t>();
        if (gap < 0) {
            return "of a kind that this board does not have";
        }
        if (gap <= 1) {
            return listed(gap == 0 ? Json::array({least}) : Json::array({least, most}));
        }
    }
    std::string words = type_in_words(type);
    if (!least.is_null()) {
        words +=
            fmt::format(" {} {}", most.is_null() ? "of at least" : "from", least.get<double>());
    }
    if (!most.is_null()) {
        words += fmt::format(" to {}", most.get<double>());
    }
    return words;
}

void Argument::check(const Json& value) const {
    const bool typed = has_type(type, value);
    const bool within =
        choices.is_null() ? (least.is_null() || value >= least) && (most.is_null() || value <= most)
                          : std::find(choices.begin(), choices.end(), value) != choices.end();
    if (typed && within) {
        return;
    }
    if (typed && of_board && value >= 0) {
        throw VerbError(fmt::format("this board has no {} {}: it is {}", in_capitals(name),
                                    bare(value), wanted()));
    }
    throw UsageError(
        fmt::format("{}: {} is not {}", in_capitals(name), shortened(value), wanted()));
}

Json Argument::describe() const {
    Json row = {{"name", name}, {"type", type_name(type)}, {"optional", optional}};
    const auto add = [&row](const char* key, const Json& value) {
        if (!value.is_null()) {
            row[key] = value;
        }
    };
    add("least", least);
    add("most", most);
    add("choices", choices);
    add("default", otherwise);
    std::string about = wanted();
    if (optional) {
        about += fmt::format("; if not given: {}", otherwise.is_null() ? without : bare(otherwise));
    }
    row["about"] = about;
    return row;
}

Json checked(const std::vector<Argument>& rows, const Json& given) {
    for (const auto& item : given.items()) {
        const auto named = [&](const Argument& row) { return row.name == item.key(); };
        if (item.key() != "verb" && std::none_of(rows.begin(), rows.end(), named)) {
            throw UsageError(fmt::format("there is no argument {}", shortened(item.key())));
        }
    }
    Json arguments = given;
    for (const Argument& row : rows) {
        if (arguments.value(row.name, Json()).is_null()) { // null is as good as nothing
            arguments.erase(row.name);
            if (!row.optional) {
                throw UsageError(fmt::format("{} is missing", in_capitals(row.name)));
            }
            if (row.otherwise.is_null()) {
                continue;
            }
            arguments[row.name] = row.otherwise; // which not every board has
        }
        row.check(arguments[row.name]);
    }
    return arguments;
}

} // namespace vb
