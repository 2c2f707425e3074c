#include "run/launcher.h"

#include "control/local_socket.h"
#include "core/own_files.h"
#include "run/board_process.h"
#include "run/exit_codes.h"
#include "run/fence.h"
#include "run/namespaces.h"
#include "run/panel_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>

namespace vb {

namespace {

// The child, to which signals are passed on, and whether one of them came.
volatile sig_atomic_t g_child = 0;     // NOLINT: a signal handler reaches nothing else
volatile sig_atomic_t g_signalled = 0; // NOLINT

void pass_on(int signal) {
    g_signalled = 1;
    if (g_child > 0) {
        kill(g_child, signal);
    }
}

// What the terminal sends reaches the program by itself; what is sent to the launcher alone has to
// be passed on.
void set_signals() {
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    std::signal(SIGTTOU, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = pass_on;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
}

int exit_status_of(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return kExitUnavailable;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Ties a child's life to its parent's: the kernel kills it when the parent goes, however it goes.
// The pipe tells whether it went before the tie was made.
void die_with_parent(const UniqueFd& lifeline) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd parent{lifeline.get(), POLLIN, 0};
    if (poll(&parent, 1, 0) != 0) {
        _exit(kExitUnavailable);
    }
}

pid_t start_process() {
#ifdef __SANITIZE_THREAD__
    // fork() would start the sanitizer's own thread, too, with which a user makes no namespaces.
    if (geteuid() != 0) {
        return static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    }
#endif
    return fork();
}

// Does something in a process of its own, tied to this one, and returns its exit status. This
// process has its own deed to do meanwhile.
int in_child(
    const std::function<int()>& deed, const std::function<void()>& meanwhile = [] {}) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return kExitUnavailable;
    }
    UniqueFd lifeline(ends[0]);
    UniqueFd held(ends[1]); // closed by the kernel when this process is gone
    std::fflush(nullptr);
    const pid_t child = start_process();
    if (child < 0) {
        fmt::print(stderr, "vboard: cannot start a process: {}\n", std::strerror(errno));
        return kExitUnavailable;
    }
    if (child == 0) {
        held.reset();
        die_with_parent(lifeline);
        const int status = deed();
        std::fflush(nullptr);
        _exit(status);
    }
    g_child = child;
    set_signals();
    meanwhile();
    const int status = exit_status_of(child);
    g_child = 0;
    return status;
}

// The board's first process.
int serve_board(const Start& start, Fence& fence) {
    // Opened only now: the kernel wants it opened in the user namespace that mounts it. And only
    // here: calls that nobody answers any more end when the last copy is closed.
    UniqueFd fuse(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!fuse) {
        explain_missing_fuse(errno);
        return kExitUnavailable;
    }
    run_board_process(start, fence, std::move(fuse));
}

// In a process that is there for this one start: it cannot leave the namespaces again.
int start_board(const Start& start) {
    const Entered entered = enter_namespaces();
    if (entered == Entered::not_at_all) {
        return kExitUnavailable;
    }
    Fence fence(entered == Entered::as_root);
    return in_child([&] { return serve_board(start, fence); }, [&] { fence.raise(); });
}

// A word that the launcher and its children see alike.
class SharedFlag {
  public:
    SharedFlag()
        : place_(mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
        if (place_ == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        flag_ = new (place_) std::atomic<bool>(false);
    }
    ~SharedFlag() { munmap(place_, sizeof(std::atomic<bool>)); }
    SharedFlag(const SharedFlag&) = delete;
    SharedFlag& operator=(const SharedFlag&) = delete;
    std::atomic<bool>& get() { return *flag_; }

  private:
    void* place_;
    std::atomic<bool>* flag_;
};

} // namespace

int run_on_board(const RunOptions& options) {
    if (connect_to(kInnerControlName)) {
        fmt::print(stderr, "vboard: this is a board already, and boards do not run inside boards\n"
                           "vboard: here `vboard ctl` steers it; start others elsewhere\n");
        return kExitUnavailable;
    }
    find_own_files();
    // Made before a board has a network of its own, so that it can be reached from here.
    const UniqueFd control = listen_at(fmt::format("{}{}", kOuterControlPrefix, getpid()));
    KeptState state(options.state_folder);
    const PanelProcess panel(options);
    SharedFlag again;
    int status = 0;
    unsigned number = 0;
    do {
        again.get() = false;
        const Start start{options, state, ++number, again.get(), control};
        status = in_child([&] { return start_board(start); });
        state.collect();
    } while (again.get() && g_signalled == 0);
    return status;
}

} // namespace vb
