#include "commandline.h"

#include <memory>
#include <utility>

namespace commandline {

namespace {

constexpr std::size_t kOptionWidth = 20;

class Format : public CLI::Formatter {
public:
    explicit Format(std::string arguments) : m_arguments(std::move(arguments)) { column_width(kOptionWidth); }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
        return "usage: " + name + " " + m_arguments + "\n\n" + make_description(app) + make_groups(app, mode) +
               make_footer(app);
    }

private:
    const std::string m_arguments;
};

}  // namespace

Parser::Parser(const std::string& program, const std::string& arguments, const std::string& description)
    : CLI::App(description, program) {
    formatter(std::make_shared<Format>(arguments));
    failure_message([](const CLI::App* app, const CLI::Error&) { return app->help(); });
    option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    set_help_flag("--help", "print this text");
    set_version_flag("--version", program + " " ZO_VERSION, "print the version");
}

std::optional<int> Parser::Parse(int argc, char* argv[]) {
    try {
        parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return exit(error) == 0 ? 0 : kWrongUsage;
    }
    return std::nullopt;
}

CLI::Validator NotEmpty() {
    return CLI::Validator([](const std::string& text) { return text.empty() ? "needs a value" : ""; }, "");
}

}  // namespace commandline
