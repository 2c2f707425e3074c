#include "run/program.h"

#include "control/local_socket.h"
#include "core/own_files.h"
#include "run/exit_codes.h"
#include "run/mounts.h"

#include <fmt/format.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace vb {

namespace {

namespace fs = std::filesystem;

void prepend(const char* name, const std::string& first, const char* separator) {
    const char* rest = std::getenv(name);
    const bool alone = rest == nullptr || *rest == '\0';
    setenv(name, (alone ? first : first + separator + rest).c_str(), 1);
}

// A board has all of its programs within reach, such as sysctl and fdisk, which an ordinary user of
// the machine may not.
void reach_system_programs() {
    const char* given = std::getenv("PATH");
    std::string path = given == nullptr ? "" : given;
    for (const char* folder : {"/usr/bin", "/bin", "/usr/sbin", "/sbin"}) {
        if (fmt::format(":{}:", path).find(fmt::format(":{}:", folder)) == std::string::npos) {
            path += (path.empty() ? "" : ":") + std::string(folder);
        }
    }
    setenv("PATH", path.c_str(), 1);
}

// What makes a program's calls land on the board: where it finds `vboard` and the tools beside it,
// the board's own programs, the control socket, and the clock.
void set_environment(const RunOptions& options) {
    setenv("VBOARD_CONTROL", kInnerControlName, 1);
    reach_system_programs();
    for (const char* sibling : {"../examples", "../halctl", "."}) {
        const fs::path folder = fs::weakly_canonical(own_folder() / sibling);
        if (fs::is_directory(folder)) {
            prepend("PATH", folder, ":");
        }
    }
    // In front of the machine's own programs of the same names.
    prepend("PATH", own_file(kOwnCommands), ":");
    // The board's daemons are scripts: a plain `ps` shows how they were started.
    setenv("PS_FORMAT", "pid,tty,time,args", 0);
    // AddressSanitizer takes a cancelled thread's alternate signal stack for a fault of the
    // program.
    prepend("ASAN_OPTIONS", "use_sigaltstack=0", ":");
    if (options.speed) {
        setenv("VBOARD_CLOCK", "/dev/vboard-clock", 1);
        prepend("LD_PRELOAD", own_file(kOwnClock), ":");
        // The clock has to come before AddressSanitizer's own wrappers, which mind that.
        prepend("ASAN_OPTIONS", "verify_asan_link_order=0", ":");
    }
}

// What no program on a board may do to the machine, root or not: set its clock, load kernel
// modules, reach its ports.
void drop_machine_rights() {
    for (const int right : {CAP_SYS_TIME, CAP_SYS_MODULE, CAP_SYS_RAWIO}) {
        prctl(PR_CAPBSET_DROP, right, 0, 0, 0);
    }
}

// A shell says in its prompt that one is on a board: bash before each prompt, whatever its start-up
// files have set, others by the prompt they are given.
void set_prompt() {
    setenv("PS1", "(board) \\$ ", 1);
    setenv("PROMPT_COMMAND", R"(case $PS1 in "(board) "*) ;; *) PS1="(board) $PS1" ;; esac)", 1);
}

// Job control needs a process group that is the terminal's, and that the shell can see.
void take_terminal() {
    if (isatty(STDIN_FILENO) != 0) {
        std::signal(SIGTTOU, SIG_IGN);
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpgrp());
    }
}

void reset_signals() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int signal = 1; signal < NSIG; ++signal) {
        std::signal(signal, SIG_DFL);
    }
}

// Whether a folder of PATH has a file of that name, which may not be one to run.
bool is_on_path(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        std::error_code ignored;
        const fs::path file = fs::path(folder.empty() ? "." : folder) / name;
        if (fs::exists(file, ignored) && !fs::is_directory(file, ignored)) {
            return true;
        }
    }
    return false;
}

// execvp() takes a folder of PATH that it may not look into, such as one of root's that an ordinary
// user has inherited, for a program that may not be run. A shell goes on, and finds nothing.
int reason_not_to_run(const std::string& name, int error) {
    const bool sought = name.find('/') == std::string::npos;
    return error == EACCES && sought && !is_on_path(name) ? ENOENT : error;
}

[[noreturn]] void become(const std::vector<std::string>& program) {
    std::vector<char*> arguments;
    for (const std::string& argument : program) {
        arguments.push_back(const_cast<char*>(argument.c_str())); // NOLINT: only read
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = reason_not_to_run(program[0], errno);
    fmt::print(stderr, "vboard: {}: {}\n", program[0], std::strerror(error));
    _exit(error == ENOENT ? kExitNotFound : kExitCannotRun);
}

// The working directory by its name: it may have been the machine's, where now the board's is.
void return_to(const std::string& folder) {
    if (chdir(folder.c_str()) != 0 && chdir("/") != 0) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
}

bool pass(const UniqueFd& gate) {
    const char token = 0;
    return write(gate.get(), &token, 1) == 1;
}

bool wait_at(const UniqueFd& gate) {
    char token = 0;
    return read(gate.get(), &token, 1) == 1;
}

[[noreturn]] void enter_board(const RunOptions& options, const Fence& fence,
                              const std::vector<std::string>& files, const UniqueFd& gate) {
    try {
        enter_own_mounts();
        if (!pass(gate) || !wait_at(gate)) {
            _exit(kExitUnavailable); // the server has said why
        }
        const std::string folder = fs::current_path();
        settle_mounts(files, fence.stands());
        fence.enter();
        return_to(folder);
        set_environment(options);
    } catch (const std::exception& error) {
        fmt::print(stderr, "vboard: {}\n", error.what());
        _exit(kExitUnavailable);
    }
    drop_machine_rights();
    if (options.interactive) {
        set_prompt();
        take_terminal();
    }
    reset_signals();
    become(options.program);
}

} // namespace

Program::Program(const RunOptions& options, const Fence& fence,
                 const std::vector<std::string>& files) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    gate_ = UniqueFd(ends[0]);
    const UniqueFd inner(ends[1]);
    pid_ = fork();
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (pid_ == 0) {
        gate_.reset();
        enter_board(options, fence, files, inner);
    }
    // No answer means that it is ending, and watching over it will show how.
    wait_at(gate_);
}

void Program::go() {
    pass(gate_);
    gate_.reset();
}

} // namespace vb
