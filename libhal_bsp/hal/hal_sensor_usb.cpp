// The sensor link: packets both ways, images, and the state of the connection.
#include <hal_bsp/sensor_usb.h>

#include "support/attribute.h"
#include "support/connection.h"
#include "support/device_call.h"
#include "support/listener.h"
#include "support/log.h"
#include "support/run_flag.h"
#include "support/shared_fd.h"
#include "support/thread.h"

#include <hal_bsp/otg.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

hal_sensor_usb_channel hal_sensor_usb_info;

static_assert(offsetof(hal_sensor_usb_data, data) == 8 && sizeof(hal_sensor_usb_data) == 16);
static_assert(offsetof(hal_sensor_usb_state, cur) == 4 && sizeof(hal_sensor_usb_state) == 8);
static_assert(offsetof(hal_sensor_usb_pkt, data) == 8 && offsetof(hal_sensor_usb_pkt, arg0) == 16 &&
              offsetof(hal_sensor_usb_pkt, arg1) == 20 && sizeof(hal_sensor_usb_pkt) == 24);
static_assert(offsetof(hal_sensor_image_pkt, value8) == 8 &&
              offsetof(hal_sensor_image_pkt, value16) == 16 && sizeof(hal_sensor_image_pkt) == 24);
static_assert(offsetof(hal_sensor_usb_channel, fd) == 4 &&
              offsetof(hal_sensor_usb_channel, data_cb) == 8 &&
              offsetof(hal_sensor_usb_channel, state_cb) == 16 &&
              offsetof(hal_sensor_usb_channel, data_tid) == 24 &&
              offsetof(hal_sensor_usb_channel, state_tid) == 32 &&
              sizeof(hal_sensor_usb_channel) == 40);

namespace {

using Channel = hal_sensor_usb_channel;
using ChannelRun = hal::Run<decltype(Channel::thread_state)>;

constexpr const char* kModule = "hal_sensor_usb";
constexpr const char* kNode = "/dev/sensor_usb";

constexpr int32_t kDone = 0;
constexpr int32_t kFailed = -35;
constexpr hal::Pace kPace{};

// The size fields of the codes say 8.
constexpr unsigned long kReceivePacket = 0x80087321;
constexpr unsigned long kSendPacket = 0x40087322;
constexpr unsigned long kSendImage = 0x40087323;
constexpr unsigned long kClearFlag = 0x40087324;

constexpr const char* kSendPacketError = "ioctl CMD_SUSB_SEND_PROTO_DATA fail\n";
constexpr const char* kSendImageError = "ioctl CMD_SUSB_SEND_IMAGE_DATA fail\n";
constexpr const char* kClearFlagError = "ioctl CMD_SUSB_ELEAR_DATA_FLAG fail\n";

constexpr hal::Attribute kUsbsta{"/sys/devices/virtual/android_usb/android0/usbsta",
                                 "state dir is not exist\n", "get_usbsta popen fp error\n",
                                 HAL_LOG_INFO};

using PacketBytes = std::array<uint8_t, HAL_SENSOR_USB_PACKET_SIZE>;

// The driver's records.
struct ReceiveRecord {
    uint32_t len;
    PacketBytes data;
};
static_assert(offsetof(ReceiveRecord, data) == 4 && sizeof(ReceiveRecord) == 4100);

struct SendRecord {
    uint32_t len;
    PacketBytes data;
    uint32_t arg0;
    uint32_t arg1;
};
static_assert(offsetof(SendRecord, data) == 4 && offsetof(SendRecord, arg0) == 4100 &&
              offsetof(SendRecord, arg1) == 4104 && sizeof(SendRecord) == 4108);

using FlagRecord = std::array<uint8_t, 4>;

constinit hal::SharedFds nodes;
constinit hal::Runs runs;

// What init and deinit know of the data thread; neither waits while it holds the mutex.
constinit std::mutex channel_mutex;
constinit std::optional<pthread_t> data_thread;

// --- packets that come ---

// What a data thread has for itself; too much for some stacks.
struct PacketListening {
    Channel& info;
    ChannelRun run;
    ReceiveRecord record{};
};

std::unique_ptr<PacketListening> make_packet_listening(Channel& info) {
    return std::unique_ptr<PacketListening>(
        new (std::nothrow) PacketListening{info, runs.current(info.thread_state)});
}

hal::Pass receive_packet(PacketListening& listening, int node) {
    HAL_LOG(HAL_LOG_INFO, "select success, then read!\n");
    ReceiveRecord& record = listening.record;
    if (hal::issue_on(kModule, node, kReceivePacket, &record, nullptr) < 0) {
        return hal::Pass::kAtOnce;
    }
    HAL_LOG(HAL_LOG_INFO, "recv protocol data success, len is %d!\n", static_cast<int>(record.len));
    HAL_LOG(HAL_LOG_INFO, "call callback!\n");
    constexpr uint32_t kLongest = HAL_SENSOR_USB_PACKET_SIZE;
    hal_sensor_usb_data packet{std::min(record.len, kLongest), record.data.data()};
    hal::call_back(listening.info.data_cb, &packet);
    return hal::Pass::kRest;
}

void listen_to_packets(PacketListening& listening) {
    HAL_LOG(HAL_LOG_INFO, "sensor usb thread running!!!!\n");
    while (listening.run.is_wanted()) {
        const hal::SharedFds::Use node(nodes, listening.info.fd);
        const int fd = node ? node.get() : -1;
        hal::listen_once(fd, kPace, [&](hal::Wait outcome) {
            if (outcome == hal::Wait::kFailed) {
                HAL_LOG(HAL_LOG_ERROR, "sensor usb select error\n");
                return hal::Pass::kAtOnce;
            }
            return outcome == hal::Wait::kReady ? receive_packet(listening, fd) : hal::Pass::kRest;
        });
    }
    HAL_LOG(HAL_LOG_INFO, "sensor usb thread out!!!!\n");
}

// --- the connection ---

class StateListener final : public hal::ConnectionListener {
  public:
    explicit StateListener(Channel& info) : info_(info), run_(runs.current(info.thread_state)) {}

