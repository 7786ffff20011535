#include "query.h"

#include <algorithm>
#include <stdexcept>

namespace rixgwsim {

namespace {

constexpr std::size_t kLongestFillerValue = 10000;
constexpr std::size_t kLongestFillerId = 1000;
constexpr std::size_t kCorrections = 16;

// Finds what the elements of a query name and adds it to their responses.
class Answerer
{
public:
    Answerer(const Options &theOptions, Action theAction, const GatewayTime &theTime)
        : options(theOptions), action(theAction), time(theTime)
    {
    }

    Response everything() const
    {
        Response response = {options.allElement, 0, {}};
        for (const Group &group : options.catalogue.groups)
            addGroup(response, group);
        return response;
    }

    Response element(const std::string &name) const
    {
        Response response = {name, 0, {}};
        for (const Group &group : options.catalogue.groups) {
            if (group.id == name) {
                addGroup(response, group);
                return response;
            }
            for (const Statistic &statistic : group.statistics)
                if (statistic.id == name) {
                    addStatistic(response, group, statistic);
                    return response;
                }
        }
        response.code = options.unknownElementCode;
        return response;
    }

private:
    void addGroup(Response &response, const Group &group) const
    {
        if (action == Action::resourceGroups) {
            response.items.push_back({group.id, {}});
            return;
        }
        for (const Statistic &statistic : group.statistics)
            addStatistic(response, group, statistic);
    }

    void addStatistic(Response &response, const Group &group, const Statistic &statistic) const
    {
        if (action == Action::resourceGroups)
            response.items.push_back({group.id, {}});
        else if (action == Action::statisticIds)
            response.items.push_back({statistic.id, {}});
        else
            response.items.push_back({statistic.id, statisticValue(statistic, options.seed, time)});
    }

    const Options &options;
    const Action action;
    const GatewayTime &time;
};

std::vector<std::string> elementsOf(const std::string &argument)
{
    std::vector<std::string> elements;
    std::size_t begin = 0;
    for (std::size_t colon = argument.find(':'); colon != std::string::npos; colon = argument.find(':', begin)) {
        elements.push_back(argument.substr(begin, colon - begin));
        begin = colon + 1;
    }
    elements.push_back(argument.substr(begin));
    return elements;
}

// Brings a reply to exactly `target` bytes: leaves out items from the end until it fits, then adds fillers to the last
// response that did not fail.
class Padder
{
public:
    Padder(ReplyKind replyKind, std::vector<Response> &reply, const StreamStyle &replyStyle, std::size_t size)
        : kind(replyKind), responses(reply), style(replyStyle), target(size)
    {
    }

    void pad()
    {
        while (replySize() > target)
            if (!dropLastItem())
                throw std::runtime_error("the smallest such reply has " + std::to_string(replySize()) + " bytes");
        do
            if (fill()) return;
        while (dropLastItem());
        throw std::runtime_error("no number of items makes exactly so many bytes");
    }

private:
    std::size_t replySize() const { return callDataSize(kind, responses, style); }

    bool dropLastItem()
    {
        for (auto response = responses.rbegin(); response != responses.rend(); ++response)
            if (!response->items.empty()) {
                response->items.pop_back();
                return true;
            }
        return false;
    }

    // Long fillers as far as they go, then one that is as long as is left. Where a longer block needs a longer head some
    // sizes are skipped; a short filler put before the last one moves it past such a gap.
    bool fill()
    {
        if (replySize() == target) return true;
        const auto succeeded = std::find_if(responses.rbegin(), responses.rend(),
                                            [](const Response &response) { return response.code >= 0; });
        if (succeeded == responses.rend()) return false;
        std::vector<Item> &items = succeeded->items;
        const std::size_t before = items.size();
        addLongFillers(items);
        for (std::size_t correction = 0; correction <= kCorrections; ++correction) {
            const std::size_t kept = items.size();
            if (correction != 0) items.push_back(filler(items.size(), correction));
            items.push_back(filler(items.size(), shortest()));
            if (lengthenLast(items)) return true;
            items.resize(kept);
        }
        items.resize(before);
        return replySize() == target;
    }

    // Leaves room for between two and about three more.
    void addLongFillers(std::vector<Item> &items) const
    {
        const std::size_t each = longFillerSize();
        for (;;) {
            const std::size_t fit = (target - replySize()) / each;
            if (fit <= 2) return;
            for (std::size_t i = 2; i < fit; ++i)
                items.push_back(filler(items.size(), longest()));
        }
    }

    std::size_t longFillerSize() const
    {
        constexpr std::size_t kSlack = 16; // blocks may fall otherwise, numbers grow longer
        const Item item = filler(0, longest());
        const std::vector<Response> one = {{{}, 0, {item}}};
        const std::vector<Response> two = {{{}, 0, {item, item}}};
        return callDataSize(kind, two, style) - callDataSize(kind, one, style) + kSlack;
    }

    bool lengthenLast(std::vector<Item> &items) const
    {
        std::size_t low = shortest();
        std::size_t high = 4 * longest();
        while (low < high) {
            const std::size_t middle = (low + high) / 2;
            items.back() = filler(items.size() - 1, middle);
            if (replySize() < target)
                low = middle + 1;
            else
                high = middle;
        }
        items.back() = filler(items.size() - 1, low);
        return replySize() == target;
    }

    std::size_t longest() const { return kind == ReplyKind::statistics ? kLongestFillerValue : kLongestFillerId; }
    std::size_t shortest() const { return kind == ReplyKind::statistics ? 0 : 1; }

    Item filler(std::size_t number, std::size_t length) const
    {
        std::string text = "Filler_" + std::to_string(number + 1);
        if (kind == ReplyKind::statistics) return {text, pattern(length)};
        if (text.size() < length) text += "_" + pattern(length);
        return {text.substr(0, length), {}};
    }

    // Neighbouring bytes differ, so that a lost or doubled one shows.
    static std::string pattern(std::size_t length)
    {
        constexpr std::string_view kPattern = "abcdefghijklmnopqrstuvwxyz0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
        std::string text(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = kPattern[i % kPattern.size()];
        return text;
    }

    const ReplyKind kind;
    std::vector<Response> &responses;
    const StreamStyle &style;
    const std::size_t target;
};

} // namespace

std::optional<Action> actionNamed(std::string_view name)
{
    if (name == "RESOURCE_GROUPS") return Action::resourceGroups;
    if (name == "STAT_IDS") return Action::statisticIds;
    if (name == "GET_STATS") return Action::statistics;
    return std::nullopt;
}

Bytes queryCallData(const Options &options, Action action, const std::string &argument, const GatewayTime &time,
                    std::size_t replySize)
{
    const ReplyKind kind = action == Action::statistics ? ReplyKind::statistics : ReplyKind::identifiers;
    const Answerer answerer(options, action, time);
    std::vector<Response> responses;
    if (argument.empty())
        responses.push_back(answerer.everything());
    else
        for (const std::string &element : elementsOf(argument))
            responses.push_back(answerer.element(element));

    StreamStyle style = options.stream;
    if (style.form == ReplyForm::automatic) style.form = argument.empty() ? ReplyForm::single : ReplyForm::array;
    if (replySize != 0) Padder(kind, responses, style, replySize).pad();
    return writeCallData(kind, responses, style);
}

std::size_t leastReplySize(const StreamStyle &style)
{
    const std::vector<Response> shortest = {{{}, -1, {}}};
    return std::min(callDataSize(ReplyKind::identifiers, shortest, style),
                    callDataSize(ReplyKind::statistics, shortest, style));
}

} // namespace rixgwsim
