// What --help prints: how options are laid out, and the text behind them.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace brisel::render {

// Two columns, wrapped at 80 characters, in place of lines of any length.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override;
    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override;
    std::string make_option_name(const CLI::Option* option, bool is_positional) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
};

// Values, files, exit codes, examples.
extern const char* const kHelpFooter;

} // namespace brisel::render
