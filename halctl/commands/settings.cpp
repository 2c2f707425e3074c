// halctl env and config: the settings that command-line tools of the board keep.
#include "commands/commands.h"
#include "shell_word.h"

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

namespace {

using std::chrono::steady_clock;

// What sets the two stores apart.
struct Store {
    const char* group;
    const char* about;
    const char* reader;
    const char* writer;
    std::int32_t (*get)(const char*, char*);
    std::int32_t (*set)(const char*, const char*);
    bool empty_is_unset;
    double patience; // seconds that setting may go on after the call
};

constexpr Store kEnv{"env",
                     "The bootloader environment",
                     "/usr/bin/fw_printenv",
                     "/usr/bin/fw_setenv",
                     hal_fw_printenv,
                     hal_fw_setenv,
                     true,
                     10};
constexpr Store kConfig{"config",
                        "The system configuration",
                        "/usr/bin/sysconfig",
                        "/usr/bin/sysconfig",
                        hal_sysconfig_get,
                        hal_sysconfig_set,
                        false,
                        0};

struct SettingArguments {
    std::string name;
    std::optional<std::string> value;
    double seconds = 0;
};

int failed(Tool& tool, const std::string& what, const char* program) {
    if (access(program, X_OK) != 0) {
        fmt::print(stderr, "halctl: {}: cannot run {}: {}\n", what, program, std::strerror(errno));
        return kExitUnavailable;
    }
    const std::string logged = tool.library_log().last_error().text;
    fmt::print(stderr, "halctl: {}: {}\n", what,
               logged.empty() ? fmt::format("{} prints no value", program) : logged);
    return kExitFailure;
}

// Nothing where it cannot be had.
std::optional<std::string> value_of(const Store& store, const std::string& name) {
    static_assert(HAL_FW_VALUE_SIZE == HAL_SYSCONFIG_VALUE_SIZE);
    std::array<char, HAL_FW_VALUE_SIZE> value{};
    return store.get(name.c_str(), value.data()) == 0 ? std::optional(value.data()) : std::nullopt;
}

int run_get(Tool& tool, const Store& store, const SettingArguments& arguments) {
    const std::string what = fmt::format("{} get {}", store.group, arguments.name);
    const auto value = value_of(store, arguments.name);
    if (!value) {
        return failed(tool, what, store.reader);
    }
    if (value->empty() && store.empty_is_unset) {
        fmt::print(stderr, "halctl: {}: it is not set\n", what);
        return kExitFailure;
    }
    tool.output().print({{"name", arguments.name}, {"value", *value}}, *value);
    return kExitDone;
}

// The library cannot tell whether the tool did its work, but the store can.
bool comes_to_be(const Store& store, const SettingArguments& arguments) {
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

int run_set(Tool& tool, const Store& store, const SettingArguments& arguments) {
    const std::string what = fmt::format("{} set {}", store.group, arguments.name);
    const std::string word = shell_word(arguments.value.value_or(""));
    if (access(store.writer, X_OK) != 0 ||
        store.set(arguments.name.c_str(), arguments.value ? word.c_str() : nullptr) != 0) {
        return failed(tool, what, store.writer);
    }
    if (!comes_to_be(store, arguments)) {
        fmt::print(stderr, "halctl: {}: {} was started, but {} seconds later it is not done\n",
                   what, store.writer, arguments.seconds);
        return kExitFailure;
    }
    tool.output().print(
        {{"name", arguments.name}, {"value", arguments.value ? Json(*arguments.value) : Json()}},
        "");
    return kExitDone;
}

void add_store(CLI::App& app, Tool& tool, const Store& store, const std::string& example) {
    CLI::App* group = app.add_subcommand(store.group, store.about);
    group->require_subcommand(1);
    auto arguments = std::make_shared<SettingArguments>();
    const auto add_name = [&](CLI::App& command) {
        command.add_option("NAME", arguments->name, "Which")->required()->check(is_setting_name());
    };

    CLI::App& get = tool.add_command(*group, "get", "Print a value",
                                     fmt::format("halctl {} get {}", store.group, example));
    add_name(get);
    tool.on_run(get, [&tool, &store, arguments] { return run_get(tool, store, *arguments); });

    // The example is for a board: tried on a desk it would change that machine's own settings.
    CLI::App& set = tool.add_command(
        *group, "set", "Set a value; without one, remove the setting",
        fmt::format("vboard run -- halctl {} set {} 'a new value'", store.group, example));
    add_name(set);
    set.add_option("VALUE", arguments->value, "A line of text, of any characters")
        ->check(is_setting_value());
    arguments->seconds = store.patience;
    if (store.patience > 0) {
        set.add_option("--timeout", arguments->seconds,
                       "Fail if it cannot be read back after so many seconds (10)")
            ->check(CLI::NonNegativeNumber);
    }
    tool.on_run(set, [&tool, &store, arguments] { return run_set(tool, store, *arguments); });
}

} // namespace

void add_env(CLI::App& app, Tool& tool) {
    add_store(app, tool, kEnv, "bootcmd");
}

void add_sysconfig(CLI::App& app, Tool& tool) {
    add_store(app, tool, kConfig, "hostname");
}

} // namespace halctl
