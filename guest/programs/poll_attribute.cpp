// What poll(2) says of an attribute of the kernel's: when it was just opened, after it was read,
// and at each change, which is then read.
//
//   poll_attribute FILE COUNT     returns after COUNT changes; 1 where ten seconds bring none

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kPatienceMs = 10000;

struct Word {
    short event;
    const char* name;
};

constexpr Word kWords[] = {
    {POLLIN, " in"}, {POLLOUT, " out"}, {POLLPRI, " pri"}, {POLLERR, " err"}, {POLLHUP, " hup"}};

// False where nothing came in time.
bool say_polled(int file, const char* when, short events, int wait_ms) {
    pollfd until{file, events, 0};
    int came = 0;
    do {
        came = poll(&until, 1, wait_ms);
    } while (came < 0 && errno == EINTR);
    std::printf("%s:", when);
    for (const Word& word : kWords) {
        if ((until.revents & word.event) != 0) {
            std::fputs(word.name, stdout);
        }
    }
    std::puts(came > 0 ? "" : " nothing");
    return came > 0;
}

void say_read(int file) {
    char text[256];
    const ssize_t size = pread(file, text, sizeof text, 0);
    if (size < 0) {
        std::printf("read: %s\n", std::strerror(errno));
    } else {
        std::printf("read: %.*s", static_cast<int>(size), text);
    }
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: poll_attribute FILE COUNT\n", stderr);
        return 64;
    }
    const int file = open(argv[1], O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) {
        std::fprintf(stderr, "poll_attribute: %s: %s\n", argv[1], std::strerror(errno));
        return 1;
    }
    say_polled(file, "opened", POLLIN | POLLOUT | POLLPRI, 0);
    say_read(file);
    say_polled(file, "read once", POLLIN | POLLOUT | POLLPRI, 0);
    std::fflush(stdout);
    for (long i = std::strtol(argv[2], nullptr, 10); i > 0; --i) {
        if (!say_polled(file, "changed", POLLPRI, kPatienceMs)) {
            return 1;
        }
        say_read(file);
    }
    return 0;
}
