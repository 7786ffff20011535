#include "simulator.h"

#include "channel.h"
#include "conversation.h"
#include "query.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <list>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace rixgwsim {

namespace {

constexpr std::chrono::seconds kUpAtStart{3642};        // within an interval of every usual length
constexpr std::chrono::seconds kFixedStart{1704067200}; // 2024-01-01T00:00:00Z
constexpr std::chrono::milliseconds kAcceptPause{50};
constexpr std::size_t kLargestReply = std::numeric_limits<std::int32_t>::max() - 9; // what precedes the call data

// Threads started while this lives leave every signal to the rest of the program.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before = {};
};

void checkReplySize(std::size_t size, const StreamStyle &style)
{
    if (size < leastReplySize(style))
        throw std::invalid_argument("no reply has " + std::to_string(size) + " bytes of call data: the smallest has " +
                                    std::to_string(leastReplySize(style)));
    if (size > kLargestReply)
        throw std::invalid_argument("no reply has " + std::to_string(size) + " bytes of call data: the largest has " +
                                    std::to_string(kLargestReply));
}

void checkFaults(const Faults &faults, const StreamStyle &style)
{
    if (faults.replySize != 0) checkReplySize(faults.replySize, style);
    if (faults.delay.count() < 0 || faults.pieceGap.count() < 0) throw std::invalid_argument("a delay is negative");
}

void checkScenario(const Scenario &scenario, const StreamStyle &style)
{
    for (const ScenarioRule &rule : scenario.rules) {
        if (rule.connections.step < 1 || rule.flows.step < 1 || rule.queries.step < 1)
            throw std::invalid_argument("a step of a scenario is less than 1");
        if (rule.fault == FaultKind::replySize) checkReplySize(static_cast<std::size_t>(rule.value), style);
        if (rule.fault == FaultKind::delay && rule.value < 0) throw std::invalid_argument("a delay is negative");
    }
}

bool mustDrop(const Faults &faults, int answeredFlows)
{
    return faults.dropAfterFlows >= 0 && answeredFlows >= faults.dropAfterFlows;
}

// What the statistics are told the time is.
class Clock
{
public:
    void start(bool isFixed, std::chrono::milliseconds fixedStep)
    {
        fixed = isFixed;
        step = fixedStep;
        queries = 0;
        startedReal = std::chrono::steady_clock::now();
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        startedAt = fixed ? kFixedStart : std::chrono::duration_cast<std::chrono::seconds>(now) - kUpAtStart;
    }

    GatewayTime nextQuery()
    {
        const auto real = std::chrono::steady_clock::now() - startedReal;
        const std::int64_t before = queries++;
        const auto sinceStart = fixed ? step * before : std::chrono::duration_cast<std::chrono::milliseconds>(real);
        return {kUpAtStart + sinceStart, startedAt};
    }

private:
    bool fixed = false;
    std::chrono::milliseconds step{0};
    std::atomic<std::int64_t> queries{0};
    std::chrono::steady_clock::time_point startedReal;
    std::chrono::seconds startedAt{0};
};

} // namespace

class Simulator::Server
{
public:
    explicit Server(Options given) : options(std::move(given)), faults(options.faults)
    {
        checkFaults(faults, options.stream);
        checkScenario(options.scenario, options.stream);
    }

    ~Server() { stop(); }

    void start();
    void stop();
    std::uint16_t port() const { return listeningPort; }
    void setFaults(const Faults &changed);
    std::string lastProtocolError() const;
    std::vector<Request> requests() const;
    void clearRequests();
    std::size_t openConnections() const;

    const Options options;

private:
    struct Connection
    {
        std::thread thread;
        std::atomic<bool> ended{false};
    };

    void acceptConnections();
    void acceptOne();
    void joinEnded();
    void serve(Descriptor socket, int number);
    void converse(Channel &channel, Conversation &conversation);
    bool receiveRequest(Channel &channel, Conversation &conversation);
    bool sendReply(Channel &channel, const Bytes &reply, int flow, const Faults &now);
    Faults currentFaults(const Moment &moment) const;
    void recordRequest(Request request);
    void reportError(const std::string &text);
    void reportFlow(const std::string &text) const;

    std::unique_ptr<StopSignal> stopSignal; // while started
    Descriptor listener;
    std::atomic<std::uint16_t> listeningPort{0};
    std::thread acceptor;
    std::list<Connection> connections; // the acceptor's while that runs
    int accepted = 0;
    std::atomic<std::size_t> open{0};
    Clock clock;

    mutable std::mutex mutex; // for the following
    Faults faults;
    std::string protocolError;
    std::vector<Request> received;
};

void Simulator::Server::start()
{
    if (stopSignal) throw std::runtime_error("the simulator is already started");
    auto signal = std::make_unique<StopSignal>();
    Descriptor socket = listenOn(options.address, options.port);
    listeningPort = portOf(socket);
    listener = std::move(socket);
    stopSignal = std::move(signal);
    clock.start(options.fixedClock, options.fixedClockStep);
    const SignalsBlocked blocked;
    acceptor = std::thread([this] { acceptConnections(); });
}

void Simulator::Server::stop()
{
    if (!stopSignal) return;
    stopSignal->raise();
    if (acceptor.joinable()) acceptor.join();
    for (Connection &connection : connections)
        connection.thread.join();
    connections.clear();
    listener.reset();
    stopSignal.reset();
}

void Simulator::Server::acceptConnections()
{
    try {
        while (waitFor(listener.get(), POLLIN, std::chrono::milliseconds(-1), *stopSignal) == Wait::ready) {
            joinEnded();
            acceptOne();
        }
    } catch (const std::exception &error) {
        reportError(std::string("no further connections are accepted: ") + error.what());
    }
}

