// Prints layouts and, unless "layouts" is asked for, results.
#include <cstdio>
#include <string_view>

#include "layout.h"

int main(int count, char** words) {
    std::fputs(ombrix::tests::layouts().c_str(), stdout);
    if (count < 2 || std::string_view(words[1]) != "layouts") {
        std::fputs(ombrix::tests::results().c_str(), stdout);
    }
}
