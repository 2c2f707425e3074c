#include "board_clock.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace vb {
namespace {

constexpr double kSlowest = 0.001;
constexpr double kFastest = 100000.0;

// Longer than a processor may run ahead of its own clock read.
constexpr std::int64_t kSettleNs = 1000;

class File {
  public:
    explicit File(int fd) : fd_(fd) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    int get() const { return fd_; }

  private:
    int fd_;
};

std::int64_t read_ns(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::int64_t real_now() {
    return read_ns(CLOCK_MONOTONIC);
}

[[noreturn]] void fail(const std::filesystem::path& file) {
    throw std::system_error(errno, std::generic_category(), "board clock " + file.string());
}

void store(ClockPage& page, const ClockRate& rate) {
    page.real_base.store(rate.real_base, std::memory_order_release);
    page.board_base.store(rate.board_base, std::memory_order_release);
    page.realtime_base.store(rate.realtime_base, std::memory_order_release);
    page.speed.store(rate.speed, std::memory_order_release);
}

// Makes the sequence odd, alone among the owner's threads; returns the odd value.
std::uint32_t begin_write(ClockPage& page) {
    std::uint32_t even = page.sequence.load(std::memory_order_relaxed) & ~1U;
    while (!page.sequence.compare_exchange_weak(even, even + 1, std::memory_order_seq_cst)) {
        even &= ~1U;
        sched_yield();
    }
    return even + 1;
}

// A reader that still saw the even sequence may have read the clock a trifle later; the line
// must not bend before that instant, or the reader's next look would find an earlier time.
std::int64_t settled_now() {
    const std::int64_t start = real_now();
    std::int64_t now = start;
    while (now < start + kSettleNs) {
        now = real_now();
    }
    return now;
}

} // namespace

void BoardClock::Unmap::operator()(ClockPage* page) const {
    ::munmap(page, sizeof(ClockPage));
}

BoardClock::BoardClock(Mapping page, bool owner) : page_(std::move(page)), owner_(owner) {}

BoardClock::Mapping BoardClock::map(int fd, int protection) {
    void* address = ::mmap(nullptr, sizeof(ClockPage), protection, MAP_SHARED, fd, 0);
    return Mapping(address == MAP_FAILED ? nullptr : static_cast<ClockPage*>(address));
}

BoardClock BoardClock::create(const std::filesystem::path& file) {
    const File fd(::open(file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (fd.get() < 0 || ::ftruncate(fd.get(), sizeof(ClockPage)) != 0) {
        fail(file);
    }
    Mapping page = map(fd.get(), PROT_READ | PROT_WRITE);
    if (!page) {
        fail(file);
    }
    new (page.get()) ClockPage{};
    const std::int64_t now = real_now();
    store(*page, {now, now, read_ns(CLOCK_REALTIME), static_cast<std::uint64_t>(kSpeedOne)});
    page->version.store(kClockPageVersion, std::memory_order_relaxed);
    page->magic.store(kClockPageMagic, std::memory_order_release);
    return BoardClock(std::move(page), true);
}

std::optional<BoardClock> BoardClock::open(const std::filesystem::path& file) {
    const File fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0 ||
        status.st_size < static_cast<off_t>(sizeof(ClockPage))) {
        return std::nullopt;
    }
    Mapping page = map(fd.get(), PROT_READ);
    if (!page || !is_clock_page(*page)) {
        return std::nullopt;
    }
    return BoardClock(std::move(page), false);
}

std::int64_t BoardClock::now_ns() const {
    const ClockReading reading = read_clock(*page_, real_now);
    return board_at(reading.rate, reading.real);
}

std::int64_t BoardClock::realtime_ns() const {
    const ClockReading reading = read_clock(*page_, real_now);
    return realtime_at(reading.rate, reading.real);
}

double BoardClock::speed() const {
    return std::ldexp(static_cast<double>(read_rate(*page_).speed), -kSpeedBits);
}

void BoardClock::set_speed(double speed) {
    if (!owner_) {
        throw std::logic_error("the speed belongs to the owner of the board clock");
    }
    if (!(speed >= kSlowest && speed <= kFastest)) {
        throw std::invalid_argument("board clock speed must be from 0.001 to 100000");
    }
    const auto fixed = static_cast<std::uint64_t>(std::ldexp(speed, kSpeedBits));
    ClockPage& page = *page_;
    const std::uint32_t odd = begin_write(page);
    const ClockRate old{page.real_base.load(), page.board_base.load(), page.realtime_base.load(),
                        page.speed.load()};
    const std::int64_t now = settled_now();
    store(page, {now, board_at(old, now), realtime_at(old, now), fixed});
    page.sequence.store(odd + 1, std::memory_order_release);
}

std::int64_t BoardClock::real_deadline_ns(std::int64_t board_ns) const {
    return real_when_board(read_rate(*page_), board_ns);
}

std::int64_t BoardClock::real_duration_ns(std::int64_t board_ns) const {
    return saturated(real_span(read_rate(*page_), board_ns));
}

std::int64_t BoardClock::board_duration_ns(std::int64_t real_ns) const {
    return saturated(board_span_down(read_rate(*page_), real_ns));
}

} // namespace vb
