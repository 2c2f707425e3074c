// The panel's process: vboard_panel LISTENER LAUNCHER [FOLDER]. The launcher starts it with the
// number of a listening socket, its own process number and the folder of images, and with the token
// in the environment, where other users do not see it.

#include "core/number.h"
#include "panel/asker.h"
#include "panel/doorway.h"
#include "panel/http_front.h"
#include "run/exit_codes.h"

#include <sys/prctl.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <thread>

namespace vb::panel {

namespace {

// It ends with its launcher, however that ends, and with nothing else: neither what a terminal
// sends to all that was started from it, nor a page.
bool tie_to(int launcher) {
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGTTOU}) {
        std::signal(signal, SIG_IGN);
    }
    return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == launcher;
}

// The HTTP library waits with select(2), which knows no higher descriptors.
void limit_descriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
    setrlimit(RLIMIT_NOFILE, &limit);
}

int be_the_panel(const std::vector<std::string>& words) {
    const int listener = number_in<int>(words.at(0)).value_or(-1);
    const int launcher = number_in<int>(words.at(1)).value_or(0);
    if (!tie_to(launcher)) {
        return kExitUnavailable;
    }
    limit_descriptors();
    const auto text_of = [](const char* name) {
        const char* const text = std::getenv(name);
        return std::string(text == nullptr ? "" : text);
    };
    const Guard guard(text_of("VBOARD_PANEL_HOST"), text_of("VBOARD_PANEL_TOKEN"));
    std::optional<std::filesystem::path> images;
    if (words.size() > 2) {
        images = words[2];
    }
    const Service service(launcher, std::move(images));
    Pages pages;
    Asker asker(launcher, pages);
    std::thread([&asker] { asker.run(); }).detach();
    serve_http(UniqueFd(listener), guard, service, pages);
    _exit(kExitUnavailable); // the socket was taken away; threads use what stands here
}

} // namespace

} // namespace vb::panel

int main(int argc, char** argv) {
    try {
        return vb::panel::be_the_panel({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vboard_panel: %s\n", error.what());
        return vb::kExitUnavailable;
    }
}
