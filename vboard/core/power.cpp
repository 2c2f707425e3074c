#include "core/power.h"

#include "core/board.h"

namespace vb {

void Power::flush() {
    for (Storage* storage : storages_) {
        storage->flush();
    }
}

void Power::end(const char* how, bool again) {
    on_ = false;
    board_.trace().add("power", {{"state", how}, {"writes", writes_}, {"again", again}});
    if (end_) {
        board_.afterwards([this, again] { end_(again); });
    }
}

void Power::shut_down() {
    if (on_) {
        flush();
    }
}

void Power::restart() {
    if (on_) {
        flush();
        end("restart", true);
    }
}

void Power::cut(std::uint64_t seed, bool again) {
    if (!on_) {
        return;
    }
    std::mt19937_64 chance(seed);
    for (Storage* storage : storages_) {
        storage->lose_power(chance);
    }
    end("cut", again);
}

bool Power::count_write() {
    ++writes_;
    if (order_ && writes_ >= order_->at_write) {
        cut(order_->seed, order_->again);
    }
    return !on_;
}

namespace {

std::uint64_t seed_in(const Json& arguments) {
    return static_cast<std::uint64_t>(arguments["seed"].get<std::int64_t>());
}

} // namespace

void Power::add_verbs() {
    const Argument seed = Argument::integer("seed", 0).or_else(1);
    for (const bool again : {false, true}) {
        const std::string name = again ? "power.cycle" : "power.cut";
        const std::string what = again ? ", and the board starts again" : "";
        board_.verbs().add({name,
                            {seed},
                            "take the power away now" + what,
                            [this, again](const Json& arguments) -> Json {
                                cut(seed_in(arguments), again);
                                return {};
                            }});
        board_.verbs().add(
            {name + "_after",
             {Argument::integer("writes", 1), seed},
             "the same when so many further writes to partitions have come" + what,
             [this, again](const Json& arguments) -> Json {
                 const auto writes = arguments["writes"].get<std::int64_t>();
                 order_ = {writes_ + static_cast<std::uint64_t>(writes), seed_in(arguments), again};
                 return {};
             }});
    }
    board_.verbs().add({"power.restart",
                        {},
                        "flush everything, end all programs and start the board again",
                        [this](const Json&) -> Json {
                            restart();
                            return {};
                        }});
    board_.verbs().add({"power.show",
                        {},
                        "which start of the board this is, and the writes to partitions since",
                        [this](const Json&) -> Json {
                            return {{"start", start_}, {"writes", writes_}};
                        }});
}

} // namespace vb
