// halctl env and config: the settings that command-line tools of the board keep.
#include "commands/commands.h"
#include "shell_word.h"

#include <hal_bsp/fwenv.h>
#include <hal_bsp/sysconf.h>

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>

namespace halctl {

namespace settings {
namespace {

using std::chrono::steady_clock;

// What sets the two stores apart.
struct Store {
    const char* group;
    const char* about;
    const char* reader;
    const char* writer;
    const char* needs;          // beside the programs, to find the store
    const char* before_a_minus; // tells the writer that a value is no option; null: it knows no way
    std::int32_t (*get)(const char*, char*);
    std::int32_t (*set)(const char*, const char*);
    bool empty_is_unset;
    double patience; // seconds that setting may go on after the call
};

constexpr Store kEnv{"env",
                     "The bootloader environment",
                     "/usr/bin/fw_printenv",
                     "/usr/bin/fw_setenv",
                     "/etc/fw_env.config",
                     "-- ",
                     hal_fw_printenv,
                     hal_fw_setenv,
                     true,
                     10};
constexpr Store kConfig{"config",
                        "The system configuration",
                        "/usr/bin/sysconfig",
                        "/usr/bin/sysconfig",
                        "/usr/bin/sysconfig",
                        nullptr,
                        hal_sysconfig_get,
                        hal_sysconfig_set,
                        false,
                        0};

struct Arguments {
    std::string name;
    std::optional<std::string> value;
    double seconds = 0;
};

// The exit code where a program of the store, or what that needs, is missing.
std::optional<int> missing(const Tool& tool, const Store& store, const std::string& what,
                           const char* program) {
    for (const char* needed : {program, store.needs}) {
        if (access(needed, R_OK) != 0) {
            return tool.cannot_open(what, needed, errno);
        }
    }
    return std::nullopt;
}

int failed(const Tool& tool, const std::string& what, const char* program) {
    const std::string logged = tool.library_log().last_error().text;
    return tool.failed(what, logged.empty() ? fmt::format("{} prints no value", program) : logged);
}

// Nothing where it cannot be had.
std::optional<std::string> value_of(const Store& store, const std::string& name) {
    static_assert(HAL_FW_VALUE_SIZE == HAL_SYSCONFIG_VALUE_SIZE);
    std::array<char, HAL_FW_VALUE_SIZE> value{};
    return store.get(name.c_str(), value.data()) == 0 ? std::optional(value.data()) : std::nullopt;
}

int run_get(Tool& tool, const Store& store, const Arguments& arguments) {
    const std::string what = fmt::format("{} get {}", store.group, arguments.name);
    if (const auto status = missing(tool, store, what, store.reader)) {
        return *status;
    }
    const auto value = value_of(store, arguments.name);
    if (!value) {
        return failed(tool, what, store.reader);
    }
    if (value->empty() && store.empty_is_unset) {
        return tool.failed(what, "it is not set");
    }
    tool.output().print({{"name", arguments.name}, {"value", *value}}, *value);
    return kExitDone;
}

// The library cannot tell whether the tool did its work, but the store can.
bool comes_to_be(const Store& store, const Arguments& arguments) {
    const auto end = steady_clock::now() + std::chrono::duration<double>(arguments.seconds);
    const std::string wanted = arguments.value.value_or("");
    while (value_of(store, arguments.name).value_or("") != wanted) {
        if (steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

int run_set(Tool& tool, const Store& store, const Arguments& arguments) {
    const std::string what = fmt::format("{} set {}", store.group, arguments.name);
    if (const auto status = missing(tool, store, what, store.writer)) {
        return *status;
    }
    const std::string value = arguments.value.value_or("");
    const bool minus = value.starts_with('-');
    if (minus && store.before_a_minus == nullptr) {
        return tool.failed(
            what, fmt::format("{} would take {} for an option", store.writer, in_quotes(value)));
    }
    const std::string word = (minus ? store.before_a_minus : "") + shell_word(value);
    if (store.set(arguments.name.c_str(), arguments.value ? word.c_str() : nullptr) != 0) {
        return failed(tool, what, store.writer);
    }
    if (!comes_to_be(store, arguments)) {
        return tool.failed(what, fmt::format("{} was started, but {} seconds later it is not done",
                                             store.writer, arguments.seconds));
    }
    tool.output().print(
        {{"name", arguments.name}, {"value", arguments.value ? Json(*arguments.value) : Json()}},
        "");
    return kExitDone;
}

void add_store(Command& root, Tool& tool, const Store& store, const std::string& example) {
    Command& group = root.group(store.group, store.about);
    auto arguments = std::make_shared<Arguments>();
    const auto add_name = [&](Command& command) {
        command.text("NAME", arguments->name, "Which", kSettingName, check_setting_name);
    };

    Command& get =
        group.verb("get", "Print a value", fmt::format("halctl {} get {}", store.group, example));
    add_name(get);
    get.on_run([&tool, &store, arguments] { return run_get(tool, store, *arguments); });

    // The example is for a board: tried on a desk it would change that machine's own settings.
    Command& set = group.verb(
        "set", "Set a value; without one, remove the setting",
        fmt::format("vboard run -- halctl {} set {} 'a new value'", store.group, example));
    add_name(set);
    set.text("[VALUE]", arguments->value, "Of any characters", kSettingValue, check_setting_value)
        .otherwise("the setting is removed");
    arguments->seconds = store.patience;
    if (store.patience > 0) {
        set.real("--timeout SECONDS", arguments->seconds,
                 "Fail if it cannot be read back after so long", 0, 3600);
    }
    set.on_run([&tool, &store, arguments] { return run_set(tool, store, *arguments); },
               LibraryPrints::nowhere);
}

} // namespace
} // namespace settings

void add_env(Command& root, Tool& tool) {
    settings::add_store(root, tool, settings::kEnv, "bootcmd");
}

void add_sysconfig(Command& root, Tool& tool) {
    settings::add_store(root, tool, settings::kConfig, "hostname");
}

} // namespace halctl
