// What every board has whatever is on it: time, nodes, and a trace one can wait for and follow.

#include "client/board_fixture.h"

#include <gmock/gmock.h>
#include <syslog.h>

#include <chrono>
#include <thread>

namespace vb {
namespace {

class BoardWorld : public BoardTest {};

TEST_F(BoardWorld, ListsItsNodesButNotThoseOfTheMachine) {
    const auto nodes = board().ask("node.list").get<std::vector<std::string>>();
    EXPECT_THAT(nodes, testing::Contains("/dev/drvgpio"));
    EXPECT_THAT(nodes, testing::Not(testing::Contains("/dev/null")));
}

TEST_F(BoardWorld, SharesItsClockWithPrograms) {
    using std::chrono::steady_clock;
    set_speed(500);
    const double before = board().ask("clock.show").at("seconds").get<double>();
    const auto from = steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(30));
    const double slept = std::chrono::duration<double>(steady_clock::now() - from).count();
    const double passed = board().ask("clock.show").at("seconds").get<double>() - before;
    EXPECT_GE(slept, 30.0);
    EXPECT_GE(passed, slept);
    EXPECT_THROW(set_speed(0), ClientError);
    EXPECT_THROW(set_speed(-1), ClientError);
}

TEST_F(BoardWorld, ShowsTheSystemLogInOrderWithTheCallsAroundIt) {
    openlog("somebody", LOG_PID, LOG_USER);
    syslog(LOG_WARNING, "text with : colon");
    closelog();
    board().ask("trace.note", {{"text", "later"}});
    const std::vector<Json> all = events({});
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].at("kind"), "log");
    EXPECT_EQ(all[0].at("ident"), "somebody");
    EXPECT_EQ(all[0].at("priority"), LOG_WARNING);
    EXPECT_EQ(all[0].at("pid"), getpid());
    EXPECT_EQ(all[0].at("text"), "text with : colon");
    EXPECT_EQ(all[1].at("kind"), "note");
}

TEST_F(BoardWorld, CanBeFollowedFromTheMomentItSaysSo) {
    std::vector<int> levels;
    Client follower = Client::of_this_board();
    std::thread world;
    follower.follow(
        "gpio.watch", {{"line", 9}},
        [&](const Json& event) {
            levels.push_back(event.at("level").get<int>());
            return levels.size() < 3;
        },
        [&] {
            world = std::thread([] {
                Client client = Client::of_this_board();
                for (const int level : {1, 0, 1}) {
                    client.ask("gpio.drive", {{"line", 8}, {"level", level}});
                    client.ask("gpio.drive", {{"line", 9}, {"level", level}});
                }
            });
        });
    world.join();
    EXPECT_THAT(levels, testing::ElementsAre(1, 0, 1));
}

TEST_F(BoardWorld, RefusesQuestionsItDoesNotUnderstand) {
    EXPECT_THROW(board().ask("no.such.verb"), ClientError);
    EXPECT_THROW(board().ask("gpio.drive", {{"line", 1}}), ClientError);
    EXPECT_THROW(board().ask("gpio.drive", {{"line", "one"}, {"level", 1}}), ClientError);
    EXPECT_THROW(board().ask("gpio.drive", {{"line", -1}, {"level", 1}}), ClientError);
    EXPECT_EQ(drive(1, 1).at("level"), 1) << "and goes on";
}

} // namespace
} // namespace vb
