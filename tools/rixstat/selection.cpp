#include "selection.h"

#include "text.h"

#include <algorithm>
#include <iterator>

namespace rixstat {
namespace {

constexpr size_t longestQuery = 32000; // bytes; the library takes a little more

bool isPattern(const std::string &text)
{
    return text.find_first_of("*?") != std::string::npos;
}

std::vector<std::string> idsOf(const Items &items)
{
    std::vector<std::string> ids;
    for (const Item &item : items)
        if (!item.id.empty()) ids.push_back(item.id);
    return ids;
}

Items fetchInParts(Session &session, Content content, const std::vector<std::string> &ids)
{
    Items all;
    for (size_t begin = 0; begin < ids.size();) {
        size_t end = begin, length = 0;
        while (end < ids.size() && (end == begin || length + ids[end].size() < longestQuery))
            length += ids[end++].size() + 1;
        const auto first = ids.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = ids.begin() + static_cast<std::ptrdiff_t>(end);
        const Items part = collect(content, session.ask(content, {first, last}));
        all.insert(all.end(), part.begin(), part.end());
        begin = end;
    }
    return all;
}

} // namespace

Selection::Selection(Content what, std::vector<std::string> given) : content(what), arguments(std::move(given))
{
}

// Patterns for statistics mean their ids, patterns for ids mean groups; if none matches, the other kind is tried.
std::vector<std::string> Selection::matches(const std::string &pattern, Session &session)
{
    const bool values = content == Content::values;
    for (const Content kind : {values ? Content::ids : Content::groups, values ? Content::groups : Content::ids}) {
        if (listed.count(kind) == 0) listed[kind] = idsOf(collect(kind, session.ask(kind, {})));
        std::vector<std::string> found;
        std::copy_if(listed[kind].begin(), listed[kind].end(), std::back_inserter(found),
                     [&](const std::string &id) { return matchesPattern(id, pattern); });
        if (!found.empty()) return found;
    }
    return {};
}

void Selection::resolve(Session &session)
{
    chosen.clear();
    lonely.clear();
    listed.clear();
    for (const std::string &argument : arguments) {
        if (!isPattern(argument)) {
            chosen.push_back(argument);
            continue;
        }
        const std::vector<std::string> found = matches(argument, session);
        chosen.insert(chosen.end(), found.begin(), found.end());
        if (found.empty()) lonely.push_back(argument);
    }
}

Items Selection::fetch(Session &session) const
{
    if (arguments.empty()) return collect(content, session.ask(content, {}));
    return fetchInParts(session, content, chosen);
}

std::map<std::string, std::string> groupsOfIds(Session &session)
{
    std::map<std::string, std::string> groups;
    const std::vector<std::string> names = idsOf(collect(Content::groups, session.ask(Content::groups, {})));
    for (const Item &item : fetchInParts(session, Content::ids, names))
        if (!item.id.empty()) groups.emplace(item.id, item.element);
    return groups;
}

void addGroups(std::vector<Row> &rows, const std::map<std::string, std::string> &groups)
{
    for (Row &row : rows) {
        const auto found = groups.find(row[fieldId]);
        if (found != groups.end()) row[fieldGroup] = found->second;
    }
}

} // namespace rixstat
