// Requests on a disk that no tool makes, and what the kernel answers them with.
//
//   disk_requests block NODE    of the block layer
//   disk_requests sg NODE       SCSI commands by SG_IO
//
// A line for each: what it is, and its result or the error's name.

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/hdreg.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace {

void tell(const char* what, int result) {
    if (result < 0) {
        std::printf("%s: %s\n", what, strerrorname_np(errno));
    } else {
        std::printf("%s: %d\n", what, result);
    }
}

class Node {
  public:
    Node(const char* path, int flags) : fd_(open(path, flags | O_CLOEXEC)) {
        if (fd_ < 0) {
            std::perror(path);
        }
    }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    ~Node() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    int fd() const { return fd_; }

  private:
    int fd_;
};

// --- the block layer ---

void ask_for_range(const Node& node, const char* what, unsigned long request, std::uint64_t offset,
                   std::uint64_t size) {
    std::array<std::uint64_t, 2> range{offset, size};
    tell(what, ioctl(node.fd(), request, range.data()));
}

void ask_ranges(const Node& node, unsigned long request, bool writable) {
    constexpr std::uint64_t kMost = ~std::uint64_t{0};
    ask_for_range(node, "  a sector", request, 512, 512);
    ask_for_range(node, "  no sector", request, 512, 0);
    ask_for_range(node, "  half a sector", request, 0, 256);
    ask_for_range(node, "  from within a sector", request, 256, 512);
    ask_for_range(node, "  the last sector", request, 65024, 512);
    ask_for_range(node, "  across the end", request, 65024, 1024);
    ask_for_range(node, "  beyond the end", request, 65536 * 2, 512);
    ask_for_range(node, "  around the end of numbers", request, kMost - 511, 1024);
    if (writable) {
        tell("  a range that is nowhere", ioctl(node.fd(), request, nullptr));
    }
}

int ask_block(const char* path) {
    for (const int flags : {O_RDONLY, O_RDWR}) {
        const Node node(path, flags);
        std::printf("open for %s\n", flags == O_RDWR ? "writing" : "reading");
        std::puts(" discard");
        ask_ranges(node, BLKDISCARD, flags == O_RDWR);
        std::puts(" zeros");
        ask_ranges(node, BLKZEROOUT, flags == O_RDWR);
        for (const int size : {4096, 512, 1024, 513, 256, 65536, 0}) {
            int value = size;
            std::printf(" blocks of %d", size);
            tell("", ioctl(node.fd(), BLKBSZSET, &value));
        }
        int size = 4096;
        ioctl(node.fd(), BLKBSZSET, &size);
        tell(" partitions", ioctl(node.fd(), BLKRRPART));
        tell(" flush", ioctl(node.fd(), BLKFLSBUF));
        std::uint16_t few = 0;
        tell(" rotational", ioctl(node.fd(), BLKROTATIONAL, &few));
        int number = 0;
        tell(" discarded is zeros", ioctl(node.fd(), BLKDISCARDZEROES, &number) < 0 ? -1 : number);
        tell(" an answer to nowhere", ioctl(node.fd(), BLKGETSIZE64, nullptr));
        tell(" a terminal's", ioctl(node.fd(), 0x5401, &number));
        tell(" SG_IO", ioctl(node.fd(), SG_IO, &number));
        tell(" one that there is not", ioctl(node.fd(), 0x12FF, &number));
        std::array<char, 16> bytes{};
        tell(" read at the end", static_cast<int>(pread(node.fd(), bytes.data(), 16, 65536)));
        tell(" read before zero", static_cast<int>(pread(node.fd(), bytes.data(), 16, -1)));
        tell(" write at the end", static_cast<int>(pwrite(node.fd(), bytes.data(), 16, 65536)));
        tell(" write of nothing there",
             static_cast<int>(pwrite(node.fd(), bytes.data(), 0, 65536)));
        tell(" go to the end", static_cast<int>(lseek(node.fd(), 0, SEEK_END)));
        tell(" go before the start", static_cast<int>(lseek(node.fd(), -1, SEEK_SET)));
        tell(" cut off", ftruncate(node.fd(), 512));
        tell(" sync", fsync(node.fd()));
        tell(" sync of data", fdatasync(node.fd()));
    }
    return 0;
}

// --- SG_IO ---

struct Request {
    sg_io_hdr header{};
    std::array<std::uint8_t, 32> block{};
    std::array<std::uint8_t, 32> sense{};
    std::vector<std::uint8_t> data = std::vector<std::uint8_t>(65536);
    std::array<iovec, 3> pieces{};
};

using Change = std::function<void(Request&)>;

void send(const Node& node, const char* what, std::initializer_list<std::uint8_t> block,
          int direction, unsigned length, const Change& change = {}) {
    Request request;
    std::copy(block.begin(), block.end(), request.block.begin());
    request.sense.fill(0xEE);
    request.header.interface_id = 'S';
    request.header.dxfer_direction = direction;
    request.header.cmd_len = static_cast<unsigned char>(block.size());
    request.header.cmdp = request.block.data();
    request.header.mx_sb_len = static_cast<unsigned char>(request.sense.size());
    request.header.sbp = request.sense.data();
    request.header.dxfer_len = length;
    request.header.dxferp = request.data.data();
    if (change) {
        change(request);
    }
    const int result = ioctl(node.fd(), SG_IO, &request.header);
    const sg_io_hdr& header = request.header;
    if (result < 0) {
        tell(what, result);
        return;
    }
    std::printf(
        "%s: %d, status %d/%d, message %d, host %d, driver %d, residue %d, info %u, sense %d", what,
        result, header.status, header.masked_status, header.msg_status, header.host_status,
        header.driver_status, header.resid, header.info, header.sb_len_wr);
    for (const std::uint8_t byte : request.sense) {
        std::printf(" %02x", byte);
    }
    std::printf("\n");
}

void send_inquiries(const Node& node) {
    const auto inquiry = [&](const char* what, const Change& change, unsigned length = 36) {
        send(node, what, {0x12, 0, 0, 0, 36, 0}, SG_DXFER_FROM_DEV, length, change);
    };
    inquiry("inquiry", {});
    inquiry("more room than data", {}, 100);
    inquiry("less room than data", {}, 8);
    inquiry("no room", {}, 0);
    inquiry("another interface", [](Request& r) { r.header.interface_id = 'Q'; });
    inquiry("no interface", [](Request& r) { r.header.interface_id = 0; });
    inquiry("no direction", [](Request& r) { r.header.dxfer_direction = SG_DXFER_NONE; });
    inquiry("no such direction", [](Request& r) { r.header.dxfer_direction = 7; });
    inquiry(
        "no direction, no data", [](Request& r) { r.header.dxfer_direction = SG_DXFER_NONE; }, 0);
    inquiry("unknown direction", [](Request& r) { r.header.dxfer_direction = -5; });
    inquiry("both directions", [](Request& r) { r.header.dxfer_direction = SG_DXFER_TO_FROM_DEV; });
    inquiry("to the device", [](Request& r) { r.header.dxfer_direction = SG_DXFER_TO_DEV; });
    inquiry("16 bytes of command", [](Request& r) { r.header.cmd_len = 16; });
    inquiry("17 bytes of command", [](Request& r) { r.header.cmd_len = 17; });
    inquiry("32 bytes of command", [](Request& r) { r.header.cmd_len = 32; });
    inquiry("33 bytes of command", [](Request& r) { r.header.cmd_len = 33; });
    inquiry("5 bytes of command", [](Request& r) { r.header.cmd_len = 5; });
    inquiry("0 bytes of command", [](Request& r) { r.header.cmd_len = 0; });
    inquiry("no command", [](Request& r) { r.header.cmdp = nullptr; });
    inquiry("no memory for data", [](Request& r) { r.header.dxferp = nullptr; });
    inquiry("bad memory for data",
            [](Request& r) { r.header.dxferp = reinterpret_cast<void*>(std::uintptr_t{8}); });
    inquiry("too much data", {}, 0x7FFFFFFF);
    inquiry("far too much data", {}, 0xFFFFFFFF);
    inquiry("flags", [](Request& r) { r.header.flags = 0xFFFF; });
    inquiry("queue flags", [](Request& r) { r.header.flags = 0x20; });
    inquiry("a millisecond", [](Request& r) { r.header.timeout = 1; });
    inquiry("the longest time", [](Request& r) { r.header.timeout = 0xFFFFFFFF; });
    inquiry("three pieces", [](Request& r) {
        r.pieces = {{{r.data.data(), 10}, {r.data.data() + 100, 10}, {r.data.data() + 200, 16}}};
        r.header.iovec_count = 3;
        r.header.dxferp = r.pieces.data();
    });
    inquiry("pieces that are more", [](Request& r) {
        r.pieces = {{{r.data.data(), 30}, {r.data.data() + 100, 30}, {r.data.data() + 200, 16}}};
        r.header.iovec_count = 3;
        r.header.dxferp = r.pieces.data();
    });
    inquiry("pieces that are less", [](Request& r) {
        r.pieces = {{{r.data.data(), 10}, {r.data.data() + 100, 10}, {r.data.data() + 200, 4}}};
        r.header.iovec_count = 3;
        r.header.dxferp = r.pieces.data();
    });
    inquiry("pieces of nothing", [](Request& r) {
        r.header.iovec_count = 3;
        r.header.dxferp = r.pieces.data();
    });
    inquiry("pieces that are nowhere", [](Request& r) {
        r.header.iovec_count = 3;
        r.header.dxferp = nullptr;
    });
    inquiry("too many pieces", [](Request& r) { r.header.iovec_count = 1025; });
    inquiry("a page that there is not", [](Request& r) {
        r.block[1] = 1;
        r.block[2] = 0x55;
    });
    inquiry("its sense, cut off", [](Request& r) {
        r.block[1] = 1;
        r.block[2] = 0x55;
        r.header.mx_sb_len = 5;
    });
    inquiry("its sense, for which there is no room", [](Request& r) {
        r.block[1] = 1;
        r.block[2] = 0x55;
        r.header.mx_sb_len = 0;
    });
    inquiry("its sense, nowhere", [](Request& r) {
        r.block[1] = 1;
        r.block[2] = 0x55;
        r.header.sbp = nullptr;
    });
    tell("no record", ioctl(node.fd(), SG_IO, nullptr));
}

// Sectors from 16 on, since another's first are not everywhere a disk's.
void send_blocks(const Node& node) {
    const auto read = [&](const char* what, std::uint8_t sectors, unsigned length,
                          const Change& change = {}) {
        send(node, what, {0x28, 0, 0, 0, 0, 16, 0, 0, sectors, 0}, SG_DXFER_FROM_DEV, length,
             change);
    };
    const auto write = [&](const char* what, std::uint8_t sectors, unsigned length,
                           const Change& change = {}) {
        send(node, what, {0x2A, 0, 0, 0, 0, 16, 0, 0, sectors, 0}, SG_DXFER_TO_DEV, length, change);
    };
    read("read a packet's sectors", 5, 2560);
    read("read no sector", 0, 0);
    read("read no sector into room", 0, 100);
    read("read into too little room", 5, 2048);
    read("read into too much room", 5, 4096);
    read("read with data that are no sectors", 5, 2561);
    read("read without data", 5, 0, [](Request& r) { r.header.dxfer_direction = SG_DXFER_NONE; });
    write("write a packet's sectors", 5, 2560);
    write("write no sector", 0, 0);
    write("write too little", 5, 2048);
    write("write too much", 5, 4096);
    write("write what is no sectors", 5, 2561);
}

void send_others(const Node& node) {
    send(node, "is it ready", {0, 0, 0, 0, 0, 0}, SG_DXFER_NONE, 0);
    send(node, "is it ready, with room", {0, 0, 0, 0, 0, 0}, SG_DXFER_FROM_DEV, 16);
    send(node, "sense", {3, 0, 0, 0, 18, 0}, SG_DXFER_FROM_DEV, 18);
    send(node, "capacity", {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, SG_DXFER_FROM_DEV, 8);
    send(node, "long capacity", {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0},
         SG_DXFER_FROM_DEV, 32);
    send(node, "another of its kind", {0x9E, 0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0},
         SG_DXFER_FROM_DEV, 32);
    send(node, "units", {0xA0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0}, SG_DXFER_FROM_DEV, 16);
    send(node, "all modes", {0x1A, 0, 0x3F, 0, 255, 0}, SG_DXFER_FROM_DEV, 255);
    send(node, "a mode that there is not", {0x1A, 0, 0x11, 0, 255, 0}, SG_DXFER_FROM_DEV, 255);
    send(node, "all modes, long", {0x5A, 0, 0x3F, 0, 0, 0, 0, 0, 255, 0}, SG_DXFER_FROM_DEV, 255);
    send(node, "start", {0x1B, 0, 0, 0, 1, 0}, SG_DXFER_NONE, 0);
    send(node, "synchronize", {0x35, 0, 0, 0, 0, 0, 0, 0, 0, 0}, SG_DXFER_NONE, 0);
    send(node, "verify", {0x2F, 0, 0, 0, 0, 16, 0, 0, 5, 0}, SG_DXFER_NONE, 0);
    send(node, "short read", {0x08, 0, 0, 16, 1, 0}, SG_DXFER_FROM_DEV, 512);
    send(node, "short write", {0x0A, 0, 0, 16, 1, 0}, SG_DXFER_TO_DEV, 512);
    send(node, "long read", {0x88, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0, 0, 1, 0, 0}, SG_DXFER_FROM_DEV,
         512);
    send(node, "long write", {0x8A, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0, 0, 1, 0, 0}, SG_DXFER_TO_DEV,
         512);
    send(node, "a command that there is not", {0xDF, 0, 0, 0, 0, 0}, SG_DXFER_NONE, 0);
    send(node, "formatting", {0x04, 0, 0, 0, 0, 0}, SG_DXFER_NONE, 0);
}

void ask_driver(const Node& node) {
    int number = -1;
    tell("version", ioctl(node.fd(), SG_GET_VERSION_NUM, &number) < 0 ? -1 : number);
    tell("time-out", ioctl(node.fd(), SG_GET_TIMEOUT));
    number = 1000;
    tell("another time-out", ioctl(node.fd(), SG_SET_TIMEOUT, &number));
    tell("time-out", ioctl(node.fd(), SG_GET_TIMEOUT));
    number = -5;
    tell("a negative time-out", ioctl(node.fd(), SG_SET_TIMEOUT, &number));
    number = 6000;
    tell("the usual time-out", ioctl(node.fd(), SG_SET_TIMEOUT, &number));
    number = 4096;
    tell("reserve", ioctl(node.fd(), SG_SET_RESERVED_SIZE, &number));
    tell("reserve", ioctl(node.fd(), SG_GET_RESERVED_SIZE, &number) < 0 ? -1 : number);
    number = -1;
    tell("negative reserve", ioctl(node.fd(), SG_SET_RESERVED_SIZE, &number));
    tell("emulated", ioctl(node.fd(), SG_EMULATED_HOST, &number) < 0 ? -1 : number);
    tell("a generic node's", ioctl(node.fd(), SG_GET_SCSI_ID, &number));
}

int ask_sg(const char* path) {
    for (const int flags : {O_RDONLY, O_RDWR}) {
        const Node node(path, flags);
        std::printf("open for %s\n", flags == O_RDWR ? "writing" : "reading");
        send_inquiries(node);
        send_blocks(node);
        send_others(node);
        ask_driver(node);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // so that a command that hangs is known
    const std::string_view what = argc == 3 ? argv[1] : "";
    if (what == "block") {
        return ask_block(argv[2]);
    }
    if (what == "sg") {
        return ask_sg(argv[2]);
    }
    std::fputs("usage: disk_requests block|sg NODE\n", stderr);
    return 64;
}
