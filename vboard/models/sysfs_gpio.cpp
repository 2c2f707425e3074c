// GPIO lines as the kernel's GPIO class shows them, at /sys/class/gpio.
//
// As the kernel has it, and easily overlooked:
// - "out" written to direction drives the line low first, also where it is an output already;
//   "high" drives it high. Back to "in" the line has the level that the outside gives it.
// - edge on an output fails with EIO, and the edge it had is lost; so does active_low where it
//   turns one round. But a line with an edge can become an output, and keeps it.
// - unexport forgets edge and active_low, and leaves direction and level alone.
// What differs: gpioN is a directory and no link, and has the four attributes only.

#include "models/kinds.h"
#include "models/support/line_world.h"
#include "serve/attribute.h"

#include <array>
#include <cerrno>

namespace vb {

namespace {

constexpr char kSysfsBank[] = "sysgpio";
constexpr char kClass[] = "/sys/class/gpio";
constexpr std::array kEdges = {"none", "falling", "rising", "both"};
enum Edge : std::size_t { kNone = 0, kFalling = 1, kRising = 2 }; // both: the two together

struct SysfsLine {
    bool output = false;
    bool outside = false; // while it is an output: the level that the outside gives it
    std::size_t edge = kNone;
    bool active_low = false;
    std::shared_ptr<Attribute> value; // while exported

    bool fires_on(bool level) const {
        return (edge & (level != active_low ? kRising : kFalling)) != 0;
    }
};

class SysfsGpio : public Model, private LineDriver {
  public:
    SysfsGpio(Board& board, Settings& settings);

  private:
    int export_line(std::string_view text);
    int unexport_line(std::string_view text);
    void put_attributes(unsigned number);
    int find(std::string_view text, unsigned& line) const;
    int set_direction(unsigned number, std::string_view text);
    int set_output(unsigned number, bool level);
    int set_value(unsigned number, std::string_view text);
    int set_edge(unsigned number, std::string_view text);
    static int ask_for_edge(SysfsLine& line, std::size_t edge);
    int set_active_low(unsigned number, std::string_view text);
    void on_level(unsigned number, bool level);

    bool is_output(unsigned line) const override { return lines_[line].output; }
    bool in_use(unsigned line) const override { return lines_[line].value != nullptr; }
    Json show_line(unsigned number) const override;

