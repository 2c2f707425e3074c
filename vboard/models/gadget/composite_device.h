#pragma once
// What a host finds at the other end of its cable while a gadget is bound: a device with the
// gadget's configurations. It answers as the kernel's composite framework and a controller that can
// do high speed, but no more.

#include "models/gadget/layout.h"

namespace vb::gadget {

// The fields of the device descriptor that programs set.
struct DeviceFields {
    std::uint16_t usb = 0;
    std::uint8_t device_class = 0;
    std::uint8_t subclass = 0;
    std::uint8_t protocol = 0;
    std::uint8_t packet = 0;
    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::uint16_t version = 0x0510; // the kernel's
};

// As the kernel names them.
enum class DeviceState { not_attached, powered, reset, addressed, configured, suspended };
const char* name_of(DeviceState state);

class CompositeDevice : public usb::Device {
  public:
    using Listener = std::function<void(DeviceState state)>;

    // The fields are its own to change where the controller knows better.
    CompositeDevice(DeviceFields& fields, const usb::Speed& speed)
        : fields_(fields), fastest_(speed) {}

    // --- for the gadget ---

    // Binds the functions of all configurations: 0, or an errno and none is bound.
    int bind(const Strings& texts, std::vector<Configuration> configurations,
             const std::vector<const Strings*>& configuration_texts);
    void unbind();

    // --- for the controller ---

    void on_state(Listener listener) { listener_ = std::move(listener); }
    DeviceState state() const { return state_; }
    void power(bool on); // the bus has it; where not, nobody has configured the device

    // --- for the host ---

    usb::Speed speed() const override { return fastest_; }
    void control(const usb::Setup& setup, ByteView data, usb::Completion completion) override;
    void in(std::uint8_t endpoint, std::size_t length, usb::Completion completion) override;
    void out(std::uint8_t endpoint, ByteView data, usb::Completion completion) override;
    void abort(std::uint8_t endpoint) override;
    void reset_bus() override;
    void suspend() override;
    void resume() override;

  private:
    static constexpr std::size_t kControlBuffer = 4096; // no request has more data
    using Answer = std::optional<Bytes>;                // nothing is a stall

    Answer answer(const usb::Setup& setup, ByteView data);
    Answer ask_function(const usb::Setup& setup, ByteView data);
    Answer descriptor(const usb::Setup& setup);
    Bytes device_descriptor();
    Bytes qualifier_descriptor() const;
    Answer set_address();
    Answer set_configuration(std::uint16_t value);
    Answer set_interface(const usb::Setup& setup);
    Answer status(const usb::Setup& setup) const;
    Answer set_feature(const usb::Setup& setup, bool set);
    Answer halt(std::uint16_t index, bool halted);

    Function* function_of(const usb::Setup& setup) const;
    const Endpoint* find_endpoint(unsigned address) const;
    bool enable(Configuration& configuration);
    void disable();
    void enter(DeviceState state);

    DeviceFields& fields_;
    const usb::Speed& fastest_;
    Listener listener_;
    Texts texts_;
    std::uint8_t first_text_ = 0;
    std::vector<Configuration> configurations_;
    Configuration* active_ = nullptr;
    bool remote_wakeup_ = false;
    DeviceState state_ = DeviceState::not_attached;
    DeviceState before_suspend_ = DeviceState::not_attached;
};

} // namespace vb::gadget
