// An application that has functions of its own by names of the library's, which the library must
// not take for its own; that has one chip library itself, opens another later, and lacks the rest;
// and that is done with the library while the key listener still ends.
// Usage: application_probe LIBRARY CHIP_LIBRARY lazy|now
#include <hal_bsp/keypad.h>
#include <hal_bsp/partition.h>
#include <hal_bsp/timing.h>
#include <hal_bsp/video.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <dlfcn.h>
#include <string_view>
#include <thread>

int32_t is_dir_exist(const char* path) {
    return std::printf("the application's is_dir_exist: %s\n", path);
}

int32_t getNowSlot() {
    return std::printf("the application's getNowSlot\n");
}

int32_t gsv2002_IcRegister(video_chip_ops* /*ops*/, video_chip_services* /*services*/,
                           video_chip_dev_entry* /*dev_table*/) {
    return std::printf("the application's chip library\n");
}

// The leak sanitizer falls over the thread-local data of a library that was closed.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" int __lsan_is_turned_off() {
    return 1;
}

namespace {

void hear(keypad_event* /*event*/) {}

} // namespace

int main(int argc, char** argv) {
    const bool now = argc > 3 && std::string_view(argv[3]) == "now";
    void* const library = argc > 3 ? dlopen(argv[1], now ? RTLD_NOW : RTLD_LAZY) : nullptr;
    if (library == nullptr) {
        std::puts(dlerror());
        return 1;
    }
    const auto exists = reinterpret_cast<int32_t (*)(const char*)>(dlsym(library, "dir_exist"));
    const auto find_partition =
        reinterpret_cast<int32_t (*)(const char*, char*)>(dlsym(library, "getPartitionType"));
    const auto listen =
        reinterpret_cast<int32_t (*)(hal_keypad_callback_v2)>(dlsym(library, "hal_keypad_init_v2"));
    const auto stop = reinterpret_cast<void (*)()>(dlsym(library, "hal_keypad_deinit_v2"));
    std::array<char, HAL_PARTITION_PATH_MAX> path{};
    const int32_t found = find_partition("system", path.data());
    std::printf("%d %d %s\n", exists("/"), found, path.data());
    const auto function = [&](const char* name) {
        return reinterpret_cast<int32_t (*)()>(dlsym(library, name));
    };
    std::printf("%d %d\n", function("gsv2001_platformInit")(), function("gsv20xx_dev_init")());
    dlopen(argv[2], RTLD_NOW | RTLD_GLOBAL);
    std::printf("%d\n", function("gsv2001_platformInit")());
    std::printf("%d\n", function("gsv2002_platformInit")());
    std::printf("%d\n", listen(hear));
    stop();
    dlclose(library);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    std::puts("still here");
    return 0;
}
