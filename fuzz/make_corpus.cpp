// Makes the first inputs of the fuzz targets: replies and conversations of the gateway simulator, and the genuine
// replies that the tests hold, as far as they are small. Makes the same files in every run.
//
//   make_corpus STREAMS_DIRECTORY CORPUS_DIRECTORY
#include "query.h"
#include "rixstats.h"
#include "scripted_socket.h"
#include "simulator.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <sys/socket.h>

namespace fs = std::filesystem;
using namespace fuzzing;
using namespace rixgwsim;

static thread_local Bytes received; // by the library; the simulator's threads do not matter

// The names are the linker's.
extern "C" ssize_t __real_recv(int socketDesc, void *bytes, std::size_t length, int flags);
extern "C" ssize_t __wrap_recv(int socketDesc, void *bytes, std::size_t length, int flags)
{
    const ssize_t got = __real_recv(socketDesc, bytes, length, flags);
    const std::uint8_t *start = static_cast<const std::uint8_t *>(bytes);
    if (got > 0) received.insert(received.end(), start, start + got);
    return got;
}

static void write(const fs::path &path, Bytes input, const Bytes &rest)
{
    input.insert(input.end(), rest.begin(), rest.end());
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out.exceptions(std::ios::failbit | std::ios::badbit);
    out.write(reinterpret_cast<const char *>(input.data()), static_cast<std::streamsize>(input.size()));
}

static Statistic statistic(const std::string &id, const std::string &text)
{
    Statistic made;
    made.id = id;
    made.texts = {text};
    return made;
}

static Options smallGateway(const Statistic &second = statistic("Host", std::string(40, 'h')))
{
    Options options;
    options.fixedClock = true;
    options.catalogue.groups = {
        {"Requests", {statistic("Received", "48"), second}}, {"Idle", {}}, {"Workers", {statistic("Busy", "")}}};
    return options;
}

// The first size of the result-set buffer changes from file to file.
static void addGenuineReplies(const fs::path &streams, const fs::path &corpus)
{
    unsigned count = 0;
    for (const fs::path &file : std::set<fs::path>(fs::directory_iterator(streams), {})) {
        if (file.extension() != ".bin" || fs::file_size(file) >= 2048) continue;
        std::ifstream in(file, std::ios::binary);
        const Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const unsigned identifiers = file.filename().string().rfind("ids", 0) == 0 ? 1 : 0;
        const unsigned control = (count++ & 7) << 1 | identifiers;
        write(corpus / ("genuine-" + file.stem().string()), {static_cast<std::uint8_t>(control)}, bytes);
    }
}

static void addMadeReplies(const fs::path &corpus)
{
    const Options plain = smallGateway();
    // Longer than a trace line's first room.
    const Options longName = smallGateway(statistic(std::string(1500, 'i'), std::string(40, 'h')));
    Options array = plain, flag = plain, cutShort = plain;
    Options longValue = smallGateway(statistic("Host", std::string(900, 'v')));
    array.stream.form = ReplyForm::array;
    flag.stream.singleFlag = 0xFF;
    cutShort.stream.blockLimit = 7; // inside words and texts, as in long lists of identifiers
    longValue.stream.blockLimit = 300;
    const struct
    {
        const char *name;
        std::uint8_t control; // as in fuzz_replies.cpp
        Action action;
        const char *argument;
        const Options &gateway;
    } seeds[] = {
        {"ids", 0x01, Action::statisticIds, "", plain},
        {"ids-array-of-one", 0x73, Action::statisticIds, "", array},
        {"ids-other-flag", 0x05, Action::statisticIds, "", flag},
        {"ids-some-failed", 0x79, Action::statisticIds, "Nonsense:Requests:Nothing", plain},
        {"ids-short-blocks", 0x0B, Action::statisticIds, "Nonsense:Requests:Workers", cutShort},
        {"stats", 0x0C, Action::statistics, "", plain},
        {"stats-short-blocks", 0x0E, Action::statistics, "Nonsense:Requests:Workers", cutShort},
        {"stats-some-failed", 0x04, Action::statistics, "Nonsense:Requests_Received:Nothing", plain},
        {"stats-long-identifier", 0x78, Action::statistics, "Requests", longName},
        {"stats-mixed-blocks", 0x0A, Action::statistics, "Requests:Workers", longValue},
    };
    for (const auto &seed : seeds)
        write(corpus / seed.name, {seed.control}, queryCallData(seed.gateway, seed.action, seed.argument, {}, 0));
}

