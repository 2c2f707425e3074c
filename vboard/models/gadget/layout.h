#pragma once
// A gadget as it was when it was bound: its configurations with their interfaces and endpoints, and
// the numbers of its texts.

#include "models/gadget/function.h"
#include "models/gadget/strings.h"

#include <map>
#include <vector>

namespace vb::gadget {

// What a directory in configs/ says.
struct ConfigurationOptions {
    std::uint8_t value = 0;
    std::uint8_t attributes = 0x80;
    std::uint16_t power = 2; // mA
};

struct Endpoint {
    Function* function = nullptr;
    InPipe* in = nullptr; // one of the two
    OutPipe* out = nullptr;

    Pipe& pipe() const { return in != nullptr ? static_cast<Pipe&>(*in) : *out; }
};

struct Configuration {
    ConfigurationOptions options;
    std::uint8_t text = 0;
    std::vector<std::shared_ptr<Function>> functions; // in the order of their links
    std::vector<Function*> interfaces;                // by number
    std::map<std::uint8_t, Endpoint> endpoints;       // by address

    // `type` is that of a configuration, or of one at the other speed.
    Bytes descriptor(std::uint8_t type, usb::Speed speed) const;
};

// The string descriptors, by number and language.
class Texts {
  public:
    // Numbers as many texts as there are in a language; the number of the first, 0 where there is
    // no language.
    std::uint8_t attach(const Strings& strings);
    std::uint8_t attach(const std::string& english);
    // Nothing where there is no such text. Number 0 are the languages.
    std::optional<Bytes> descriptor(std::uint16_t language, std::uint8_t number) const;

  private:
    std::uint8_t next(std::size_t count);

    std::uint8_t last_ = 0;
    std::vector<std::uint16_t> languages_;
    std::map<std::pair<std::uint16_t, std::uint8_t>, std::string> texts_;
};

// Gives out interfaces, endpoints and texts of one configuration.
class ConfigurationAllocation : public Allocation {
  public:
    ConfigurationAllocation(Configuration& configuration, Texts& texts)
        : configuration_(configuration), texts_(texts) {}

    std::uint8_t interface(Function& function) override;
    bool endpoint(Function& function, InPipe& pipe) override;
    bool endpoint(Function& function, OutPipe& pipe) override;
    std::uint8_t text(const std::string& english) override { return texts_.attach(english); }

  private:
    std::optional<std::uint8_t> free_address(std::uint8_t direction) const;

    Configuration& configuration_;
    Texts& texts_;
};

} // namespace vb::gadget
