// The commands that ask once: groups, ids, get, dump; and version, which asks nobody.
#include "commands.h"
#include "output.h"
#include "selection.h"
#include "usage_error.h"

#include <rixstats.h>

#include <optional>

namespace rixstat {
namespace {

ExitStatus show(const Viewer &viewer, Content content)
{
    Presenter presenter(viewer);
    Selection selection(content, viewer.settings.ids);
    Session session(viewer.settings);
    std::vector<Row> rows;
    try {
        session.open();
        selection.resolve(session);
        rows = rowsOf(selection.fetch(session), content);
        if (presenter.shows(fieldGroup) && content != Content::groups) addGroups(rows, groupsOfIds(session));
    } catch (const Failure &failure) {
        reportAbsence(presenter, failure, viewer.settings);
        throw;
    }

    // The good-bye comes first: a slow reader must not hold the gateway's connection.
    std::optional<Failure> unanswered;
    try {
        session.close();
    } catch (const Failure &failure) {
        unanswered = failure;
    }
    print(presenter.text(presenter.arranged(rows)));
    const ExitStatus status = reportFailures(rows, selection.unmatched(), viewer.settings);
    if (unanswered) throw *unanswered;
    return status;
}

} // namespace

ExitStatus runGroups(const Viewer &viewer)
{
    return show(viewer, Content::groups);
}

ExitStatus runIds(const Viewer &viewer)
{
    return show(viewer, Content::ids);
}

ExitStatus runGet(const Viewer &viewer)
{
    return show(viewer, Content::values);
}

ExitStatus runDump(const Viewer &viewer)
{
    const Settings &settings = viewer.settings;
    if (settings.form != "table" || !settings.columns.empty() || !settings.sort.empty())
        throw UsageError("dump has one form, the trace's: --output, --columns and --sort are not for it");
    Selection selection(Content::values, settings.ids);
    Session session(settings);
    session.open();
    selection.resolve(session);
    // Before the query, whose result set would else be dumped twice and whose failure would end the connection.
    require(dumpState(), "dumping the state");
    std::vector<Row> rows;
    if (!selection.empty()) {
        const RIX_ResultSetToken_t results = session.ask(Content::values, selection.ids());
        require(dumpResultSet(results), "dumping the result set");
        rows = rowsOf(collect(Content::values, results), Content::values);
    }
    const ExitStatus status = reportFailures(rows, selection.unmatched(), settings);
    session.close();
    return status;
}

ExitStatus runVersion(const Viewer &viewer)
{
    char *library = nullptr;
    require(getStatsAPIVersion(&library), "reading the version of the library");
    std::vector<Row> rows(2);
    rows[0][fieldComponent] = "rixstat";
    rows[0][fieldVersion] = RIXSTAT_VERSION;
    rows[1][fieldComponent] = "library";
    rows[1][fieldVersion] = library;
    Presenter presenter(viewer);
    print(presenter.text(presenter.arranged(std::move(rows))));
    return exitGood;
}

} // namespace rixstat
