// A terminal that is redrawn in place: a title, as many rows as there is room for, a last line. Drawn with cursor
// movements and erasing to the line's end only, in one write, so that nothing flickers and nothing has to be undone
// when the viewer ends, however it ends.
#ifndef RIXSTAT_SCREEN_H
#define RIXSTAT_SCREEN_H

#include "document.h"
#include "table.h"

#include <string>
#include <vector>

namespace rixstat {

class Screen
{
public:
    // Whether standard output is a terminal that can be redrawn.
    static bool isThere();

    Screen(bool groupThousands, bool withHeaders) : table(groupThousands), headers(withHeaders) {}

    // All that has to be written to show the title, the document's rows, and the alarm if there is one.
    std::string frame(const std::string &title, const std::string &alarm, const Document &document);

private:
    Table table;
    const bool headers;
    bool drawn = false;
};

} // namespace rixstat

#endif // RIXSTAT_SCREEN_H
