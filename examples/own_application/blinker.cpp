// Lets the lamp at line 8 blink, and tells in its own way what the library complains of.
#include <hal_bsp/hal_bsp.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

void tell(log_event* event) {
    std::fputs("blinker: ", stdout);
    std::vprintf(event->fmt, event->ap); // most texts end their line
}

void show(uint32_t level) {
    hal_gpio_set_value(8, level);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

} // namespace

int main() {
    log_set_quiet(true);
    log_add_callback(tell, nullptr, HAL_LOG_ERROR);
    std::printf("%s\n", VER_STR);

    hal_gpio_cfg lamp{};
    lamp.gpio = 8;
    lamp.name = "lamp";
    lamp.dir = HAL_GPIO_OUTPUT;
    if (hal_gpio_config(&lamp) < 0) {
        return 1;
    }
    for (int i = 0; i < 3; ++i) {
        show(1);
        show(0);
    }
    std::puts("blinked three times");
    return hal_gpio_deconfig(8) < 0 ? 1 : 0;
}
