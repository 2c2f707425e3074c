#pragma once
// The settings of one model in a board file. Everything wrong with them is said with the place
// where it stands: an unknown key is an error, so that a slip of the pen does not pass for a wish.

#include "core/json.h"

#include <fmt/format.h>

#include <set>
#include <stdexcept>
#include <string>

namespace vb {

class SettingsError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Settings {
  public:
    // `where` is how error texts name this object: "models[2]".
    Settings(const Json& object, std::string where) : object_(object), where_(std::move(where)) {
        if (!object_.is_object()) {
            throw SettingsError(fmt::format("{}: an object is wanted", where_));
        }
    }

    template <class Value>
    Value get(const std::string& key, Value otherwise) {
        read_.insert(key);
        return object_.contains(key) ? value<Value>(key) : otherwise;
    }

    template <class Value>
    Value need(const std::string& key) {
        read_.insert(key);
        if (!object_.contains(key)) {
            throw SettingsError(fmt::format("{}: \"{}\" is missing", where_, key));
        }
        return value<Value>(key);
    }

    // A number within bounds, written as a JSON number or as text such as "0x54".
    unsigned number(const std::string& key, unsigned otherwise, unsigned highest);

    // Call when all is read: complains of keys that nobody asked for.
    void finish() const {
        for (const auto& [key, unused] : object_.items()) {
            if (!read_.contains(key)) {
                throw SettingsError(fmt::format("{}: unknown key \"{}\"", where_, key));
            }
        }
    }

    [[noreturn]] void refuse(const std::string& key, const std::string& why) const {
        throw SettingsError(fmt::format("{}.{}: {}", where_, key, why));
    }

  private:
    template <class Value>
    Value value(const std::string& key) const {
        try {
            return object_.at(key).get<Value>();
        } catch (const Json::exception&) {
            refuse(key, "has the wrong type");
        }
    }

    const Json& object_;
    std::string where_;
    std::set<std::string> read_;
};

} // namespace vb
