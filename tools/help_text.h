// The text of --help, laid out here for all tools: what the library that parses command lines makes of it, above all of
// tables in a footer, is another text in each of its versions.
#ifndef RIXSTATS_HELP_TEXT_H
#define RIXSTATS_HELP_TEXT_H

#include <CLI/CLI.hpp>

#include <string>

namespace rixtools {

// One line, or two where what stands on the left is long.
inline std::string helpLine(const std::string &left, const std::string &description)
{
    constexpr std::size_t column = 30;
    const std::string line = "  " + left;
    const std::string gap =
        line.size() < column ? std::string(column - line.size(), ' ') : "\n" + std::string(column, ' ');
    return line + gap + description + "\n";
}

inline std::string helpLine(const CLI::Option &option, const std::string &name)
{
    std::string left = name;
    if (option.get_type_size() != 0) { // a flag's is 0
        if (!option.get_type_name().empty()) left += " " + option.get_type_name();
        if (!option.get_default_str().empty()) left += "=" + option.get_default_str();
        if (option.get_expected_max() > 1) left += " ...";
    }
    return helpLine(left, option.get_description());
}

// For CLI::App::formatter_fn(), before commands are added, which take it over.
inline std::string helpText(const CLI::App *app, const std::string &name, CLI::AppFormatMode)
{
    std::string usage = "Usage: " + name + " [OPTIONS]", positionals, options, commands;
    for (const CLI::Option *option : app->get_options([](const CLI::Option *o) { return o->get_positional(); })) {
        const std::string positional = option->get_name(true);
        usage += " [" + positional + (option->get_expected_max() > 1 ? "...]" : "]");
        positionals += helpLine(*option, positional);
    }
    for (const std::string &group : app->get_groups()) {
        // The group of what belongs to no other has a name of the library's choice.
        options += "\n" + (group == app->get_help_ptr()->get_group() ? "Options" : group) + ":\n";
        for (const CLI::Option *option :
             app->get_options([&group](const CLI::Option *o) { return o->get_group() == group && o->nonpositional(); }))
            options += helpLine(*option, option->get_name(false, true));
    }
    for (const CLI::App *command : app->get_subcommands({}))
        commands += helpLine(command->get_name(), command->get_description());
    if (!positionals.empty()) positionals = "\nPositionals:\n" + positionals;
    if (!commands.empty()) {
        usage += " COMMAND";
        commands = "\nCommands:\n" + commands;
    }
    const std::string footer = app->get_footer().empty() ? "" : "\n" + app->get_footer() + "\n";
    return app->get_description() + "\n" + usage + "\n" + positionals + options + commands + footer;
}

} // namespace rixtools

#endif // RIXSTATS_HELP_TEXT_H
