// What commands share: the settings, and the way from rows to standard output.
#ifndef RIXSTAT_VIEWER_H
#define RIXSTAT_VIEWER_H

#include "codes.h"
#include "document.h"
#include "session.h"
#include "settings.h"
#include "writer.h"

#include <memory>
#include <string>

namespace rixstat {

struct Viewer
{
    const std::string command;
    const FieldPlan *plan; // null: the command has no rows
    const Settings &settings;
};

// Turns rows into text by the options of the command line: fields, order, form.
class Presenter
{
public:
    // Throws UsageError if the options speak of columns that the command does not have.
    explicit Presenter(const Viewer &viewer);
    // For a terminal that is redrawn, whose title tells the time.
    void useScreenFields();

    bool shows(Field field) const;
    // The document with the rows in order.
    Document arranged(std::vector<Row> rows) const;
    std::string text(const Document &document) { return writer->write(document); }

private:
    const std::string command;
    const FieldPlan &plan;
    const Settings &settings;
    Fields fields;
    std::unique_ptr<Writer> writer;
};

// The field of that name among the available ones. Throws UsageError.
Field fieldNamed(const std::string &name, const FieldPlan &plan);

// One row for each item, without what only several samples can tell.
std::vector<Row> rowsOf(const Items &items, Content content);

// For the form that tells by itself that there is no gateway; the others leave that to standard error and the status.
void reportAbsence(Presenter &presenter, const Failure &failure, const Settings &settings);

// Tells on standard error which elements failed and which patterns nothing matches, and returns the fitting status.
ExitStatus reportFailures(const std::vector<Row> &rows, const std::vector<std::string> &unmatched,
                          const Settings &settings);

} // namespace rixstat

#endif // RIXSTAT_VIEWER_H
