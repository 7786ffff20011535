// watch: samples on a schedule, with change and rate, in place on a terminal or one after the other; goes on when the
// gateway is lost.
#include "codes.h"
#include "commands.h"
#include "interrupt.h"
#include "output.h"
#include "schedule.h"
#include "screen.h"
#include "selection.h"
#include "series.h"
#include "text.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace rixstat {
namespace {

using Clock = Schedule::Clock;
using std::chrono::seconds;

// The time without a gateway, from the question that it did not answer, and when to look for it again: at once, then
// after 1, 2, 4 ... seconds.
struct Outage
{
    Failure failure;
    Clock::time_point since;
    Clock::time_point nextTry;
    seconds pause{0};
};

class Watch
{
public:
    explicit Watch(const Viewer &givenViewer);
    ExitStatus run();

private:
    Document next();
    void connect();
    void resolve();
    Document sample();
    Document gap();
    void lose(const Failure &failure);
    void recover();
    bool show(const Document &document);
    std::string title(const Document &document) const;
    std::string alarm() const;
    std::string outageText() const;
    bool isOver() const;
    ExitStatus status() const;

    const Settings &settings;
    Presenter presenter;
    std::optional<Screen> screen;
    Selection selection;
    std::optional<Session> session;
    std::map<std::string, std::string> groups;
    Series series;
    std::optional<Outage> outage;
    Clock::time_point asked; // when the latest try began
    std::vector<Row> latest; // what is left on the screen while the gateway is gone
    int shown = 0;
    bool complete = true; // no gap, no failed element so far
    bool afterGap = false;
    bool atOnce = false; // the gap is shown for news, and no sample's time has to come before the next try
};

constexpr seconds longestPause{30};

Watch::Watch(const Viewer &given)
    : settings(given.settings), presenter(given), selection(Content::values, given.settings.ids)
{
    if (!Screen::isThere() || (settings.form != "table" && settings.form != "wide")) return;
    screen.emplace(settings.form == "table", !settings.noHeaders);
    presenter.useScreenFields();
}

ExitStatus Watch::run()
{
    Schedule schedule(settings.interval);
    while (show(next()) && !isOver()) {
        const Clock::time_point then = std::exchange(atOnce, false) ? Clock::now() : schedule.next();
        if (pauseUntil(then) == Pause::readerGone) break;
    }
    if (screen && selection.empty()) reportFailures({}, selection.unmatched(), settings); // the screen has hidden it
    if (session) session->close();
    return status();
}

// A sample, or the mark of a gap.
Document Watch::next()
{
    while (!outage || Clock::now() >= outage->nextTry) {
        asked = Clock::now();
        try {
            if (!session) connect();
            Document document = sample();
            if (outage) recover();
            return document;
        } catch (const Failure &failure) {
            // What fails from the start is not waited for: it is rather a slip than an outage.
            if (shown == 0) reportAbsence(presenter, failure, settings);
            if (shown == 0 || failure.cause == Cause::here) throw;
            atOnce = !outage && failure.cause == Cause::timeOut;
            lose(failure);
            if (failure.cause == Cause::timeOut) break; // the reader is told before the next long wait begins
        }
    }
    return gap();
}

void Watch::connect()
{
    session.emplace(settings);
    session->open();
    resolve();
    if (shown == 0 && reportFailures({}, selection.unmatched(), settings) != exitGood) complete = false;
}

void Watch::resolve()
{
    selection.resolve(*session);
    if (presenter.shows(fieldGroup)) groups = groupsOfIds(*session);
}

Document Watch::sample()
{
    // A gateway that has just been started may not list yet what the patterns stand for.
    if (selection.empty()) resolve();
    std::vector<Row> rows = rowsOf(selection.fetch(*session), Content::values);
    const Clock::time_point answered = Clock::now();
    addGroups(rows, groups);
    series.follow(rows, answered);
    for (Row &row : rows) {
        if (row.failed) complete = false;
        if (row.failed)
            row[fieldNote] = "failed";
        else if (afterGap)
            row[fieldNote] = "after gap";
    }
    afterGap = false;
    Document document = presenter.arranged(std::move(rows));
    latest = document.rows;
    return document;
}

Document Watch::gap()
{
    complete = false;
    Document document = presenter.arranged({});
    document.rows = screen ? latest : std::vector<Row>();
    document.gap = outageText();
    return document;
}

void Watch::lose(const Failure &failure)
{
    const Clock::time_point now = Clock::now();
    session.reset();
    if (!outage) {
        outage = Outage{failure, asked, now};
        if (!screen) complain(outageText() + "; connecting again");
    } else {
        outage->failure = failure;
        outage->pause = std::clamp(outage->pause * 2, seconds(1), longestPause);
        outage->nextTry = now + outage->pause;
    }
    series.forget();
    afterGap = true;
}

void Watch::recover()
{
    const auto gone = std::chrono::duration_cast<seconds>(Clock::now() - outage->since);
    if (!screen) complain(gatewayName(settings) + ": connected again after " + std::to_string(gone.count()) + " s");
    outage.reset();
    complete = false;
}

// False if nobody looks any more.
bool Watch::show(const Document &document)
{
    ++shown;
    if (!screen) return print(presenter.text(document));
    return print(screen->frame(title(document), alarm(), document));
}

std::string Watch::title(const Document &document) const
{
    return "rixstat " + printable(settings.host) + ":" + std::to_string(settings.port) + "  every " +
           shortNumber(settings.interval) + " s  sample " + std::to_string(shown) + "  " + document.time.substr(11, 8) +
           " UTC";
}

std::string Watch::alarm() const
{
    if (!outage) return {};
    const auto gone = std::chrono::duration_cast<seconds>(Clock::now() - outage->since);
    return "GATEWAY LOST for " + std::to_string(gone.count()) + " s: " + codeName(outage->failure.code) + ": " +
           outage->failure.happened;
}

std::string Watch::outageText() const
{
    return describe(outage->failure, settings);
}

// Patterns that match nothing from the start are a slip, too, and would show nothing for ever.
bool Watch::isOver() const
{
    return shown == settings.count || (shown == 1 && selection.empty());
}

ExitStatus Watch::status() const
{
    if (outage) return exitStatusOf(outage->failure.cause);
    return complete ? exitGood : exitFailed;
}

} // namespace

ExitStatus runWatch(const Viewer &viewer)
{
    return Watch(viewer).run();
}

} // namespace rixstat
