// The web panel as a browser meets it, over plain sockets: what it tells, whom it refuses, and that
// nobody waits for a page.

#include "tests/run_on_board.h"

#include "client/client.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <thread>

namespace vb::panel_test {
namespace {

using testing::HasSubstr;
using testing::Not;

// A connection that has sent a request.
class Browser {
  public:
    Browser(int port, const std::string& request, const char* address = "127.0.0.1")
        : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval patience{20, 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<std::uint16_t>(port));
        inet_pton(AF_INET, address, &to.sin_addr);
        is_connected_ =
            connect(socket_.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0 &&
            send(socket_.get(), request.data(), request.size(), MSG_NOSIGNAL) ==
                static_cast<ssize_t>(request.size());
    }

    bool is_connected() const { return is_connected_; }
    // What is not read, and is more than this, waits at the other end.
    void holds(int bytes) const {
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }

    // All that comes until this text has; or to the end, or until it is too late for it.
    std::string read_until(const std::string& text) {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::seconds(HAL_SLOW != 0 ? 120 : 40);
        std::size_t found = 0;
        std::size_t searched = 0; // so many bytes have no beginning of it
        while ((found = received_.find(text, searched)) == std::string::npos) {
            searched = received_.size() - std::min(received_.size(), text.size() - 1);
            std::array<char, 16384> bytes{};
            const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
            if (count <= 0 || std::chrono::steady_clock::now() > deadline) {
                return std::exchange(received_, "");
            }
            received_.append(bytes.data(), static_cast<std::size_t>(count));
        }
        std::string all = received_.substr(0, found + text.size());
        received_.erase(0, found + text.size());
        return all;
    }
    std::string read_all() { return read_until(std::string(1, '\0')); }
    bool sees(const std::string& text) {
        const std::string seen = read_until(text);
        return seen.ends_with(text);
    }

