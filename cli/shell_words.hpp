// SPDX-License-Identifier: MIT
// The words of a line as a shell reads them, and words written so that a shell reads them again.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hostadm::cli {

struct ShellWords {
    std::vector<std::string> words;
    char quote = 0;       // the quote that is still open at the end; 0: none
    bool in_word = false; // the line ends in its last word, not behind it
};

// Nothing is expanded. The line may begin within a quote.
ShellWords shell_words(std::string_view line, char quote = 0);

// Text for a place within this quote (0: within none) that a shell takes as it is.
std::string quoted_for_shell(std::string_view text, char quote);

} // namespace hostadm::cli
