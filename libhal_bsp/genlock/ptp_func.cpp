// The PTP switch: runs the PTP daemons in the role of master or slave.
#include <hal_bsp/ptp.h>

#include "genlock/genlock_log.h"
#include "support/command.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kModule = "ptp_func";

constexpr int kFailed = -1;

constexpr const char* kEndPhc2sys = "killall -9 phc2sys";
constexpr const char* kEndPtp4l = "killall -9 ptp4l";

// What sets the two roles apart.
struct Role {
    const char* phc2sys;
    const char* phc2sys_error;
    const char* ptp4l; // takes the interface's name
    const char* ptp4l_error;
};

constexpr Role kMaster{"phc2sys -a -rr &", "master phc2sys fail!\n", "ptp4l -i %s &",
                       "master ptp4l fail!\n"};
constexpr Role kSlave{"phc2sys -a -r &", "slave phc2sys fail!\n", "ptp4l -i %s -s &",
                      "slave ptp4l fail!\n"};

constexpr std::size_t kPtp4lBuffer = 64;

// The name, ended also where the record's is not.
using InterfaceName = std::array<char, sizeof(gen_sys_param::eth_name) + 1>;

InterfaceName name_in(const gen_sys_param& p) {
    InterfaceName name{};
    std::memcpy(name.data(), p.eth_name, strnlen(p.eth_name, sizeof p.eth_name));
    return name;
}

void end_daemons() {
    hal::run_command(kEndPhc2sys);
    hal::run_command(kEndPtp4l);
}

int ptp_state_reset(gen_sys_param* p) {
    if (p == nullptr) {
        return kFailed;
    }
    p->ptp_enable = 0;
    p->ptp_state = HAL_PTP_OFF;
    return 0;
}

int start_ptp4l(const Role& role, const InterfaceName& name) {
    std::array<char, kPtp4lBuffer> command{};
    std::snprintf(command.data(), command.size(), role.ptp4l, name.data()); // cut if too long
    return hal::run_command(command.data());
}

} // namespace

int ptp_switch_on(gen_sys_param* p) {
    if (ptp_state_reset(p) != 0) {
        return kFailed;
    }
    const InterfaceName name = name_in(*p);
    GENLOCK_DEBUG("ptp switch on:\n");
    GENLOCK_DEBUG("is_master=%d, eth_name:%s\n", p->is_master, name.data());
    p->ptp_enable = 1;
    p->ptp_state = HAL_PTP_STARTING;
    end_daemons();
    const Role& role = p->is_master != 0 ? kMaster : kSlave;
    if (hal::run_command(role.phc2sys) < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s", role.phc2sys_error);
        return kFailed;
    }
    const int result = start_ptp4l(role, name);
    if (result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s", role.ptp4l_error);
        return kFailed;
    }
    p->ptp_state = HAL_PTP_ON;
    return result;
}

int ptp_switch_off(gen_sys_param* p) {
    if (p == nullptr) {
        return kFailed;
    }
    GENLOCK_DEBUG("ptp switch off!\n");
    ptp_state_reset(p);
    end_daemons();
    return 0;
}