    Board& board_;
    LineBank& bank_;
    std::vector<SysfsLine> lines_;
};

std::string folder_of(unsigned line) {
    return fmt::format("{}/gpio{}", kClass, line);
}

SysfsGpio::SysfsGpio(Board& board, Settings& settings)
    : board_(board),
      bank_(add_lines(board, kSysfsBank, settings.number("lines", 65536))),
      lines_(bank_.count()) {
    bank_.watch_all([this](unsigned line, bool level) { on_level(line, level); });
    set_levels(bank_, settings);
    Tree& tree = board.tree();
    const std::string path = kClass;
    tree.put(path + "/export",
             line_attribute(nullptr, [this](std::string_view text) { return export_line(text); }));
    tree.put(path + "/unexport", line_attribute(nullptr, [this](std::string_view text) {
                 return unexport_line(text);
             }));
    tree.put(path + "/gpiochip0/base", fixed_attribute("0"));
    tree.put(path + "/gpiochip0/label", fixed_attribute(kSysfsBank));
    tree.put(path + "/gpiochip0/ngpio", fixed_attribute(std::to_string(lines_.size())));
    add_line_verbs(board, bank_, *this);
}

// --- export and unexport ---

int SysfsGpio::find(std::string_view text, unsigned& line) const {
    long number = 0;
    if (const int error = parse_integer(text, number); error != 0) {
        return error;
    }
    if (number < 0 || static_cast<unsigned long>(number) >= lines_.size()) {
        return EINVAL;
    }
    line = static_cast<unsigned>(number);
    return 0;
}

int SysfsGpio::export_line(std::string_view text) {
    unsigned line = 0;
    if (const int error = find(text, line); error != 0) {
        return error;
    }
    if (in_use(line)) {
        return EBUSY;
    }
    put_attributes(line);
    return 0;
}

void SysfsGpio::put_attributes(unsigned number) {
    SysfsLine& line = lines_[number];
    const auto put = [&](const char* name, ShowLine show,
                         int (SysfsGpio::*store)(unsigned, std::string_view),
                         Attribute::Reading reading = Attribute::Reading::kept) {
        auto attribute = line_attribute(
            std::move(show),
            [this, number, store](std::string_view text) { return (this->*store)(number, text); },
            reading);
        board_.tree().put(fmt::format("{}/{}", folder_of(number), name), attribute);
        return attribute;
    };
    put(
        "direction", [&line] { return line.output ? "out" : "in"; }, &SysfsGpio::set_direction);
    put(
        "edge", [&line] { return kEdges[line.edge]; }, &SysfsGpio::set_edge);
    put(
        "active_low", [&line] { return line.active_low ? "1" : "0"; }, &SysfsGpio::set_active_low);
    line.value = put(
        "value",
        [this, &line, number] { return bank_.level(number) != line.active_low ? "1" : "0"; },
        &SysfsGpio::set_value, Attribute::Reading::fresh);
}

int SysfsGpio::unexport_line(std::string_view text) {
    unsigned number = 0;
    if (const int error = find(text, number); error != 0) {
        return error;
    }
    if (!in_use(number)) {
        return EINVAL;
    }
    board_.remove(folder_of(number));
    SysfsLine& line = lines_[number];
    line.edge = kNone;
    line.active_low = false;
    line.value = nullptr;
    return 0;
}

// --- attributes of a line ---

int SysfsGpio::set_output(unsigned number, bool level) {
    SysfsLine& line = lines_[number];
    if (!line.output) {
        line.output = true;
        line.outside = bank_.level(number);
    }
    bank_.set(number, level, "program");
    return 0;
}

int SysfsGpio::set_direction(unsigned number, std::string_view text) {
    if (is_word(text, "high")) {
        return set_output(number, true);
    }
    if (is_word(text, "out") || is_word(text, "low")) {
        return set_output(number, false);
    }
    if (!is_word(text, "in")) {
        return EINVAL;
    }
    SysfsLine& line = lines_[number];
    if (line.output) {
        line.output = false;
        bank_.set(number, line.outside, "outside");
    }
    return 0;
}

int SysfsGpio::set_value(unsigned number, std::string_view text) {
    const SysfsLine& line = lines_[number];
    long value = 0;
    const int error = parse_integer(text, value);
    if (!line.output) {
        return EPERM;
    }
    if (error == 0) {
        bank_.set(number, (value != 0) != line.active_low, "program");
    }
    return error;
}

int SysfsGpio::set_edge(unsigned number, std::string_view text) {
    for (std::size_t edge = 0; edge < kEdges.size(); ++edge) {
        if (is_word(text, kEdges[edge])) {
            return edge == lines_[number].edge ? 0 : ask_for_edge(lines_[number], edge);
        }
    }
    return EINVAL;
}

// Once more, as an interrupt that only an input can have.
int SysfsGpio::ask_for_edge(SysfsLine& line, std::size_t edge) {
    const bool refused = edge != kNone && line.output;
    line.edge = refused ? static_cast<std::size_t>(kNone) : edge;
    return refused ? EIO : 0;
}

int SysfsGpio::set_active_low(unsigned number, std::string_view text) {
    long value = 0;
    const int error = parse_integer(text, value);
    SysfsLine& line = lines_[number];
    if (error != 0 || line.active_low == (value != 0)) {
        return error;
    }
    line.active_low = value != 0;
    const bool one_edge = line.edge == kRising || line.edge == kFalling;
    return one_edge ? ask_for_edge(line, line.edge) : 0;
}

// --- the electrical side ---

void SysfsGpio::on_level(unsigned number, bool level) {
    const SysfsLine& line = lines_[number];
    if (line.value && line.fires_on(level)) {
        line.value->notify();
    }
}

Json SysfsGpio::show_line(unsigned number) const {
    const SysfsLine& line = lines_[number];
    return {{"line", number},
            {"exported", in_use(number)},
            {"direction", line.output ? "out" : "in"},
            {"edge", kEdges[line.edge]},
            {"active_low", line.active_low ? 1 : 0},
            {"level", bank_.level(number) ? 1 : 0}};
}

constexpr SettingRow kSysfsGpioSettings[] = {
    {"lines", "512", "how many, from 0"},
    {"levels", "{}", "as those of `gpio`"},
};

} // namespace

const ModelKind kSysfsGpio{"sysfs_gpio", "the kernel's GPIO class, `/sys/class/gpio`",
                           kSysfsGpioSettings, make_model<SysfsGpio>};

} // namespace vb
