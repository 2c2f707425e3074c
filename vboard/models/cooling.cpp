// The board's temperature and the fans that lower it.
//
// The thermal zone is /sys/class/thermal/thermal_zone0: `temp` in thousandths of a degree Celsius,
// `type`. The board settles at `ambient` plus the rise that its heat makes, which the air of the
// fans divides: rise / (1 + `airflow` x the mean of rpm / `max_rpm`). It gets there with a time
// constant of `seconds`.
//
// Each fan is /dev/pwm-fanN. A speed request's second word is the speed in percent, 0 to 100; a
// power request's is 1 or 0; the words after it are 0. A fan that has power turns at its percentage
// of `max_rpm`, and gets to it, or comes to rest, with a time constant of `spin_seconds`. Refused:
// an unknown request (ENOTTY), a record for another channel than the node's, and values out of
// range (EINVAL); each of them is misuse.

#include "models/kinds.h"
#include "serve/attribute.h"
#include "serve/device_node.h"

#include <cerrno>
#include <cmath>

namespace vb {

namespace {

struct SpeedRecord {
    std::uint32_t channel;
    std::uint32_t reserved;
    std::uint32_t rpm;
};
static_assert(sizeof(SpeedRecord) == 12);

struct FanRecord {
    std::uint32_t channel;
    std::uint32_t value;
    std::uint32_t zero0;
    std::uint32_t zero1;
};
static_assert(sizeof(FanRecord) == 16);

using FieldType = RecordField::Type;

constexpr RecordField kSpeedFields[] = {
    {"channel", FieldType::u32, 0},
    {"rpm", FieldType::u32, 8},
};
constexpr RecordField kControlFields[] = {
    {"channel", FieldType::u32, 0},
    {"value", FieldType::u32, 4},
};

struct Fan {
    unsigned percent = 40;
    bool power = true;
    bool stalled = false; // something holds its blades
    double rpm = 0;
};

class Cooling : public Model {
  public:
    Cooling(Board& board, Settings& settings);

    // The fan of a channel as it turns now; none where the record names another.
    Fan* fan_for(unsigned channel, std::uint32_t named);
    Outcome refuse(unsigned channel, const char* why);

  private:
    Fan& fan_at(const Json& arguments);
    void add_verbs();
    // Lets the time since the last look pass.
    void catch_up();
    void pass(double seconds);
    double target_rpm(const Fan& fan) const;
    double settled_temperature() const;

    Board& board_;
    std::vector<Fan> fans_;
    double max_rpm_;
    double spin_seconds_;
    double ambient_;
    double rise_;
    double airflow_;
    double seconds_;
    double temperature_;
    std::optional<double> pinned_;
    std::int64_t seen_ = 0;
};

class FanFile : public File {
  public:
    FanFile(Cooling& cooling, unsigned channel) : cooling_(cooling), channel_(channel) {}

    std::span<const RequestRow> requests() const override;
    Outcome get_speed(SpeedRecord& record);
    Outcome set_speed(const FanRecord& record);
    Outcome set_power(const FanRecord& record);

