#include "models/support/line_world.h"

#include "core/number.h"

#include <fmt/format.h>

namespace vb {

namespace {

Json list_lines(const LineBank& bank, const LineDriver& driver) {
    Json lines = Json::array();
    for (unsigned line = 0; line < bank.count(); ++line) {
        if (driver.in_use(line)) {
            lines.push_back(driver.show_line(line));
        }
    }
    Json list = {{"lines", lines}};
    driver.add_to_list(list);
    return list;
}

Json drive_line(LineBank& bank, const LineDriver& driver, const Json& arguments) {
    const auto line = arguments["line"].get<unsigned>();
    if (driver.is_output(line)) {
        throw VerbError(fmt::format("line {} is an output of the board", line));
    }
    bank.set(line, arguments["level"] != 0, "outside");
    return driver.show_line(line);
}

} // namespace

void add_line_verbs(Board& board, LineBank& bank, const LineDriver& driver) {
    Verbs& verbs = board.verbs();
    const Argument line = Argument::index("line", bank.count());
    verbs.add(
        {bank.name() + ".drive",
         {line, Argument::flag("level")},
         "give an input line a level from outside",
         [&bank, &driver](const Json& arguments) { return drive_line(bank, driver, arguments); }});
    verbs.add({bank.name() + ".show",
               {line},
               "one line: configuration and level",
               [&driver](const Json& arguments) {
                   return driver.show_line(arguments["line"].get<unsigned>());
               }});
    verbs.add({bank.name() + ".list",
               {},
               "every line in use, and what was lost",
               [&bank, &driver](const Json&) { return list_lines(bank, driver); }});
    verbs.add({bank.name() + ".watch",
               {line},
               "every change of a line's level from now on",
               [&bank](const Json& arguments) -> Json {
                   return {{"kind", "line"}, {"bank", bank.name()}, {"line", arguments["line"]}};
               },
               true});
    verbs.add({bank.name() + ".wire",
               {Argument::index("from", bank.count()), Argument::index("to", bank.count())},
               "let one line follow another from now on",
               [&board, &bank](const Json& arguments) -> Json {
                   const auto place = [&](const char* end) {
                       return fmt::format("{}:{}", bank.name(), arguments[end].get<unsigned>());
                   };
                   wire(board, place("from"), place("to"));
                   return {};
               }});
}

void set_levels(LineBank& bank, Settings& settings) {
    const Json levels = settings.get<Json>("levels");
    for (const auto& [key, level] : levels.items()) {
        const auto line = number_in<unsigned>(key);
        if (!line || *line >= bank.count() || !level.is_number_integer()) {
            settings.refuse("levels", fmt::format("\"{}\" is no line with a level", key));
        }
        bank.preset(*line, level != 0);
    }
}

void follow_line(Board& board, Settings& settings, const std::string& name,
                 const std::function<void(bool level)>& told) {
    const auto place = settings.get<std::string>(name);
    if (place.empty()) {
        told(true);
        return;
    }
    try {
        const auto [bank, line] = line_at(board, place);
        bank->watch(line, [told](unsigned, bool level) { told(level); });
        told(bank->level(line));
    } catch (const VerbError& error) {
        settings.refuse(name, error.what());
    }
}

} // namespace vb
