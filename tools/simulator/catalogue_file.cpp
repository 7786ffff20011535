// The text form of a catalogue: one entry a line, words parted by blanks. Empty lines and lines that begin with '#'
// (after any blanks) say nothing. A group's line comes before those of its statistics, and a statistic's identifier
// is made of both names, GROUP_NAME:
//
//   group    GROUP
//   counter  NAME RATE               rises by about RATE a second, never falls
//   gauge    NAME LOW HIGH SECONDS   moves between LOW and HIGH, crossing the range in about SECONDS seconds, with
//                                    as many decimals as LOW is written with
//   interval NAME RATE SECONDS       rises by about RATE a second and starts at 0 again every SECONDS seconds
//   state    NAME SECONDS A B ...    one of the words A B ..., chosen anew every SECONDS seconds
//   text     NAME TEXT...            the rest of the line
//   long     NAME COUNT TEXT...      the rest of the line, written COUNT times over
//   started  NAME                    date and time of the gateway's start
//   uptime   NAME                    seconds since the gateway's start
//
// Names may hold any characters but blanks and the colon, which parts the identifiers of a query. Rates are 0 or more,
// SECONDS more than 0, LOW at most HIGH.
#include "catalogue_file.h"

#include "wire.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace rixgwsim {

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr double kLargestNumber = 1e12;

// One line, taken apart word by word from the left.
class Line
{
public:
    explicit Line(std::string_view text) : rest(text) { skipBlanks(); }

    bool atEnd() const { return rest.empty(); }

    std::string word(const char *what)
    {
        const std::size_t length = std::min(rest.find_first_of(kBlanks), rest.size());
        if (length == 0) throw std::runtime_error(std::string(what) + " is missing");
        std::string taken(rest.substr(0, length));
        rest.remove_prefix(length);
        skipBlanks();
        return taken;
    }

    std::string name(const char *what)
    {
        std::string taken = word(what);
        if (taken.find(':') != std::string::npos)
            throw std::runtime_error(std::string(what) + " '" + taken + "' holds a colon");
        return taken;
    }

    double number(const char *what, double least)
    {
        const std::string taken = word(what);
        double value = 0;
        const char *end = taken.data() + taken.size();
        const auto [stop, error] = std::from_chars(taken.data(), end, value);
        if (error != std::errc() || stop != end || !std::isfinite(value))
            throw std::runtime_error(std::string(what) + " '" + taken + "' is not a number");
        if (value < least || value > kLargestNumber)
            throw std::runtime_error(std::string(what) + " " + taken + " is out of range");
        return value;
    }

    double seconds() { return number("SECONDS", 0.001); }

    std::string remainder(const char *what)
    {
        if (atEnd()) throw std::runtime_error(std::string(what) + " is missing");
        std::string taken(rest.substr(0, rest.find_last_not_of(kBlanks) + 1));
        rest = {};
        return taken;
    }

    std::string_view ahead() const { return rest; }

private:
    void skipBlanks() { rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size())); }

    std::string_view rest;
};

// Digits after the point of the number that comes next.
int decimalsAhead(const Line &line)
{
    const std::string_view word = line.ahead().substr(0, line.ahead().find_first_of(kBlanks));
    const std::size_t point = word.find('.');
    return point == std::string_view::npos ? 0 : static_cast<int>(word.size() - point - 1);
}

void readGauge(Line &line, Statistic &gauge)
{
    gauge.kind = StatisticKind::gauge;
    gauge.decimals = decimalsAhead(line);
    gauge.low = line.number("LOW", -kLargestNumber);
    gauge.high = line.number("HIGH", -kLargestNumber);
    if (gauge.high < gauge.low) throw std::runtime_error("HIGH is less than LOW");
    gauge.period = line.seconds();
}

void readLong(Line &line, Statistic &text)
{
    const double count = line.number("COUNT", 1);
    const std::string piece = line.remainder("TEXT");
    if (count * static_cast<double>(piece.size()) > kLongestText)
        throw std::runtime_error("the value is longer than " + std::to_string(kLongestText) + " bytes");
    text.texts.emplace_back();
    for (auto i = static_cast<long>(count); i > 0; --i)
        text.texts[0] += piece;
}

using Reader = void (*)(Line &, Statistic &);

const std::map<std::string, Reader, std::less<>> &readers()
{
    static const std::map<std::string, Reader, std::less<>> byWord = {
        {"counter",
         [](Line &line, Statistic &counter) {
             counter.kind = StatisticKind::counter;
             counter.rate = line.number("RATE", 0);
         }},
        {"gauge", readGauge},
        {"interval",
         [](Line &line, Statistic &interval) {
             interval.kind = StatisticKind::interval;
             interval.rate = line.number("RATE", 0);
             interval.period = line.seconds();
         }},
        {"state",
         [](Line &line, Statistic &state) {
             state.kind = StatisticKind::state;
             state.period = line.seconds();
             do
                 state.texts.push_back(line.word("the first state"));
             while (!line.atEnd());
         }},
        {"text", [](Line &line, Statistic &text) { text.texts = {line.remainder("TEXT")}; }},
        {"long", readLong},
        {"started", [](Line &, Statistic &started) { started.kind = StatisticKind::started; }},
        {"uptime", [](Line &, Statistic &uptime) { uptime.kind = StatisticKind::uptime; }},
    };
    return byWord;
}

class CatalogueReader
{
public:
    void take(Line line)
    {
        const std::string kind = line.word("the kind of entry");
        if (kind == "group")
            catalogue.groups.push_back({unusedId(line.name("GROUP")), {}});
        else
            takeStatistic(kind, line);
        if (!line.atEnd()) throw std::runtime_error("'" + std::string(line.ahead()) + "' is too much");
    }

    Catalogue catalogue;

private:
    void takeStatistic(const std::string &kind, Line &line)
    {
        const auto reader = readers().find(kind);
        if (reader == readers().end())
            throw std::runtime_error("'" + kind +
                                     "' is no kind of entry; a line begins with group, counter, gauge, "
                                     "interval, state, text, long, started or uptime");
        if (catalogue.groups.empty()) throw std::runtime_error("a group must come before the first statistic");
        Group &group = catalogue.groups.back();
        Statistic statistic;
        statistic.id = unusedId(group.id + "_" + line.name("NAME"));
        reader->second(line, statistic);
        group.statistics.push_back(statistic);
    }

    std::string unusedId(const std::string &id)
    {
        if (id.size() > kLongestText)
            throw std::runtime_error("the identifier is longer than " + std::to_string(kLongestText) + " bytes");
        if (!ids.insert(id).second) throw std::runtime_error("the identifier '" + id + "' is already used");
        return id;
    }

    std::set<std::string> ids;
};

} // namespace

Catalogue readCatalogue(std::istream &text, const std::string &name)
{
    CatalogueReader reader;
    std::string content;
    for (int number = 1; std::getline(text, content); ++number) {
        const Line line(content);
        if (line.atEnd() || line.ahead().front() == '#') continue;
        try {
            reader.take(line);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(name + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    if (text.bad()) throw std::runtime_error(name + ": cannot be read: " + std::strerror(errno));
    if (reader.catalogue.groups.empty()) throw std::runtime_error(name + ": there is no group in it");
    return reader.catalogue;
}

Catalogue loadCatalogue(const std::string &file)
{
    std::ifstream text(file);
    if (!text) throw std::runtime_error(file + ": cannot be opened: " + std::strerror(errno));
    return readCatalogue(text, file);
}

} // namespace rixgwsim