// All that the library receives from this gateway while it opens, queries and closes as the fuzz target does.
static Bytes conversationWith(const Options &options, bool named = false)
{
    Simulator gateway(options);
    gateway.start();
    received.clear();
    RIX_GatewayToken_t token = nullptr;
    RIX_ResultSetToken_t set = nullptr;
    char *version = nullptr;
    openGatewayConnection(gateway.port(), &token, &version);
    named ? getStatsByStatId(token, "Requests_Received:Nonsense", &set) : getStats(token, &set);
    named ? getStatIdsByStatGroupId(token, "Requests", &set) : getStatIds(token, &set);
    closeAllGatewayConnections();
    return received;
}

static Options refusing(std::int32_t Faults::*code, int fromFlow)
{
    Options options = smallGateway();
    options.faults.*code = 7;
    options.faults.faultsFromFlow = fromFlow;
    return options;
}

static void addConversations(const fs::path &corpus)
{
    Options identity = smallGateway();
    identity.identity = {0x00710001, 5, 3, 7, 5.25, 1.5, 0x41, std::string(80, '2'), {1, 2, 3}};
    const Options longValue = smallGateway(statistic("Host", std::string(3000, 'v')));
    const Bytes all = conversationWith(smallGateway());
    const Bytes named = conversationWith(smallGateway(), true);
    const auto cutAt = [&all](std::ptrdiff_t length) { return Bytes(all.begin(), all.begin() + length); };
    const struct
    {
        const char *name;
        Bytes control; // as in scripted_socket.h
        Bytes replies;
    } seeds[] = {
        {"all", {0, 0, 0, 0}, all},
        {"named", {NAMED, 0, 0, 0}, named},
        {"identity", {0, 0, 0, 0}, conversationWith(identity)},
        {"long-value", {0, 0, 0, 0}, conversationWith(longValue)},
        {"traced", {TRACED | NAMED, 0, 0, 0}, named},
        {"bytewise", {0, 1, 0, 0}, all},
        {"in-pieces", {0, 7, 0, 0}, all},
        {"many-descriptors", {MANY_DESCRIPTORS, 0, 0, 0}, all},
        {"handshake-refused", {0, 0, 0, 0}, conversationWith(refusing(&Faults::gatewayRc, 1))},
        {"authorisation-refused", {0, 0, 0, 0}, conversationWith(refusing(&Faults::authRc, 1))},
        {"version-refused", {0, 0, 0, 0}, conversationWith(refusing(&Faults::adminRc, 5))},
        {"query-refused", {TRACED, 0, 0, 0}, conversationWith(refusing(&Faults::adminRc, 8))},
        {"header-cut", {0, 0, 0, 0}, cutAt(155)},
        {"body-cut", {0, 0, 0, 0}, cutAt(341)},
        {"body-cut-by-error", {ENDS_BY_ERROR, 0, 0, 0}, cutAt(665)},
        {"no-answer", {ENDS_BY_ERROR, 0, 0, 0}, {}},
    };
    for (const auto &seed : seeds)
        write(corpus / seed.name, seed.control, seed.replies);
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: make_corpus STREAMS_DIRECTORY CORPUS_DIRECTORY\n");
        return 2;
    }
    const fs::path corpus = argv[2];
    addGenuineReplies(argv[1], corpus / "replies");
    addMadeReplies(corpus / "replies");
    addConversations(corpus / "conversation");
    return 0;
}