  private:
    [[nodiscard]] bool is_wanted() const override { return run_.is_wanted(); }
    void tell(int before, int state) override {
        if (run_.is_wanted()) { // the next init's listener tells it, too
            hal_sensor_usb_state change{before, state};
            hal::call_back(info_.state_cb, &change);
        }
    }

    Channel& info_;
    ChannelRun run_;
};

std::unique_ptr<StateListener> make_state_listener(Channel& info) {
    return std::unique_ptr<StateListener>(new (std::nothrow) StateListener(info));
}

void listen_to_states(StateListener& listener) {
    listener.listen_while_wanted(kModule);
}

// --- from init to deinit ---

// 0, or the error number.
int start_data_thread(Channel& info) {
    auto listening = make_packet_listening(info);
    if (!listening) {
        return ENOMEM;
    }
    const int error = hal::start_worker<listen_to_packets>(info.data_tid, std::move(listening),
                                                           hal::start_thread);
    if (error == 0) {
        data_thread = info.data_tid;
    }
    return error;
}

int start_state_thread(Channel& info) {
    auto listener = make_state_listener(info);
    return listener ? hal::start_worker<listen_to_states>(info.state_tid, std::move(listener))
                    : ENOMEM;
}

std::optional<pthread_t> take_data_thread() {
    return std::exchange(data_thread, std::nullopt);
}

void close_node(Channel& info) {
    if (const int fd = std::atomic_ref(info.fd).load(); fd > 0) {
        nodes.close(info.fd, hal::Fd(fd));
    }
}

// What is left of a channel that ended because the application set its flag to 0.
void drop_remains(Channel& info) {
    if (const auto thread = take_data_thread()) {
        pthread_detach(*thread);
    }
    close_node(info);
}

int32_t open_and_start(Channel& info) {
    drop_remains(info);
    hal::Fd node = hal::open_fd(kNode, O_RDWR);
    nodes.show(info.fd, node);
    if (!node) {
        HAL_LOG(HAL_LOG_ERROR, "open %s error\n", kNode);
        return kFailed;
    }
    static_cast<void>(node.release()); // it is the record's
    runs.begin(info.thread_state);
    if (const int error = start_data_thread(info); error != 0) {
        HAL_LOG(HAL_LOG_ERROR, "create thread hal_sensor_usb_data_listen failed erron= %d/n",
                error);
        return kFailed;
    }
    if (const int error = start_state_thread(info); error != 0) {
        HAL_LOG(HAL_LOG_ERROR, "create thread hal_sensor_usb_state_listen failed erron= %d/n",
                error);
        return kFailed;
    }
    HAL_LOG(HAL_LOG_INFO, "hal_sensor_usb_init over\n");
    return kDone;
}

// --- requests ---

int32_t refuse(const hal::Caller& caller, int error, const char* text) {
    caller.log(HAL_LOG_ERROR, text);
    errno = error;
    return -1;
}

int32_t request(const hal::Caller& caller, unsigned long code, void* record, const char* error) {
    const hal::SharedFds::Use node(nodes, hal_sensor_usb_info.fd);
    return hal::issue_on(caller, node ? node.get() : -1, code, record, error);
}

} // namespace

