#include "control/board_verbs.h"

#include <fmt/format.h>

namespace vb {

namespace {

void add_clock_verbs(Board& board) {
    board.verbs().add(
        {"clock.show", {}, "board time and speed", [&board](const Json&) -> Json {
             return {{"seconds", static_cast<double>(board.now()) / 1e9}, {"speed", board.speed()}};
         }});
    board.verbs().add({"clock.speed",
                       {Argument::number("factor", 0.001, 100'000)},
                       "let board time run this much faster than real time",
                       [&board](const Json& arguments) -> Json {
                           board.set_speed(arguments["factor"].get<double>());
                           return {{"speed", board.speed()}};
                       }});
}

void add_fault_verbs(Board& board) {
    Verbs& verbs = board.verbs();
    verbs.add({"fault.add",
               {Argument::text("fault")},
               "let something go wrong: NODE:OPERATION:ACTION[:CONDITION...]",
               [&board](const Json& arguments) -> Json {
                   try {
                       return {{"id", board.faults().add(arguments["fault"].get<std::string>())}};
                   } catch (const std::invalid_argument& error) {
                       throw UsageError(fmt::format("FAULT: {}", error.what()));
                   }
               }});
    verbs.add(
        {"fault.list", {}, "the faults, and how often each has struck", [&board](const Json&) {
             return board.faults().list();
         }});
    verbs.add({"fault.remove",
               {Argument::integer("id", 1, std::numeric_limits<int>::max())},
               "take one fault away",
               [&board](const Json& arguments) -> Json {
                   const int id = arguments["id"].get<int>();
                   if (!board.faults().remove(id)) {
                       throw VerbError(fmt::format("there is no fault {}", id));
                   }
                   return {};
               }});
    verbs.add({"fault.clear", {}, "take all faults away", [&board](const Json&) -> Json {
                   board.faults().clear();
                   return {};
               }});
    verbs.add({"fault.held",
               {Argument::text("tag")},
               "how many calls a hold keeps",
               [&board](const Json& arguments) -> Json {
                   return board.traffic().held(arguments["tag"].get<std::string>());
               }});
    verbs.add({"fault.release",
               {Argument::text("tag")},
               "let held calls go on",
               [&board](const Json& arguments) -> Json {
                   return board.traffic().release(arguments["tag"].get<std::string>());
               }});
}

void add_node_verbs(Board& board) {
    Verbs& verbs = board.verbs();
    const auto path_of = [](const Json& arguments) { return arguments["path"].get<std::string>(); };
    verbs.add({"node.list", {}, "every node of the board", [&board](const Json&) {
                   Json nodes = Json::array();
                   board.tree().for_each(
                       [&](const std::string& path, const std::shared_ptr<Entry>& entry) {
                           if (dynamic_cast<const Node*>(entry.get()) != nullptr &&
                               dynamic_cast<const Placeholder*>(entry.get()) == nullptr) {
                               nodes.push_back(path);
                           }
                       });
                   return nodes;
               }});
    verbs.add({"node.vanish",
               {Argument::text("path")},
               "take a node away, also from under its users",
               [&board, path_of](const Json& arguments) -> Json {
                   if (!board.vanish(path_of(arguments))) {
                       throw VerbError(fmt::format("there is no node \"{}\"", path_of(arguments)));
                   }
                   return {};
               }});
    verbs.add({"node.appear",
               {Argument::text("path")},
               "bring a node back that vanished",
               [&board, path_of](const Json& arguments) -> Json {
                   if (!board.appear(path_of(arguments))) {
                       throw VerbError(fmt::format("\"{}\" has not vanished", path_of(arguments)));
                   }
                   return {};
               }});
    verbs.add({"node.opens",
               {Argument::text("path")},
               "how often a node is open now",
               [&board, path_of](const Json& arguments) -> Json {
                   return board.traffic().open_count(path_of(arguments));
               }});
}

void add_call_verbs(Board& board) {
    board.verbs().add({"call.list",
                       {},
                       "the calls that wait for their answer now, and since how many seconds",
                       [&board](const Json&) { return board.traffic().list(); }});
}

void add_uevent_verbs(Board& board) {
    Verbs& verbs = board.verbs();
    verbs.add({"uevent.send",
               {Argument::text("action"), Argument::text("devpath"),
                Argument::object("values").or_else(Json::object())},
               "tell of an object as the kernel does: add, remove, change...; VALUES are more KEYs",
               [&board](const Json& arguments) -> Json {
                   Uevents::Values values;
                   for (const auto& [key, value] : arguments["values"].items()) {
                       if (!value.is_string()) {
                           throw UsageError(fmt::format("VALUES: {} is no text", value.dump()));
                       }
                       values[key] = value.get<std::string>();
                   }
                   board.uevents().send(arguments["action"].get<std::string>(),
                                        arguments["devpath"].get<std::string>(), values);
                   return {};
               }});
    verbs.add({"uevent.raw",
               {Argument::text("lines")},
               "send any uevent: its header, ACTION@DEVPATH, then KEY=VALUEs, a line each",
               [&board](const Json& arguments) -> Json {
                   board.uevents().send_lines(arguments["lines"].get<std::string>());
                   return {};
               }});
}

Argument kind_argument() {
    return Argument::text("kind").or_none("every kind");
}

Argument match_argument() {
    return Argument::object("match").or_none("{}");
}

Json pattern_of(const Json& arguments) {
    Json match = arguments.value("match", Json::object());
    if (arguments.contains("kind")) {
        match["kind"] = arguments["kind"];
    }
    return match;
}

void add_trace_verbs(Board& board) {
    board.verbs().add(
        {"trace.last", {}, "the number of the newest event", [&board](const Json&) -> Json {
             return board.trace().last();
         }});
    board.verbs().add({"trace.follow",
                       {kind_argument(), match_argument()},
                       "every event from now on, of one kind or all, with all keys of MATCH",
                       pattern_of,
                       true});
    board.verbs().add(
        {"trace.read",
         {Argument::integer("since", 0).or_else(0), kind_argument(), match_argument()},
         "the events after number SINCE, of one kind or all, with all keys of MATCH",
         [&board](const Json& arguments) -> Json {
             return board.trace().after(arguments["since"].get<std::uint64_t>(),
                                        pattern_of(arguments));
         }});
    board.verbs().add({"trace.note",
                       {Argument::text("text")},
                       "write a remark into the trace",
                       [&board](const Json& arguments) -> Json {
                           board.trace().add("note", {{"text", arguments["text"]}});
                           return board.trace().last();
                       }});
}

} // namespace

void add_board_verbs(Board& board) {
    add_clock_verbs(board);
    add_call_verbs(board);
    add_fault_verbs(board);
    add_node_verbs(board);
    add_trace_verbs(board);
    add_uevent_verbs(board);
    board.power().add_verbs();
}

} // namespace vb
