#include "models/gadget/os_descriptors.h"

#include "models/gadget/composition.h"

#include <cerrno>

namespace vb::gadget {

namespace {

constexpr std::size_t kSignatureLength = 7;

// What the kernel takes for yes and no: the first character says it, of "on" and "off" the second.
int store_switch(std::string_view text, bool& value) {
    const char first = text.empty() ? '\0' : static_cast<char>(text[0] | 0x20);
    const char second = text.size() < 2 ? '\0' : static_cast<char>(text[1] | 0x20);
    const bool yes =
        first == 'y' || first == 't' || text.starts_with('1') || (first == 'o' && second == 'n');
    const bool no =
        first == 'n' || first == 'f' || text.starts_with('0') || (first == 'o' && second == 'f');
    value = yes || (!no && value);
    return yes || no ? 0 : EINVAL;
}

} // namespace

OsDescriptors::OsDescriptors(Gadget& gadget) : Item("os_desc"), gadget_(gadget) {
    add(
        "use", [this] { return use_ ? "1" : "0"; },
        [this](std::string_view text) { return store_switch(text, use_); });
    add(
        "b_vendor_code", [this] { return fmt::format("0x{:02x}", vendor_code_); },
        [this](std::string_view text) { return configfs::store_number(text, vendor_code_); });
    add(
        "qw_sign", [this] { return signature_; },
        [this](std::string_view text) {
            text = text.substr(0, kSignatureLength);
            signature_ = text.substr(0, text.size() - (text.ends_with('\n') ? 1 : 0));
            return 0;
        });
}

int OsDescriptors::link(configfs::Item& target) {
    if (dynamic_cast<ConfigurationItem*>(&target) == nullptr || !gadget_.has(target)) {
        return EINVAL;
    }
    if (linked_) {
        return EBUSY;
    }
    linked_ = true;
    return 0;
}

void OsDescriptors::unlink(configfs::Item&) {
    gadget_.unbind();
    linked_ = false;
}

} // namespace vb::gadget
