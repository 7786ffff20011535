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

#include "text_line.h"
#include "wire.h"

#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace rixgwsim {

namespace {

constexpr double kLeastSeconds = 0.001;
constexpr double kLargestNumber = 1e12;

double seconds(TextLine &line)
{
    return line.number("SECONDS", kLeastSeconds, kLargestNumber);
}

double rate(TextLine &line)
{
    return line.number("RATE", 0, kLargestNumber);
}

// The identifiers of a query are parted by colons.
std::string name(TextLine &line, const char *what)
{
    std::string taken = line.word(what);
    if (taken.find(':') != std::string::npos)
        throw std::runtime_error(std::string(what) + " '" + taken + "' holds a colon");
    return taken;
}

// Digits after the point of the number that comes next.
int decimalsAhead(const TextLine &line)
{
    const std::string_view word = line.nextWord();
    const std::size_t point = word.find('.');
    return point == std::string_view::npos ? 0 : static_cast<int>(word.size() - point - 1);
}

void readGauge(TextLine &line, Statistic &gauge)
{
    gauge.kind = StatisticKind::gauge;
    gauge.decimals = decimalsAhead(line);
    gauge.low = line.number("LOW", -kLargestNumber, kLargestNumber);
    gauge.high = line.number("HIGH", -kLargestNumber, kLargestNumber);
    if (gauge.high < gauge.low) throw std::runtime_error("HIGH is less than LOW");
    gauge.period = seconds(line);
}

void readLong(TextLine &line, Statistic &text)
{
    const double count = line.number("COUNT", 1, kLargestNumber);
    const std::string piece = line.remainder("TEXT");
    if (count * static_cast<double>(piece.size()) > kLongestText)
        throw std::runtime_error("the value is longer than " + std::to_string(kLongestText) + " bytes");
    text.texts.emplace_back();
    for (auto i = static_cast<long>(count); i > 0; --i)
        text.texts[0] += piece;
}

using Reader = void (*)(TextLine &, Statistic &);

const std::map<std::string, Reader, std::less<>> &readers()
{
    static const std::map<std::string, Reader, std::less<>> byWord = {
        {"counter",
         [](TextLine &line, Statistic &counter) {
             counter.kind = StatisticKind::counter;
             counter.rate = rate(line);
         }},
        {"gauge", readGauge},
        {"interval",
         [](TextLine &line, Statistic &interval) {
             interval.kind = StatisticKind::interval;
             interval.rate = rate(line);
             interval.period = seconds(line);
         }},
        {"state",
         [](TextLine &line, Statistic &state) {
             state.kind = StatisticKind::state;
             state.period = seconds(line);
             do
                 state.texts.push_back(line.word("the first state"));
             while (!line.atEnd());
         }},
        {"text", [](TextLine &line, Statistic &text) { text.texts = {line.remainder("TEXT")}; }},
        {"long", readLong},
        {"started", [](TextLine &, Statistic &started) { started.kind = StatisticKind::started; }},
        {"uptime", [](TextLine &, Statistic &uptime) { uptime.kind = StatisticKind::uptime; }},
    };
    return byWord;
}

class CatalogueReader
{
public:
    void take(TextLine &line)
    {
        const std::string kind = line.word("the kind of entry");
        if (kind == "group")
            catalogue.groups.push_back({unusedId(name(line, "GROUP")), {}});
        else
            takeStatistic(kind, line);
    }

    Catalogue catalogue;

private:
    void takeStatistic(const std::string &kind, TextLine &line)
    {
        const auto reader = readers().find(kind);
        if (reader == readers().end())
            throw std::runtime_error("'" + kind +
                                     "' is no kind of entry; a line begins with group, counter, gauge, "
                                     "interval, state, text, long, started or uptime");
        if (catalogue.groups.empty()) throw std::runtime_error("a group must come before the first statistic");
        Group &group = catalogue.groups.back();
        Statistic statistic;
        statistic.id = unusedId(group.id + "_" + name(line, "NAME"));
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
    forEachLine(text, name, [&reader](TextLine &line) { reader.take(line); });
    if (reader.catalogue.groups.empty()) throw std::runtime_error(name + ": there is no group in it");
    return reader.catalogue;
}

Catalogue loadCatalogue(const std::string &file)
{
    std::ifstream text = openText(file);
    return readCatalogue(text, file);
}

} // namespace rixgwsim