  private:
    UniqueFd socket_;
    bool is_connected_ = false;
    std::string received_;
};

// A board with a panel. What its program writes is beside what `vboard` says.
class PanelBoard {
  public:
    explicit PanelBoard(const std::string& where = "0", const std::string& script = "sleep 600") {
        launcher_ =
            start_command({"setsid", "sh", "-c",
                           fmt::format("exec {} run --http {} --sticks {} -- sh -c '{}' 2>{}",
                                       VBOARD, where, folder_.path(), script, said())});
        for (int i = 0; i < 2000 && url().empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        port_ =
            static_cast<int>(std::strtol(url().substr(url().find(':') + 1).c_str(), nullptr, 10));
    }
    ~PanelBoard() { end(SIGTERM); }
    PanelBoard(const PanelBoard&) = delete;
    PanelBoard& operator=(const PanelBoard&) = delete;

    int end(int signal) {
        if (launcher_ == 0) {
            return 0;
        }
        kill(launcher_, signal);
        return wait_for_command(std::exchange(launcher_, 0));
    }
    // "127.0.0.1:8080/"
    std::string url() const {
        const std::string all = contents_of(said());
        const std::size_t at = all.find("http://");
        const std::size_t end = all.find('\n', at);
        return at == std::string::npos || end == std::string::npos
                   ? ""
                   : all.substr(at + 7, end - at - 7);
    }
    int port() const { return port_; }
    int launcher() const { return launcher_; }
    std::string headers() const { return fmt::format("Host: 127.0.0.1:{}\r\n", port_); }
    Browser page() const {
        return {port_, fmt::format("GET /events HTTP/1.1\r\n{}\r\n", headers())};
    }
    std::string get(const std::string& path) const {
        return Browser(port_, fmt::format("GET {} HTTP/1.1\r\n{}\r\n", path, headers())).read_all();
    }
    std::string post(const std::string& body, const std::string& headers) const {
        return Browser(port_, fmt::format("POST /ask HTTP/1.1\r\nContent-Length: {}\r\n{}\r\n{}",
                                          body.size(), headers, body))
            .read_all();
    }
    std::string ask(const std::string& body) const {
        return post(body, headers() + "Content-Type: application/json\r\n");
    }
    std::string folder() const { return folder_.path(); }

  private:
    std::string said() const { return folder_ / "said"; }

    TemporaryFolder folder_;
    pid_t launcher_ = 0;
    int port_ = 0;
};

TEST(Panel, ShowsTheBoardAndActsOnIt) {
    const PanelBoard board;
    EXPECT_THAT(board.get("/"), HasSubstr("<!doctype html>"));
    EXPECT_THAT(board.get("/images"), HasSubstr(fmt::format("\"{}/said\"", board.folder())));
    EXPECT_THAT(board.get("/verbs"), HasSubstr(R"("verb":"tbar.move")"));
    EXPECT_THAT(board.get("/nothing"), HasSubstr("404"));

    Browser page = board.page();
    const std::string first = page.read_until("\n\n");
    for (const char* text : {"Content-Security-Policy: default-src 'self'", "event: state\n",
                             R"("board":{"alive":true,"starts":1})", R"("gpio.list":{)",
                             R"("tbar.show 3":{"number":3,"position":0)",
                             R"("host.disk_info":null)", R"("oled.png 1":{"png":"iVBORw0KGgo)"}) {
        EXPECT_THAT(first, HasSubstr(text));
    }
    EXPECT_THAT(board.ask(R"({"verb": "tbar.move", "number": 3, "position": 500})"),
                HasSubstr(R"({"ok":true,"result":)"));
    const std::string changed = page.read_until(R"("tbar.show 3":{"number":3,"position":500)");
    EXPECT_THAT(changed, HasSubstr(R"("tbar.show 3")"));
    EXPECT_THAT(changed, Not(HasSubstr("gpio.list"))) << "what stays is told once";
    EXPECT_TRUE(page.sees(R"("kind":"tbar")"));
}

TEST(Panel, SaysWhyAQuestionIsNotAnswered) {
    const PanelBoard board;
    const struct {
        std::string question;
        const char* status;
        const char* kind;
    } cases[] = {
        {R"({"verb": "gpio.drive", "line": 7, "level": 3})", " 400 ", R"("kind":"usage")"},
        {R"({"verb": "gpio.drive", "line": 7777, "level": 1})", " 409 ", R"("kind":"refused")"},
        {R"({"verb": "trace.follow"})", " 400 ", R"("kind":"usage")"},
        {"[]", " 400 ", R"("kind":"usage")"},
        {R"({"verb": "x", "y": )" + std::string(60'000, '['), " 400 ", R"("kind":"usage")"},
        {R"({"verb": "x", "y": )" + std::string(30'000, '[') + std::string(30'000, ']') + "}",
         " 400 ", R"("kind":"usage")"},
        {std::string(70'000, ' '), " 413 ", R"("error":)"},
    };
    for (const auto& each : cases) {
        const std::string answer = board.ask(each.question);
        EXPECT_THAT(answer.substr(0, answer.find('\n')), HasSubstr(each.status)) << each.question;
        EXPECT_THAT(answer, HasSubstr(each.kind)) << each.question;
    }
}

TEST(Panel, LetsNobodyInFromElsewhere) {
    const PanelBoard board;
    const std::string json = "Content-Type: application/json\r\n";
    const std::string host = board.headers();
    const struct {
        std::string headers;
        const char* status;
    } cases[] = {
        {host + json, " 200 "},
        {host + json + fmt::format("Origin: http://localhost:{}\r\n", board.port()), " 200 "},
        {host + json + "Sec-Fetch-Site: same-origin\r\n", " 200 "},
        {json, " 403 "},
        {fmt::format("Host: board.example:{}\r\n", board.port()) + json, " 403 "},
        {"Host: 127.0.0.1:1\r\n" + json, " 403 "},
        {host + json + "Origin: http://board.example\r\n", " 403 "},
        {host + json + "Origin: null\r\n", " 403 "},
        {host + json + "Sec-Fetch-Site: cross-site\r\n", " 403 "},
        {host + "Content-Type: text/plain\r\n", " 400 "},
        {host, " 400 "},
    };
    for (const auto& each : cases) {
        const std::string answer = board.post(R"({"verb": "clock.show"})", each.headers);
        EXPECT_THAT(answer.substr(0, answer.find('\n')), HasSubstr(each.status)) << each.headers;
        EXPECT_THAT(answer, Not(HasSubstr("Access-Control"))) << each.headers;
    }
}

TEST(Panel, WantsATokenElsewhereThanAtHome) {
    const PanelBoard board("127.0.0.2:0");
    const std::string url = board.url();
    const std::string token = url.substr(url.find("#token=") + 7);
    EXPECT_EQ(token.size(), 32U) << url;
    const auto status = [&](const std::string& path, const std::string& header) {
        const std::string head = fmt::format("GET {} HTTP/1.1\r\nHost: 127.0.0.2:{}\r\n{}\r\n",
                                             path, board.port(), header);
        return Browser(board.port(), head, "127.0.0.2").read_until("\n");
    };
    const std::string wrong(32, '0');
    EXPECT_THAT(status("/", ""), HasSubstr(" 200 "));
    EXPECT_THAT(status("/verbs", ""), HasSubstr(" 403 "));
    EXPECT_THAT(status("/verbs", fmt::format("X-Panel-Token: {}\r\n", wrong)), HasSubstr(" 403 "));
    EXPECT_THAT(status("/verbs", fmt::format("X-Panel-Token: {}\r\n", token)), HasSubstr(" 200 "));
    EXPECT_THAT(status("/events?token=" + wrong, ""), HasSubstr(" 403 "));
    EXPECT_THAT(status("/events?token=" + token, ""), HasSubstr(" 200 "));
}

TEST(Panel, WaitsForNoPage) {
    const PanelBoard board;
    constexpr int kIdle =
        HAL_SANITIZED != 0 ? 18 : 98; // with the other two that is as many as may be
    std::vector<Browser> idle;        // they never read
    idle.reserve(kIdle);
    for (int i = 0; i < kIdle; ++i) {
        idle.push_back(board.page());
    }
    Browser slow = board.page();
    slow.holds(16 << 10);
    ASSERT_TRUE(slow.sees("event: state"));
    Browser quick = board.page();
    ASSERT_TRUE(quick.sees("event: state"));
    if (kIdle == 98) {
        EXPECT_THAT(board.get("/events"), HasSubstr(" 503 "));
    }

    std::string seen;
    std::jthread reader([&] { seen = quick.read_until("the last note"); });
    Client client = Client::of_launcher(board.launcher());
    const std::string long_text(20'000, 'x');
    for (int i = 0; i < 50; ++i) { // a page may have half of that wait
        client.ask("trace.note", {{"text", long_text}});
    }
    client.ask("trace.note", {{"text", "the last note"}});
    reader.join();
    EXPECT_TRUE(seen.ends_with("the last note")) << seen.size() << " bytes came";
    EXPECT_EQ(seen.find("event: lost"), std::string::npos);

    slow.holds(1 << 20); // or TCP itself is slow, with a window below a segment's size
    EXPECT_TRUE(slow.sees("event: lost\ndata: {\"events\":"));
    EXPECT_TRUE(slow.sees(R"(event: state
data: {"board":{"alive":true,"starts":1},)"));
}

TEST(Panel, OutlivesARestartAndNotItsLauncher) {
    PanelBoard board("0",
                     R"(trap "" INT; while vboard ctl trace note trapped; do sleep 0.1; done)");
    Browser page = board.page();
    ASSERT_TRUE(page.sees(R"("alive":true,"starts":1)"));
    EXPECT_THAT(board.ask(R"({"verb": "power.cycle"})"), HasSubstr("HTTP/1.1 "));
    EXPECT_TRUE(page.sees(R"("alive":false,"starts":1)"));
    EXPECT_TRUE(page.sees(R"("alive":true,"starts":2)"));
    EXPECT_TRUE(page.sees(R"([{"n":1,)")) << "the trace begins with the start";

    ASSERT_TRUE(page.sees("trapped"));
    kill(-board.launcher(), SIGINT); // as a terminal does, to all
    EXPECT_THAT(board.ask(R"({"verb": "clock.show"})"), HasSubstr(" 200 "));

    const Browser never_read = board.page();
    EXPECT_EQ(board.end(SIGKILL), 128 + SIGKILL);
    page.read_all(); // to its end
    for (int i = 0; i < 1000 && Browser(board.port(), "").is_connected(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_FALSE(Browser(board.port(), "").is_connected());
}

TEST(Panel, StartsNothingWhereItCannotListen) {
    const PanelBoard board;
    const std::string taken = std::to_string(board.port());
    const TemporaryFolder folder;
    const struct {
        std::vector<std::string> options;
        int status;
        const char* complaint;
    } cases[] = {
        {{"--http", taken}, 69, "Address already in use"},
        {{"--http", "192.0.2.7:0"}, 69, "192.0.2.7:0: Cannot assign requested address"},
        {{"--http", "65536"}, 64, "\"65536\" is not [ADDRESS:]PORT"},
        {{"--http", "board.example:80"}, 64, "\"board.example\" is no address"},
        {{"--http", "0", "--sticks", folder / "none"}, 64, "is no folder"},
        {{"--sticks", folder.path()}, 64, "--sticks requires --http"},
    };
    for (const auto& each : cases) {
        std::vector<std::string> words = each.options;
        words.insert(words.end(), {"--", "touch", folder / "started"});
        const CommandResult result = on_board(words);
        EXPECT_EQ(result.status, each.status) << each.complaint;
        EXPECT_THAT(result.err, HasSubstr(each.complaint));
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "started"));
}

} // namespace
} // namespace vb::panel_test
