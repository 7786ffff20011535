// Brings the reply to a query to a size that was asked for, to try out how a client copes with it.
#pragma once

#include "object_stream.h"

#include <cstddef>
#include <vector>

namespace rixgwsim {

// Makes the call data exactly `size` bytes long: leaves out items from the end until they fit, then adds items named
// "Filler_N" to the last response that did not fail. Throws std::runtime_error where that cannot be done.
void padReply(ReplyKind kind, std::vector<Response> &responses, const StreamStyle &style, std::size_t size);

} // namespace rixgwsim
