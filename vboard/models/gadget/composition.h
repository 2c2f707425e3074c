#pragma once
// Gadgets as programs put them together in /sys/kernel/config/usb_gadget: mkdir makes one, a link
// from a configuration to a function takes the function in, a controller's name in UDC binds it.
//
// It is done as the kernel does it, with three choices of ours: "none" unbinds, as an empty name
// does; a controller that is not there is ENODEV, and a gadget that cannot be bound says why.

#include "core/json.h"
#include "models/gadget/port.h"

namespace vb::gadget {

// A directory in functions/.
class Functions : public configfs::Item {
  public:
    explicit Functions(Port& port) : Item("functions"), port_(port) {}
    bool has(const configfs::Item& item) const;

  protected:
    int make(const std::string& name, std::shared_ptr<configfs::Item>& made) override;
    void drop(configfs::Item& item) override;

  private:
    Port& port_;
};

class Gadget;

// A directory in configs/.
class ConfigurationItem : public configfs::Item {
  public:
    ConfigurationItem(Gadget& gadget, const std::string& name, std::uint8_t value);

    const ConfigurationOptions& options() const { return options_; }
    const Strings& texts() const { return *texts_; }
    std::vector<std::shared_ptr<Function>> functions() const;

  protected:
    bool takes_links() const override { return true; }
    int link(configfs::Item& target) override;
    void unlink(configfs::Item& target) override;

  private:
    struct Linked {
        const configfs::Item* item;
        std::shared_ptr<Function> function;
    };

    int set_power(std::string_view text);
    int set_attributes(std::string_view text);

    Gadget& gadget_;
    ConfigurationOptions options_;
    std::shared_ptr<Strings> texts_;
    std::vector<Linked> linked_; // in the order of the links
};

class Configurations : public configfs::Item {
  public:
    explicit Configurations(Gadget& gadget) : Item("configs"), gadget_(gadget) {}
    // In the order in which they were made.
    const std::vector<std::shared_ptr<ConfigurationItem>>& all() const { return all_; }

  protected:
    int make(const std::string& name, std::shared_ptr<configfs::Item>& made) override;
    void drop(configfs::Item& item) override;

  private:
    Gadget& gadget_;
    std::vector<std::shared_ptr<ConfigurationItem>> all_;
};

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
    int bind(std::string_view controller);
    int set_speed(std::string_view text);

    Port& port_;
    DeviceFields fields_;
    std::size_t fastest_;                 // of the names of speeds
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
