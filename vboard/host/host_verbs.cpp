#include "host/host_verbs.h"

#include "host/host_computer.h"

#include <algorithm>
#include <array>

namespace vb::host {

namespace {

constexpr std::int64_t kMostMilliseconds = 3'600'000;
constexpr std::int64_t kMostMoved = 1 << 20;
constexpr std::int64_t kHighestBlock = 0xFFFFFFFF;
const std::vector<std::string> kLamps = {"num", "caps", "scroll", "compose", "kana"};

using Act = std::function<Json(const Json& arguments)>;

// A verb that has nothing to say.
template <class Deed>
Act silently(const Deed& deed) {
    return [deed](const Json& arguments) -> Json {
        deed(arguments);
        return {};
    };
}

Bytes hex_argument(const Json& arguments, const char* name, std::size_t least,
                   std::size_t most = std::size_t{1} << 20) {
    auto bytes = from_hex(arguments.value(name, ""));
    if (!bytes || bytes->size() < least || bytes->size() > most) {
        throw UsageError(fmt::format("{}: {} to {} bytes are wanted, two hex digits each",
                                     in_capitals(name), least, most));
    }
    return std::move(*bytes);
}

void add_way_out(BulkCommand& command, const Json& arguments) {
    if (arguments.contains("moved")) {
        command.moved = arguments["moved"].get<std::uint32_t>();
    }
    if (arguments.contains("abort_ms")) {
        command.abort_after = arguments["abort_ms"].get<std::int64_t>() * kMillisecond;
    }
}

BulkCommand command_of(const Json& arguments) {
    BulkCommand command;
    command.block = hex_argument(arguments, "block", 1, 16);
    command.to_host = arguments["direction"] == "in";
    command.data = hex_argument(arguments, "data", 0);
    command.length = arguments.contains("length") ? arguments["length"].get<std::uint32_t>()
                                                  : static_cast<std::uint32_t>(command.data.size());
    if (command.length > kMostMoved && !arguments.contains("moved")) {
        throw UsageError("MOVED is wanted with such a LENGTH");
    }
    add_way_out(command, arguments);
    return command;
}

BulkCommand wrapper_command_of(const Json& arguments) {
    BulkCommand command;
    command.wrapper = hex_argument(arguments, "wrapper", 1, 1024);
    command.data = hex_argument(arguments, "data", 0);
    command.to_host = command.data.empty();
    command.length = command.to_host ? arguments["length"].get<std::uint32_t>()
                                     : static_cast<std::uint32_t>(command.data.size());
    return command;
}

BulkCommand named_command(const Json& arguments) {
    const auto name = arguments["command"].get<std::string>();
    if (name == "mode_select") {
        return mode_select(hex_argument(arguments, "data", 0, 255));
    }
    if (name == "inquiry") {
        return inquiry();
    }
    if (name == "test_unit_ready") {
        return test_unit_ready();
    }
    if (name == "request_sense") {
        return request_sense();
    }
    return name == "read_capacity" ? read_capacity() : mode_sense();
}

class HostVerbs {
  public:
    HostVerbs(Board& board, HostComputer& host) : board_(board), host_(host) {}

    void add_all() {
        add_cable();
        add_device();
        add_input();
        add_copies();
        add_commands();
    }

  private:
    void add(const char* name, std::vector<Argument> arguments, const char* help, Act act) {
        board_.verbs().add(
            {fmt::format("{}.{}", host_.name(), name), std::move(arguments), help, std::move(act)});
    }

    void add_cable() {
        HostComputer& host = host_;
        add("show", {}, "the cable, the device at its other end, and what the host has made of it",
            [&host](const Json&) { return host.show(); });
        add("plug", {}, "put the cable in", silently([&host](const Json&) { host.plug(true); }));
        add("unplug", {}, "pull the cable out",
            silently([&host](const Json&) { host.plug(false); }));
        add("reset", {}, "reset the bus, and begin again with the device",
            silently([&host](const Json&) { host.reset(); }));
        add("suspend", {}, "let the bus rest", silently([&host](const Json&) { host.suspend(); }));
        add("resume", {}, "wake the bus", silently([&host](const Json&) { host.resume(); }));
    }

