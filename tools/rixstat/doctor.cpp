// doctor: the way to the first answer, step by step. The library opens a connection in one call. Of one that fails it
// tells at which step; when each step was over its trace tells.
#include "codes.h"
#include "commands.h"
#include "output.h"
#include "trace.h"

#include <rixstats_ext.h>

#include <algorithm>
#include <chrono>
#include <optional>

namespace rixstat {
namespace {

constexpr int openingBegins = 3000;
constexpr int oneDay = 24 * 3600 * 1000;

struct Step
{
    const char *name;
    int number;    // RIX_STEP_..., the last one if it is made of several
    int lastPoint; // the trace point that tells of its success
};

constexpr Step openingSteps[] = {
    {"resolve", RIX_STEP_RESOLVE, 3002},     {"connect", RIX_STEP_CONNECT, 3003}, {"greet", RIX_STEP_HANDSHAKE, 3004},
    {"authorise", RIX_STEP_AUTHORISE, 2003}, {"version", RIX_STEP_VERSION, 1001},
};

std::optional<int> timeOf(const std::vector<TraceLine> &trace, int point)
{
    for (const TraceLine &line : trace)
        if (line.point == point) return line.milliseconds;
    return {};
}

std::string between(int start, int end)
{
    return std::to_string((end - start + oneDay) % oneDay); // also at midnight
}

Row rowOf(const std::string &step, const std::string &result, const std::string &duration, const std::string &detail)
{
    Row row;
    row[fieldStep] = step;
    row[fieldResult] = result;
    row[fieldDuration] = duration;
    row[fieldDetail] = detail;
    return row;
}

class Examination
{
public:
    explicit Examination(const Viewer &givenViewer) : viewer(givenViewer) {}

    void run();
    std::vector<Row> rows;
    std::optional<Failure> failure;

private:
    void addOpening(const std::vector<TraceLine> &trace, const std::string &version);
    void addQuery(Session &session);
    std::string advice() const { return failure->happened + "; " + remedyOf(*failure, viewer.settings); }

    const Viewer &viewer;
};

void Examination::run()
{
    Session session(viewer.settings);
    KeptTrace trace(viewer.settings);
    try {
        session.open();
    } catch (const Failure &met) {
        failure = met;
    }
    addOpening(trace.take(), session.protocolVersion());
    addQuery(session);
    if (!session.isOpen()) return;
    try {
        session.close();
    } catch (const Failure &met) {
        failure = met;
    }
}

void Examination::addOpening(const std::vector<TraceLine> &trace, const std::string &version)
{
    int start = timeOf(trace, openingBegins).value_or(trace.empty() ? 0 : trace.front().milliseconds);
    const int failed = failure ? std::min<int>(failure->libraryStep, RIX_STEP_VERSION) : RIX_STEP_CLOSE;
    bool over = false;
    for (const Step &step : openingSteps) {
        const std::optional<int> end = timeOf(trace, step.lastPoint);
        if (over) {
            rows.push_back(rowOf(step.name, "not tried", "", ""));
        } else if (failed <= step.number) {
            over = true;
            const std::string duration = trace.empty() ? "" : between(start, trace.back().milliseconds);
            rows.push_back(rowOf(step.name, "failed", duration, advice()));
        } else {
            rows.push_back(rowOf(step.name, "ok", end ? between(start, *end) : "", ""));
            start = end.value_or(start);
        }
    }
    if (!failure) rows.back()[fieldDetail] = "protocol version " + version;
}

void Examination::addQuery(Session &session)
{
    if (failure) {
        rows.push_back(rowOf("query", "not tried", "", ""));
        return;
    }
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    const auto spent = [&] {
        const auto taken = Clock::now() - start;
        return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
    };
    try {
        const Items groups = collect(Content::groups, session.ask(Content::groups, {}));
        rows.push_back(rowOf("query", "ok", spent(), std::to_string(groups.size()) + " resource groups"));
    } catch (const Failure &met) {
        failure = met;
        rows.push_back(rowOf("query", "failed", spent(), advice()));
    }
}

} // namespace

ExitStatus runDoctor(const Viewer &viewer)
{
    Presenter presenter(viewer);
    Examination examination(viewer);
    examination.run();
    print(presenter.text(presenter.arranged(std::move(examination.rows))));
    if (examination.failure) throw *examination.failure;
    return exitGood;
}

} // namespace rixstat
