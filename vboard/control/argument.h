#pragma once
// An argument of a verb, as a row: its name, what may stand there, and what counts where nothing
// does. The check of what is given, its complaints and the help all come from the row.

#include "core/json.h"

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace vb {

// A verb that cannot do what is asked throws this; the text reaches the person who asked.
class VerbError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The same where the question itself is wrong, on whatever board it is asked.
class UsageError : public VerbError {
  public:
    using VerbError::VerbError;
};

// An argument's name as help and complaints write it.
std::string in_capitals(std::string name);

struct Argument { // NOLINT(bugprone-exception-escape): moving JSON throws nothing
    enum class Type { integer, number, text, object };

    std::string name;
    Type type = Type::integer;
    Json least;   // null: no bound
    Json most;    // null: no bound
    Json choices; // a list, where one of these is wanted; null: within the bounds
    // The bounds or choices are what this board has: naming another is no slip, and is refused.
    bool of_board = false;
    bool optional = false;
    Json otherwise;      // the value where none is given; null: there is none
    std::string without; // what no value stands for, where it has none

    static Argument integer(std::string name,
                            std::int64_t least = std::numeric_limits<std::int64_t>::min(),
                            std::int64_t most = std::numeric_limits<std::int64_t>::max());
    static Argument flag(std::string name) { return integer(std::move(name), 0, 1); }
    // One of so many things of this board, which are numbered from 0.
    static Argument index(std::string name, std::size_t count);
    static Argument number(std::string name, double least, double most);
    static Argument text(std::string name);
    static Argument word(std::string name, const std::vector<std::string>& choices);
    // For who speaks the protocol, and for the patient.
    static Argument object(std::string name);

    // The same argument, which may be left out: then it has this value...
    Argument or_else(Json value) &&;
    // ...or none, which means this.
    Argument or_none(std::string meaning) &&;

    // "a whole number from 0 to 511"
    std::string wanted() const;
    // UsageError, or VerbError where this board does not have what is named.
    void check(const Json& value) const;
    Json describe() const;
};

// The arguments as an act may rely on: all of the rows' types and bounds, none too many, and those
// that were left out with their value, where they have one.
Json checked(const std::vector<Argument>& rows, const Json& given);

} // namespace vb
