// Partitions as they come and go: mounted, unmounted, and told of when it has been quiet.
#include "hal/hal_usb/usb.h"

#include <hal_bsp/timing.h>

#include "support/listener.h"
#include "support/log.h"
#include "support/thread.h"
#include "support/uevent.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <sys/time.h>
#include <utility>

hal_usb_state gst_usb_info;

static_assert(offsetof(usb_disk_list, action) == 4 && offsetof(usb_disk_list, zero8) == 8 &&
              offsetof(usb_disk_list, count) == 12 && offsetof(usb_disk_list, path) == 13 &&
              sizeof(usb_disk_list) == 1040);
static_assert(offsetof(hal_usb_state, tid_usb) == 8 && offsetof(hal_usb_state, disk_list) == 16 &&
              offsetof(hal_usb_state, now_tv) == 24 && offsetof(hal_usb_state, last_tv) == 40 &&
              sizeof(hal_usb_state) == 56);

constinit std::recursive_mutex hal::usb::list_mutex;

namespace {

using namespace hal::usb;
using namespace std::chrono_literals;

constexpr int32_t kDone = 0;
constexpr int32_t kNoScan = -2;
constexpr int32_t kNoThread = -10;
constexpr int32_t kBadArgument = -22;

constexpr hal::UeventPlan kUevents{.groups = 1, .receive_buffer = 16777216};
constexpr hal::Pace kPace{.wait = 50ms, .rest = 2ms};
constexpr int32_t kQuiet = 200'000; // microseconds
constexpr std::size_t kMessageSize = 4096;

// How many threads there are, or are about to be; under the mutex of the lists.
constinit int followers = 0;

// What an automount thread has for itself; too much for some stacks.
class Automount {
  public:
    explicit Automount(hal_usb_state& its_info) : info(its_info) {
        const std::lock_guard guard(list_mutex);
        ++followers;
    }
    ~Automount() {
        const std::lock_guard guard(list_mutex);
        --followers;
    }
    Automount(const Automount&) = delete;
    Automount& operator=(const Automount&) = delete;

