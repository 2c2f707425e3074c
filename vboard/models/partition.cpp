#include "models/partition.h"

#include "models/kinds.h"
#include "models/support/block_node.h"

#include <fmt/format.h>

namespace vb {

namespace {

constexpr std::uint64_t kLargest = std::uint64_t{1} << 40;

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
    std::map<std::string, std::shared_ptr<BlockDisk>> partitions_;
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
    auto disk = std::make_shared<BlockDisk>(board_, board_.open_state(partition_state(name)), size);
    board_.tree().put(fmt::format("{}/{}", folder_, name),
                      std::make_shared<BlockNode>(BlockView(disk)));
    partitions_.emplace(name, std::move(disk));
}

Json Partitions::list() const {
    Json all = Json::array();
    for (const auto& [name, disk] : partitions_) {
        all.push_back(
            {{"name", name}, {"size", disk->size()}, {"unflushed", disk->unflushed_sectors()}});
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
