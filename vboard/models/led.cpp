// The LEDs of the front panel, by default at /dev/led.
//
// What is ours to choose, and what programs may rely on. One request sets one LED. Its record has
// seven words of 32 bits, low byte first:
//       word 0  LED, from 0
//            1  reserved, 0
//            2  mode: 0 off, 1 on, 2 blinking
//            3  milliseconds lit of each blink
//            4  milliseconds dark of each blink
//            5  brightness, 0 to 255
//            6  colour, 0xRRGGBB
// Words 3 and 4 are looked at when it blinks, and are not 0 then; a blinking LED starts lit. A word
// that says anything else is EINVAL, and the LED stays as it was. LEDs start off and keep their
// setting when the node is closed.

#include "models/kinds.h"
#include "serve/device_node.h"

#include <array>
#include <cerrno>

namespace vb {

namespace {

struct LedRecord {
    std::uint32_t led;
    std::uint32_t reserved;
    std::uint32_t mode;
    std::uint32_t on_ms;
    std::uint32_t off_ms;
    std::uint32_t brightness;
    std::uint32_t colour;
};
static_assert(sizeof(LedRecord) == 28);

using FieldType = RecordField::Type;

constexpr RecordField kLedFields[] = {
    {"led", FieldType::u32, 0},     {"reserved", FieldType::u32, 4},
    {"mode", FieldType::u32, 8},    {"on_ms", FieldType::u32, 12},
    {"off_ms", FieldType::u32, 16}, {"brightness", FieldType::u32, 20},
    {"colour", FieldType::u32, 24},
};

enum Mode : std::uint32_t { kOff = 0, kOn = 1, kBlink = 2 };
constexpr std::array kModes = {"off", "on", "blink"};

class Led : public Model {
  public:
    Led(Board& board, Settings& settings);

    Outcome set(const LedRecord& record);

  private:
    struct State {
        LedRecord record{};
        std::int64_t since = 0;
    };

    const char* what_is_wrong(const LedRecord& record) const;
    bool is_lit(const State& led) const;
    Json show(std::size_t number) const;
    void add_verbs();

    Board& board_;
    std::string node_;
    std::vector<State> leds_;
};

constexpr RequestRow kLedRequests[] = {
    request<&Led::set>(0x40084C21, "LED_SET", RequestRow::Direction::in, kLedFields),
};

Led::Led(Board& board, Settings& settings)
    : board_(board),
      node_(settings.get<std::string>("node")),
      leds_(settings.number("leds", 65536)) {
    board_.tree().put(node_, driver_node(*this, kLedRequests));
    add_verbs();
}

const char* Led::what_is_wrong(const LedRecord& record) const {
    if (record.led >= leds_.size()) {
        return "there is no such LED";
    }
    if (record.reserved != 0) {
        return "the reserved word is not 0";
    }
    if (record.mode >= kModes.size()) {
        return "there is no such mode";
    }
    if (record.mode == kBlink && (record.on_ms == 0 || record.off_ms == 0)) {
        return "a blink needs both its times";
    }
    if (record.brightness > 255 || record.colour > 0xFFFFFF) {
        return "brightness or colour is too high";
    }
    return nullptr;
}

Outcome Led::set(const LedRecord& record) {
    if (const char* wrong = what_is_wrong(record); wrong != nullptr) {
        board_.misuse(node_, fmt::format("LED {}: {}", record.led, wrong));
        return Outcome::failed(EINVAL);
    }
    leds_[record.led] = {record, board_.now()};
    Json event = show(record.led);
    event["node"] = node_;
    board_.trace().add("led", event);
    return Outcome::done();
}

// --- the world outside ---

bool Led::is_lit(const State& led) const {
    if (led.record.mode != kBlink) {
        return led.record.mode == kOn;
    }
    const std::int64_t period = std::int64_t{led.record.on_ms} + led.record.off_ms;
    return (board_.now() - led.since) / kMillisecond % period < led.record.on_ms;
}

Json Led::show(std::size_t number) const {
    const State& led = leds_[number];
    return {{"led", number},
            {"mode", kModes[led.record.mode]},
            {"lit", is_lit(led)},
            {"on_ms", led.record.on_ms},
            {"off_ms", led.record.off_ms},
            {"brightness", led.record.brightness},
            {"colour", fmt::format("{:06x}", led.record.colour)}};
}

void Led::add_verbs() {
    Verbs& verbs = board_.verbs();
    verbs.add(
        {"led.show",
         {Argument::index("led", leds_.size())},
         "an LED's setting",
         [this](const Json& arguments) { return show(arguments["led"].get<std::size_t>()); }});
    verbs.add({"led.list", {}, "the LEDs that are not off", [this](const Json&) {
                   Json list = Json::array();
                   for (std::size_t number = 0; number < leds_.size(); ++number) {
                       if (leds_[number].record.mode != kOff) {
                           list.push_back(show(number));
                       }
                   }
                   return list;
               }});
}

constexpr SettingRow kLedSettings[] = {
    {"node", R"("/dev/led")", ""},
    {"leds", "64", "how many"},
};

} // namespace

const ModelKind kLed{"led", "the front panel's LEDs", kLedSettings, make_model<Led>};

} // namespace vb
