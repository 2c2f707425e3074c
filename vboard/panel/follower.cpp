#include "panel/follower.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

namespace vb::panel {

namespace {

constexpr std::size_t kMostEvents = 500; // in a batch
constexpr std::size_t kMostBytes = 128 << 10;
constexpr std::uint64_t kFarBehind = 5'000;

// An event begins with it; 0 where this is none.
std::uint64_t number_of(std::string_view event) {
    constexpr std::string_view kBefore = R"({"n":)";
    std::uint64_t number = 0;
    if (event.starts_with(kBefore)) {
        std::from_chars(event.data() + kBefore.size(), event.data() + event.size(), number);
    }
    return number;
}

// Such a text cannot stand inside of one of an event's texts, whose quotes are written otherwise.
bool is_forgotten(std::string_view event) {
    return event.find(R"("kind":"forgotten")") != std::string_view::npos;
}

} // namespace

void Follower::start(int launcher, bool from_its_start) {
    client_ = Client::of_launcher(launcher);
    client_->give_up_after(std::chrono::seconds(5));
    client_->ask("trace.follow");
    expected_.reset();
    early_.clear();
    if (from_its_start) {
        expected_ = 1;
        const Json events = Client::of_launcher(launcher).ask("trace.read");
        const std::size_t left_out = events.size() - std::min(events.size(), kMostEvents);
        for (auto event = events.begin() + static_cast<std::ptrdiff_t>(left_out);
             event != events.end(); ++event) {
            early_.push_back(event->dump());
        }
    }
}

void Follower::sort_in(std::string line, Batch& batch) {
    const std::uint64_t number = number_of(line);
    const std::uint64_t expected = expected_.value_or(number);
    if (number < expected || number == 0) {
        return; // it came early already
    }
    const bool forgotten = is_forgotten(line);
    batch.lost += number - expected + (forgotten ? 1 : 0);
    expected_ = number + 1;
    if (!forgotten) {
        batch.events.push_back(std::move(line));
    }
}

Follower::Batch Follower::take(int launcher, std::uint64_t newest) {
    Batch batch;
    for (std::string& event : std::exchange(early_, {})) {
        sort_in(std::move(event), batch);
    }
    std::size_t bytes = 0;
    std::string line;
    auto came = LineStream::Came::line;
    while (came == LineStream::Came::line && batch.events.size() < kMostEvents &&
           bytes < kMostBytes) {
        came = client_->take(line);
        if (came == LineStream::Came::line) {
            bytes += line.size();
            sort_in(std::move(line), batch);
        }
    }
    if (came == LineStream::Came::end) {
        throw ClientError(ClientError::Kind::unreachable, "the board has ended");
    }
    if (expected_ && newest > *expected_ + kFarBehind) {
        const std::uint64_t behind = *expected_;
        start(launcher, false);
        expected_ = behind; // the next event tells how many there were between
    }
    return batch;
}

} // namespace vb::panel
