#include "run/launcher.h"

#include "core/local_socket.h"
#include "run/board_process.h"
#include "run/exit_codes.h"
#include "run/namespaces.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace vb {

namespace {

// The board's first process; signals are passed on to it.
volatile sig_atomic_t g_board = 0; // NOLINT: a signal handler reaches nothing else

void pass_on(int signal) {
    if (g_board > 0) {
        kill(g_board, signal);
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

int exit_status_of(pid_t board) {
    int status = 0;
    while (waitpid(board, &status, 0) < 0) {
        if (errno != EINTR) {
            return kExitUnavailable;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Ties the board's life to the launcher's: the kernel kills it when the launcher goes, however it
// goes. The pipe tells whether it went before the tie was made.
void die_with_launcher(const UniqueFd& lifeline) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd launcher{lifeline.get(), POLLIN, 0};
    if (poll(&launcher, 1, 0) != 0) {
        _exit(kExitUnavailable);
    }
}

} // namespace

int run_on_board(const RunOptions& options) {
    // Made before the board has a network of its own, so that it can be reached from here.
    UniqueFd outer_control = listen_at(fmt::format("{}{}", kOuterControlPrefix, getpid()));
    int ends[2];
    if (!enter_namespaces() || pipe2(ends, O_CLOEXEC) != 0) {
        return kExitUnavailable;
    }
    // Opened only now: the kernel wants it opened in the user namespace that mounts it.
    UniqueFd fuse(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!fuse) {
        explain_missing_fuse(errno);
        return kExitUnavailable;
    }
    UniqueFd lifeline(ends[0]);
    UniqueFd held(ends[1]); // closed by the kernel when the launcher is gone

    std::fflush(nullptr);
    const pid_t board = fork();
    if (board < 0) {
        fmt::print(stderr, "vboard: cannot start a process: {}\n", std::strerror(errno));
        return kExitUnavailable;
    }
    if (board == 0) {
        held.reset();
        die_with_launcher(lifeline);
        run_board_process(options, std::move(fuse), std::move(outer_control));
    }
    fuse.reset();
    outer_control.reset();
    g_board = board;
    set_signals();
    return exit_status_of(board);
}

} // namespace vb