int32_t hal_sensor_usb_init(hal_sensor_usb_data_callback data_callback,
                            hal_sensor_usb_state_callback state_callback) {
    const hal::CancelOff no_cancel;
    Channel& info = hal_sensor_usb_info;
    HAL_LOG(HAL_LOG_INFO, "hal_sensor_usb_init start\n");
    const std::lock_guard guard(channel_mutex);
    if (std::atomic_ref(info.thread_state).load() == 1) {
        HAL_LOG(HAL_LOG_ERROR, "hal_sensor_usb thread already inited, please call "
                               "hal_sensor_usb_deinit, then init\n");
        return kFailed;
    }
    std::atomic_ref(info.data_cb).store(data_callback);
    std::atomic_ref(info.state_cb).store(state_callback);
    return open_and_start(info);
}

void hal_sensor_usb_deinit(void) {
    const hal::CancelOff no_cancel;
    Channel& info = hal_sensor_usb_info;
    HAL_LOG(HAL_LOG_INFO, "hal_sensor_usb_deinit\n");
    std::unique_lock lock(channel_mutex);
    const ChannelRun run = runs.current(info.thread_state);
    if (const auto thread = take_data_thread()) {
        lock.unlock(); // its callback may be about to make a call of this module's
        hal::stop_thread(*thread);
        lock.lock();
    }
    if (!run.is_latest()) {
        return; // another call has done the rest, and a third one has begun anew
    }
    runs.end(info.thread_state);
    close_node(info);
    std::atomic_ref(info.data_cb).store(nullptr);
}

int32_t hal_get_usb_connect_state(int32_t* state) {
    const hal::AttributeText read = hal::read_attribute(kModule, kUsbsta);
    int value = HAL_OTG_UNKNOWN;
    if (read.state == hal::AttributeState::kRead) {
        HAL_LOG(HAL_LOG_INFO, "usb state is %s\n", read.text.data());
        value = hal::number_in(read.text.data());
        HAL_LOG(HAL_LOG_INFO, "get_usbsta usbsta_v is %d\n", value);
    }
    if (state != nullptr) {
        *state = value;
    }
    return kDone;
}

int32_t hal_send_protocol_pkt(const hal_sensor_usb_pkt* pkt) {
    if (pkt == nullptr || (pkt->data == nullptr && pkt->len > 0)) {
        return refuse(kModule, EINVAL, kSendPacketError);
    }
    const uint32_t len = pkt->len;
    if (len > HAL_SENSOR_USB_PACKET_SIZE) {
        return refuse(kModule, EMSGSIZE, kSendPacketError);
    }
    const std::unique_ptr<SendRecord> record(new (std::nothrow) SendRecord{}); // not for all stacks
    if (!record) {
        return refuse(kModule, ENOMEM, kSendPacketError);
    }
    record->len = len;
    if (len > 0) {
        std::memcpy(record->data.data(), pkt->data, len);
    }
    record->arg0 = pkt->arg0;
    record->arg1 = pkt->arg1;
    return request(kModule, kSendPacket, record.get(), kSendPacketError);
}

int32_t hal_send_image_pkt(const hal_sensor_image_pkt* pkt) {
    if (pkt == nullptr) {
        return refuse(kModule, EINVAL, kSendImageError);
    }
    hal_sensor_image_pkt record{pkt->value0, 0, pkt->value8, pkt->value16};
    return request(kModule, kSendImage, &record, kSendImageError);
}

int32_t hal_clear_flag(const uint8_t flags[2]) {
    if (flags == nullptr) {
        return refuse(kModule, EINVAL, kClearFlagError);
    }
    FlagRecord record{flags[0], flags[1], 0, 0};
    return request(kModule, kClearFlag, record.data(), kClearFlagError);
}

void* hal_sensor_usb_data_listen(void* arg) {
    if (arg != nullptr) {
        if (const auto listening = make_packet_listening(*static_cast<Channel*>(arg))) {
            listen_to_packets(*listening);
        }
    }
    return nullptr;
}

void* hal_sensor_usb_state_listen(void* arg) {
    if (arg != nullptr) {
        if (const auto listener = make_state_listener(*static_cast<Channel*>(arg))) {
            listen_to_states(*listener);
        }
    }
    return nullptr;
}
