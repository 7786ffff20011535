#include "config.h"

#include "text.h"
#include "usage_error.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>

namespace rixstat {
namespace {

std::string pathOfUser()
{
    const char *directory = std::getenv("XDG_CONFIG_HOME");
    if (directory != nullptr && *directory == '/') return std::string(directory) + "/rixstat/config.toml";
    const char *home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/rixstat/config.toml" : std::string();
}

constexpr size_t longestLine = 1000; // the matcher's recursion goes as deep as a line is long

// The part of TOML that the file needs: tables, and keys whose values are texts or whole numbers.
const std::regex blank(R"(\s*(#.*)?)");
const std::regex gatewayTable(R"(\s*\[\s*gateways\s*\.\s*([A-Za-z0-9_-]+)\s*\]\s*(#.*)?)");
const std::regex assignment(R"re(\s*([A-Za-z0-9_-]+)\s*=\s*("([^"\\]*)"|'([^']*)'|(\d{1,9}))\s*(#.*)?)re");

class ConfigReader
{
public:
    explicit ConfigReader(Config &filled) : config(filled), current(&filled.standard) {}

    void readLine(const std::string &line)
    {
        ++number;
        std::smatch match;
        if (line.size() > longestLine) refuse("is longer than " + std::to_string(longestLine) + " bytes");
        if (std::regex_match(line, blank)) return;
        if (std::regex_match(line, match, gatewayTable)) {
            const auto [place, fresh] = config.gateways.try_emplace(match[1]);
            if (!fresh) refuse("there is a gateway " + place->first + " already");
            current = &place->second;
        } else if (std::regex_match(line, match, assignment)) {
            set(match[1], match[5].matched ? "" : match[3].str() + match[4].str(), match[5]);
        } else {
            refuse("expected key = \"text\", key = number or [gateways.NAME]");
        }
    }

private:
    void set(const std::string &key, const std::string &text, const std::string &digits)
    {
        if (key == "host") {
            if (text.empty()) refuse("host must be a text in quotes");
            if (current->host) refuse("host is set twice");
            current->host = text;
        } else if (key == "port") {
            const int port = digits.empty() ? 0 : std::atoi(digits.c_str());
            if (port < 1 || port > 65535) refuse("port must be a number from 1 to 65535");
            if (current->port) refuse("port is set twice");
            current->port = port;
        } else {
            refuse("no setting " + key + " (there are: host, port)");
        }
    }

    [[noreturn]] void refuse(const std::string &why) const
    {
        throw UsageError(config.path + ", line " + std::to_string(number) + ": " + why);
    }

    Config &config;
    GatewayAddress *current;
    int number = 0;
};

} // namespace

Config readConfig()
{
    Config config;
    config.path = pathOfUser();
    if (config.path.empty()) return config;
    errno = 0;
    std::ifstream file(config.path);
    if (!file && (errno == ENOENT || errno == ENOTDIR)) return config;
    ConfigReader reader(config);
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        reader.readLine(line);
    }
    if (!file.eof()) throw UsageError(config.path + " cannot be read: " + std::strerror(errno));
    return config;
}

} // namespace rixstat
