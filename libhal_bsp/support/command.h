// Shell commands: built in a buffer of a fixed size, run through system or popen.
#pragma once

#include <cstddef>
#include <cstdio>
#include <span>

namespace hal {

// A command line of at most 127 characters. One that does not fit is empty and must not be run: cut
// off, it would be another command. What is put into it reaches a shell as it is.
class CommandLine {
  public:
    __attribute__((format(printf, 2, 3))) explicit CommandLine(const char* format, ...);

    // Whether it fits.
    explicit operator bool() const { return text_[0] != '\0'; }
    [[nodiscard]] const char* text() const { return text_; }

  private:
    char text_[128] = {};
};

// Runs a command to its end and returns what system(3) does. Not a cancellation point: a command
// that was begun is waited for.
int run_command(const char* command);

// A running command whose standard output is read. When it goes out of scope it waits for the
// command's end; the command's exit status is nobody's concern.
class CommandOutput {
  public:
    explicit CommandOutput(const char* command);
    ~CommandOutput();
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    // Whether the command could be started.
    explicit operator bool() const { return stream_ != nullptr; }

    // Reads what the command prints until `text` is full or the output ends, and terminates it.
    void read(std::span<char> text);
    // Reads one line, its newline included. False where there is none.
    bool read_line(std::span<char> text);

  private:
    std::FILE* stream_;
};

} // namespace hal
