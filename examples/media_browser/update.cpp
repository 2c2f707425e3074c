#include "update.h"

#include <hal_bsp/hal_bsp.h>
#include <oem_image.h>

#include <fmt/format.h>

#include <array>

namespace media {

namespace {

constexpr int kGood = 1;
constexpr int kNoImage = -1;

} // namespace

bool Updater::has_target() const {
    return partition_.empty() || !device().empty();
}

std::string Updater::offer(const std::string& path) {
    const int check = kaOemMd5(path.c_str(), 0, oem_image_length(path.c_str(), 0), nullptr);
    if (check == kNoImage) {
        return "";
    }
    return fmt::format("update image: {}{}", oem_image_verdict(check),
                       check == kGood ? ", " + write(path) : ", not taken");
}

std::string Updater::device() const {
    std::array<char, HAL_PARTITION_PATH_MAX> device{};
    return getPartitionType(partition_.c_str(), device.data()) == 1 ? device.data() : "";
}

std::string Updater::write(const std::string& path) {
    if (partition_.empty()) {
        return "would be taken by --update PARTITION";
    }
    if (written_) {
        return "not taken after the other one";
    }
    const std::uint32_t length = oem_image_length(path.c_str(), 0);
    written_ = oem_image_update(path.c_str(), length, partition_.c_str()) == 0;
    return written_ ? fmt::format("written to {}: it is booted after a switch of slots", device())
                    : fmt::format("but {} cannot be written, or is too small", device());
}

} // namespace media
