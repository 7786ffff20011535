#include "command_line.h"

#include "codes.h"

#include <CLI/CLI.hpp>
#include <rixstats.h>

namespace rixstat {
namespace {

constexpr char footer[] = "Exit status: 0 all good; 1 the gateway, an element of the query or the output failed;\n"
                          "2 the command line cannot be understood.";

const std::string seeHelp = " (see rixstat --help)";

std::string versionText()
{
    char *library = nullptr;
    require(getStatsAPIVersion(&library), "reading the version of the library");
    return "rixstat " RIXSTAT_VERSION ", library " + std::string(library);
}

// An empty id, as from a variable that is not set, would turn a question about some into one about all.
std::string refuseEmpty(const std::string &text)
{
    return text.empty() ? "must not be empty" : std::string();
}

void addOptions(CLI::App &app, Settings &settings)
{
    app.add_option("--host", settings.host, "Host name or address of the gateway")
        ->check(refuseEmpty)
        ->type_name("HOST")
        ->capture_default_str();
    app.add_option("--port", settings.port, "Statistics port of the gateway")
        ->check(CLI::Range(1, 65535))
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--trace", settings.traceLevel, "Trace level: 0 off, 1 failures ... 4 everything")
        ->check(CLI::Range(0, 5))
        ->type_name("LEVEL")
        ->capture_default_str();
    app.add_option("--trace-file", settings.traceFile, "Append trace and dumps to FILE instead of standard error")
        ->check(refuseEmpty)
        ->type_name("FILE");
    app.set_version_flag("--version", versionText, "Show the versions of rixstat and of the library, and exit");
}

void addCommands(CLI::App &app, CommandLine &line)
{
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.require_subcommand(1);
    app.fallthrough(); // options are understood on both sides of the command's name
    for (const Command &command : commands()) {
        CLI::App *parser = app.add_subcommand(command.name, command.help);
        parser->group("Commands");
        parser->callback([&line, &command] { line.command = &command; });
        parser->footer("The options of rixstat (see rixstat --help) can be given here as well.");
        if (command.idsHelp != nullptr)
            parser->add_option("ID", line.settings.ids, command.idsHelp)->check(refuseEmpty)->type_name("");
    }
}

} // namespace

void parseCommandLine(int argc, char **argv, CommandLine &line)
{
    CLI::App app("Shows the statistics of a running Vendral Gateway.", "rixstat");
    app.footer(footer);
    addOptions(app, line.settings);
    addCommands(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        line.information = app.help();
    } catch (const CLI::CallForVersion &version) {
        line.information = version.what() + std::string("\n");
    } catch (const CLI::RequiredError &) {
        const std::vector<std::string> unknown = app.remaining();
        throw UsageError((unknown.empty() ? "a command is needed" : "unknown command or option: " + unknown.front()) +
                         seeHelp);
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what() + seeHelp);
    }
}

} // namespace rixstat
