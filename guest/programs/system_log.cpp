// The system log of a guest: each message that is sent to /dev/log, as it came, a line of a file.
//
//   system_log FILE     returns once messages can be sent; a child takes them until it is ended

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr char kSocket[] = "/dev/log";
constexpr std::size_t kLargestMessage = std::size_t{256} * 1024;

int fail(const char* what) {
    std::fprintf(stderr, "system_log: %s: %s\n", what, std::strerror(errno));
    return 1;
}

// Lines within a message stay one line, as each must be a message; glibc ends none with a NUL.
void take_messages(int socket, int file) {
    std::vector<char> message(kLargestMessage + 1);
    while (true) {
        const ssize_t got = recv(socket, message.data(), kLargestMessage, 0);
        if (got < 0 && errno != EINTR) {
            return;
        }
        if (got < 0) {
            continue;
        }
        const auto end = message.begin() + got;
        std::replace(message.begin(), end, '\n', ' ');
        *end = '\n';
        if (write(file, message.data(), static_cast<std::size_t>(got) + 1) != got + 1) {
            return;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: system_log FILE\n", stderr);
        return 64;
    }
    const int file = open(argv[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) {
        return fail(argv[1]);
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, kSocket, sizeof kSocket);
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0 ||
        bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return fail(kSocket);
    }
    const pid_t child = fork();
    if (child < 0) {
        return fail("fork");
    }
    if (child == 0) {
        take_messages(socket, file);
    }
    return 0;
}
