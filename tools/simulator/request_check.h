// Holds the bytes of one request against what the protocol wants there, field by field in the order of the wire.
#pragma once

#include "wire.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace rixgwsim {

// The text says which field was wrong, what was expected and what was received.
class ProtocolError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

class FieldReader
{
public:
    // Reads the request, which is kept by reference, from `offset` on.
    FieldReader(const Bytes &request, std::size_t offset);

    std::int32_t readInt(const char *field);
    std::string readText(const char *field);

    void expectInt(const char *field, std::int32_t expected);
    void expectByte(const char *field, std::uint8_t expected);
    void expectRaw(const char *field, std::string_view expected);
    void expectBytes(const char *field, const Bytes &expected);
    void expectText(const char *field, std::string_view expected);
    void expectEnd();

    // The field just read is wrong.
    [[noreturn]] void refuse(const char *field, const std::string &expected, const std::string &received) const;

private:
    void need(const char *field, std::size_t count);

    const Bytes &bytes;
    std::size_t position;
    std::size_t fieldStart;
};

std::string describe(std::int32_t value);

} // namespace rixgwsim
