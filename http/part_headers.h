// The header lines of one part of a form.
#pragma once

#include <string>
#include <vector>

// Splits `block`, of which every line ends in a line feed, into header lines, and joins those that are folded.
std::vector<std::string> splitPartHeaders(const std::string& block);

// Whether a part with these header lines carries a file for the form field `field`: it is named so, and has a file name
// that is not empty.
bool isFileOfField(const std::vector<std::string>& lines, const std::string& field);
