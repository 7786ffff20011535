// Locks, trace lines and storage dumps.
#include "rixstats.h"
#include "stapi_rix_diag.h"
#include "unit_support.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <gmock/gmock.h>
#include <regex>
#include <sstream>
#include <unistd.h>
#include <vector>

using namespace rixstats;
using namespace unit;

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
    EXPECT_EQ(initializeLock(&lock), 0);
    EXPECT_EQ(destroyLock(&lock), 0);
}

TEST(Lock, TracesMisuseWithoutTheTraceLock)
{
    stapilock lock = {};
    const TraceCapture trace(1);
    requestLock(&traceLock); // a line that wanted it would never come
    for (const auto operation : {requestLock, releaseLock, destroyLock})
        EXPECT_EQ(operation(&lock), -1);
    releaseLock(&traceLock);
    const std::string address = formatted("(lockPtr=%p) Lock not initialized\n", static_cast<void *>(&lock));
    for (const char *line : {"[3104] *EXC*  stapi_rix_lock.requestLock", "[3108] *EXC*  stapi_rix_lock.releaseLock",
                             "[3112] *EXC*  stapi_rix_lock.destroyLock"})
        EXPECT_THAT(trace.text(), testing::HasSubstr(line + address));
}

// ---- Trace lines

TEST(TraceLine, HasTimeProcessThreadPointAndPaddedType)
{
    const time_t before = time(nullptr);
    const TraceCapture trace(5);
    EXIT(42, "done rc=%d\n", -7);
    EXC(12345, "%s", "no line end");
    const std::string ids =
        formatted("0x%8.8X,0x%8.8X", static_cast<unsigned>(getpid()), static_cast<unsigned>(pthread_self()));
    const std::string stamp = R"((\d\d/\d\d/\d\d \d\d:\d\d:\d\d:)\d{3} \[)" + ids;
    std::smatch match;
    const std::string text = trace.text();
    ASSERT_TRUE(std::regex_match(
        text, match,
        std::regex(stamp + R"(\] \[0042\] EXIT   done rc=-7\n)" + stamp + R"(\] \[12345\] \*EXC\*  no line end)")))
        << text;
    struct tm local = {};
    local.tm_isdst = -1;
    ASSERT_NE(strptime(match[1].str().c_str(), "%d/%m/%y %H:%M:%S:", &local), nullptr);
    const time_t stamped = mktime(&local);
    EXPECT_TRUE(before <= stamped && stamped <= time(nullptr));
}

TEST(TraceLine, IsWrittenFromTheLevelOfItsTypeOn)
{
    const std::string types = "*EXC*  EVENT  ENTRY  EXIT   DEBUG  DATA   ";
    const size_t linesAt[] = {0, 1, 2, 4, 6, 6};
    for (int level = 0; level <= 5; level++) {
        const TraceCapture trace(level);
        int evaluated = 0;
        EXC(1, "%d\n", ++evaluated);
        EVENT(2, "%d\n", ++evaluated);
        ENTRY(3, "%d\n", ++evaluated);
        EXIT(4, "%d\n", ++evaluated);
        DEBUG(5, "%d\n", ++evaluated);
        DATA(6, "module.function", "data", 4, 0, 1);
        std::string written;
        std::istringstream lines(trace.text());
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("0x", 0) != 0) written += line.substr(53, 7);
        EXPECT_EQ(written, types.substr(0, 7 * linesAt[level])) << level;
        EXPECT_EQ(evaluated, std::min(static_cast<int>(linesAt[level]), 5)); // nothing for a line that is off
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

TEST(TraceInitialisation, CanBeRepeated)
{
    const TraceCapture trace;
    const char *name = statAPITraceFilename;
    EXPECT_EQ(initTrace(), STAPI_OK);
    EXPECT_EQ(statAPITraceHandle, stderr);
    EXPECT_EQ(statAPITraceFilename, name);
    EXPECT_STREQ(name, "stderr");
}

// ---- Storage dumps

const int STOP = 0x0E0F0E0F;

// The lines are compared without their addresses, which have to be right.
void expectDump(const std::string &data, int dataLen, int returned, const std::vector<std::string> &expected)
{
    const auto copy = exactCopy(data);
    const TraceCapture trace;
    EXPECT_EQ(traceOutStorage(copy.get(), dataLen, STOP, 16, 1), returned);
    std::vector<std::string> dumped;
    std::istringstream lines(trace.text());
    unsigned long address = reinterpret_cast<unsigned long>(copy.get());
    for (std::string line; std::getline(lines, line); address += 16) {
        const std::string column = formatted("0x%8.8lX: ", address);
        EXPECT_EQ(line.substr(0, column.size()), column);
        dumped.push_back(line.substr(column.size()));
    }
    EXPECT_EQ(dumped, expected);
}

// Past the end of the data the columns are blank.
std::string row(const char *hex, const char *characters)
{
    return formatted("%-35s : %s", hex, characters);
}

const std::string TEXT = "0123456789abcdefghijklmnopqrstuvw";
const std::string ROW1 = "30313233 34353637 38396162 63646566 : 0123456789abcdef ";
const std::string ROW2 = "6768696A 6B6C6D6E 6F707172 73747576 : ghijklmnopqrstuv ";

TEST(StorageDump, OfAByteCountHasFixedColumnsAndReadsNoFurther)
{
    const std::pair<int, std::vector<std::string>> cases[] = {
        {1, {row("30", "0")}},
        {4, {row("30313233", "0123")}},
        {15, {row("30313233 34353637 38396162 636465", "0123456789abcde")}},
        {16, {ROW1}},
        {17, {ROW1, row("67", "g")}},
        {20, {ROW1, row("6768696A", "ghij")}},
        {32, {ROW1, ROW2}},
        {33, {ROW1, ROW2, row("77", "w")}},
    };
    for (const auto &[length, lines] : cases)
        expectDump(TEXT.substr(0, static_cast<size_t>(length)), length, length, lines);
    expectDump(TERMINATOR + "\x1F ~\x7F\x80\xFFZ", 11, 11, {row("0F0E0F0E 1F207E7F 80FF5A", "..... ~...Z")});
}

TEST(StorageDump, EndsBeforeTheStopWord)
{
    const std::string spare(16, '\0');
    const std::string fullStopRow = "0F0E0F0E 00000000 00000000 00000000 : ";
    const struct
    {
        const char *name;
        std::string data;
        int returned;
        std::vector<std::string> lines;
    } cases[] = {
        {"on the second line", TEXT.substr(0, 20) + TERMINATOR, 20, {ROW1, row("6768696A", "ghij")}},
        {"across two lines",
         TEXT.substr(0, 14) + TERMINATOR,
         14,
         {row("30313233 34353637 38396162 6364", "0123456789abcd")}},
        {"at the start of a line, which is shown", TEXT.substr(0, 16) + TERMINATOR, 16, {ROW1, fullStopRow}},
        {"at the very start", TERMINATOR, 0, {fullStopRow}},
        {"a later one moves the result", "0123" + TERMINATOR + "x" + TERMINATOR, 9, {row("30313233", "0123")}},
        {"at the start and once more", TERMINATOR + "xy" + TERMINATOR, 6, {row("0F0E0F0E 7879", "")}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        expectDump(each.data + spare, 0, each.returned, each.lines);
    }
}

} // namespace
