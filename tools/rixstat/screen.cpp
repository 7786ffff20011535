#include "screen.h"

#include "text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace rixstat {
namespace {

constexpr char home[] = "\033[H";
constexpr char eraseLine[] = "\033[K";
constexpr char eraseBelow[] = "\033[J";
constexpr char reverse[] = "\033[7m";
constexpr char plain[] = "\033[0m";

struct Size
{
    size_t width, height;
};

Size sizeNow()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {80, 24};
    return {size.ws_col, size.ws_row};
}

bool wantsPlainText()
{
    const char *noColour = std::getenv("NO_COLOR");
    return noColour != nullptr && *noColour != '\0';
}

// What stands on the terminal scrolls up into its history rather than get lost.
std::string scrolledAway(size_t height)
{
    return std::string(height, '\n');
}

} // namespace

bool Screen::isThere()
{
    const char *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && terminal != nullptr && *terminal != '\0' && std::strcmp(terminal, "dumb") != 0;
}

std::string Screen::frame(const std::string &title, const std::string &alarm, const Document &document)
{
    const Size size = sizeNow();
    const size_t width = std::max<size_t>(size.width, 2) - 1; // a full line would wrap on some terminals
    const size_t around = 4;                                  // title, header, last line, and the cursor's own
    const bool styled = !wantsPlainText();

    std::vector<Row> rows = document.rows;
    const size_t hidden = rows.size() - std::min(rows.size(), size.height - std::min(size.height, around));
    rows.resize(rows.size() - hidden);
    table.fitTo(width, styled);

    std::vector<std::string> lines = table.lines(document, rows, headers);
    lines.insert(lines.begin(), cut(title, width));
    if (!alarm.empty())
        lines.push_back(styled ? reverse + cut(alarm, width) + plain : cut(alarm, width));
    else if (hidden > 0)
        lines.push_back(
            cut(std::to_string(hidden) + " more rows; to see them: --top, patterns, a taller terminal", width));
    lines.resize(std::min(lines.size(), size.height - 1)); // one more would scroll

    std::string text = (drawn ? "" : scrolledAway(size.height)) + home;
    drawn = true;
    for (const std::string &line : lines)
        text += line + eraseLine + "\n";
    return text + eraseBelow;
}

} // namespace rixstat
