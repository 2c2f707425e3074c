// The system configuration: keys and values, which the board's program /usr/bin/sysconfig reads
// and writes, and which outlive the board's restarts.
//
// What is ours to choose, and what programs may rely on:
// - `sysconfig get KEY` prints the value and a newline; where there is no such key it prints
//   nothing and ends with 1.
// - `sysconfig set KEY VALUE` stores, `sysconfig set KEY` removes; it is done when it ends. More
//   words are refused, with 64.
// - A key is not empty. Key and value are UTF-8 and have no control characters; the program takes
//   none that begins with "-".

#include "core/own_files.h"
#include "models/kinds.h"
#include "models/support/kept_json.h"

#include <algorithm>

namespace vb {

namespace {

constexpr char kProgram[] = "/usr/bin/sysconfig";

bool is_line(const std::string& text) {
    return std::none_of(text.begin(), text.end(),
                        [](unsigned char each) { return each < 0x20 || each == 0x7f; });
}

Json first_values(Settings& settings) {
    Json values = settings.get<Json>("values");
    if (!values.is_object()) {
        settings.refuse("values", "an object is wanted");
    }
    for (const auto& [key, value] : values.items()) {
        if (key.empty() || !is_line(key) || !value.is_string() ||
            !is_line(value.get<std::string>())) {
            settings.refuse("values", fmt::format("\"{}\" is no line of text", key));
        }
    }
    return values;
}

class SettingsStore : public Model {
  public:
    SettingsStore(Board& board, Settings& settings);

  private:
    Json get(const std::string& key) const;
    void set(const std::string& key, const Json& value);

    KeptJson values_;
};

SettingsStore::SettingsStore(Board& board, Settings& settings)
    : values_(board, "sysconfig", first_values(settings)) {
    board.tree().put(kProgram, std::make_shared<Symlink>(own_file("commands/sysconfig").string()));
    const Argument key = Argument::text("key");
    const Argument value = Argument::text("value").or_none("the setting is removed");
    board.verbs().add({"sysconfig.list", {}, "the system configuration", [this](const Json&) {
                           return values_.value();
                       }});
    board.verbs().add(
        {"sysconfig.get", {key}, "a value of the system configuration", [this](const Json& call) {
             return get(call["key"].get<std::string>());
         }});
    board.verbs().add({"sysconfig.set",
                       {key, value},
                       "set a value of the system configuration, or remove it",
                       [this](const Json& call) -> Json {
                           set(call["key"].get<std::string>(), call.value("value", Json()));
                           return nullptr;
                       }});
}

Json SettingsStore::get(const std::string& key) const {
    const auto found = values_.value().find(key);
    if (found == values_.value().end()) {
        throw VerbError(fmt::format("there is no setting \"{}\"", key));
    }
    return *found;
}

void SettingsStore::set(const std::string& key, const Json& value) {
    if (key.empty() || !is_line(key) || (value.is_string() && !is_line(value.get<std::string>()))) {
        throw UsageError("key and value are lines of text, and the key is not empty");
    }
    Json values = values_.value();
    if (value.is_null()) {
        values.erase(key);
    } else {
        values[key] = value;
    }
    values_.store(std::move(values));
}

constexpr SettingRow kSettingsStoreSettings[] = {
    {"values", "{}", "texts that a new board has"},
};

} // namespace

const ModelKind kSettingsStore{"settings_store",
                               "the system configuration, and its program `sysconfig`",
                               kSettingsStoreSettings, make_model<SettingsStore>};

} // namespace vb
