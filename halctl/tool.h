#pragma once
// What every command has at hand, and how commands are made.
//
// A group of commands is one file in commands/ with one function, add_<group>(), which stands in
// the table in main.cpp. It adds each of its commands like this:
//
//     auto arguments = std::make_shared<GetArguments>();
//     CLI::App& get = tool.add_command(group, "get", "Print a line's level", "halctl gpio get 3");
//     get.add_option("LINE", arguments->line, "...")->required();
//     tool.on_run(get, [&tool, arguments] { return run_get(tool, *arguments); });

#include "exit_codes.h"
#include "library_log.h"
#include "output.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace halctl {

// What an errno of a driver usually means to the person at the keyboard.
struct Hint {
    int error;
    const char* text;
};

class Tool {
  public:
    Output& output() { return output_; }
    LibraryLog& library_log() { return library_log_; }

    // Adds a command to `parent`, with --json and an example in its help.
    CLI::App& add_command(CLI::App& parent, const std::string& name, const std::string& about,
                          const std::string& example);
    // What the command does once the whole command line has proved right; returns the exit code.
    void on_run(CLI::App& command, std::function<int()> run);
    // Runs the command that was asked for.
    int run() const { return run_(); }

    // Says why the library's last call failed, from what the library logged, and returns the exit
    // code for it. `what` is what was tried ("gpio get 3"), `node` the device it went to.
    int failed(std::string_view what, std::string_view node,
               std::span<const Hint> hints = {}) const;

    // The same for calls that say nothing of themselves: `error` is errno as the call left it;
    // where that is 0, it is looked whether one of the `nodes` is there.
    static int refused(std::string_view what, std::span<const std::string> nodes, int error);

  private:
    Output output_;
    LibraryLog library_log_;
    std::function<int()> run_;
};

} // namespace halctl
