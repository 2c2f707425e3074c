#include "run/kept_state.h"

#include "core/fail.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace vb {

namespace {

constexpr std::size_t kLongestName = 200;

// A message that carries a name and a descriptor.
class Letter {
  public:
    Letter() {
        header_.msg_iov = &text_;
        header_.msg_iovlen = 1;
        header_.msg_control = control_.data();
        header_.msg_controllen = control_.size();
    }
    ~Letter() = default;
    Letter(const Letter&) = delete;
    Letter& operator=(const Letter&) = delete;

    bool send(const UniqueFd& socket, const std::string& name, int descriptor) {
        text_.iov_len = name.copy(name_.data(), name_.size());
        cmsghdr* const enclosed = CMSG_FIRSTHDR(&header_);
        enclosed->cmsg_level = SOL_SOCKET;
        enclosed->cmsg_type = SCM_RIGHTS;
        enclosed->cmsg_len = CMSG_LEN(sizeof descriptor);
        std::memcpy(CMSG_DATA(enclosed), &descriptor, sizeof descriptor);
        return sendmsg(socket.get(), &header_, MSG_DONTWAIT) >= 0;
    }

    // False where there is no further one.
    bool receive(const UniqueFd& socket, std::string& name, UniqueFd& descriptor) {
        const ssize_t length = recvmsg(socket.get(), &header_, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        const cmsghdr* const enclosed = length > 0 ? CMSG_FIRSTHDR(&header_) : nullptr;
        if (enclosed == nullptr) {
            return false;
        }
        name.assign(name_.data(), static_cast<std::size_t>(length));
        int number = -1;
        std::memcpy(&number, CMSG_DATA(enclosed), sizeof number);
        descriptor = UniqueFd(number);
        return true;
    }

  private:
    std::array<char, kLongestName> name_{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
    iovec text_{name_.data(), name_.size()};
    msghdr header_{};
};

} // namespace

KeptState::KeptState(const std::string& folder) {
    if (folder.empty()) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            fail("socketpair");
        }
        to_launcher_ = UniqueFd(ends[0]);
        from_board_ = UniqueFd(ends[1]);
        return;
    }
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw std::invalid_argument(fmt::format("--state: {} cannot be made a folder: {}", folder,
                                                std::strerror(error.value())));
    }
    folder_ = UniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) {
        throw std::invalid_argument(
            fmt::format("--state: {} cannot be used: {}", folder, std::strerror(errno)));
    }
    if (flock(folder_.get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(
            fmt::format("--state: {} is in use by another board that runs", folder));
    }
}

UniqueFd KeptState::open(const std::string& name) {
    UniqueFd file =
        folder_ ? UniqueFd(openat(folder_.get(), name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
                : open_in_memory(name);
    if (!file) {
        fail(name);
    }
    return file;
}

UniqueFd KeptState::open_in_memory(const std::string& name) {
    UniqueFd& file = files_[name];
    if (!file) {
        file = UniqueFd(memfd_create("board", MFD_CLOEXEC));
        if (!file || !Letter().send(to_launcher_, name, file.get())) {
            fail(name);
        }
    }
    return UniqueFd(fcntl(file.get(), F_DUPFD_CLOEXEC, 0));
}

void KeptState::collect() {
    std::string name;
    UniqueFd file;
    while (from_board_ && Letter().receive(from_board_, name, file)) {
        files_[name] = std::exchange(file, UniqueFd());
    }
}

} // namespace vb
