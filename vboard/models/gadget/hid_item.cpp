#include "models/gadget/hid_item.h"

#include "models/gadget/hid_function.h"

#include <cerrno>

namespace vb::gadget {

namespace {

class HidItem : public FunctionItem {
  public:
    HidItem(Board& board, HidMinors& minors, const std::string& name, unsigned minor);

    std::shared_ptr<Function> make_function() override {
        ++in_use_;
        return make_hid_function(board_, name(), minor_, options_);
    }
    void drop_function() override { --in_use_; }
    void retire() override { minors_.taken.erase(minor_); }

  private:
    template <class Number>
    void add_option(const char* name, Number& option, Number most);
    int set_report_descriptor(ByteView bytes);

    Board& board_;
    HidMinors& minors_;
    unsigned minor_;
    unsigned in_use_ = 0; // nothing can be changed while there is one
    HidOptions options_;
};

template <class Number>
void HidItem::add_option(const char* name, Number& option, Number most) {
    add(
        name, [&option] { return std::to_string(option); },
        [this, &option, most](std::string_view text) {
            Number value{};
            const int error = in_use_ > 0 ? EBUSY : configfs::store_number(text, value);
            if (error != 0 || value > most) {
                return error != 0 ? error : EINVAL;
            }
            option = value;
            return 0;
        });
}

HidItem::HidItem(Board& board, HidMinors& minors, const std::string& name, unsigned minor)
    : FunctionItem(name), board_(board), minors_(minors), minor_(minor) {
    add_option<std::uint8_t>("subclass", options_.subclass, 255);
    add_option<std::uint8_t>("protocol", options_.protocol, 255);
    add_option<std::uint8_t>("no_out_endpoint", options_.no_out_endpoint, 1);
    add_option<std::uint16_t>("report_length", options_.report_length, 65535);
    add_bytes(
        "report_desc",
        [this] {
            const Bytes& bytes = options_.report_descriptor;
            return std::string(bytes.begin(), bytes.end());
        },
        [this](const WriteCall& call) { return set_report_descriptor(call.data); });
    add(
        "dev", [this] { return fmt::format("{}:{}", kHidMajor, minor_); }, nullptr);
}

int HidItem::set_report_descriptor(ByteView bytes) {
    if (in_use_ > 0) {
        return EBUSY;
    }
    options_.report_descriptor.assign(bytes.begin(), bytes.end());
    return 0;
}

} // namespace

int make_hid_item(Board& board, HidMinors& minors, const std::string& name,
                  std::shared_ptr<FunctionItem>& item) {
    unsigned minor = 0;
    while (minors.taken.contains(minor)) {
        ++minor;
    }
    if (minor >= HidMinors::kCount) {
        return ENODEV;
    }
    minors.taken.insert(minor);
    item = std::make_shared<HidItem>(board, minors, name, minor);
    return 0;
}

} // namespace vb::gadget
