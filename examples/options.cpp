#include "options.h"

#include <CLI/CLI.hpp>

namespace examples {

namespace {

constexpr int kWrongUsage = 64;

} // namespace

struct Options::Parser {
    explicit Parser(const std::string& about) : app(about) {}

    CLI::App app;
};

Options::Options(const std::string& about) : parser_(std::make_unique<Parser>(about)) {}

Options::~Options() = default;

void Options::flag(const std::string& name, bool& value, const std::string& help) {
    parser_->app.add_flag(name, value, help);
}

void Options::text(const std::string& name, std::string& value, const std::string& help,
                   const std::vector<std::string>& allowed) {
    CLI::Option* const option = parser_->app.add_option(name, value, help);
    if (!allowed.empty()) {
        option->check(CLI::IsMember(allowed));
    }
    if (!value.empty()) {
        option->capture_default_str();
    }
}

void Options::number(const std::string& name, std::uint32_t& value, const std::string& help,
                     std::uint32_t least, std::uint32_t most) {
    parser_->app.add_option(name, value, help)->check(CLI::Range(least, most));
}

void Options::number(const std::string& name, std::uint64_t& value, const std::string& help) {
    parser_->app.add_option(name, value, help);
}

void Options::number(const std::string& name, double& value, const std::string& help, double least,
                     double most) {
    parser_->app.add_option(name, value, help)->check(CLI::Range(least, most));
}

void Options::not_both(const std::string& name, const std::string& other) {
    parser_->app.get_option(name)->excludes(parser_->app.get_option(other));
}

bool Options::take(int argc, char** argv) {
    try {
        parser_->app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        status_ = parser_->app.exit(error) == 0 ? 0 : kWrongUsage;
        return false;
    }
    return true;
}

int Options::complain(const WrongUsage& error) {
    parser_->app.exit(CLI::ValidationError(error.what()));
    return kWrongUsage;
}

} // namespace examples
