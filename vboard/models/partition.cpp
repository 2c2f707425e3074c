#include "models/partition.h"

#include "models/kinds.h"
#include "models/support/block_store.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>

namespace vb {

namespace {

constexpr std::uint64_t kLargest = std::uint64_t{1} << 40;

// The storage of one partition, and the node that leads to it.
class Partition : public Node, public Storage, public std::enable_shared_from_this<Partition> {
  public:
    Partition(Power& power, UniqueFd file, std::uint64_t size)
        : Node(S_IFREG | 0660), power_(power), store_(std::move(file), size) {}

    Outcome open(const OpenCall& call, std::unique_ptr<File>& file) override;
    std::uint64_t size() const override { return store_.size(); }
    void flush() override { store_.flush(); }
    void lose_power(std::mt19937_64& chance) override { store_.lose_power(chance); }

    Outcome read(std::size_t size, std::uint64_t offset) const;
    Outcome write(ByteView data, std::uint64_t offset, bool synchronous);
    Outcome sync();
    std::size_t unflushed_sectors() const { return store_.unflushed_sectors(); }

  private:
    Power& power_;
    BlockStore store_;
};

class PartitionFile : public File {
  public:
    PartitionFile(std::shared_ptr<Partition> partition, bool synchronous)
        : partition_(std::move(partition)), synchronous_(synchronous) {}

    Outcome read(std::size_t size, std::uint64_t offset) override {
        return partition_->read(size, offset);
    }
    Outcome write(WriteCall& call) override {
        return partition_->write(call.data, call.offset, synchronous_);
    }
    Outcome sync() override { return partition_->sync(); }
    bool seekable() const override { return true; }
    bool bulky() const override { return true; }

  private:
    std::shared_ptr<Partition> partition_;
    bool synchronous_;
};

Outcome Partition::open(const OpenCall& call, std::unique_ptr<File>& file) {
    file = std::make_unique<PartitionFile>(shared_from_this(), (call.flags & O_DSYNC) != 0);
    return Outcome::done();
}

// Without power there are no answers, and no caller who could take one.

Outcome Partition::read(std::size_t size, std::uint64_t offset) const {
    return power_.on() ? Outcome::bytes(store_.read(offset, size)) : Outcome::wait();
}

Outcome Partition::write(ByteView data, std::uint64_t offset, bool synchronous) {
    if (!power_.on()) {
        return Outcome::wait();
    }
    const std::size_t taken = store_.write(offset, data);
    if (taken == 0 && !data.empty()) {
        return Outcome::failed(ENOSPC);
    }
    if (power_.count_write()) {
        return Outcome::wait();
    }
    if (synchronous) {
        store_.flush(offset, taken);
    }
    return Outcome::done(static_cast<int>(taken));
}

Outcome Partition::sync() {
    if (!power_.on()) {
        return Outcome::wait();
    }
    store_.flush();
    return Outcome::done();
}

constexpr SettingRow kOneSettings[] = {
    {"name", nullptr, ""},
    {"size", nullptr, "bytes, a multiple of 512"},
};

class Partitions : public Model {
  public:
    Partitions(Board& board, Settings& settings);

  private:
    void add(const Json& object, const std::string& where);
    Json list() const;

    Board& board_;
    std::string folder_;
    std::map<std::string, std::shared_ptr<Partition>> partitions_;
};

Partitions::Partitions(Board& board, Settings& settings)
    : board_(board), folder_(settings.get<std::string>("folder")) {
    const Json all = settings.get<Json>("partitions");
    if (!all.is_array()) {
        settings.refuse("partitions", "a list is wanted");
    }
    for (std::size_t i = 0; i < all.size(); ++i) {
        add(all[i], fmt::format("partitions[{}]", i));
    }
    board.verbs().add({"partition.list",
                       {},
                       "every partition: its size, and how many sectors are not flushed",
                       [this](const Json&) { return list(); }});
}

void Partitions::add(const Json& object, const std::string& where) {
    Settings settings(object, where, kOneSettings);
    const auto name = settings.get<std::string>("name");
    const auto size = settings.get<std::uint64_t>("size");
    if (name.empty() || name.find('/') != std::string::npos || partitions_.contains(name)) {
        settings.refuse("name", fmt::format("\"{}\" will not do, or is there already", name));
    }
    if (size == 0 || size % BlockStore::kSector != 0 || size > kLargest) {
        settings.refuse("size", "a multiple of 512, up to 1 TiB, is wanted");
    }
    auto partition =
        std::make_shared<Partition>(board_.power(), board_.open_state(partition_state(name)), size);
    board_.power().add(*partition);
    board_.tree().put(fmt::format("{}/{}", folder_, name), partition);
    partitions_.emplace(name, std::move(partition));
}

Json Partitions::list() const {
    Json all = Json::array();
    for (const auto& [name, partition] : partitions_) {
        all.push_back({{"name", name},
                       {"size", partition->size()},
                       {"unflushed", partition->unflushed_sectors()}});
    }
    return all;
}

constexpr SettingRow kPartitionSettings[] = {
    {"folder", R"("/dev/block/by-name")", "of their nodes"},
    {"partitions", nullptr, "a list", kOneSettings},
};

} // namespace

const ModelKind kPartition{"partition", "partitions", kPartitionSettings, make_model<Partitions>};

std::string partition_state(const std::string& name) {
    return "partition." + name;
}

} // namespace vb
