// Shell commands: built in a buffer of a fixed size, run through system or popen.
#pragma once

#include "support/file.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>

namespace hal {

// Formats as vsnprintf does, or empties the text where it does not fit.
void format_whole(std::span<char> text, const char* format, va_list values);

// A command that may be run: whole. One that did not fit is empty, and refused with errno E2BIG:
// cut off, it would be another command.
class Command {
  public:
    explicit Command(const char* text) : text_(text) {}

    explicit operator bool() const { return *text_ != '\0'; }
    [[nodiscard]] const char* text() const { return text_; }

  private:
    const char* text_;
};

// The text of a command of at most kSize - 1 characters. What is put into it reaches a shell as it
// is.
template <std::size_t kSize>
class CommandText {
  public:
    __attribute__((format(printf, 2, 3))) explicit CommandText(const char* format, ...) {
        va_list values;
        va_start(values, format);
        format_whole(text_, format, values);
        va_end(values);
    }

    explicit operator bool() const { return text_[0] != '\0'; }
    [[nodiscard]] const char* text() const { return text_.data(); }
    operator Command() const { // NOLINT(google-explicit-constructor): it is one
        return Command(text_.data());
    }

  private:
    std::array<char, kSize> text_{};
};

// Runs a command to its end and returns what system(3) does. Not a cancellation point: a command
// that was begun is waited for.
int run_command(Command command);
inline int run_command(const char* command) {
    return run_command(Command(command));
}

// The same through popen(3), its output thrown away; false, with errno, where the command cannot be
// started. How it ends is nobody's concern.
bool run_piped(Command command);

// Whether a command's work is done when its output ends, or goes on behind an "&".
enum class CommandEnd { kAwaited, kInBackground };

// A running command whose standard output is read. When it goes out of scope it waits for the
// command's end; the command's exit status is nobody's concern. What was not read of its output is
// read then, or the command would die of a closed pipe before its work is done; but a background
// command keeps its output open as long as it likes, and is not waited for.
class CommandOutput {
  public:
    explicit CommandOutput(Command command, CommandEnd end = CommandEnd::kAwaited);
    explicit CommandOutput(const char* command) : CommandOutput(Command(command)) {}
    ~CommandOutput();
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    // Whether the command could be started; errno says why not.
    explicit operator bool() const { return stream_ != nullptr; }

    // Reads what the command prints until `text` is full or the output ends, and terminates it.
    void read(std::span<char> text);
    // Reads one line, its newline included, or as much of it as there is room for. False where
    // there is none.
    bool read_line(std::span<char> text);

    // Calls `take` with each line, in `line`, its newline dropped; how many there were.
    template <typename Take>
    int each_line(std::span<char> line, Take take) {
        int lines = 0;
        for (; read_line(line); ++lines) {
            line[std::strcspn(line.data(), "\n")] = '\0';
            take(static_cast<const char*>(line.data()));
        }
        return lines;
    }

    // Calls `take` with each line, and leaves the first one in `first`; how many there were.
    template <std::size_t kSize, typename Take>
    int keep_first_line(std::array<char, kSize>& first, Take take) {
        std::array<char, kSize> line{};
        first = {};
        return each_line(line, [&](const char* text) {
            take(text);
            if (first.front() == '\0') {
                first = line;
            }
        });
    }

    // Leaves the last line in `line`, its newline dropped; false, and an empty text, where there is
    // none, or an empty one.
    bool last_line(std::span<char> line) {
        if (each_line(line, [](const char*) {}) == 0) {
            line.front() = '\0';
        }
        return line.front() != '\0';
    }

  private:
    void drain();

    std::FILE* stream_ = nullptr;
    CommandEnd end_;
};

} // namespace hal
