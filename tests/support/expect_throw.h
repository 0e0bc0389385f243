#pragma once

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace ombrix::test {

/// Expects call() to fail as every checked lookup of the library does.
template <class Call>
void expectMissingKey(const Call& call) {
    try {
        call();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_EQ(std::string(error.what()), "invalid unordered_map<K, T> key");
    }
}

}  // namespace ombrix::test
