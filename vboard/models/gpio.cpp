// The board's GPIO character driver, by default at /dev/drvgpio.
//
// What is ours to choose, and what programs may rely on:
// - Trigger kinds are 1 rising, 2 falling, 3 both edges; others never fire.
// - `param` of an output is the level it starts with: 0 low, anything else high.
// - A line beyond the board is EINVAL; a line nobody has configured is ENXIO; driving an input is
//   EPERM. A line may be configured again; releasing it makes it an input without a name.
// - Every open of the node has an event queue of its own, 64 deep; a full queue drops the newest
//   event and counts it. One read returns one event, 8 bytes: line, then level after the edge.

#include "models/kinds.h"
#include "models/support/line_world.h"
#include "serve/device_node.h"
#include "serve/event_file.h"

#include <fmt/format.h>

#include <cerrno>

namespace vb {

namespace {

constexpr char kGpioBank[] = "gpio";
constexpr std::size_t kQueueDepth = 64;

struct ConfigRecord {
    std::uint32_t line;
    char label[32];
    std::uint32_t direction;
    std::uint32_t trigger;
    std::uint32_t interrupt;
    std::uint32_t param;
};
static_assert(sizeof(ConfigRecord) == 52);

struct ValueRecord {
    std::uint32_t line;
    std::uint32_t value;
};
static_assert(sizeof(ValueRecord) == 8);

using FieldType = RecordField::Type;

constexpr RecordField kConfigFields[] = {
    {"line", FieldType::u32, 0},       {"label", FieldType::text, 4, 32},
    {"direction", FieldType::u32, 36}, {"trigger", FieldType::u32, 40},
    {"interrupt", FieldType::u32, 44}, {"param", FieldType::u32, 48},
};
constexpr RecordField kValueFields[] = {
    {"line", FieldType::u32, 0},
    {"value", FieldType::u32, 4},
};

enum Trigger : std::uint32_t { kOnRising = 1, kOnFalling = 2, kOnBoth = 3 };

struct GpioLine {
    bool configured = false;
    std::string label;
    bool output = false;
    std::uint32_t trigger = 0;
    bool interrupt = false;
    std::uint32_t param = 0;

    bool fires_on(bool level) const {
        return interrupt && (trigger == kOnBoth || (trigger == kOnRising && level) ||
                             (trigger == kOnFalling && !level));
    }
};

class GpioFile;

class Gpio : public Model, private LineDriver {
  public:
    Gpio(Board& board, Settings& settings);

    Outcome configure(const ConfigRecord& record);
    Outcome set(const ValueRecord& record);
    Outcome get(ValueRecord& record);
    Outcome release(const ValueRecord& record);

  private:
    void on_level(unsigned number, bool level);
    int check(std::uint32_t line);

    bool is_output(unsigned line) const override { return lines_[line].output; }
    bool in_use(unsigned line) const override { return lines_[line].configured; }
    Json show_line(unsigned number) const override;
    void add_to_list(Json& list) const override { list["overflows"] = opens_.overflows(); }

    Board& board_;
    std::string node_;
    LineBank& bank_;
    std::vector<GpioLine> lines_;
    EventOpens<GpioFile> opens_;
};

using Direction = RequestRow::Direction;

constexpr RequestRow kGpioRequests[] = {
    request<&Gpio::configure>(0x40086721, "CMD_GPIO_CONFIG", Direction::in, kConfigFields),
    request<&Gpio::set>(0x40086722, "CMD_GPIO_SETVAL", Direction::in, kValueFields),
    request<&Gpio::get>(0xC0086723, "CMD_GPIO_GETVAL", Direction::inout, kValueFields),
    request<&Gpio::release>(0x40086724, "CMD_GPIO_DECONFIG", Direction::in, kValueFields),
};

class GpioFile : public EventFile<ValueRecord, DriverFile<Gpio>> {
  public:
    explicit GpioFile(Gpio& driver) : EventFile(kQueueDepth, driver, kGpioRequests) {}
};

// --- the driver ---

Gpio::Gpio(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      bank_(add_lines(board, kGpioBank, settings.number("lines", 65536))),
      lines_(bank_.count()) {
    set_levels(bank_, settings);
    bank_.watch_all([this](unsigned line, bool level) { on_level(line, level); });
    board_.tree().put(node_, device_node(opens_, *this));
    add_line_verbs(board, bank_, *this);
}

int Gpio::check(std::uint32_t line) {
    if (line >= lines_.size()) {
        board_.misuse(node_, fmt::format("line {} is beyond the board", line));
        return EINVAL;
    }
    if (!lines_[line].configured) {
        board_.misuse(node_, fmt::format("line {} is not configured", line));
        return ENXIO;
    }
    return 0;
}

Outcome Gpio::configure(const ConfigRecord& record) {
    if (record.line >= lines_.size() || record.direction > 1) {
        board_.misuse(node_, fmt::format("cannot configure line {} with direction {}", record.line,
                                         record.direction));
        return Outcome::failed(EINVAL);
    }
    GpioLine& line = lines_[record.line];
    line.configured = true;
    line.label.assign(record.label, strnlen(record.label, sizeof record.label));
    line.output = record.direction == 1;
    line.trigger = record.trigger;
    line.interrupt = record.interrupt != 0;
    line.param = record.param;
    if (line.output) {
        bank_.set(record.line, record.param != 0, "program");
    }
    return Outcome::done();
}

Outcome Gpio::set(const ValueRecord& record) {
    if (const int error = check(record.line); error != 0) {
        return Outcome::failed(error);
    }
    if (!lines_[record.line].output) {
        board_.misuse(node_, fmt::format("line {} is an input and cannot be set", record.line));
        return Outcome::failed(EPERM);
    }
    bank_.set(record.line, record.value != 0, "program");
    return Outcome::done();
}

Outcome Gpio::get(ValueRecord& record) {
    if (const int error = check(record.line); error != 0) {
        return Outcome::failed(error);
    }
    record.value = bank_.level(record.line) ? 1 : 0;
    return Outcome::done();
}

Outcome Gpio::release(const ValueRecord& record) {
    if (const int error = check(record.line); error != 0) {
        return Outcome::failed(error);
    }
    lines_[record.line] = GpioLine{};
    return Outcome::done();
}

void Gpio::on_level(unsigned number, bool level) {
    if (!lines_[number].fires_on(level)) {
        return;
    }
    const ValueRecord event{number, level ? 1U : 0U};
    board_.trace().add("event", {{"node", node_},
                                 {"line", number},
                                 {"value", event.value},
                                 {"label", lines_[number].label}});
    opens_.push(event, board_.trace(), {{"node", node_}, {"line", number}});
}

// --- the world outside ---

Json Gpio::show_line(unsigned number) const {
    const GpioLine& line = lines_[number];
    return {{"line", number},          {"configured", line.configured},
            {"label", line.label},     {"direction", line.output ? "out" : "in"},
            {"trigger", line.trigger}, {"interrupt", line.interrupt},
            {"param", line.param},     {"level", bank_.level(number) ? 1 : 0}};
}

constexpr SettingRow kGpioSettings[] = {
    {"node", R"("/dev/drvgpio")", ""},
    {"lines", "512", "how many"},
    {"levels", "{}",
     "line number to the level that the outside gives it at the start, such as 1 for a pull-up"},
};

} // namespace

const ModelKind kGpio{"gpio", "the GPIO driver", kGpioSettings, make_model<Gpio>};

} // namespace vb
