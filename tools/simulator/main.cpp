// rixgwsim: the gateway simulator as a program, for people who develop monitors and for the demonstration.
#include "../help_text.h"
#include "catalogue_file.h"
#include "simulator.h"

#include <CLI/CLI.hpp>

#include <signal.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

constexpr int kUsageError = 2;
constexpr int kDefaultPort = 2980;

constexpr const char *kFooter = R"(A catalogue is a text file with one entry a line; # begins a comment:
  group    GROUP                   statistics that follow are GROUP_NAME
  counter  NAME RATE               rises by about RATE a second
  gauge    NAME LOW HIGH SECONDS   moves between LOW and HIGH
  interval NAME RATE SECONDS       a counter that restarts every SECONDS
  state    NAME SECONDS A B ...    one of A B ..., chosen anew every SECONDS
  text     NAME TEXT...            the rest of the line
  long     NAME COUNT TEXT...      the rest of the line, COUNT times over
  started  NAME                    when the gateway started
  uptime   NAME                    seconds since then

Flows of a connection: 1 handshake; 2, 3 authorisation; 4, 5 protocol version;
6, 7 first query; then two for each query.

A scenario is a text file with one fault a line:
  [connection WHICH] [flow WHICH | query WHICH] FAULT
WHICH is a number, as in 3, or several: 3-5, 3- (and all that follow), every 5.
A query stands for the flow that carries its answer. Faults:
  drop [BYTES]          close the connection, after so many bytes of the reply
  delay TIME            reply after 200ms or 2s
  exception             answer with the exception flag set
  gateway-rc CODE, admin-rc CODE, auth-rc CODE, piece-size BYTES,
  reply-size BYTES      as the options of these names)";

// For the unsigned options, whose parser would take -1 for the largest number.
const CLI::Validator kNotNegative(
    [](const std::string &text) {
        return text.rfind('-', 0) == 0 ? std::string("must not be negative") : std::string();
    },
    "");

struct Arguments
{
    rixgwsim::Options options;
    int port = kDefaultPort;
    std::string clock = "real";
    long long clockStep = 1000;
    std::string catalogueFile;
    std::string scenarioFile;
    long long delay = 0;
    bool verbose = false;
};

void addFaults(CLI::App &app, Arguments &arguments)
{
    rixgwsim::Faults &faults = arguments.options.faults;
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr long long kLongestDelay = 24LL * 3600 * 1000;
    const std::string group = "Faults";
    app.add_option("--auth-rc", faults.authRc, "Refuse authorisation with this code")->group(group);
    app.add_option("--gateway-rc", faults.gatewayRc, "Answer with this gateway code")->group(group);
    app.add_option("--admin-rc", faults.adminRc, "Answer admin flows with this admin code")->group(group);
    app.add_flag("--exception", faults.exceptionFlag, "Answer calls with the exception flag set")->group(group);
    app.add_option("--faults-from-flow", faults.faultsFromFlow,
                   "Do --gateway-rc, --admin-rc and --exception from this flow on")
        ->check(CLI::Range(1, kMost))
        ->capture_default_str()
        ->group(group);
    app.add_option("--delay", arguments.delay, "Wait so many milliseconds before every reply")
        ->check(CLI::Range(0LL, kLongestDelay))
        ->group(group);
    app.add_option("--piece-size", faults.pieceSize, "Send replies in pieces of so many bytes")
        ->check(kNotNegative)
        ->group(group);
    app.add_option("--drop-after-flows", faults.dropAfterFlows, "Close connections after so many answered flows")
        ->check(CLI::Range(0, kMost))
        ->group(group);
    CLI::Option *const inside = app.add_option("--drop-inside-flow", faults.dropInsideFlow,
                                               "Close connections inside the reply to this flow ...")
                                    ->check(CLI::Range(1, kMost))
                                    ->group(group);
    app.add_option("--drop-at-byte", faults.dropAtByte, "... after so many bytes of it")
        ->check(kNotNegative)
        ->needs(inside)
        ->group(group);
    app.add_option("--reply-size", faults.replySize, "Bring the call data of query replies to so many bytes")
        ->check(kNotNegative)
        ->group(group);
}

