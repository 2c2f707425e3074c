#include "page.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "raw_call.h"

namespace vb::shim {
namespace {

// Stands for "looked, and there is none" beside null for "not looked yet".
constinit ClockPage no_page{};
constinit std::atomic<const ClockPage*> known_page{nullptr};

void unmap(const ClockPage* page) {
    raw_call(SYS_munmap, reinterpret_cast<long>(page), sizeof(ClockPage));
}

const ClockPage* map_page(int fd) {
    // Plain system call: fstat and mmap may be wrapped by a sanitizer that is not ready yet.
    struct stat status {};
    if (raw_call(SYS_fstat, fd, reinterpret_cast<long>(&status)) != 0 ||
        status.st_size < static_cast<off_t>(sizeof(ClockPage))) {
        return nullptr;
    }
    const long address = raw_call(SYS_mmap, 0, sizeof(ClockPage), PROT_READ, MAP_SHARED, fd, 0);
    if (address == -1) {
        return nullptr;
    }
    const auto* page = reinterpret_cast<const ClockPage*>(address);
    if (!is_clock_page(*page)) {
        unmap(page);
        return nullptr;
    }
    return page;
}

const ClockPage* open_page() {
    const char* path = std::getenv("VBOARD_CLOCK");
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    const int saved_errno = errno;
    const ClockPage* page = nullptr;
    const long fd =
        raw_call(SYS_openat, AT_FDCWD, reinterpret_cast<long>(path), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        page = map_page(static_cast<int>(fd));
        raw_call(SYS_close, fd);
    }
    errno = saved_errno;
    return page;
}

const ClockPage* find_page() {
    if (environ == nullptr) {
        return nullptr; // libc itself has not started: too early to decide
    }
    const ClockPage* mine = open_page();
    const ClockPage* known = nullptr;
    if (known_page.compare_exchange_strong(known, mine != nullptr ? mine : &no_page)) {
        return mine;
    }
    if (mine != nullptr) {
        unmap(mine); // another thread was first
    }
    return known == &no_page ? nullptr : known;
}

[[gnu::constructor]] void find_page_early() {
    board_page();
}

} // namespace

const ClockPage* board_page() {
    const ClockPage* page = known_page.load(std::memory_order_acquire);
    if (page == nullptr) {
        return find_page();
    }
    return page == &no_page ? nullptr : page;
}

} // namespace vb::shim
