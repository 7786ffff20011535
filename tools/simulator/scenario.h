// Which fault on which flow of which connection: a script for a gateway that misbehaves at chosen moments, as of
// `rixgwsim --scenario FILE`. The text form is described in docs/simulator.md; example.scenario shows it.
//
//   std::istringstream text("connection 1 query 3 drop");
//   options.scenario = rixgwsim::readScenario(text, "my scenario");
#pragma once

#include "faults.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace rixgwsim {

// Where a conversation stands when its faults are asked for. What there is not yet is 0.
struct Moment
{
    int connection = 0; // 1 for the first one accepted
    int flow = 0;       // 1 for the first one of the connection
    int query = 0;      // 1 for the first one of the connection; 0 for a flow that does not carry the answer to a query
};

// Numbers from `first` to `last`, and of these every `step`-th. The default takes all, 0 too.
struct NumberRange
{
    int first = 0;
    int last = 0; // 0: no end
    int step = 1;

    bool holds(int number) const;
};

enum class FaultKind
{
    drop,        // close the connection, after `value` bytes of the reply
    delay,       // reply after `value` milliseconds
    exception,   // of a get-attribute or invoke
    gatewayCode, // `value` in the reply's header
    adminCode,   // `value` as admin return code, in admin flows
    authCode,    // `value` as the code of the first authorisation reply
    pieceSize,   // send the reply in pieces of `value` bytes
    replySize,   // bring the call data of the answer to `value` bytes
};

// One line of a scenario.
struct ScenarioRule
{
    NumberRange connections;
    NumberRange flows;
    NumberRange queries;
    FaultKind fault = FaultKind::drop;
    long long value = 0;
};

struct Scenario
{
    std::vector<ScenarioRule> rules; // of two for the same moment and fault the later one counts
};

// Both throw std::runtime_error "FILE:LINE: what is wrong"; `name` stands for FILE.
Scenario loadScenario(const std::string &file);
Scenario readScenario(std::istream &text, const std::string &name);

// The faults of this very moment.
Faults faultsAt(const Moment &moment, const Faults &always, const Scenario &scenario);

} // namespace rixgwsim
