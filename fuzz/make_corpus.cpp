// Makes the first inputs of the fuzz targets: replies and conversations of the gateway simulator, and the genuine
// replies that the tests hold, as far as they are small. Makes the same files in every run.
//
//   make_corpus STREAMS_DIRECTORY CORPUS_DIRECTORY
#include "conversation.h"
#include "query.h"
#include "simulator.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using rixgwsim::Bytes;

namespace {

constexpr std::size_t LONGEST_REPLY = 2048;

// All that a client's thread received; the simulator's threads have none.
thread_local Bytes *received = nullptr;

// As in the fuzz targets.
constexpr std::uint8_t IDENTIFIERS = 1, TRACED_REPLY = 0x70;
constexpr std::uint8_t NAMED = 1, CONNECTS_LATER = 2, INTERRUPTED = 4, MANY_DESCRIPTORS = 8, ENDS_BY_ERROR = 16,
                       TRACED_CONVERSATION = 0xE0;

void write(const fs::path &path, const Bytes &control, const Bytes &bytes)
{
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    for (const Bytes *part : {&control, &bytes})
        out.write(reinterpret_cast<const char *>(part->data()), static_cast<std::streamsize>(part->size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

rixgwsim::Group group(const std::string &id, const std::vector<std::pair<std::string, std::string>> &texts)
{
    rixgwsim::Group made = {id, {}};
    for (const auto &[name, text] : texts) {
        rixgwsim::Statistic &statistic = made.statistics.emplace_back();
        statistic.id = name;
        statistic.texts = {text};
    }
    return made;
}

rixgwsim::Options smallGateway()
{
    rixgwsim::Options options;
    options.fixedClock = true;
    options.catalogue.groups = {group("Requests", {{"Received", "48"}, {"Host", std::string(40, 'h')}}),
                                group("Idle", {}), group("Workers", {{"Busy", ""}})};
    return options;
}

using Change = std::function<void(rixgwsim::Options &)>;

void asIs(rixgwsim::Options &)
{
}

// A long value, in blocks of at most so many bytes.
Change valueOf(std::size_t length, std::size_t blockLimit)
{
    return [=](rixgwsim::Options &options) {
        options.catalogue.groups[0].statistics[1].texts = {std::string(length, 'v')};
        options.stream.blockLimit = blockLimit;
    };
}

// Blocks that end inside words and texts, as in long lists of identifiers.
void cutsShort(rixgwsim::Options &options)
{
    options.stream.blockLimit = 7;
}

// Identifiers longer than a trace line's first room.
void namesLong(rixgwsim::Options &options)
{
    options.catalogue.groups[0].statistics[1].id = std::string(1500, 'i');
}

// ---- Call data of replies

// The first size of the result-set buffer changes from file to file.
std::uint8_t nextControl(bool identifiers)
{
    static unsigned count = 0;
    return static_cast<std::uint8_t>((count++ & 7) << 1 | (identifiers ? IDENTIFIERS : 0));
}

void addGenuineReplies(const fs::path &streams, const fs::path &corpus)
{
    std::vector<fs::path> files;
    for (const fs::directory_entry &entry : fs::directory_iterator(streams))
        if (entry.path().extension() == ".bin" && entry.file_size() < LONGEST_REPLY) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        std::ifstream in(file, std::ios::binary);
        const Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const bool identifiers = file.filename().string().rfind("ids", 0) == 0;
        write(corpus / ("genuine-" + file.stem().string()), {nextControl(identifiers)}, bytes);
    }
}

struct ReplySeed
{
    const char *name;
    rixgwsim::Action action;
    const char *argument;
    bool traced;
    Change change;
};

void addMadeReplies(const fs::path &corpus)
{
    using rixgwsim::Action;
    const auto array = [](rixgwsim::Options &options) { options.stream.form = rixgwsim::ReplyForm::array; };
    const auto flag = [](rixgwsim::Options &options) { options.stream.singleFlag = 0xFF; };
    const ReplySeed seeds[] = {
        {"groups", Action::resourceGroups, "", false, asIs},
        {"groups-some-failed", Action::resourceGroups, "Workers:Nonsense:Requests", false, asIs},
        {"ids", Action::statisticIds, "", false, asIs},
        {"ids-array-of-one", Action::statisticIds, "", true, array},
        {"ids-other-flag", Action::statisticIds, "", false, flag},
        {"ids-of-groups", Action::statisticIds, "Requests:Idle:Workers", false, asIs},
        {"ids-some-failed", Action::statisticIds, "Nonsense:Requests:Nothing", true, asIs},
        {"ids-short-blocks", Action::statisticIds, "Nonsense:Requests:Workers", false, cutsShort},
        {"stats", Action::statistics, "", false, asIs},
        {"stats-short-blocks", Action::statistics, "Nonsense:Requests:Workers", false, cutsShort},
        {"stats-array-of-one", Action::statistics, "", true, array},
        {"stats-of-groups", Action::statistics, "Requests:Idle:Workers", false, asIs},
        {"stats-some-failed", Action::statistics, "Nonsense:Requests_Received:Nothing", false, asIs},
        {"stats-long-value", Action::statistics, "Requests", true, valueOf(700, 200)},
        {"stats-long-identifier", Action::statistics, "Requests", true, namesLong},
        {"stats-mixed-blocks", Action::statistics, "Requests:Workers", false, valueOf(900, 300)},
    };
    for (const ReplySeed &seed : seeds) {
        rixgwsim::Options options = smallGateway();
        seed.change(options);
        const Bytes reply = rixgwsim::queryCallData(options, seed.action, seed.argument, rixgwsim::GatewayTime{}, 0);
        const unsigned control = nextControl(seed.action != Action::statistics) | (seed.traced ? TRACED_REPLY : 0u);
        write(corpus / seed.name, {static_cast<std::uint8_t>(control)}, reply);
    }
}

// ---- Conversations

struct ConversationSeed
{
    const char *name;
    Bytes control; // flags, piece size, failing call, failure
    Change change;
};

Bytes recordConversation(const ConversationSeed &seed)
{
    rixgwsim::Options options = smallGateway();
    seed.change(options);
    rixgwsim::Simulator gateway(options);
    gateway.start();
    Bytes replies;
    received = &replies;
    fuzzing::converse({(seed.control[0] & NAMED) != 0, false}, gateway.port());
    received = nullptr;
    if (!gateway.lastProtocolError().empty()) throw std::runtime_error(gateway.lastProtocolError());
    return replies;
}

Change dropsInside(int flow, std::size_t byte)
{
    return [=](rixgwsim::Options &options) {
        options.faults.dropInsideFlow = flow;
        options.faults.dropAtByte = byte;
    };
}

Change refuses(std::int32_t rixgwsim::Faults::*field, int fromFlow)
{
    return [=](rixgwsim::Options &options) {
        options.faults.*field = 7;
        options.faults.faultsFromFlow = fromFlow;
    };
}

void raisesException(rixgwsim::Options &options)
{
    options.faults.exceptionFlag = true;
    options.faults.faultsFromFlow = 6;
}

void changesIdentity(rixgwsim::Options &options)
{
    options.identity.flowVersion = 0x00710001;
    options.identity.messageId = 5;
    options.identity.messageIdStep = 3;
    options.identity.security = 0x41;
    options.identity.protocolVersion = std::string(80, '2');
    options.identity.handshakeBody = {1, 2, 3};
}

void addConversations(const fs::path &corpus)
{
    using rixgwsim::Faults;
    const ConversationSeed seeds[] = {
        {"all", {0, 0, 0, 0}, asIs},
        {"named", {NAMED, 0, 0, 0}, asIs},
        {"identity", {0, 0, 0, 0}, changesIdentity},
        {"long-value", {0, 0, 0, 0}, valueOf(3000, 1024)},
        {"traced", {TRACED_CONVERSATION | NAMED, 0, 0, 0}, asIs},
        {"traced-exception", {TRACED_CONVERSATION, 0, 0, 0}, raisesException},
        {"bytewise", {CONNECTS_LATER, 1, 0, 0}, asIs},
        {"pieces-interrupted", {INTERRUPTED | CONNECTS_LATER, 7, 0, 0}, asIs},
        {"many-descriptors", {MANY_DESCRIPTORS | CONNECTS_LATER, 0, 0, 0}, asIs},
        {"connect-refused", {0, 0, 6, 1}, asIs},
        {"connect-refused-later", {CONNECTS_LATER, 0, 8, 1}, asIs},
        {"connect-timed-out", {CONNECTS_LATER, 0, 7, 3}, asIs},
        {"send-fails", {0, 0, 40, 4}, asIs},
        {"handshake-refused", {0, 0, 0, 0}, refuses(&Faults::gatewayRc, 1)},
        {"authorisation-refused", {0, 0, 0, 0}, refuses(&Faults::authRc, 1)},
        {"version-refused", {0, 0, 0, 0}, refuses(&Faults::adminRc, 5)},
        {"query-refused", {TRACED_CONVERSATION, 0, 0, 0}, refuses(&Faults::adminRc, 8)},
        {"header-cut", {0, 0, 0, 0}, dropsInside(4, 20)},
        {"body-cut", {0, 0, 0, 0}, dropsInside(7, 60)},
        {"body-cut-by-error", {ENDS_BY_ERROR, 0, 0, 0}, dropsInside(9, 50)},
        {"no-answer", {ENDS_BY_ERROR, 0, 0, 0}, dropsInside(1, 0)},
    };
    for (const ConversationSeed &seed : seeds)
        write(corpus / seed.name, seed.control, recordConversation(seed));
}

} // namespace

// The names are the linker's.
extern "C" ssize_t __real_recv(int socketDesc, void *bytes, std::size_t length, int flags);
extern "C" ssize_t __wrap_recv(int socketDesc, void *bytes, std::size_t length, int flags)
{
    const ssize_t got = __real_recv(socketDesc, bytes, length, flags);
    const std::uint8_t *start = static_cast<const std::uint8_t *>(bytes);
    if (received != nullptr && got > 0) received->insert(received->end(), start, start + got);
    return got;
}

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: make_corpus STREAMS_DIRECTORY CORPUS_DIRECTORY\n");
        return 2;
    }
    try {
        const fs::path corpus = argv[2];
        addGenuineReplies(argv[1], corpus / "replies");
        addMadeReplies(corpus / "replies");
        addConversations(corpus / "conversation");
    } catch (const std::exception &failure) {
        fprintf(stderr, "make_corpus: %s\n", failure.what());
        return 1;
    }
    return 0;
}
