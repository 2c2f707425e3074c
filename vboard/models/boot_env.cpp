// The bootloader's environment: variables in a partition of the board, for the programs fw_printenv
// and fw_setenv (Debian: libubootenv-tool), and /etc/fw_env.config, by which they find them.
//
// What is ours to choose, and what programs may rely on:
// - The partition begins with two copies. Each is a CRC-32 of what follows its fifth byte, low byte
//   first; a byte that counts up with every write, by which the newer copy is known; and the
//   variables as "name=value", each ended by a NUL, and one more NUL at the end. The tools write
//   the older copy, so that one is left whatever happens.
// - At each start of the board the bootloader looks at the two. Where neither verifies it writes
//   the variables of a new board into the first.

#include "models/kinds.h"
#include "models/partition.h"
#include "serve/content_file.h"

#include <fmt/format.h>
#include <zlib.h>

#include <cerrno>
#include <system_error>

namespace vb {

namespace {

constexpr char kConfigFile[] = "/etc/fw_env.config";
constexpr std::size_t kHeader = 5; // CRC and counter
constexpr unsigned kCopies = 2;
constexpr std::uint8_t kFirstCount = 1;

std::uint32_t checksum(ByteView copy) {
    const ByteView data = copy.subspan(kHeader);
    return static_cast<std::uint32_t>(::crc32(0, data.data(), static_cast<uInt>(data.size())));
}

bool verifies(ByteView copy) {
    return record_from<std::uint32_t>(copy) == checksum(copy);
}

// The variables of a new board as the copy that holds them.
Bytes new_copy(std::size_t size, Settings& settings) {
    const auto variables = settings.get<std::map<std::string, std::string>>("variables");
    Bytes copy(kHeader);
    for (const auto& [name, value] : variables) {
        if (name.empty() || name.find_first_of(std::string_view("=\0", 2)) != std::string::npos ||
            value.empty() || value.find('\0') != std::string::npos) {
            settings.refuse("variables", fmt::format("\"{}\" will not do", name));
        }
        const std::string line = fmt::format("{}={}", name, value);
        copy.insert(copy.end(), line.begin(), line.end());
        copy.push_back(0);
    }
    if (copy.size() >= size) {
        settings.refuse("size", "is too small for the variables");
    }
    copy.resize(size);
    copy[kHeader - 1] = kFirstCount;
    const Bytes crc = bytes_of(checksum(copy));
    std::copy(crc.begin(), crc.end(), copy.begin());
    return copy;
}

Bytes copy_at(const UniqueFd& storage, std::size_t size, std::size_t place) {
    Bytes copy(size);
    const ssize_t got = pread(storage.get(), copy.data(), size, static_cast<off_t>(place));
    if (got < 0) {
        throw std::system_error(errno, std::generic_category(), "the bootloader's environment");
    }
    return copy;
}

Bytes config(const std::string& partition, std::size_t size) {
    std::string text = "# device offset size, of two copies\n";
    for (unsigned i = 0; i < kCopies; ++i) {
        text += fmt::format("{} {:#x} {:#x}\n", partition, i * size, size);
    }
    return {text.begin(), text.end()};
}

class BootEnv : public Model {
  public:
    BootEnv(Board& board, Settings& settings);
};

BootEnv::BootEnv(Board& board, Settings& settings) {
    const auto partition = settings.get<std::string>("partition");
    const std::size_t size = settings.number("size", 1U << 20);
    const Bytes fresh = new_copy(size, settings);
    const std::string name(split_path(partition).second);
    const UniqueFd storage = board.open_state(partition_state(name));
    const bool good = verifies(copy_at(storage, size, 0)) || verifies(copy_at(storage, size, size));
    if (!good && pwrite(storage.get(), fresh.data(), size, 0) != static_cast<ssize_t>(size)) {
        throw std::system_error(errno, std::generic_category(), "the bootloader's environment");
    }
    board.tree().put(kConfigFile, std::make_shared<ContentNode>(config(partition, size)));
}

constexpr SettingRow kBootEnvSettings[] = {
    {"partition", R"("/dev/block/by-name/env")", "its path"},
    {"size", "16384", "of one copy, bytes"},
    {"variables", "{}", "texts that a new board has"},
};

} // namespace

const ModelKind kBootEnv{"boot_env",
                         "the bootloader's environment, for `fw_printenv` and `fw_setenv`",
                         kBootEnvSettings, make_model<BootEnv>};

} // namespace vb
