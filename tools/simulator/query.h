// Answers the content of a query: which groups and statistics its elements name, with which values, and how a reply is
// brought to a size that was asked for.
#pragma once

#include "simulator.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rixgwsim {

enum class Action
{
    resourceGroups,
    statisticIds,
    statistics
};

std::optional<Action> actionNamed(std::string_view name);

// Throws std::runtime_error if replySize is not 0 and a reply of that size cannot be made.
Bytes queryCallData(const Options &options, Action action, const std::string &argument, const GatewayTime &time,
                    std::size_t replySize);

// The smallest reply to the shortest query; no smaller one can be asked for.
std::size_t leastReplySize(const StreamStyle &style);

} // namespace rixgwsim
