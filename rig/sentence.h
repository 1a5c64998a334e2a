#pragma once

#include <string>
#include <vector>

/// The sentence of a body such as "PSEABEEP": "$PSEABEEP*15", without a line end. Written apart from the
/// program's own sentence class, so that neither can hide the other's mistakes.
[[nodiscard]] std::string makeSentence(const std::string &body);

/// Takes a line, with or without its line end, apart into address ("PSEABEEP") and fields; false, and nothing
/// taken, unless it is a sentence with the right checksum.
[[nodiscard]] bool parseSentence(const std::string &line, std::vector<std::string> *fields);
