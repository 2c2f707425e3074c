#pragma once
// What can be done to the board from outside, as rows: the control protocol, `vboard ctl` and its
// help all come from these.

#include "control/argument.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vb {

struct Verb {
    std::string name; // "gpio.drive"
    std::vector<Argument> arguments;
    std::string help;
    // Called under the board's lock with arguments that keep to their rows.
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

    // Checks the arguments and acts; UsageError where the question is wrong, VerbError where this
    // board cannot do it.
    Json call(const std::string& name, const Json& arguments) const;
    bool follows(const std::string& name) const;
    // Every verb with its arguments and help.
    Json describe() const;

  private:
    using Act = std::function<Json(const Json& arguments)>;

    std::map<std::string, Verb> verbs_;
    std::map<std::string, std::map<std::int64_t, Act>> acts_; // of the verbs several devices have
};

} // namespace vb
