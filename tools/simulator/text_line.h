// The text files that the simulator reads, catalogues and scenarios, have one entry a line, words parted by blanks.
// Empty lines and lines that begin with '#' (after any blanks) say nothing.
#pragma once

#include <fstream>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace rixgwsim {

// One line, taken apart word by word from the left. What is not as wanted throws std::runtime_error; `what` names it
// there.
class TextLine
{
public:
    explicit TextLine(std::string_view text); // which is kept by reference

    bool atEnd() const { return rest.empty(); }
    bool saysNothing() const { return rest.empty() || rest.front() == '#'; }
    std::string_view nextWord() const; // empty at the end

    std::string word(const char *what);
    std::string remainder(const char *what);
    bool take(std::string_view wanted); // true if the next word is this one, which is taken then
    double number(const char *what, double least, double most);
    long long integer(const char *what, long long least, long long most);
    void expectEnd() const;

private:
    void skipBlanks();

    std::string_view rest;
};

// The text as a whole number between these bounds.
long long integerIn(std::string_view text, const char *what, long long least, long long most);

// Hands over each line that says something, and sees that all of it is taken. Throws std::runtime_error
// "NAME:LINE: what is wrong".
void forEachLine(std::istream &text, const std::string &name, const std::function<void(TextLine &)> &take);

std::ifstream openText(const std::string &file); // throws std::runtime_error

} // namespace rixgwsim
