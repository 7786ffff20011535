// Locks, trace lines and storage dumps.
#include "unit_support.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <unistd.h>
#include <vector>

using namespace rixstats;
using namespace unit;
using testing::HasSubstr;

namespace {

// ---- Locks

TEST(Lock, TellsItsStateByCodeAndMarker)
{
    stapilock lock = {};
    EXPECT_EQ(initializeLock(&lock), 0);
    EXPECT_EQ(isLockInitialized(&lock), static_cast<int>(0xFFEEDDCC));
    EXPECT_EQ(requestLock(&lock), 0);
    EXPECT_EQ(initializeLock(&lock), 1);
    EXPECT_EQ(pthread_mutex_trylock(&lock.lock), EBUSY); // held, and not made anew
    EXPECT_EQ(releaseLock(&lock), 0);
    EXPECT_EQ(destroyLock(&lock), 0);
    EXPECT_EQ(isLockInitialized(&lock), static_cast<int>(0xCCDDEEFF));
}

TEST(Lock, TracesMisuseWithoutTheTraceLock)
{
    stapilock lock = {};
    const TraceCapture trace(1);
    requestLock(&traceLock); // a line that wanted it would never come
    for (const auto operation : {requestLock, releaseLock, destroyLock})
        EXPECT_EQ(operation(&lock), -1);
    releaseLock(&traceLock);
    const std::string rest = "(lockPtr=" + testing::PrintToString(&lock.lock) + ") Lock not initialized\n";
    for (const char *line : {"[3104] *EXC*  stapi_rix_lock.requestLock", "[3108] *EXC*  stapi_rix_lock.releaseLock",
                             "[3112] *EXC*  stapi_rix_lock.destroyLock"})
        EXPECT_THAT(trace.text(), HasSubstr(line + rest));
}

// ---- Trace lines

std::string localTime(time_t moment)
{
    std::ostringstream text;
    text << std::put_time(localtime(&moment), "%d/%m/%y %H:%M:%S:");
    return text.str();
}

TEST(TraceLine, HasTimeProcessThreadPointAndPaddedType)
{
    time_t moment = time(nullptr);
    const TraceCapture trace(5);
    EXIT(42, "done rc=%d\n", -7);
    EXC(12345, "%s", "no line end");
    char ids[64];
    snprintf(ids, sizeof ids, " [0x%8.8X,0x%8.8X] ", static_cast<unsigned>(getpid()),
             static_cast<unsigned>(pthread_self()));
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now); // the clock of the trace: time() may still tell the second before
    std::vector<std::string> since;      // all seconds that have gone by
    for (; moment <= now.tv_sec; ++moment)
        since.push_back(localTime(moment));
    EXPECT_THAT(since, testing::Contains(trace.text().substr(0, 18)));
    EXPECT_EQ(trace.text().find(ids + std::string("[0042] EXIT   done rc=-7\n")), 21u);
    EXPECT_THAT(trace.text(), testing::EndsWith(ids + std::string("[12345] *EXC*  no line end")));
}

TEST(TraceLine, IsWrittenFromTheLevelOfItsTypeOn)
{
    const int shownAt[] = {0, 0x01, 0x03, 0x0F, 0x1F, 0x1F};
    const int linesAt[] = {0, 1, 2, 4, 7, 7}; // with the data's own line
    for (int level = 0; level <= 5; level++) {
        const TraceCapture trace(level);
        int shown = 0; // nothing is evaluated for a line that is off
        EXC(1, "%d\n", shown |= 0x01);
        EVENT(2, "%d\n", shown |= 0x02);
        ENTRY(3, "%d\n", shown |= 0x04);
        EXIT(4, "%d\n", shown |= 0x08);
        DEBUG(5, "%d\n", shown |= 0x10);
        DATA(6, "module.function", "data", 4, 0, 1);
        const std::string text = trace.text();
        EXPECT_EQ(shown, shownAt[level]) << level;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), linesAt[level]) << level;
    }
}

TEST(TraceLine, IsCompleteHoweverLong)
{
    for (size_t length = 940; length < 1040; length++) {
        const TraceCapture trace(1);
        const std::string message = std::string(length - 1, 'm') + "\n";
        EXC(1, "%s", message.c_str());
        EXPECT_EQ(trace.text().substr(60), message);
    }
}

// ---- Storage dumps

// The lines are compared without their addresses, which have to be right.
void expectDump(const std::string &data, int dataLen, int returned, const std::vector<std::string> &expected)
{
    const auto copy = exactCopy(data);
    const TraceCapture trace;
    EXPECT_EQ(traceOutStorage(copy.get(), dataLen, 0x0E0F0E0F, 16, 1), returned);
    std::vector<std::string> dumped;
    std::istringstream lines(trace.text());
    const char *address = copy.get();
    for (std::string line; std::getline(lines, line); address += 16) {
        char column[32];
        const int width = snprintf(column, sizeof column, "0x%8.8zX: ", reinterpret_cast<size_t>(address));
        EXPECT_EQ(line.substr(0, static_cast<size_t>(width)), column);
        dumped.push_back(line.substr(static_cast<size_t>(width)));
    }
    EXPECT_EQ(dumped, expected) << data;
}

// Past the end of the data the columns are blank.
std::string row(std::string hex, const std::string &characters)
{
    hex.resize(35, ' ');
    return hex + " : " + characters;
}

const std::string TEXT = "0123456789abcdefghijklmnopqrstuvw";
const std::string ROW1 = "30313233 34353637 38396162 63646566 : 0123456789abcdef ";
const std::string STOP_WORD = TERMINATOR[0] == '\x0F' ? "0F0E0F0E" : "0E0F0E0F"; // as a word lies in this machine
const std::string ROW2 = "6768696A 6B6C6D6E 6F707172 73747576 : ghijklmnopqrstuv ";

TEST(StorageDump, OfAByteCountHasFixedColumnsAndReadsNoFurther)
{
    expectDump("0", 1, 1, {row("30", "0")});
    expectDump(TEXT.substr(0, 15), 15, 15, {row("30313233 34353637 38396162 636465", "0123456789abcde")});
    expectDump(TEXT.substr(0, 16), 16, 16, {ROW1});
    expectDump(TEXT, 33, 33, {ROW1, ROW2, row("77", "w")});
    expectDump(TERMINATOR + "\x1F ~\x7F\x80\xFFZ", 11, 11, {row(STOP_WORD + " 1F207E7F 80FF5A", "..... ~...Z")});
}

TEST(StorageDump, EndsBeforeTheStopWord)
{
    const std::string spare(16, '\0'), fullStopRow = STOP_WORD + " 00000000 00000000 00000000 : ";
    const std::string evenRow = row("30313233 34353637 38396162 6364", "0123456789abcd");
    expectDump(TEXT.substr(0, 20) + TERMINATOR + spare, 0, 20, {ROW1, row("6768696A", "ghij")});
    expectDump(TEXT.substr(0, 14) + TERMINATOR + spare, 0, 14, {evenRow}); // which lies across two lines
    expectDump(TEXT.substr(0, 16) + TERMINATOR + spare, 0, 16, {ROW1, fullStopRow});
    expectDump(TERMINATOR + spare, 0, 0, {fullStopRow});
    // A later one moves the result.
    expectDump("0123" + TERMINATOR + "x" + TERMINATOR + spare, 0, 9, {row("30313233", "0123")});
    expectDump(TERMINATOR + "xy" + TERMINATOR + spare, 0, 6, {row(STOP_WORD + " 7879", "")});
}

} // namespace
