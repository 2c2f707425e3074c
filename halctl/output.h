#pragma once
// What commands print: a text for people or, with --json, one JSON object a line for programs.
// The text may change from version to version; the keys of the objects stay. Data goes to standard
// output, complaints to standard error.

#include <nlohmann/json.hpp>

#include <string_view>

namespace halctl {

using Json = nlohmann::ordered_json;

class Output {
  public:
    void set_json(bool json) { json_ = json; }
    bool json() const { return json_; }

    // Prints `object` or `text` as a line and sends it on its way at once. An empty text: nothing,
    // for commands that keep quiet when all is well.
    void print(const Json& object, std::string_view text) const;

    // Says what went wrong, as "halctl: what: why" or as an object of "error" and "code"; returns
    // the exit code.
    int complain(int code, std::string_view what, std::string_view why) const;
    // The same for wrong usage: for people, with a second line that says which help to read.
    int complain_of_usage(std::string_view what, std::string_view help) const;
    // What is worth knowing and yet no failure: an object of "warning".
    void warn(std::string_view text) const;

    // Whether everything printed has arrived; complains where it has not.
    bool complete() const;

  private:
    bool json_ = false;
};

} // namespace halctl
