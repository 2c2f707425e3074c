// What stands in the trace, and how strange input stands there.

#include "client/client.h"
#include "control/board_verbs.h"
#include "control/control.h"
#include "core/bytes.h"
#include "core/trace.h"
#include "serve/request_row.h"
#include "serve/syslog_socket.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>

namespace vb::trace_test {
namespace {

TEST(Trace, NumbersStampsAndFindsEvents) {
    std::int64_t now = 0;
    Trace trace([&] { return now; });
    trace.add("open", {{"node", "/dev/led"}});
    now = 1'500'000'000;
    trace.add("close", {{"node", "/dev/led"}});
    EXPECT_EQ(trace.last(), 2U);
    ASSERT_EQ(trace.after(1, {}).size(), 1U);
    const Json close = trace.after(0, {{"kind", "close"}}).at(0);
    EXPECT_EQ(close.dump(), R"({"n":2,"t":1.5,"kind":"close","node":"/dev/led"})");
    EXPECT_TRUE(trace.after(0, {{"kind", "close"}, {"node", "/dev/oled"}}).empty());
    EXPECT_TRUE(trace.after(0, {{"line", 3}}).empty());
}

TEST(Trace, KeepsTheBeginningOfALongEventAndSaysHowLongItWas) {
    Trace trace([] { return 0; });
    std::string hearts; // three bytes each
    while (hearts.size() < 1'000'000) {
        hearts += "\u2665";
    }
    trace.add("write", {{"bytes", hearts}, {"error", "EINVAL"}});
    trace.add("program", {{"arguments", std::vector<std::string>(9000, "x")}});
    for (const Json& event : trace.after(0, {})) {
        EXPECT_LT(event.dump().size(), 66'000U);
        EXPECT_GT(event.value("whole", 0), 200'000);
    }
    EXPECT_EQ(trace.after(0, {{"error", "EINVAL"}}).size(), 1U);
}

TEST(Trace, TellsOfCallsOnceSomebodyReadsOfThem) {
    std::int64_t now = 1'000'000'000;
    Trace trace([&] { return now; });
    int told = 0;
    const auto add = [&](const char* kind, std::string text) {
        const std::size_t bytes = text.size();
        const auto tell = [&told, text = std::move(text)](Json& event) {
            ++told;
            event["text"] = text;
        };
        trace.add(kind, tell, bytes);
    };
    add("read", "a");
    now = 2'000'000'000;
    add("write", "b");
    EXPECT_EQ(trace.after(0, {{"kind", "write"}}).at(0).dump(),
              R"({"n":2,"t":2.0,"kind":"write","text":"b"})");
    EXPECT_EQ(told, 1) << "the read was nobody's business";
    EXPECT_EQ(trace.after(0, {{"text", "a"}}).at(0).at("t"), 1.0);

    add("write", std::string(100'000, 'x'));
    EXPECT_GT(trace.after(2, {}).at(0).value("whole", 0), 100'000);
    std::vector<Json> heard;
    trace.listen({{"kind", "write"}}, [&](const Json& event) { heard.push_back(event); });
    add("write", "c");
    EXPECT_EQ(heard, trace.after(3, {}));
    told = 0;
    add("read", "nobody listens to");
    int seen = 0;
    const int watcher = trace.watch([&] { seen += trace.last() > 0 ? 1 : 0; });
    add("read", "told of to nobody");
    trace.unlisten(watcher);
    add("read", "not seen");
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(told, 0);
    EXPECT_EQ(heard.size(), 1U);

    for (int i = 0; i < 40'000; ++i) {
        add("read", std::string(4000, 'x'));
    }
    EXPECT_EQ(trace.after(0, {{"kind", "write"}}).at(0).at("kind"), "forgotten");
}

TEST(Trace, ForgetsTheOldestAndTellsWhoAsksForThem) {
    Trace trace([] { return 0; });
    for (int i = 0; i < 1500; ++i) {
        trace.add("note", {{"text", std::string(60'000, 'x')}});
    }
    const std::vector<Json> all = trace.after(0, {{"kind", "note"}});
    EXPECT_LT(all.size() * 60'000, 64U << 20);
    ASSERT_EQ(all.at(0).at("kind"), "forgotten");
    EXPECT_EQ(all[0]["events"], 1501 - all.size());
    EXPECT_EQ(trace.after(all[0]["n"], {}).at(0), all.at(1)) << "what is asked for is all there";
}

TEST(Trace, IsNotLookedThroughAgainForAClientThatWaits) {
    const std::string name = "vboard-test/" + std::to_string(getpid());
    const auto clock =
        std::filesystem::temp_directory_path() / ("trace-" + std::to_string(getpid()));
    auto& board = *new Board(BoardClock::create(clock)); // NOLINT: as on a board, for good
    std::filesystem::remove(clock);
    add_board_verbs(board);
    (new ControlServer(board))->serve(listen_at(name)); // NOLINT: likewise
    setenv("VBOARD_CONTROL", name.c_str(), 1);
    for (int i = 0; i < 50'000; ++i) {
        board.trace().add("note", {{"text", "x"}});
    }

    const auto cost = [](const auto& deed) { // on a busy machine too
        const std::clock_t before = std::clock();
        deed();
        return std::clock() - before;
    };
    Client client = Client::of_this_board();
    const auto pass = [&] {
        for (int i = 0; i < 400; ++i) {
            client.ask("trace.note", {{"text", "passing"}});
        }
    };
    const Json awaited = {{"kind", "note"}, {"text", "last"}};
    const auto look = cost([&] { board.trace().after(0, awaited); });
    const auto alone = cost(pass);
    std::optional<Json> found;
    std::jthread waiter([&] { found = Client::of_this_board().wait(0, awaited); });
    EXPECT_LT(cost(pass), 3 * (alone + look));
    const Json last = client.ask("trace.note", {{"text", "last"}});
    waiter.join();
    EXPECT_EQ(found.value_or(Json::object()).value("n", Json()), last);
}

TEST(Records, AreDecodedByTheirFieldsAndNeverBeyondTheirEnd) {
    constexpr RecordField kFields[] = {
        {"a", RecordField::Type::u16, 0},        {"b", RecordField::Type::i32, 2},
        {"name", RecordField::Type::text, 6, 4}, {"raw", RecordField::Type::bytes, 6, 2},
        {"beyond", RecordField::Type::u64, 6},
    };
    const Bytes record = {0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 'h', 0xC3, 0, 'x'};
    EXPECT_EQ(decode(kFields, record).dump(), R"({"a":4660,"b":-2,"name":"h?","raw":"68c3"})");
}

TEST(Syslog, MessagesAreTakenApart) {
    const Json plain = parse_syslog("<171>Nov 24 22:03:09 libhal_bsp[12]: ERROR hal_gpio:5: no: x");
    EXPECT_EQ(plain.at("priority"), 3);
    EXPECT_EQ(plain.at("facility"), 21);
    EXPECT_EQ(plain.at("ident"), "libhal_bsp");
    EXPECT_EQ(plain.at("pid"), 12);
    EXPECT_EQ(plain.at("text"), "ERROR hal_gpio:5: no: x");
    EXPECT_EQ(parse_syslog("<13>Nov 24 22:03:09 root: hi").at("ident"), "root");
    for (const char* odd : {"", "<", "<9", "<13>", "<13>Nov", "no brackets at all"}) {
        EXPECT_EQ(parse_syslog(odd).at("pid"), 0) << odd;
    }
}

} // namespace
} // namespace vb::trace_test
