#include "run/panel_process.h"

#include "core/own_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <system_error>

namespace vb {

namespace {

constexpr int kListener = 3; // the descriptor that the panel listens at

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t spawn_panel(std::vector<std::string> words, std::vector<std::string> added,
                  const UniqueFd& listener) {
    for (char** each = environ; *each != nullptr; ++each) {
        added.emplace_back(*each);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, listener.get(), kListener);
    pid_t panel = 0;
    const int error = posix_spawn(&panel, words[0].c_str(), &actions, nullptr,
                                  pointers_to(words).data(), pointers_to(added).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), words[0]);
    }
    return panel;
}

} // namespace

PanelProcess::PanelProcess(const RunOptions& options) {
    if (!options.panel) {
        return;
    }
    panel::Doorway door = *options.panel;
    const UniqueFd listener = door.open();
    const std::string token = door.is_default() ? "" : panel::new_token();
    std::vector<std::string> words = {own_file(kOwnPanel), std::to_string(kListener),
                                      std::to_string(getpid())};
    if (!options.sticks_folder.empty()) {
        words.push_back(std::filesystem::canonical(options.sticks_folder));
    }
    pid_ = spawn_panel(std::move(words),
                       {fmt::format("VBOARD_PANEL_HOST={}", door.host()),
                        fmt::format("VBOARD_PANEL_TOKEN={}", token)},
                       listener);
    fmt::print(stderr, "vboard: panel at http://{}/{}{}\n", door.host(),
               token.empty() ? "" : "#token=", token);
}

PanelProcess::~PanelProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

} // namespace vb
