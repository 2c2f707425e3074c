#include "support/command.h"

#include "support/cancel.h"

#include <cstdarg>
#include <cstdlib>

namespace hal {

CommandLine::CommandLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text_, sizeof text_, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof text_) {
        text_[0] = '\0';
    }
}

int run_command(const char* command) {
    const CancelOff no_cancel;
    return std::system(command);
}

CommandOutput::CommandOutput(const char* command) {
    const CancelOff no_cancel; // a cancelled popen could lose its child
    stream_ = popen(command, "r");
}

CommandOutput::~CommandOutput() {
    if (stream_ != nullptr) {
        const CancelOff no_cancel;
        pclose(stream_);
    }
}

void CommandOutput::read(std::span<char> text) {
    const std::size_t length = std::fread(text.data(), 1, text.size() - 1, stream_);
    text[length] = '\0';
}

bool CommandOutput::read_line(std::span<char> text) {
    return std::fgets(text.data(), static_cast<int>(text.size()), stream_) != nullptr;
}

} // namespace hal
