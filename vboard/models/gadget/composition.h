#pragma once
// Gadgets as programs put them together in /sys/kernel/config/usb_gadget: mkdir makes one, a link
// from a configuration to a function takes the function in, a controller's name in UDC binds it.
//
// It is done as the kernel does it, with three choices of ours: "none" unbinds, as an empty name
// does; a controller that is not there is ENODEV, and a gadget that cannot be bound says why.

#include "core/json.h"
#include "models/gadget/configurations.h"

namespace vb::gadget {

class Gadget : public configfs::Item {
  public:
    Gadget(Port& port, const std::string& name);

    bool bound() const { return controller_ != nullptr; }
    void unbind();
    const Functions& functions() const { return *functions_; }
    bool has(const configfs::Item& configuration) const {
        return configurations_->find(configuration.name()).get() == &configuration;
    }
    Json show() const;

  private:
    template <class Number>
    void add_number(const char* name, Number& number);
    void add_version(const char* name, std::uint16_t& version);
    int set_controller(ByteView bytes);
    int bind(std::string_view name);
    int set_speed(std::string_view text);

    Port& port_;
    DeviceFields fields_;
    std::size_t fastest_ = 0;             // of the names of speeds
    usb::Speed speed_ = usb::Speed::high; // what comes of it
    CompositeDevice device_{fields_, speed_};
    Controller* controller_ = nullptr;
    std::shared_ptr<Functions> functions_;
    std::shared_ptr<Configurations> configurations_;
    std::shared_ptr<Strings> texts_;
};

// The directory usb_gadget itself.
class Gadgets : public configfs::Item {
  public:
    explicit Gadgets(Port& port) : Item("usb_gadget"), port_(port) {}
    Json show() const;

  protected:
    int make(const std::string& name, std::shared_ptr<configfs::Item>& made) override;

  private:
    Port& port_;
};

} // namespace vb::gadget
