#pragma once
// What a gadget is made of: its functions, and the configurations that they are linked into.

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

} // namespace vb::gadget
