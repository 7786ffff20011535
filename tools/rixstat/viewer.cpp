#include "viewer.h"

#include "output.h"
#include "text.h"
#include "usage_error.h"

#include <algorithm>
#include <system_error>

namespace rixstat {
namespace {

Fields chosenFields(const FieldPlan &plan, const Settings &settings)
{
    const Form &form = formNamed(settings.form);
    Fields fields;
    for (const std::string &name : settings.columns)
        fields.push_back(fieldNamed(name, plan));
    return fields.empty() || form.fixedFields ? plan.*form.fields : fields;
}

constexpr char seeIds[] = "; does it have such ids (rixstat groups, rixstat ids)?";

struct By
{
    const char *name;
    Field field;
};

constexpr By orders[] = {{"rate", fieldRate}, {"delta", fieldChange}, {"value", fieldValue}};

// The largest first by what --by names, or by the rate where only their number was given.
void keepTop(std::vector<Row> &rows, const Settings &settings)
{
    for (const By &order : orders)
        if (settings.by == order.name || (settings.by.empty() && &order == orders)) sortRows(rows, order.field, true);
    const size_t most = static_cast<size_t>(settings.top);
    if (most > 0 && rows.size() > most) rows.resize(most);
}

} // namespace

Field fieldNamed(const std::string &name, const FieldPlan &plan)
{
    std::string known;
    for (const Field field : availableFields(plan)) {
        if (name == infoOf(field).name) return field;
        known += (known.empty() ? "" : ", ") + std::string(infoOf(field).name);
    }
    throw UsageError("no column " + name + " here (there are: " + known + ")");
}

Presenter::Presenter(const Viewer &viewer)
    : command(viewer.command), plan(*viewer.plan), settings(viewer.settings), fields(chosenFields(plan, settings)),
      writer(formNamed(settings.form).make({!settings.noHeaders, plan.name}))
{
    if (!settings.sort.empty()) fieldNamed(settings.sort.substr(settings.sort[0] == '-' ? 1 : 0), plan);
}

void Presenter::useScreenFields()
{
    if (!settings.columns.empty()) return;
    if (settings.form == "table") fields = plan.screen;
    fields.erase(std::remove(fields.begin(), fields.end(), fieldTime), fields.end());
}

bool Presenter::shows(Field field) const
{
    return std::count(fields.begin(), fields.end(), field) != 0;
}

Document Presenter::arranged(std::vector<Row> rows) const
{
    if (settings.top > 0 || !settings.by.empty()) keepTop(rows, settings);
    if (!settings.sort.empty()) {
        const bool falling = settings.sort[0] == '-';
        sortRows(rows, fieldNamed(settings.sort.substr(falling ? 1 : 0), plan), falling);
    }
    Document document = newDocument(command, settings, fields);
    for (Row &row : rows)
        row[fieldTime] = document.time;
    document.rows = std::move(rows);
    return document;
}

std::vector<Row> rowsOf(const Items &items, Content content)
{
    std::vector<Row> rows;
    for (const Item &item : items) {
        Row row;
        row.failed = item.elementCode < 0;
        row[fieldElement] = item.element;
        row[content == Content::groups ? fieldGroup : fieldId] = item.id;
        row[fieldValue] = item.value;
        row[fieldCode] = std::to_string(item.elementCode);
        rows.push_back(std::move(row));
    }
    return rows;
}

void reportAbsence(Presenter &presenter, const Failure &failure, const Settings &settings)
{
    if (settings.form != "prom" || failure.cause == Cause::here) return;
    Document document = presenter.arranged({});
    document.gap = describe(failure, settings);
    try {
        print(presenter.text(document));
    } catch (const std::system_error &) { // the failure is what the user has to be told
    }
}

ExitStatus reportFailures(const std::vector<Row> &rows, const std::vector<std::string> &unmatched,
                          const Settings &settings)
{
    const auto failed = [](const Row &row) { return row.failed; };
    const auto first = std::find_if(rows.begin(), rows.end(), failed);
    const auto others = std::count_if(rows.begin(), rows.end(), failed) - 1;
    if (first != rows.end())
        complain(gatewayName(settings) + ": the gateway cannot answer " + printable((*first)[fieldElement]) +
                 " (its code " + (*first)[fieldCode] + ")" +
                 (others > 0 ? " and " + std::to_string(others) + " more, see the rows marked so" : "") + seeIds);
    for (const std::string &pattern : unmatched)
        complain(gatewayName(settings) + ": nothing matches " + printable(pattern) + seeIds);
    return first == rows.end() && unmatched.empty() ? exitGood : exitFailed;
}

} // namespace rixstat