  private:
    Cooling& cooling_;
    unsigned channel_;
};

using Direction = RequestRow::Direction;

constexpr RequestRow kFanRequests[] = {
    request<&FanFile::get_speed>(0x80084612, "PWM_LASER_GET_SPEED", Direction::inout, kSpeedFields),
    request<&FanFile::set_speed>(0x40084611, "PWM_LASER_SET_SPEED", Direction::in, kControlFields),
    request<&FanFile::set_power>(0x40084613, "PWM_LASER_POWER_CTL", Direction::in, kControlFields),
};

std::string node_of(std::size_t channel) {
    return fmt::format("/dev/pwm-fan{}", channel);
}

Cooling::Cooling(Board& board, Settings& settings)
    : board_(board),
      fans_(settings.number("fans", 16)),
      max_rpm_(settings.number("max_rpm", 100000)),
      spin_seconds_(settings.get<double>("spin_seconds")),
      ambient_(settings.get<double>("ambient")),
      rise_(settings.get<double>("rise")),
      airflow_(settings.get<double>("airflow")),
      seconds_(settings.get<double>("seconds")) {
    if (!(spin_seconds_ > 0) || !(seconds_ > 0) || !(airflow_ >= 0)) {
        settings.refuse("seconds", "times have to be above 0, and the airflow not below");
    }
    for (std::size_t channel = 0; channel < fans_.size(); ++channel) {
        fans_[channel].rpm = target_rpm(fans_[channel]);
        board.tree().put(node_of(channel),
                         device_node<FanFile>(*this, static_cast<unsigned>(channel)));
    }
    temperature_ = settled_temperature();
    constexpr char kZone[] = "/sys/class/thermal/thermal_zone0";
    board.tree().put(fmt::format("{}/temp", kZone),
                     line_attribute(
                         [this] {
                             catch_up();
                             return std::to_string(std::lround(temperature_ * 1000));
                         },
                         nullptr));
    board.tree().put(fmt::format("{}/type", kZone), fixed_attribute("board-thermal"));
    add_verbs();
}

// --- time ---

double Cooling::target_rpm(const Fan& fan) const {
    return fan.power && !fan.stalled ? max_rpm_ * fan.percent / 100.0 : 0;
}

double Cooling::settled_temperature() const {
    double air = 0;
    for (const Fan& fan : fans_) {
        air += fan.rpm / max_rpm_ / static_cast<double>(fans_.size());
    }
    return ambient_ + rise_ / (1 + airflow_ * air);
}

void Cooling::pass(double seconds) {
    for (Fan& fan : fans_) {
        fan.rpm += (target_rpm(fan) - fan.rpm) * -std::expm1(-seconds / spin_seconds_);
    }
    temperature_ += (settled_temperature() - temperature_) * -std::expm1(-seconds / seconds_);
    temperature_ = pinned_.value_or(temperature_);
}

// In steps that are short beside a fan's inertia; of a long time only the end matters.
void Cooling::catch_up() {
    constexpr double kStep = 0.05;
    constexpr double kLongest = 10000 * kStep;
    double left = static_cast<double>(board_.now() - seen_) / 1e9;
    seen_ = board_.now();
    if (left > kLongest) {
        pass(left - kLongest);
        left = kLongest;
    }
    while (left > kStep) {
        pass(kStep);
        left -= kStep;
    }
    pass(left);
}

// --- requests ---

std::span<const RequestRow> FanFile::requests() const {
    return kFanRequests;
}

Outcome Cooling::refuse(unsigned channel, const char* why) {
    board_.misuse(node_of(channel), why);
    return Outcome::failed(EINVAL);
}

Fan* Cooling::fan_for(unsigned channel, std::uint32_t named) {
    catch_up();
    if (named != channel) {
        refuse(channel, "a record for another channel");
        return nullptr;
    }
    return &fans_[channel];
}

Outcome FanFile::get_speed(SpeedRecord& record) {
    const Fan* fan = cooling_.fan_for(channel_, record.channel);
    if (fan == nullptr) {
        return Outcome::failed(EINVAL);
    }
    record.rpm = static_cast<std::uint32_t>(std::lround(fan->rpm));
    return Outcome::done();
}

Outcome FanFile::set_speed(const FanRecord& record) {
    Fan* fan = cooling_.fan_for(channel_, record.channel);
    if (fan == nullptr) {
        return Outcome::failed(EINVAL);
    }
    if (record.value > 100) {
        return cooling_.refuse(channel_, "speed is 0 to 100");
    }
    fan->percent = record.value;
    return Outcome::done();
}

Outcome FanFile::set_power(const FanRecord& record) {
    Fan* fan = cooling_.fan_for(channel_, record.channel);
    if (fan == nullptr) {
        return Outcome::failed(EINVAL);
    }
    if (record.value > 1) {
        return cooling_.refuse(channel_, "power is 0 or 1");
    }
    fan->power = record.value != 0;
    return Outcome::done();
}

// --- the world ---

Fan& Cooling::fan_at(const Json& arguments) {
    return fans_[arguments["channel"].get<std::size_t>()];
}

void Cooling::add_verbs() {
    Verbs& verbs = board_.verbs();
    const Argument channel = Argument::index("channel", fans_.size());
    verbs.add({"fan.show", {channel}, "how a fan turns", [this](const Json& arguments) -> Json {
                   catch_up();
                   const Fan& fan = fan_at(arguments);
                   return {{"percent", fan.percent},
                           {"power", fan.power ? 1 : 0},
                           {"stalled", fan.stalled ? 1 : 0},
                           {"rpm", std::lround(fan.rpm)}};
               }});
    verbs.add({"fan.stall",
               {channel, Argument::flag("stalled")},
               "hold a fan's blades (1), let go (0)",
               [this](const Json& arguments) -> Json {
                   catch_up();
                   fan_at(arguments).stalled = arguments["stalled"] != 0;
                   return nullptr;
               }});
    verbs.add({"thermal.rise",
               {Argument::number("degrees", 0, 1000)},
               "let the board's heat raise it by so much without air",
               [this](const Json& arguments) -> Json {
                   catch_up();
                   rise_ = arguments["degrees"].get<double>();
                   return nullptr;
               }});
    verbs.add({"thermal.show",
               {},
               "the temperature in degrees, and whether it is held",
               [this](const Json&) -> Json {
                   catch_up();
                   return {{"degrees", temperature_}, {"pinned", pinned_.has_value()}};
               }});
    verbs.add({"thermal.pin",
               {Argument::number("degrees", -273, 1000).or_none("it goes its own way again")},
               "hold the temperature",
               [this](const Json& arguments) -> Json {
                   catch_up();
                   pinned_.reset();
                   if (arguments.contains("degrees")) {
                       pinned_ = arguments["degrees"].get<double>();
                   }
                   return nullptr;
               }});
}

constexpr SettingRow kCoolingSettings[] = {
    {"fans", "2", "how many"},
    {"max_rpm", "4800", ""},
    {"spin_seconds", "0.8", "a fan's time constant"},
    {"ambient", "25", "degrees"},
    {"rise", "45", "degrees that the heat raises the board by without any air"},
    {"airflow", "3", "by how much all fans at full speed divide that"},
    {"seconds", "20", "the board's time constant"},
};

} // namespace

const ModelKind kCooling{"cooling", "thermal zone and fans", kCoolingSettings, make_model<Cooling>};

} // namespace vb
