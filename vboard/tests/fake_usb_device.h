#pragma once
// A device for the far end of a host's cable: HID interfaces with given report descriptors, and a
// disk in memory. It does as it should, but for what a test has it do wrong.

#include "host/usb.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <utility>

namespace vb::test {

class FakeUsbDevice : public usb::Device {
  public:
    enum class Prank { none, stall_data, wrong_tag, phase_error, no_status, too_much, vanish };
    static constexpr std::size_t kBlock = 512;

    explicit FakeUsbDevice(std::vector<Bytes> reports) : reports_(std::move(reports)) {
        configuration_ = {9, 2, 0, 0, 0, 1, 0, 0x80, 50};
        std::uint8_t number = 0;
        for (const Bytes& report : reports_) {
            const auto length = static_cast<std::uint16_t>(report.size());
            add({9, 4, number, 0, 1, 3, 0, 0, 0});
            add({9, 0x21, 0x11, 1, 0, 1, 0x22, static_cast<std::uint8_t>(length),
                 static_cast<std::uint8_t>(length >> 8U)});
            add({7, 5, static_cast<std::uint8_t>(0x81 + number), 3, 64, 0, 4});
            ++number;
        }
        add({9, 4, number, 0, 2, 8, 6, 0x50, 0});
        add({7, 5, kDiskIn, 2, 0, 2, 0});
        add({7, 5, kDiskOut, 2, 0, 2, 0});
        configuration_[4] = static_cast<std::uint8_t>(number + 1);
        configuration_[2] = static_cast<std::uint8_t>(configuration_.size());
    }

    void control(const usb::Setup& setup, ByteView data, usb::Completion completion) override {
        requests.push_back(setup);
        if (mute) {
            held_ = std::move(completion);
        } else if (setup.request == 9 && setup.request_type == 0x21) {
            output.emplace_back(data.begin(), data.end());
            completion(usb::Status::done, {});
        } else if (setup.request != 6) {
            if (setup.request == 0xFF) {
                queue_[kDiskIn].clear();
                wanted_ = 0;
                broken_ = false;
            }
            completion(usb::Status::done, {});
        } else if (const Bytes found = descriptor(setup); found.empty()) {
            completion(usb::Status::stall, {});
        } else {
            const std::size_t length = std::min<std::size_t>(found.size(), setup.length);
            completion(usb::Status::done, ByteView(found).first(length));
        }
    }

    void in(std::uint8_t endpoint, std::size_t length, usb::Completion completion) override {
        waiting_[endpoint] = {length, std::move(completion)};
        serve(endpoint);
    }

    void out(std::uint8_t, ByteView data, usb::Completion completion) override {
        const bool refused = std::exchange(refuses_data_, false);
        if (refused) {
            // and forgotten
        } else if (wanted_ > 0) {
            const std::size_t size = std::min<std::size_t>(data.size(), wanted_);
            std::copy_n(data.begin(), size, disk.begin() + static_cast<std::ptrdiff_t>(place_));
            wanted_ = 0;
            answer(0, data.size());
        } else if (data.size() == 31 && data[0] == 'U') {
            take_wrapper(data);
        } else {
            broken_ = true;
        }
        completion(broken_ || refused ? usb::Status::stall : usb::Status::done, {});
        serve(kDiskIn);
    }

    void abort(std::uint8_t endpoint) override { waiting_.erase(endpoint); }
    void reset_bus() override {
        ++resets;
        waiting_.clear();
        queue_.clear();
        wanted_ = 0;
    }
    void suspend() override { suspended = true; }
    void resume() override { suspended = false; }

    void report(std::uint8_t interface, Bytes bytes) {
        queue_[static_cast<std::uint8_t>(0x81 + interface)].push_back(std::move(bytes));
        serve(static_cast<std::uint8_t>(0x81 + interface));
    }

    bool mute = false;         // on endpoint 0
    Prank prank = Prank::none; // at the next READ(10)
    std::function<void()> vanish;
    Bytes disk = Bytes(300 * kBlock);
    bool suspended = false;
    int resets = 0;
    std::deque<usb::Setup> requests;
    std::vector<Bytes> output;
    bool asked(std::uint8_t endpoint) const { return waiting_.contains(endpoint); }
    Bytes& configuration() { return configuration_; }

  private:
    static constexpr std::uint8_t kDiskIn = 0x8E;
    static constexpr std::uint8_t kDiskOut = 0x0E;
    struct Waiting {
        std::size_t length = 0;
        usb::Completion completion;
    };

    void add(const Bytes& bytes) {
        configuration_.insert(configuration_.end(), bytes.begin(), bytes.end());
    }

