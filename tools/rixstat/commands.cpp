#include "commands.h"

namespace rixstat {
namespace {

constexpr char whichStatistics[] = "Statistics or groups, or patterns with * and ?; all if none is given";

// table, screen, wide, data, prometheus, name
const FieldPlan groupsPlan = {{fieldGroup},
                              {},
                              {fieldTime, fieldElement, fieldGroup, fieldCode},
                              {fieldTime, fieldElement, fieldGroup, fieldCode},
                              {fieldGroup},
                              fieldGroup};

const FieldPlan idsPlan = {{fieldElement, fieldId},
                           {},
                           {fieldTime, fieldElement, fieldGroup, fieldId, fieldCode},
                           {fieldTime, fieldElement, fieldId, fieldCode},
                           {fieldGroup, fieldId},
                           fieldId};

const FieldPlan getPlan = {{fieldElement, fieldId, fieldValue},
                           {},
                           {fieldTime, fieldElement, fieldGroup, fieldId, fieldCode, fieldValue},
                           {fieldTime, fieldElement, fieldId, fieldValue, fieldCode},
                           {fieldGroup, fieldId, fieldValue},
                           fieldId};

const FieldPlan watchPlan = {
    {fieldTime, fieldId, fieldValue, fieldChange, fieldRate, fieldNote},
    {fieldId, fieldValue, fieldChange, fieldRate, fieldTrend},
    // Where there is no room for all, those at the end go first.
    {fieldTime, fieldId, fieldValue, fieldChange, fieldRate, fieldTrend, fieldNote, fieldGroup, fieldElement},
    {fieldTime, fieldElement, fieldId, fieldValue, fieldChange, fieldRate, fieldNote, fieldCode},
    {fieldGroup, fieldId, fieldValue},
    fieldId};

const Fields pingFields = {fieldStep, fieldCount, fieldLeast, fieldMean, fieldP99, fieldMost};
const FieldPlan pingPlan = {pingFields, {}, pingFields, pingFields, pingFields, fieldStep};

const Fields doctorFields = {fieldStep, fieldResult, fieldDuration, fieldDetail};
const FieldPlan doctorPlan = {doctorFields, {}, doctorFields, doctorFields, doctorFields, fieldStep};

const Fields versionFields = {fieldComponent, fieldVersion};
const FieldPlan versionPlan = {versionFields, {}, versionFields, versionFields, versionFields, fieldComponent};

} // namespace

const std::vector<Command> &commands()
{
    static const std::vector<Command> table = {
        {"groups", "Show the ids of all resource groups", nullptr, &groupsPlan, noOptions, 0, 0, runGroups},
        {"ids", "Show the ids of statistics", "Groups, or patterns with * and ?; all if none is given", &idsPlan,
         noOptions, 0, 0, runIds},
        {"get", "Show statistics with their values", whichStatistics, &getPlan, noOptions, 0, 0, runGet},
        {"watch", "Show statistics again and again, with change and rate", whichStatistics, &watchPlan, repeats | ranks,
         0, 2, runWatch},
        {"ping", "Time connecting and asking", nullptr, &pingPlan, repeats, 10, 0.2, runPing},
        {"doctor", "Try each step to the first answer, and say what is wrong", nullptr, &doctorPlan, noOptions, 0, 0,
         runDoctor},
        {"dump", "Write the library's state and the answer to one query, for support, to the trace destination",
         whichStatistics, nullptr, noOptions, 0, 0, runDump},
        {"version", "Show the versions of rixstat and of the library", nullptr, &versionPlan, asksNobody, 0, 0,
         runVersion},
    };
    return table;
}

} // namespace rixstat
