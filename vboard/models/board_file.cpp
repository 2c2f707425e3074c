#include "models/board_file.h"

#include "core/lines.h"
#include "models/i2c_adapter.h"
#include "models/kinds.h"

#include <algorithm>
#include <array>

namespace vb {

namespace {

constexpr SettingRow kBoardSettings[] = {
    {"name", R"("")", ""},
    {"models", nullptr, ""},
    {"wires", "[]", ""},
};

constexpr SettingRow kWireSettings[] = {
    {"from", nullptr, ""},
    {"to", nullptr, ""},
};

const ModelKind& kind_named(const Json& object, const std::string& where) {
    if (!object.is_object() || !object.contains("model")) {
        throw SettingsError(fmt::format("{}: \"model\" is missing", where));
    }
    for (const ModelKind* kind : kModelKinds) {
        if (object["model"] == kind->name) {
            return *kind;
        }
    }
    throw SettingsError(
        fmt::format("{}.model: there is no model {}", where, object["model"].dump()));
}

void add_model(Board& board, const Json& object, const std::string& where) {
    const ModelKind& kind = kind_named(object, where);
    Json rest = object;
    rest.erase("model");
    Settings settings(rest, where, kind.settings);
    auto model = kind.make(board, settings);
    settings.check_all_read();
    board.add_model(std::move(model));
}

void add_wire(Board& board, const Json& object, const std::string& where) {
    Settings settings(object, where, kWireSettings);
    const auto from = settings.get<std::string>("from");
    const auto to = settings.get<std::string>("to");
    try {
        wire(board, from, to);
    } catch (const VerbError& error) {
        throw SettingsError(fmt::format("{}: {}", where, error.what()));
    }
}

template <class Add>
void add_each(Board& board, const Json& list, const char* name, const Add& add) {
    if (!list.is_array()) {
        throw SettingsError(fmt::format("\"{}\" has to be a list", name));
    }
    for (std::size_t i = 0; i < list.size(); ++i) {
        add(board, list[i], fmt::format("{}[{}]", name, i));
    }
}

// "line 3, column 5"; `byte` counts from 1.
std::string place_of(const std::string& text, std::size_t byte) {
    const std::string_view before(text.data(), std::min(byte == 0 ? 0 : byte - 1, text.size()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t start = before.rfind('\n'); // npos + 1 is 0
    return fmt::format("line {}, column {}", line, before.size() - (start + 1) + 1);
}

} // namespace

void build_board(Board& board, const std::string& board_file_text) {
    Json file;
    try {
        file = Json::parse(board_file_text, nullptr, true, true);
    } catch (const Json::parse_error& error) {
        throw SettingsError(
            fmt::format("board file, {}: this is no JSON", place_of(board_file_text, error.byte)));
    } catch (const Json::exception&) { // of its numbers alone
        throw SettingsError("board file: a number is too large");
    }
    Settings settings(file, "board file", kBoardSettings);
    settings.get<std::string>("name");
    const Json models = settings.get<Json>("models");
    const Json wires = settings.get<Json>("wires");
    add_each(board, models, "models", add_model);
    check_i2c_buses(board);
    add_each(board, wires, "wires", add_wire);
}

namespace {

std::string described(std::span<const SettingRow> rows);

// "`lines` (512)"; what has to be said is without brackets.
std::string described(const SettingRow& row) {
    if (!row.each.empty()) {
        return fmt::format("`{}` (each {})", row.name, described(row.each));
    }
    if (row.otherwise == nullptr) {
        return fmt::format("`{}`", row.name);
    }
    const Json otherwise = Json::parse(row.otherwise);
    const bool none = otherwise.empty() || otherwise.dump() == R"("")";
    return fmt::format("`{}` ({})", row.name,
                       none                    ? "none"
                       : otherwise.is_string() ? fmt::format("`{}`", otherwise.get<std::string>())
                                               : otherwise.dump());
}

std::string described(std::span<const SettingRow> rows) {
    std::string settings;
    for (const SettingRow& row : rows) {
        settings += (settings.empty() ? "" : ", ") + described(row);
    }
    return settings;
}

Json rows_of(std::span<const SettingRow> rows) {
    Json all = Json::array();
    for (const SettingRow& row : rows) {
        const SettingRow alone{row.name, row.otherwise, row.about};
        all.push_back({{"setting", described(alone)}, {"about", row.about}});
        for (const Json& each : rows_of(row.each)) {
            all.push_back(
                {{"setting", "  " + each["setting"].get<std::string>()}, {"about", each["about"]}});
        }
    }
    return all;
}

} // namespace

Json describe_models() {
    Json all = Json::array();
    for (const ModelKind* kind : kModelKinds) {
        all.push_back({{"model", kind->name},
                       {"about", kind->about},
                       {"settings", described(kind->settings)},
                       {"rows", rows_of(kind->settings)}});
    }
    return all;
}

namespace {

Json settings_as_data(std::span<const SettingRow> rows) {
    Json all = Json::array();
    for (const SettingRow& row : rows) {
        Json one = {{"name", row.name},
                    {"required", row.otherwise == nullptr},
                    {"default", row.otherwise == nullptr ? Json() : Json::parse(row.otherwise)},
                    {"about", row.about}};
        if (!row.each.empty()) {
            one["each"] = settings_as_data(row.each);
        }
        all.push_back(std::move(one));
    }
    return all;
}

} // namespace

Json models_as_data() {
    Json all = Json::array();
    for (const ModelKind* kind : kModelKinds) {
        all.push_back({{"model", kind->name},
                       {"about", kind->about},
                       {"settings", settings_as_data(kind->settings)}});
    }
    return all;
}

} // namespace vb
