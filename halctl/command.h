#pragma once
// Commands as data: what they are called, what they take, what they do. Help, complaints and the
// list for programs all come from it; how a command line is taken apart stands in command_line.cpp.
//
// A group of commands is one file in commands/ with one function, add_<group>(), which stands in
// the table in main.cpp. It adds each of its commands like this:
//
//     auto arguments = std::make_shared<GetArguments>();
//     Command& get = group.verb("get", "Print a line's level", "halctl gpio get 3");
//     get.number("LINE", arguments->line, "Number of the line, as the driver counts");
//     get.on_run([&tool, arguments] { return run_get(tool, *arguments); });
//
// An argument's name says how it is given: "LINE" has to be there, "[LENGTH]" may be left out, of
// "[LINE...]" there may be any number; "--trigger EDGES" is an option with a value, "--in" one
// without. What the target holds when the argument is declared is its default.

#include "words.h"

#include <concepts>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halctl {

// What is wrong with something, to be put behind its name; empty: nothing.
using Complaint = std::string;

struct Parameter {
    std::string name;  // "LINE", "--trigger"
    std::string value; // of an option that takes one: "EDGES"
    std::string about; // what it is
    std::string kind;  // what it takes, in words; empty: any text
    std::string
        fallback; // what holds without it, in words; empty: it has to be there, or is a flag
    bool required = false;
    bool many = false;
    std::function<Complaint(const std::string& word)> take;

    bool is_option() const { return name.starts_with('-'); }
    bool is_flag() const { return is_option() && value.empty(); }
    // Says in words what holds where nothing is said: "to the end of the file".
    Parameter& otherwise(std::string words);
};

// What becomes of all that the library, and the tools it runs, print by themselves.
enum class LibraryPrints {
    aside,   // nothing is seen of it; with --verbose it goes to standard error
    nowhere, // the same even then, since daemons would keep standard error open
    shown,   // standard error, always
};

class Command {
  public:
    using Run = std::function<int()>;
    using Check = std::function<Complaint(const std::string& word)>;

    Command(std::string path, std::string name, std::string about)
        : path_(std::move(path)), name_(std::move(name)), about_(std::move(about)) {}

    // A group of commands, or a command, below this one.
    Command& group(const std::string& name, const std::string& about);
    Command& verb(const std::string& name, const std::string& about, const std::string& example);
    // The command of this group that is meant where none of their names follows.
    void short_for(const std::string& verb) { short_for_ = verb; }

    // --- what it takes, in this order ---
    template <std::unsigned_integral T>
    Parameter& number(const std::string& name, T& target, const std::string& about, T least = 0,
                      T most = std::numeric_limits<T>::max()) {
        return add_whole(name, about, least, most, std::to_string(target),
                         [&target](std::uint64_t number) { target = static_cast<T>(number); });
    }
    template <std::unsigned_integral T>
    Parameter& number(const std::string& name, std::optional<T>& target, const std::string& about,
                      T least = 0, T most = std::numeric_limits<T>::max()) {
        return add_whole(name, about, least, most, "",
                         [&target](std::uint64_t number) { target = static_cast<T>(number); });
    }
    template <std::unsigned_integral T>
    Parameter& numbers(const std::string& name, std::vector<T>& target, const std::string& about) {
        return add_whole(
            name, about, 0, std::numeric_limits<T>::max(), "",
            [&target](std::uint64_t number) { target.push_back(static_cast<T>(number)); });
    }
    Parameter& number(const std::string& name, int& target, const std::string& about, int least,
                      int most);
    Parameter& real(const std::string& name, double& target, const std::string& about, double least,
                    double most);
    Parameter& word(const std::string& name, std::string& target, const std::string& about,
                    std::vector<std::string> words);
    // `kind` says in words what `check` lets pass.
    Parameter& text(const std::string& name, std::string& target, const std::string& about,
                    const std::string& kind = "", const Check& check = {});
    Parameter& text(const std::string& name, std::optional<std::string>& target,
                    const std::string& about, const std::string& kind, const Check& check);
    Parameter& texts(const std::string& name, std::vector<std::string>& target,
                     const std::string& about, const std::string& kind, const Check& check);
    Parameter& flag(const std::string& name, bool& target, const std::string& about);
    // Pairs of hexadecimal digits, as many as `least` to `most` bytes.
    Parameter& hex(const std::string& name, std::vector<std::uint8_t>& target,
                   const std::string& about, std::size_t least, std::size_t most);

    // What has to hold of all arguments together.
    void check(std::function<Complaint()> check) { check_ = std::move(check); }
    // What the command does once the whole command line has proved right; returns the exit code.
    void on_run(Run run, LibraryPrints prints = LibraryPrints::aside);

    // --- for whoever takes a command line apart, or explains how to write one ---
    std::string path() const { return path_ + name_; } // "halctl gpio get"
    bool is_root() const { return path_.empty(); }
    const std::string& name() const { return name_; }
    const std::string& about() const { return about_; }
    const std::string& example() const { return example_; }
    const std::vector<std::unique_ptr<Command>>& below() const { return below_; }
    const std::deque<Parameter>& parameters() const { return parameters_; }
    const Command* find(std::string_view name) const;
    const Command* meant_by_itself() const { return find(short_for_); }
    Complaint check_all() const { return check_ ? check_() : ""; }
    int run() const { return run_(); }
    LibraryPrints prints() const { return prints_; }

  private:
    Command& add(const std::string& name, const std::string& about);
    Parameter& add_parameter(const std::string& name, const std::string& about);
    Parameter& add_whole(const std::string& name, const std::string& about, std::uint64_t least,
                         std::uint64_t most, const std::string& fallback,
                         std::function<void(std::uint64_t)> store);

    std::string path_;
    std::string name_;
    std::string about_;
    std::string example_;
    std::string short_for_;
    std::vector<std::unique_ptr<Command>> below_;
    std::deque<Parameter> parameters_;
    std::function<Complaint()> check_;
    Run run_;
    LibraryPrints prints_ = LibraryPrints::aside;
};

} // namespace halctl
