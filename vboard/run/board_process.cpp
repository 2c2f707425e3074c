#include "run/board_process.h"

#include "control/board_verbs.h"
#include "control/control.h"
#include "host/capture.h"
#include "models/board_file.h"
#include "run/exit_codes.h"
#include "run/mounts.h"
#include "run/namespaces.h"
#include "run/program.h"
#include "serve/fuse_server.h"
#include "serve/syslog_socket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace vb {

namespace {

sigset_t watched_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGCHLD, SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

// Waits until the program ends, burying every orphan of the board meanwhile.
int watch_over(pid_t program) {
    const sigset_t signals = watched_signals();
    while (true) {
        const int signal = sigwaitinfo(&signals, nullptr);
        if (signal == SIGTERM || signal == SIGHUP) {
            kill(program, signal);
        }
        int status = 0;
        for (pid_t ended = waitpid(-1, &status, WNOHANG); ended > 0;
             ended = waitpid(-1, &status, WNOHANG)) {
            if (ended == program) {
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
        }
    }
}

void add_info_verb(Board& board, const RunOptions& options) {
    board.verbs().add({"board.info",
                       {},
                       "what runs on this board, and its clock",
                       [&board, &options](const Json&) -> Json {
                           return {{"program", options.program},
                                   {"seconds", static_cast<double>(board.now()) / 1e9},
                                   {"speed", board.speed()}};
                       }});
}

// Kills all of the board but this process. Calls that end so are no concern of anybody's, but
// libfuse tells standard error of them.
void end_programs() {
    const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    dup2(nowhere.get(), STDERR_FILENO);
    if (getpid() == 1) {
        kill(-1, SIGKILL);
    }
}

// Ends what the program left behind while there is still somebody to answer its calls: a call cut
// off would be told of on its terminal. Whatever does not end by then ends with this process.
void end_and_bury_programs() {
    end_programs();
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    const timespec longest{2, 0};
    while (true) {
        pid_t ended = 0;
        while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) {
        }
        if (ended < 0 || sigtimedwait(&child, nullptr, &longest) < 0) {
            return;
        }
    }
}

void set_up_power(Board& board, const Start& start) {
    board.keep_state([&start](const std::string& name) { return start.state.open(name); });
    board.power().set_start(start.number);
    board.power().on_end([&start](bool again) {
        start.again = again;
        end_programs();
    });
}

void capture_usb(Board& board, const Start& start) {
    const std::string& path = start.options.usb_capture_path;
    if (path.empty()) {
        return;
    }
    auto capture = std::make_shared<host::Capture>([&board] { return board.now(); });
    if (!capture->write_to(path, start.number > 1)) {
        throw std::invalid_argument(
            fmt::format("--usb-capture: {} cannot be written: {}", path, std::strerror(errno)));
    }
    board.parts().offer(host::Capture::kName, std::move(capture));
}

void set_up(Board& board, const Start& start) {
    const RunOptions& options = start.options;
    if (!options.trace_path.empty() &&
        !board.trace().write_to(options.trace_path, start.number > 1)) {
        throw std::invalid_argument(fmt::format("--trace: {} cannot be written: {}",
                                                options.trace_path, std::strerror(errno)));
    }
    capture_usb(board, start);
    set_up_power(board, start);
    add_board_verbs(board);
    add_info_verb(board, options);
    add_placeholders(board.tree());
    build_board(board, options.board_file);
    for (const std::string& fault : options.faults) {
        try {
            board.faults().add(fault);
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(fmt::format("--fault: {}", error.what()));
        }
    }
}

// Everything on the board happens under one lock, so one heap does: with one for each thread,
// every one of them asks the kernel for memory page by page. What is freed is soon wanted again.
void set_up_heap() {
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    mallopt(M_TOP_PAD, 1 << 20);
    mallopt(M_TRIM_THRESHOLD, 8 << 20);
}

int serve_and_run(const Start& start, Fence& fence, UniqueFd fuse) {
    const RunOptions& options = start.options;
    set_up_heap();
    raise_scaffold(fuse.get());
    BoardClock clock = BoardClock::create(fmt::format("{}/clock", kHiddenFolder));
    clock.set_speed(options.speed.value_or(1.0));

    // These live until the process ends: their threads are never joined.
    auto& board = *new Board(std::move(clock)); // NOLINT
    set_up(board, start);
    auto& log = *new SyslogSocket(board, fmt::format("{}/log", kHiddenFolder)); // NOLINT
    board.before_each_act([&log] { log.catch_up(); });

    fence.close();
    Program program(options, fence, files_elsewhere(board.tree())); // before the first thread
    UniqueFd proc = open_board_proc();
    // Held until the process ends: libfuse's threads would tell standard error of an end.
    leave_scaffold().release();
    raise_loopback();
    board.act([&] { board.enter_network(); });
    new FuseServer(board, fuse.release(), std::move(proc)); // NOLINT
    auto& control = *new ControlServer(board);              // NOLINT
    control.serve(listen_at(kInnerControlName));
    if (start.control) {
        control.serve(UniqueFd(fcntl(start.control.get(), F_DUPFD_CLOEXEC, 0)));
    }
    log.serve();
    board.start();

    board.act([&] { board.trace().add("program", {{"arguments", options.program}}); });
    program.go();
    const int status = watch_over(program.pid());
    end_and_bury_programs();
    board.act([&] {
        board.power().shut_down();
        board.trace().add("exit", {{"status", status}});
    });
    return status;
}

} // namespace

void run_board_process(const Start& start, Fence& fence, UniqueFd fuse) {
    // Blocked before the first thread starts, so that they all arrive at watch_over().
    const sigset_t signals = watched_signals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    int status = kExitUnavailable;
    try {
        status = serve_and_run(start, fence, std::move(fuse));
    } catch (const std::system_error& error) {
        fmt::print(stderr, "vboard: {}\n", error.what());
    } catch (const BootFailure& failure) {
        fmt::print(stderr, "vboard: {}\n", failure.what());
        status = kExitNoBoot;
    } catch (const std::invalid_argument& error) {
        fmt::print(stderr, "vboard: {}\nTry `vboard run --help`\n", error.what());
        status = kExitUsage;
    } catch (const std::exception& error) { // the board file
        fmt::print(stderr, "vboard: {}\n", error.what());
        status = kExitUsage;
    }
    std::fflush(nullptr);
    _exit(status);
}

} // namespace vb
