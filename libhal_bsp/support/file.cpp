#include "support/file.h"

#include "support/cancel.h"

#include <cerrno>

namespace hal {

namespace {

// Whether a stream that gave less than was asked for did so because of a signal; it goes on then.
bool goes_on(std::FILE* stream) {
    const bool interrupted = std::ferror(stream) != 0 && errno == EINTR;
    if (interrupted) {
        std::clearerr(stream);
    }
    return interrupted;
}

} // namespace

File open_file(const char* path, const char* mode) {
    const CancelOff no_cancel;
    File file;
    file.stream_ = std::fopen(path, mode);
    return file;
}

File::~File() {
    if (stream_ != nullptr) {
        const CancelOff no_cancel;
        std::fclose(stream_);
    }
}

std::size_t File::read(std::span<char> bytes) const {
    return read_stream(stream_, bytes);
}

bool File::read_line(std::span<char> text) const {
    return hal::read_line(stream_, text);
}

std::size_t read_stream(std::FILE* stream, std::span<char> bytes) {
    std::size_t got = 0;
    do {
        got += std::fread(bytes.data() + got, 1, bytes.size() - got, stream);
    } while (got < bytes.size() && goes_on(stream));
    return got;
}

bool read_line(std::FILE* stream, std::span<char> text) {
    std::size_t length = 0;
    int character = 0;
    while (length + 1 < text.size() && character != '\n') {
        character = std::fgetc(stream);
        if (character != EOF) {
            text[length++] = static_cast<char>(character);
        } else if (!goes_on(stream)) {
            break;
        }
    }
    if (length == 0) {
        return false;
    }
    text[length] = '\0';
    return true;
}

} // namespace hal