    void add_device() {
        HostComputer& host = host_;
        add("configure",
            {Argument::word("when", {"after", "never"}),
             Argument::integer("ms", 0, kMostMilliseconds).or_else(100)},
            "configure devices so long after their descriptors are read, or never",
            silently([&host](const Json& arguments) {
                const bool never = arguments["when"] == "never";
                host.configure(
                    never ? std::nullopt
                          : std::optional(arguments["ms"].get<std::int64_t>() * kMillisecond));
            }));
        add("fields", {}, "every field of the reports, as the report descriptors have them",
            [&host](const Json&) { return host.fields(); });
        add("led", {Argument::word("lamp", kLamps), Argument::flag("lit")},
            "light a lamp of the keyboards, or put it out",
            silently([&host](const Json& arguments) {
                const auto lamp = std::find(kLamps.begin(), kLamps.end(), arguments["lamp"]);
                host.set_lock(static_cast<unsigned>(lamp - kLamps.begin()), arguments["lit"] == 1);
            }));
    }

    void add_input() {
        HidInput& input = host_.input();
        add("typed", {}, "what was typed, in US layout, and which keys are down",
            [&input](const Json&) { return input.typed(); });
        add("pointer", {}, "where each pointer is, from 0 to 32767, or how far it was moved",
            [&input](const Json&) { return input.pointers(); });
        add("touches", {}, "which fingers touch, and where, from 0 to 32767",
            [&input](const Json&) { return input.touches(); });
        add("forget", {}, "forget what was typed, moved and touched",
            silently([&input](const Json&) { input.forget(); }));
    }

    void add_copies() {
        HostComputer& host = host_;
        add("disk_info", {}, "what disk is attached, and what is done with it",
            [&host](const Json&) { return host.disk().show(); });
        add("disk_read", {Argument::text("path")},
            "copy the whole disk to a file; the answer is the job's number",
            [&host](const Json& arguments) {
                return host.disk().read_all(arguments["path"].get<std::string>());
            });
        add("disk_write",
            {Argument::text("path"), Argument::integer("block", 0, kHighestBlock).or_else(0)},
            "write a file's bytes to the disk, from that block on; the answer is the job's number",
            [&host](const Json& arguments) {
                return host.disk().write(arguments["path"].get<std::string>(),
                                         arguments["block"].get<std::uint32_t>());
            });
    }

    void add_commands() {
        HostComputer& host = host_;
        const Argument data = Argument::text("data").or_none("no bytes");
        add("disk_ask",
            {Argument::word("command", {"inquiry", "test_unit_ready", "request_sense",
                                        "read_capacity", "mode_sense", "mode_select"}),
             data},
            "give the disk a command; the answer is the job's number",
            [&host](const Json& arguments) {
                return host.disk().command(named_command(arguments));
            });
        add("disk_command",
            {Argument::text("block"), Argument::word("direction", {"in", "out"}).or_else("in"),
             Argument::integer("length", 0, kHighestBlock).or_none("as long as DATA"), data,
             Argument::integer("moved", 0, kMostMoved).or_none("LENGTH bytes go over the wire"),
             Argument::integer("abort_ms", 0, kMostMilliseconds).or_none("it is not given up")},
            "give the disk any command block; the answer is the job's number",
            [&host](const Json& arguments) { return host.disk().command(command_of(arguments)); });
        add("disk_wrapper",
            {Argument::text("wrapper"), Argument::integer("length", 0, kMostMoved).or_else(0),
             data},
            "send the disk any bytes as a command wrapper, then DATA, or take LENGTH bytes; the "
            "answer is the job's number",
            [&host](const Json& arguments) {
                return host.disk().command(wrapper_command_of(arguments));
            });
    }

    Board& board_;
    HostComputer& host_;
};

} // namespace

void add_host_verbs(Board& board, HostComputer& host) {
    HostVerbs(board, host).add_all();
}

} // namespace vb::host
