// Files in /sys and /proc that hold one number, and nothing else behind them: a level, a switch, a
// setting of the kernel that the board has for itself.
//
// What is written is read as the kernel reads numbers; what is none, or is beyond the bounds, is
// EINVAL. The program `sysctl` works on those in /proc/sys; all others there are the machine's, and
// cannot be written to.

#include "models/kinds.h"
#include "serve/attribute.h"

#include <cerrno>
#include <climits>

namespace vb {

namespace {

// Of a file that is more than the number it starts with.
constexpr SettingRow kFileSettings[] = {
    {"value", nullptr, ""},
    {"lowest", "null", ""},
    {"highest", "null", "one that is `lowest` cannot be written to"},
};

struct NumberFile {
    long value = 0;
    long lowest = LONG_MIN;
    long highest = LONG_MAX;
    std::shared_ptr<Attribute> attribute;

    int set(long wanted) {
        if (wanted < lowest || wanted > highest) {
            return EINVAL;
        }
        value = wanted;
        attribute->notify();
        return 0;
    }

    int store(std::string_view text) {
        long wanted = 0;
        const int error = parse_integer(text, wanted);
        return error == 0 ? set(wanted) : EINVAL;
    }
};

class Attributes : public Model {
  public:
    Attributes(Board& board, Settings& settings);

  private:
    void add_file(Tree& tree, const std::string& path, const Json& about, const Settings& settings);
    NumberFile& file_at(const Json& arguments);

    std::map<std::string, NumberFile> files_;
};

Attributes::Attributes(Board& board, Settings& settings) {
    const auto files = settings.get<std::map<std::string, Json>>("files");
    for (const auto& [path, about] : files) {
        add_file(board.tree(), path, about, settings);
    }
    board.verbs().add({"attribute.show",
                       {Argument::text("path")},
                       "the number in a file of /sys or /proc",
                       [this](const Json& arguments) -> Json { return file_at(arguments).value; }});
    board.verbs().add({"attribute.set",
                       {Argument::text("path"), Argument::integer("value")},
                       "let the number in a file of /sys or /proc become another",
                       [this](const Json& arguments) -> Json {
                           if (file_at(arguments).set(arguments["value"].get<long>()) != 0) {
                               const NumberFile& file = file_at(arguments);
                               throw VerbError(fmt::format("{} takes {} to {}",
                                                           arguments["path"].get<std::string>(),
                                                           file.lowest, file.highest));
                           }
                           return nullptr;
                       }});
}

void Attributes::add_file(Tree& tree, const std::string& path, const Json& about,
                          const Settings& settings) {
    if (!path.starts_with('/')) {
        settings.refuse("files", fmt::format("\"{}\" is no absolute path", path));
    }
    NumberFile& file = files_[path];
    if (about.is_number_integer()) {
        file.value = about.get<long>();
    } else {
        Settings one(about, fmt::format("files.{}", path), kFileSettings);
        file.value = one.get<long>("value");
        file.lowest = one.says("lowest") ? one.get<long>("lowest") : file.lowest;
        file.highest = one.says("highest") ? one.get<long>("highest") : file.highest;
    }
    StoreLine store = [&file](std::string_view text) { return file.store(text); };
    file.attribute = line_attribute([&file] { return std::to_string(file.value); },
                                    file.lowest == file.highest ? nullptr : std::move(store));
    tree.put(path, file.attribute);
}

NumberFile& Attributes::file_at(const Json& arguments) {
    const auto path = arguments["path"].get<std::string>();
    const auto found = files_.find(path);
    if (found == files_.end()) {
        throw VerbError(fmt::format("there is no number in {}", path));
    }
    return found->second;
}

constexpr SettingRow kAttributesSettings[] = {
    {"files", nullptr, "by absolute path; a number stands for its value", kFileSettings},
};

} // namespace

const ModelKind kAttributes{
    "attributes", "numbers in files of `/sys` and `/proc`: backlight, HDCP switch, kernel settings",
    kAttributesSettings, make_model<Attributes>};

} // namespace vb
