#pragma once

#include <string>

namespace ombrix::tests {

/// Size, alignment and member offsets of the public types, one line each, as this program's flags make them.
std::string layouts();

/// What the library computes on objects that this program made: every bit of it, as text.
std::string results();

}  // namespace ombrix::tests
