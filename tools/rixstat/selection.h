// From the user's arguments to items: arguments with * or ? stand for all ids of the gateway that match, and a question
// too long for one query becomes several.
#ifndef RIXSTAT_SELECTION_H
#define RIXSTAT_SELECTION_H

#include "document.h"
#include "session.h"

#include <map>
#include <string>
#include <vector>

namespace rixstat {

class Selection
{
public:
    Selection(Content content, std::vector<std::string> arguments);

    // Finds out what the patterns stand for, on this connection. Without patterns nothing is asked.
    void resolve(Session &session);
    // The patterns that nothing matches.
    const std::vector<std::string> &unmatched() const { return lonely; }
    // Whether there is nothing to ask for.
    bool empty() const { return chosen.empty() && !arguments.empty(); }
    // What is asked for; all if there is none.
    const std::vector<std::string> &ids() const { return chosen; }

    Items fetch(Session &session) const;

private:
    std::vector<std::string> matches(const std::string &pattern, Session &session);

    const Content content;
    const std::vector<std::string> arguments;
    std::vector<std::string> chosen;
    std::vector<std::string> lonely;
    std::map<Content, std::vector<std::string>> listed; // what the gateway lists, asked for once
};

// The group of each statistic id, as the gateway lists them.
std::map<std::string, std::string> groupsOfIds(Session &session);

// Fills in the groups of the rows' ids.
void addGroups(std::vector<Row> &rows, const std::map<std::string, std::string> &groups);

} // namespace rixstat

#endif // RIXSTAT_SELECTION_H
