#pragma once
// What commands print: a text for people or, with --json, one JSON object a line for programs.
// The text may change from version to version; the keys of the objects stay.

#include <nlohmann/json.hpp>

#include <string_view>

namespace halctl {

using Json = nlohmann::ordered_json;

class Output {
  public:
    // For the --json option.
    bool& json() { return json_; }

    // Prints `object` or `text` as a line and sends it on its way at once. An empty text: nothing,
    // for commands that keep quiet when all is well.
    void print(const Json& object, std::string_view text) const;

    // Whether everything printed has arrived; says so on standard error where it has not.
    static bool complete();

  private:
    bool json_ = false;
};

} // namespace halctl