    hal_usb_state& info;
    hal::Fd uevents;
    std::array<char, kMessageSize + 1> message{}; // and the NUL behind it
};

std::unique_ptr<Automount> make_automount(hal_usb_state& info) {
    return std::unique_ptr<Automount>(new (std::nothrow) Automount(info));
}

timeval wall_clock() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

bool is_set(const timeval& time) {
    return time.tv_sec != 0 || time.tv_usec != 0;
}

// Looked up anew after each callback: it may have given the module another one.
usb_disk_list* list_of(hal_usb_state& info) {
    return std::atomic_ref(info.disk_list).load();
}

void tell_batch(hal_usb_state& info) {
    if (usb_disk_list* const list = list_of(info)) {
        tell(info, *list);
    }
}

void forget_batch(hal_usb_state& info) {
    if (usb_disk_list* const list = list_of(info)) {
        clear(*list);
    }
    info.now_tv = {};
    info.last_tv = {};
}

void note(hal_usb_state& info, uint32_t action, const char* mount_point) {
    if (const usb_disk_list* const list = list_of(info); list != nullptr && is_full(*list)) {
        tell_batch(info);
        forget_batch(info);
    }
    if (usb_disk_list* const list = list_of(info)) {
        append(*list, action, mount_point);
    }
    info.last_tv = wall_clock();
}

void add(hal_usb_state& info, const Name& partition) {
    const Path mount_point("/mnt/dev%s", partition.data());
    HAL_LOG(HAL_LOG_INFO, "netlink_process %s\n", mount_point.text());
    const CommandLine make_folder("mkdir -p %s", mount_point.text());
    HAL_LOG(HAL_LOG_INFO, "netlink_process %s\n", make_folder.text());
    hal::run_command(make_folder);
    const CommandLine mount("mount /dev%s %s", partition.data(), mount_point.text());
    hal::run_command(mount);
    HAL_LOG(HAL_LOG_INFO, "netlink_process %s\n", mount.text());
    note(info, HAL_USB_ADDED, mount_point.text());
}

void remove(hal_usb_state& info, const Name& partition) {
    const Path mount_point("/mnt/dev%s", partition.data());
    HAL_LOG(HAL_LOG_INFO, "netlink_process %s\n", mount_point.text());
    note(info, HAL_USB_REMOVED, mount_point.text());
    hal::run_command(CommandLine("umount %s", mount_point.text()));
}

void end_batch_if_quiet(hal_usb_state& info) {
    info.now_tv = wall_clock();
    if (!is_set(info.last_tv)) {
        return;
    }
    const int32_t quiet = calc_time_interval(info.last_tv, info.now_tv);
    if (quiet >= kQuiet) {
        tell_batch(info);
        forget_batch(info);
    } else if (quiet < 0) {
        HAL_LOG(HAL_LOG_INFO, "netlink_process time err\n");
        forget_batch(info);
    }
}

// Receives the next message as one text, empty where there is none.
bool receive(Automount& own) {
    const std::span<char> received =
        hal::receive_uevent(own.uevents.get(), std::span(own.message).first<kMessageSize>());
    std::replace(received.begin(), received.end(), '\0', '\n');
    own.message[received.size()] = '\0';
    return !received.empty();
}

void take_message(Automount& own) {
    const PartitionEvent event = partition_event(own.message.data());
    const std::lock_guard guard(list_mutex);
    if (event.change == Change::kNone) {
        end_batch_if_quiet(own.info);
    } else if (event.partition.front() != '\0') {
        const auto handle = event.change == Change::kAdded ? add : remove;
        handle(own.info, event.partition);
    }
}

// Takes all that has come, or the empty text where nothing has: with either a list may be due. It
// rests after messages: a stream of them would wake it for each one.
hal::Pass take_messages(Automount& own) {
    const bool has_come = receive(own);
    do {
        take_message(own);
    } while (has_come && receive(own));
    return has_come ? hal::Pass::kRest : hal::Pass::kAtOnce;
}

// Ends by cancellation only.
void follow(Automount& own) {
    hal::name_thread("netlink_process");
    own.uevents = hal::open_uevents(kUevents);
    for (;;) {
        hal::listen_once(own.uevents.get(), kPace, [&](hal::Wait outcome) {
            return outcome == hal::Wait::kFailed ? hal::Pass::kAtOnce : take_messages(own);
        });
    }
}

// 0, or the error number.
int start_following(hal_usb_state& info) {
    if (followers > 0) {
        return 0;
    }
    auto automount = make_automount(info);
    return automount
               ? hal::start_worker<follow>(info.tid_usb, std::move(automount), hal::start_thread)
               : ENOMEM;
}

} // namespace

void hal::usb::clear(usb_disk_list& list) {
    std::memset(&list, 0, sizeof list);
}

bool hal::usb::is_full(const usb_disk_list& list) {
    return list.count >= HAL_USB_LIST_SIZE;
}

void hal::usb::append(usb_disk_list& list, uint32_t action, const char* mount_point) {
    list.action = action;
    list.zero8 = 0;
    std::snprintf(list.path[list.count], HAL_USB_PATH_SIZE, "%s", mount_point);
    ++list.count;
}

void hal::usb::tell(hal_usb_state& info, usb_disk_list& list) {
    hal::call_back(info.usb_disk_cb, &list);
}

int32_t hal_usb_init(hal_usb_callback callback, usb_disk_list* list) {
    if (callback == nullptr || list == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "err para is null!!\n");
        return kBadArgument;
    }
    hal_usb_state& info = gst_usb_info;
    const std::lock_guard guard(list_mutex);
    std::atomic_ref(info.usb_disk_cb).store(callback);
    std::atomic_ref(info.disk_list).store(list);
    if (find_usb_disk_once(list) != 0) {
        HAL_LOG(HAL_LOG_ERROR, "find_usb_disk_once fail\n");
        return kNoScan;
    }
    const int error = start_following(info);
    HAL_LOG(HAL_LOG_INFO, "gst_usb_info.tid_usb:%u\n", static_cast<unsigned>(info.tid_usb));
    if (error != 0) {
        HAL_LOG(HAL_LOG_ERROR, "create thread netlink_process faile\n");
        return kNoThread;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_usb_init over\n");
    return kDone;
}

int32_t hal_usb_deinit(void) {
    return kDone;
}

void* netlink_process(void* arg) {
    if (arg == nullptr) {
        HAL_LOG(HAL_LOG_ERROR, "netlink_process arg is NULL\n");
        return nullptr;
    }
    if (const auto automount = make_automount(*static_cast<hal_usb_state*>(arg))) {
        follow(*automount);
    }
    return nullptr;
}
