// What is shown: one document for each sample or answer, rows of named fields, whatever the output form.
#ifndef RIXSTAT_DOCUMENT_H
#define RIXSTAT_DOCUMENT_H

#include "settings.h"

#include <array>
#include <string>
#include <vector>

namespace rixstat {

enum Field : size_t
{
    fieldTime,
    fieldElement,
    fieldGroup,
    fieldId,
    fieldValue,
    fieldChange,
    fieldRate,
    fieldTrend,
    fieldNote,
    fieldCode,
    fieldStep,
    fieldCount,
    fieldLeast,
    fieldMean,
    fieldP99,
    fieldMost,
    fieldResult,
    fieldDuration,
    fieldDetail,
    fieldComponent,
    fieldVersion,
    fieldsInAll
};

using Fields = std::vector<Field>;

struct FieldInfo
{
    const char *name;   // in --columns and in the forms for programs
    const char *header; // in tables
    bool number;        // holds numbers; a text in it stays a text
};

const FieldInfo &infoOf(Field field);

struct Row
{
    std::array<std::string, fieldsInAll> cells; // texts as they come from the gateway; empty: there is none
    bool failed = false;                        // an element that the gateway could not answer
    bool changed = false;                       // another value than in the sample before

    std::string &operator[](Field field) { return cells[field]; }
    const std::string &operator[](Field field) const { return cells[field]; }
};

struct Document
{
    std::string command;
    std::string time;
    std::string host;
    int port;
    Fields fields; // those to show, in this order
    std::vector<Row> rows;
    std::string gap = {}; // why there is no sample; empty: there is one
};

// Which fields a command shows in which kind of form.
struct FieldPlan
{
    Fields table;
    Fields screen; // on a terminal that is redrawn
    Fields wide;
    Fields data; // for programs
    Fields prometheus;
    Field name; // what the form of that name shows
};

// The fields of which --columns and --sort can speak.
Fields availableFields(const FieldPlan &plan);

// A document of the command as of now, without rows.
Document newDocument(const std::string &command, const Settings &settings, const Fields &fields);

// Sorts by a field, numbers before texts and those before nothing; falling puts the largest first.
void sortRows(std::vector<Row> &rows, Field field, bool falling);

} // namespace rixstat

#endif // RIXSTAT_DOCUMENT_H
