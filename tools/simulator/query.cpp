#include "query.h"

#include "padding.h"

#include <algorithm>

namespace rixgwsim {

namespace {

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
    if (replySize != 0) padReply(kind, responses, style, replySize);
    return writeCallData(kind, responses, style);
}

std::size_t leastReplySize(const StreamStyle &style)
{
    const std::vector<Response> shortest = {{{}, -1, {}}};
    return std::min(callDataSize(ReplyKind::identifiers, shortest, style),
                    callDataSize(ReplyKind::statistics, shortest, style));
}

} // namespace rixgwsim
