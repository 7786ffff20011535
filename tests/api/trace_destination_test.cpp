// Destinations of the trace that are broken, full or asleep. The program must not feel any of it: no signal, no wait
// without end, no errno, no lock that others need.
#include "channel.h"
#include "gateway_fixture.h"
#include "stapi_rix_diag.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>

using namespace apitest;
using rixgwsim::Descriptor;
using testing::HasSubstr;

namespace {

class TraceDestination : public GatewayTest
{
protected:
    TraceDestination() { EXPECT_EQ(0, mkfifo(fifo.c_str(), 0600)); }
    ~TraceDestination() override { std::filesystem::remove_all(directory); }

    static std::string contentOf(const std::string &name)
    {
        std::ifstream file(name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // A line of level 1 each.
    static void traceLines(int count)
    {
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(STAPI_BAD_TRACE_LEVEL, setAPITraceLevel(-1));
    }

    // What a pipe holds at this moment.
    static std::string drain(int reader)
    {
        std::string text;
        int waiting = 0;
        while (ioctl(reader, FIONREAD, &waiting) == 0 && waiting > 0) {
            std::string piece(static_cast<std::size_t>(waiting), '\0');
            EXPECT_EQ(waiting, read(reader, piece.data(), piece.size()));
            text += piece;
        }
        return text;
    }

    // Far more lines than fit, behind the header alone; then the reader wakes up.
    static void fillAndDrain(int reader)
    {
        const int count = 3000;
        traceLines(count);
        const std::string taken = drain(reader);
        const auto lines = std::count(taken.begin(), taken.end(), '\n') - 1; // without the header
        EXPECT_LT(300, lines);
        traceLines(1);
        EXPECT_THAT(drain(reader), testing::MatchesRegex("\\*\\*\\* " + std::to_string(count - lines) +
                                                         " lines of this trace are missing here: .* \\*\\*\\*\n.*\n"));
    }

    static std::string newDirectory()
    {
        std::string name = testing::TempDir() + "rixstatsXXXXXX";
        EXPECT_NE(nullptr, mkdtemp(name.data()));
        return name;
    }

    const std::string directory = newDirectory();
    const std::string fifo = directory + "/fifo";
};

// Standard error of this process, in a child alone.
void becomeStandardError(int descriptor)
{
    EXPECT_EQ(STDERR_FILENO, dup2(descriptor, STDERR_FILENO));
}

int outcome()
{
    fflush(stdout);
    return testing::Test::HasFailure() ? -1 : 0;
}

TEST_F(TraceDestination, FifoThatNobodyReadsIsRefusedAtOnce)
{
    EXPECT_EQ(STAPI_OK, setAPITraceFile((directory + "/trace").c_str()));
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(1));
    EXPECT_EQ(STAPI_TRACE_FILE_OPEN_FAILED, setAPITraceFile(fifo.c_str()));
    EXPECT_THAT(contentOf(directory + "/trace"),
                HasSubstr("[1100] *EXC*  API.setAPITraceFile(" + fifo + ") file append failed with errno=6."));
}

TEST_F(TraceDestination, BrokenPipeRaisesNoSignalAndTakesNoneAway)
{
    open();
    EXPECT_EQ(0, inChild([] {
                  int ends[2];
                  EXPECT_EQ(0, pipe(ends));
                  ::close(ends[0]);
                  becomeStandardError(ends[1]);
                  EXPECT_TRUE(setAPITraceLevel(5) == STAPI_OK && dumpState() == STAPI_OK); // would kill the program
                  sigset_t pipeSignal, pending;
                  sigemptyset(&pipeSignal);
                  sigaddset(&pipeSignal, SIGPIPE);
                  sigprocmask(SIG_BLOCK, &pipeSignal, nullptr);
                  for (const int before : {0, 1}) {
                      if (before == 1) raise(SIGPIPE);
                      EXPECT_EQ(STAPI_OK, dumpState());
                      EXPECT_TRUE(sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == before);
                  }
                  return outcome();
              }));
}

TEST_F(TraceDestination, FileSizeLimitRaisesNoSignal)
{
    const std::string name = directory + "/trace";
    EXPECT_EQ(0, inChild([&] {
                  const rlimit limit = {5000, 5000};
                  EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
                  EXPECT_TRUE(setAPITraceFile(name.c_str()) == STAPI_OK && setAPITraceLevel(1) == STAPI_OK);
                  traceLines(100);
                  return outcome();
              }));
    EXPECT_EQ(5000u, std::filesystem::file_size(name));
}

TEST_F(TraceDestination, FullPipeHoldsNobodyAndIsToldWhatItMissed)
{
    EXPECT_EQ(0, inChild([] { // standard error is not the library's to set to anything
                  int ends[2];
                  EXPECT_EQ(0, pipe(ends));
                  becomeStandardError(ends[1]);
                  EXPECT_EQ(STAPI_OK, setAPITraceLevel(1));
                  fillAndDrain(ends[0]);
                  return outcome();
              }));
    EXPECT_EQ(0, inChild([] { // a terminal stops in the middle of a line
                  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
                  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0)
                      return 0; // none to be had here
                  becomeStandardError(::open(ptsname(terminal), O_RDWR | O_NOCTTY));
                  EXPECT_EQ(STAPI_OK, setAPITraceLevel(1));
                  traceLines(3000);
                  return outcome();
              }));
    const Descriptor reader(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_TRUE(setAPITraceLevel(1) == STAPI_OK && setAPITraceFile(fifo.c_str()) == STAPI_OK);
    fillAndDrain(reader.get());
    EXPECT_EQ(STAPI_OK, setAPITraceLevel(5));
    traceLines(1000);
    const std::string next = directory + "/next";
    EXPECT_EQ(STAPI_OK, setAPITraceFile(next.c_str()));
    EXPECT_THAT(contentOf(next), testing::Not(HasSubstr("missing")));
}

rixgwsim::Options largeAnswer()
{
    rixgwsim::Options options = smallOptions();
    options.faults.replySize = 300000;
    return options;
}

TEST_F(TraceDestination, StuckDumpLeavesConnectionsAndTheDestinationAlone)
{
    open(largeAnswer());
    ask(kStats);
    const Descriptor reader(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(STAPI_OK, setAPITraceFile(fifo.c_str()));
    std::thread dumping([] { EXPECT_EQ(STAPI_OK, dumpState()); });
    for (int waiting = 0; waiting < 60000;)
        ioctl(reader.get(), FIONREAD, &waiting);
    EXPECT_EQ(0, pthread_mutex_trylock(&rixstats::gtlLock.lock));
    pthread_mutex_unlock(&rixstats::gtlLock.lock);
    ask(kStats);
    EXPECT_EQ(STAPI_OK, setAPITraceFile(nullptr));
    dumping.join();
}

TEST_F(TraceDestination, SlowReaderMissesNothing)
{
    open(largeAnswer());
    const RIX_ResultSetToken_t stats = ask(kStats);
    const std::string name = directory + "/dump";
    EXPECT_TRUE(setAPITraceFile(name.c_str()) == STAPI_OK && dumpResultSet(stats) == STAPI_OK);
    const Descriptor reader(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ(STAPI_OK, setAPITraceFile(fifo.c_str()));
    std::atomic<bool> dumped{false};
    std::string seen;
    std::thread slow([&] {
        char piece[4096];
        for (ssize_t got = 0; got > 0 || !dumped;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const bool last = dumped;
            got = read(reader.get(), piece, sizeof piece);
            if (got > 0) seen.append(piece, static_cast<std::size_t>(got));
            if (last && got <= 0) break;
        }
    });
    EXPECT_EQ(STAPI_OK, dumpResultSet(stats));
    dumped = true;
    slow.join();
    EXPECT_TRUE(contentOf(name) == seen) << seen.size() << " bytes";
}

TEST_F(TraceDestination, TakesNoStandardDescriptorAndNoErrno)
{
    EXPECT_EQ(0, inChild([&] {
                  ::close(STDIN_FILENO);
                  EXPECT_EQ(STAPI_OK, setAPITraceFile((directory + "/trace").c_str()));
                  EXPECT_LT(STDERR_FILENO, fileno(rixstats::statAPITraceHandle));
                  EXPECT_EQ(STDIN_FILENO, ::open("/dev/null", O_RDONLY));
                  return outcome();
              }));
    EXPECT_TRUE(setAPITraceFile("/dev/full") == STAPI_OK && setAPITraceLevel(1) == STAPI_OK);
    errno = EDOM;
    EXC(1095, "%d cannot be written\n", 1);
    EXPECT_EQ(EDOM, errno);
}

} // namespace
