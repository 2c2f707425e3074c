// A CDCM6208 clock synthesizer: 16-bit registers 0 to 21 with 16-bit numbers on an I2C bus.
//
// What is ours to choose, and what programs may rely on:
// - While the power-down or the reset line is low the chip does not answer its address (ENXIO),
//   and it comes back with every register at 0. Pulled up and left alone it answers.
// - Register 3 bit 6 clear holds the chip in soft reset, where registers stay as they are. The PLL
//   locks, and status register 21 bit 2 is set, when lock_ms of board time have passed since the
//   bit was set; a chip that was never given its registers is not locked.
// - Outputs 4 to 7 have a frequency while their fractional divider is on (control word bit 9) and
//   whether or not the PLL is locked. What divides for outputs 0 to 3 is not known: null.

#include "models/i2c_adapter.h"
#include "models/kinds.h"
#include "models/support/frequency_verb.h"
#include "models/support/line_world.h"
#include "models/support/register_table.h"

namespace vb {

namespace {

constexpr RegisterRow kCdcm6208Registers[] = {
    {0, 3, "setup"},
    {3, 1, "control"},
    {4, 5, "input_and_integer_outputs"},
    {9, 1, "output4_control"},
    {10, 1, "output4_high"},
    {11, 1, "output4_low"},
    {12, 1, "output5_control"},
    {13, 1, "output5_high"},
    {14, 1, "output5_low"},
    {15, 1, "output6_control"},
    {16, 1, "output6_high"},
    {17, 1, "output6_low"},
    {18, 1, "output7_control"},
    {19, 1, "output7_high"},
    {20, 1, "output7_low"},
    {21, 1, "status", 0, 0},
};

constexpr unsigned kControl = 3;
constexpr unsigned kRunning = 0x0040; // in kControl
constexpr unsigned kStatus = 21;
constexpr unsigned kLocked = 0x0004; // in kStatus
constexpr unsigned kCdcm6208Outputs = 8;
constexpr unsigned kFirstFractional = 4;
constexpr unsigned kDividerOn = 0x0200; // in an output's control word
constexpr double kDividedHz = 400e6;    // what prescaler and fractional divider divide
constexpr double kOne = 1 << 20;        // 1 in the divider's fixed point

class Cdcm6208 : public Model, private I2cDevice {
  public:
    Cdcm6208(Board& board, Settings& settings);

  private:
    bool answers() const override { return powered_ && out_of_reset_; }
    void write(ByteView bytes) override { registers_.write(bytes); }
    Bytes read(std::size_t count) override { return registers_.read(count); }
    Bytes read_on(std::size_t count) override { return registers_.read_on(count); }

    void add_verbs(Settings& settings);
    void start_over();
    void on_written(unsigned number, unsigned before);
    void begin_to_lock();
    void unlock();
    Json output_hz(unsigned output) const;
    Json show() const;

