#include "terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace halctl {

namespace {

std::FILE* own_copy_of(int descriptor) {
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    return copy < 0 ? nullptr : fdopen(copy, "w");
}

// Both are taken before anything is put in their place, and stay to the end of the process.
struct Own {
    std::FILE* out = own_copy_of(STDOUT_FILENO);
    std::FILE* err = own_copy_of(STDERR_FILENO);
};

const Own& own() {
    static const Own files;
    return files;
}

// The descriptor of `file` becomes that of `number`, which is closed where there is no file.
void put_in_place(std::FILE* file, int number) {
    if (file == nullptr) {
        close(number);
    } else {
        dup2(fileno(file), number);
    }
}

} // namespace

std::FILE* terminal_out() {
    return own().out;
}

std::FILE* terminal_err() {
    return own().err;
}

bool is_terminal(std::FILE* file) {
    return file != nullptr && isatty(fileno(file)) == 1;
}

bool all_has_arrived() {
    if (terminal_out() == nullptr) {
        errno = EBADF;
        return false;
    }
    return std::fflush(terminal_out()) == 0 && std::ferror(terminal_out()) == 0;
}

LibraryElsewhere::LibraryElsewhere(LibraryPrints prints, bool verbose) {
    std::fflush(stdout);
    if (prints == LibraryPrints::shown || (prints == LibraryPrints::aside && verbose)) {
        put_in_place(own().err, STDOUT_FILENO);
        return;
    }
    own();
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

LibraryElsewhere::~LibraryElsewhere() {
    const int error = errno;
    std::fflush(stdout);
    put_in_place(own().out, STDOUT_FILENO);
    put_in_place(own().err, STDERR_FILENO);
    errno = error;
}

} // namespace halctl
