#include "support/command.h"

#include "support/cancel.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

namespace hal {

void format_whole(std::span<char> text, const char* format, va_list values) {
    const int length = std::vsnprintf(text.data(), text.size(), format, values);
    if (length < 0 || static_cast<std::size_t>(length) >= text.size()) {
        text.front() = '\0';
    }
}

int run_command(Command command) {
    if (!command) {
        errno = E2BIG;
        return -1;
    }
    const CancelOff no_cancel;
    return std::system(command.text());
}

bool run_piped(Command command) {
    const CommandOutput unread(command);
    return static_cast<bool>(unread);
}

CommandOutput::CommandOutput(Command command, CommandEnd end) : end_(end) {
    if (!command) {
        errno = E2BIG;
        return;
    }
    const CancelOff no_cancel; // a cancelled popen could lose its child
    stream_ = popen(command.text(), "r");
    if (stream_ != nullptr) {
        fcntl(fileno(stream_), F_SETFD, FD_CLOEXEC);
    }
}

CommandOutput::~CommandOutput() {
    if (stream_ != nullptr) {
        const CancelOff no_cancel;
        if (end_ == CommandEnd::kAwaited) {
            drain();
        }
        pclose(stream_);
    }
}

void CommandOutput::read(std::span<char> text) {
    text[read_stream(stream_, text.first(text.size() - 1))] = '\0';
}

bool CommandOutput::read_line(std::span<char> text) {
    return hal::read_line(stream_, text);
}

void CommandOutput::drain() {
    std::array<char, 256> unwanted{};
    while (read_stream(stream_, unwanted) == unwanted.size()) {
    }
}

} // namespace hal
