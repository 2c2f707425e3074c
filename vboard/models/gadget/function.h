#pragma once
// A function of a gadget, twice: as programs set it up in configfs, and as the host sees it once
// it is linked into a configuration.

#include "models/gadget/pipe.h"
#include "models/support/configfs.h"

#include <memory>
#include <optional>

namespace vb {
class Board;
}

namespace vb::gadget {

class Function;

// What a function gets while its gadget is being bound.
class Allocation {
  public:
    Allocation() = default;
    virtual ~Allocation() = default;
    Allocation(const Allocation&) = delete;
    Allocation& operator=(const Allocation&) = delete;

    virtual std::uint8_t interface(Function& function) = 0;
    // False where the controller has no endpoint left.
    virtual bool endpoint(Function& function, InPipe& pipe) = 0;
    virtual bool endpoint(Function& function, OutPipe& pipe) = 0;
    // The number of a string descriptor.
    virtual std::uint8_t text(const std::string& english) = 0;
};

class Function {
  public:
    Function() = default;
    virtual ~Function() = default;
    Function(const Function&) = delete;
    Function& operator=(const Function&) = delete;

    virtual const std::string& name() const = 0; // of its directory
    virtual std::string node() const = 0;        // that it has while it is bound

    virtual int bind(Allocation& allocation) = 0; // 0 or an errno
    virtual void unbind() = 0;
    // The host has configured the device, and has it no longer. False where that cannot be.
    virtual bool enable(usb::Speed speed) = 0;
    virtual void disable() = 0;

    virtual Bytes descriptors(usb::Speed speed) const = 0;
    // A request to its interface or endpoints: what it answers, nothing for a stall.
    virtual std::optional<Bytes> control(const usb::Setup& setup, ByteView data) = 0;
};

// Its directory. A link to it makes the function, and its removal takes it away.
class FunctionItem : public configfs::Item {
  public:
    using Item::Item;
    virtual std::shared_ptr<Function> make_function() = 0;
    virtual void drop_function() {}
    // The directory is being removed.
    virtual void retire() {}
};

} // namespace vb::gadget
