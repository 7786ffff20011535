#include "text_line.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace rixgwsim {

namespace {

constexpr std::string_view kBlanks = " \t\r";

template <typename Number>
Number parsed(std::string_view text, const char *what, const char *kind, Number least, Number most)
{
    Number value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    const bool readable = stop == end && (error == std::errc() || error == std::errc::result_out_of_range);
    if (!readable || text.empty())
        throw std::runtime_error(std::string(what) + " '" + std::string(text) + "' is not a " + kind);
    if (error != std::errc() || !(value >= least && value <= most))
        throw std::runtime_error(std::string(what) + " " + std::string(text) + " is out of range");
    return value;
}

} // namespace

TextLine::TextLine(std::string_view text) : rest(text)
{
    skipBlanks();
}

void TextLine::skipBlanks()
{
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
}

std::string_view TextLine::nextWord() const
{
    return rest.substr(0, rest.find_first_of(kBlanks));
}

std::string TextLine::word(const char *what)
{
    std::string taken(nextWord());
    if (taken.empty()) throw std::runtime_error(std::string(what) + " is missing");
    rest.remove_prefix(taken.size());
    skipBlanks();
    return taken;
}

std::string TextLine::remainder(const char *what)
{
    if (atEnd()) throw std::runtime_error(std::string(what) + " is missing");
    std::string taken(rest.substr(0, rest.find_last_not_of(kBlanks) + 1));
    rest = {};
    return taken;
}

bool TextLine::take(std::string_view wanted)
{
    if (nextWord() != wanted) return false;
    rest.remove_prefix(wanted.size());
    skipBlanks();
    return true;
}

double TextLine::number(const char *what, double least, double most)
{
    return parsed<double>(word(what), what, "number", least, most);
}

long long TextLine::integer(const char *what, long long least, long long most)
{
    return integerIn(word(what), what, least, most);
}

void TextLine::expectEnd() const
{
    if (!atEnd()) throw std::runtime_error("'" + std::string(rest) + "' is too much");
}

long long integerIn(std::string_view text, const char *what, long long least, long long most)
{
    return parsed<long long>(text, what, "whole number", least, most);
}

void forEachLine(std::istream &text, const std::string &name, const std::function<void(TextLine &)> &take)
{
    std::string content;
    for (int number = 1; std::getline(text, content); ++number) {
        TextLine line(content);
        if (line.saysNothing()) continue;
        try {
            take(line);
            line.expectEnd();
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(name + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    if (text.bad()) throw std::runtime_error(name + ": cannot be read: " + std::strerror(errno));
}

std::ifstream openText(const std::string &file)
{
    std::ifstream text(file);
    if (!text) throw std::runtime_error(file + ": cannot be opened: " + std::strerror(errno));
    return text;
}

} // namespace rixgwsim
