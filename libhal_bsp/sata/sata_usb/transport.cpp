// Blocks to and from the bridge disk.
#include "sata/sata_usb/bridge.h"
#include "support/cancel.h"
#include "support/fields.h"
#include "support/log.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <scsi/sg.h>
#include <sys/ioctl.h>

static_assert(sizeof inquiry_data == 36);

namespace {

using namespace hal::sata;

constexpr unsigned int kUnusedLunInhibit = 2;
constexpr std::size_t kZeroedByRead = 8; // after a failure there is no packet in the buffer

using Sense = std::array<uint8_t, 32>;

// What sets the two block commands apart.
struct BlockCommand {
    int direction;
    uint8_t code;
    const char* failed;  // ERROR
    const char* no_disk; // ERROR, or null
};

constexpr BlockCommand kRead{SG_DXFER_FROM_DEV, 0x28, "Sending SCSI Command failed, mcu_recover\n",
                             nullptr};
constexpr BlockCommand kWrite{SG_DXFER_TO_DEV, 0x2A, "Sending SCSI Command failed,mcu_recover\n",
                              "sata_usb_prv.sata_dev_fd is null\n"};

// A signal before the request was taken is no failure of the disk.
int send_request(int fd, sg_io_hdr& request) {
    int result = 0;
    do {
        result = ioctl(fd, SG_IO, &request);
    } while (result < 0 && errno == EINTR);
    return result;
}

int send_block_command(const BlockCommand& command, int fd, sg_io_hdr& request) {
    std::array<uint8_t, 10> cdb{command.code};
    hal::store_be(std::span(cdb).subspan<7>(), static_cast<uint16_t>(request.dxfer_len >> 9U));
    request.dxfer_direction = command.direction;
    request.cmdp = cdb.data();
    request.cmd_len = cdb.size();
    const int result = send_request(fd, request);
    request.cmdp = nullptr;
    return result;
}

// A block command on the descriptor that `descriptor` gives while nobody recovers; nothing where
// it has none.
template <typename Descriptor>
int32_t run_block_command(const BlockCommand& command, sg_io_hdr& request, Descriptor descriptor) {
    const hal::CancelOff no_cancel;
    uint32_t generation = 0;
    std::optional<int> result;
    {
        const hal::RecoveryGate::Command turn(gate);
        generation = turn.generation();
        if (const std::optional<int> fd = descriptor()) {
            result = send_block_command(command, *fd, request);
        }
    }
    if (!result) {
        if (command.no_disk != nullptr) {
            HAL_LOG(HAL_LOG_ERROR, "%s", command.no_disk);
        }
        return kFailed;
    }
    if (*result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "%s", command.failed);
        recover_after(generation);
        return *result;
    }
    return request.status;
}

int32_t run_on(const BlockCommand& command, int fd, sg_io_hdr* request) {
    if (request == nullptr) {
        return kFailed;
    }
    return run_block_command(command, *request, [fd] { return std::optional(fd); });
}

std::optional<int> disk() {
    const int fd = std::atomic_ref(sata_usb_prv.sata_dev_fd).load();
    return fd > 0 ? std::optional(fd) : std::nullopt;
}

sg_io_hdr make_request(void* buffer, uint32_t length, Sense& sense) {
    sg_io_hdr request{};
    request.interface_id = 'S';
    request.dxferp = buffer;
    request.dxfer_len = length;
    request.sbp = sense.data();
    request.mx_sb_len = static_cast<uint8_t>(sense.size());
    return request;
}

// The result of the ioctl; nothing where there is no disk.
std::optional<int> inquire(sg_io_hdr& request) {
    std::array<uint8_t, 16> command{0x12, 0, 0, 0, sizeof inquiry_data, 0};
    request.dxfer_direction = SG_DXFER_FROM_DEV;
    request.cmdp = command.data();
    request.cmd_len = command.size();
    const hal::RecoveryGate::Command turn(gate);
    const int fd = std::atomic_ref(sata_usb_prv.sata_dev_fd).load();
    if (fd < 0) {
        return std::nullopt;
    }
    // 0 is no disk either, but standard input: that gets no command, and so none succeeds.
    return send_request(fd != 0 ? fd : kFailed, request);
}

} // namespace

int32_t sata_read(void* buffer, uint32_t length, [[maybe_unused]] uint32_t unused1,
                  [[maybe_unused]] uint32_t unused2) {
    if (buffer == nullptr) {
        return kFailed;
    }
    Sense sense{};
    sg_io_hdr request = make_request(buffer, length, sense);
    request.flags = kUnusedLunInhibit;
    std::memset(buffer, 0, std::min<std::size_t>(length, kZeroedByRead));
    return run_block_command(kRead, request, disk);
}

int32_t sata_write(const void* buffer, uint32_t length, [[maybe_unused]] uint32_t unused1,
                   [[maybe_unused]] uint32_t unused2) {
    if (buffer == nullptr) {
        return kFailed;
    }
    constexpr unsigned int kTimeoutMs = 2000;
    Sense sense{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): a write only reads it
    sg_io_hdr request = make_request(const_cast<void*>(buffer), length, sense);
    request.flags = kUnusedLunInhibit;
    request.timeout = kTimeoutMs;
    return run_block_command(kWrite, request, disk);
}

int32_t scsi_read(int fd, [[maybe_unused]] uint32_t unused1, [[maybe_unused]] uint32_t unused2,
                  struct sg_io_hdr* request) {
    return run_on(kRead, fd, request);
}

int32_t scsi_write(int fd, [[maybe_unused]] uint32_t unused1, [[maybe_unused]] uint32_t unused2,
                   struct sg_io_hdr* request) {
    return run_on(kWrite, fd, request);
}

int32_t check_inquiry(void) {
    const hal::CancelOff no_cancel;
    std::array<uint8_t, sizeof inquiry_data> answer{};
    Sense sense{};
    sg_io_hdr request = make_request(answer.data(), answer.size(), sense);
    const std::optional<int> result = inquire(request);
    if (!result) {
        return kFailed;
    }
    if (*result < 0) {
        HAL_LOG(HAL_LOG_ERROR, "Sending SCSI Command failed.\n");
        return kFailed;
    }
    if (request.status != 0) {
        show_sense_buffer(&request);
        return kFailed;
    }
    return std::equal(answer.begin(), answer.end(), std::begin(inquiry_data)) ? kDone : kFailed;
}

int32_t show_sense_buffer(const struct sg_io_hdr* request) {
    const hal::CancelOff no_cancel;
    if (request != nullptr && request->sbp != nullptr) {
        for (const uint8_t byte : std::span(request->sbp, request->mx_sb_len)) {
            std::printf("%02x ", byte);
        }
    }
    return std::putchar('\n');
}
