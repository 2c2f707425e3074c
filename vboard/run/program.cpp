#include "run/program.h"

#include "core/local_socket.h"
#include "run/exit_codes.h"

#include <fmt/format.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vb {

namespace {

namespace fs = std::filesystem;

constexpr char kClockLibrary[] = "libvboard_clock.so";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void prepend(const char* name, const std::string& first, const char* separator) {
    const std::string rest = environment(name);
    setenv(name, (rest.empty() ? first : first + separator + rest).c_str(), 1);
}

fs::path own_folder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

// Beside the program in a build, in the library folder once installed.
std::string clock_library() {
    const fs::path here = own_folder();
    for (const fs::path& candidate :
         {here / kClockLibrary, here / ".." / VBOARD_LIBDIR / "vboard" / kClockLibrary}) {
        if (fs::exists(candidate)) {
            return fs::weakly_canonical(candidate);
        }
    }
    return "";
}

struct SpawnAttributes {
    posix_spawnattr_t value{};
    SpawnAttributes() { posix_spawnattr_init(&value); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&value); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
};

struct SpawnActions {
    posix_spawn_file_actions_t value{};
    SpawnActions() { posix_spawn_file_actions_init(&value); }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&value); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
};

} // namespace

void set_program_environment(const RunOptions& options) {
    setenv("VBOARD_CONTROL", kInnerControlName, 1);
    for (const char* sibling : {"../examples", "../halctl", "."}) {
        const fs::path folder = fs::weakly_canonical(own_folder() / sibling);
        if (fs::is_directory(folder)) {
            prepend("PATH", folder, ":");
        }
    }
    if (options.speed) {
        setenv("VBOARD_CLOCK", "/dev/vboard-clock", 1);
        prepend("LD_PRELOAD", clock_library(), ":");
        // The clock has to come before AddressSanitizer's own wrappers, which mind that.
        prepend("ASAN_OPTIONS", "verify_asan_link_order=0", ":");
    }
}

pid_t start_program(const RunOptions& options) {
    SpawnAttributes attributes;
    SpawnActions actions;
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes.value, &none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes.value, &all);
    if (options.interactive && isatty(STDIN_FILENO) != 0) {
        // Job control needs a process group that is the terminal's, and that the shell can see.
        posix_spawnattr_setpgroup(&attributes.value, 0);
        flags = static_cast<short>(flags | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_addtcsetpgrp_np(&actions.value, STDIN_FILENO);
    }
    posix_spawnattr_setflags(&attributes.value, flags);

    std::vector<char*> arguments;
    for (const std::string& argument : options.program) {
        arguments.push_back(const_cast<char*>(argument.c_str())); // NOLINT: only read
    }
    arguments.push_back(nullptr);
    pid_t program = 0;
    const int error = posix_spawnp(&program, arguments[0], &actions.value, &attributes.value,
                                   arguments.data(), environ);
    if (error != 0) {
        fmt::print(stderr, "vboard: {}: {}\n", options.program[0], std::strerror(error));
        return error == ENOENT ? -kExitNotFound : -kExitCannotRun;
    }
    return program;
}

} // namespace vb
