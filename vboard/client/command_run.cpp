#include "client/command_run.h"

#include "core/unique_fd.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cerrno>
#include <system_error>

namespace vb {

namespace {

// An unnamed file in memory that a program can write to.
UniqueFd scratch_file(const char* name) {
    return UniqueFd(memfd_create(name, MFD_CLOEXEC));
}

std::string contents_of(const UniqueFd& file) {
    std::string text(static_cast<std::size_t>(lseek(file.get(), 0, SEEK_END)), '\0');
    if (pread(file.get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        text.clear();
    }
    return text;
}

pid_t spawn(const std::vector<std::string>& words, int out, int err) {
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())); // NOLINT: only read
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    pid_t command = 0;
    const int error =
        posix_spawnp(&command, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), words[0]);
    }
    return command;
}

} // namespace

CommandResult run_command(const std::vector<std::string>& words) {
    const UniqueFd out = scratch_file("out");
    const UniqueFd err = scratch_file("err");
    CommandResult result;
    result.status = wait_for_command(spawn(words, out.get(), err.get()));
    result.out = contents_of(out);
    result.err = contents_of(err);
    return result;
}

pid_t start_command(const std::vector<std::string>& words) {
    const UniqueFd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return spawn(words, nowhere.get(), nowhere.get());
}

int wait_for_command(pid_t command) {
    int status = 0;
    while (waitpid(command, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace vb
