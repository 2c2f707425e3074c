#include "library.h"

#include "chip.h"
#include "family.h"

#include <cstdlib>
#include <string_view>

namespace chips {

namespace {

constinit std::array<Chip, kMostDevices> family_chips;

Chip* chip(uint32_t dev) {
    return dev < kFamily.devices ? &family_chips[dev] : nullptr;
}

// --- operations ---

int32_t init(uint32_t dev) {
    Chip* const it = chip(dev);
    return it != nullptr ? it->bring_up() : HAL_CHIPS_WRONG_ARGUMENT;
}

int32_t service(uint32_t dev, uint32_t /*period_ms*/) {
    Chip* const it = chip(dev);
    return it != nullptr ? it->serve() : HAL_CHIPS_WRONG_ARGUMENT;
}

template <std::size_t count>
int32_t set(uint32_t dev, Register first, const std::array<uint32_t, count>& values,
            uint32_t most = 0xFF) {
    Chip* const it = chip(dev);
    std::array<uint8_t, count> bytes{};
    for (std::size_t i = 0; i < count; ++i) {
        if (it == nullptr || values[i] > most) {
            return HAL_CHIPS_WRONG_ARGUMENT;
        }
        bytes[i] = static_cast<uint8_t>(values[i]);
    }
    return it->set(first, bytes);
}

int32_t set_f(uint32_t dev, uint32_t value) {
    return set<1>(dev, kSetUpF, {value});
}

int32_t set_abc(uint32_t dev, uint32_t a, uint32_t b, uint32_t c) {
    return set<3>(dev, kSetUpA, {a, b, c});
}

int32_t set_d(uint32_t dev, uint32_t port, uint32_t value) {
    return port == 0 ? set<1>(dev, kSetUpD, {value}) : HAL_CHIPS_WRONG_ARGUMENT;
}

int32_t set_e(uint32_t dev, uint32_t port, uint32_t value) {
    return port == 0 ? set<1>(dev, kSetUpE, {value}) : HAL_CHIPS_WRONG_ARGUMENT;
}

int32_t switch_output(uint32_t dev, uint32_t on) {
    return set<1>(dev, kOutput, {on}, 1);
}

int32_t switch_equaliser(uint32_t dev, uint32_t port, uint8_t on) {
    return port == 0 ? set<1>(dev, kEqualiser, {on}, 1) : HAL_CHIPS_WRONG_ARGUMENT;
}

int32_t set_edid(uint32_t dev, uint32_t port, const uint8_t* edid, uint32_t most_ms) {
    Chip* const it = chip(dev);
    if (it == nullptr || port != 0 || edid == nullptr) {
        return HAL_CHIPS_WRONG_ARGUMENT;
    }
    const uint32_t size = edid[kExtensionCount] == 0 ? kEdidBlock : kEdidSize;
    return it->set_edid({edid, size}, most_ms);
}

int32_t read_edid(uint32_t dev, uint32_t port, void* edid, uint32_t size) {
    Chip* const it = chip(dev);
    if (it == nullptr || port != 0 || edid == nullptr || size == 0 || size > kEdidSize) {
        return HAL_CHIPS_WRONG_ARGUMENT;
    }
    return it->read_edid({static_cast<uint8_t*>(edid), size});
}

int32_t read_plugged(uint32_t dev, uint32_t port, void* plugged) {
    Chip* const it = chip(dev);
    if (it == nullptr || port != 0 || plugged == nullptr) {
        return HAL_CHIPS_WRONG_ARGUMENT;
    }
    return it->read_plugged(*static_cast<uint8_t*>(plugged));
}

// --- registration ---

// Other threads may be calling through the table, where this is not the first time.
template <typename Slot>
void put(Slot& slot, Slot operation) {
    std::atomic_ref(slot).store(operation);
}

void fill(video_chip_ops& ops) {
    put(ops.InitFunc, init);
    put(ops.service, service);
    put(ops.op4, read_plugged);
    put(ops.op17, set_f);
    if (kFamily.has_colour) {
        put(ops.op6, set_d);
        put(ops.op8, set_e);
        put(ops.op18, set_abc);
    }
    if (kFamily.has_output_switch) {
        put(ops.op20, switch_output);
    }
    if (kFamily.has_edid) {
        put(ops.set_edid, set_edid);
        put(ops.op21, read_edid);
    }
    if (kFamily.has_equaliser) {
        put(ops.op33, switch_equaliser);
    }
}

// Whether "name:dev" is in the list.
bool is_told_to_fail(std::string_view list, uint32_t dev) {
    const std::string_view name = kFamily.name;
    while (!list.empty()) {
        const std::string_view item = list.substr(0, list.find(','));
        list.remove_prefix(std::min(list.size(), item.size() + 1));
        if (item.size() == name.size() + 2 && item.starts_with(name) && item[name.size()] == ':' &&
            item.back() == static_cast<char>('0' + dev)) {
            return true;
        }
    }
    return false;
}

} // namespace

int32_t register_family(video_chip_ops* ops, const video_chip_services* services,
                        const video_chip_dev_entry* dev_table) {
    if (ops == nullptr || services == nullptr || dev_table == nullptr) {
        return HAL_CHIPS_WRONG_ARGUMENT;
    }
    const char* const list = std::getenv("HAL_CHIPS_FAIL");
    for (const video_chip_dev_entry& entry : std::span(dev_table, kFamily.devices)) {
        if (Chip* const it = chip(entry.dev); it != nullptr) {
            it->connect(*services, entry, list != nullptr && is_told_to_fail(list, entry.dev));
        }
    }
    fill(*ops);
    return 0;
}

int32_t counters(uint32_t dev, hal_chips_counters* counters) {
    const Chip* const it = chip(dev);
    if (it == nullptr || counters == nullptr) {
        return HAL_CHIPS_WRONG_ARGUMENT;
    }
    it->add_to(*counters);
    return 0;
}

} // namespace chips
