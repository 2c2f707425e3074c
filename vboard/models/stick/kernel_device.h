#pragma once
// A device as the kernel shows it: a folder of sysfs with its "uevent" file, the links that lead
// there, and the uevents that tell of it, whose keys stand in the kernel's order.

#include "core/board.h"

namespace vb::stick {

using Keys = std::vector<std::pair<std::string, std::string>>;

// At the board's start nobody listens yet, and nobody is told.
enum class Told { yes, no };

class KernelDevice {
  public:
    struct Description {
        std::string path;      // below /sys: "/devices/..."
        std::string subsystem; // "class/block", "bus/usb"
        Keys identity;         // MAJOR, MINOR, DEVNAME, DEVTYPE
        Keys more = {};        // what bus, class and type say besides
        Keys attributes = {};
    };

    KernelDevice(Board& board, Description description);
    ~KernelDevice() = default;
    KernelDevice(const KernelDevice&) = delete;
    KernelDevice& operator=(const KernelDevice&) = delete;

    const std::string& path() const { return description_.path; }
    void appear(Told told);
    // Takes what is below it along. Devices there have vanished before.
    void vanish();
    void bind(const std::string& driver, Told told);
    void unbind();

  private:
    void tell(const std::string& action, const Keys& why = {});
    Keys keys() const;
    std::string show_uevent() const;
    int synthesize(std::string_view action);
    std::vector<std::string> links() const;

    Board& board_;
    Description description_;
    std::string driver_;
};

} // namespace vb::stick
