// An IDT6965 clock generator: 8-bit registers with 8-bit numbers on an I2C bus.
//
// What is ours to choose, and what programs may rely on:
// - The VCO runs at 12.5 MHz times the feedback integer of registers 0x17 and 0x18, whichever
//   input is selected; an output divides it by its integer and 24-bit fraction. An output whose
//   divider is below 1 has no frequency (null).
// - An output is on where its divider control is 0x81, its bits in both enable registers are set
//   and its own enable register says 1. Its frequency is shown whether or not it is on.
// - Registers are 0 at power-on; nothing resets the chip.

#include "models/i2c_adapter.h"
#include "models/kinds.h"
#include "models/support/frequency_verb.h"
#include "models/support/register_table.h"

namespace vb {

namespace {

constexpr RegisterRow kIdt6965Registers[] = {
    {0x10, 12, "pll"},
    {0x1C, 1, "pll_control"},
    {0x21, 1, "output1_divider_control"},
    {0x22, 14, "output1_divider"},
    {0x31, 1, "output2_divider_control"},
    {0x32, 14, "output2_divider"},
    {0x41, 1, "output3_divider_control"},
    {0x42, 14, "output3_divider"},
    {0x51, 1, "output4_divider_control"},
    {0x52, 14, "output4_divider"},
    {0x60, 1, "output1_mode"},
    {0x61, 1, "output1_enable"},
    {0x62, 1, "output2_mode"},
    {0x63, 1, "output2_enable"},
    {0x64, 1, "output3_mode"},
    {0x65, 1, "output3_enable"},
    {0x66, 1, "output4_mode"},
    {0x67, 1, "output4_enable"},
    {0x68, 1, "enable_a"},
    {0x69, 1, "enable_b"},
};

constexpr unsigned kIdt6965Outputs = 4;
constexpr double kReferenceHz = 12.5e6;
constexpr unsigned kFeedback = 0x17;
constexpr unsigned kEnableA = 0x68;
constexpr unsigned kEnableB = 0x69;
constexpr unsigned kDividerRuns = 0x81;
constexpr double kFractionOne = 1 << 24;

class Idt6965 : public Model, private I2cDevice {
  public:
    Idt6965(Board& board, Settings& settings);

  private:
    void write(ByteView bytes) override { registers_.write(bytes); }
    Bytes read(std::size_t count) override { return registers_.read(count); }
    Bytes read_on(std::size_t count) override { return registers_.read_on(count); }

    unsigned feedback() const;
    bool output_on(unsigned output) const;
    Json output_hz(unsigned output) const;
    Json show() const;

    unsigned device_;
    RegisterTable registers_;
};

Idt6965::Idt6965(Board& board, Settings& settings)
    : device_(settings.number("device", 255)),
      registers_(board, fmt::format("idt6965[{}]", device_), {1, 1}, kIdt6965Registers) {
    attach_to_i2c(board, settings, *this);
    const bool alone =
        board.verbs().add_for("device", device_,
                              {"idt6965.show",
                               {},
                               "a clock generator: VCO and outputs in Hz, modes, registers",
                               [this](const Json&) { return show(); }});
    if (!alone) {
        settings.refuse("device", fmt::format("there is an idt6965 {} already", device_));
    }
    add_frequency_verb(
        board.verbs(), "idt6965", device_, 1, kIdt6965Outputs,
        [this](unsigned output) { return output_on(output) ? output_hz(output) : Json(); });
}

// A 12-bit number: eight bits in one register, four at the top of the next.
unsigned twelve_bits(const RegisterTable& registers, unsigned first) {
    return static_cast<unsigned>(registers.value(first) << 4 | registers.value(first + 1) >> 4);
}

unsigned Idt6965::feedback() const {
    return twelve_bits(registers_, kFeedback);
}

bool Idt6965::output_on(unsigned output) const {
    const unsigned bit = 0x80U >> output;
    return registers_.value(0x11 + 0x10 * output) == kDividerRuns &&
           (registers_.value(kEnableA) & registers_.value(kEnableB) & bit) != 0 &&
           (registers_.value(0x5F + 2 * output) & 1U) != 0;
}

Json Idt6965::output_hz(unsigned output) const {
    const unsigned block = 0x12 + 0x10 * output;
    const unsigned whole = twelve_bits(registers_, block + 11);
    // The fraction lies left-aligned after 6 bits: 2 + 8 + 8 + 6 bits in four registers.
    std::uint32_t packed = 0;
    for (unsigned i = 0; i < 4; ++i) {
        packed = packed << 8 | registers_.value(block + i);
    }
    const std::uint32_t fraction = packed >> 2 & 0xFFFFFF;
    if (whole == 0 || feedback() == 0) {
        return nullptr;
    }
    return feedback() * kReferenceHz / (whole + fraction / kFractionOne);
}

Json Idt6965::show() const {
    Json outputs = Json::array();
    for (unsigned output = 1; output <= kIdt6965Outputs; ++output) {
        outputs.push_back({{"output", output},
                           {"hz", output_hz(output)},
                           {"on", output_on(output)},
                           {"mode", registers_.value(0x5E + 2 * output) >> 5}});
    }
    return {{"device", device_},
            {"vco_hz", feedback() * kReferenceHz},
            {"outputs", outputs},
            {"registers", registers_.show()}};
}

constexpr SettingRow kIdt6965Settings[] = {
    {"bus", nullptr, ""},
    {"address", nullptr, "7 bits"},
    {"device", "0", "its number in verbs"},
};

} // namespace

const ModelKind kIdt6965{"idt6965", "a clock generator", kIdt6965Settings, make_model<Idt6965>};

} // namespace vb
