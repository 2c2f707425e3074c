// GPIO lines through the kernel's GPIO class in sysfs.
#include <hal_bsp/sysgpio.h>

#include "support/cancel.h"
#include "support/fd.h"
#include "support/log.h"
#include "support/transfer.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <unistd.h>

using namespace std::string_view_literals;

namespace {

constexpr const char* kModule = "sysgpio";
constexpr const char* kExport = "/sys/class/gpio/export";
constexpr const char* kUnexport = "/sys/class/gpio/unexport";

constexpr int32_t kDone = 0;
constexpr int32_t kFailed = -1;

// The longest, with a negative number, takes 42.
using LinePath = std::array<char, 64>;

LinePath line_path(uint32_t gpio, const char* attribute) {
    LinePath path{};
    std::snprintf(path.data(), path.size(), "/sys/class/gpio/gpio%d%s", static_cast<int>(gpio),
                  attribute);
    return path;
}

class Decimal {
  public:
    explicit Decimal(uint32_t gpio)
        : length_(std::snprintf(text_.data(), text_.size(), "%d", static_cast<int>(gpio))) {}
    [[nodiscard]] std::string_view text() const {
        return {text_.data(), static_cast<std::size_t>(length_)};
    }

  private:
    std::array<char, 16> text_{};
    int length_;
};

bool write_some(const hal::Fd& fd, std::string_view bytes) {
    return hal::write_some(fd.get(), bytes.data(), bytes.size()) > 0;
}

std::optional<char> read_character(const hal::Fd& fd) {
    char character = 0;
    return hal::read_some(fd.get(), &character, 1) > 0 ? std::optional(character) : std::nullopt;
}

// --- with automatic export: every step has to succeed ---

bool put(const char* path, std::string_view bytes) {
    const hal::Fd fd = hal::open_fd(path, O_WRONLY);
    return fd && write_some(fd, bytes);
}

bool export_if_needed(uint32_t gpio) {
    return access(line_path(gpio, "").data(), F_OK) == 0 || put(kExport, Decimal(gpio).text());
}

bool claim(uint32_t gpio, std::string_view direction) {
    return export_if_needed(gpio) && put(line_path(gpio, "/direction").data(), direction);
}

// --- bare primitives: only the open counts ---

hal::Fd open_or_report(const char* path, int flags, const char* prefix) {
    hal::Fd fd = hal::open_fd(path, flags);
    if (!fd) {
        std::perror(prefix);
    }
    return fd;
}

int32_t put_or_report(const char* path, std::string_view bytes, const char* prefix) {
    const hal::CancelOff no_cancel;
    const hal::Fd fd = open_or_report(path, O_WRONLY, prefix);
    if (!fd) {
        return fd.get();
    }
    write_some(fd, bytes); // a refusal is not the caller's to know: the line may be so already
    return kDone;
}

} // namespace

int32_t util_gpio_set(uint32_t gpio, uint32_t value) {
    const hal::CancelOff no_cancel;
    const bool done =
        claim(gpio, "out") && put(line_path(gpio, "/value").data(), value != 0 ? "1" : "0");
    return done ? kDone : kFailed;
}

int32_t util_gpio_get(uint32_t gpio) {
    const hal::CancelOff no_cancel;
    if (!claim(gpio, "in")) {
        return kFailed;
    }
    const hal::Fd fd = hal::open_fd(line_path(gpio, "/value").data(), O_RDONLY);
    const auto character = fd ? read_character(fd) : std::nullopt;
    if (!character) {
        return kFailed;
    }
    return *character >= '1' && *character <= '9' ? 1 : 0;
}

int32_t gpio_export(uint32_t gpio) {
    HAL_LOG(HAL_LOG_INFO, "gpio is %d\n", static_cast<int>(gpio));
    return put_or_report(kExport, Decimal(gpio).text(), "gpio/export");
}

int32_t gpio_unexport(uint32_t gpio) {
    return put_or_report(kUnexport, Decimal(gpio).text(), nullptr);
}

int32_t gpio_set_dir(uint32_t gpio, uint32_t out) {
    const std::string_view direction = out != 0 ? "out\0"sv : "in\0"sv;
    return put_or_report(line_path(gpio, "/direction").data(), direction, "gpio/direction");
}

int32_t gpio_get_value(uint32_t gpio, uint32_t* value) {
    if (value == nullptr) {
        return kFailed;
    }
    const hal::CancelOff no_cancel;
    const hal::Fd fd = open_or_report(line_path(gpio, "/value").data(), O_RDONLY, "gpio/get-value");
    if (!fd) {
        return fd.get();
    }
    if (const auto character = read_character(fd)) {
        *value = *character == '0' ? 0 : 1;
    }
    return kDone;
}

int32_t gpio_set_edge(uint32_t gpio, const char* edge) {
    if (edge == nullptr) {
        return kFailed;
    }
    const std::string_view word(edge);
    const std::string_view with_nul(edge, word.size() + 1);
    return put_or_report(line_path(gpio, "/edge").data(), with_nul, "gpio/set-edge");
}

int32_t gpio_fd_open(uint32_t gpio) {
    const hal::CancelOff no_cancel;
    return open_or_report(line_path(gpio, "/value").data(), O_RDONLY | O_NONBLOCK, "gpio/fd_open")
        .release();
}

int32_t gpio_fd_close(int32_t fd) {
    const hal::CancelOff no_cancel;
    return close(fd);
}
