#include "panel/follower.h"

#include <charconv>
#include <string_view>

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

void Follower::start(int launcher) {
    client_ = Client::of_launcher(launcher);
    client_->give_up_after(std::chrono::seconds(5));
    client_->ask("trace.follow");
    last_ = 0;
}

void Follower::sort_in(std::string line, Batch& batch) {
    const std::uint64_t number = number_of(line);
    if (number == 0) {
        return;
    }
    const bool forgotten = is_forgotten(line);
    const std::uint64_t expected = last_ == 0 ? number : last_ + 1;
    batch.lost += number - expected + (forgotten ? 1 : 0);
    last_ = number;
    if (!forgotten) {
        batch.events.push_back(std::move(line));
    }
}

Follower::Batch Follower::take(int launcher, std::uint64_t newest) {
    Batch batch;
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
    if (last_ != 0 && newest > last_ + kFarBehind) {
        const std::uint64_t behind = last_;
        start(launcher);
        last_ = behind; // the next event tells how many there were between
    }
    return batch;
}

} // namespace vb::panel
