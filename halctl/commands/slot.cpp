// halctl slot: which of the two systems is booted.
#include "commands/commands.h"

#include <hal_bsp/absystem.h>
#include <hal_bsp/log.h>
#include <hal_bsp/partition.h>

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>

namespace halctl {

namespace slot {
namespace {

constexpr std::array kNames = {"a", "b"};

struct Arguments {
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
    // NOLINTBEGIN(cert-err34-c): the library printed the numbers
    if (std::sscanf(text.data(), "slot %c: priority = %d, tries_remaining = %d", &letter, &priority,
                    &tries) == 3) {
        const std::size_t slot = letter == 'A' ? 0 : 1;
        slots.priority[slot] = priority;
        slots.tries[slot] = tries;
    } else if (std::sscanf(text.data(), "last_boot=%d", &slots.last_boot) == 1) {
        slots.complete = true;
    }
    // NOLINTEND(cert-err34-c)
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

int failed(const Tool& tool, const char* what) {
    return tool.failed({fmt::format("slot {}", what),
                        {"/dev/block/by-name/misc"},
                        {},
                        "failed",
                        errno}); // the log is full of what the library shows
}

// The library replaces a record that it cannot trust, and goes on.
void tell_of_new_record(const Tool& tool) {
    if (!tool.library_log().last_error().text.empty()) {
        tool.output().warn("the record was not valid; it has been set to the defaults");
    }
}

int run_show(Tool& tool, const Arguments&) {
    const std::optional<Slots> slots = read_slots();
    if (!slots) {
        return failed(tool, "show");
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

int run_set(Tool& tool, const Arguments& arguments) {
    if (hal_avb_set_bootslot(arguments.number()) < 0) {
        return failed(tool, "set");
    }
    tool.output().print({{"slot", arguments.slot}}, "");
    return kExitDone;
}

int run_retry(Tool& tool, const Arguments& arguments) {
    if (hal_avb_set_retry(arguments.number(), arguments.tries) < 0) {
        return failed(tool, "retry");
    }
    tool.output().print({{"slot", arguments.slot}, {"tries", arguments.tries}}, "");
    return kExitDone;
}

// Prints which slot is to be booted after a change.
int print_current(Tool& tool, const char* what) {
    const std::optional<Slots> slots = read_slots();
    if (!slots) {
        return failed(tool, what);
    }
    const unsigned current = slots->current();
    tool.output().print({{"slot", kNames[current]}, {"tries", slots->tries[current]}}, "");
    return kExitDone;
}

int run_now(Tool& tool, const Arguments&) {
    return hal_avb_set_now() < 0 ? failed(tool, "now") : print_current(tool, "now");
}

int run_switch(Tool& tool, const Arguments&) {
    return hal_absystem_switch() < 0 ? failed(tool, "switch") : print_current(tool, "switch");
}

int run_init(Tool& tool, const Arguments&) {
    return hal_avb_init() < 0 ? failed(tool, "init") : print_current(tool, "init");
}

std::shared_ptr<Arguments> add(Command& command, Tool& tool, int (*run)(Tool&, const Arguments&)) {
    auto arguments = std::make_shared<Arguments>();
    command.on_run([&tool, arguments, run] {
        const int status = run(tool, *arguments);
        if (status == kExitDone) {
            tell_of_new_record(tool);
        }
        return status;
    });
    return arguments;
}

void add_slot_word(Command& command, Arguments& arguments) {
    command.word("SLOT", arguments.slot, "",
                 std::vector<std::string>(kNames.begin(), kNames.end()));
}

} // namespace
} // namespace slot

void add_slot(Command& root, Tool& tool) {
    Command& group = root.group("slot", "Boot slots, in the record on the misc partition");
    slot::add(group.verb("show", "Print the record", "halctl slot show"), tool, slot::run_show);

    Command& set = group.verb("set", "Make a slot the one to boot", "halctl slot set b");
    slot::add_slot_word(set, *slot::add(set, tool, slot::run_set));

    Command& retry =
        group.verb("retry", "Set the boot attempts left of a slot", "halctl slot retry b 3");
    const auto arguments = slot::add(retry, tool, slot::run_retry);
    slot::add_slot_word(retry, *arguments);
    retry.number<std::uint8_t>("TRIES", arguments->tries, "How many", 0, HAL_AVB_TRIES_MAX);

    slot::add(group.verb("now", "Give the slot to boot all its attempts back", "halctl slot now"),
              tool, slot::run_now);
    slot::add(group.verb("switch", "Make the other slot the one to boot", "halctl slot switch"),
              tool, slot::run_switch);
    slot::add(group.verb("init", "Write the default record", "halctl slot init"), tool,
              slot::run_init);
}

} // namespace halctl
