// The control socket: what it answers, refuses and lets one follow.

#include "client/board_fixture.h"

#include <chrono>
#include <filesystem>
#include <thread>

namespace vb::control_test {
namespace {

class ControlTest : public BoardTest {};

TEST_F(ControlTest, LetsOneFollowFromTheMomentItSaysSo) {
    std::vector<int> levels;
    Client follower = Client::of_this_board();
    std::jthread world;
    follower.follow(
        "gpio.watch", {{"line", 69}},
        [&](const Json& event) {
            levels.push_back(event.at("level").get<int>());
            return levels.size() < 3;
        },
        [&] {
            world = std::jthread([] {
                Client client = Client::of_this_board();
                for (const int level : {1, 0, 1}) {
                    client.ask("gpio.drive", {{"line", 68}, {"level", level}});
                    client.ask("gpio.drive", {{"line", 69}, {"level", level}});
                }
            });
        });
    EXPECT_EQ(levels, (std::vector{1, 0, 1}));
}

TEST_F(ControlTest, SpendsNothingOnClientsThatWentAway) {
    const auto server_threads = [] { // the device server is the board's first process
        return std::distance(std::filesystem::directory_iterator("/proc/1/task"), {});
    };
    const auto comes_true = [](const auto& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the server's to use
        }
        return condition();
    };
    const auto before = server_threads();
    std::vector<LineStream> clients;
    for (int i = 0; i < 50; ++i) {
        clients.emplace_back(connect_to(kInnerControlName))
            .send(R"({"verb": "trace.follow", "kind": "never"})");
        clients.emplace_back(connect_to(kInnerControlName))
            .send(R"({"verb": "trace.wait", "match": {"kind": "never"}, "timeout_ms": 99999})");
    }
    EXPECT_TRUE(comes_true([&] { return server_threads() > 100; })); // earlier clients' may be gone
    clients.clear();
    EXPECT_TRUE(comes_true([&] { return server_threads() <= before + 9; })) << "or for its nodes";
}

TEST_F(ControlTest, RefusesWhatItDoesNotUnderstandAndGoesOn) {
    const std::pair<const char*, Json> wrong[] = {
        {"no.such.verb", Json::object()},
        {"gpio.drive", {{"line", 61}}},
        {"gpio.drive", {{"line", "one"}, {"level", 1}}},
        {"gpio.drive", {{"line", -1}, {"level", 1}}},
        {"clock.speed", {{"factor", 0}}},
        {"clock.speed", {{"factor", -1}}},
    };
    for (const auto& [verb, arguments] : wrong) {
        EXPECT_THROW(board().ask(verb, arguments), ClientError) << verb << arguments;
    }
    EXPECT_EQ(drive(61, 1).at("level"), 1);
}

TEST_F(ControlTest, ListsTheNodesOfTheBoardButNotThoseOfTheMachine) {
    const std::string nodes = board().ask("node.list").dump();
    EXPECT_NE(nodes.find("\"/dev/drvgpio\""), std::string::npos);
    EXPECT_EQ(nodes.find("\"/dev/null\""), std::string::npos);
}

} // namespace
} // namespace vb::control_test