    Bytes descriptor(const usb::Setup& setup) const {
        switch (setup.value >> 8U) {
        case 1:
            return {18, 1, 0, 2, 0, 0, 0, 64, 0x34, 0x12, 0x78, 0x56, 0, 1, 1, 2, 0, 1};
        case 2:
            return configuration_;
        case 3:
            return setup.index == 0 ? Bytes{4, 3, 9, 4} : Bytes{8, 3, 'O', 0, 'k', 0, 0xE9, 0};
        case 0x22:
            return setup.index < reports_.size() ? reports_[setup.index] : Bytes();
        default:
            return {};
        }
    }

    void serve(std::uint8_t endpoint) {
        const auto waiting = waiting_.find(endpoint);
        auto& queue = queue_[endpoint];
        if (waiting == waiting_.end() || queue.empty()) {
            return;
        }
        Bytes& first = queue.front();
        const Waiting transfer = std::move(waiting->second);
        waiting_.erase(waiting);
        const bool stalls = first.empty();
        const std::size_t length = std::exchange(over_long_, false)
                                       ? first.size()
                                       : std::min(first.size(), transfer.length);
        const Bytes bytes(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(length));
        first.erase(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(length));
        if (first.empty()) {
            queue.pop_front();
        }
        transfer.completion(stalls ? usb::Status::stall : usb::Status::done, bytes);
    }

    void answer(std::uint8_t status, std::size_t moved) {
        Bytes wrapper{'U', 'S', 'B', 'S'};
        const auto residue = static_cast<std::uint32_t>(length_ - std::min(moved, length_));
        for (const std::uint32_t word : {tag_, residue}) {
            const Bytes bytes = bytes_of(word);
            wrapper.insert(wrapper.end(), bytes.begin(), bytes.end());
        }
        wrapper.push_back(status);
        queue_[kDiskIn].push_back(std::move(wrapper));
    }

    void send(Bytes data, std::uint8_t status = 0) {
        const std::size_t size = data.size();
        if (size > 0) {
            queue_[kDiskIn].push_back(std::move(data));
        }
        answer(status, size);
    }

    void take_wrapper(ByteView wrapper) {
        tag_ = record_from<std::uint32_t>(wrapper.subspan(4));
        length_ = record_from<std::uint32_t>(wrapper.subspan(8));
        const ByteView block = wrapper.subspan(15);
        const std::size_t first = (std::size_t{block[4]} << 8U | block[5]) * kBlock;
        const std::size_t size = (std::size_t{block[7]} << 8U | block[8]) * kBlock;
        queue_[kDiskIn].clear();
        switch (block[0]) {
        case 0x12: {
            Bytes data(36, ' ');
            data[8] = 'V';
            data[16] = 'P';
            send(data);
            break;
        }
        case 0x00:
            answer(attention_ ? 1 : 0, 0);
            break;
        case 0x03: {
            Bytes sense(18);
            sense[2] = std::exchange(attention_, false) ? 6 : 5;
            sense[12] = 0x28;
            send(sense);
            break;
        }
        case 0x25:
            send({0, 0, static_cast<std::uint8_t>((disk.size() / kBlock - 1) >> 8U),
                  static_cast<std::uint8_t>(disk.size() / kBlock - 1), 0, 0, 2, 0});
            break;
        case 0x28:
            read(first, size);
            break;
        case 0x2A:
            place_ = first;
            wanted_ = size;
            break;
        default:
            refuses_data_ = length_ > 0 && wrapper[12] == 0;
            if (length_ > 0 && !refuses_data_) {
                queue_[kDiskIn].push_back({}); // a stall
            }
            answer(1, 0);
        }
    }

    void read(std::size_t first, std::size_t size) {
        const auto begin = disk.begin() + static_cast<std::ptrdiff_t>(first);
        const Bytes data(begin, begin + static_cast<std::ptrdiff_t>(size));
        switch (std::exchange(prank, Prank::none)) {
        case Prank::none:
            send(data);
            break;
        case Prank::stall_data:
            queue_[kDiskIn].push_back({});
            answer(1, 0);
            break;
        case Prank::wrong_tag:
            ++tag_;
            send(data);
            break;
        case Prank::phase_error:
            send(data, 2);
            break;
        case Prank::no_status:
            queue_[kDiskIn].push_back(data);
            break;
        case Prank::too_much:
            over_long_ = true;
            send(Bytes(size + 1));
            break;
        case Prank::vanish:
            vanish();
            break;
        }
    }

    std::vector<Bytes> reports_;
    Bytes configuration_;
    usb::Completion held_;
    std::map<std::uint8_t, Waiting> waiting_;
    std::map<std::uint8_t, std::deque<Bytes>> queue_; // an empty one is a stall
    bool attention_ = true;
    bool broken_ = false;
    bool refuses_data_ = false;
    bool over_long_ = false;
    std::uint32_t tag_ = 0;
    std::size_t length_ = 0;
    std::size_t place_ = 0;
    std::size_t wanted_ = 0; // bytes still to come from the host
};

} // namespace vb::test
