// Reads a catalogue from its text form, as of `rixgwsim --catalogue FILE` and of the built-in catalogue. The form is
// described in catalogue_file.cpp; example.catalogue shows it.
#pragma once

#include "catalogue.h"

#include <iosfwd>
#include <string>

namespace rixgwsim {

// Both throw std::runtime_error "FILE:LINE: what is wrong"; `name` stands for FILE.
Catalogue loadCatalogue(const std::string &file);
Catalogue readCatalogue(std::istream &text, const std::string &name);

} // namespace rixgwsim
