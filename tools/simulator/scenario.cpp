#include "scenario.h"

#include "text_line.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace rixgwsim {

namespace {

constexpr long long kMost = std::numeric_limits<int>::max();
constexpr long long kLeast = std::numeric_limits<int>::min();
constexpr long long kLongestDelay = 24LL * 3600 * 1000; // milliseconds

int count(std::string_view text)
{
    return static_cast<int>(integerIn(text, "the number", 1, kMost));
}

// N, N-M, N- or every N
NumberRange readRange(TextLine &line)
{
    NumberRange range;
    if (line.take("every")) {
        range.step = count(line.word("the number after 'every'"));
        range.first = range.step;
        return range;
    }
    const std::string word = line.word("a number, as in 3, 3-5, 3- or every 5,");
    const std::size_t dash = word.find('-');
    range.first = count(word.substr(0, dash));
    if (dash == std::string::npos)
        range.last = range.first;
    else if (dash + 1 < word.size())
        range.last = count(word.substr(dash + 1));
    if (range.last != 0 && range.last < range.first) throw std::runtime_error("'" + word + "' ends before it begins");
    return range;
}

// 200ms or 2s
long long readDelay(TextLine &line)
{
    const std::string word = line.word("the delay, as in 200ms or 2s,");
    const std::size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
    const std::string_view unit = std::string_view(word).substr(digits);
    if (digits == 0 || (unit != "ms" && unit != "s"))
        throw std::runtime_error("'" + word + "' is no delay; write it as in 200ms or 2s");
    const long long scale = unit == "s" ? 1000 : 1;
    return scale * integerIn(std::string_view(word).substr(0, digits), "the delay", 0, kLongestDelay / scale);
}

struct FaultWord
{
    const char *word;
    FaultKind kind;
    const char *value; // what it is called in messages; null: there is none
    long long least;
    long long most;
};

constexpr FaultWord kFaultWords[] = {
    {"drop", FaultKind::drop, nullptr, 0, 0},
    {"delay", FaultKind::delay, nullptr, 0, 0},
    {"exception", FaultKind::exception, nullptr, 0, 0},
    {"gateway-rc", FaultKind::gatewayCode, "the gateway code", kLeast, kMost},
    {"admin-rc", FaultKind::adminCode, "the admin code", kLeast, kMost},
    {"auth-rc", FaultKind::authCode, "the authorisation code", kLeast, kMost},
    {"piece-size", FaultKind::pieceSize, "the size of the pieces", 1, kMost},
    {"reply-size", FaultKind::replySize, "the size of the reply", 1, kMost},
};

void readFault(TextLine &line, ScenarioRule &rule)
{
    const std::string word = line.word("the fault");
    const auto known = std::find_if(std::begin(kFaultWords), std::end(kFaultWords),
                                    [&word](const FaultWord &fault) { return word == fault.word; });
    if (known == std::end(kFaultWords))
        throw std::runtime_error("'" + word +
                                 "' is no fault; there are drop, delay, exception, gateway-rc, admin-rc, auth-rc, "
                                 "piece-size and reply-size, after connection, flow or query");
    rule.fault = known->kind;
    if (rule.fault == FaultKind::delay)
        rule.value = readDelay(line);
    else if (rule.fault == FaultKind::drop && !line.atEnd())
        rule.value = line.integer("the number of bytes", 0, kMost);
    else if (known->value != nullptr)
        rule.value = line.integer(known->value, known->least, known->most);
}

ScenarioRule readRule(TextLine &line)
{
    ScenarioRule rule;
    if (line.take("connection")) rule.connections = readRange(line);
    if (line.take("flow"))
        rule.flows = readRange(line);
    else if (line.take("query"))
        rule.queries = readRange(line);
    readFault(line, rule);
    return rule;
}

void apply(const ScenarioRule &rule, const Moment &moment, Faults &faults)
{
    const auto code = static_cast<std::int32_t>(rule.value);
    const auto size = static_cast<std::size_t>(rule.value);
    switch (rule.fault) {
    case FaultKind::drop:
        faults.dropInsideFlow = moment.flow;
        faults.dropAtByte = size;
        break;
    case FaultKind::delay:
        faults.delay = std::chrono::milliseconds(rule.value);
        break;
    case FaultKind::exception:
        faults.exceptionFlag = true;
        break;
    case FaultKind::gatewayCode:
        faults.gatewayRc = code;
        break;
    case FaultKind::adminCode:
        faults.adminRc = code;
        break;
    case FaultKind::authCode:
        faults.authRc = code;
        break;
    case FaultKind::pieceSize:
        faults.pieceSize = size;
        break;
    case FaultKind::replySize:
        faults.replySize = size;
        break;
    }
}

} // namespace

bool NumberRange::holds(int number) const
{
    return number >= first && (last == 0 || number <= last) && (number - first) % step == 0;
}

Scenario readScenario(std::istream &text, const std::string &name)
{
    Scenario scenario;
    forEachLine(text, name, [&scenario](TextLine &line) { scenario.rules.push_back(readRule(line)); });
    return scenario;
}

Scenario loadScenario(const std::string &file)
{
    std::ifstream text = openText(file);
    return readScenario(text, file);
}

Faults faultsAt(const Moment &moment, const Faults &always, const Scenario &scenario)
{
    Faults faults = always;
    // What is to begin later is left out here, so that what the rules ask for can begin at once.
    if (moment.flow < always.faultsFromFlow) {
        faults.gatewayRc = 0;
        faults.adminRc = 0;
        faults.exceptionFlag = false;
    }
    faults.faultsFromFlow = 0;
    for (const ScenarioRule &rule : scenario.rules)
        if (rule.connections.holds(moment.connection) && rule.flows.holds(moment.flow) &&
            rule.queries.holds(moment.query))
            apply(rule, moment, faults);
    return faults;
}

} // namespace rixgwsim
