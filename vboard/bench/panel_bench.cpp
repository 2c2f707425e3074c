// A request on a board's node while 50 pages show the board in browsers, five of which never read,
// against one on a board that nobody looks at.

#include "side.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace {

constexpr int kRounds = 10;
constexpr int kPages = 50;
constexpr int kDeaf = 5;
constexpr std::chrono::milliseconds kWhile(500); // a measurement, which the panel looks into often
constexpr char kNode[] = "/dev/tbar0";
constexpr unsigned long kTellFader = 0x80035400;

using Clock = std::chrono::steady_clock;

// Case 0 is requests one after the other, case 1 a thousand a second.
double request_nanoseconds(std::size_t which) {
    const int file = open(kNode, O_RDWR | O_CLOEXEC);
    std::array<char, 3> record{};
    const auto end = Clock::now() + kWhile;
    Clock::duration all{};
    int count = 0;
    for (auto start = Clock::now(); start < end; start = Clock::now(), ++count) {
        if (ioctl(file, kTellFader, record.data()) != 0) {
            std::perror(kNode);
            std::exit(1);
        }
        all += Clock::now() - start;
        if (which == 1) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    close(file);
    return std::chrono::duration<double, std::nano>(all).count() / count;
}

int be_inside() {
    for (std::string which; std::getline(std::cin, which);) {
        std::printf("%f\n", request_nanoseconds(std::stoul(which)));
        std::fflush(stdout);
    }
    return 0;
}

// Browsers, as far as the panel can tell.
class Browsers {
  public:
    explicit Browsers(int port) {
        for (pollfd& page : pages_) {
            page = {open_page(port), POLLIN, 0};
        }
        reader_ = std::jthread([this](const std::stop_token& stop) {
            std::array<char, 65536> bytes{};
            while (!stop.stop_requested()) {
                poll(pages_.data(), kPages - kDeaf, 100);
                for (int at = 0; at < kPages - kDeaf; ++at) {
                    if (pages_[static_cast<std::size_t>(at)].revents != 0) {
                        recv(pages_[static_cast<std::size_t>(at)].fd, bytes.data(), bytes.size(),
                             MSG_DONTWAIT);
                    }
                }
            }
        });
    }
    ~Browsers() {
        reader_ = {};
        for (const pollfd& page : pages_) {
            close(page.fd);
        }
    }
    Browsers(const Browsers&) = delete;
    Browsers& operator=(const Browsers&) = delete;

  private:
    static int open_page(int port) {
        const int page = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<std::uint16_t>(port));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const std::string request =
            "GET /events HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
        char first = 0;
        if (connect(page, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 ||
            send(page, request.data(), request.size(), 0) < 0 || recv(page, &first, 1, 0) != 1) {
            std::perror("a page");
            std::exit(1);
        }
        return page;
    }

    std::array<pollfd, kPages> pages_{};
    std::jthread reader_;
};

int port_in(const std::string& path) {
    std::string line;
    while (line.find("127.0.0.1:") == std::string::npos) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::ifstream file(path);
        std::getline(file, line);
    }
    return std::stoi(line.substr(line.find("127.0.0.1:") + 10));
}

} // namespace

int main(int argc, char**) {
    if (argc > 1) {
        return be_inside();
    }
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    std::string said = std::filesystem::temp_directory_path() / "panel-bench-XXXXXX";
    close(mkstemp(said.data()));
    const std::string watched =
        "exec vboard run --http 0 -- '" + self + "' inside 2>'" + said + "'";
    bench::Side alone({"vboard", "run", "--", self.c_str(), "inside"});
    bench::Side shown({"sh", "-c", watched.c_str()});
    const int port = port_in(said);
    std::filesystem::remove(said);
    for (const std::size_t which : {0U, 1U}) {
        std::vector<double> without;
        std::vector<double> with;
        for (int round = 0; round < kRounds; ++round) {
            without.push_back(alone.measure(which));
            const Browsers browsers(port);
            with.push_back(shown.measure(which));
        }
        std::printf("%-32s %8.1f us     with %d pages %8.1f us     times   %.2f\n",
                    which == 0 ? "requests in a row" : "a request each millisecond",
                    bench::median(without) / 1e3, kPages, bench::median(with) / 1e3,
                    bench::median(with) / bench::median(without));
    }
    return 0;
}
