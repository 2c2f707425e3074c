// Whether an Ethernet adapter has a link.
#include <hal_bsp/ethlink.h>

#include "support/command.h"
#include "support/log.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

static_assert(offsetof(ethlink_info, port_num) == 4 && offsetof(ethlink_info, phy_addr) == 5 &&
              offsetof(ethlink_info, dev_name) == 6 && offsetof(ethlink_info, link_file) == 134 &&
              offsetof(ethlink_info, pre_hook) == 264 && sizeof(ethlink_info) == 280);

namespace {

using CommandLine = hal::CommandText<128>;

constexpr const char* kModule = "hal_ethlink";

constexpr int32_t kDone = 0;
constexpr int32_t kInvalid = -22;
constexpr int32_t kNoAdapter = -6;
constexpr int32_t kNotStarted = -5;
constexpr int32_t kNothingPrinted = -35;

using Text = std::array<char, 128>;

bool contains(const Text& text, const char* word) {
    return std::strstr(text.data(), word) != nullptr;
}

uint16_t number_in(const Text& text) {
    return static_cast<uint16_t>(std::clamp(std::strtol(text.data(), nullptr, 10), 0L, 65535L));
}

int32_t ethlink_run_cmd(const char* command, Text& out) {
    out.fill('\0');
    if (command == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "Invalid argument: cmd!");
        return kInvalid;
    }
    hal::CommandOutput output(command);
    if (!output) {
        HAL_LOG(HAL_LOG_ERROR, "popen failed, cmd:%s s!!\n", command);
        return kNotStarted;
    }
    output.read(out);
    if (out[0] == '\0') {
        HAL_LOG(HAL_LOG_ERROR, "cmd run without printing");
        return kNothingPrinted;
    }
    return kDone;
}

int32_t run(const CommandLine& command, Text& out) {
    const int32_t result = ethlink_run_cmd(command ? command.text() : nullptr, out);
    if (result != kDone) {
        HAL_LOG(HAL_LOG_ERROR, "cmd excute failed, cmd:%s", command.text());
    }
    return result;
}

int32_t run_for_number(const CommandLine& command, uint16_t& number) {
    Text out;
    const int32_t result = run(command, out);
    if (result == kDone) {
        number = number_in(out);
    }
    return result;
}

// --- the sources ---

int32_t ethlink_get_sysfs(const char* name, uint16_t& status) {
    Text state;
    if (const int32_t result = run(CommandLine("cat /sys/class/net/%s/operstate", name), state);
        result != kDone) {
        return result;
    }
    if (!contains(state, "up")) {
        status = 0;
        return kDone;
    }
    return run_for_number(CommandLine("cat /sys/class/net/%s/carrier", name), status);
}

int32_t ethlink_get_file(const ethlink_info& adapter, uint16_t& status) {
    return run_for_number(CommandLine("cat %.127s", adapter.link_file), status);
}

int32_t ethlink_get_none() {
    return kDone;
}

int32_t ethlink_get_mdio(const ethlink_info& adapter, const char* name, uint16_t& status) {
    uint16_t carrier = 0;
    ethlink_get_sysfs(name, carrier);
    if (carrier == 0) {
        status = 0;
        return kDone;
    }
    Text unused;
    if (const int32_t result =
            run(CommandLine("mdio %s %d 0x1f 0xdf0", name, adapter.phy_addr), unused);
        result != kDone) {
        return result;
    }
    uint16_t bit = 0;
    const int32_t result =
        run_for_number(CommandLine("reg_data=$(mdio %s %d 0x10 | awk -F \":\" '{print $4}'); "
                                   "printf $(($reg_data & 0x1000));",
                                   name, adapter.phy_addr),
                       bit);
    if (result == kDone) {
        status = bit != 0 ? 2 : 1;
    }
    return result;
}

int32_t read_link(const ethlink_info& adapter, const char* name, uint16_t& status) {
    switch (adapter.type) {
    case HAL_ETHLINK_FILE:
        return ethlink_get_file(adapter, status);
    case HAL_ETHLINK_NONE:
        return ethlink_get_none();
    case HAL_ETHLINK_PHY:
        return ethlink_get_mdio(adapter, name, status);
    default:
        return ethlink_get_sysfs(name, status);
    }
}

// --- from a name to its source ---

const ethlink_info* adapter_of_device(const Text& link) {
    const auto* found =
        std::find_if(std::begin(board_ethlink_info_list), std::end(board_ethlink_info_list),
                     [&](const ethlink_info& adapter) { return contains(link, adapter.dev_name); });
    return found == std::end(board_ethlink_info_list) ? nullptr : found;
}

void call(void (*hook)()) {
    if (hook != nullptr) {
        hook();
    }
}

int32_t operation_get_ethlink_byname(const char* name, uint16_t* status) {
    if (name == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "Invalid argument: adapter_name!");
        return kInvalid;
    }
    if (status == nullptr) {
        return kInvalid;
    }
    uint16_t matches = 0;
    if (const int32_t result =
            run_for_number(CommandLine("ls /sys/class/net/ | grep \"%s\" | wc -l", name), matches);
        result != kDone) {
        return result;
    }
    if (matches != 1) {
        HAL_LOG(HAL_LOG_ERROR, "No such ethernet adapter: %s", name);
        return kNoAdapter;
    }
    if (std::strcmp(name, "bond0") == 0) {
        HAL_LOG(HAL_LOG_INFO, "virtual ethernet adapter: %s", name);
        return ethlink_get_sysfs(name, *status);
    }
    Text link;
    if (const int32_t result = run(CommandLine("readlink /sys/class/net/%s", name), link);
        result != kDone) {
        return result;
    }
    const ethlink_info* adapter = adapter_of_device(link);
    if (adapter == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "can not find adapter in config list!");
        return kNoAdapter;
    }
    HAL_LOG(HAL_LOG_DEBUG, "match adapter in config list!");
    HAL_LOG(HAL_LOG_DEBUG, "adapter name: %d", static_cast<int>(adapter->type));
    HAL_LOG(HAL_LOG_DEBUG, "adapter port num: %d", adapter->port_num);
    call(adapter->pre_hook);
    const int32_t result = read_link(*adapter, name, *status);
    call(adapter->post_hook);
    return result;
}

} // namespace

int32_t operation_get_ethlink([[maybe_unused]] uint16_t* status) {
    return kDone;
}

int32_t hal_get_ethlink_status_byname(const char* name, uint16_t* status) {
    HAL_LOG(HAL_LOG_DEBUG, "hal_get_ethlink_status_byname start");
    const int32_t result = operation_get_ethlink_byname(name, status);
    if (result != kDone) {
        HAL_LOG(HAL_LOG_ERROR, "operation_get_ethlink_byname failed");
    } else {
        HAL_LOG(HAL_LOG_DEBUG, "ethlink_status:%d", *status & 0xFF);
    }
    HAL_LOG(HAL_LOG_DEBUG, "hal_get_ethlink_status_byname end");
    return result;
}

int32_t hal_get_ethlink_status(uint16_t* status) {
    HAL_LOG(HAL_LOG_INFO, "hal_get_ethlink_status start");
    const int32_t result = operation_get_ethlink(status);
    if (result != kDone) {
        HAL_LOG(HAL_LOG_ERROR, "operation_get_ethlink failed");
    } else if (status != nullptr) {
        HAL_LOG(HAL_LOG_INFO, "ethlink_status:%d", *status);
    }
    HAL_LOG(HAL_LOG_INFO, "hal_get_ethlink_status end");
    return result;
}
