// The options of an example's command line. Behind it is the one source that sees the library
// which takes command lines apart: that costs seconds a file.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace examples {

// What a program finds wrong with its options once it looks closer: "--raster: PIXELSxLINES is
// wanted".
struct WrongUsage : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

// Values stay as they are where an option is not given, and have to outlive the options.
class Options {
  public:
    explicit Options(const std::string& about);
    ~Options();
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;

    void flag(const std::string& name, bool& value, const std::string& help);
    // Any text, or one of those that are allowed.
    void text(const std::string& name, std::string& value, const std::string& help,
              const std::vector<std::string>& allowed = {});
    void number(const std::string& name, std::uint32_t& value, const std::string& help,
                std::uint32_t least, std::uint32_t most);
    void number(const std::string& name, std::uint64_t& value, const std::string& help);
    void number(const std::string& name, double& value, const std::string& help, double least,
                double most);
    void not_both(const std::string& name, const std::string& other);

    // Whether the program is to go on. If not, help or what is wrong has been printed, and it ends
    // with status().
    bool take(int argc, char** argv);
    [[nodiscard]] int status() const { return status_; }

    // Prints what is wrong, and returns the exit status of wrong usage.
    int complain(const WrongUsage& error);

  private:
    struct Parser;
    std::unique_ptr<Parser> parser_;
    int status_ = 0;
};

} // namespace examples
