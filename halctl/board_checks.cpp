#include "board_checks.h"

#include <hal_bsp/clock.h>
#include <hal_bsp/ethlink.h>

#include <fmt/format.h>
#include <video_chips.h>

#include <iterator>

namespace halctl {

namespace {

// A row of what is the same on every board of this kind.
struct Fact {
    const char* module;
    Need need;
    const char* what;
    const char* cost;
};

constexpr Fact kBeforeClocks[] = {
    {"log", Need::node, "/dev/log", "no message reaches the system log"},

    {"shell", Need::program, "/bin/sh",
     "no module that runs commands works: otg, hid, mass, mcu, usb, ptp, ethlink, boardtemp, "
     "armhdmi_out, fwenv, sysconf"},
    {"shell", Need::program, "cat", "no temperature, no links, no keyboard or mouse for a host"},
    {"shell", Need::program, "grep", "no links, and no sticks that are in at the start"},
    {"shell", Need::program, "ln", "nothing gets into the USB gadget"},
    {"shell", Need::program, "ls", "no links, no USB controller, no bridge disk is found"},
    {"shell", Need::program, "mkdir", "no USB gadget, and no place to mount sticks"},
    {"shell", Need::program, "readlink", "no links"},
    {"shell", Need::program, "rm", "nothing gets out of the USB gadget"},
    {"shell", Need::program, "wc", "no links"},

    {"gpio", Need::node, "/dev/drvgpio", "no line is configured, read or driven, and no edge told"},

    {"sysgpio", Need::setting, "/sys/class/gpio/export",
     "no line of the kernel's GPIO class can be used that is not exported yet"},
    {"sysgpio", Need::setting, "/sys/class/gpio/unexport", "none can be given back"},

    {"i2c", Need::node, "/dev/i2c-* or /dev/i2c/*",
     "no chip can be reached; the kernel's i2c-dev makes the nodes"},

    {"fpga", Need::node, "/dev/fpga", "the FPGA cannot be read or written"},
    {"fpga", Need::node, "/dev/fpgavm", "none of its interrupts is told"},
};

constexpr Fact kBeforeLinks[] = {
    {"genlock", Need::node, "/dev/vgen", "the output cannot be locked to a reference"},

    {"ptp", Need::program, "ptp4l", "the board's clock follows no other, and is none for others"},
    {"ptp", Need::program, "phc2sys", "system clock and network clock are not brought together"},
    {"ptp", Need::program, "killall", "the daemons cannot be ended, nor started afresh"},

    {"oled", Need::node, "/dev/x9oled", "nothing is shown on the OLED"},
    {"oled", Need::file, "/usr/share/fonts/HZK16", "Chinese text is not shown"},

    {"keypad", Need::node, "/dev/keypad", "no key is told"},
    {"keypad", Need::node, "/dev/led", "no LED can be set"},

    {"tbar", Need::source, "/dev/tbar*", "no T-bar can be opened"},

    {"armhdmi_out", Need::setting, "/sys/devices/virtual/misc/hdmi_hdcp1x/enable",
     "the copy protection of the SoC's HDMI output cannot be switched"},

    {"backlight", Need::setting, "/sys/class/backlight/backlight/brightness",
     "the display's brightness cannot be set"},

    {"boardtemp", Need::file, "/sys/class/thermal/thermal_zone0/temp", "no temperature"},

    {"fans", Need::node, "/dev/pwm-fan*", "no fan can be set or read"},
};

constexpr Fact kAfterLinks[] = {
    {"ethlink", Need::program, "mdio",
     "links whose record names a PHY are told as failed; the board's own table has none"},
    {"ethlink", Need::program, "awk", "the same"},

    {"absystem", Need::node, "/dev/block/by-name/misc", "the slot to boot cannot be chosen"},
    {"absystem", Need::function, "crc32", "the same; it is zlib's"},

    {"partition", Need::file, "/proc/cmdline", "slot B is taken for the one that runs"},
    {"partition", Need::node, "/dev/block/by-name/uboot", "the bootloader cannot be updated"},
    {"partition", Need::node, "/dev/block/by-name/boot_a", "boot of slot A cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/boot_b", "boot of slot B cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/system_a", "system of slot A cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/system_b", "system of slot B cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/oem_a", "oem of slot A cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/oem_b", "oem of slot B cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/custom_a", "custom of slot A cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/custom_b", "custom of slot B cannot be written"},
    {"partition", Need::node, "/dev/block/by-name/vbmeta_a", "vbmeta cannot be written"},
    {"partition", Need::program, "sysctl",
     "a backup with pauses fills the memory with what is not written yet"},

    {"md5sum", Need::function, "MD5_Init", "no image can be checked or written; it is libcrypto's"},

    {"fwenv", Need::program, "/usr/bin/fw_printenv", "the bootloader's variables cannot be read"},
    {"fwenv", Need::program, "/usr/bin/fw_setenv", "they cannot be set"},

    {"sysconf", Need::program, "/usr/bin/sysconfig", "no system configuration"},

    {"vendor", Need::node, "/dev/vendor_storage", "no vendor storage"},

    // The nodes of a keyboard or disk come with the gadget.
    {"otg", Need::folder, "/sys/kernel/config/usb_gadget",
     "no USB gadget; configfs has to be mounted, and libcomposite in the kernel"},
    {"otg", Need::file, "/sys/class/udc/*", "no USB controller that a gadget could be bound to"},
    {"otg", Need::setting, "/sys/devices/virtual/android_usb/android0/usbsta",
     "nobody learns whether a host is there"},
    {"otg", Need::socket, "NETLINK_KOBJECT_UEVENT", "the same"},
    {"hid", Need::setting, "/sys/devices/virtual/android_usb/android0/hidsee",
     "no keyboard, mouse or touch screen for a host"},
    {"mass", Need::setting, "/sys/devices/virtual/android_usb/android0/masssee",
     "no disk for a host"},

    {"mcu", Need::node, "/dev/drvgpio", "the MCU cannot be reset, and so not started"},
    {"mcu", Need::disk,
     "/sys/devices/platform/soc/10390000.sata/ata1/host0/target0:0:0/0:0:0:0/block",
     "no way to the MCU; its bridge is the first disk of that SATA controller"},
    {"mcu", Need::line, "96", "it is not told when the host's power goes"},
    {"mcu", Need::program, "bspmm", "register 0x10FF0100 of the processor is left as it is"},

    {"sensor_usb", Need::node, "/dev/sensor_usb", "no sensor link"},
    {"sensor_usb", Need::file, "/sys/devices/virtual/android_usb/android0/usbsta",
     "its state is told as unknown"},

    {"usb", Need::program, "fdisk", "sticks that are in at the start are not found"},
    {"usb", Need::program, "mount", "no stick is mounted"},
    {"usb", Need::program, "umount", "none is unmounted"},
    {"usb", Need::folder, "/mnt/dev or /mnt", "there is no place to mount them"},
    {"usb", Need::socket, "NETLINK_KOBJECT_UEVENT", "none is noticed that comes or goes"},
};

template <std::size_t Count>
void add(std::vector<Check>& checks, const Fact (&facts)[Count]) {
    for (const Fact& fact : facts) {
        checks.push_back({fact.module, fact.need, fact.what, fact.cost});
    }
}

// --- what the board's own tables say ---

void add_bus(std::vector<Check>& checks, const char* module, unsigned bus,
             const std::string& chip) {
    checks.push_back({module, Need::node, fmt::format("/dev/i2c-{0} or /dev/i2c/{0}", bus),
                      fmt::format("{} cannot be reached", chip)});
}

void add_line(std::vector<Check>& checks, const char* module, unsigned line, std::string cost) {
    checks.push_back({module, Need::line, std::to_string(line), std::move(cost)});
}

unsigned number_in(const char (&text)[2]) {
    return static_cast<unsigned>(text[0] - '0');
}

void add_clocks(std::vector<Check>& checks) {
    for (std::size_t i = 0; i < std::size(cdcm6208_bus_id); ++i) {
        const std::string chip = fmt::format("clock chip cdcm6208 {}", i);
        add_bus(checks, "clock", number_in(cdcm6208_bus_id[i]), chip);
        add_line(checks, "clock", cdcm6208_gpio_PDN[i], chip + " cannot be powered up");
        add_line(checks, "clock", cdcm6208_gpio_reset[i], chip + " cannot be reset");
    }
    for (std::size_t i = 0; i < std::size(idt6965_bus_id); ++i) {
        add_bus(checks, "clock", number_in(idt6965_bus_id[i]),
                fmt::format("clock chip idt6965 {}", i));
    }
}

void add_video_chips(std::vector<Check>& checks) {
    for (const video::Family& family : video::families) {
        checks.push_back({"video", Need::function, family.registration,
                          fmt::format("no chip of the family {} is brought up; {} has it",
                                      family.name, family.library)});
        for (std::size_t dev = 0; dev < family.modes.size(); ++dev) {
            const video_chip_mode& mode = family.modes[dev];
            const std::string chip = fmt::format("video chip {} {}", family.name, dev);
            add_bus(checks, "video", mode.i2c_bus, chip);
            add_line(checks, "video", mode.rst_gpio, chip + " cannot be reset");
        }
    }
}

void add_links(std::vector<Check>& checks) {
    for (const ethlink_info& adapter : board_ethlink_info_list) {
        const std::string port = fmt::format("no link of port {}", adapter.port_num);
        checks.push_back({"ethlink", Need::adapter, adapter.dev_name, port});
        if (adapter.type == HAL_ETHLINK_FILE) {
            checks.push_back({"ethlink", Need::file, adapter.link_file, port});
        }
    }
}

} // namespace

const char* name_of(Need need) {
    switch (need) {
    case Need::node:
    case Need::source:
        return "node";
    case Need::file:
    case Need::setting:
        return "file";
    case Need::folder:
        return "folder";
    case Need::line:
        return "line";
    case Need::disk:
        return "disk";
    case Need::adapter:
        return "adapter";
    case Need::program:
        return "program";
    case Need::function:
        return "function";
    case Need::socket:
        return "socket";
    }
    return "";
}

std::vector<Check> board_checks() {
    std::vector<Check> checks;
    add(checks, kBeforeClocks);
    add_clocks(checks);
    add(checks, kBeforeLinks);
    add_video_chips(checks);
    add_links(checks);
    add(checks, kAfterLinks);
    return checks;
}

} // namespace halctl
