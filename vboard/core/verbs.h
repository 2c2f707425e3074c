#pragma once
// What can be done to the board from outside, as rows: the control protocol, `vboard ctl` and its
// help all come from these.

#include "core/json.h"

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace vb {

struct Argument {
    enum class Type { integer, number, text };

    std::string name;
    Type type = Type::integer;
    bool optional = false;
};

// A verb that cannot do what is asked throws this; the text reaches the person who asked.
class VerbError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Verb {
    std::string name; // "gpio.drive"
    std::vector<Argument> arguments;
    std::string help;
    // Called under the board's lock with arguments that have the stated types.
    std::function<Json(const Json& arguments)> act;
    // What act() returns is a pattern, and the answer is every event from now on that matches it.
    bool follows = false;
};

class Verbs {
  public:
    void add(Verb verb) { verbs_[verb.name] = std::move(verb); }
    // A verb that several devices have: its argument `key` says which of them is meant, and comes
    // before the verb's own arguments. False where that number has the verb already.
    bool add_for(const std::string& key, unsigned number, Verb verb);

    // Checks the arguments and acts; VerbError where the verb or an argument will not do.
    Json call(const std::string& name, const Json& arguments) const;
    bool follows(const std::string& name) const;
    // Every verb with its arguments and help.
    Json describe() const;

  private:
    using Act = std::function<Json(const Json& arguments)>;

    Json call_one(const std::string& name, const std::string& key, const Json& arguments) const;

    std::map<std::string, Verb> verbs_;
    std::map<std::string, std::map<std::int64_t, Act>> acts_; // of the verbs several devices have
};

} // namespace vb
