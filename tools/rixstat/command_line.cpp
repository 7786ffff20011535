#include "command_line.h"

#include "../help_text.h"
#include "codes.h"
#include "config.h"
#include "text.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <rixstats.h>

#include <cstring>
#include <limits>

namespace rixstat {
namespace {

const std::string seeHelp = " (see rixstat --help)";

// Of what is waited for, in seconds.
constexpr double shortestWait = 0.01;
constexpr double longestWait = 24 * 3600;

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

// A range of the parser's own would let "nan" through.
std::string refuseTime(const std::string &text)
{
    double seconds = 0;
    const bool good = CLI::detail::lexical_cast(text, seconds) && seconds >= shortestWait && seconds <= longestWait;
    return good ? std::string()
                : text + " is no number from " + shortNumber(shortestWait) + " to " + shortNumber(longestWait);
}

// The forms and what else --help has to tell.
std::string footer()
{
    std::string text = "Output forms:\n";
    for (const Form &form : forms())
        text += "  " + std::string(form.name) + std::string(8 - std::strlen(form.name), ' ') + form.help + "\n";
    return text + "\n@NAME stands for a gateway of ~/.config/rixstat/config.toml.\n\n"
                  "Exit status: 0 all good; 1 an element failed, the others are shown (or the output failed);\n"
                  "2 the command line cannot be understood; 3 could not connect; 4 no answer in time;\n"
                  "5 refused by the gateway; 6 the exchange broke; 130 interrupted.";
}

std::string noCommand(const std::string &text)
{
    return "there is no command or argument " + text + " here" + seeHelp;
}

// What the command line says that has to wait for the configuration file.
struct Parts
{
    std::string gateway; // with its @
    std::string columns; // with commas between
    CLI::Option *host = nullptr;
    CLI::Option *port = nullptr;
    CLI::Option *word = nullptr; // what is no option and stands before the command
};

void addGatewayOptions(CLI::App &app, Settings &settings, Parts &parts)
{
    parts.host = app.add_option("--host", settings.host, "Host name or address of the gateway")
                     ->check(refuseEmpty)
                     ->type_name("HOST")
                     ->capture_default_str();
    parts.port = app.add_option("--port", settings.port, "Statistics port of the gateway")
                     ->check(CLI::Range(1, 65535))
                     ->type_name("PORT")
                     ->capture_default_str();
    app.add_option("--timeout", settings.timeout, "Longest wait for each answer of the gateway, in seconds")
        ->check(refuseTime)
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_option("--trace", settings.traceLevel, "Trace level: 0 off, 1 failures ... 4 everything")
        ->check(CLI::Range(0, 5))
        ->type_name("LEVEL")
        ->capture_default_str();
    app.add_option("--trace-file", settings.traceFile, "Append trace and dumps to FILE instead of standard error")
        ->check(refuseEmpty)
        ->type_name("FILE");
    parts.word = app.add_option("GATEWAY", parts.gateway, "@NAME: a gateway of the configuration file")->type_name("");
}

void addOutputOptions(CLI::App &app, Settings &settings, Parts &parts)
{
    std::vector<std::string> names;
    for (const Form &form : forms())
        names.emplace_back(form.name);
    app.add_option("-o,--output", settings.form, "Output form, see below")
        ->check(CLI::IsMember(names))
        ->type_name("FORM")
        ->capture_default_str();
    app.add_option("--columns", parts.columns, "Columns to show, with commas between")
        ->check(refuseEmpty)
        ->type_name("NAME,...");
    app.add_option("--sort", settings.sort, "Column to sort by; --sort=-NAME for falling order")
        ->check(refuseEmpty)
        ->type_name("NAME");
    app.add_flag("--no-headers", settings.noHeaders, "No header line in tables, CSV and TSV");
    app.set_version_flag("--version", versionText, "Show the versions of rixstat and of the library, and exit");
}

void addRepeatOptions(CLI::App &parser, const Command &command, CommandLine &line)
{
    const int most = std::numeric_limits<int>::max();
    parser.add_option("-i,--interval", line.settings.interval, "Seconds from one to the next")
        ->check(refuseTime)
        ->type_name("SECONDS")
        ->default_str(CLI::detail::to_string(command.defaultInterval));
    parser.add_option("-n,--count", line.settings.count, "How many, then end")
        ->check(CLI::Range(1, most))
        ->type_name("COUNT")
        ->default_str(command.defaultCount > 0 ? std::to_string(command.defaultCount) : "without end");
}

void addRankOptions(CLI::App &parser, Settings &settings)
{
    parser.add_option("--top", settings.top, "Show the first N only, the largest first")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->type_name("N");
    parser.add_option("--by", settings.by, "What --top goes by: rate, delta or value (rate unless given)")
        ->check(CLI::IsMember(std::vector<std::string>{"rate", "delta", "value"}))
        ->type_name("WHAT");
}

void addCommands(CLI::App &app, CommandLine &line)
{
    app.require_subcommand(1);
    app.fallthrough(); // options are understood on both sides of the command's name
    for (const Command &command : commands()) {
        CLI::App *parser = app.add_subcommand(command.name, command.help);
        parser->callback([&line, &command] { line.command = &command; });
        parser->footer("The options of rixstat (see rixstat --help) can be given here as well.");
        if (command.idsHelp != nullptr)
            parser->add_option("ID", line.settings.ids, command.idsHelp)->check(refuseEmpty)->type_name("");
        if ((command.options & repeats) != 0) addRepeatOptions(*parser, command, line);
        if ((command.options & ranks) != 0) addRankOptions(*parser, line.settings);
    }
}

// A named gateway is understood behind the command, too, where it stands among the ids. A pattern is none.
void takeGateway(Parts &parts, std::vector<std::string> &ids)
{
    for (size_t i = 0; i < ids.size();) {
        if (ids[i][0] != '@' || ids[i].find_first_of("*?") != std::string::npos) {
            ++i;
            continue;
        }
        if (!parts.gateway.empty()) throw UsageError("one gateway at a time, not " + parts.gateway + " and " + ids[i]);
        parts.gateway = ids[i];
        ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void applyAddress(const GatewayAddress &address, const Parts &parts, Settings &settings)
{
    if (address.host && parts.host->empty()) settings.host = *address.host;
    if (address.port && parts.port->empty()) settings.port = *address.port;
}

// The command line goes before the gateway's name, that before the top of the file, that before what is built in.
void applyConfig(const Parts &parts, Settings &settings)
{
    const Config config = readConfig();
    applyAddress(config.standard, parts, settings);
    if (parts.gateway.empty()) return;
    std::string known;
    for (const auto &[name, address] : config.gateways) {
        if (parts.gateway == "@" + name) return applyAddress(address, parts, settings);
        known += (known.empty() ? "" : ", ") + std::string("@") + name;
    }
    if (config.path.empty()) throw UsageError("no gateway " + parts.gateway + ": HOME is not set, so no file is read");
    throw UsageError("no gateway " + parts.gateway + " in " + config.path +
                     (known.empty() ? "" : " (there are: " + known + ")"));
}

void applyDefaults(CommandLine &line)
{
    if ((line.command->options & repeats) == 0) return;
    if (line.settings.interval == 0) line.settings.interval = line.command->defaultInterval;
    if (line.settings.count == 0) line.settings.count = line.command->defaultCount;
}

} // namespace

void parseCommandLine(int argc, char **argv, CommandLine &line)
{
    CLI::App app("Shows the statistics of a running Vendral Gateway.", "rixstat");
    app.formatter_fn(rixtools::helpText);
    app.footer(footer());
    Parts parts;
    addGatewayOptions(app, line.settings, parts);
    addOutputOptions(app, line.settings, parts);
    addCommands(app, line);
    try {
        app.parse(argc, argv);
        if (!parts.gateway.empty() && parts.gateway[0] != '@') throw UsageError(noCommand(parts.gateway));
        takeGateway(parts, line.settings.ids);
        if ((line.command->options & asksNobody) == 0) applyConfig(parts, line.settings);
        applyDefaults(line);
        if (!parts.columns.empty())
            for (const std::string &name : CLI::detail::split(parts.columns, ','))
                line.settings.columns.push_back(CLI::detail::trim_copy(name));
    } catch (const CLI::CallForHelp &) {
        line.information = app.help();
    } catch (const CLI::CallForVersion &version) {
        line.information = version.what() + std::string("\n");
    } catch (const CLI::RequiredError &) {
        // In some versions of the parser the word is not yet in its variable.
        const CLI::results_t words = parts.word->results();
        if (!words.empty() && words.front()[0] != '@') throw UsageError(noCommand(words.front()));
        throw UsageError("a command is needed" + seeHelp);
    } catch (const CLI::ParseError &error) {
        throw UsageError(error.what() + seeHelp);
    }
}

} // namespace rixstat
