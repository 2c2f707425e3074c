#pragma once
// The bridge to the MCU, brought up for a figure: by the library, or by the plainest loop that can
// do its work. Either has the MCU's line to itself, and neither can be stopped: each is measured in
// processes of its own, in turn.

#include "figures.h"
#include "usb_port.h"

#include <array>
#include <fcntl.h>
#include <poll.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

inline constexpr std::uint32_t kIrqLine = 97;
inline constexpr int kBetween = 20; // times as fast the bridge comes up

using Block = std::array<std::uint8_t, MCU_BLOCK_BYTES>;

inline void bring_up_bridge(vb::Client& world) {
    const hal_otg_info ids{0, 0x5678, 0x1234};
    world.ask("clock.speed", {{"factor", kBetween}});
    if (sata_otg_init(&ids, 1, nullptr, kIrqLine, 0, nullptr) != 0) {
        std::fprintf(stderr, "the bridge does not come up\n");
        std::_Exit(1);
    }
    world.ask("clock.speed", {{"factor", 1}});
}

// What the library would do, without it.
class BareBridge {
  public:
    explicit BareBridge(vb::Client& world) {
        world.ask("clock.speed", {{"factor", kBetween}});
        mcu_hard_rst();
        gpio_export(kIrqLine);
        gpio_set_dir(kIrqLine, 0);
        gpio_set_edge(kIrqLine, "rising");
        line_ = gpio_fd_open(kIrqLine);
        disk_ = open("/dev/sda", O_RDWR | O_CLOEXEC);
        clear_edge();
        world.ask("clock.speed", {{"factor", 1}});
    }
    BareBridge(const BareBridge&) = delete;
    BareBridge& operator=(const BareBridge&) = delete;
    ~BareBridge() {
        close(disk_);
        close(line_);
    }

    // Waits for the line and fetches a packet.
    void fetch(Block& block) {
        pollfd entry{line_, POLLPRI, 0};
        while (poll(&entry, 1, 1500) < 1) {
        }
        clear_edge();
        command(0x28, SG_DXFER_FROM_DEV, block);
    }
    void send(std::uint32_t type, const std::uint8_t* value, std::size_t size) {
        Block block{};
        make_tlv_packet(block.data(), value, static_cast<std::uint16_t>(size), type);
        command(0x2A, SG_DXFER_TO_DEV, block);
    }

  private:
    void clear_edge() const {
        std::array<char, 64> text{};
        lseek(line_, 0, SEEK_SET);
        [[maybe_unused]] const ssize_t got = read(line_, text.data(), text.size());
    }
    void command(std::uint8_t code, int direction, Block& block) const {
        std::array<std::uint8_t, 10> cdb{code, 0, 0, 0, 0, 0, 0, 0, MCU_BLOCK_BYTES / 512, 0};
        std::array<std::uint8_t, 32> sense{};
        sg_io_hdr request{};
        request.interface_id = 'S';
        request.dxfer_direction = direction;
        request.cmd_len = cdb.size();
        request.mx_sb_len = sense.size();
        request.dxfer_len = MCU_BLOCK_BYTES;
        request.dxferp = block.data();
        request.cmdp = cdb.data();
        request.sbp = sense.data();
        if (ioctl(disk_, SG_IO, &request) < 0) {
            std::perror("SG_IO");
            std::_Exit(1);
        }
    }

    int line_ = -1;
    int disk_ = -1;
};

// The figures that `measure` comes to in a new process.
template <class Measure>
std::vector<double> in_a_process(Measure measure) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        std::_Exit(1);
    }
    const pid_t child = fork();
    if (child == 0) {
        vb::Client world = vb::Client::of_this_board();
        const std::vector<double> figures = measure(world);
        const std::size_t size = figures.size() * sizeof(double);
        std::_Exit(write(ends[1], figures.data(), size) == static_cast<ssize_t>(size) ? 0 : 1);
    }
    close(ends[1]);
    std::vector<double> figures;
    for (double figure = 0; read(ends[0], &figure, sizeof figure) == sizeof figure;) {
        figures.push_back(figure);
    }
    close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "a measurement failed\n");
        std::_Exit(1);
    }
    return figures;
}

// Of seconds for the same, the library's and the bare loop's.
inline void print_rates(const char* name, const char* unit, double amount,
                        std::vector<double> library, std::vector<double> bare) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < library.size(); ++i) {
        ratios.push_back(bare[i] / library[i]);
    }
    std::printf("%-34s %9.1f %s   bare %9.1f %s   ratio %.3f (quartiles %.3f to %.3f)\n", name,
                amount / quantile(library, 0.5), unit, amount / quantile(bare, 0.5), unit,
                quantile(ratios, 0.5), quantile(ratios, 0.25), quantile(ratios, 0.75));
}

} // namespace bench
