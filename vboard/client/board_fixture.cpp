#include "client/board_fixture.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

namespace vb {

namespace {

std::size_t entries_of(const char* folder) {
    const std::filesystem::directory_iterator all(folder);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// "ERROR hal_gpio:57: text" -> the text
std::string without_prefix(const std::string& text) {
    const std::size_t colon = text.find(": ");
    return colon == std::string::npos ? text : text.substr(colon + 2);
}

// A failed test leaves what happened on the board, beside the test program.
void keep_trace(const std::vector<Json>& trace) {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path folder = "failed";
    std::error_code ignored;
    std::filesystem::create_directory(folder, ignored);
    const auto path = folder / fmt::format("{}.{}.trace", test->test_suite_name(), test->name());
    std::ofstream file(path);
    for (const Json& event : trace) {
        file << event.dump() << '\n';
    }
    std::fprintf(stderr, "the trace of the board: %s\n", std::filesystem::absolute(path).c_str());
}

// What the kernel finishes a moment after the call that began it has returned: asks until the
// expected answer comes, for a while.
template <class Count>
auto settled(const Count& count, decltype(count()) expected) {
    constexpr int kPatience = 10'000;
    auto now = count();
    for (int i = 0; i < kPatience && now != expected; ++i) {
        std::this_thread::yield();
        now = count();
    }
    return now;
}

} // namespace

void BoardTest::SetUp() {
    speed_ = board_.ask("clock.show").at("speed").get<double>();
    started_ = board_.ask("trace.last").get<std::uint64_t>();
    since_ = started_;
    descriptors_ = descriptors();
    threads_ = threads();
}

void BoardTest::TearDown() {
    const Json trace = board_.ask("trace.read", {{"since", started_}});
    for (const Json& event : trace) {
        if (event["kind"] == "bug" || (event["kind"] == "misuse" && !misuse_expected_)) {
            ADD_FAILURE() << event.dump();
        }
    }
    EXPECT_EQ(descriptors(), descriptors_) << "descriptors were left open";
    EXPECT_EQ(settled(threads, threads_), threads_) << "threads were left running";
    if (HasFailure()) {
        keep_trace(trace.get<std::vector<Json>>());
    }
    put_back(trace);
}

// What the next test on this board must not find; the trace tells what there is of it.
void BoardTest::put_back(const Json& trace) {
    clear_faults();
    bool speed_set = false;
    std::set<std::string> holds;
    std::set<std::string> gone;
    for (const Json& event : trace) {
        const std::string kind = event["kind"];
        speed_set = speed_set || kind == "clock";
        if (kind == "node" && event["state"] == "gone") {
            gone.insert(event["node"]);
        } else if (kind == "node") {
            gone.erase(event["node"]);
        } else if (const std::string action = event.value("action", "");
                   action.starts_with("hold=")) {
            holds.insert(action.substr(action.find('=') + 1));
        }
    }
    for (const std::string& tag : holds) {
        board_.ask("fault.release", {{"tag", tag}});
    }
    for (const std::string& node : gone) {
        appear(node);
    }
    if (speed_set) {
        set_speed(speed_);
    }
}

int BoardTest::opens(const std::string& node, int expected) {
    return settled([&] { return board_.ask("node.opens", {{"path", node}}).get<int>(); }, expected);
}

std::vector<Json> BoardTest::events(const Json& match) {
    return board_.ask("trace.read", {{"since", since_}, {"match", match}}).get<std::vector<Json>>();
}

Json BoardTest::expect_event(const Json& match) {
    const auto event = board_.wait(since_, match);
    EXPECT_TRUE(event) << "no event like " << match.dump();
    return event.value_or(Json::object());
}

void BoardTest::expect_none(const Json& match) {
    for (const Json& event : events(match)) {
        ADD_FAILURE() << "unexpected: " << event.dump();
    }
}

std::vector<std::string> BoardTest::logged() {
    return logged("");
}

std::vector<std::string> BoardTest::logged(const std::string& level) {
    std::vector<std::string> texts;
    for (const Json& event : events({{"kind", "log"}})) {
        const auto text = event["text"].get<std::string>();
        if (text.starts_with(level)) {
            texts.push_back(without_prefix(text));
        }
    }
    return texts;
}

void BoardTest::sweep(const std::string& node, const std::string& error,
                      const std::function<void()>& run, const std::function<void(bool)>& check) {
    constexpr unsigned kFarTooMany = 10'000;
    for (unsigned failing = 1; failing < kFarTooMany; ++failing) {
        SCOPED_TRACE(fmt::format("call {} on {} fails with {}", failing, node, error));
        clear_faults();
        add_fault(fmt::format("{}:any:{}:after={}:once", node, error, failing - 1));
        const std::size_t before = descriptors();
        run();
        const bool failed = board_.ask("fault.list").at(0).at("struck") != 0;
        check(failed);
        EXPECT_EQ(descriptors(), before) << "descriptors were left open";
        if (!failed) {
            clear_faults();
            return;
        }
    }
    ADD_FAILURE() << "the sweep does not end";
}

std::size_t BoardTest::descriptors() {
    return entries_of("/proc/self/fd");
}

std::size_t BoardTest::threads() {
    return entries_of("/proc/self/task");
}

} // namespace vb
