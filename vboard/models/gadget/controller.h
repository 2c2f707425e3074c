#pragma once
// A USB device controller: /sys/class/udc/NAME, and perhaps a socket that a host's cable goes into.

#include "models/gadget/android_usb.h"
#include "models/gadget/composite_device.h"

#include <string>

namespace vb::gadget {

class Controller {
  public:
    // `socket` is the part it is wired to, empty for none; it is looked for at the first binding.
    Controller(Board& board, AndroidUsb& android, std::string name, std::string socket);
    ~Controller() = default;
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    const std::string& name() const { return name_; }
    // Pulls the line up for a device whose functions are bound, and lets it go again.
    void connect(CompositeDevice& device, const std::string& gadget);
    void disconnect();

    bool busy() const { return device_ != nullptr; }
    const std::string& gadget() const { return gadget_; } // that is bound, empty for none
    const char* state() const;

  private:
    void find_socket();
    void attach();
    void detach();
    void follow(DeviceState state);
    void trace(const char* event);

    Board& board_;
    AndroidUsb& android_;
    std::string name_;
    std::string socket_name_;
    usb::Socket* socket_ = nullptr;
    CompositeDevice* device_ = nullptr;
    std::string gadget_;
    bool attached_ = false;
    bool suspended_ = false;
    Connection connection_ = Connection::disconnected;
};

} // namespace vb::gadget
