// halctl slot: which of the two systems is booted.
#include "commands/commands.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

namespace halctl {

namespace {

constexpr char kNode[] = "/dev/block/by-name/misc";
constexpr std::array kNames = {"a", "b"};

struct SlotArguments {
    std::string slot;
    std::uint8_t tries = 0;

    std::uint8_t number() const { return slot == "b" ? 1 : 0; }
};

// --- what the library shows of the record: it goes to the log and nowhere else ---

struct Slots {
    std::array<int, HAL_AVB_SLOTS> priority{};
    std::array<int, HAL_AVB_SLOTS> tries{};
    int last_boot = 0;
    bool complete = false; // set by the last line

    unsigned current() const { return priority[0] < priority[1] ? 1 : 0; }
};

void take_line(log_event* event) {
    std::array<char, 128> text{};
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): log_log started it for this sink
    std::vsnprintf(text.data(), text.size(), event->fmt, event->ap);
    auto& slots = *static_cast<Slots*>(event->udata);
    char letter = 0;
    int priority = 0;
    int tries = 0;
    if (std::sscanf(text.data(), "slot %c: priority = %d, tries_remaining = %d", &letter, &priority,
                    &tries) == 3) {
        const std::size_t slot = letter == 'A' ? 0 : 1;
        slots.priority[slot] = priority;
        slots.tries[slot] = tries;
    } else if (std::sscanf(text.data(), "last_boot=%d", &slots.last_boot) == 1) {
        slots.complete = true;
    }
}

std::optional<Slots> read_slots() {
    static Slots slots; // a sink cannot be taken away again
    static const int added = log_add_callback(take_line, &slots, HAL_LOG_INFO);
    slots = {};
    errno = 0;
    if (added == 0) {
        hal_avb_data_show();
    }
    return slots.complete ? std::optional(slots) : std::nullopt;
}

// --- commands ---

int failed(const char* what) {
    const std::array nodes = {std::string(kNode)};
    return Tool::refused(fmt::format("slot {}", what), nodes, errno);
}

// The library replaces a record that it cannot trust, and goes on.
void tell_of_new_record(const LibraryLog& log) {
    if (!log.last_error().text.empty()) {
        fmt::print(stderr, "halctl: the record was not valid; it has been set to the defaults\n");
    }
}

int run_show(Tool& tool, const SlotArguments&) {
    const std::optional<Slots> slots = read_slots();
    if (!slots) {
        return failed("show");
    }
    const std::int32_t running = getNowSlot();
    Json list = Json::array();
    std::string text;
    for (unsigned i = 0; i < HAL_AVB_SLOTS; ++i) {
        list.push_back(
            {{"slot", kNames[i]}, {"priority", slots->priority[i]}, {"tries", slots->tries[i]}});
        text +=
            fmt::format("slot {}: priority {}, {} tries left{}{}\n", kNames[i], slots->priority[i],
                        slots->tries[i], slots->current() == i ? ", to be booted" : "",
                        running == static_cast<int>(i) ? ", running" : "");
    }
    text += fmt::format("last boot: {}", slots->last_boot);
    tool.output().print({{"slots", list},
                         {"current", kNames[slots->current()]},
                         {"running", running < HAL_AVB_SLOTS ? Json(kNames[running]) : Json()},
                         {"last_boot", slots->last_boot}},
                        text);
    return kExitDone;
}

int run_set(Tool& tool, const SlotArguments& arguments) {
    if (hal_avb_set_bootslot(arguments.number()) < 0) {
        return failed("set");
    }
    tool.output().print({{"slot", arguments.slot}}, "");
    return kExitDone;
}

int run_retry(Tool& tool, const SlotArguments& arguments) {
    if (hal_avb_set_retry(arguments.number(), arguments.tries) < 0) {
        return failed("retry");
    }
    tool.output().print({{"slot", arguments.slot}, {"tries", arguments.tries}}, "");
    return kExitDone;
}

// Prints which slot is to be booted after a change.
int print_current(Tool& tool, const char* what) {
    const std::optional<Slots> slots = read_slots();
    if (!slots) {
        return failed(what);
    }
    const unsigned current = slots->current();
    tool.output().print({{"slot", kNames[current]}, {"tries", slots->tries[current]}}, "");
    return kExitDone;
}

int run_now(Tool& tool, const SlotArguments&) {
    return hal_avb_set_now() < 0 ? failed("now") : print_current(tool, "now");
}

int run_switch(Tool& tool, const SlotArguments&) {
    return hal_absystem_switch() < 0 ? failed("switch") : print_current(tool, "switch");
}

int run_init(Tool& tool, const SlotArguments&) {
    return hal_avb_init() < 0 ? failed("init") : print_current(tool, "init");
}

using Arguments = std::shared_ptr<SlotArguments>;

Arguments add(CLI::App& command, Tool& tool, int (*run)(Tool&, const SlotArguments&)) {
    auto arguments = std::make_shared<SlotArguments>();
    tool.on_run(command, [&tool, arguments, run] {
        errno = 0;
        const int status = run(tool, *arguments);
        if (status == kExitDone) {
            tell_of_new_record(tool.library_log());
        }
        return status;
    });
    return arguments;
}

void add_slot_option(CLI::App& command, SlotArguments& arguments) {
    command.add_option("SLOT", arguments.slot, "a or b")
        ->required()
        ->check(CLI::IsMember(std::vector<std::string>(kNames.begin(), kNames.end())));
}

} // namespace

void add_slot(CLI::App& app, Tool& tool) {
    CLI::App* group = app.add_subcommand("slot", "Boot slots, in the record on the misc partition");
    group->require_subcommand(1);
    add(tool.add_command(*group, "show", "Print the record", "halctl slot show"), tool, run_show);

    CLI::App& set =
        tool.add_command(*group, "set", "Make a slot the one to boot", "halctl slot set b");
    add_slot_option(set, *add(set, tool, run_set));

    CLI::App& retry = tool.add_command(*group, "retry", "Set the boot attempts left of a slot",
                                       "halctl slot retry b 3");
    const Arguments retry_arguments = add(retry, tool, run_retry);
    add_slot_option(retry, *retry_arguments);
    retry.add_option("TRIES", retry_arguments->tries, "0 to 3")
        ->required()
        ->check(CLI::Range(0, HAL_AVB_TRIES_MAX));

    add(tool.add_command(*group, "now", "Give the slot to boot all its attempts back",
                         "halctl slot now"),
        tool, run_now);
    add(tool.add_command(*group, "switch", "Make the other slot the one to boot",
                         "halctl slot switch"),
        tool, run_switch);
    add(tool.add_command(*group, "init", "Write the default record", "halctl slot init"), tool,
        run_init);
}

} // namespace halctl
