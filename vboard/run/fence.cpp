#include "run/fence.h"

#include "core/fail.h"
#include "run/namespaces.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>

namespace vb {

namespace {

constexpr int kFenced = CLONE_NEWUSER | CLONE_NEWUTS;

// What the holder tells the server.
enum class Ground : char { none, network, fence };

// "0 100000 65536\n" of a map, as what maps the same users to themselves: "0 0 65536\n".
std::string identity_of(const char* map) {
    std::ifstream lines(map);
    std::string identity;
    unsigned long first = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    while (lines >> first >> outside >> count) {
        identity += fmt::format("{} {} {}\n", first, first, count);
    }
    return identity;
}

// Outside, root needs no leave for these; inside, the kernel goes by the limits.
void lift_limits() {
    const struct {
        decltype(RLIMIT_NICE) resource;
        rlim_t limit;
    } limits[] = {{RLIMIT_RTPRIO, 99}, {RLIMIT_NICE, 40}, {RLIMIT_MEMLOCK, RLIM_INFINITY}};
    for (const auto& each : limits) {
        const rlimit limit{each.limit, each.limit};
        setrlimit(each.resource, &limit);
    }
}

} // namespace

Fence::Fence(bool wanted) : wanted_(wanted) {
    if (!wanted_) {
        return;
    }
    holder_ = getpid();
    holder_handle_ = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, holder_, 0)));
    int ends[2];
    if (!holder_handle_ || pipe2(ends, O_CLOEXEC) != 0) {
        fail("pidfd_open");
    }
    from_holder_ = UniqueFd(ends[0]);
    to_server_ = UniqueFd(ends[1]);
}

void Fence::raise() {
    if (!wanted_) {
        return;
    }
    Ground ground = Ground::fence;
    if (unshare(kFenced | CLONE_NEWNET) != 0) {
        ground = unshare(CLONE_NEWNET) == 0 ? Ground::network : Ground::none;
    }
    write(to_server_.get(), &ground, sizeof ground);
}

bool Fence::let_users_be_themselves() const {
    const std::string folder = fmt::format("/proc/{}/", holder_);
    return write_setting(folder + "uid_map", identity_of("/proc/self/uid_map")) &&
           write_setting(folder + "gid_map", identity_of("/proc/self/gid_map"));
}

void Fence::close() {
    if (!wanted_) {
        return;
    }
    to_server_.reset();
    Ground ground = Ground::none;
    if (read(from_holder_.get(), &ground, sizeof ground) != sizeof ground ||
        ground == Ground::none || setns(holder_handle_.get(), CLONE_NEWNET) != 0) {
        fail("a network of the board's own");
    }
    stands_ = ground == Ground::fence && let_users_be_themselves();
}

void Fence::enter() const {
    if (!stands_) {
        return;
    }
    lift_limits();
    if (setns(holder_handle_.get(), kFenced) != 0 || unshare(CLONE_NEWNS) != 0) {
        fail("the user namespace of the board");
    }
}

} // namespace vb
