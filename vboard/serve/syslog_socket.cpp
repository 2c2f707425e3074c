#include "serve/syslog_socket.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <thread>

namespace vb {

namespace {

constexpr std::size_t kLargestMessage = std::size_t{256} * 1024;

} // namespace

SyslogSocket::SyslogSocket(Board& board, const std::string& path)
    : board_(board),
      socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      buffer_(kLargestMessage) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (!socket_ ||
        bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    chmod(path.c_str(), 0666); // for every user of the board, as a system's is
}

void SyslogSocket::catch_up() {
    // Before each call of a program, and mostly for nothing: asking costs less than receiving.
    int size = 0;
    if (::ioctl(socket_.get(), FIONREAD, &size) != 0 || size > 0) {
        drain();
    }
}

void SyslogSocket::drain() {
    while (true) {
        const ssize_t size = recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
        if (size < 0) {
            return;
        }
        board_.trace().add("log", parse_syslog({reinterpret_cast<const char*>(buffer_.data()),
                                                static_cast<std::size_t>(size)}));
    }
}

void SyslogSocket::serve() {
    std::thread([this] {
        pollfd ready{socket_.get(), POLLIN, 0};
        while (poll(&ready, 1, -1) >= 0 || errno == EINTR) {
            board_.act([this] { drain(); }); // also what has no bytes
        }
    }).detach();
}

Json parse_syslog(std::string_view message) {
    int priority = -1;
    if (message.starts_with('<')) {
        std::from_chars(message.data() + 1, message.data() + message.size(), priority);
        message.remove_prefix(std::min(message.find('>'), message.size() - 1) + 1);
    }
    constexpr std::size_t kStamp = std::string_view("Nov 24 22:03:09 ").size();
    message.remove_prefix(std::min(kStamp, message.size()));

    const std::size_t colon = message.find(": ");
    std::string_view tag = message.substr(0, colon == std::string_view::npos ? 0 : colon);
    const std::string_view text =
        colon == std::string_view::npos ? message : message.substr(colon + 2);
    int pid = 0;
    if (const std::size_t bracket = tag.find('['); bracket != std::string_view::npos) {
        std::from_chars(tag.data() + bracket + 1, tag.data() + tag.size(), pid);
        tag = tag.substr(0, bracket);
    }
    return {{"priority", priority < 0 ? priority : priority & 7},
            {"facility", priority < 0 ? priority : priority >> 3},
            {"ident", tag},
            {"pid", pid},
            {"text", text}};
}

} // namespace vb
