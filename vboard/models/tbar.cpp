// A T-bar fader, at /dev/tbar and its number.
//
// What is ours to choose, and what programs may rely on:
// - The data is 3 bytes: the position from 0 to 1023 in the first two, low byte first; the third
//   has bit 0 while the fader moves and bit 1 while it is locked. It can be read at any time.
// - Every open is readable (POLLIN) from a change of the data until it has read it. Changes that
//   come in between are not queued: the data is what holds now.
// - The lock value is the one byte that the request's size field speaks of: anything but 0 holds
//   the fader where it is, also one that is being moved; 0 lets go of it. Of a larger number a
//   program gives, the driver sees the low byte only. The lock outlives the open that set it.

#include "models/kinds.h"
#include "serve/device_node.h"

#include <algorithm>
#include <array>

namespace vb {

namespace {

constexpr unsigned kHighest = 1023;
constexpr std::uint8_t kMovingBit = 1;
constexpr std::uint8_t kLockedBit = 2;

using Data = std::array<std::uint8_t, 3>;
using FieldType = RecordField::Type;

constexpr RecordField kDataFields[] = {
    {"position", FieldType::u16, 0},
    {"state", FieldType::u8, 2},
};
constexpr RecordField kLockFields[] = {{"lock", FieldType::u8, 0}};

class TbarFile;

class Tbar : public Model {
  public:
    Tbar(Board& board, Settings& settings);

    Data data() const;
    Outcome set_lock(std::uint8_t lock);

  private:
    // A movement under way.
    struct Travel {
        unsigned from;
        unsigned to;
        std::int64_t start;
        std::int64_t length;
    };

    void move(unsigned to, std::int64_t length);
    void look();
    void settle(unsigned position, bool moving);
    Json show() const;
    void add_verbs(const Settings& settings);

    Board& board_;
    unsigned number_;
    std::string node_;
    unsigned position_;
    std::int64_t step_;
    bool moving_ = false;
    std::uint8_t lock_ = 0;
    Travel travel_{};
    std::uint64_t timer_ = 0;
    Opens<TbarFile> opens_;
};

// --- one open ---

class TbarFile : public DriverFile<Tbar> {
  public:
    explicit TbarFile(Tbar& tbar);

    Outcome get_data(Data& data) {
        news_ = false;
        data = driver().data();
        return Outcome::done();
    }
    short readiness() const override { return news_ ? kReadable : 0; }
    void tell() {
        news_ = true;
        changed();
    }

  private:
    bool news_ = false; // the data has changed since this open read it
};

using Direction = RequestRow::Direction;

constexpr RequestRow kTbarRequests[] = {
    request<&TbarFile::get_data>(0x80035400, "TBAR_READ", Direction::out, kDataFields),
    request<&Tbar::set_lock>(0x40015401, "TBAR_SET_LOCK", Direction::in, kLockFields),
};

TbarFile::TbarFile(Tbar& tbar) : DriverFile(tbar, kTbarRequests) {}

// --- the driver ---

Tbar::Tbar(Board& board, Settings& settings)
    : board_(board),
      number_(settings.number("number", 255)),
      node_(fmt::format("/dev/tbar{}", number_)),
      position_(settings.number("position", kHighest)),
      step_(settings.number("step_ms", 1000) * kMillisecond) {
    if (step_ == 0) {
        settings.refuse("step_ms", "has to be 1 or more");
    }
    board_.tree().put(node_, device_node(opens_, *this));
    add_verbs(settings);
}

Data Tbar::data() const {
    const int state = (moving_ ? kMovingBit : 0) | (lock_ != 0 ? kLockedBit : 0);
    return {static_cast<std::uint8_t>(position_ & 0xFF), static_cast<std::uint8_t>(position_ >> 8),
            static_cast<std::uint8_t>(state)};
}

Outcome Tbar::set_lock(std::uint8_t lock) {
    if (lock != lock_) {
        lock_ = lock;
        board_.cancel(timer_);
        settle(position_, false);
    }
    return Outcome::done();
}

// Where the fader is now, and that everybody is to know.
void Tbar::settle(unsigned position, bool moving) {
    position_ = position;
    moving_ = moving;
    Json event = show();
    event["node"] = node_;
    board_.trace().add("tbar", std::move(event));
    for (TbarFile* file : opens_) {
        file->tell();
    }
}

// --- the world outside ---

void Tbar::move(unsigned to, std::int64_t length) {
    board_.cancel(timer_);
    travel_ = {position_, to, board_.now(), length};
    look();
}

void Tbar::look() {
    const std::int64_t gone = board_.now() - travel_.start;
    if (gone >= travel_.length) {
        if (moving_ || position_ != travel_.to) {
            settle(travel_.to, false);
        }
        return;
    }
    const std::int64_t way = std::int64_t{travel_.to} - travel_.from;
    const auto position = static_cast<unsigned>(travel_.from + way * gone / travel_.length);
    if (!moving_ || position_ != position) {
        settle(position, true);
    }
    timer_ = board_.after(std::min(step_, travel_.length - gone), [this] { look(); });
}

Json Tbar::show() const {
    return {{"number", number_}, {"position", position_}, {"moving", moving_}, {"lock", lock_}};
}

void Tbar::add_verbs(const Settings& settings) {
    Verbs& verbs = board_.verbs();
    Verb move_verb{"tbar.move",
                   {Argument::integer("position", 0, kHighest),
                    Argument::integer("over_ms", 0, 3'600'000).or_else(0)},
                   "move a fader, evenly over this time; a locked one stays where it is",
                   [this](const Json& arguments) {
                       if (lock_ == 0) {
                           move(arguments["position"].get<unsigned>(),
                                arguments["over_ms"].get<std::int64_t>() * kMillisecond);
                       }
                       return show();
                   }};
    if (!verbs.add_for("number", number_, std::move(move_verb))) {
        settings.refuse("number", fmt::format("there is a T-bar {} already", number_));
    }
    verbs.add_for(
        "number", number_,
        {"tbar.show", {}, "a fader's position and lock", [this](const Json&) { return show(); }});
}

constexpr SettingRow kTbarSettings[] = {
    {"number", "0", "N"},
    {"position", "0", "where it stands at first"},
    {"step_ms", "10", "how often the driver looks at the fader while it moves"},
};

} // namespace

const ModelKind kTbar{"tbar", "a T-bar fader, `/dev/tbarN`", kTbarSettings, make_model<Tbar>};

} // namespace vb
