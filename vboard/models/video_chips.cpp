// The board's video interface chips: HDMI receivers, transmitters and converters of four families,
// on I2C buses. The families have one set of registers and differ in what kVideoFamilies says.
//
// Registers are a byte each. Their numbers are two bytes on the bus, in an it6264 one.
//
//   0x00, 0x01  read-only  identity, the high byte first: the family's
//   0x02        read-only  revision, 0x10
//   0x03                   status: bit 0 something is plugged into the HDMI socket; bits 1 and 2
//   the
//                          EDID: 0 not checked, 1 being checked, 2 good, 3 bad; bit 7 the chip has
//                          started over, cleared by writing 1
//   0x04                   control: bit 0 the chip runs
//   0x05                   EDID control: writing 1 to bit 0 lets the chip check its EDID
//   0x10, 0x11             mode, the low byte first
//   0x12 to 0x17           set-up values a to f
//   0x18                   bit 0: the output is on
//   0x19                   bit 0: the input's equaliser is on
//   0x1A to 0x21           options 0 to 7; 0xFF, which they are after a reset, means none
//   0x100 to 0x1FF         the EDID, in families that have one
//
// What is ours to choose besides, and what programs may rely on:
// - While the reset line is low the chip does not answer its address (ENXIO), and it comes back
// with
//   its registers as after power-on. Chips may share a line. What is plugged in stays plugged in.
// - An EDID is good if each of its blocks sums to 0: the base block, and the extension behind it
//   where the base block says that there is one. The check takes check_ms of board time; writing to
//   the EDID takes its result away.
// - Set-up values, modes and options are kept and shown, and change nothing else.

#include "models/i2c_adapter.h"
#include "models/kinds.h"
#include "models/support/line_world.h"
#include "models/support/register_table.h"

#include <numeric>

namespace vb {

namespace {

constexpr unsigned kStatusRegister = 0x03;
constexpr unsigned kPlugged = 0x01;     // in kStatusRegister
constexpr unsigned kEdidState = 0x06;   // in kStatusRegister
constexpr unsigned kStartedOver = 0x80; // in kStatusRegister
constexpr unsigned kControlRegister = 0x04;
constexpr unsigned kEdidControl = 0x05;
constexpr unsigned kEdidFirst = 0x100;
constexpr unsigned kEdidBlock = 128;
constexpr unsigned kEdidSize = 2 * kEdidBlock;
constexpr unsigned kExtensionCount = 126; // where the base block says how many follow

constexpr RegisterRow kVideoChipRegisters[] = {
    {0x00, 2, "identity", 0, 0},
    {0x02, 1, "revision", 0x10, 0},
    {kStatusRegister, 1, "status", kStartedOver, 0, kStartedOver},
    {kControlRegister, 1, "control", 0, 0x01},
    {kEdidControl, 1, "edid_control", 0, 0x01},
    {0x10, 1, "mode_low"},
    {0x11, 1, "mode_high"},
    {0x12, 1, "setup_a"},
    {0x13, 1, "setup_b"},
    {0x14, 1, "setup_c"},
    {0x15, 1, "setup_d"},
    {0x16, 1, "setup_e"},
    {0x17, 1, "setup_f"},
    {0x18, 1, "output", 0, 0x01},
    {0x19, 1, "equaliser", 0, 0x01},
    {0x1A, 8, "option", 0xFF},
    {kEdidFirst, kEdidSize, "edid"}, // the last, since not every family has it
};

struct VideoFamily {
    const char* name;
    const char* about;
    unsigned identity;
    unsigned number_bytes;
    bool has_edid;
};

constexpr VideoFamily kVideoFamilies[] = {
    {"gsv2001", "an HDMI receiver", 0xC101, 2, true},
    {"gsv2002", "an HDMI transmitter", 0xC102, 2, false},
    {"gsv20xx", "an HDMI receiver with a loop-through", 0xC111, 2, true},
    {"it6264", "an HDMI converter", 0xC264, 1, false},
};

std::span<const RegisterRow> registers_of(const VideoFamily& family) {
    const std::span<const RegisterRow> all = kVideoChipRegisters;
    return family.has_edid ? all : all.first(all.size() - 1);
}

enum EdidState : unsigned { kNotChecked = 0, kChecking = 1, kGood = 2, kBad = 3 };
constexpr const char* kEdidStates[] = {"not checked", "being checked", "good", "bad"};

class VideoChip : public Model, private I2cDevice {
  public:
    VideoChip(Board& board, Settings& settings, const VideoFamily& family);

  private:
    bool answers() const override { return out_of_reset_; }
    void write(ByteView bytes) override { registers_.write(bytes); }
    Bytes read(std::size_t count) override { return registers_.read(count); }
    Bytes read_on(std::size_t count) override { return registers_.read_on(count); }

    void start_over();
    void on_written(unsigned number);
    void plug(bool plugged);
    EdidState edid_state() const;
    void set_edid_state(EdidState state);
    Bytes edid() const;
    void add_verbs(Settings& settings);
    Json show() const;