    Board& board_;
    unsigned device_;
    std::int64_t lock_ns_;
    RegisterTable registers_;
    bool powered_ = true;
    bool out_of_reset_ = true;
    std::uint64_t locking_ = 0; // the timer, while it runs
};

Cdcm6208::Cdcm6208(Board& board, Settings& settings)
    : board_(board),
      device_(settings.number("device", 255)),
      lock_ns_(settings.number("lock_ms", 1'000'000) * 1'000'000LL),
      registers_(board, fmt::format("cdcm6208[{}]", device_), {2, 2}, kCdcm6208Registers) {
    attach_to_i2c(board, settings, *this);
    const auto follow = [&](const char* name, bool Cdcm6208::*pin) {
        follow_line(board, settings, name, [this, pin](bool high) {
            this->*pin = high;
            start_over();
        });
    };
    follow("power_down", &Cdcm6208::powered_);
    follow("reset", &Cdcm6208::out_of_reset_);
    registers_.on_written(
        [this](std::uint16_t number, std::uint16_t before) { on_written(number, before); });
    add_verbs(settings);
}

// --- reset and lock ---

void Cdcm6208::start_over() {
    unlock();
    registers_.reset();
}

void Cdcm6208::on_written(unsigned number, unsigned before) {
    if (number != kControl) {
        return;
    }
    const bool ran = (before & kRunning) != 0;
    const bool runs = (registers_.value(kControl) & kRunning) != 0;
    if (runs && !ran) {
        begin_to_lock();
    } else if (!runs) {
        unlock();
    }
}

void Cdcm6208::begin_to_lock() {
    unlock();
    const auto lock = [this] {
        locking_ = 0;
        registers_.set(kStatus, kLocked);
        board_.trace().add("lock", {{"chip", "cdcm6208"}, {"device", device_}});
    };
    if (lock_ns_ == 0) {
        lock();
    } else {
        locking_ = board_.after(lock_ns_, lock);
    }
}

void Cdcm6208::unlock() {
    if (locking_ != 0) {
        board_.cancel(std::exchange(locking_, 0));
    }
    registers_.set(kStatus, 0);
}

// --- what comes out ---

Json Cdcm6208::output_hz(unsigned output) const {
    if (output < kFirstFractional || output >= kCdcm6208Outputs || !answers()) {
        return nullptr;
    }
    const unsigned first = 9 + 3 * (output - kFirstFractional);
    const unsigned control = registers_.value(first);
    if ((control & kDividerOn) == 0) {
        return nullptr;
    }
    // Prescaler 2 upwards; the divider's integer part is written less one.
    const double prescaler = 2.0 + (control >> 10 & 7U);
    const std::uint32_t fixed =
        static_cast<std::uint32_t>(registers_.value(first + 1)) << 16 | registers_.value(first + 2);
    const double divider = fixed / kOne + 1.0;
    return kDividedHz / prescaler / divider;
}

Json Cdcm6208::show() const {
    Json outputs = Json::array();
    for (unsigned output = 0; output < kCdcm6208Outputs; ++output) {
        outputs.push_back({{"output", output}, {"hz", output_hz(output)}});
    }
    return {{"device", device_},
            {"powered", answers()},
            {"locked", (registers_.value(kStatus) & kLocked) != 0},
            {"lock_ms", lock_ns_ / 1'000'000},
            {"outputs", outputs},
            {"registers", registers_.show()}};
}

void Cdcm6208::add_verbs(Settings& settings) {
    Verbs& verbs = board_.verbs();
    const bool alone = verbs.add_for("device", device_,
                                     {"cdcm6208.show",
                                      {},
                                      "a synthesizer: power, lock, outputs in Hz, registers",
                                      [this](const Json&) { return show(); }});
    if (!alone) {
        settings.refuse("device", fmt::format("there is a cdcm6208 {} already", device_));
    }
    add_frequency_verb(verbs, "cdcm6208", device_, 0, kCdcm6208Outputs - 1,
                       [this](unsigned output) { return output_hz(output); });
    verbs.add_for("device", device_,
                  {"cdcm6208.lock_ms",
                   {Argument::integer("ms", 0, 1'000'000)},
                   "how long the PLL takes to lock from the next reset on",
                   [this](const Json& arguments) -> Json {
                       lock_ns_ = arguments["ms"].get<std::int64_t>() * 1'000'000;
                       return {};
                   }});
}

constexpr SettingRow kCdcm6208Settings[] = {
    {"bus", nullptr, ""},
    {"address", nullptr, "7 bits"},
    {"device", "0", "its number in verbs"},
    {"power_down", R"("")",
     "a line, \"bank:number\", of a model that stands before this one; high where there is none"},
    {"reset", R"("")", "the same"},
    {"lock_ms", "5", "how long the PLL takes to lock"},
};

} // namespace

const ModelKind kCdcm6208{"cdcm6208", "a clock synthesizer", kCdcm6208Settings,
                          make_model<Cdcm6208>};

} // namespace vb
