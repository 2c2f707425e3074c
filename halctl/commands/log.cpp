// halctl log: one message to every sink of the library's log, and what became of it.
#include "commands/commands.h"

#include <hal_bsp/log.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace halctl {

namespace logging {
namespace {

constexpr std::array kLevels = {"trace", "debug", "info", "warn", "error", "fatal"};
constexpr std::array kPriorities = {"debug", "debug", "info", "warning", "err", "emerg"};

struct Arguments {
    std::string text;
    std::string level = "info";
    std::string path;
};

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Closer>;

// A sink of our own, which sees whether the message comes.
struct Probe {
    int line = 0;
    bool reached = false;
};

void probe(log_event* event) {
    auto* mine = static_cast<Probe*>(event->udata);
    mine->reached = mine->reached || event->line == mine->line;
}

class Report {
  public:
    void add(const char* sink, bool reached, const std::string& text, const Json& details = {}) {
        Json entry = {{"sink", sink}, {"reached", reached}};
        entry.update(details.is_null() ? Json::object() : details);
        sinks_.push_back(std::move(entry));
        text_ += fmt::format("{}{:<15} {}", text_.empty() ? "" : "\n", sink, text);
    }
    const Json& sinks() const { return sinks_; }
    const std::string& text() const { return text_; }

  private:
    Json sinks_ = Json::array();
    std::string text_;
};

int number_of(const std::string& level) {
    const auto* found = std::find_if(kLevels.begin(), kLevels.end(), [&](const char* name) {
        return strcasecmp(name, level.c_str()) == 0;
    });
    return static_cast<int>(found - kLevels.begin());
}

void report_standard(Report& report, int level) {
    const bool shown = level >= HAL_LOG_INFO;
    report.add("standard error", shown, shown ? "shown" : "not shown: it shows INFO and above");
    const char* priority = kPriorities.at(static_cast<std::size_t>(level));
    const bool there = access("/dev/log", F_OK) == 0;
    report.add("system log", there,
               there ? fmt::format("sent as libhal_bsp, local5.{}", priority)
                     : "not reached: there is no /dev/log",
               {{"priority", priority}});
}

// The sink stays registered for the life of the process, and so the stream has to.
std::FILE* add_file(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "ae");
    if (file != nullptr && log_add_fp(file, HAL_LOG_TRACE) != 0) {
        std::fclose(file);
        return nullptr;
    }
    return file;
}

int run_log(Tool& tool, const Arguments& arguments) {
    static Probe own; // as the stream
    std::FILE* file = nullptr;
    if (!arguments.path.empty()) {
        file = add_file(arguments.path);
        if (file == nullptr) {
            return tool.failed(
                "log", fmt::format("cannot open {}: {}", arguments.path, std::strerror(errno)));
        }
    }
    const int level = number_of(arguments.level);
    own.line = __LINE__;
    log_add_callback(probe, &own, HAL_LOG_TRACE);
    log_set_quiet(false);
    log_log(level, kOurLogName, own.line, "%s", arguments.text.c_str());
    log_set_quiet(true);

    Report report;
    report_standard(report, level);
    if (file != nullptr) {
        const bool written = std::ferror(file) == 0;
        report.add("file", written,
                   fmt::format("{} {}", written ? "written to" : "cannot write to", arguments.path),
                   {{"path", arguments.path}});
    }
    report.add("callback", own.reached, own.reached ? "called" : "not called");
    tool.output().print(
        {{"level", log_level_string(level)}, {"text", arguments.text}, {"sinks", report.sinks()}},
        report.text());
    const bool all_written = file == nullptr || std::ferror(file) == 0;
    return own.reached && all_written ? kExitDone : kExitFailure;
}

} // namespace
} // namespace logging

void add_log(Command& root, Tool& tool) {
    auto arguments = std::make_shared<logging::Arguments>();
    Command& command =
        root.verb("log", "Send a message to every sink of the log, and say where it went",
                  "halctl log --level warn --file /tmp/board.log \"fan is slow\"");
    command.text("MESSAGE", arguments->text, "What to log");
    command.word("--level LEVEL", arguments->level, "How grave it is",
                 std::vector<std::string>(logging::kLevels.begin(), logging::kLevels.end()));
    command.text("--file FILE", arguments->path, "Add this file to the sinks").otherwise("none");
    command.on_run([&tool, arguments] { return logging::run_log(tool, *arguments); },
                   LibraryPrints::shown);
}

} // namespace halctl