    Board& board_;
    const VideoFamily& family_;
    unsigned device_;
    std::int64_t check_ns_;
    RegisterTable registers_;
    bool plugged_ = false;
    bool out_of_reset_ = true;
    std::uint64_t checking_ = 0; // the timer, while it runs
};

VideoChip::VideoChip(Board& board, Settings& settings, const VideoFamily& family)
    : board_(board),
      family_(family),
      device_(settings.number("device", 255)),
      check_ns_(settings.number("check_ms", 1'000'000) * kMillisecond),
      registers_(board, fmt::format("{}[{}]", family.name, device_), {family.number_bytes, 1},
                 registers_of(family)),
      plugged_(settings.get<bool>("plugged")) {
    attach_to_i2c(board, settings, *this);
    follow_line(board, settings, "reset", [this](bool high) {
        out_of_reset_ = high;
        start_over();
    });
    registers_.on_written([this](std::uint16_t number, std::uint16_t) { on_written(number); });
    add_verbs(settings);
}

// --- reset and hot plug ---

void VideoChip::start_over() {
    registers_.reset();
    registers_.set(0, family_.identity >> 8);
    registers_.set(1, family_.identity & 0xFF);
    set_edid_state(kNotChecked);
    plug(plugged_);
}

void VideoChip::plug(bool plugged) {
    plugged_ = plugged;
    const unsigned others = registers_.value(kStatusRegister) & ~kPlugged;
    registers_.set(kStatusRegister, plugged ? others | kPlugged : others);
}

// --- the EDID ---

EdidState VideoChip::edid_state() const {
    return static_cast<EdidState>((registers_.value(kStatusRegister) & kEdidState) >> 1);
}

void VideoChip::set_edid_state(EdidState state) {
    if (checking_ != 0) {
        board_.cancel(std::exchange(checking_, 0));
    }
    const unsigned others = registers_.value(kStatusRegister) & ~kEdidState;
    registers_.set(kStatusRegister, others | static_cast<unsigned>(state) << 1);
}

Bytes VideoChip::edid() const {
    Bytes bytes(kEdidSize);
    for (unsigned i = 0; i < kEdidSize; ++i) {
        bytes[i] = static_cast<std::uint8_t>(registers_.value(kEdidFirst + i));
    }
    return bytes;
}

bool sums_to_zero(ByteView block) {
    return std::accumulate(block.begin(), block.end(), 0U) % 256 == 0;
}

// All zeros sum to 0, too, and are no EDID: one begins with 00 FF.
bool is_good_edid(ByteView edid) {
    const ByteView base = edid.first(kEdidBlock);
    return base[0] == 0 && base[1] == 0xFF && sums_to_zero(base) &&
           (base[kExtensionCount] == 0 || sums_to_zero(edid.subspan(kEdidBlock)));
}

void VideoChip::on_written(unsigned number) {
    if (number >= kEdidFirst) {
        set_edid_state(kNotChecked);
    }
    if (number != kEdidControl || registers_.value(kEdidControl) == 0) {
        return;
    }
    registers_.set(kEdidControl, 0);
    set_edid_state(kChecking);
    checking_ = board_.after(check_ns_, [this] {
        checking_ = 0;
        set_edid_state(is_good_edid(edid()) ? kGood : kBad);
    });
}

// --- the world outside ---

Json VideoChip::show() const {
    Json registers = registers_.show();
    for (unsigned i = 0; i < kEdidSize; ++i) {
        registers.erase(fmt::format("edid+{}", i)); // shown as a whole
    }
    Json shown = {{"device", device_},
                  {"answers", answers()},
                  {"running", registers_.value(kControlRegister) != 0},
                  {"plugged", plugged_},
                  {"registers", registers}};
    if (family_.has_edid) {
        shown["edid"] = to_hex(edid());
        shown["edid_state"] = kEdidStates[edid_state()];
    }
    return shown;
}

void VideoChip::add_verbs(Settings& settings) {
    const std::string group = family_.name;
    const bool alone = board_.verbs().add_for(
        "device", device_,
        {group + ".show",
         {},
         std::string(family_.about) + ": what is plugged in, EDID, registers",
         [this](const Json&) { return show(); }});
    if (!alone) {
        settings.refuse("device", fmt::format("there is {} {} already", group, device_));
    }
    board_.verbs().add_for("device", device_,
                           {group + ".plug",
                            {Argument::flag("plugged")},
                            "plug something into its HDMI socket, or pull it out",
                            [this](const Json& arguments) -> Json {
                                plug(arguments["plugged"] != 0);
                                board_.trace().add("hot_plug", {{"chip", family_.name},
                                                                {"device", device_},
                                                                {"plugged", plugged_}});
                                return {};
                            }});
}

constexpr SettingRow kVideoChipSettings[] = {
    {"bus", nullptr, ""},
    {"address", nullptr, "7 bits"},
    {"device", "0", "its number in verbs"},
    {"reset", R"("")",
     "a line, \"bank:number\", of a model that stands before this one; high where there is none"},
    {"check_ms", "5", "how long the chip takes to check an EDID"},
    {"plugged", "false", "whether something is plugged in at the start"},
};

template <std::size_t family>
std::unique_ptr<Model> make_video_chip(Board& board, Settings& settings) {
    return std::make_unique<VideoChip>(board, settings, kVideoFamilies[family]);
}

template <std::size_t family>
constexpr ModelKind video_chip_kind() {
    return {kVideoFamilies[family].name, kVideoFamilies[family].about, kVideoChipSettings,
            make_video_chip<family>};
}

} // namespace

const ModelKind kGsv2001 = video_chip_kind<0>();
const ModelKind kGsv2002 = video_chip_kind<1>();
const ModelKind kGsv20xx = video_chip_kind<2>();
const ModelKind kIt6264 = video_chip_kind<3>();

} // namespace vb