void Simulator::Server::acceptOne()
{
    Descriptor socket(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.get() < 0) {
        // Out of descriptors or memory: wait for connections to end, as the listener stays ready all the while. After
        // anything else (the client has already gone) waiting does no harm.
        if (errno != EAGAIN && errno != EINTR) waitFor(-1, 0, kAcceptPause, *stopSignal);
        return;
    }
    const int number = ++accepted;
    Connection &connection = connections.emplace_back();
    ++open;
    try {
        connection.thread = std::thread([this, &connection, number, taken = std::move(socket)]() mutable {
            serve(std::move(taken), number);
            --open;
            connection.ended = true;
        });
    } catch (const std::system_error &error) {
        --open;
        connections.pop_back();
        reportError("connection " + std::to_string(number) + ": cannot start a thread: " + error.what());
    }
}

void Simulator::Server::joinEnded()
{
    connections.remove_if([](Connection &connection) {
        if (!connection.ended) return false;
        connection.thread.join();
        return true;
    });
}

void Simulator::Server::serve(Descriptor socket, int number)
{
    // Outside the try block, as it is to close after the report: a client that sees the end finds the reason.
    Channel channel(std::move(socket), *stopSignal);
    Conversation conversation(number, options, [this] { return clock.nextQuery(); });
    try {
        const std::string name = "connection " + std::to_string(number);
        reportFlow(name + ": accepted");
        converse(channel, conversation);
        reportFlow(name + ": ended");
    } catch (const std::exception &error) {
        reportError(conversation.flowName() + ": " + error.what());
    }
}

void Simulator::Server::converse(Channel &channel, Conversation &conversation)
{
    while (!mustDrop(currentFaults(conversation.moment()), conversation.flow()) && !conversation.closed()) {
        if (!receiveRequest(channel, conversation)) return;
        const Faults now = currentFaults(conversation.moment()); // they may have changed while the client was silent
        if (mustDrop(now, conversation.flow() - 1)) return;
        const std::string flow = conversation.flowName();
        const Bytes reply = conversation.answer(now);
        if (!channel.pause(now.delay) || !sendReply(channel, reply, conversation.flow(), now)) return;
        reportFlow(flow + ": answered with " + std::to_string(reply.size()) + " bytes");
    }
}

// False at the end of the connection.
bool Simulator::Server::receiveRequest(Channel &channel, Conversation &conversation)
{
    conversation.beginRequest();
    Bytes bytes;
    try {
        while (const std::size_t wanted = conversation.bytesWanted(bytes))
            if (!channel.read(bytes, wanted)) {
                if (!bytes.empty() && !channel.stopped())
                    throw ProtocolError("the client left after " + std::to_string(bytes.size()) +
                                        " bytes of the request");
                return false;
            }
    } catch (const ProtocolError &) {
        Request refused = conversation.current();
        refused.bytes = bytes;
        recordRequest(refused);
        throw;
    }
    recordRequest(conversation.current());
    return true;
}

// False when the connection is to end.
bool Simulator::Server::sendReply(Channel &channel, const Bytes &reply, int flow, const Faults &now)
{
    const bool drop = flow == now.dropInsideFlow;
    const std::size_t size = drop ? std::min(now.dropAtByte, reply.size()) : reply.size();
    const std::size_t piece = now.pieceSize != 0 ? now.pieceSize : size;
    for (std::size_t sent = 0; sent < size; sent += piece) {
        if (sent != 0 && !channel.pause(now.pieceGap)) return false;
        if (!channel.write(reply.data() + sent, std::min(piece, size - sent))) return false;
    }
    return !drop;
}

Faults Simulator::Server::currentFaults(const Moment &moment) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return faultsAt(moment, faults, options.scenario);
}

void Simulator::Server::setFaults(const Faults &changed)
{
    checkFaults(changed, options.stream);
    const std::lock_guard<std::mutex> lock(mutex);
    faults = changed;
}

void Simulator::Server::recordRequest(Request request)
{
    if (!options.recordRequests) return;
    const std::lock_guard<std::mutex> lock(mutex);
    received.push_back(std::move(request));
}

std::vector<Request> Simulator::Server::requests() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return received;
}

void Simulator::Server::clearRequests()
{
    const std::lock_guard<std::mutex> lock(mutex);
    received.clear();
}

std::size_t Simulator::Server::openConnections() const
{
    return open;
}

std::string Simulator::Server::lastProtocolError() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return protocolError;
}

void Simulator::Server::reportError(const std::string &text)
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        protocolError = text;
    }
    if (options.onProtocolError) options.onProtocolError(text);
}

void Simulator::Server::reportFlow(const std::string &text) const
{
    if (options.onFlow) options.onFlow(text);
}

Simulator::Simulator(Options options) : server(std::make_unique<Server>(std::move(options)))
{
}
Simulator::~Simulator() = default;
void Simulator::start()
{
    server->start();
}
void Simulator::stop()
{
    server->stop();
}
std::string Simulator::address() const
{
    return server->options.address;
}
std::uint16_t Simulator::port() const
{
    return server->port();
}
std::string Simulator::lastProtocolError() const
{
    return server->lastProtocolError();
}
std::vector<Request> Simulator::requests() const
{
    return server->requests();
}
void Simulator::clearRequests()
{
    server->clearRequests();
}
std::size_t Simulator::openConnections() const
{
    return server->openConnections();
}
void Simulator::setFaults(const Faults &faults)
{
    server->setFaults(faults);
}

} // namespace rixgwsim
