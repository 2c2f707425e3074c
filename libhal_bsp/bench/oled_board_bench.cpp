// What a line of text costs above the calls that it has to make, on a board.

#include "figures.h"

#include <hal_bsp/hal_bsp.h>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdint>

namespace {

using Record = std::array<std::uint8_t, 276>;

void bare_request() {
    Record record{};
    const int fd = open("/dev/x9oled", O_RDWR | O_CLOEXEC);
    ioctl(fd, 0xC0086FB3, record.data());
    close(fd);
}

void bare_glyph(std::uint16_t gbk) {
    std::array<std::uint8_t, 32> glyph{};
    const int fd = open("/usr/share/fonts/HZK16", O_RDONLY | O_CLOEXEC);
    const off_t glyph_number = ((gbk >> 8) - 0xA1) * 94 + (gbk & 0xFF) - 0xA1;
    lseek(fd, glyph_number * 32, SEEK_SET);
    if (read(fd, glyph.data(), glyph.size()) != static_cast<ssize_t>(glyph.size())) {
        std::printf("the font file cannot be read\n");
    }
    close(fd);
}

void compare_latin() {
    const oled_string_req req{0, 0, "HDMI 1: 1080p60 ", HAL_OLED_CHARS, 16};
    bench::compare(
        "16 Latin cells / open, ioctl, close", [&] { hal_oled_show_string(0, &req); },
        bare_request);
}

void compare_chinese() {
    constexpr char32_t kText[] = U"输入信号温度正常";
    const oled_string_req req{0, 0, kText, HAL_OLED_CODE_POINTS, 8};
    bench::compare(
        "8 Chinese characters / the same and 8 reads", [&] { hal_oled_show_string(0, &req); },
        [&] {
            for (std::size_t i = 0; i < 8; ++i) {
                bare_glyph(unicode_to_gbkcode(static_cast<std::uint16_t>(kText[i])));
            }
            bare_request();
        },
        100, 20);
}

} // namespace

int main() {
    log_set_quiet(true);
    compare_latin();
    compare_chinese();
    return 0;
}