void addOptions(CLI::App &app, Arguments &arguments)
{
    rixgwsim::Options &options = arguments.options;
    app.add_option("--port", arguments.port, "Port to listen on, 0 for any free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--address", options.address, "Numeric address to listen on")->capture_default_str();
    app.add_option("--seed", options.seed, "Values follow from this number and the time")
        ->check(kNotNegative)
        ->capture_default_str();
    app.add_option("--clock", arguments.clock, "real, or fixed: a fixed date, moved on by each GET_STATS answered")
        ->check(CLI::IsMember({"real", "fixed"}))
        ->capture_default_str();
    app.add_option("--clock-step", arguments.clockStep, "Milliseconds by which the fixed clock moves on")
        ->check(CLI::Range(0LL, 24LL * 3600 * 1000))
        ->capture_default_str();
    app.add_option("--catalogue", arguments.catalogueFile, "File with the groups and statistics to have")
        ->type_name("FILE");
    app.add_option("--scenario", arguments.scenarioFile, "File that says which flow has which fault")
        ->type_name("FILE");
    app.add_option("--blocks", options.stream.blockLimit,
                   "Longest block of data in a reply; 1024 is a virtual machine's, 0 sets no limit")
        ->check(kNotNegative)
        ->capture_default_str();
    app.set_version_flag("--version", "rixgwsim " RIXGWSIM_VERSION, "Show the version and exit");
    app.add_flag("--verbose", arguments.verbose, "Tell of each flow on standard error");
    addFaults(app, arguments);
}

void complain(const std::string &text)
{
    std::fprintf(stderr, "rixgwsim: %s\n", text.c_str());
}

// Completes the options with what the command line says in another form.
void finishOptions(Arguments &arguments)
{
    rixgwsim::Options &options = arguments.options;
    options.port = static_cast<std::uint16_t>(arguments.port);
    options.fixedClock = arguments.clock == "fixed";
    options.fixedClockStep = std::chrono::milliseconds(arguments.clockStep);
    options.faults.delay = std::chrono::milliseconds(arguments.delay);
    options.recordRequests = false;
    options.onProtocolError = complain;
    if (arguments.verbose) options.onFlow = complain;
    if (!arguments.catalogueFile.empty()) options.catalogue = rixgwsim::loadCatalogue(arguments.catalogueFile);
    if (!arguments.scenarioFile.empty()) options.scenario = rixgwsim::loadScenario(arguments.scenarioFile);
}

bool announce(const std::string &address, std::uint16_t port)
{
    const bool colons = address.find(':') != std::string::npos;
    std::printf("listening on %s%s%s:%u\n", colons ? "[" : "", address.c_str(), colons ? "]" : "",
                static_cast<unsigned>(port));
    return std::fflush(stdout) == 0;
}

void run(const rixgwsim::Options &options)
{
    // Blocked before the first thread starts and taken up by sigwait, so that no handler is needed.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    rixgwsim::Simulator simulator(options);
    simulator.start();
    if (!announce(simulator.address(), simulator.port())) throw std::runtime_error("cannot write to standard output");
    int signal = 0;
    sigwait(&ending, &signal);
    simulator.stop();
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Simulates a gateway whose statistics can be asked for.", "rixgwsim");
    app.formatter_fn(rixtools::helpText);
    app.footer(kFooter);
    try {
        Arguments arguments;
        addOptions(app, arguments);
        app.parse(argc, argv);
        finishOptions(arguments);
        run(arguments.options);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) return app.exit(error); // --help, --version
        complain(error.what() + std::string(" (see rixgwsim --help)"));
        return kUsageError;
    } catch (const std::invalid_argument &error) {
        complain(error.what());
        return kUsageError;
    } catch (const std::system_error &error) {
        const bool taken = error.code() == std::errc::address_in_use;
        complain(error.what() + std::string(taken ? "; --port 0 takes any that is free" : ""));
        return EXIT_FAILURE;
    } catch (const std::exception &error) {
        complain(error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
